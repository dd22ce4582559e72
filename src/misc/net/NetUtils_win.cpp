// File URLs as the Windows shell's path service sees them.
#include "net/NetUtilsPlatform.h"

#include "platform/Win32.h"

#include <shlwapi.h>

namespace QIM::net {

bool isFileUrlPlatform(const std::wstring& url) {
  return UrlIsW(url.c_str(), URLIS_FILEURL) != FALSE;
}

}  // namespace QIM::net
