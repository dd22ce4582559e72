// Trace lines read back field by field, in the forms Tracer, StackLogger,
// the assertion and throw sites, printBackTrace and StackTrace write them.
// Views into the line only: reading a large file allocates nothing per line.
#include "qimmisc/TraceLineParser.h"

#include <array>
#include <cstring>
#include <limits>

namespace QIM {
namespace DbgMsg {

namespace {

constexpr std::string_view kReturnOpen = "<ret Time:";
constexpr std::string_view kReturnClose = " usec>";
constexpr std::string_view kAssertion = "Assertion failed: \"";
constexpr std::string_view kOsError = "  OS ERROR: ";
constexpr std::string_view kErrno = " errno: ";
constexpr std::string_view kThrowing = "Throwing ";
constexpr std::string_view kBackTrace = "Stack trace for thread ";
constexpr std::string_view kDelayedTrace = "Delayed stack trace for thread ";
constexpr std::string_view kAdditional = "Additional information: ";
constexpr std::string_view kFrameMiddle = "()    <";
constexpr std::string_view kEntryChannel = "ENTRY";

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The first `c` in [p, end), or end. Eight bytes at a time: a byte equal to
// `c` is a zero byte of the word xor c, found with the classic bit trick;
// the word that holds one is then searched byte by byte (measured faster
// here than counting the flag's place).
const char* findByte(const char* p, const char* end, char c) {
  constexpr std::uint64_t ones = 0x0101010101010101ull;
  const std::uint64_t pattern = ones * static_cast<unsigned char>(c);
  for (; end - p >= 8; p += 8) {
    std::uint64_t word;
    std::memcpy(&word, p, 8);
    word ^= pattern;
    const std::uint64_t found = (word - ones) & ~word & (ones << 7);
    if (found) {
      break;
    }
  }
  while (p < end && *p != c) ++p;
  return p;
}

// The texts compared are a few bytes long and mostly differ at once:
// word-wide compares the compiler unrolls for each constant beat a call to
// memcmp.
bool sameBytes(const char* a, std::string_view b) {
  std::size_t i = 0;
  for (; i + 8 <= b.size(); i += 8) {
    std::uint64_t x, y;
    std::memcpy(&x, a + i, 8);
    std::memcpy(&y, b.data() + i, 8);
    if (x != y) return false;
  }
  for (; i < b.size(); ++i) {
    if (a[i] != b[i]) return false;
  }
  return true;
}

bool startsWith(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && sameBytes(s.data(), prefix);
}

bool endsWith(std::string_view s, std::string_view suffix) {
  return s.size() >= suffix.size() && sameBytes(s.data() + s.size() - suffix.size(), suffix);
}

// A decimal number as the library writes it: an optional '-' where allowed,
// no leading zeros, within `max`. The whole of `s`.
bool readDecimal(std::string_view s, long long max, bool signAllowed, long long& value) {
  bool negative = false;
  if (signAllowed && !s.empty() && s.front() == '-') {
    negative = true;
    s.remove_prefix(1);
  }
  // 19 digits always fit 64 unsigned bits, so the loop needs no check.
  if (s.empty() || s.size() > 19 || (s.size() > 1 && s.front() == '0') || (negative && s == "0")) {
    return false;
  }
  unsigned long long result = 0;
  for (const char c : s) {
    if (!isDigit(c)) return false;
    result = result * 10 + static_cast<unsigned>(c - '0');
  }
  if (result > static_cast<unsigned long long>(max)) return false;
  value = negative ? -static_cast<long long>(result) : static_cast<long long>(result);
  return true;
}

bool readLineNumber(std::string_view s, int& value) {
  long long number = 0;
  if (!readDecimal(s, std::numeric_limits<int>::max(), true, number)) return false;
  value = static_cast<int>(number);
  return true;
}

// Values of the upper-case hexadecimal digits; 16 for every other byte. A
// table, not tests: digits and letters alternate unpredictably in an id.
constexpr auto kHexValue = [] {
  std::array<unsigned char, 256> table{};
  for (auto& value : table) value = 16;
  for (int c = '0'; c <= '9'; ++c) table[c] = static_cast<unsigned char>(c - '0');
  for (int c = 'A'; c <= 'F'; ++c) table[c] = static_cast<unsigned char>(c - 'A' + 10);
  return table;
}();

// The thread id: 4 or more upper-case hexadecimal digits, a wider id
// without leading zeros, at most 16 digits. The whole of `s`.
bool readThreadId(std::string_view s, std::uint64_t& id) {
  if (s.size() < 4 || s.size() > 16 || (s.size() > 4 && s.front() == '0')) return false;
  std::uint64_t value = 0;
  unsigned invalid = 0;
  for (const char c : s) {
    const unsigned digit = kHexValue[static_cast<unsigned char>(c)];
    invalid |= digit & 16;
    value = value << 4 | (digit & 15);
  }
  if (invalid) return false;
  id = value;
  return true;
}

// "<ret Time:N usec>".
bool readReturn(std::string_view text, TraceLine& out) {
  if (text.size() < kReturnOpen.size() + kReturnClose.size() || !startsWith(text, kReturnOpen) ||
      !endsWith(text, kReturnClose)) {
    return false;
  }
  const std::string_view number = text.substr(
      kReturnOpen.size(), text.size() - kReturnOpen.size() - kReturnClose.size());
  return readDecimal(number, std::numeric_limits<long long>::max(), true, out.usec);
}

// "Assertion failed: \"COND\"[ : MESSAGE]  OS ERROR: N errno: M".
bool readAssertion(std::string_view text, TraceLine& out) {
  if (!startsWith(text, kAssertion)) return false;
  const std::size_t os = text.rfind(kOsError);
  if (os == std::string_view::npos || os < kAssertion.size()) return false;
  const std::string_view codes = text.substr(os + kOsError.size());
  const std::size_t errnoAt = codes.find(kErrno);
  if (errnoAt == std::string_view::npos ||
      !readDecimal(codes.substr(0, errnoAt), std::numeric_limits<unsigned>::max(), false,
                   out.osError) ||
      !readDecimal(codes.substr(errnoAt + kErrno.size()), std::numeric_limits<int>::max(), true,
                   out.errnoValue)) {
    return false;
  }
  const std::string_view quoted = text.substr(kAssertion.size(), os - kAssertion.size());
  if (const std::size_t split = quoted.find("\" : "); split != std::string_view::npos) {
    out.condition = quoted.substr(0, split);
    out.message = quoted.substr(split + 4);
  } else if (!quoted.empty() && quoted.back() == '"') {
    out.condition = quoted.substr(0, quoted.size() - 1);
  } else {
    return false;
  }
  return true;
}

// "Throwing TYPE(\"MESSAGE\") : DETAIL", or an older site's
// "Throwing TYPE : DETAIL".
bool readThrow(std::string_view text, TraceLine& out) {
  if (!startsWith(text, kThrowing)) return false;
  std::string_view rest = text.substr(kThrowing.size());
  std::size_t typeEnd = 0;
  while (typeEnd < rest.size() && rest[typeEnd] != '(' && rest[typeEnd] != ' ') ++typeEnd;
  if (typeEnd == 0) return false;
  out.exceptionType = rest.substr(0, typeEnd);
  rest.remove_prefix(typeEnd);
  if (startsWith(rest, "(\"")) {
    const std::size_t close = rest.rfind("\")");
    if (close == std::string_view::npos || close < 1) return false;
    out.exceptionMessage = rest.substr(2, close - 2);
    rest.remove_prefix(close + 2);
  }
  if (!startsWith(rest, " :")) return false;
  rest.remove_prefix(2);
  if (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
  out.detail = rest;
  return true;
}

// "[" 4+ hex "] " CHANNEL padding ">" [depth marker] " " FILE ":" LINE
// " (" FUNCTION ") " TEXT.
bool readHeaderLine(std::string_view line, TraceLine& out) {
  const char* begin = line.data();
  const char* end = begin + line.size();
  // Short runs: no call to memchr.
  const char* close = findByte(begin + 1, end, ']');
  if (close + 1 >= end || close[1] != ' ') return false;
  if (!readThreadId(std::string_view(begin + 1, static_cast<std::size_t>(close - begin - 1)),
                    out.thread)) {
    return false;
  }
  const char* column = close + 2;
  const char* gt = findByte(column, end, '>');
  if (gt == end) return false;
  out.channelWidth = static_cast<unsigned>(gt - column);
  const char* nameEnd = gt;
  while (nameEnd > column && nameEnd[-1] == ' ') --nameEnd;
  out.channel = std::string_view(column, static_cast<std::size_t>(nameEnd - column));

  const char* p = gt + 1;
  const bool entry = out.channel.size() == kEntryChannel.size() && startsWith(out.channel, kEntryChannel);
  if (entry) {
    if (p < end && *p == '[') {
      const char* digitsEnd = static_cast<const char*>(std::memchr(p, ']', static_cast<std::size_t>(end - p)));
      if (!digitsEnd) return false;
      std::string_view digits(p + 1, static_cast<std::size_t>(digitsEnd - p - 1));
      // Right-aligned in 2 columns: one digit has a blank before it.
      if (digits.size() == 2 && digits.front() == ' ') {
        digits.remove_prefix(1);
      } else if (digits.size() < 2) {
        return false;
      }
      long long depth = 0;
      if (!readDecimal(digits, std::numeric_limits<int>::max(), false, depth)) return false;
      if (depth < 10 && digits.size() != 1) return false;
      out.depth = static_cast<int>(depth);
      out.marker = DepthMarker::Brackets;
      p = digitsEnd + 1;
    } else {
      const char* arrows = p;
      while (p < end && *p == '>') ++p;
      out.depth = static_cast<int>(p - arrows) + 1;
      out.marker = DepthMarker::Arrows;
    }
  }
  if (p >= end || *p != ' ') return false;
  ++p;

  // The file ends at the first ':' that a line number and " (" follow.
  const char* fileBegin = p;
  const char* numberEnd = nullptr;
  for (;;) {
    const char* colon = findByte(p, end, ':');
    if (colon == end) return false;
    // The number is read as it is scanned; the rules are readDecimal's.
    const char* q = colon + 1;
    const bool negative = q < end && *q == '-';
    const char* digits = q + negative;
    unsigned long long number = 0;
    for (q = digits; q < end && isDigit(*q); ++q) number = number * 10 + static_cast<unsigned>(*q - '0');
    const auto count = static_cast<std::size_t>(q - digits);
    if (q + 1 < end && q[0] == ' ' && q[1] == '(' && q > colon + 1) {
      if (count == 0 || count > 10 || (count > 1 && *digits == '0') ||
          (negative && count == 1 && *digits == '0') ||
          number > static_cast<unsigned long long>(std::numeric_limits<int>::max())) {
        return false;
      }
      out.file = std::string_view(fileBegin, static_cast<std::size_t>(colon - fileBegin));
      out.line = negative ? -static_cast<int>(number) : static_cast<int>(number);
      numberEnd = q;
      break;
    }
    p = colon + 1;
  }
  const char* functionBegin = numberEnd + 2;
  std::string_view text;
  for (p = functionBegin;;) {
    const char* paren = findByte(p, end, ')');
    if (paren == end) return false;
    if (paren + 1 == end || paren[1] == ' ') {
      // A line whose trailing blank an editor removed still reads.
      out.function = std::string_view(functionBegin, static_cast<std::size_t>(paren - functionBegin));
      text = paren + 1 == end ? std::string_view()
                              : std::string_view(paren + 2, static_cast<std::size_t>(end - paren - 2));
      break;
    }
    p = paren + 1;
  }
  out.text = text;

  if (readReturn(text, out)) {
    out.kind = TraceLineKind::Return;
  } else if (entry) {
    out.kind = TraceLineKind::Entry;
  } else if (readAssertion(text, out)) {
    out.kind = TraceLineKind::Assertion;
  } else if (readThrow(text, out)) {
    out.kind = TraceLineKind::Throw;
  } else {
    // What a near miss above may have filled.
    out.condition = {};
    out.message = {};
    out.exceptionType = {};
    out.exceptionMessage = {};
    out.osError = 0;
    out.errnoValue = 0;
    out.usec = 0;
    out.kind = TraceLineKind::Trace;
  }
  return true;
}

// "[ n] FUNCTION()    <FILE:LINE>".
bool readFrameLine(std::string_view line, TraceLine& out) {
  const std::size_t close = line.find("] ");
  if (close == std::string_view::npos || close < 2 || line.back() != '>') return false;
  std::string_view number = line.substr(1, close - 1);
  // Right-aligned in 2 columns: one digit has a blank before it.
  const bool padded = number.size() == 2 && number.front() == ' ';
  if (padded) number.remove_prefix(1);
  long long value = 0;
  if (!readDecimal(number, std::numeric_limits<int>::max(), false, value) || value < 1 ||
      (value < 10) != padded) {
    return false;
  }
  const std::size_t middle = line.rfind(kFrameMiddle);
  if (middle == std::string_view::npos || middle < close + 2) return false;
  const std::string_view site =
      line.substr(middle + kFrameMiddle.size(), line.size() - 1 - middle - kFrameMiddle.size());
  const std::size_t colon = site.rfind(':');
  if (colon == std::string_view::npos || !readLineNumber(site.substr(colon + 1), out.line)) {
    return false;
  }
  out.frameNumber = static_cast<int>(value);
  out.function = line.substr(close + 2, middle - close - 2);
  out.file = site.substr(0, colon);
  out.kind = TraceLineKind::Frame;
  return true;
}

bool readTraceHead(std::string_view line, std::string_view head, TraceLineKind kind,
                   TraceLine& out) {
  if (!startsWith(line, head) || !readThreadId(line.substr(head.size()), out.thread)) return false;
  out.kind = kind;
  return true;
}

// Field by field: assigning a fresh TraceLine costs a block fill and a copy
// through memory, a third of the time of a whole line.
// One store each, never a chain: a view read back from halves just stored
// stalls the processor.
void clear(TraceLine& out) {
  out.kind = TraceLineKind::Foreign;
  out.thread = 0;
  out.channel = {};
  out.channelWidth = 0;
  out.depth = 0;
  out.marker = DepthMarker::None;
  out.file = {};
  out.line = 0;
  out.function = {};
  out.text = {};
  out.usec = 0;
  out.condition = {};
  out.message = {};
  out.osError = 0;
  out.errnoValue = 0;
  out.exceptionType = {};
  out.exceptionMessage = {};
  out.detail = {};
  out.frameNumber = 0;
}

}  // namespace

bool parseTraceLine(std::string_view line, TraceLine& out) {
  clear(out);
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  if (line.empty()) return false;
  bool known = false;
  switch (line.front()) {
    case '[':
      known = readHeaderLine(line, out);
      if (!known) {
        clear(out);
        known = readFrameLine(line, out);
      }
      break;
    case 'S':
      known = readTraceHead(line, kBackTrace, TraceLineKind::BackTraceHead, out);
      break;
    case 'D':
      known = readTraceHead(line, kDelayedTrace, TraceLineKind::DelayedTraceHead, out);
      break;
    case 'A':
      // An editor may have removed the trailing blank.
      known = line == kAdditional || line == kAdditional.substr(0, kAdditional.size() - 1);
      if (known) out.kind = TraceLineKind::AdditionalInfo;
      break;
    default:
      break;
  }
  if (!known) clear(out);
  return known;
}

}  // namespace DbgMsg
}  // namespace QIM
