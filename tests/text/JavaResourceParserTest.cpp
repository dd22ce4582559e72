#include "qimmisc/JavaResourceParser.h"

#include <gtest/gtest.h>

#include <sstream>
#include <utility>
#include <vector>

namespace QIM {
namespace {

using Entries = std::vector<std::pair<std::string, std::wstring>>;

// Keeps the entries; refuses the entry number `accept`.
struct Sink : IJavaResourceSink {
  bool addResource(const std::string& key, const std::wstring& value) override {
    entries.emplace_back(key, value);
    return entries.size() < accept;
  }
  bool parse(const std::string& text) {
    std::istringstream in(text);
    return parseJavaResources(in, *this);
  }
  Entries entries;
  std::size_t accept = SIZE_MAX;
};

// U+1F600 as "\uD83D\uDE00": one character where wide strings are UTF-32.
const std::wstring kSmiley = sizeof(wchar_t) == 2 ? std::wstring({wchar_t(0xD83D), wchar_t(0xDE00)})
                                                  : std::wstring(1, wchar_t(0x1F600));

TEST(ResourceParser, LinesAndEscapes) {
  const struct { std::string text; Entries expected; } cases[] = {
      {"\n\n#a=b\nno equals\nkey=\nkey=   \n", {}},  {" #a=b", {{" #a", L"b"}}},
      {"key = value\n", {{"key ", L"value"}}},       {"k=\tv", {{"k", L"\tv"}}},
      {"a=b=c\n=v", {{"a", L"b=c"}, {"", L"v"}}},    {"a=1\r\n", {{"a", L"1\r"}}},
      {"a=x\\ny\\tz", {{"a", L"x\ny\tz"}}},          {"a=caf\\u00e9 \\u4E2D", {{"a", L"caf\u00e9 \u4e2d"}}},
      {"a=\\u00e\nb=\\u00g9", {{"a", L"\\u00e"}, {"b", L"\\u00g9"}}},  // not escapes
      {"a=\\x\\\\n", {{"a", L"\\x\\\n"}}},           {"a=\\u0020x", {{"a", L" x"}}},
      {"a=b\\\nc=d", {{"a", L"b\\"}, {"c", L"d"}}},  // no continuation
      {"\xE9=\xC3\xA9\xFF", {{"\xE9", L"\u00c3\u00a9\u00ff"}}},  // Latin-1, never UTF-8
      {std::string("a=x\0y", 5), {{"a", std::wstring(L"x\0y", 3)}}},
      {"a=\\uD83D\\uDE00", {{"a", kSmiley}}},        {"a=\\uDE00x", {{"a", std::wstring({wchar_t(0xDE00), L'x'})}}},
  };
  for (const auto& c : cases) {
    Sink sink;
    EXPECT_TRUE(sink.parse(c.text)) << c.text;
    EXPECT_EQ(sink.entries, c.expected) << c.text;
  }
}

TEST(ResourceParser, RefusingSinkEndsTheParse) {
  for (const char* text : {"a=1\nb=2\nc=3\n", "a=1\nb=2"}) {
    Sink sink;
    sink.accept = 2;
    EXPECT_FALSE(sink.parse(text));
    EXPECT_EQ(sink.entries.size(), 2u);
  }
}

TEST(ResourceParser, LinesAcrossAndBeyondTheReadBlock) {
  std::string text;
  Entries expected;
  Sink sink;
  for (int i = 0; i < 3000; ++i) {
    const std::string value = i == 1500 ? std::string(200000, 'v') : std::to_string(i);
    text += "k" + std::to_string(i) + "=" + value + "\n";
    expected.emplace_back("k" + std::to_string(i), std::wstring(value.begin(), value.end()));
  }
  EXPECT_TRUE(sink.parse(text));
  EXPECT_EQ(sink.entries, expected);
}

}  // namespace
}  // namespace QIM
