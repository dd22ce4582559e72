#include "qimmisc/StringUtils.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <string>
#include <string_view>
#include <vector>

#include "TestSupport.h"

using namespace std::string_view_literals;

namespace {

using QIM::test::TracingTest;

// Test suites whose cases read the lines the library writes (sink_).
class Utf8Test : public TracingTest {};
class CodePageTest : public TracingTest {};
class NarrowTest : public TracingTest {};

// The code a rejected text reports: ERROR_NO_UNICODE_TRANSLATION / EILSEQ.
#ifdef _WIN32
const std::string kBadTextCode = "1113";
#else
const std::string kBadTextCode = std::to_string(EILSEQ);
#endif

// Appends one code point in the platform's wide encoding.
void appendCodePoint(std::wstring& out, char32_t cp) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out += static_cast<wchar_t>(0xD800 + (cp >> 10));
      out += static_cast<wchar_t>(0xDC00 + (cp & 0x3FF));
      return;
    }
  }
  out += static_cast<wchar_t>(cp);
}

// Widens ASCII test data so one table serves both twins.
template <class C>
std::basic_string<C> S(std::string_view ascii) {
  return std::basic_string<C>(ascii.begin(), ascii.end());
}

// Test data in a trace, with its control and high bytes escaped.
std::string describe(std::string_view text) { return ::testing::PrintToString(std::string(text)); }

// ---- UTF-8 -------------------------------------------------------------------

struct Utf8Case {
  std::wstring wide;
  std::string utf8;
};

TEST_F(Utf8Test, KnownEncodingsConvertBothWays) {
  const Utf8Case cases[] = {
      {L"", ""},
      {L"abc", "abc"},
      {L"\u007F", "\x7F"},
      {L"\u0080", "\xC2\x80"},
      {L"\u00E9", "\xC3\xA9"},
      {L"\u07FF", "\xDF\xBF"},
      {L"\u0800", "\xE0\xA0\x80"},
      {L"\uD7FF", "\xED\x9F\xBF"},
      {L"\uE000", "\xEE\x80\x80"},
      {L"\uFFFF", "\xEF\xBF\xBF"},
      {L"\U00010000", "\xF0\x90\x80\x80"},
      {L"\U0001F600", "\xF0\x9F\x98\x80"},
      {L"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
      // A byte-order mark is ordinary text, not stripped.
      {L"\uFEFFx", "\xEF\xBB\xBF" "x"},
      {std::wstring(L"a\0b\0", 4), std::string("a\0b\0", 4)},
      {L"Gr\u00FC\u00DFe \u65E5\u672C \U0001F600!", "Gr\xC3\xBC\xC3\x9F" "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80!"},
  };
  sink_.clear();
  for (const Utf8Case& c : cases) {
    SCOPED_TRACE(describe(c.utf8));
    EXPECT_EQ(QIM::toUtf8(c.wide), c.utf8);
    EXPECT_EQ(QIM::fromUtf8(c.utf8), c.wide);
  }
  EXPECT_TRUE(sink_.lines().empty());
}

TEST_F(Utf8Test, EveryScalarValueRoundTrips) {
  std::wstring all;
  std::size_t expectedBytes = 0;
  for (char32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    appendCodePoint(all, cp);
    expectedBytes += cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
  }
  const std::string utf8 = QIM::toUtf8(all);
  ASSERT_EQ(utf8.size(), expectedBytes);
  EXPECT_TRUE(QIM::fromUtf8(utf8) == all);  // EXPECT_EQ would print 4 MB on failure
}

TEST_F(Utf8Test, MalformedUtf8FailsWholeAndLogs) {
  const std::string_view cases[] = {
      "\x80",                      // stray continuation byte
      "abc\xBF",                   // ... after valid text
      "\xC0\x80",                  // overlong NUL
      "\xC1\xBF",                  // overlong 2-byte
      "\xE0\x80\x80",              // overlong 3-byte
      "\xE0\x9F\xBF",              // overlong just below U+0800
      "\xF0\x80\x80\x80",          // overlong 4-byte
      "\xF0\x8F\xBF\xBF",          // overlong just below U+10000
      "\xED\xA0\x80",              // encoded surrogate U+D800
      "\xED\xBF\xBF",              // encoded surrogate U+DFFF
      "\xED\xA0\xBD\xED\xB8\x80",  // surrogate pair encoded separately
      "\xF4\x90\x80\x80",          // U+110000
      "\xF5\x80\x80\x80",          // lead byte beyond the range
      "\xF8\x88\x80\x80\x80",      // old 5-byte form
      "\xFE",
      "\xFF",
      "\xC3",                      // truncated 2-byte
      "\xE2\x82",                  // truncated 3-byte
      "\xF0\x9F\x98",              // truncated 4-byte
      "ok\xC3\xA9\xC3",            // valid text, then truncated
      "\xE2\x28\xA1",              // continuation expected, ASCII found
      "\xC3\xA9\x80",              // one continuation too many
      "a\0\xFF"sv,                 // after an embedded NUL
  };
  for (const std::string_view bad : cases) {
    SCOPED_TRACE(describe(bad));
    sink_.clear();
    EXPECT_EQ(QIM::fromUtf8(std::string(bad)), L"");
    const auto lines = sink_.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("ERROR"), std::string::npos);
    EXPECT_TRUE(lines[0].ends_with("MBToWC returned 0. lasterror:" + kBadTextCode)) << lines[0];
  }
}

