#include <io.h>

#include "platform/Win32.h"
#include "settings/OpenFile.h"

namespace QIM::detail {

std::FILE* openForReading(const std::wstring& path) {
  if (path.find(L'\0') != std::wstring::npos) {
    ::SetLastError(ERROR_FILE_NOT_FOUND);
    return nullptr;
  }
  // Wide, so a path outside the active code page opens too.
  return ::_wfopen(path.c_str(), L"rb");
}

long long fileLength(std::FILE* file) { return ::_filelengthi64(::_fileno(file)); }

}  // namespace QIM::detail
