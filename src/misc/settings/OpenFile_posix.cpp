#include <sys/stat.h>

#include <cerrno>

#include "qimmisc/StringUtils.h"
#include "settings/OpenFile.h"

namespace QIM::detail {

std::FILE* openForReading(const std::wstring& path) {
  const std::string bytes = toUtf8(path);
  if (bytes.empty() || path.find(L'\0') != std::wstring::npos) {
    errno = ENOENT;
    return nullptr;
  }
  return std::fopen(bytes.c_str(), "rbe");  // e: close-on-exec
}

long long fileLength(std::FILE* file) {
  struct stat st {};
  if (::fstat(fileno(file), &st) != 0) return -1;
  return static_cast<long long>(st.st_size);
}

}  // namespace QIM::detail