TEST_F(Utf8Test, InvalidWideTextFailsWholeAndLogs) {
  std::vector<std::wstring> cases = {
      {static_cast<wchar_t>(0xD800)},                          // lone high surrogate
      {static_cast<wchar_t>(0xDFFF)},                          // lone low surrogate
      {L'a', static_cast<wchar_t>(0xDC00), static_cast<wchar_t>(0xD800)},  // reversed pair
      {static_cast<wchar_t>(0xD83D), L'x'},                    // high then not low
      {L'a', L'b', static_cast<wchar_t>(0xD83D)},              // high at the end
  };
  if constexpr (sizeof(wchar_t) == 4) {
    cases.push_back({static_cast<wchar_t>(0x110000)});
    cases.push_back({L'a', static_cast<wchar_t>(-1)});
  }
  for (const std::wstring& bad : cases) {
    SCOPED_TRACE(bad.size());
    sink_.clear();
    EXPECT_EQ(QIM::toUtf8(bad), "");
    const auto lines = sink_.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].ends_with("WCToMB returned 0. lasterror:" + kBadTextCode)) << lines[0];
  }
}

TEST_F(Utf8Test, VectorFormKeepsPositionsOfFailures) {
  sink_.clear();
  const std::vector<std::wstring> expected = {L"a", L"", L"", L"\u00E9"};
  EXPECT_EQ(QIM::fromUtf8(std::vector<std::string>{"a", "\xFF", "", "\xC3\xA9"}), expected);
  EXPECT_EQ(sink_.linesWith("MBToWC returned 0.").size(), 1u);
  EXPECT_TRUE(QIM::fromUtf8(std::vector<std::string>{}).empty());
}

// ---- Code pages ----------------------------------------------------------------

struct CodePageCase {
  unsigned int codePage;
  std::wstring wide;
  std::string narrow;
};

TEST_F(CodePageTest, KnownCodePagesConvertBothWays) {
  std::vector<CodePageCase> cases = {
      {1252, L"\u20AC \u00E9", "\x80 \xE9"},
      {1252, std::wstring(L"a\0\u00E9", 3), std::string("a\0\xE9", 3)},
      {28591, L"\u00E9\u00FF", "\xE9\xFF"},
      {1251, L"\u0416\u0436", "\xC6\xE6"},
      {932, L"\u3042\u65E5", "\x82\xA0\x93\xFA"},
      {20127, L"plain", "plain"},
      {65001, L"\u00E9\U0001F600", "\xC3\xA9\xF0\x9F\x98\x80"},
  };
#ifndef _WIN32
  // UTF-16 is only a conversion target on Linux; Windows reserves 1200
  // for managed code.
  cases.push_back({1200, L"A\u00E9", std::string("A\0\xE9\0", 4)});
#endif
  sink_.clear();
  for (const CodePageCase& c : cases) {
    SCOPED_TRACE(c.codePage);
    EXPECT_EQ(QIM::toCodePage(c.wide, c.codePage), c.narrow);
    EXPECT_EQ(QIM::fromCodePage(c.narrow, c.codePage), c.wide);
  }
  EXPECT_TRUE(sink_.lines().empty());
}

