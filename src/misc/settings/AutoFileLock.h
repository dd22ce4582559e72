// What AutoFileLock asks of each platform (AutoFileLock_win.cpp,
// AutoFileLock_posix.cpp): an OS handle as a number, -1 when not held.
#pragma once

#include <cstdint>
#include <string>

namespace QIM::detail {

inline constexpr std::intptr_t kNoLockHandle = -1;

/// Creates and holds the lock file `path`; kNoLockHandle when another holder
/// has it or it cannot be created.
std::intptr_t acquireLockFile(const std::wstring& path);

/// Closes a held lock file and deletes it.
void releaseLockFile(std::intptr_t handle, const std::wstring& path);

}  // namespace QIM::detail
