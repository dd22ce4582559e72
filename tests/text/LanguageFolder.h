// A fresh language folder for each test, given to the resources manager,
// whose folder and language are restored afterwards. English and German
// files hold the keys the text tests read. Trace lines go to sink_.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "TestSupport.h"
#include "qimmisc/ResourcesManager.h"

namespace QIM::test {

class LanguageFolderTest : public TracingTest {
 protected:
  LanguageFolderTest() {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    resources_.setLanguageFolder(folder_.wstring());
    resources_.setCurrentLanguage("en");
    writeLanguage("en", "A=english a\r\nB=b\r\nB=b again\r\n\xC3\xA9=utf8 key\n=empty key\nHELLO=Hello\n"
                        "N_1=Ann\nNESTED={resource=HELLO}\nW=\\u00e9\nSUNDAY=Sun\nMONDAY=Mon\nSATURDAY=Sat\n");
    writeLanguage("de", "A=deutsch a\nHELLO=Hallo\n");
  }
  ~LanguageFolderTest() override {
    resources_.setLanguageFolder(L"");
    resources_.setCurrentLanguage("");
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  /// Writes "<code>.properties" with `content`.
  void writeLanguage(const std::string& code, const std::string& content) {
    std::ofstream(folder_ / (code + ".properties"), std::ios::binary) << content;
    resources_.reload();
  }
  const std::filesystem::path folder_ =
      std::filesystem::path(::testing::TempDir()) /
      ("qimmisc_lang_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
  ResourcesManager& resources_ = ResourcesManager::instance();
};

}  // namespace QIM::test