TEST_F(CodePageTest, UnconvertibleTextFailsInsteadOfBeingReplaced) {
  struct ToCase {
    unsigned int codePage;
    std::wstring wide;
  };
  const ToCase toCases[] = {
      {1252, L"a\u4E2Db"},                              // no CJK in 1252
      {28591, L"\u0416"},                               // no Cyrillic in Latin-1
      {1252, L"\u0100"},                                // best fit would give 'A'
      {1252, {L'a', static_cast<wchar_t>(0xD800)}},     // lone surrogate
      {65001, {static_cast<wchar_t>(0xDC00)}},          // same rule as toUtf8
  };
  for (const ToCase& c : toCases) {
    SCOPED_TRACE(c.codePage);
    sink_.clear();
    EXPECT_EQ(QIM::toCodePage(c.wide, c.codePage), "");
    EXPECT_EQ(sink_.linesWith("WCToMB returned 0. lasterror:").size(), 1u);
  }
  struct FromCase {
    unsigned int codePage;
    std::string narrow;
  };
  const FromCase fromCases[] = {
      {932, "a\x82"},        // lead byte without its trail byte
      {65001, "\xC0\x80"},   // same rule as fromUtf8
  };
  for (const FromCase& c : fromCases) {
    SCOPED_TRACE(c.codePage);
    sink_.clear();
    EXPECT_EQ(QIM::fromCodePage(c.narrow, c.codePage), L"");
    EXPECT_EQ(sink_.linesWith("MBToWC returned 0. lasterror:").size(), 1u);
  }
}

TEST_F(CodePageTest, UnknownCodePageLogsAndGivesEmpty) {
  sink_.clear();
  EXPECT_EQ(QIM::toCodePage(L"abc", 12345), "");
  EXPECT_EQ(QIM::fromCodePage("abc", 12345), L"");
  const auto lines = sink_.lines();
  ASSERT_EQ(lines.size(), 2u);
  for (const std::string& line : lines) EXPECT_NE(line.find("ERROR"), std::string::npos);
}

TEST_F(CodePageTest, CurrentCodePageCarriesAscii) {
  sink_.clear();
  const std::wstring wide(L"Hello, world 0123\0~", 19);
  const std::string narrow("Hello, world 0123\0~", 19);
  EXPECT_EQ(QIM::toCurrentCodePage(wide), narrow);
  EXPECT_EQ(QIM::fromCurrentCodePage(narrow), wide);
  EXPECT_EQ(QIM::toCurrentCodePage(L""), "");
  EXPECT_EQ(QIM::fromCurrentCodePage(""), L"");
  EXPECT_TRUE(sink_.lines().empty());
}

// ---- Algorithms, run for both twins ---------------------------------------------

template <class C>
class TwinTest : public TracingTest {};
using CharTypes = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(TwinTest, CharTypes);

bool whitespaceOnly(const std::string& s) { return QIM::isWhitespaceOnly(s); }
bool whitespaceOnly(const std::wstring& s) { return QIM::isWWhitespaceOnly(s); }

TYPED_TEST(TwinTest, TrimAndWhitespaceOnly) {
  using C = TypeParam;
  struct Case {
    std::string_view text;
    std::string_view trimmed;
  };
  const Case cases[] = {
      {"", ""},
      {" \t\r\n\v\f", ""},
      {"a", "a"},
      {" a ", "a"},
      {"\t\n a  b \r\n", "a  b"},
      {"a ", "a"},
      {" a", "a"},
      {" \0a\0 "sv, "\0a\0"sv},  // NUL is not white space
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(describe(c.text));
    EXPECT_EQ(QIM::trim(S<C>(c.text)), S<C>(c.trimmed));
    EXPECT_EQ(whitespaceOnly(S<C>(c.text)), c.trimmed.empty());
  }
}

