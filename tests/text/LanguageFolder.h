// A fresh language folder for each test, given to the resources manager,
// whose folder and language are restored afterwards. Trace lines go to sink_.
#pragma once

#include <filesystem>
#include <string>

#include "TestSupport.h"

namespace QIM::test {

class LanguageFolderTest : public TracingTest {
 protected:
  LanguageFolderTest();
  ~LanguageFolderTest() override;
  /// Writes "<code>.properties" with `content`.
  void writeLanguage(const std::string& code, const std::string& content);
  std::filesystem::path folder_;
};

}  // namespace QIM::test
