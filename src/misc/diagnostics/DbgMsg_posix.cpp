#include "diagnostics/DbgMsgPlatform.h"

#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

namespace QIM {
namespace DbgMsg {
namespace platform {

unsigned long currentThreadId() {
  // The syscall is cached: the id never changes for a thread's lifetime.
  thread_local const unsigned long id =
      static_cast<unsigned long>(::syscall(SYS_gettid));
  return id;
}

unsigned int osLastError() { return static_cast<unsigned int>(errno); }

}  // namespace platform
}  // namespace DbgMsg
}  // namespace QIM