TYPED_TEST(TwinTest, CaseFoldingIsPerCharacterAndKeepsNeighbours) {
  using C = TypeParam;
  // '@' '[' '`' '{' sit right beside the letter ranges.
  auto text = S<C>("Hello World 09 @AZ[`az{ \0Q"sv);
  QIM::lowercase(text);
  EXPECT_EQ(text, S<C>("hello world 09 @az[`az{ \0q"sv));
  QIM::uppercase(text);
  EXPECT_EQ(text, S<C>("HELLO WORLD 09 @AZ[`AZ{ \0Q"sv));
  auto empty = S<C>("");
  QIM::lowercase(empty);
  EXPECT_TRUE(empty.empty());
}

TYPED_TEST(TwinTest, EqualsIgnoreCase) {
  using C = TypeParam;
  struct Case {
    std::string_view a, b;
    bool equal;
  };
  const Case cases[] = {
      {"abc", "ABC", true},   {"", "", true},         {"abc", "abd", false},
      {"abc", "abcd", false}, {"abcd", "abc", false}, {"@", "`", false},
      {"[", "{", false},      {"a\0b"sv, "A\0B"sv, true}, {"a\0b"sv, "A\0C"sv, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(describe(c.a) + " / " + describe(c.b));
    EXPECT_EQ(QIM::equalsIgnoreCase(S<C>(c.a), S<C>(c.b)), c.equal);
  }
}

TYPED_TEST(TwinTest, CompareIgnoreCaseLimitsAndSign) {
  using C = TypeParam;
  struct Case {
    std::string_view a, b;
    std::size_t n;
    int sign;
  };
  const Case cases[] = {
      {"ABCx", "abcy", 3, 0},
      {"ABCx", "abcy", 4, -1},
      {"abc", "ABD", 3, -1},
      {"ABD", "abc", 3, 1},
      {"ab", "abc", 3, -1},  // the shorter text is less
      {"abc", "ab", 2, 0},
      {"abc", "xyz", 0, 0},
      {"abc", "ABC", std::string::npos, 0},
      {"_", "A", 1, -1},  // folding is to lower case: '_' < 'a'
      {"a\0b"sv, "A\0c"sv, 3, -1},
      {"a\0b"sv, "A\0B"sv, 3, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(describe(c.a) + " / " + describe(c.b));
    const int r = QIM::stringCompareIgnoreCase(S<C>(c.a), S<C>(c.b), c.n);
    EXPECT_EQ((r > 0) - (r < 0), c.sign);
  }
}

TYPED_TEST(TwinTest, PrefixSuffixAndContainment) {
  using C = TypeParam;
  struct Case {
    std::string_view text, part;
    bool starts, startsIc, ends, endsIc, contains, containsIc;
  };
  const Case cases[] = {
      {"Hello World", "Hello", true, true, false, false, true, true},
      {"Hello World", "hello", false, true, false, false, false, true},
      {"Hello World", "World", false, false, true, true, true, true},
      {"Hello World", "WORLD", false, false, false, true, false, true},
      {"Hello World", "o wo", false, false, false, false, false, true},
      {"Hello World", "", true, true, true, true, true, true},
      {"", "", true, true, true, true, true, true},
      {"", "a", false, false, false, false, false, false},
      {"abc", "abcd", false, false, false, false, false, false},
      {"abc", "ABCD", false, false, false, false, false, false},
      {"aab", "ab", false, false, true, true, true, true},
      {"a\0b"sv, "\0B"sv, false, false, false, true, false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(describe(c.text) + " / " + describe(c.part));
    const auto text = S<C>(c.text);
    const auto part = S<C>(c.part);
    EXPECT_EQ(QIM::stringStartsWith(text, part), c.starts);
    EXPECT_EQ(QIM::stringStartsWithIgnoreCase(text, part), c.startsIc);
    EXPECT_EQ(QIM::stringEndsWith(text, part), c.ends);
    EXPECT_EQ(QIM::stringEndsWithIgnoreCase(text, part), c.endsIc);
    EXPECT_EQ(QIM::stringContains(text, part), c.contains);
    EXPECT_EQ(QIM::stringContainsIgnoreCase(text, part), c.containsIc);
  }
}

TYPED_TEST(TwinTest, TokenizeKeepsEmptyPieces) {
  using C = TypeParam;
  struct Case {
    std::string_view text, delimiter;
    std::vector<std::string_view> pieces;
  };
  const Case cases[] = {
      {"a,,b,", ",", {"a", "", "b", ""}},
      {"", ",", {}},
      {"abc", "", {}},
      {"", "", {}},
      {"abc", ",", {"abc"}},
      {",", ",", {"", ""}},
      {",a", ",", {"", "a"}},
      {"a::b:c", "::", {"a", "b:c"}},
      {"aaa", "aa", {"", "a"}},  // no overlapping matches
      {"a<>b<>", "<>", {"a", "b", ""}},
      {"a\0b"sv, "\0"sv, {"a", "b"}},
      {"key=value", "key=value", {"", ""}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(describe(c.text) + " at " + describe(c.delimiter));
    std::vector<std::basic_string<C>> expected;
    for (const std::string_view piece : c.pieces) expected.push_back(S<C>(piece));
    EXPECT_EQ(QIM::tokenizeString(S<C>(c.text), S<C>(c.delimiter)), expected);
  }
}

TYPED_TEST(TwinTest, StringToLongAcceptsOnlyWholeText) {
  using C = TypeParam;
  struct Case {
    std::string text;
    int base;
    bool ok;
    long value;
  };
  // Both limits and one past them, whatever the width of long.
  std::string max = std::to_string(LONG_MAX);
  std::string min = std::to_string(LONG_MIN);
  std::string pastMax = max;
  ++pastMax.back();
  std::string pastMin = min;
  ++pastMin.back();
  const Case cases[] = {
      {"0", 10, true, 0},
      {"123", 10, true, 123},
      {"", 10, true, 0},  // empty text is deliberately accepted
      {"-17", 10, true, -17},
      {"+5", 10, true, 5},
      {"  42", 10, true, 42},
      {"\t\n42", 10, true, 42},
      {"42 ", 10, false, 0},
      {"4 2", 10, false, 0},
      {"12a", 10, false, 0},
      {"abc", 10, false, 0},
      {" ", 10, false, 0},
      {"-", 10, false, 0},
      {"0x", 16, false, 0},
      {"ff", 16, true, 255},
      {"0x1A", 16, true, 26},
      {"0x1A", 0, true, 26},
      {"017", 0, true, 15},
      {"017", 10, true, 17},
      {"101", 2, true, 5},
      {"102", 2, false, 0},
      {"z", 36, true, 35},
      {std::string("1\0", 2), 10, false, 0},
      {std::string("1\0002", 3), 10, false, 0},
      {max, 10, true, LONG_MAX},
      {min, 10, true, LONG_MIN},
      {pastMax, 10, false, 0},
      {pastMin, 10, false, 0},
      {"99999999999999999999999", 10, false, 0},
  };
  this->sink_.clear();
  for (const Case& c : cases) {
    SCOPED_TRACE(describe(c.text) + " base " + std::to_string(c.base));
    long value = -999;
    EXPECT_EQ(QIM::stringToLong(S<C>(c.text), &value, c.base), c.ok);
    if (c.ok) {
      EXPECT_EQ(value, c.value);
    }
  }
  EXPECT_TRUE(this->sink_.lines().empty());
}

TYPED_TEST(TwinTest, StringToLongRejectsBadArgumentsWithAssertion) {
  using C = TypeParam;
  {
    this->sink_.clear();
    EXPECT_FALSE(QIM::stringToLong(S<C>("1"), nullptr, 10));
    EXPECT_EQ(this->sink_.linesWith("Assertion failed: \"0!=dest\"").size(), 1u);
  }
  for (const int base : {-1, 1, 37, INT_MAX}) {
    SCOPED_TRACE(base);
    this->sink_.clear();
    long value = 7;
    EXPECT_FALSE(QIM::stringToLong(S<C>("1"), &value, base));
    EXPECT_EQ(value, 7);
    EXPECT_EQ(this->sink_.linesWith("Assertion failed: \"validBase(base)\"").size(), 1u);
  }
}

// ---- Narrow-only behaviour ---------------------------------------------------------

TEST_F(NarrowTest, HighBytesAreUnsignedAndUntouched) {
  // Bytes above 0x7F are neither space nor letters in the "C" locale.
  std::string text = "\xA0\xC3\x89\xA0";
  EXPECT_EQ(QIM::trim(text), text);
  QIM::lowercase(text);
  EXPECT_EQ(text, "\xA0\xC3\x89\xA0");
  EXPECT_GT(QIM::stringCompareIgnoreCase("\xE9", "a", 1), 0);
  EXPECT_LT(QIM::stringCompareIgnoreCase("a", "\xE9", 1), 0);
}

TEST_F(NarrowTest, StringToDoubleAcceptsOnlyWholeTextInRange) {
  struct Case {
    std::string_view text;
    bool ok;
    double value;
  };
  const Case cases[] = {
      {"1.5", true, 1.5},
      {"", true, 0.0},
      {"0", true, 0.0},
      {"-2e3", true, -2000.0},
      {"  3.25", true, 3.25},
      {"1e308", true, 1e308},
      {"3.25 ", false, 0},
      {"1.5x", false, 0},
      {"abc", false, 0},
      {".", false, 0},
      {"1\0"sv, false, 0},
      {"1e400", false, 0},    // overflow
      {"-1e400", false, 0},   // overflow
      {"1e-400", false, 0},   // underflow
  };
  sink_.clear();
  for (const Case& c : cases) {
    SCOPED_TRACE(describe(c.text));
    double value = -999;
    EXPECT_EQ(QIM::stringToDouble(std::string(c.text), &value), c.ok);
    if (c.ok) {
      EXPECT_EQ(value, c.value);
    }
  }
  EXPECT_TRUE(sink_.lines().empty());
  EXPECT_FALSE(QIM::stringToDouble("1", nullptr));
  EXPECT_EQ(sink_.linesWith("Assertion failed: \"0!=dest\"").size(), 1u);
}

TEST(FormatTest, BoolAndIntegerText) {
  EXPECT_EQ(QIM::boolToString(true), "true");
  EXPECT_EQ(QIM::boolToString(false), "false");
  EXPECT_EQ(QIM::boolToWString(true), L"true");
  EXPECT_EQ(QIM::boolToWString(false), L"false");
  const std::pair<long long, std::string_view> cases[] = {
      {0, "0"},
      {-1, "-1"},
      {1234567890123LL, "1234567890123"},
      {LLONG_MAX, "9223372036854775807"},
      {LLONG_MIN, "-9223372036854775808"},
  };
  for (const auto& [value, text] : cases) {
    EXPECT_EQ(QIM::intToString(value), text);
    EXPECT_EQ(QIM::intToWString(value), S<wchar_t>(text));
  }
}

TEST(WideTest, CaseFoldingFollowsTheCLibraryBeyondAscii) {
  const std::string saved = std::setlocale(LC_CTYPE, nullptr);
  bool switched = false;
  for (const char* name : {"C.UTF-8", "en_US.UTF-8", ".1252", "English"}) {
    if ((switched = std::setlocale(LC_CTYPE, name) != nullptr)) break;
  }
  if (!switched) GTEST_SKIP() << "no locale beyond \"C\"";
  std::wstring text = L"\u00C4\u0416x";
  QIM::lowercase(text);
  const std::wstring lowered = text;
  QIM::uppercase(text);
  const bool equal = QIM::equalsIgnoreCase(std::wstring(L"\u00E4"), std::wstring(L"\u00C4"));
  // One character never folds into several.
  const bool sharpS = QIM::equalsIgnoreCase(std::wstring(L"stra\u00DFe"), std::wstring(L"STRASSE"));
  std::setlocale(LC_CTYPE, saved.c_str());
  EXPECT_EQ(lowered, L"\u00E4\u0436x");
  EXPECT_EQ(text, L"\u00C4\u0416X");
  EXPECT_TRUE(equal);
  EXPECT_FALSE(sharpS);
}

}  // namespace
