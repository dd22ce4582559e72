// Where things are on this machine: the installation folder, the user's home,
// documents and per-user application data folders, and a file test.
//
// Every folder returned here ends with the platform separator, so callers
// append relative names directly: getInstallationPath() + L"data\\Ringtone.ini"
// on Windows, + L"data/Ringtone.ini" on Linux. A folder that cannot be
// determined is returned empty (after an ERROR line), so an appended name
// then resolves against the working directory instead of the root.
#pragma once

#include <string>

#include "qimmisc/Export.h"

namespace QIM {

/// The separator between path components: '\\' on Windows, '/' elsewhere.
#ifdef _WIN32
inline constexpr wchar_t kPathSeparator = L'\\';
#else
inline constexpr wchar_t kPathSeparator = L'/';
#endif

/// kPathSeparator, for callers that want a function.
QIMMISC_API wchar_t pathSeparator();

/// The folder the product is installed in. Precedence: a folder given to
/// setInstallationPath, else the environment variable QIMMISC_INSTALL_DIR
/// when set and not empty, else the folder of the running executable. A
/// separator is added when the chosen folder lacks one; the folder is not
/// otherwise checked or made absolute. A variable that is set but cannot be
/// read as text (not UTF-8 on Linux) is not skipped: the result is then
/// empty, as lookUpFolder explains. Thread-safe.
QIMMISC_API std::wstring getInstallationPath();

/// Overrides the installation folder for the whole process (hosts that load
/// the library from elsewhere, and tests). An empty `folder` removes the
/// override, so the environment variable or the executable folder applies
/// again. Thread-safe.
QIMMISC_API void setInstallationPath(const std::wstring& folder);

/// The user's home folder: the profile folder (CSIDL_PROFILE, else
/// %USERPROFILE%) on Windows; $HOME, else the password database, on Linux.
QIMMISC_API std::wstring getUserDir();

/// The user's documents folder: CSIDL_PERSONAL (else the profile's
/// "Documents") on Windows. On Linux XDG_DOCUMENTS_DIR from the environment,
/// else from user-dirs.dirs in $XDG_CONFIG_HOME (default ~/.config), with a
/// leading "$HOME" expanded; else ~/Documents. Relative settings are ignored.
QIMMISC_API std::wstring getUserDocsDir();

/// The per-user application data folder: CSIDL_APPDATA (else %APPDATA%) on
/// Windows; $XDG_CONFIG_HOME when absolute, else ~/.config, on Linux.
QIMMISC_API std::wstring getUserAppDir();

/// The folders the getters above return.
enum class Folder { Installation, User, UserDocuments, UserAppData };

/// A folder looked up together with the reason when there is none.
struct FolderLookup {
  std::wstring folder;  ///< with its trailing separator; empty when not found
  std::string problem;  ///< why `folder` is empty, in English; empty otherwise
};

/// Looks up `which` exactly as its getter does, and says why when the result
/// is empty: for instance "name is not valid UTF-8: /home/\xE9ric" on Linux,
/// where folder names are bytes that must be UTF-8 to become wide text (the
/// bytes that are not printable ASCII are shown as \xHH). A failed lookup
/// also writes "Cannot determine the <what> folder: <problem>" to ERROR.
QIMMISC_API FolderLookup lookUpFolder(Folder which);

/// True when `path` names something that exists and is not a directory
/// (following symbolic links). False for a directory, a missing or
/// unreachable path, an empty path or one with an embedded NUL.
QIMMISC_API bool fileExists(const std::wstring& path);

}  // namespace QIM
