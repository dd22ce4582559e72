#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "qimmisc/ResourceTagsInterpreter.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/TagsInterpreter.h"
#include "text/LanguageFolder.h"

namespace QIM {
namespace {

TEST(TagsInterpreter, AppliesTagsInOrder) {
  const struct { std::vector<std::pair<std::wstring, std::wstring>> tags; std::wstring input, expected; } cases[] = {
      {{}, L"a <user> b", L"a <user> b"},  // folder tags only when asked
      {{{L"%x", L"1"}}, L"%x-%x%x %X", L"1-11 %X"},
      {{{L"<a>", L"<b>"}, {L"<b>", L"B"}}, L"<a>", L"B"},    // <a> first: expanded again
      {{{L"<b>", L"<a>"}, {L"<a>", L"A"}}, L"<b>", L"<a>"},  // <a> first: already done
      {{{L"<a>", L"[<a>]"}}, L"<a><a>", L"[<a>][<a>]"},
      {{{L"", L"!"}, {L"<a>", L""}}, L"x<a>y", L"xy"},
      {{{L"\u00e9t\u00e9", L"\u4e2d"}}, L"\u00e9t\u00e9!", L"\u4e2d!"}};
  for (const auto& c : cases) {
    TagsInterpreter interpreter(false);
    for (const auto& [tag, value] : c.tags) interpreter.setTag(tag, value);
    EXPECT_EQ(interpreter.interpretString(c.input, nullptr, NetProvActionNone), c.expected);
    interpreter.removeTag(L"<a>");
    EXPECT_EQ(interpreter.getTag(L"<a>"), L"<a>");
  }
  EXPECT_EQ(TagsInterpreter(true).interpretString(L"<user>|<docs>|<appdata>", nullptr, NetProvActionNone),
            getUserDir() + L"|" + getUserDocsDir() + L"|" + getUserAppDir());
}

class ResourceTags : public test::LanguageFolderTest {
 protected:
  ResourceTagsInterpreter interpreter_;
};

TEST_F(ResourceTags, ReplacesKnownKeys) {
  const std::pair<std::wstring, std::wstring> cases[] = {
      {L"<{resource=HELLO}> {resource=N_1}", L"<Hello> Ann"}, {L"{resource=HELLO", L"{resource=HELLO"},
      {L"{resource=NOPE}{resource=HELLO}", L"{resource=NOPE}Hello"}, {L"{resource=}", L"empty key"},
      {L"{resource=A {resource=HELLO}", L"{resource=A Hello"}, {L"{Resource=HELLO}", L"{Resource=HELLO}"},
      {L"{resource=NESTED}", L"{resource=HELLO}"}, {L"{resource=H\u00c9}{resource=W}", L"{resource=H\u00c9}\u00e9"}};
  for (const auto& [input, expected] : cases) {
    EXPECT_EQ(interpreter_.interpretString(input, nullptr, NetProvActionNone), expected);
  }
  resources_.setCurrentLanguage("de");
  EXPECT_EQ(interpreter_.interpretString(L"{resource=HELLO} {resource=N_1}", nullptr, NetProvActionNone),
            L"Hallo Ann");
}

TEST_F(ResourceTags, LanguageTagForWebPages) {
  const std::pair<const char*, std::wstring> cases[] = {
      {"zh_CN", L"zh-Hans"}, {"ZH_cn", L"zh-Hans"}, {"zh", L"zh-Hant"}, {"ZH", L"zh-Hant"}, {"pt_BR", L"pt_BR"}};
  for (const auto& [code, expected] : cases) {
    writeLanguage(code, "X=x\n");
    resources_.setCurrentLanguage(code);
    EXPECT_EQ(interpreter_.interpretStringSO(L"{lang}/{lang}"), expected + L"/" + expected);
  }
  resources_.setCurrentLanguage("fr");
  EXPECT_EQ(interpreter_.interpretStringSO(L"{lang}"), L"en");
  EXPECT_TRUE(sink_.contains("Language is not supported"));
}

}  // namespace
}  // namespace QIM
