#include "Report.h"

#include <algorithm>

namespace qimtool {

namespace {
const char* mark(Verdict verdict) {
  switch (verdict) {
    case Verdict::Ok: return "[ok]  ";
    case Verdict::Warn: return "[warn]";
    case Verdict::Fail: return "[FAIL]";
    case Verdict::Info: break;
  }
  return "      ";
}
}  // namespace

void Report::print(std::ostream& out) const {
  std::size_t width = 0;
  for (const Section& section : sections_) {
    for (const Check& check : section.checks) width = std::max(width, check.label.size());
  }
  int checks = 0, warnings = 0, failures = 0;
  for (const Section& section : sections_) {
    out << section.title << '\n';
    for (const Check& check : section.checks) {
      out << "  " << mark(check.verdict) << ' ' << check.label
          << std::string(width - check.label.size() + 2, ' ') << check.value;
      if (!check.note.empty()) out << "  (" << check.note << ')';
      out << '\n';
      if (check.verdict == Verdict::Info) continue;
      ++checks;
      warnings += check.verdict == Verdict::Warn;
      failures += check.verdict == Verdict::Fail;
    }
    out << '\n';
  }
  out << "Summary: " << checks << " checks, " << failures << " failed, " << warnings
      << (warnings == 1 ? " warning" : " warnings") << '\n';
}

bool Report::failed() const {
  for (const Section& section : sections_) {
    for (const Check& check : section.checks) {
      if (check.verdict == Verdict::Fail) return true;
    }
  }
  return false;
}

}  // namespace qimtool
