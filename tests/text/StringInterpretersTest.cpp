#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "qimmisc/ResourceTagsInterpreter.h"
#include "qimmisc/ResourcesManager.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/TagsInterpreter.h"
#include "text/LanguageFolder.h"

namespace QIM {
namespace {

TEST(TagsInterpreter, AppliesTagsInOrder) {
  const struct {
    std::vector<std::pair<std::wstring, std::wstring>> tags;
    std::wstring input, expected;
  } cases[] = {
      {{}, L"a <user> b", L"a <user> b"},
      {{{L"%x", L"1"}}, L"%x-%x%x %X", L"1-11 %X"},
      {{{L"<a>", L"<b>"}, {L"<b>", L"B"}}, L"<a>", L"B"},    // <a> first: expanded again
      {{{L"<b>", L"<a>"}, {L"<a>", L"A"}}, L"<b>", L"<a>"},  // <a> first: already done
      {{{L"<a>", L"[<a>]"}}, L"<a><a>", L"[<a>][<a>]"},
      {{{L"", L"!"}, {L"<a>", L""}}, L"x<a>y", L"xy"},
      {{{L"\u00e9t\u00e9", L"\u4e2d"}}, L"\u00e9t\u00e9!", L"\u4e2d!"},
  };
  for (const auto& c : cases) {
    TagsInterpreter interpreter(false);
    for (const auto& [tag, value] : c.tags) interpreter.setTag(tag, value);
    EXPECT_EQ(interpreter.interpretString(c.input, nullptr, NetProvActionNone), c.expected);
    interpreter.removeTag(L"<a>");
    EXPECT_EQ(interpreter.getTag(L"<a>"), L"<a>");
  }
}

TEST(TagsInterpreter, FolderTagsOnlyWhenAsked) {
  EXPECT_FALSE(TagsInterpreter(false).isTag(L"<user>"));
  const TagsInterpreter folders(true);
  EXPECT_EQ(folders.interpretString(L"<user>|<docs>|<appdata>", nullptr, NetProvActionNone),
            getUserDir() + L"|" + getUserDocsDir() + L"|" + getUserAppDir());
}

class ResourceTags : public test::LanguageFolderTest {
 protected:
  void SetUp() override {
    LanguageFolderTest::SetUp();
    writeLanguage("en", "HELLO=Hello\nN_1=Ann\n=empty key\nNESTED={resource=HELLO}\nW=\\u00e9\n");
    writeLanguage("de", "HELLO=Hallo\n");
  }
  ResourceTagsInterpreter interpreter_;
};

TEST_F(ResourceTags, ReplacesKnownKeys) {
  const struct {
    std::wstring input, expected;
  } cases[] = {
      {L"<{resource=HELLO}> {resource=N_1}", L"<Hello> Ann"},
      {L"{resource=NOPE}{resource=HELLO}", L"{resource=NOPE}Hello"},
      {L"{resource=A {resource=HELLO}", L"{resource=A Hello"},
      {L"{resource=HELLO", L"{resource=HELLO"},
      {L"{resource=}", L"empty key"},
      {L"{resource=NESTED}", L"{resource=HELLO}"},
      {L"{resource=H\u00c9}{resource=W}", L"{resource=H\u00c9}\u00e9"},
      {L"{Resource=HELLO}", L"{Resource=HELLO}"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(interpreter_.interpretString(c.input, nullptr, NetProvActionNone), c.expected);
  }
  ResourcesManager::instance().setCurrentLanguage("de");
  EXPECT_EQ(interpreter_.interpretString(L"{resource=HELLO} {resource=N_1}", nullptr,
                                         NetProvActionNone),
            L"Hallo Ann");
}

TEST_F(ResourceTags, LanguageTagForWebPages) {
  const struct {
    const char* code;
    std::wstring expected;
  } cases[] = {{"zh_CN", L"zh-Hans"}, {"ZH_cn", L"zh-Hans"}, {"zh", L"zh-Hant"},
               {"ZH", L"zh-Hant"},    {"pt_BR", L"pt_BR"}};
  for (const auto& c : cases) {
    writeLanguage(c.code, "X=x\n");
    ResourcesManager::instance().setCurrentLanguage(c.code);
    EXPECT_EQ(interpreter_.interpretStringSO(L"{lang}/{lang}"), c.expected + L"/" + c.expected);
  }
  ResourcesManager::instance().setCurrentLanguage("fr");
  EXPECT_EQ(interpreter_.interpretStringSO(L"{lang}"), L"en");
  EXPECT_TRUE(sink_.contains("Language is not supported"));
}

}  // namespace
}  // namespace QIM
