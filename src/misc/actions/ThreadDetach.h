// Letting go of a joinable thread that nobody will join.
#pragma once

namespace QIM::detail {

/// Releases the handle of a thread made joinable by createThread, so that
/// the thread's resources go when it ends. The thread keeps running.
void detachThread(void* handle);

}  // namespace QIM::detail
