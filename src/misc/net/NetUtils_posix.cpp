// File URLs without a shell: the scheme "file" in any letter case. Like the
// shell's test, the text ends at an embedded NUL.
#include "net/NetUtilsPlatform.h"

#include "qimmisc/StringUtils.h"

namespace QIM::net {

bool isFileUrlPlatform(const std::wstring& url) {
  return stringStartsWithIgnoreCase(std::wstring(url.c_str()), std::wstring(L"file:"));
}

}  // namespace QIM::net
