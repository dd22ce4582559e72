// "qimmisc log folded": call stacks in the collapsed-stack form that the
// common flame-graph tools read.
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>

#include "CallTracker.h"
#include "LogCommands.h"
#include "qimmisc/Trace.h"

namespace qimtool {

namespace {

struct FoldedArguments {
  std::vector<std::string> files;
  std::string thread;
};

// "a;b;c 1234": one line per call path with time of its own, weighted by
// that self time; ';' never appears inside a C++ name, but a host's could
// hold one, so it is written as ':'.
void printFolded(std::ostream& out, const CallTracker& calls) {
  std::vector<std::uint32_t> path;
  std::string line;
  for (std::uint32_t id = 1; id < calls.nodeCount(); ++id) {
    const CallNode& node = calls.node(id);
    if (node.selfUsec <= 0) continue;
    path.clear();
    for (std::uint32_t at = id; at != 0; at = calls.node(at).parent) path.push_back(at);
    line.clear();
    for (auto it = path.rbegin(); it != path.rend(); ++it) {
      if (!line.empty()) line += ';';
      for (const char c : calls.functionName(calls.node(*it).function)) line += c == ';' ? ':' : c;
    }
    out << line << ' ' << node.selfUsec << '\n';
  }
}

int runFolded(const FoldedArguments& args) {
  QIM_ENTRY("files=" << args.files.size() << " thread=" << args.thread);
  std::uint64_t thread = 0;
  if (!args.thread.empty() && !threadOption(args.thread, thread)) return kExitUsage;
  CallTracker calls(nullptr, true, args.thread.empty() ? nullptr : &thread);
  LogReader reader;
  const int rc = readLogFiles(args.files, calls, reader);
  printFolded(std::cout, calls);
  return rc;
}

}  // namespace

void addLogFoldedCommand(CLI::App& log, CommandBody& chosen) {
  CLI::App* folded = log.add_subcommand("folded", "Call stacks in the collapsed-stack format (\"a;b;c 1234\")");
  const auto args = std::make_shared<FoldedArguments>();
  addFilesOption(*folded, args->files);
  addThreadOption(*folded, args->thread);
  folded->footer(
      "One line per call stack, outermost call first, weighted by the microseconds\n"
      "spent in its last function itself (its callees' time is on their own\n"
      "lines): the input of speedscope and the FlameGraph scripts. Every thread's\n"
      "stacks are merged unless --thread names one.");
  folded->callback([&chosen, args] { chosen = [args] { return runFolded(*args); }; });
}

}  // namespace qimtool
