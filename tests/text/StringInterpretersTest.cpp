#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ResourceTagsInterpreter.h"
#include "qimmisc/ResourcesManager.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/TagsInterpreter.h"
#include "text/LanguageFolder.h"

namespace QIM {
namespace {

using Tags = std::vector<std::pair<std::wstring, std::wstring>>;

struct TagsCase {
  const char* name;
  Tags tags;
  std::wstring input;
  std::wstring expected;
};
void PrintTo(const TagsCase& c, std::ostream* os) { *os << c.name; }

class TagsInterpreting : public ::testing::TestWithParam<TagsCase> {};

TEST_P(TagsInterpreting, ReplacesInTagOrder) {
  TagsInterpreter interpreter(false);
  for (const auto& [tag, value] : GetParam().tags) interpreter.setTag(tag, value);
  EXPECT_EQ(interpreter.interpretString(GetParam().input, nullptr, NetProvActionNone),
            GetParam().expected);
}

const TagsCase kTagsCases[] = {
    {"EmptyTable", {}, L"a <user> b", L"a <user> b"},
    {"EveryOccurrence", {{L"%x", L"1"}}, L"%x-%x%x", L"1-11"},
    {"CaseSensitive", {{L"%x", L"1"}}, L"%X", L"%X"},
    {"EarlierTagValueExpandsLaterTag", {{L"<a>", L"<b>"}, {L"<b>", L"B"}}, L"<a>", L"B"},
    {"LaterTagValueIsNotExpanded", {{L"<b>", L"<a>"}, {L"<a>", L"A"}}, L"<b>", L"<a>"},
    {"ValueHoldingItsOwnTag", {{L"<a>", L"[<a>]"}}, L"<a><a>", L"[<a>][<a>]"},
    {"ValueEmpty", {{L"<a>", L""}}, L"x<a>y", L"xy"},
    {"EmptyTagIgnored", {{L"", L"!"}}, L"abc", L"abc"},
    {"NonAscii", {{L"\u00e9t\u00e9", L"\u4e2d"}}, L"\u00e9t\u00e9!", L"\u4e2d!"},
};

INSTANTIATE_TEST_SUITE_P(Tags, TagsInterpreting, ::testing::ValuesIn(kTagsCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(TagsInterpreter, TableOperations) {
  TagsInterpreter interpreter(false);
  EXPECT_FALSE(interpreter.isTag(L"<x>"));
  EXPECT_EQ(interpreter.getTag(L"<x>"), L"<x>");
  interpreter.setTag(L"<x>", L"1");
  interpreter.setTag(L"<x>", L"2");
  EXPECT_TRUE(interpreter.isTag(L"<x>"));
  EXPECT_EQ(interpreter.getTag(L"<x>"), L"2");
  interpreter.removeTag(L"<x>");
  interpreter.removeTag(L"<x>");
  EXPECT_FALSE(interpreter.isTag(L"<x>"));
}

TEST(TagsInterpreter, FolderTagsOnlyWhenAsked) {
  const TagsInterpreter without(false), with(true);
  EXPECT_FALSE(without.isTag(L"<user>"));
  EXPECT_EQ(with.getTag(L"<user>"), getUserDir());
  EXPECT_EQ(with.getTag(L"<docs>"), getUserDocsDir());
  EXPECT_EQ(with.getTag(L"<appdata>"), getUserAppDir());
  EXPECT_EQ(with.interpretString(L"<docs>x", nullptr, NetProvActionNone), getUserDocsDir() + L"x");
}

class ResourceTags : public test::LanguageFolderTest {
 protected:
  void SetUp() override {
    LanguageFolderTest::SetUp();
    writeLanguage("en",
                  "HELLO=Hello\nNAME_1=Ann\n=empty key\nNESTED={resource=HELLO}\n"
                  "WIDE=caf\\u00e9\n");
    writeLanguage("de", "HELLO=Hallo\n");
  }
  std::wstring interpret(const std::wstring& text) const {
    return interpreter_.interpretString(text, nullptr, NetProvActionNone);
  }
  ResourceTagsInterpreter interpreter_;
};

struct ResourceCase {
  const char* name;
  std::wstring input;
  std::wstring expected;
};
void PrintTo(const ResourceCase& c, std::ostream* os) { *os << c.name; }

class ResourceTagsTable : public ResourceTags,
                          public ::testing::WithParamInterface<ResourceCase> {};

TEST_P(ResourceTagsTable, Expands) { EXPECT_EQ(interpret(GetParam().input), GetParam().expected); }

const ResourceCase kResourceCases[] = {
    {"NoTag", L"plain", L"plain"},
    {"OneTag", L"<{resource=HELLO}>", L"<Hello>"},
    {"TwoTags", L"{resource=HELLO} {resource=NAME_1}", L"Hello Ann"},
    {"MissingKeyStays", L"{resource=NOPE}!", L"{resource=NOPE}!"},
    {"MissingThenFound", L"{resource=NOPE}{resource=HELLO}", L"{resource=NOPE}Hello"},
    {"BlankInKeyRejectedSearchGoesOn", L"{resource=A {resource=HELLO}",
     L"{resource=A Hello"},
    {"NoCloserEndsIt", L"{resource=HELLO", L"{resource=HELLO"},
    {"EmptyKeyLooksUpEmptyKey", L"{resource=}", L"empty key"},
    {"ReplacementNotSearchedAgain", L"{resource=NESTED}", L"{resource=HELLO}"},
    {"NonAsciiKeyRejected", L"{resource=H\u00c9}", L"{resource=H\u00c9}"},
    {"NonAsciiValue", L"{resource=WIDE}", L"caf\u00e9"},
    {"OpenerIsCaseSensitive", L"{Resource=HELLO}", L"{Resource=HELLO}"},
};

INSTANTIATE_TEST_SUITE_P(Resource, ResourceTagsTable, ::testing::ValuesIn(kResourceCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(ResourceTags, CurrentLanguageFirstThenFallback) {
  ResourcesManager::instance().setCurrentLanguage("de");
  EXPECT_EQ(interpret(L"{resource=HELLO} {resource=NAME_1}"), L"Hallo Ann");
}

struct LanguageCase {
  const char* code;
  const wchar_t* expected;
};
void PrintTo(const LanguageCase& c, std::ostream* os) { *os << c.code; }

class LanguageTag : public ResourceTags, public ::testing::WithParamInterface<LanguageCase> {};

TEST_P(LanguageTag, MapsTheCurrentCode) {
  writeLanguage(GetParam().code, "HELLO=x\n");
  ResourcesManager::instance().setCurrentLanguage(GetParam().code);
  EXPECT_EQ(interpreter_.interpretStringSO(L"/{lang}/{lang}"),
            std::wstring(L"/") + GetParam().expected + L"/" + GetParam().expected);
}

// Files are named as the code is written; the mapping ignores the case.
const LanguageCase kLanguageCases[] = {
    {"zh_CN", L"zh-Hans"}, {"ZH_cn", L"zh-Hans"}, {"zh", L"zh-Hant"},
    {"ZH", L"zh-Hant"},    {"de", L"de"},         {"pt_BR", L"pt_BR"},
};

INSTANTIATE_TEST_SUITE_P(Resource, LanguageTag, ::testing::ValuesIn(kLanguageCases),
                         [](const auto& test) { return std::string(test.param.code); });

TEST_F(ResourceTags, UnsupportedLanguageGivesEnglishAndAnErrorLine) {
  ResourcesManager::instance().setCurrentLanguage("fr");
  EXPECT_EQ(interpreter_.interpretStringSO(L"{lang}"), L"en");
  EXPECT_TRUE(sink_.contains("Language is not supported"));
}

TEST(StringInterpreter, ForwardsContextUntouched) {
  class Probe : public BaseStringInterpreter {
   public:
    mutable IUpperLayerProvHandler* handler = nullptr;
    mutable NetProvAction action = NetProvActionNone;

   protected:
    std::wstring doInterpretString(const std::wstring& text, IUpperLayerProvHandler* h,
                                   NetProvAction a) const override {
      handler = h;
      action = a;
      return text + L"!";
    }
  };
  IUpperLayerProvHandler context;
  const Probe probe;
  EXPECT_EQ(probe.interpretString(L"x", &context, static_cast<NetProvAction>(7)), L"x!");
  EXPECT_EQ(probe.handler, &context);
  EXPECT_EQ(probe.action, 7);
}

}  // namespace
}  // namespace QIM
