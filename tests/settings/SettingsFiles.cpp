#include "settings/SettingsFiles.h"

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>

namespace QIM::test {
namespace fs = std::filesystem;

ScratchFolder::ScratchFolder() {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string("qimmisc-") + info->test_suite_name() + "-" + info->name();
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '-';
  folder_ = fs::temp_directory_path() / name;
  fs::remove_all(folder_);
  fs::create_directories(folder_);
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

int ScratchFolder::entryCount() const {
  return static_cast<int>(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()));
}

void writeBytes(const std::wstring& path, const std::string& bytes) {
  std::ofstream(fs::path(path), std::ios::binary | std::ios::trunc) << bytes;
}

std::string readBytes(const std::wstring& path) {
  std::ostringstream content;
  content << std::ifstream(fs::path(path), std::ios::binary).rdbuf();
  return content.str();
}

std::wstring sampleFile(const std::string& name) {
  return (fs::path(QIMMISC_SETTINGS_TEST_DATA) / name).wstring();
}

NotifierSpy::NotifierSpy()
    : previous(setWriteFailureNotifier([this](const std::wstring& t, const std::wstring& ti) {
        ++calls;
        text = t;
        title = ti;
      })) {}

}  // namespace QIM::test
