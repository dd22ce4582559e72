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
/// otherwise checked or made absolute. Thread-safe.
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

/// True when `path` names something that exists and is not a directory
/// (following symbolic links). False for a directory, a missing or
/// unreachable path, an empty path or one with an embedded NUL.
QIMMISC_API bool fileExists(const std::wstring& path);

namespace detail {

// Implemented per platform in SystemPaths_win.cpp / SystemPaths_posix.cpp;
// not exported.

// Folder of the running executable with its trailing separator, or empty.
std::wstring executableFolder();

// Value of an environment variable; empty when unset.
std::wstring environmentVariable(const wchar_t* name);

// Implemented in SystemPaths.cpp. `folder` with a separator appended when
// it does not already end with one ('/' also counts on Windows); empty
// stays empty.
std::wstring withTrailingSeparator(std::wstring folder);

// Implemented in SystemPaths.cpp. withTrailingSeparator(folder), or, when
// `folder` is empty, an ERROR line "Cannot determine the <what> folder" and
// an empty result.
std::wstring folderOrError(std::wstring folder, const char* what);

}  // namespace detail

}  // namespace QIM
