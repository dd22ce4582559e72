#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "qimmisc/StringUtils.h"
#include "settings/AtomicFile.h"

namespace QIM::detail {
namespace {

ReplaceResult failed(const char* step, int error) {
  ReplaceResult result;
  result.accessDenied = error == EACCES || error == EPERM || error == EROFS;
  result.error = static_cast<unsigned long>(error);
  result.step = step;
  errno = error;
  return result;
}

// A link is replaced where it points, as writing through it would.
std::string resolvedTarget(const std::string& target) {
  struct stat st {};
  if (::lstat(target.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return target;
  char resolved[PATH_MAX];
  return ::realpath(target.c_str(), resolved) ? std::string(resolved) : target;
}

bool writeAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// The rename itself is durable only once its folder is flushed; best effort.
void flushFolderOf(const std::string& target) {
  const std::size_t slash = target.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : target.substr(0, slash + 1);
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

}  // namespace

ReplaceResult replaceFileAtomically(const std::wstring& path, const char* data, std::size_t size) {
  if (path.empty() || path.find(L'\0') != std::wstring::npos) return failed("create", ENOENT);
  const std::string target = resolvedTarget(toUtf8(path));
  if (target.empty()) return failed("create", ENOENT);
  struct stat st {};
  const bool exists = ::stat(target.c_str(), &st) == 0;
  if (exists && S_ISDIR(st.st_mode)) return failed("create", EISDIR);
  if (exists && ::access(target.c_str(), W_OK) != 0) return failed("create", errno);

  const std::string temporary = toUtf8(temporaryNameBeside(fromUtf8(target)));
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return failed("create", errno);
  if (exists) ::fchmod(fd, st.st_mode & 07777);  // the old file's permissions

  const char* step = nullptr;
  const long long limit = takeInjectedFailure();
  if (limit >= 0 && static_cast<unsigned long long>(limit) < size) {
    writeAll(fd, data, static_cast<std::size_t>(limit));
    errno = EIO;
    step = "write";
  } else if (!writeAll(fd, data, size)) {
    step = "write";
  } else if (::fsync(fd) != 0) {
    step = "flush";
  }
  int error = errno;
  if (::close(fd) != 0 && !step) {
    step = "flush";
    error = errno;
  }
  if (!step && ::rename(temporary.c_str(), target.c_str()) != 0) {
    step = "replace";
    error = errno;
  }
  if (step) {
    ::unlink(temporary.c_str());
    return failed(step, error);
  }
  flushFolderOf(target);
  ReplaceResult result;
  result.ok = true;
  return result;
}

}  // namespace QIM::detail
