#include "data/DataFolder.h"

#include <fstream>

#include "qimmisc/EncryptionConfigurationFile.h"
#include "qimmisc/SystemPaths.h"

namespace fs = std::filesystem;

namespace QIM::test {

DataFolderTest::DataFolderTest()
    : root_(fs::temp_directory_path() /
            ("qimmisc_data_" +
             std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()))) {
  fs::create_directories(root_ / "data");
  setInstallationPath(root_.wstring());
}

DataFolderTest::~DataFolderTest() {
  setInstallationPath(L"");
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::wstring DataFolderTest::writeData(const std::string& name, const std::string& text) {
  const fs::path path = root_ / "data" / name;
  std::ofstream(path, std::ios::binary) << text;
  return path.wstring();
}

std::wstring DataFolderTest::writeEnciphered(const std::string& name, const std::string& text) {
  const std::wstring plain = writeData(name + ".plain", text);
  const std::wstring target = (root_ / "data" / name).wstring();
  EncryptionConfigurationFile().encryptIniFile(plain, target);
  return target;
}

}  // namespace QIM::test
