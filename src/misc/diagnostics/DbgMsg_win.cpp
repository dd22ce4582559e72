#include "diagnostics/DbgMsgPlatform.h"

#include "platform/Win32.h"

namespace QIM {
namespace DbgMsg {
namespace platform {

unsigned long currentThreadId() { return ::GetCurrentThreadId(); }

unsigned int osLastError() { return ::GetLastError(); }

}  // namespace platform
}  // namespace DbgMsg
}  // namespace QIM
