// The portable part of the system paths: the installation folder override
// and the separator rules. The folders themselves come from
// SystemPaths_win.cpp and SystemPaths_posix.cpp.
#include "qimmisc/SystemPaths.h"

#include <mutex>

#include "qimmisc/Trace.h"

namespace QIM {
namespace {

std::mutex& installLock() {
  static auto* m = new std::mutex;  // never destroyed: callers may run at exit
  return *m;
}

// Set by setInstallationPath, already with its separator; empty when unset.
std::wstring& installOverride() {
  static auto* folder = new std::wstring;
  return *folder;
}

bool isSeparator(wchar_t c) {
#ifdef _WIN32
  return c == L'\\' || c == L'/';
#else
  return c == L'/';
#endif
}

}  // namespace

namespace detail {

std::wstring withTrailingSeparator(std::wstring folder) {
  if (!folder.empty() && !isSeparator(folder.back())) folder += kPathSeparator;
  return folder;
}

std::wstring folderOrError(std::wstring folder, const char* what) {
  if (folder.empty()) QIM_ERROR("Cannot determine the " << what << " folder");
  return withTrailingSeparator(std::move(folder));
}

}  // namespace detail

wchar_t pathSeparator() { return kPathSeparator; }

std::wstring getInstallationPath() {
  {
    std::lock_guard<std::mutex> lock(installLock());
    if (!installOverride().empty()) return installOverride();
  }
  std::wstring fromEnv = detail::environmentVariable(L"QIMMISC_INSTALL_DIR");
  if (!fromEnv.empty()) return detail::withTrailingSeparator(std::move(fromEnv));
  // The executable does not move while the process runs.
  static const std::wstring exeFolder = detail::executableFolder();
  return exeFolder;
}

void setInstallationPath(const std::wstring& folder) {
  std::wstring value = detail::withTrailingSeparator(folder);
  std::lock_guard<std::mutex> lock(installLock());
  installOverride().swap(value);
}

}  // namespace QIM
