#include <pthread.h>

#include "ActionQueuePlatform.h"

namespace QIM {
namespace detail {

ACE_mutexattr_t* queueMutexAttributes() {
  static pthread_mutexattr_t* attributes = [] {
    auto* made = new pthread_mutexattr_t;
    ::pthread_mutexattr_init(made);
#if defined(PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP)
    ::pthread_mutexattr_settype(made, PTHREAD_MUTEX_ADAPTIVE_NP);
#endif
    return made;
  }();
  return attributes;
}

}  // namespace detail
}  // namespace QIM
