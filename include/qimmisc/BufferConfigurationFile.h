// The plain-text settings file: the whole file is kept in memory as ordered
// maps and written back whole.
//
// Text format (UTF-8, no byte-order mark written or skipped):
//   [Section]        a header in the first column; the closing "]" may be
//                    missing; a repeated header empties its section
//   key=value        key up to the first "=", value to the end of the line;
//                    both trimmed; an empty value drops the line
// Any other line is ignored. Entries before the first header belong to the
// section with the empty name. Reading stops at the first NUL byte, and every
// written file ends with one NUL byte after its last line.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "qimmisc/Export.h"
#include "qimmisc/IConfigurationFile.h"

// IMPLEMENTATION-DEFINED BELOW (the settings-core branch owns the protected
// and private parts of this header).

namespace QIM {

/// Shown when write cannot open its target: the text and the title the user
/// is to see ("Error").
using WriteFailureNotifier =
    std::function<void(const std::wstring& text, const std::wstring& title)>;

/// Replaces the process-wide notifier for settings files that cannot be
/// written, and returns the previous one. An empty notifier restores the
/// default: a modal MessageBoxW on Windows; on Linux an ERROR line and a line
/// on stderr. Hosts and tests replace it so nothing blocks.
QIMMISC_API WriteFailureNotifier setWriteFailureNotifier(WriteFailureNotifier notifier);

/// The plain-text IConfigurationFile. Every public operation takes the
/// object's own lock for its whole run, so one object may be shared between
/// threads; separate objects load and parse independently.
class QIMMISC_API BufferConfigurationFile : public IConfigurationFile {
 public:
  BufferConfigurationFile();
  ~BufferConfigurationFile() override;
  BufferConfigurationFile(const BufferConfigurationFile&) = delete;
  BufferConfigurationFile& operator=(const BufferConfigurationFile&) = delete;

  void loadConfigurationFile(const std::wstring& path) override;
  int getInt(const std::wstring& section, const std::wstring& key, int defaultValue) override;
  void setInt(const std::wstring& section, const std::wstring& key, int value) override;
  bool getBool(const std::wstring& section, const std::wstring& key, bool defaultValue) override;
  void setBool(const std::wstring& section, const std::wstring& key, bool value) override;
  std::wstring getString(const std::wstring& section, const std::wstring& key,
                         std::wstring defaultValue) override;
  void setString(const std::wstring& section, const std::wstring& key,
                 std::wstring value) override;
  void write(const std::wstring& path) override;
  void write() override;
  void clearSection(const std::wstring& section) override;
  void setSection(const std::wstring& section, ConfigurationSection values) override;
  ConfigurationSection getSection(const std::wstring& section) override;
  std::vector<std::wstring> getSections() override;

  /// The written form of the current content, without the final NUL: what
  /// write() would put on disk, as wide text.
  std::wstring toText();

 protected:
  // (settings-core branch: loadRawFileIntoBuffer, parse, writeBuffer, the
  // lock, the raw buffer and the file name for EncryptionConfigurationFile.)
};

}  // namespace QIM
