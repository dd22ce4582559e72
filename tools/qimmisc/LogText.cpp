#include "LogText.h"

namespace qimtool {

std::string threadText(std::uint64_t thread) {
  std::string digits;
  do {
    digits.insert(digits.begin(), "0123456789ABCDEF"[thread & 0xF]);
    thread >>= 4;
  } while (thread != 0);
  if (digits.size() < 4) digits.insert(0, 4 - digits.size(), '0');
  return digits;
}

bool readThread(const std::string& text, std::uint64_t& thread) {
  std::size_t at = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') ? 2 : 0;
  if (at == text.size() || text.size() - at > 16) return false;
  std::uint64_t value = 0;
  for (; at < text.size(); ++at) {
    const char c = text[at];
    unsigned digit;
    if (c >= '0' && c <= '9') {
      digit = static_cast<unsigned>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      digit = static_cast<unsigned>(c - 'a' + 10);
    } else if (c >= 'A' && c <= 'F') {
      digit = static_cast<unsigned>(c - 'A' + 10);
    } else {
      return false;
    }
    value = value << 4 | digit;
  }
  thread = value;
  return true;
}

std::string positionText(const LogReader& reader, const LinePosition& at) {
  return reader.files().at(at.file).name + ":" + std::to_string(at.line);
}

void noteSkipped(std::ostream& out, const LogReader& reader) {
  std::uint64_t torn = 0, userOnly = 0;
  for (const FileCounts& file : reader.files()) {
    torn += file.torn;
    userOnly += file.advancedUserOnly();
  }
  if (reader.skipped() == 0 && torn == 0 && userOnly == 0) return;
  out << "note: " << reader.skipped() << " lines not from the library skipped, " << torn
      << " torn last lines, " << userOnly
      << " advanced-user files without headers (see 'qimmisc log summary')\n";
}

}  // namespace qimtool
