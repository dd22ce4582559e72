// Helpers of the settings tests: a scratch folder per test and whole-file
// reads and writes.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace QIM::test {

/// A fresh, empty folder named after the running test, removed at the end.
class ScratchFolder {
 public:
  ScratchFolder() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string("qimmisc-") + info->test_suite_name() + "-" + info->name();
    for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '-';
    folder_ = std::filesystem::temp_directory_path() / name;
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  /// The wide path of `name` in the folder.
  std::wstring path(const std::string& name) const { return (folder_ / name).wstring(); }

 private:
  std::filesystem::path folder_;
};

/// Replaces the file at `path` by exactly `bytes`.
inline void writeBytes(const std::wstring& path, const std::string& bytes) {
  std::ofstream(std::filesystem::path(path), std::ios::binary | std::ios::trunc) << bytes;
}

/// The whole content of `path` (empty when it cannot be read).
inline std::string readBytes(const std::wstring& path) {
  std::ostringstream content;
  content << std::ifstream(std::filesystem::path(path), std::ios::binary).rdbuf();
  return content.str();
}

}  // namespace QIM::test
