// "qimmisc log flame": the flame graph, drawn by the tool itself into one
// self-contained SVG file, so that nothing else need be installed.
#include <CLI/CLI.hpp>

#include <fstream>
#include <iostream>
#include <memory>

#include "FlameGraph.h"
#include "LogCommands.h"
#include "LogText.h"
#include "SettingsFiles.h"
#include "qimmisc/Trace.h"

namespace qimtool {

namespace {

struct FlameArguments {
  std::vector<std::string> files;
  std::string output;
  std::string thread;
};

int runFlame(const FlameArguments& args) {
  QIM_ENTRY("files=" << args.files.size() << " out=" << args.output << " thread=" << args.thread);
  std::uint64_t thread = 0;
  if (!args.thread.empty() && !threadOption(args.thread, thread)) return kExitUsage;
  CallTracker calls(nullptr, true, args.thread.empty() ? nullptr : &thread);
  LogReader reader;
  const int rc = readLogFiles(args.files, calls, reader);
  std::string title = "Calls in " + args.files.front();
  if (args.files.size() > 1) title += " and " + std::to_string(args.files.size() - 1) + " more";
  if (!args.thread.empty()) title += ", thread " + threadText(thread);
  std::ofstream out(toPath(widePath(args.output)), std::ios::binary | std::ios::trunc);
  if (out) drawFlameGraph(out, calls, title);
  if (!out.flush()) {
    std::cerr << "qimmisc: cannot write " << args.output << '\n';
    return kExitProblems;
  }
  std::cout << "wrote " << args.output << " (" << calls.returned() << " returned calls, "
            << calls.unreturned() << " without a return line)\n";
  return rc;
}

}  // namespace

void addLogFlameCommand(CLI::App& log, CommandBody& chosen) {
  CLI::App* flame = log.add_subcommand("flame", "Draw the flame graph of the calls as an SVG file");
  const auto args = std::make_shared<FlameArguments>();
  addFilesOption(*flame, args->files);
  flame->add_option("-o,--output", args->output, "the SVG file to write")->type_name("SVG")->required();
  addThreadOption(*flame, args->thread);
  flame->footer(
      "Each call path is a box as wide as the microseconds its returned calls took,\n"
      "callers below their callees; hover a box for its function, calls and time.\n"
      "Every thread's calls are merged unless --thread names one. Any browser shows\n"
      "the file. Exit code 1 when it cannot be written.");
  flame->callback([&chosen, args] { chosen = [args] { return runFlame(*args); }; });
}

}  // namespace qimtool
