#include "qimmisc/StringUtils.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>
#include <string_view>
#include <vector>

#include "TestSupport.h"

using namespace std::string_view_literals;

namespace {

using QIM::test::TracingTest;

// The code a rejected text reports: ERROR_NO_UNICODE_TRANSLATION / EILSEQ.
#ifdef _WIN32
const std::string kBadTextCode = "1113";
#else
const std::string kBadTextCode = std::to_string(EILSEQ);
#endif

std::string describe(std::string_view text) { return ::testing::PrintToString(std::string(text)); }

// Widens ASCII test data so one table serves both twins.
template <class C>
std::basic_string<C> S(std::string_view ascii) {
  return std::basic_string<C>(ascii.begin(), ascii.end());
}

// Checks that `converted` is empty and exactly one line
// "<api> returned 0. lasterror:<code>" was written since the last clear.
template <class Text>
void expectRejected(QIM::test::CaptureSink& sink, const std::string& api, const Text& converted) {
  EXPECT_TRUE(converted.empty());
  const auto lines = sink.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].ends_with(api + " returned 0. lasterror:" + kBadTextCode)) << lines[0];
  sink.clear();
}

class ConversionTest : public TracingTest {};

TEST_F(ConversionTest, KnownTextConvertsBothWaysSilently) {
  const std::tuple<unsigned int, std::wstring, std::string> cases[] = {
      {65001, L"", ""}, {65001, L"\u07FF\uFFFF", "\xDF\xBF\xEF\xBF\xBF"},
      {65001, L"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
      {65001, L"\uFEFFx", "\xEF\xBB\xBF" "x"},  // a byte-order mark is kept
      {65001, std::wstring(L"a\0b", 3), std::string("a\0b", 3)},
      {1252, L"\u20AC \u00E9", "\x80 \xE9"}, {1251, L"\u0416\u0436", "\xC6\xE6"},
      {932, L"\u3042\u65E5", "\x82\xA0\x93\xFA"},
      {0, std::wstring(L"ASCII 0\0~", 9), std::string("ASCII 0\0~", 9)},  // current code page
  };
  sink_.clear();
  for (const auto& [codePage, wide, narrow] : cases) {
    SCOPED_TRACE(describe(narrow));
    EXPECT_EQ(QIM::toCodePage(wide, codePage), narrow);
    EXPECT_EQ(QIM::fromCodePage(narrow, codePage), wide);
    EXPECT_TRUE(codePage != 65001 || (QIM::toUtf8(wide) == narrow && QIM::fromUtf8(narrow) == wide));
  }
  EXPECT_EQ(QIM::fromUtf8(std::vector<std::string>{"a", "\xFF", "\xC3\xA9"}),
            (std::vector<std::wstring>{L"a", L"", L"\u00E9"}));  // a failure keeps its place
  EXPECT_EQ(sink_.lines().size(), 1u);
}

TEST_F(ConversionTest, MalformedUtf8FailsWholeOnEveryPlatform) {
  const std::string_view cases[] = {
      // A stray continuation byte; overlong forms; encoded surrogates.
      "abc\xBF", "\xC0\x80", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xED\xBF\xBF",
      // Beyond U+10FFFF; truncated sequences; after an embedded NUL.
      "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "ok\xC3\xA9\xC3", "\xF0\x9F\x98", "\xE2\x28\xA1",
      "a\0\xFF"sv,
  };
  sink_.clear();
  for (const std::string_view bad : cases) {
    SCOPED_TRACE(describe(bad));
    expectRejected(sink_, "MBToWC", QIM::fromUtf8(std::string(bad)));
    expectRejected(sink_, "MBToWC", QIM::fromCodePage(std::string(bad), 65001));
  }
}

TEST_F(ConversionTest, InvalidOrUnconvertibleWideTextFailsWhole) {
  const wchar_t hi = static_cast<wchar_t>(0xD83D), lo = static_cast<wchar_t>(0xDC00);
  std::vector<std::wstring> badUtf16 = {{lo}, {L'a', lo, hi}, {hi, L'x'}, {L'a', hi}};
  if constexpr (sizeof(wchar_t) == 4) {
    badUtf16.insert(badUtf16.end(), {{static_cast<wchar_t>(0x110000)}, {static_cast<wchar_t>(-1)}});
  }
  sink_.clear();
  for (const std::wstring& bad : badUtf16) {
    SCOPED_TRACE(bad.size());
    expectRejected(sink_, "WCToMB", QIM::toUtf8(bad));
  }
  // No Cyrillic in Latin-1; no best fit ('A' for U+0100); a lone surrogate.
  EXPECT_EQ(QIM::toCodePage(L"\u0416", 28591) + QIM::toCodePage(L"\u0100", 1252) +
                QIM::toCodePage({L'a', hi}, 1252),
            "");
  EXPECT_EQ(sink_.linesWith("WCToMB returned 0. lasterror:").size(), 3u);
  EXPECT_EQ(QIM::fromCodePage("a\x82", 932), L"");  // a lead byte without its trail
  EXPECT_EQ(QIM::toCodePage(L"abc", 12345), "");    // an unknown code page
  EXPECT_EQ(sink_.linesWith("ERROR").size(), 5u);
}

// ---- Algorithms, run for both twins ---------------------------------------------

template <class C>
class TwinTest : public TracingTest {};
using CharTypes = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(TwinTest, CharTypes);

TYPED_TEST(TwinTest, TrimAndCaseFolding) {
  using C = TypeParam;
  const std::pair<std::string_view, std::string_view> cases[] = {{"", ""}, {" \t\r\n\v\f", ""},
      {"a", "a"}, {"\t\n a  b \r\n", "a  b"}, {" \0a\0 "sv, "\0a\0"sv}};  // NUL is not space
  for (const auto& [text, trimmed] : cases) {
    SCOPED_TRACE(describe(text));
    EXPECT_EQ(QIM::trim(S<C>(text)), S<C>(trimmed));
  }
  // '@' '[' '`' '{' sit right beside the letter ranges.
  auto text = S<C>("Hello 09 @AZ[`az{ \0Q"sv);
  QIM::lowercase(text);
  EXPECT_EQ(text, S<C>("hello 09 @az[`az{ \0q"sv));
  QIM::uppercase(text);
  EXPECT_EQ(text, S<C>("HELLO 09 @AZ[`AZ{ \0Q"sv));
}

TYPED_TEST(TwinTest, CompareIgnoreCaseAndAffixes) {
  using C = TypeParam;
  constexpr auto all = std::string::npos;
  const std::tuple<std::string_view, std::string_view, std::size_t, int> cases[] = {
      {"ABCx", "abcy", 3, 0}, {"ABCx", "abcy", 4, -1}, {"ABD", "abc", 3, 1}, {"ab", "abc", 3, -1},
      {"abc", "ABC", all, 0}, {"", "", all, 0}, {"a\0b"sv, "A\0B"sv, all, 0},
      {"_", "A", 1, -1},  // folding is to lower case: '_' < 'a'
  };
  for (const auto& [a, b, n, sign] : cases) {
    SCOPED_TRACE(describe(a) + " / " + describe(b));
    const int r = QIM::stringCompareIgnoreCase(S<C>(a), S<C>(b), n);
    EXPECT_EQ((r > 0) - (r < 0), sign);
    EXPECT_TRUE(n != all || QIM::equalsIgnoreCase(S<C>(a), S<C>(b)) == (sign == 0));
  }
  const auto text = S<C>("Hello World");
  EXPECT_TRUE(QIM::stringStartsWithIgnoreCase(text, S<C>("hELLO")));
  EXPECT_TRUE(QIM::stringEndsWithIgnoreCase(text, S<C>("WORLD")));
  EXPECT_TRUE(QIM::stringContainsIgnoreCase(text, S<C>("O wO")));
}

TYPED_TEST(TwinTest, TokenizeKeepsEmptyPieces) {
  using C = TypeParam;
  const std::tuple<std::string_view, std::string_view, std::vector<std::string_view>> cases[] = {
      {"a,,b,", ",", {"a", "", "b", ""}}, {",a", ",", {"", "a"}}, {"", ",", {}},
      {"abc", "", {}}, {"abc", ",", {"abc"}}, {"a::b:c", "::", {"a", "b:c"}},
      {"aaa", "aa", {"", "a"}},  // no overlapping matches
  };
  for (const auto& [text, delimiter, pieces] : cases) {
    SCOPED_TRACE(describe(text) + " at " + describe(delimiter));
    std::vector<std::basic_string<C>> expected;
    for (const std::string_view piece : pieces) expected.push_back(S<C>(piece));
    EXPECT_EQ(QIM::tokenizeString(S<C>(text), S<C>(delimiter)), expected);
  }
}

TYPED_TEST(TwinTest, StringToLongAcceptsOnlyWholeTextInRange) {
  using C = TypeParam;
  // One past each limit, whatever the width of long.
  std::string pastMax = std::to_string(LONG_MAX), pastMin = std::to_string(LONG_MIN);
  ++pastMax.back();
  ++pastMin.back();
  const std::tuple<std::string, int, bool, long> cases[] = {
      {"", 10, true, 0},  // empty text is deliberately accepted
      {"-17", 10, true, -17}, {"\t+42", 10, true, 42}, {"0x1A", 16, true, 26}, {"017", 0, true, 15},
      {"42 ", 10, false, 0}, {"12a", 10, false, 0}, {"0x", 16, false, 0}, {pastMax, 10, false, 0},
      {std::string("1\0", 2), 10, false, 0}, {pastMin, 10, false, 0},
      {std::to_string(LONG_MIN), 10, true, LONG_MIN},
  };
  this->sink_.clear();
  for (const auto& [text, base, ok, expected] : cases) {
    SCOPED_TRACE(describe(text));
    long value = -999;
    EXPECT_EQ(QIM::stringToLong(S<C>(text), &value, base), ok);
    EXPECT_TRUE(!ok || value == expected) << value;
  }
  EXPECT_TRUE(this->sink_.lines().empty());
  EXPECT_FALSE(QIM::stringToLong(S<C>("1"), nullptr, 10));
  EXPECT_EQ(this->sink_.linesWith("Assertion failed: \"0!=dest\"").size(), 1u);
  // The floating-point parse has the same shape; overflow and underflow fail.
  for (const auto& [text, ok] : {std::pair{"  -2e3"sv, true}, {""sv, true}, {"3.25 "sv, false},
                                 {"1e400"sv, false}, {"1e-400"sv, false}}) {
    double value = -1;
    EXPECT_EQ(QIM::stringToDouble(std::string(text), &value), ok) << text;
    EXPECT_TRUE(!ok || value == (text.empty() ? 0.0 : -2000.0)) << text;
  }
}

}  // namespace
