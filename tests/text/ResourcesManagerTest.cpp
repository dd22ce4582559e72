#include "qimmisc/ResourcesManager.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "qimmisc/SystemPaths.h"
#include "text/LanguageFolder.h"

namespace QIM {
namespace {

class Resources : public test::LanguageFolderTest {
 protected:
  void SetUp() override {
    LanguageFolderTest::SetUp();
    writeLanguage("en", "A=english a\r\nB=english b\r\nB=english b again\r\n\xC3\xA9=utf8 key\n");
    writeLanguage("de", "A=deutsch a\n");
  }
  ResourcesManager& resources_ = ResourcesManager::instance();
};

struct LookupCase {
  const char* language;
  const wchar_t* key;
  const wchar_t* expected;
};
void PrintTo(const LookupCase& c, std::ostream* os) { *os << c.language; }

class ResourceLookup : public Resources, public ::testing::WithParamInterface<LookupCase> {};

TEST_P(ResourceLookup, CurrentThenFallback) {
  resources_.setCurrentLanguage(GetParam().language);
  EXPECT_EQ(resources_.getString(GetParam().key), GetParam().expected);
}

const LookupCase kLookups[] = {
    {"en", L"A", L"english a"},          // carriage return dropped
    {"en", L"B", L"english b again"},    // the later line wins
    {"de", L"A", L"deutsch a"},          {"de", L"B", L"english b again"},
    {"fr", L"A", L"english a"},          // no file: the fallback
    {"en", L"C", L""},                   {"en", L"a", L""},  // keys are case-sensitive
    {"en", L"\u00e9", L"utf8 key"},      // keys are UTF-8 in the file
    {"en", L"", L""},
};

INSTANTIATE_TEST_SUITE_P(Resources, ResourceLookup, ::testing::ValuesIn(kLookups));

TEST_F(Resources, KeyThatIsNotTextFindsNothing) {
  const std::wstring loneSurrogate(1, static_cast<wchar_t>(0xD800));
  EXPECT_EQ(resources_.getString(loneSurrogate), L"");
}

struct SupportCase {
  std::wstring code;
  bool supported;
};
void PrintTo(const SupportCase& c, std::ostream* os) { *os << (c.supported ? "supported" : "unsupported"); }

class LanguageSupport : public Resources, public ::testing::WithParamInterface<SupportCase> {};

TEST_P(LanguageSupport, OnlyValidCodesWithAFile) {
  EXPECT_EQ(resources_.isLanguageSupported(GetParam().code), GetParam().supported);
}

const SupportCase kSupport[] = {
    {L"en", true},        {L"de", true},         {L"fr", false},
    {L"", false},         {L"../en", false},     {L"e n", false},
    {L"d\u00e9", false},  {std::wstring(1, static_cast<wchar_t>(0xD800)), false},
};

INSTANTIATE_TEST_SUITE_P(Resources, LanguageSupport, ::testing::ValuesIn(kSupport));

TEST_F(Resources, CurrentCodeAsChosenOrAsResolved) {
  EXPECT_EQ(resources_.getCurrentLanguageCode(false), "en");
  resources_.setCurrentLanguage("fr");
  EXPECT_EQ(resources_.getCurrentLanguageCode(false), "fr");
  EXPECT_EQ(resources_.getCurrentLanguageCode(true), "en");
  resources_.setCurrentLanguage("de");
  EXPECT_EQ(resources_.getCurrentLanguageCode(true), "de");
  resources_.setCurrentLanguage("");
  EXPECT_EQ(resources_.getCurrentLanguageCode(false), "en");
}

TEST_F(Resources, MissingLanguageFileIsReportedOnce) {
  resources_.setCurrentLanguage("fr");
  resources_.getString(L"A");
  resources_.getString(L"A");
  EXPECT_EQ(sink_.linesWith("No language file for \"fr\"").size(), 1u);
}

TEST_F(Resources, FolderChangeRereads) {
  EXPECT_EQ(resources_.getString(L"A"), L"english a");
  resources_.setLanguageFolder(folder_.wstring() + L"missing");
  EXPECT_EQ(resources_.getString(L"A"), L"");
  resources_.setLanguageFolder(folder_.wstring());
  EXPECT_EQ(resources_.getString(L"A"), L"english a");
}

TEST_F(Resources, DefaultFolderIsBelowTheInstallation) {
  resources_.setLanguageFolder(L"");
  EXPECT_EQ(resources_.getLanguageFolder(), getInstallationPath() + L"lang" + kPathSeparator);
}

TEST_F(Resources, ConcurrentLookupsAgree) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 500; ++i) {
        if (i % 100 == 0) resources_.reload();
        if (resources_.getString(L"A") != L"english a") ++wrong[t];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

}  // namespace
}  // namespace QIM
