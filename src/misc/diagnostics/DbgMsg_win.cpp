#include "diagnostics/DbgMsgPlatform.h"

#include <windows.h>

namespace QIM {
namespace DbgMsg {
namespace platform {

unsigned long currentThreadId() { return ::GetCurrentThreadId(); }

unsigned int osLastError() { return ::GetLastError(); }

long long systemTimeMicros() {
  FILETIME ft;
  ::GetSystemTimeAsFileTime(&ft);
  ULARGE_INTEGER t;
  t.LowPart = ft.dwLowDateTime;
  t.HighPart = ft.dwHighDateTime;
  // 100-ns ticks since 1601 to microseconds since 1970.
  return static_cast<long long>(t.QuadPart / 10) - 11644473600000000LL;
}

}  // namespace platform
}  // namespace DbgMsg
}  // namespace QIM
