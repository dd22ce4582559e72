#include "qimmisc/JavaResourceParser.h"

#include <gtest/gtest.h>

#include <sstream>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace QIM {
namespace {

using Entries = std::vector<std::pair<std::string, std::wstring>>;

class RecordingSink : public IJavaResourceSink {
 public:
  explicit RecordingSink(std::size_t acceptCount = SIZE_MAX) : acceptCount_(acceptCount) {}
  bool addResource(const std::string& key, const std::wstring& value) override {
    entries.emplace_back(key, value);
    return entries.size() < acceptCount_;
  }
  Entries entries;

 private:
  std::size_t acceptCount_;
};

Entries parse(const std::string& text) {
  std::istringstream in(text);
  RecordingSink sink;
  EXPECT_TRUE(parseJavaResources(in, sink));
  return sink.entries;
}

struct LineCase {
  const char* name;
  std::string text;
  Entries expected;
};
void PrintTo(const LineCase& c, std::ostream* os) { *os << c.name; }

class ParseLines : public ::testing::TestWithParam<LineCase> {};

TEST_P(ParseLines, DeliversExactly) { EXPECT_EQ(parse(GetParam().text), GetParam().expected); }

const LineCase kLineCases[] = {
    {"Empty", "", {}},
    {"BlankLines", "\n\n\n", {}},
    {"Comment", "#a=b\n", {}},
    {"CommentOnlyAtStart", " #a=b", {{" #a", L"b"}}},
    {"NoEquals", "just text\n", {}},
    {"KeyAndEqualsAlone", "key=\n", {}},
    {"KeyAndBlanksOnly", "key=   \n", {}},
    {"BlankBothSides", "key = value\n", {{"key ", L"value"}}},
    {"TabIsNotSkipped", "k=\tv", {{"k", L"\tv"}}},
    {"SecondEqualsInValue", "a=b=c\n", {{"a", L"b=c"}}},
    {"EmptyKey", "=v\n", {{"", L"v"}}},
    {"LastLineWithoutFeed", "a=1\nb=2", {{"a", L"1"}, {"b", L"2"}}},
    {"CarriageReturnKept", "a=1\r\n", {{"a", L"1\r"}}},
    {"NewlineAndTab", "a=x\\ny\\tz\n", {{"a", L"x\ny\tz"}}},
    {"UnicodeEscape", "a=caf\\u00e9\n", {{"a", L"caf\u00e9"}}},
    {"UnicodeEscapeUpper", "a=\\u00C9\\u4E2D", {{"a", L"\u00c9\u4e2d"}}},
    {"ShortUnicodeEscapeStays", "a=\\u00e\n", {{"a", L"\\u00e"}}},
    {"BadHexStays", "a=\\u00g9", {{"a", L"\\u00g9"}}},
    {"OtherBackslashStays", "a=\\x\\\\", {{"a", L"\\x\\\\"}}},
    {"TrailingBackslashDoesNotContinue", "a=b\\\nc=d", {{"a", L"b\\"}, {"c", L"d"}}},
    {"DoubledBackslashBeforeN", "a=\\\\n", {{"a", L"\\\n"}}},
    {"EscapedBlankKeepsLeadingSpace", "a=\\u0020x", {{"a", L" x"}}},
    {"HighBytesAreLatin1", "a=\xC3\xA9\xFF", {{"a", L"\u00c3\u00a9\u00ff"}}},
    {"HighByteKeyKept", "\xE9t\xE9=x", {{"\xE9t\xE9", L"x"}}},
    {"NulByteKept", std::string("a=x\0y", 5), {{"a", std::wstring(L"x\0y", 3)}}},
};

INSTANTIATE_TEST_SUITE_P(Resource, ParseLines, ::testing::ValuesIn(kLineCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(ResourceParser, SurrogatePairEscapesGiveOneCharacter) {
  const Entries got = parse("a=\\uD83D\\uDE00\n");
  ASSERT_EQ(got.size(), 1u);
  if (sizeof(wchar_t) == 2) {
    EXPECT_EQ(got[0].second, std::wstring({wchar_t(0xD83D), wchar_t(0xDE00)}));
  } else {
    EXPECT_EQ(got[0].second, std::wstring(1, wchar_t(0x1F600)));
  }
}

TEST(ResourceParser, LoneSurrogateStaysItsCodeUnit) {
  const Entries got = parse("a=\\uDE00x\n");
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].second, std::wstring({wchar_t(0xDE00), L'x'}));
}

TEST(ResourceParser, RefusingSinkStopsAfterTwoCalls) {
  std::istringstream in("a=1\nb=2\nc=3\n");
  RecordingSink sink(2);
  EXPECT_FALSE(parseJavaResources(in, sink));
  EXPECT_EQ(sink.entries.size(), 2u);
}

TEST(ResourceParser, RefusalOnLastUnterminatedLineIsReported) {
  std::istringstream in("a=1");
  RecordingSink sink(1);
  EXPECT_FALSE(parseJavaResources(in, sink));
}

TEST(ResourceParser, LinesLongerThanTheReadBlockAndAcrossBlocks) {
  std::string text;
  Entries expected;
  const std::string longValue(200000, 'v');
  for (int i = 0; i < 3000; ++i) {
    const std::string key = "key" + std::to_string(i);
    const std::string value = i == 1500 ? longValue : "value" + std::to_string(i);
    text += key + "=" + value + "\n";
    expected.emplace_back(key, std::wstring(value.begin(), value.end()));
  }
  EXPECT_EQ(parse(text), expected);
}

}  // namespace
}  // namespace QIM
