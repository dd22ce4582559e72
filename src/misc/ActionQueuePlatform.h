// What ActionQueue needs from the platform. ActionQueue_posix.cpp and
// ActionQueue_win.cpp implement it.
#pragma once

#include <ace/Thread_Mutex.h>

namespace QIM {
namespace detail {

// Attributes for a queue's mutex, or null for ACE's default. Producers and
// the worker hold it for a few hundred nanoseconds at a time, so on Linux
// it is an adaptive mutex that spins briefly instead of sleeping at once.
ACE_mutexattr_t* queueMutexAttributes();

}  // namespace detail
}  // namespace QIM
