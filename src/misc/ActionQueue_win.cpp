#include "ActionQueuePlatform.h"

namespace QIM {
namespace detail {

// ACE's Windows mutex is a critical section, which already spins briefly.
ACE_mutexattr_t* queueMutexAttributes() { return nullptr; }

}  // namespace detail
}  // namespace QIM
