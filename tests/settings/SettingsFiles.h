// Helpers of the settings tests: a scratch folder per test, whole-file
// reads and writes, the committed samples, and a recording notifier.
#pragma once

#include <filesystem>
#include <string>

#include "qimmisc/BufferConfigurationFile.h"

namespace QIM::test {

/// A fresh, empty folder, removed with everything in it at the end.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  /// The wide path of `name` in the folder.
  std::wstring path(const std::string& name) const { return (folder_ / name).wstring(); }
  /// How many entries the folder holds.
  int entryCount() const;

 private:
  std::filesystem::path folder_;
};

/// Replaces the file at `path` by exactly `bytes`.
void writeBytes(const std::wstring& path, const std::string& bytes);
/// The whole content of `path` (empty when it cannot be read).
std::string readBytes(const std::wstring& path);
/// The path of a committed sample file under tests/settings/data.
std::wstring sampleFile(const std::string& name);

/// Replaces the write-failure notifier for its lifetime, counting the calls
/// and keeping the last text and title.
struct NotifierSpy {
  NotifierSpy();
  ~NotifierSpy() { setWriteFailureNotifier(previous); }
  int calls = 0;
  std::wstring text, title;
  WriteFailureNotifier previous;
};

}  // namespace QIM::test
