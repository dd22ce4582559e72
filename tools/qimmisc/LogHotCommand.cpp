// "qimmisc log hot": where the time went, per function.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>

#include "CallTracker.h"
#include "LogCommands.h"
#include "qimmisc/Trace.h"

namespace qimtool {

namespace {

struct HotArguments {
  std::vector<std::string> files;
  std::size_t top = 20;
};

struct FunctionTime {
  std::uint64_t calls = 0, unreturned = 0;
  long long total = 0, max = 0, self = 0;
};

// Per function: its returned calls and what they took, in total, at most
// and less their callees'. A recursive function's nested calls count in its
// total again, as in every inclusive profile.
class HotFunctions : public LogLineHandler, private CallListener {
 public:
  HotFunctions() : calls_(this) {}
  void onLine(const ReadLine& line) override { calls_.onLine(line); }
  void onEnd() override { calls_.onEnd(); }

  void print(std::ostream& out, std::size_t top) const {
    std::vector<std::uint32_t> order;
    for (std::uint32_t f = 0; f < times_.size(); ++f) {
      if (times_[f].calls > 0) order.push_back(f);
    }
    std::stable_sort(order.begin(), order.end(), [this](std::uint32_t a, std::uint32_t b) {
      return times_[a].total > times_[b].total;
    });
    if (top > 0 && order.size() > top) order.resize(top);
    char row[160];
    std::snprintf(row, sizeof row, "%10s %14s %14s %14s %14s  %s\n", "calls", "total usec",
                  "mean usec", "max usec", "self usec", "function");
    out << row;
    for (const std::uint32_t f : order) {
      const FunctionTime& t = times_[f];
      std::snprintf(row, sizeof row, "%10llu %14lld %14.1f %14lld %14lld  ",
                    static_cast<unsigned long long>(t.calls), t.total,
                    static_cast<double>(t.total) / static_cast<double>(t.calls), t.max, t.self);
      out << row << calls_.functionName(f);
      if (t.unreturned) out << "  (" << t.unreturned << " more without a return line)";
      out << '\n';
    }
    if (order.empty()) out << "No returned ENTRY calls in the input.\n";
  }

 private:
  FunctionTime& of(std::uint32_t function) {
    if (function >= times_.size()) times_.resize(function + 1);
    return times_[function];
  }
  void onReturn(std::uint64_t, const OpenCall& call, long long usec, const ReadLine&) override {
    FunctionTime& t = of(call.function);
    ++t.calls;
    addTime(t.total, usec);
    t.max = std::max(t.max, usec);
    addTime(t.self, usec > call.calleeUsec ? usec - call.calleeUsec : 0);
  }
  void onUnreturned(std::uint64_t, const OpenCall& call, Unreturned) override {
    ++of(call.function).unreturned;
  }

  CallTracker calls_;
  std::vector<FunctionTime> times_;  // by function id
};

int runHot(const HotArguments& args) {
  QIM_ENTRY("files=" << args.files.size() << " top=" << args.top);
  LogReader reader;
  HotFunctions hot;
  const int rc = readLogFiles(args.files, hot, reader);
  hot.print(std::cout, args.top);
  return rc;
}

}  // namespace

void addLogHotCommand(CLI::App& log, CommandBody& chosen) {
  CLI::App* hot = log.add_subcommand("hot", "Time per function: calls, total, mean, maximum and self time");
  const auto args = std::make_shared<HotArguments>();
  addFilesOption(*hot, args->files);
  hot->add_option("--top", args->top, "show this many functions (0: all)")->type_name("N");
  hot->footer(
      "Per function, from its ENTRY calls that returned: calls, total, mean and\n"
      "maximum microseconds, and self time (total less that of its callees),\n"
      "sorted by total. Calls without a return line count nowhere; they are noted.");
  hot->callback([&chosen, args] { chosen = [args] { return runHot(*args); }; });
}

}  // namespace qimtool
