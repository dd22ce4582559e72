// The portable part of the system paths: the installation folder's order of
// precedence and override, the separator rules and the report of a folder
// that cannot be given. The folders themselves come from SystemPaths_win.cpp
// and SystemPaths_posix.cpp.
#include "qimmisc/SystemPaths.h"

#include <mutex>

#include "diagnostics/NoDestructor.h"
#include "platform/SystemPathsPlatform.h"
#include "qimmisc/Trace.h"

namespace QIM {
namespace {

using detail::NoDestructor;

// Never destroyed: callers may still ask while the process exits.
std::mutex& installLock() {
  static NoDestructor<std::mutex> mutex;
  return *mutex;
}

// Set by setInstallationPath, already with its separator; empty when unset.
std::wstring& installOverride() {
  static NoDestructor<std::wstring> folder;
  return *folder;
}

bool isSeparator(wchar_t c) {
#ifdef _WIN32
  return c == L'\\' || c == L'/';
#else
  return c == L'/';
#endif
}

const char* describe(Folder which) {
  switch (which) {
    case Folder::Installation: return "installation";
    case Folder::User: return "user's home";
    case Folder::UserDocuments: return "user's documents";
    case Folder::UserAppData: return "user's application data";
  }
  return "unknown";
}

FolderLookup installationFolder() {
  {
    std::lock_guard<std::mutex> lock(installLock());
    if (!installOverride().empty()) return {installOverride(), {}};
  }
  FolderLookup fromEnv = detail::environmentFolder(L"QIMMISC_INSTALL_DIR");
  if (!fromEnv.folder.empty() || !fromEnv.problem.empty()) return fromEnv;
  // The executable does not move while the process runs.
  static const NoDestructor<FolderLookup> exeFolder(detail::executableFolder());
  return *exeFolder;
}

}  // namespace

namespace detail {

std::wstring withTrailingSeparator(std::wstring folder) {
  if (!folder.empty() && !isSeparator(folder.back())) folder += kPathSeparator;
  return folder;
}

}  // namespace detail

wchar_t pathSeparator() { return kPathSeparator; }

FolderLookup lookUpFolder(Folder which) {
  FolderLookup found =
      which == Folder::Installation ? installationFolder() : detail::userFolder(which);
  if (found.folder.empty()) {
    if (found.problem.empty()) found.problem = "not known to the system";
    QIM_ERROR("Cannot determine the " << describe(which) << " folder: " << found.problem);
  } else {
    found.folder = detail::withTrailingSeparator(std::move(found.folder));
  }
  return found;
}

std::wstring getInstallationPath() { return lookUpFolder(Folder::Installation).folder; }
std::wstring getUserDir() { return lookUpFolder(Folder::User).folder; }
std::wstring getUserDocsDir() { return lookUpFolder(Folder::UserDocuments).folder; }
std::wstring getUserAppDir() { return lookUpFolder(Folder::UserAppData).folder; }

void setInstallationPath(const std::wstring& folder) {
  std::wstring value = detail::withTrailingSeparator(folder);
  std::lock_guard<std::mutex> lock(installLock());
  installOverride().swap(value);
}

}  // namespace QIM
