// What SystemPaths.cpp asks of each platform (SystemPaths_win.cpp,
// SystemPaths_posix.cpp). A lookup gives the folder as the system names it
// (no separator added) or, when it gives none, possibly the reason; the
// portable part adds the separator and writes the ERROR line.
#pragma once

#include <string>

#include "qimmisc/SystemPaths.h"

namespace QIM::detail {

// The folder of the running executable.
FolderLookup executableFolder();

// The value of an environment variable: an unset or empty variable gives an
// empty folder and no problem; one that cannot be read as text, a problem.
FolderLookup environmentFolder(const wchar_t* name);

// A per-user folder: User, UserDocuments or UserAppData.
FolderLookup userFolder(Folder which);

// `folder` with a separator appended when it does not already end with one
// ('/' also counts on Windows); empty stays empty.
std::wstring withTrailingSeparator(std::wstring folder);

}  // namespace QIM::detail
