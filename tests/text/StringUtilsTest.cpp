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

class Utf8Test : public TracingTest {};
class CodePageTest : public TracingTest {};
class NarrowTest : public TracingTest {};

// The code a rejected text reports: ERROR_NO_UNICODE_TRANSLATION / EILSEQ.
#ifdef _WIN32
const std::string kBadTextCode = "1113";
#else
const std::string kBadTextCode = std::to_string(EILSEQ);
#endif

// Checks that `convert` gave nothing and wrote one ERROR line naming `api`.
template <class F>
void expectRejected(QIM::test::CaptureSink& sink, const std::string& api, F convert) {
  sink.clear();
  EXPECT_TRUE(convert().empty());
  const auto lines = sink.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("ERROR"), std::string::npos);
  EXPECT_TRUE(lines[0].ends_with(api + " returned 0. lasterror:" + kBadTextCode)) << lines[0];
}

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

std::string describe(std::string_view text) { return ::testing::PrintToString(std::string(text)); }

// ---- UTF-8 -------------------------------------------------------------------

TEST_F(Utf8Test, KnownEncodingsConvertBothWays) {
  const std::pair<std::wstring, std::string> cases[] = {
      {L"", ""}, {L"\u07FF", "\xDF\xBF"}, {L"\uFFFF", "\xEF\xBF\xBF"},
      {L"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
      {L"\uFEFFx", "\xEF\xBB\xBF" "x"},  // a byte-order mark is kept
      {std::wstring(L"a\0b\0", 4), std::string("a\0b\0", 4)},
      {L"Gr\u00FC\u00DFe \u65E5\u672C \U0001F600!", "Gr\xC3\xBC\xC3\x9F" "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80!"},
  };
  sink_.clear();
  for (const auto& [wide, utf8] : cases) {
    SCOPED_TRACE(describe(utf8));
    EXPECT_EQ(QIM::toUtf8(wide), utf8);
    EXPECT_EQ(QIM::fromUtf8(utf8), wide);
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
      "abc\xBF",                                     // stray continuation byte
      "\xC0\x80", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",      // overlong forms
      "\xED\xA0\x80", "\xED\xBF\xBF",                       // encoded surrogates
      "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF",      // beyond U+10FFFF
      "ok\xC3\xA9\xC3", "\xF0\x9F\x98", "\xE2\x28\xA1",     // truncated sequences
      "a\0\xFF"sv,                                   // after an embedded NUL
  };
  for (const std::string_view bad : cases) {
    SCOPED_TRACE(describe(bad));
    expectRejected(sink_, "MBToWC", [&] { return QIM::fromUtf8(std::string(bad)); });
  }
}

TEST_F(Utf8Test, InvalidWideTextFailsWholeAndLogs) {
  std::vector<std::wstring> cases = {
      {static_cast<wchar_t>(0xDFFF)},                          // lone low surrogate
      {L'a', static_cast<wchar_t>(0xDC00), static_cast<wchar_t>(0xD800)},  // reversed pair
      {static_cast<wchar_t>(0xD83D), L'x'},                    // high then not low
      {L'a', L'b', static_cast<wchar_t>(0xD83D)},              // high at the end
  };
  if constexpr (sizeof(wchar_t) == 4) {
    cases.insert(cases.end(), {{static_cast<wchar_t>(0x110000)}, {L'a', static_cast<wchar_t>(-1)}});
  }
  for (const std::wstring& bad : cases) {
    SCOPED_TRACE(bad.size());
    expectRejected(sink_, "WCToMB", [&] { return QIM::toUtf8(bad); });
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

TEST_F(CodePageTest, KnownCodePagesConvertBothWays) {
  struct Case {
    unsigned int codePage;
    std::wstring wide;
    std::string narrow;
  };
  std::vector<Case> cases = {
      {1252, L"\u20AC \u00E9", "\x80 \xE9"},
      {1252, std::wstring(L"a\0\u00E9", 3), std::string("a\0\xE9", 3)},
      {1251, L"\u0416\u0436", "\xC6\xE6"},
      {932, L"\u3042\u65E5", "\x82\xA0\x93\xFA"},
      {65001, L"\u00E9\U0001F600", "\xC3\xA9\xF0\x9F\x98\x80"},
  };
#ifndef _WIN32  // Windows reserves 1200 for managed code
  cases.push_back({1200, L"A\u00E9", std::string("A\0\xE9\0", 4)});
#endif
  sink_.clear();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.codePage);
    EXPECT_EQ(QIM::toCodePage(c.wide, c.codePage), c.narrow);
    EXPECT_EQ(QIM::fromCodePage(c.narrow, c.codePage), c.wide);
  }
  EXPECT_TRUE(sink_.lines().empty());
}

TEST_F(CodePageTest, UnconvertibleTextFailsInsteadOfBeingReplaced) {
  // No Cyrillic in Latin-1; no best fit ('A' for U+0100); lone surrogates.
  const std::pair<unsigned int, std::wstring> toCases[] = {
      {28591, L"\u0416"}, {1252, L"\u0100"},
      {1252, {L'a', static_cast<wchar_t>(0xD800)}}, {65001, {static_cast<wchar_t>(0xDC00)}}};
  for (const auto& [codePage, wide] : toCases) {
    SCOPED_TRACE(codePage);
    sink_.clear();
    EXPECT_EQ(QIM::toCodePage(wide, codePage), "");
    EXPECT_EQ(sink_.linesWith("WCToMB returned 0. lasterror:").size(), 1u);
  }
  // A lead byte without its trail byte; an overlong form.
  const std::pair<unsigned int, std::string> fromCases[] = {{932, "a\x82"}, {65001, "\xC0\x80"}};
  for (const auto& [codePage, narrow] : fromCases) {
    SCOPED_TRACE(codePage);
    sink_.clear();
    EXPECT_EQ(QIM::fromCodePage(narrow, codePage), L"");
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
  const std::pair<std::string_view, std::string_view> cases[] = {{"", ""}, {" \t\r\n\v\f", ""},
      {"a", "a"}, {"\t\n a  b \r\n", "a  b"}, {" \0a\0 "sv, "\0a\0"sv}};  // NUL is not space
  for (const auto& [text, trimmed] : cases) {
    SCOPED_TRACE(describe(text));
    EXPECT_EQ(QIM::trim(S<C>(text)), S<C>(trimmed));
    EXPECT_EQ(whitespaceOnly(S<C>(text)), trimmed.empty());
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
}

TYPED_TEST(TwinTest, CompareAndEqualsIgnoreCase) {
  using C = TypeParam;
  constexpr auto all = std::string::npos;
  struct Case {
    std::string_view a, b;
    std::size_t n;
    int sign;
  };
  const Case cases[] = {
      {"ABCx", "abcy", 3, 0},   {"ABCx", "abcy", 4, -1},  {"ABD", "abc", 3, 1},
      {"ab", "abc", 3, -1},     {"abcd", "abc", all, 1},  {"abc", "xyz", 0, 0},  // shorter is less
      {"abc", "ABC", all, 0},   {"", "", all, 0},         {"a\0b"sv, "A\0B"sv, all, 0},
      {"a\0b"sv, "A\0c"sv, 3, -1},
      {"_", "A", 1, -1},  // folding is to lower case: '_' < 'a'
      {"@", "`", all, -1},      {"[", "{", all, -1},  // neighbours of the letter ranges
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(describe(c.a) + " / " + describe(c.b));
    const int r = QIM::stringCompareIgnoreCase(S<C>(c.a), S<C>(c.b), c.n);
    EXPECT_EQ((r > 0) - (r < 0), c.sign);
    if (c.n == all) {
      EXPECT_EQ(QIM::equalsIgnoreCase(S<C>(c.a), S<C>(c.b)), c.sign == 0);
    }
  }
}

TYPED_TEST(TwinTest, PrefixSuffixAndContainment) {
  using C = TypeParam;
  struct Case {
    std::string_view text, part;
    bool starts, startsIc, ends, endsIc, contains, containsIc;
  };
  const Case cases[] = {
      {"Hello World", "hello", false, true, false, false, false, true},
      {"Hello World", "World", false, false, true, true, true, true},
      {"Hello World", "o wo", false, false, false, false, false, true},
      {"", "", true, true, true, true, true, true},
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
      {",a,,b,", ",", {"", "a", "", "b", ""}}, {"", ",", {}}, {"abc", "", {}},
      {"abc", ",", {"abc"}}, {"a::b:c", "::", {"a", "b:c"}}, {"a\0b"sv, "\0"sv, {"a", "b"}},
      {"aaa", "aa", {"", "a"}},  // no overlapping matches
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(describe(c.text) + " at " + describe(c.delimiter));
    std::vector<std::basic_string<C>> expected;
    for (const std::string_view piece : c.pieces) expected.push_back(S<C>(piece));
    EXPECT_EQ(QIM::tokenizeString(S<C>(c.text), S<C>(c.delimiter)), expected);
  }
}

TYPED_TEST(TwinTest, StringToLongAcceptsOnlyWholeTextAndValidArguments) {
  using C = TypeParam;
  struct Case {
    std::string text;
    int base;
    bool ok;
    long value;
  };
  // Both limits and one past them, whatever the width of long.
  const std::string max = std::to_string(LONG_MAX), min = std::to_string(LONG_MIN);
  std::string pastMax = max, pastMin = min;
  ++pastMax.back();
  ++pastMin.back();
  const Case cases[] = {
      {"", 10, true, 0},  // empty text is deliberately accepted
      {"-17", 10, true, -17},  {"+5", 10, true, 5},     {"\t\n42", 10, true, 42},
      {"42 ", 10, false, 0},   {"12a", 10, false, 0},   {" ", 10, false, 0},
      {"-", 10, false, 0},     {"0x", 16, false, 0},    {"0x1A", 16, true, 26},
      {"017", 0, true, 15},    {"017", 10, true, 17},   {"102", 2, false, 0},
      {"z", 36, true, 35},     {std::string("1\0", 2), 10, false, 0},
      {max, 10, true, LONG_MAX}, {min, 10, true, LONG_MIN},
      {pastMax, 10, false, 0},   {pastMin, 10, false, 0},
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
  // Bad arguments fail with an assertion and leave the destination alone.
  EXPECT_FALSE(QIM::stringToLong(S<C>("1"), nullptr, 10));
  EXPECT_EQ(this->sink_.linesWith("Assertion failed: \"0!=dest\"").size(), 1u);
  for (const int base : {-1, 1, 37}) {
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
      {"", true, 0.0},      {"  -2e3", true, -2000.0}, {"1e308", true, 1e308},
      {"3.25 ", false, 0},  {"1.5x", false, 0},        {".", false, 0},  {"1\0"sv, false, 0},
      {"1e400", false, 0},  {"-1e400", false, 0},      {"1e-400", false, 0},  // out of range
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
  EXPECT_EQ(QIM::boolToString(false), "false");
  EXPECT_EQ(QIM::boolToWString(true), L"true");
  const std::pair<long long, std::string_view> cases[] = {
      {0, "0"}, {LLONG_MAX, "9223372036854775807"}, {LLONG_MIN, "-9223372036854775808"}};
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
