// Each line is matched the way the format's two scanf patterns match it,
// "[%255[^]]" for a header and "%255[^=]=%[^\r\n]" for an entry, but by
// pointers over the decoded text: no copies of the line, no scanf. Names
// and values stay views into the text, which the store keeps.
#include "settings/SettingsParser.h"

#include <cstdint>
#include <cwchar>
#include <cwctype>
#include <string_view>
#include <utility>

#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"

namespace QIM::detail {
namespace {

constexpr std::ptrdiff_t kMaxNameLength = 255;  // the patterns' field width

// The white space of trim(), without a library call for printable ASCII.
bool isSpace(wchar_t c) {
  if (c > L' ' && c < 0x7F) return false;
  return std::iswspace(static_cast<std::wint_t>(c)) != 0;
}

// [begin, end) without surrounding white space.
std::wstring_view trimmed(const wchar_t* begin, const wchar_t* end) {
  while (begin < end && isSpace(*begin)) ++begin;
  while (end > begin && isSpace(end[-1])) --end;
  return std::wstring_view(begin, static_cast<std::size_t>(end - begin));
}

// Lengths count UTF-16 units on every platform, as the format's limits were
// set where wide text is UTF-16: a character beyond U+FFFF counts two.
std::ptrdiff_t units(wchar_t c) { return (static_cast<std::uint32_t>(c) >> 16) != 0 ? 2 : 1; }

std::size_t lineUnits(const wchar_t* p, const wchar_t* end) {
  const auto length = static_cast<std::size_t>(end - p);
  if (sizeof(wchar_t) == 2 || 2 * length <= kMaxLineLength) return length;
  std::size_t total = 0;
  for (; p < end; ++p) total += static_cast<std::size_t>(units(*p));
  return total;
}

// Scans while `accept` holds, at most `limit` units; returns the stop.
template <class Accept>
const wchar_t* scanRun(const wchar_t* p, const wchar_t* end, std::ptrdiff_t limit, Accept accept) {
  for (std::ptrdiff_t used = 0; p < end && accept(*p); ++p) {
    used += units(*p);
    if (used > limit) break;
  }
  return p;
}

class LineReader {
 public:
  LineReader(SectionStore& store, const std::wstring& fileName)
      : store_(store), fileName_(fileName) {}

  void read(const std::wstring& text) {
    const wchar_t* p = text.data();
    const wchar_t* const end = p + text.size();
    unsigned long lineNumber = 0;
    while (p < end) {
      ++lineNumber;
      const wchar_t* lineEnd = std::wmemchr(p, L'\n', static_cast<std::size_t>(end - p));
      const wchar_t* const next = lineEnd ? lineEnd + 1 : end;
      if (!lineEnd) lineEnd = end;
      if (lineUnits(p, lineEnd) > kMaxLineLength) {
        QIM_ERROR("Skipping line " << lineNumber << " of " << toUtf8(fileName_) << ": longer than "
                                   << kMaxLineLength << " characters");
      } else if (!header(p, lineEnd)) {
        entry(p, lineEnd);
      }
      p = next;
    }
  }

 private:
  // "[%255[^]]": "[" in the first column, then 1 to 255 characters other
  // than "]"; anything after them is ignored.
  bool header(const wchar_t* p, const wchar_t* end) {
    if (p == end || *p != L'[') return false;
    const wchar_t* const nameEnd =
        scanRun(p + 1, end, kMaxNameLength, [](wchar_t c) { return c != L']'; });
    if (nameEnd == p + 1) return false;
    Section& section = store_.obtain(trimmed(p + 1, nameEnd));
    store_.empty(section);
    current_ = &section;
    return true;
  }

  // "%255[^=]=%[^\r\n]": 1 to 255 characters other than "=", an "=", then
  // at least one character, the value running up to a CR or the line's end.
  void entry(const wchar_t* p, const wchar_t* end) {
    const wchar_t* const keyEnd =
        scanRun(p, end, kMaxNameLength, [](wchar_t c) { return c != L'='; });
    if (keyEnd == p || keyEnd == end || *keyEnd != L'=') return;
    const wchar_t* const valueBegin = keyEnd + 1;
    const wchar_t* valueEnd =
        std::wmemchr(valueBegin, L'\r', static_cast<std::size_t>(end - valueBegin));
    if (!valueEnd) valueEnd = end;
    if (valueEnd == valueBegin) return;
    // Entries before any header go to the section with the empty name.
    if (!current_) current_ = &store_.obtain(std::wstring_view());
    store_.assign(*current_, trimmed(p, keyEnd), trimmed(valueBegin, valueEnd));
  }

  SectionStore& store_;
  const std::wstring& fileName_;
  Section* current_ = nullptr;
};

}  // namespace

void parseSettingsText(std::wstring text, SectionStore& store, const std::wstring& fileName) {
  store.clear();
  LineReader(store, fileName).read(store.adoptText(std::move(text)));
}

}  // namespace QIM::detail
