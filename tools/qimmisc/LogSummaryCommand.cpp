// "qimmisc log summary": what a trace file holds, at a glance.
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>

#include "LogCommands.h"
#include "LogSummary.h"
#include "qimmisc/Trace.h"

namespace qimtool {

namespace {

int runSummary(const std::vector<std::string>& files) {
  QIM_ENTRY("files=" << files.size());
  LogReader reader;
  LogSummary summary;
  const int rc = readLogFiles(files, summary, reader);
  summary.print(std::cout, reader);
  return rc;
}

}  // namespace

void addLogSummaryCommand(CLI::App& log, CommandBody& chosen) {
  CLI::App* summary = log.add_subcommand("summary", "Lines per channel and thread, assertions, throws, slowest calls");
  const auto files = std::make_shared<std::vector<std::string>>();
  addFilesOption(*summary, *files);
  summary->footer(
      "Prints lines per channel and per thread; assertion failures and throws by\n"
      "site (file:line and function) with counts and one example back-trace each;\n"
      "the slowest calls; calls without a return line; and the lines that were not\n"
      "read, the first few shown. A file whose lines have no header at all is said\n"
      "to be an advanced-user file. Exit code 1 when a file cannot be read.");
  summary->callback([&chosen, files] { chosen = [files] { return runSummary(*files); }; });
}

}  // namespace qimtool
