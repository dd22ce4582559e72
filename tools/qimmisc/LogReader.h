// The one streaming pass every "log" command makes: trace files, several in
// the order given as one, read in large blocks, split into lines and parsed.
// Memory is the block buffer and a few counters, never a line's copy kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "qimmisc/TraceLineParser.h"

namespace qimtool {

/// Where a line is: the file's index in the list given, and its 1-based
/// line number in that file.
struct LinePosition {
  std::size_t file = 0;
  std::uint64_t line = 0;
};

/// What the reader made of a line.
enum class LineRole {
  Library,    ///< a line the library writes, parsed
  StackInfo,  ///< the text after "Additional information: " (a host's own)
  Foreign,    ///< a line the library never writes
  Torn        ///< a file's last line, cut before its line end
};

/// One line as the handler sees it; valid during the call only.
struct ReadLine {
  const QIM::DbgMsg::TraceLine& fields;
  std::string_view text;  ///< without the line end (LF or CR LF)
  LineRole role;
  LinePosition at;
};

class LogLineHandler {
 public:
  virtual ~LogLineHandler() = default;
  virtual void onLine(const ReadLine& line) = 0;
  /// After the last line of the last file.
  virtual void onEnd() {}
};

/// Equal texts, compared eight bytes at a time: for the short names
/// compared on every line, cheaper than a call to memcmp.
inline bool sameText(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  std::size_t i = 0;
  for (; i + 8 <= a.size(); i += 8) {
    std::uint64_t x, y;
    std::memcpy(&x, a.data() + i, 8);
    std::memcpy(&y, b.data() + i, 8);
    if (x != y) return false;
  }
  for (; i < a.size(); ++i) {
    if (a[i] != b[i]) return false;
  }
  return true;
}

/// Counts for one file of the list.
struct FileCounts {
  std::string name;
  std::uint64_t bytes = 0;
  std::uint64_t lines = 0;
  std::uint64_t library = 0;   ///< lines the library writes
  std::uint64_t foreign = 0;   ///< lines it never writes, stack information aside
  std::uint64_t overlong = 0;  ///< lines longer than kMaxLine, skipped unread
  bool torn = false;           ///< the last line has no line end
  bool readable = true;

  /// Lines but not one the library writes with a header: a file written
  /// through the advanced-user destination holding only the user's bare lines.
  bool advancedUserOnly() const { return lines > 0 && library == 0; }
};

/// A line that was not read, kept as an example (cut to a readable length).
struct SkippedLine {
  LinePosition at;
  std::string text;
  LineRole role;
};

class LogReader {
 public:
  /// Lines longer than this are counted and skipped without being read.
  static constexpr std::size_t kMaxLine = 1 << 20;
  static constexpr std::size_t kBlock = 1 << 20;
  static constexpr std::size_t kExamples = 5;

  /// Reads `files` in order as one stream, handing every line to `handler`.
  /// Returns false when a file could not be opened or read; the others are
  /// still read. `error` then names the files.
  bool read(const std::vector<std::string>& files, LogLineHandler& handler, std::string& error);

  const std::vector<FileCounts>& files() const { return files_; }
  /// The first few foreign, torn or overlong lines.
  const std::vector<SkippedLine>& examples() const { return examples_; }
  /// Lines neither the library's nor stack information, in every file that
  /// is not advanced-user only; torn and overlong lines included.
  std::uint64_t skipped() const;

 private:
  void deliver(std::string_view text, FileCounts& counts, LogLineHandler& handler, bool torn);
  void keepExample(const ReadLine& line);

  std::vector<FileCounts> files_;
  std::vector<SkippedLine> examples_;
  QIM::DbgMsg::TraceLine fields_;  // reused: a fresh one per line costs a block fill
  bool afterAdditionalInfo_ = false;
};

}  // namespace qimtool
