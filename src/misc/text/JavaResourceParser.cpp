#include "qimmisc/JavaResourceParser.h"

#include <cstring>
#include <vector>

namespace QIM {

namespace {

// Big enough that a 1 MB file takes a handful of reads, small enough to
// stay in cache while its lines are scanned.
constexpr std::size_t kChunk = 64 * 1024;

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The code unit of "\uXXXX" at `p` (pointing at the backslash), or -1.
long unicodeEscapeAt(const char* p, const char* end) {
  if (end - p < 6 || p[1] != 'u') return -1;
  long unit = 0;
  for (int i = 2; i < 6; ++i) {
    const int digit = hexValue(p[i]);
    if (digit < 0) return -1;
    unit = unit * 16 + digit;
  }
  return unit;
}

bool isHighSurrogate(long unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(long unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// Decodes into `out`, whose storage is reused from line to line: the decoded
// text is never longer than the bytes, so it is sized once and trimmed. One
// pass, left to right: "\n" and "\t" yield characters that cannot start or
// complete another escape, so this gives what replacing each escape kind
// everywhere in turn gives.
void decodeInto(const char* begin, const char* end, std::wstring& out) {
  out.resize(static_cast<std::size_t>(end - begin));
  wchar_t* to = out.data();
  const char* p = begin;
  while (p != end) {
    const char* backslash = static_cast<const char*>(std::memchr(p, '\\', end - p));
    const char* plainEnd = backslash == nullptr ? end : backslash;
    for (; p != plainEnd; ++p) *to++ = static_cast<wchar_t>(static_cast<unsigned char>(*p));
    if (p == end) break;
    if (end - p >= 2 && (p[1] == 'n' || p[1] == 't')) {
      *to++ = p[1] == 'n' ? L'\n' : L'\t';
      p += 2;
    } else if (const long unit = unicodeEscapeAt(p, end); unit >= 0) {
      p += 6;
      long low = -1;
      if (sizeof(wchar_t) > 2 && isHighSurrogate(unit) &&
          isLowSurrogate(low = unicodeEscapeAt(p, end))) {
        *to++ = static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
        p += 6;
      } else {
        *to++ = static_cast<wchar_t>(unit);
      }
    } else {
      *to++ = L'\\';
      ++p;
    }
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
}

// One line without its line feed; false when the sink refuses its entry.
bool parseLine(const char* begin, const char* end, IJavaResourceSink& sink, std::string& key,
               std::wstring& value) {
  if (begin == end || *begin == '#') return true;
  const char* equals = static_cast<const char*>(std::memchr(begin, '=', end - begin));
  if (equals == nullptr) return true;
  const char* text = equals + 1;
  while (text != end && *text == ' ') ++text;
  if (text == end) return true;
  key.assign(begin, equals);
  decodeInto(text, end, value);
  return sink.addResource(key, value);
}

}  // namespace

bool parseJavaResources(std::istream& input, IJavaResourceSink& sink) {
  // Read in large blocks and split here: far cheaper than a getline per line.
  std::vector<char> buffer(kChunk);
  std::size_t held = 0;  // bytes of an unfinished line at the buffer's start
  std::string key;
  std::wstring value;
  while (input) {
    if (held == buffer.size()) buffer.resize(buffer.size() * 2);  // a very long line
    input.read(buffer.data() + held, static_cast<std::streamsize>(buffer.size() - held));
    const std::size_t filled = held + static_cast<std::size_t>(input.gcount());
    const char* line = buffer.data();
    const char* end = buffer.data() + filled;
    while (const char* feed = static_cast<const char*>(std::memchr(line, '\n', end - line))) {
      if (!parseLine(line, feed, sink, key, value)) return false;
      line = feed + 1;
    }
    held = static_cast<std::size_t>(end - line);
    std::memmove(buffer.data(), line, held);
  }
  // The last line needs no line feed.
  return parseLine(buffer.data(), buffer.data() + held, sink, key, value);
}

}  // namespace QIM
