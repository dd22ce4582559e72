// What the settings commands and doctor share: paths given on the command
// line, and the library's write-failure report turned into a result.
#pragma once

#include <filesystem>
#include <string>

#include "qimmisc/BufferConfigurationFile.h"

namespace qimtool {

/// A path as typed on the command line, as the library takes it.
std::wstring widePath(const std::string& argument);

/// The library's wide path as a filesystem path (UTF-8 bytes on Linux).
std::filesystem::path toPath(const std::wstring& path);

/// While alive, settings files that cannot be written are recorded here
/// instead of being shown to the user; the previous notifier comes back at
/// the end. One at a time.
class WriteFailureRecorder {
 public:
  WriteFailureRecorder();
  ~WriteFailureRecorder();
  WriteFailureRecorder(const WriteFailureRecorder&) = delete;
  WriteFailureRecorder& operator=(const WriteFailureRecorder&) = delete;

  bool failed() const { return failed_; }
  /// The library's message, as it would have shown it (UTF-8).
  const std::string& text() const { return text_; }

 private:
  QIM::WriteFailureNotifier previous_;
  bool failed_ = false;
  std::string text_;
};

}  // namespace qimtool
