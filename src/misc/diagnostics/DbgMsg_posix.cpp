#include "diagnostics/DbgMsgPlatform.h"

#include <cerrno>
#include <ctime>
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

long long systemTimeMicros() {
  timespec ts{};
  ::clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

}  // namespace platform
}  // namespace DbgMsg
}  // namespace QIM
