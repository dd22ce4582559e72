// Encoding conversions on Windows: wchar_t holds UTF-16 and everything goes
// through WideCharToMultiByte / MultiByteToWideChar, asked first for the
// length and then to convert. Lengths are passed explicitly, so embedded
// NULs survive and no terminating NUL is produced.
#include "qimmisc/StringUtils.h"

#include <climits>

#include "platform/Win32.h"
#include "qimmisc/Trace.h"

namespace QIM {
namespace {

// Code pages for which both APIs insist on dwFlags == 0 (and a null
// lpUsedDefaultChar): the ISO-2022 family, ISCII, UTF-7 and Symbol.
bool flagsMustBeZero(UINT codePage) {
  switch (codePage) {
    case 42:
    case 50220:
    case 50221:
    case 50222:
    case 50225:
    case 50227:
    case 50229:
    case CP_UTF7:
      return true;
    default:
      return codePage >= 57002 && codePage <= 57011;
  }
}

// CP_ACP is resolved first: when the system's active code page is UTF-8 the
// strict UTF-8 rules apply, and the best-fit flags below would be refused.
UINT resolve(UINT codePage) { return codePage == CP_ACP ? ::GetACP() : codePage; }

// Calls `api(buffer, capacity)` the way both conversion functions are meant
// to be called: with capacity 0 to learn the length, which goes to `len`,
// then into a buffer of that length. On failure writes
// "<what> returned 0. lasterror:<code>", leaves `out` empty and returns
// false with the code still in GetLastError.
template <class Out, class Api>
bool convertTwice(std::size_t inputSize, const char* what, Api api, Out& out,
                  std::size_t& len) {
  out.clear();
  int needed = 0;
  if (inputSize > static_cast<std::size_t>(INT_MAX)) {
    ::SetLastError(ERROR_ARITHMETIC_OVERFLOW);
  } else {
    needed = api(nullptr, 0);
  }
  if (needed > 0) {
    len = static_cast<std::size_t>(needed);
    out.assign(len, 0);
    const int written = api(out.data(), needed);
    if (written > 0) {
      out.resize(static_cast<std::size_t>(written));
      return true;
    }
    out.clear();
  }
  const DWORD code = ::GetLastError();
  QIM_ERROR(what << " returned 0. lasterror:" << code);
  ::SetLastError(code);
  return false;
}

// `checkDefault` asks the API to report characters it could only replace
// with the default character ('?'); such text counts as unconvertible
// rather than being silently changed.
std::string wideToMultiByte(const std::wstring& wide, UINT codePage, DWORD flags,
                            bool checkDefault) {
  if (wide.empty()) return {};
  const auto api = [&](char* buffer, int capacity) {
    BOOL usedDefault = FALSE;
    const int n = ::WideCharToMultiByte(codePage, flags, wide.data(),
                                        static_cast<int>(wide.size()), buffer, capacity,
                                        nullptr, checkDefault ? &usedDefault : nullptr);
    if (!usedDefault) return n;
    ::SetLastError(ERROR_NO_UNICODE_TRANSLATION);
    return 0;
  };
  std::string narrowStr;
  std::size_t len = 0;
  if (!convertTwice(wide.size(), "WCToMB", api, narrowStr, len)) return {};
  QIM_ASSERT(len == narrowStr.size());
  return narrowStr;
}

std::wstring multiByteToWide(const std::string& text, UINT codePage, DWORD flags) {
  if (text.empty()) return {};
  const auto api = [&](wchar_t* buffer, int capacity) {
    return ::MultiByteToWideChar(codePage, flags, text.data(), static_cast<int>(text.size()),
                                 buffer, capacity);
  };
  std::wstring wideStr;
  std::size_t len = 0;
  if (!convertTwice(text.size(), "MBToWC", api, wideStr, len)) return {};
  QIM_ASSERT(len == wideStr.size());
  return wideStr;
}

}  // namespace

std::string toUtf8(const std::wstring& wide) {
  return wideToMultiByte(wide, CP_UTF8, WC_ERR_INVALID_CHARS, false);
}

std::wstring fromUtf8(const std::string& utf8) {
  return multiByteToWide(utf8, CP_UTF8, MB_ERR_INVALID_CHARS);
}

std::string toCodePage(const std::wstring& wide, unsigned int codePage) {
  const UINT cp = resolve(codePage);
  if (cp == CP_UTF8) return toUtf8(wide);
  if (flagsMustBeZero(cp)) return wideToMultiByte(wide, cp, 0, false);
  // GB18030 covers all of Unicode; it takes only the strict flag.
  if (cp == 54936) return wideToMultiByte(wide, cp, WC_ERR_INVALID_CHARS, false);
  return wideToMultiByte(wide, cp, WC_NO_BEST_FIT_CHARS, true);
}

std::wstring fromCodePage(const std::string& text, unsigned int codePage) {
  const UINT cp = resolve(codePage);
  if (cp == CP_UTF8) return fromUtf8(text);
  return multiByteToWide(text, cp, flagsMustBeZero(cp) ? 0 : MB_ERR_INVALID_CHARS);
}

}  // namespace QIM
