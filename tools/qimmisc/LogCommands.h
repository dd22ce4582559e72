// "qimmisc log": trace files explained. LogCommand.cpp adds the command
// group; each subcommand lives in its own file and adds itself here.
#pragma once

#include <string>
#include <vector>

#include "Commands.h"
#include "LogReader.h"

namespace CLI {
class Option;
}

namespace qimtool {

void addLogSummaryCommand(CLI::App& log, CommandBody& chosen);
void addLogCallsCommand(CLI::App& log, CommandBody& chosen);
void addLogHotCommand(CLI::App& log, CommandBody& chosen);
void addLogFoldedCommand(CLI::App& log, CommandBody& chosen);
void addLogFlameCommand(CLI::App& log, CommandBody& chosen);

/// Reads `files` through `handler` with `reader`; says on standard error
/// which files could not be read, and notes skipped lines. Returns the exit
/// code: problems when a file could not be read.
int readLogFiles(const std::vector<std::string>& files, LogLineHandler& handler, LogReader& reader);

/// Adds the FILE... arguments, one file or more, to `command`.
void addFilesOption(CLI::App& command, std::vector<std::string>& files);

/// Adds the --thread option to `command`.
CLI::Option* addThreadOption(CLI::App& command, std::string& thread);

/// The --thread value as a number, or false with a message on standard
/// error when it is not a hexadecimal thread id.
bool threadOption(const std::string& text, std::uint64_t& thread);

}  // namespace qimtool
