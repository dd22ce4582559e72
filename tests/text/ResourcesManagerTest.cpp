#include "qimmisc/ResourcesManager.h"

#include <gtest/gtest.h>

#include "qimmisc/BufferConfigurationFile.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/VelderIni.h"
#include "text/LanguageFolder.h"

namespace QIM {
namespace {

using Resources = test::LanguageFolderTest;

TEST_F(Resources, CurrentLanguageThenFallback) {
  const struct { const char* language; std::wstring key, expected; } cases[] = {
      {"en", L"A", L"english a"}, {"en", L"B", L"b again"},  // CR dropped, later line wins
      {"de", L"A", L"deutsch a"}, {"de", L"B", L"b again"},  {"fr", L"A", L"english a"},
      {"en", L"a", L""},          {"en", L"\u00e9", L"utf8 key"},
      {"en", L"", L"empty key"},  {"en", std::wstring(1, wchar_t(0xD800)), L""}};
  for (const auto& c : cases) {
    resources_.setCurrentLanguage(c.language);
    EXPECT_EQ(resources_.getString(c.key), c.expected) << c.language;
  }
  EXPECT_EQ(sink_.linesWith("No language file for \"fr\"").size(), 1u);
}

TEST_F(Resources, SupportedLanguagesAndCodes) {
  for (const wchar_t* code : {L"en", L"de"}) EXPECT_TRUE(resources_.isLanguageSupported(code));
  for (const std::wstring& code : {std::wstring(L"fr"), std::wstring(), std::wstring(L"../en"),
                                   std::wstring(L"d\u00e9"), std::wstring(1, wchar_t(0xD800))}) {
    EXPECT_FALSE(resources_.isLanguageSupported(code));
  }
  resources_.setCurrentLanguage("fr");
  EXPECT_EQ(resources_.getCurrentLanguageCode(false), "fr");
  EXPECT_EQ(resources_.getCurrentLanguageCode(true), "en");
  resources_.setCurrentLanguage("");
  EXPECT_EQ(resources_.getCurrentLanguageCode(false), "en");
}

TEST_F(Resources, LanguageFromTheMainSettingsAndFolder) {
  for (const wchar_t* configured : {L"de", L""}) {
    BufferConfigurationFile file;
    file.setString(L"VELDer", L"defaultLanguage", configured);
    Data::VelderIni settings(false);
    settings.readFrom(file);
    resources_.chooseLanguage(settings);
    EXPECT_EQ(resources_.getString(L"A"), *configured ? L"deutsch a" : L"english a");
  }
  resources_.setLanguageFolder(folder_.wstring() + L"missing");
  EXPECT_EQ(resources_.getString(L"A"), L"");
  resources_.setLanguageFolder(L"");
  EXPECT_EQ(resources_.getLanguageFolder(), getInstallationPath() + L"lang" + kPathSeparator);
}

}  // namespace
}  // namespace QIM
