#include "text/LanguageFolder.h"

#include <fstream>

#include "qimmisc/ResourcesManager.h"

namespace QIM::test {

LanguageFolderTest::LanguageFolderTest()
    : folder_(std::filesystem::path(::testing::TempDir()) /
              (std::string("qimmisc_lang_") +
               ::testing::UnitTest::GetInstance()->current_test_info()->name())) {
  std::filesystem::remove_all(folder_);
  std::filesystem::create_directories(folder_);
  ResourcesManager::instance().setLanguageFolder(folder_.wstring());
  ResourcesManager::instance().setCurrentLanguage("en");
}

LanguageFolderTest::~LanguageFolderTest() {
  ResourcesManager::instance().setLanguageFolder(L"");
  ResourcesManager::instance().setCurrentLanguage("");
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void LanguageFolderTest::writeLanguage(const std::string& code, const std::string& content) {
  std::ofstream(folder_ / (code + ".properties"), std::ios::binary) << content;
  ResourcesManager::instance().reload();
}

}  // namespace QIM::test
