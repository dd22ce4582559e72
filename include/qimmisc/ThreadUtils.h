// Starting, naming and joining the library's threads, and the process-wide
// main action queue.
#pragma once

#include <string>

#include "qimmisc/Export.h"
#include "qimmisc/functor.h"

namespace QIM {

class ActionQueue;

/// Starts a thread that runs `body` (with its posting trace saved), named
/// `name` for debuggers unless the name is empty. Returns only once the new
/// thread runs, with the id the thread sees for itself (ACE_Thread::self()).
/// When `handle` is not null the thread is joinable and its handle is stored
/// there for joinThread; otherwise it is detached. `stackSize` 0 means the
/// platform default. Throws std::bad_alloc when no thread can be made.
QIMMISC_API unsigned long createThread(const Functor& body, const std::string& name,
                                       void** handle, unsigned long long stackSize = 0);

/// Waits for the thread of `handle` (from createThread) to end and releases
/// the handle. A failure is logged, never thrown.
QIMMISC_API void joinThread(void* handle);

/// Names the calling thread for an attached debugger (Windows: the
/// debugger naming exception and SetThreadDescription; Linux:
/// pthread_setname_np, cut to the kernel's 15 bytes on a UTF-8 boundary).
QIMMISC_API void setThreadName(const std::string& name);

/// Always empty: thread names are write-only for the library.
QIMMISC_API std::string getThreadName();

/// Records the process-wide main queue; a second call reports
/// "Main ActionQueue already set!" and replaces the first.
QIMMISC_API void setMainActionQueue(ActionQueue& queue);
/// The main queue. The host must set it first: unset, "Main ActionQueue not
/// set!" is reported.
QIMMISC_API ActionQueue& getMainActionQueue();
/// Forgets the main queue.
QIMMISC_API void resetMainActionQueue();

}  // namespace QIM
