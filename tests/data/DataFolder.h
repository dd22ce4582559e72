// A fresh installation folder for each test, with its data/ subfolder, set
// as the library's installation folder while the test runs.
#pragma once

#include <filesystem>
#include <string>

#include "TestSupport.h"

namespace QIM::test {

class DataFolderTest : public TracingTest {
 protected:
  DataFolderTest();
  ~DataFolderTest() override;

  /// Writes `text` to data/<name>; returns the file's path.
  std::wstring writeData(const std::string& name, const std::string& text);
  /// Writes the enciphered form of the settings `text` to data/<name>.
  std::wstring writeEnciphered(const std::string& name, const std::string& text);

  const std::filesystem::path root_;
};

}  // namespace QIM::test
