// The portable string helpers. Each algorithm is written once, as a template
// over the character type; CharOps supplies the few C library calls that
// differ between char and wchar_t. Encoding conversions live in
// StringUtils_win.cpp and StringUtils_posix.cpp.
#include "qimmisc/StringUtils.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cwchar>
#include <cwctype>

#include "qimmisc/Trace.h"

namespace QIM {
namespace {

template <class C>
struct CharOps;

// Narrow characters go through unsigned char: passing a negative char to
// the <cctype> functions is undefined behaviour.
template <>
struct CharOps<char> {
  static bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
  static char toLower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  static char toUpper(char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  static long toLong(const char* s, char** end, int base) { return std::strtol(s, end, base); }
};

template <>
struct CharOps<wchar_t> {
  static bool isSpace(wchar_t c) { return std::iswspace(static_cast<std::wint_t>(c)) != 0; }
  static wchar_t toLower(wchar_t c) {
    return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
  }
  static wchar_t toUpper(wchar_t c) {
    return static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
  }
  static long toLong(const wchar_t* s, wchar_t** end, int base) {
    return std::wcstol(s, end, base);
  }
};

template <class C>
using Str = std::basic_string<C>;

template <class C>
bool foldedEqual(C a, C b) {
  return CharOps<C>::toLower(a) == CharOps<C>::toLower(b);
}

template <class C>
Str<C> trimT(const Str<C>& text) {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && CharOps<C>::isSpace(text[begin])) ++begin;
  while (end > begin && CharOps<C>::isSpace(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

template <class C>
bool isWhitespaceOnlyT(const Str<C>& text) {
  return std::all_of(text.begin(), text.end(), [](C c) { return CharOps<C>::isSpace(c); });
}

template <class C>
void lowercaseT(Str<C>& text) {
  for (C& c : text) c = CharOps<C>::toLower(c);
}

template <class C>
void uppercaseT(Str<C>& text) {
  for (C& c : text) c = CharOps<C>::toUpper(c);
}

template <class C>
bool equalsIgnoreCaseT(const Str<C>& a, const Str<C>& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), foldedEqual<C>);
}

template <class C>
int compareIgnoreCaseT(const Str<C>& a, const Str<C>& b, std::size_t n) {
  Str<C> left = a.substr(0, n);
  Str<C> right = b.substr(0, n);
  lowercaseT(left);
  lowercaseT(right);
  const int result = left.compare(right);
  return (result > 0) - (result < 0);
}

// `ignoreCase` picks the comparison; the search itself is shared.
template <class C>
bool startsWithT(const Str<C>& text, const Str<C>& prefix, bool ignoreCase) {
  if (prefix.size() > text.size()) return false;
  return ignoreCase ? std::equal(prefix.begin(), prefix.end(), text.begin(), foldedEqual<C>)
                    : std::equal(prefix.begin(), prefix.end(), text.begin());
}

template <class C>
bool endsWithT(const Str<C>& text, const Str<C>& suffix, bool ignoreCase) {
  if (suffix.size() > text.size()) return false;
  const auto from = text.end() - static_cast<std::ptrdiff_t>(suffix.size());
  return ignoreCase ? std::equal(suffix.begin(), suffix.end(), from, foldedEqual<C>)
                    : std::equal(suffix.begin(), suffix.end(), from);
}

template <class C>
bool containsT(const Str<C>& text, const Str<C>& needle, bool ignoreCase) {
  const auto hit = ignoreCase ? std::search(text.begin(), text.end(), needle.begin(),
                                            needle.end(), foldedEqual<C>)
                              : std::search(text.begin(), text.end(), needle.begin(),
                                            needle.end());
  return needle.empty() || hit != text.end();
}

template <class C>
std::vector<Str<C>> tokenizeT(const Str<C>& text, const Str<C>& delimiter) {
  std::vector<Str<C>> pieces;
  if (text.empty() || delimiter.empty()) return pieces;
  std::size_t pos = 0;
  for (;;) {
    const std::size_t hit = text.find(delimiter, pos);
    if (hit == Str<C>::npos) {
      pieces.push_back(text.substr(pos));
      return pieces;
    }
    pieces.push_back(text.substr(pos, hit - pos));
    pos = hit + delimiter.size();
  }
}

// A base strtol rejects is checked here: some C runtimes treat it as an
// invalid parameter and abort the process instead of setting EINVAL.
bool validBase(int base) { return base == 0 || (base >= 2 && base <= 36); }

// Runs a strto* style `parse` over the whole text. Success needs every
// character consumed (checked against the explicit length, because the
// parse stops at an embedded NUL) and no ERANGE.
template <class C, class T, class Parse>
bool parseWhole(const Str<C>& text, T* dest, Parse parse) {
  const C* const begin = text.c_str();
  C* end = nullptr;
  errno = 0;
  *dest = parse(begin, &end);
  return errno != ERANGE && end == begin + text.size();
}

template <class C>
bool stringToLongT(const Str<C>& text, long* dest, int base) {
  QIM_ASSERT(0!=dest);
  if (!dest) return false;
  QIM_ASSERT(validBase(base), "base=" << base);
  if (!validBase(base)) return false;
  return parseWhole(text, dest,
                    [base](const C* s, C** end) { return CharOps<C>::toLong(s, end, base); });
}

}  // namespace

std::vector<std::wstring> fromUtf8(const std::vector<std::string>& utf8) {
  std::vector<std::wstring> wide;
  wide.reserve(utf8.size());
  for (const std::string& text : utf8) wide.push_back(fromUtf8(text));
  return wide;
}

std::string toCurrentCodePage(const std::wstring& wide) { return toCodePage(wide, 0); }

std::wstring fromCurrentCodePage(const std::string& text) { return fromCodePage(text, 0); }

std::string trim(const std::string& text) { return trimT(text); }
std::wstring trim(const std::wstring& text) { return trimT(text); }

bool isWhitespaceOnly(const std::string& text) { return isWhitespaceOnlyT(text); }
bool isWWhitespaceOnly(const std::wstring& text) { return isWhitespaceOnlyT(text); }

void lowercase(std::string& text) { lowercaseT(text); }
void lowercase(std::wstring& text) { lowercaseT(text); }

void uppercase(std::string& text) { uppercaseT(text); }
void uppercase(std::wstring& text) { uppercaseT(text); }

bool equalsIgnoreCase(const std::string& a, const std::string& b) {
  return equalsIgnoreCaseT(a, b);
}
bool equalsIgnoreCase(const std::wstring& a, const std::wstring& b) {
  return equalsIgnoreCaseT(a, b);
}

int stringCompareIgnoreCase(const std::string& a, const std::string& b, std::size_t n) {
  return compareIgnoreCaseT(a, b, n);
}
int stringCompareIgnoreCase(const std::wstring& a, const std::wstring& b, std::size_t n) {
  return compareIgnoreCaseT(a, b, n);
}

bool stringStartsWith(const std::string& text, const std::string& prefix) {
  return startsWithT(text, prefix, false);
}
bool stringStartsWith(const std::wstring& text, const std::wstring& prefix) {
  return startsWithT(text, prefix, false);
}
bool stringStartsWithIgnoreCase(const std::string& text, const std::string& prefix) {
  return startsWithT(text, prefix, true);
}
bool stringStartsWithIgnoreCase(const std::wstring& text, const std::wstring& prefix) {
  return startsWithT(text, prefix, true);
}

bool stringEndsWith(const std::string& text, const std::string& suffix) {
  return endsWithT(text, suffix, false);
}
bool stringEndsWith(const std::wstring& text, const std::wstring& suffix) {
  return endsWithT(text, suffix, false);
}
bool stringEndsWithIgnoreCase(const std::string& text, const std::string& suffix) {
  return endsWithT(text, suffix, true);
}
bool stringEndsWithIgnoreCase(const std::wstring& text, const std::wstring& suffix) {
  return endsWithT(text, suffix, true);
}

bool stringContains(const std::string& text, const std::string& needle) {
  return containsT(text, needle, false);
}
bool stringContains(const std::wstring& text, const std::wstring& needle) {
  return containsT(text, needle, false);
}
bool stringContainsIgnoreCase(const std::string& text, const std::string& needle) {
  return containsT(text, needle, true);
}
bool stringContainsIgnoreCase(const std::wstring& text, const std::wstring& needle) {
  return containsT(text, needle, true);
}

std::vector<std::string> tokenizeString(const std::string& text,
                                        const std::string& delimiter) {
  return tokenizeT(text, delimiter);
}
std::vector<std::wstring> tokenizeString(const std::wstring& text,
                                         const std::wstring& delimiter) {
  return tokenizeT(text, delimiter);
}

bool stringToLong(const std::string& text, long* dest, int base) {
  return stringToLongT(text, dest, base);
}
bool stringToLong(const std::wstring& text, long* dest, int base) {
  return stringToLongT(text, dest, base);
}

bool stringToDouble(const std::string& text, double* dest) {
  QIM_ASSERT(0!=dest);
  if (!dest) return false;
  return parseWhole(text, dest, [](const char* s, char** end) { return std::strtod(s, end); });
}

std::string boolToString(bool value) { return value ? "true" : "false"; }
std::wstring boolToWString(bool value) { return value ? L"true" : L"false"; }

std::string intToString(long long value) { return std::to_string(value); }
std::wstring intToWString(long long value) { return std::to_wstring(value); }

}  // namespace QIM
