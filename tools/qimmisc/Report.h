// A doctor report: sections of checks, each a label, a value and a verdict,
// printed as an aligned table with a closing summary.
#pragma once

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace qimtool {

enum class Verdict { Info, Ok, Warn, Fail };

struct Check {
  Check(std::string label_, std::string value_, Verdict verdict_ = Verdict::Info)
      : label(std::move(label_)), value(std::move(value_)), verdict(verdict_) {}
  std::string label;
  std::string value;
  Verdict verdict = Verdict::Info;
  std::string note;  // why a check warns or fails
};

struct Section {
  std::string title;
  std::vector<Check> checks;
};

class Report {
 public:
  void add(Section section) { sections_.push_back(std::move(section)); }
  /// Prints every section and the summary line.
  void print(std::ostream& out) const;
  /// Whether any check failed.
  bool failed() const;

 private:
  std::vector<Section> sections_;
};

}  // namespace qimtool
