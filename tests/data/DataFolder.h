// A fresh installation folder for each test, with its data/ subfolder, set
// as the library's installation folder while the test runs.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "TestSupport.h"
#include "qimmisc/EncryptionConfigurationFile.h"
#include "qimmisc/SystemPaths.h"

namespace QIM::test {

class DataFolderTest : public TracingTest {
 protected:
  DataFolderTest() {
    std::filesystem::create_directories(root_ / "data");
    setInstallationPath(root_.wstring());
  }
  ~DataFolderTest() override {
    setInstallationPath(L"");
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  /// Writes `text` to data/<name>; returns the file's path.
  std::wstring writeData(const std::string& name, const std::string& text) {
    const std::filesystem::path path = root_ / "data" / name;
    std::ofstream(path, std::ios::binary) << text;
    return path.wstring();
  }
  /// Writes the enciphered form of the settings `text` to data/<name>.
  std::wstring writeEnciphered(const std::string& name, const std::string& text) {
    const std::wstring target = (root_ / "data" / name).wstring();
    EncryptionConfigurationFile().encryptIniFile(writeData(name + ".plain", text), target);
    return target;
  }

  const std::filesystem::path root_ =
      std::filesystem::temp_directory_path() /
      ("qimmisc_data_" +
       std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
};

}  // namespace QIM::test
