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
//
// Decisions of this implementation:
//   - CR LF pairs are folded to LF when a plain file is read, on every
//     platform alike (a lone CR stays an ordinary character, and so does a
//     Ctrl-Z byte), so one file reads the same everywhere.
//   - A line longer than 1023 characters is skipped whole with one ERROR line
//     naming the file and the line number; reading goes on after it. Lengths
//     (1023 per line, 255 per name) count UTF-16 units on every platform, so
//     a character beyond U+FFFF counts two on Linux as on Windows.
//   - A file that is not valid UTF-8 loads as no sections, with an ERROR line
//     naming it (the conversion is all or nothing).
//   - getInt: white space, an optional sign, then decimal digits; a number
//     outside the 32-bit range gives the default.
//   - write replaces the file atomically: the text goes to a new file beside
//     the target, is flushed to disk, then renamed over it, so a crash leaves
//     the old file or the new one. A failure at any step removes the new file,
//     leaves the old one untouched and shows the could-not-be-opened message.
//     Text that cannot be encoded as UTF-8 (a lone surrogate) is not written
//     at all: an ERROR line says so and the old file stays. The new file
//     takes the old one's permissions (Linux); a read-only target is refused
//     as opening it for writing would be, and a symbolic link is replaced
//     where it points.
//   - Map order compares wide characters: UTF-16 units on Windows, code
//     points on Linux. Names with characters beyond U+FFFF can therefore
//     sort (and be written) in another order on the other platform; the
//     content read back is the same.
//   - The decoded text of the last load stays in memory, since the loaded
//     names and values refer to it.
#pragma once

#include <ace/Thread_Mutex.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qimmisc/Export.h"
#include "qimmisc/IConfigurationFile.h"

namespace QIM {

namespace detail {
class SectionStore;  // the sections with their case-folded indexes
}  // namespace detail

/// Shown when write cannot replace its target, whichever step failed: the
/// text and the title the user is to see ("Error").
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
  void setString(const std::wstring& section, const std::wstring& key, std::wstring value) override;
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
  /// Reads `path` whole into rawBuffer_. In text mode CR LF pairs become LF
  /// and a NUL follows the bytes; in binary mode the bytes stay as they are.
  /// A missing or unreadable file throws FileNotFoundException("File not
  /// found") after its ERROR line.
  void loadRawFileIntoBuffer(const std::wstring& path, bool binary);
  /// Replaces every section by those of `text` (the file's text up to its
  /// first NUL), which the object keeps while it refers to it. Needs lock_.
  void parse(std::wstring text);
  /// Writes rawBuffer_ whole to `path`, replacing the file atomically; a
  /// failure shows the could-not-be-opened message. Needs lock_.
  void writeBuffer(const std::wstring& path);
  /// The written form of the sections (toText without taking the lock).
  std::wstring buildText() const;

  /// Held for the whole of every public operation.
  ACE_Thread_Mutex lock_;
  /// The file's bytes between the disk and the parser; empty otherwise.
  std::string rawBuffer_;
  /// The path of the last load, used by write().
  std::wstring fileName_;

 private:
  std::unique_ptr<detail::SectionStore> sections_;
};

}  // namespace QIM
