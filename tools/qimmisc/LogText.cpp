#include "LogText.h"

#include <charconv>
#include <cstdio>

namespace qimtool {

std::string threadText(std::uint64_t thread) {
  char digits[24];
  std::snprintf(digits, sizeof digits, "%04llX", static_cast<unsigned long long>(thread));
  return digits;
}

bool readThread(const std::string& text, std::uint64_t& thread) {
  const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const char* first = text.data() + (prefixed ? 2 : 0);
  const char* last = text.data() + text.size();
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(first, last, value, 16);
  if (first == last || end != last || error != std::errc()) return false;
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
