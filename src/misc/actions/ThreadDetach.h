// Letting go of a joinable thread that nobody will join.
#pragma once

#include <cstddef>

#include "qimmisc/Export.h"

namespace QIM::detail {

/// Hands the handle of a thread made joinable by createThread to the
/// library, which joins the thread once it has ended, and at the latest when
/// the process exits. The thread keeps running and must end on its own.
///
/// A detached thread would still be in its exit path (ACE's thread adapter
/// and thread-specific cleanup) when the process tears ACE down on its way
/// out. The exit-time join is registered on the first hand-over, so it runs
/// before the exit-time destructors of everything made earlier, ACE's object
/// manager included.
QIMMISC_API void detachThread(void* handle);

/// Joins every thread handed over by detachThread and not yet joined, as the
/// process does when it exits; returns how many there were. Blocks until
/// they have all ended.
QIMMISC_API std::size_t joinDetachedThreads();

/// Joins the thread of `handle` if it has ended and returns true; returns
/// false, having done nothing, while it runs.
bool tryJoinThread(void* handle);

/// Gives up `handle` without waiting: for a forked child, where the thread
/// of a handle inherited from the parent does not run.
void forgetThread(void* handle);

/// Has `prepare` run before every fork of the process and `parent` and
/// `child` after it in the two processes, where the system forks at all.
void watchForks(void (*prepare)(), void (*parent)(), void (*child)());

}  // namespace QIM::detail
