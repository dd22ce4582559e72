// "qimmisc log": the command group for trace files, and what its commands
// share on the command line.
#include <CLI/CLI.hpp>

#include <iostream>

#include "LogCommands.h"
#include "LogText.h"

namespace qimtool {

void addLogCommand(CLI::App& app, CommandBody& chosen) {
  CLI::App* log = app.add_subcommand("log", "Explain trace files the library wrote");
  log->require_subcommand(1);
  log->footer(
      "Every command reads its files in one streaming pass. Several files (a rotated\n"
      "set) are read as one, in the order given. Lines the library never writes (a\n"
      "host's own, a torn last line) are counted and skipped; a call whose\n"
      "\"<ret Time:\" line never comes is reported as open, its time unknown.");
  addLogSummaryCommand(*log, chosen);
  addLogCallsCommand(*log, chosen);
  addLogHotCommand(*log, chosen);
  addLogFoldedCommand(*log, chosen);
  addLogFlameCommand(*log, chosen);
}

int readLogFiles(const std::vector<std::string>& files, LogLineHandler& handler, LogReader& reader) {
  std::string error;
  const bool read = reader.read(files, handler, error);
  if (!read) std::cerr << "qimmisc: " << error << '\n';
  noteSkipped(std::cerr, reader);
  return read ? kExitOk : kExitProblems;
}

void addFilesOption(CLI::App& command, std::vector<std::string>& files) {
  command.add_option("FILE", files, "trace files, read as one in this order")->required();
}

CLI::Option* addThreadOption(CLI::App& command, std::string& thread) {
  return command.add_option("--thread", thread, "only this thread (its id as the file shows it, e.g. 0A3C)")
      ->type_name("ID");
}

bool threadOption(const std::string& text, std::uint64_t& thread) {
  if (readThread(text, thread)) return true;
  std::cerr << "qimmisc: --thread: '" << text << "' is not a thread id (hexadecimal, e.g. 0A3C)\n";
  return false;
}

}  // namespace qimtool
