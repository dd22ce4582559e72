// Linux has no exclusive open, so the lock file carries a flock() lock:
// it belongs to the open file description, so a second object of this
// process conflicts as much as another process does. The file is truncated
// only once the lock is held, so a failed attempt leaves the holder's file
// as it was.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "qimmisc/StringUtils.h"
#include "settings/AutoFileLock.h"

namespace QIM::detail {
namespace {

// The holder may delete the file between our open and our lock, leaving us
// a lock on a file no longer at the path; such a lock is worthless.
bool stillAtPath(int fd, const std::string& path) {
  struct stat opened {};
  struct stat named {};
  return ::fstat(fd, &opened) == 0 && ::stat(path.c_str(), &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

}  // namespace

std::intptr_t acquireLockFile(const std::wstring& path) {
  const std::string bytes = toUtf8(path);
  if (bytes.empty() || path.find(L'\0') != std::wstring::npos) return kNoLockHandle;
  for (int attempt = 0; attempt < 8; ++attempt) {
    const int fd = ::open(bytes.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return kNoLockHandle;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
      ::close(fd);
      return kNoLockHandle;
    }
    if (stillAtPath(fd, bytes)) {
      if (::ftruncate(fd, 0) != 0) {
        // Held all the same: the content of a lock file carries no meaning.
      }
      return fd;
    }
    ::close(fd);
  }
  return kNoLockHandle;
}

void releaseLockFile(std::intptr_t handle, const std::wstring& path) {
  // Deleted while still locked, so nobody locks the departing file.
  ::unlink(toUtf8(path).c_str());
  ::close(static_cast<int>(handle));
}

}  // namespace QIM::detail
