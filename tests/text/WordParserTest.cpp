#include "qimmisc/WordParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

namespace {

using QIM::WordParser;
using Words = std::vector<std::pair<std::wstring, int>>;

Words wordsOf(const WordParser& parser) {
  Words words;
  for (const WordParser::TextElement& element : parser) {
    EXPECT_EQ(element.reserved, 0);
    words.emplace_back(element.text, element.start);
  }
  return words;
}

TEST(WordParserTest, ReportsFinishedWordsWithTheirStarts) {
  const struct { std::wstring text; Words words; } cases[] = {
      {L"hello world ", {{L"hello", 0}, {L"world", 6}}},
      {L"hello world", {{L"hello", 0}}},  // the word being typed is left out
      {L"  ab,;cd!", {{L"ab", 2}, {L"cd", 6}}}, {L"abc", {}}, {L"..,", {}},
      // Addresses stay whole.
      {L"x ann@a.b.c, y", {{L"x", 0}, {L"ann@a.b.c", 2}}}, {L"a@@b.c ", {{L"a@@b.c", 0}}},
      // ... but not a "." right after the "@", nor one before a separator,
      // nor one with nothing before the "@".
      {L"ann@.com ", {{L"ann@", 0}, {L"com", 5}}}, {L"ann@ex. com ", {{L"ann@ex", 0}, {L"com", 8}}},
      {L"ann@ex.", {{L"ann@ex", 0}}}, {L"@ex.com ", {{L"@ex", 0}, {L"com", 4}}},
      {L"ann.b@c ", {{L"ann", 0}, {L"b@c", 4}}},
      // Non-ASCII letters are word characters under any locale.
      {L"\u00e9t\u00e9 \u4e2d\u6587 ", {{L"\u00e9t\u00e9", 0}, {L"\u4e2d\u6587", 4}}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.text));
    const WordParser parser(c.text);
    EXPECT_EQ(wordsOf(parser), c.words);
    EXPECT_EQ(parser.empty(), c.words.empty());
  }
}

TEST(WordParserTest, NarrowTextIsUtf8AndEmptyTextThrows) {
  EXPECT_EQ(wordsOf(WordParser(std::string("caf\xc3\xa9 ann@b.c "))),
            (Words{{L"caf\u00e9", 0}, {L"ann@b.c", 5}}));
  const auto thrown = testing::ThrowsMessage<std::out_of_range>(testing::StrEq("invalid string position"));
  EXPECT_THAT([] { WordParser{std::wstring()}; }, thrown);
  EXPECT_THAT([] { WordParser{std::string()}; }, thrown);
  EXPECT_THAT([] { WordParser{std::string("ab \xff cd ")}; }, thrown);  // invalid UTF-8: empty text
}

TEST(WordParserTest, NearestWordPicksTheLastWordStartingAtOrBefore) {
  //                              0123456789012345
  WordParser parser(std::wstring(L"  one two  three four"));
  const struct { int position, start, length; } cases[] = {
      {-5, 2, 3}, {2, 2, 3}, {6, 6, 3}, {10, 6, 3}, {11, 11, 5}, {1000, 11, 5}};
  for (const auto& c : cases) {
    int start = -1, length = -1;
    ASSERT_TRUE(parser.nearestWord(c.position, start, length)) << c.position;
    EXPECT_EQ(std::pair(start, length), std::pair(c.start, c.length)) << c.position;
  }
  int start = 7, length = 7;
  EXPECT_FALSE(WordParser().nearestWord(0, start, length));
  EXPECT_FALSE(WordParser(std::wstring(L"typing")).nearestWord(0, start, length));
  parser.clear();
  EXPECT_FALSE(parser.nearestWord(0, start, length));
  EXPECT_EQ(start + length, 14);  // outputs left as they were
}

TEST(WordParserTest, EqualityComparesWordsAndStartsOnly) {
  const WordParser a(std::wstring(L"one two "));
  EXPECT_TRUE(a == WordParser(std::wstring(L"one two three")));
  for (const wchar_t* other : {L" one two ", L"one twe ", L"one "}) {
    EXPECT_FALSE(a == WordParser(std::wstring(other))) << testing::PrintToString(other);
  }
  WordParser copy;
  int start = 0, length = 0;
  copy = a;
  EXPECT_TRUE(copy == a && copy.nearestWord(5, start, length) && start == 4);
}

}  // namespace
