#include "settings/SettingsFiles.h"

#include <atomic>
#include <fstream>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

namespace QIM::test {
namespace fs = std::filesystem;

ScratchFolder::ScratchFolder() {
  static std::atomic<int> counter{0};
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = "qimmisc-settings-";
  if (info) name += std::string(info->test_suite_name()) + "-" + info->name() + "-";
  for (char& c : name) {
    if (c == '/') c = '_';
  }
  folder_ = fs::temp_directory_path() / (name + std::to_string(++counter));
  fs::remove_all(folder_);
  fs::create_directories(folder_);
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  fs::permissions(folder_, fs::perms::owner_all, fs::perm_options::add, ignored);
  fs::remove_all(folder_, ignored);
}

std::wstring ScratchFolder::path(const std::string& name) const {
  return (folder_ / fs::path(name)).wstring();
}

int ScratchFolder::entryCount() const {
  return static_cast<int>(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()));
}

void writeBytes(const std::wstring& path, const std::string& bytes) {
  std::ofstream out(fs::path(path), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string readBytes(const std::wstring& path) {
  std::ifstream in(fs::path(path), std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

std::wstring sampleFile(const std::string& name) {
  return (fs::path(QIMMISC_SETTINGS_TEST_DATA) / name).wstring();
}

NotifierSpy::NotifierSpy()
    : previous_(setWriteFailureNotifier([this](const std::wstring& t, const std::wstring& ti) {
        ++calls;
        text = t;
        title = ti;
      })) {}

NotifierSpy::~NotifierSpy() { setWriteFailureNotifier(previous_); }

}  // namespace QIM::test
