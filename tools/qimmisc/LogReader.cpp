#include "LogReader.h"

#include <cstring>
#include <fstream>
#include <memory>

#include "SettingsFiles.h"

namespace qimtool {

namespace {
constexpr std::size_t kExampleLength = 200;
}  // namespace

std::uint64_t LogReader::skipped() const {
  std::uint64_t count = 0;
  for (const FileCounts& file : files_) {
    if (!file.advancedUserOnly()) count += file.foreign + file.overlong;
  }
  return count;
}

void LogReader::keepExample(const ReadLine& line) {
  std::size_t fromThisFile = 0;
  for (const SkippedLine& example : examples_) fromThisFile += example.at.file == line.at.file;
  if (fromThisFile >= kExamples) return;
  // Shown on a terminal: control characters of a damaged line become '?'.
  std::string text(line.text.substr(0, kExampleLength));
  for (char& c : text) {
    if ((static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F) c = '?';
  }
  examples_.push_back({line.at, std::move(text), line.role});
}

void LogReader::deliver(std::string_view text, FileCounts& counts, LogLineHandler& handler,
                        bool torn) {
  if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
  QIM::DbgMsg::TraceLine& fields = fields_;
  const bool known = QIM::DbgMsg::parseTraceLine(text, fields);
  LineRole role = LineRole::Library;
  if (torn) {
    role = LineRole::Torn;
  } else if (!known) {
    // The host's own text follows "Additional information: ".
    role = afterAdditionalInfo_ ? LineRole::StackInfo : LineRole::Foreign;
  }
  afterAdditionalInfo_ = known && fields.kind == QIM::DbgMsg::TraceLineKind::AdditionalInfo;
  if (role == LineRole::Library) ++counts.library;
  if (role == LineRole::Foreign) ++counts.foreign;
  const ReadLine line{fields, text, role, {files_.size() - 1, counts.lines}};
  if (role == LineRole::Foreign || role == LineRole::Torn) keepExample(line);
  handler.onLine(line);
}

bool LogReader::read(const std::vector<std::string>& names, LogLineHandler& handler,
                     std::string& error) {
  // One block is read after the part of a line the previous block left.
  const std::unique_ptr<char[]> buffer(new char[kMaxLine + kBlock]);
  char* const data = buffer.get();
  for (const std::string& name : names) {
    files_.push_back(FileCounts{name});
    FileCounts& counts = files_.back();
    std::ifstream in(toPath(widePath(name)), std::ios::binary);
    if (!in) {
      counts.readable = false;
      error += (error.empty() ? "cannot read " : ", ") + name;
      continue;
    }
    std::size_t kept = 0;      // bytes of an unfinished line at the buffer's start
    bool skipping = false;     // inside an overlong line, up to its line end
    afterAdditionalInfo_ = false;
    for (;;) {
      const std::streamsize got = in.rdbuf()->sgetn(data + kept, static_cast<std::streamsize>(kBlock));
      if (got <= 0) break;
      counts.bytes += static_cast<std::uint64_t>(got);
      const char* start = data;
      const char* scan = data + kept;  // the kept part holds no line end
      const char* const end = data + kept + static_cast<std::size_t>(got);
      while (const char* newline = static_cast<const char*>(
                 std::memchr(scan, '\n', static_cast<std::size_t>(end - scan)))) {
        ++counts.lines;
        const auto length = static_cast<std::size_t>(newline - start);
        if (skipping) {
          skipping = false;
        } else if (length > kMaxLine) {
          ++counts.overlong;  // it fitted the buffer, but not the limit
        } else {
          deliver(std::string_view(start, length), counts, handler, false);
        }
        start = scan = newline + 1;
      }
      kept = static_cast<std::size_t>(end - start);
      if (skipping) {
        kept = 0;
      } else if (kept > kMaxLine) {
        ++counts.overlong;
        skipping = true;
        kept = 0;
      } else if (kept > 0 && start != data) {
        std::memmove(data, start, kept);
      }
    }
    if (in.bad()) {
      counts.readable = false;
      error += (error.empty() ? "cannot read " : ", ") + name;
    }
    if (kept > 0 || skipping) {
      ++counts.lines;
      counts.torn = true;
      if (!skipping) deliver(std::string_view(data, kept), counts, handler, true);
    }
  }
  handler.onEnd();
  return error.empty();
}

}  // namespace qimtool
