#include "data/InstalledFile.h"

#include <algorithm>

#include "qimmisc/SystemPaths.h"

namespace QIM {
namespace Data {
namespace detail {

std::wstring installedFile(const wchar_t* relative) {
  std::wstring name(relative);
  std::replace(name.begin(), name.end(), L'\\', kPathSeparator);
  // getInstallationPath ends with a separator, or is empty when the folder
  // cannot be found, so the name then resolves against the working folder.
  return getInstallationPath() + name;
}

}  // namespace detail
}  // namespace Data
}  // namespace QIM
