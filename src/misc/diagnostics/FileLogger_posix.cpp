#include "qimmisc/FileLogger.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

namespace QIM {

// O_APPEND with one write per line: the kernel appends each line whole, so
// other processes writing the same file never tear a line, and no user-space
// buffer is left to flush. Threads of this process take turns through a
// mutex: a sleeping waiter costs less than several writers spinning on the
// file's kernel lock.
struct FileLogger::Impl {
  int fd = -1;
  std::mutex mutex;
  std::string buffer;
};

FileLogger::FileLogger(const char* path) : impl_(std::make_unique<Impl>()) {
  if (path) {
    impl_->fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
  }
}

FileLogger::~FileLogger() {
  if (impl_->fd >= 0) ::close(impl_->fd);
}

bool FileLogger::isOpen() const { return impl_->fd >= 0; }

void FileLogger::doLogging(const std::string& line, const DbgMsg::LogLineType&) {
  if (impl_->fd < 0) return;
  const int savedErrno = errno;  // a sink must not disturb the caller's errno
  // Line and newline go out in one contiguous write: cheaper in the kernel
  // than a two-part writev.
  std::lock_guard<std::mutex> lock(impl_->mutex);
  std::string& buffer = impl_->buffer;
  buffer.assign(line);
  buffer += '\n';
  const char* data = buffer.data();
  std::size_t left = buffer.size();
  while (left > 0) {
    const ssize_t n = ::write(impl_->fd, data, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    data += n;
    left -= static_cast<std::size_t>(n);
  }
  errno = savedErrno;
}

}  // namespace QIM
