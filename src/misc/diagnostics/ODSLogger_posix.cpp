#include "qimmisc/ODSLogger.h"

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

namespace QIM {

// Without a debugger channel, standard error is where a developer looks.
// One writev keeps concurrent lines whole.
void ODSLogger::doLogging(const std::string& line, const DbgMsg::LogLineType&) {
  const int savedErrno = errno;
  char newline = '\n';
  iovec parts[2] = {{const_cast<char*>(line.data()), line.size()}, {&newline, 1}};
  while (::writev(STDERR_FILENO, parts, 2) < 0 && errno == EINTR) {
  }
  errno = savedErrno;
}

}  // namespace QIM
