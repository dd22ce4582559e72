// The tool's commands. Each command lives in its own file and adds itself to
// the command line there (its name, help, options and body); addCommands
// calls them all, in the order "qimmisc --help" lists them.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace qimtool {

/// Exit codes shared by every command.
inline constexpr int kExitOk = 0;
inline constexpr int kExitProblems = 1;  // the command ran and found problems
inline constexpr int kExitUsage = 2;     // the command line was wrong

/// A command's work, run once the command line is parsed, tracing is set up
/// and the library is started; returns the exit code.
using CommandBody = std::function<int()>;

/// Adds every command to `app`; parsing a command line stores the chosen
/// command's body in `chosen`.
void addCommands(CLI::App& app, CommandBody& chosen);

// One per command, each defined in the command's own file.
void addDoctorCommand(CLI::App& app, CommandBody& chosen);
void addSettingsCommand(CLI::App& app, CommandBody& chosen);
void addRingtonesCommand(CLI::App& app, CommandBody& chosen);
void addSipCommand(CLI::App& app, CommandBody& chosen);
/// Creates the "net" group; further net subcommands find it by that name.
void addNetCommand(CLI::App& app, CommandBody& chosen);
/// Adds "watch" to the "net" group; called after addNetCommand.
void addNetWatchCommand(CLI::App& app, CommandBody& chosen);
void addLogCommand(CLI::App& app, CommandBody& chosen);

}  // namespace qimtool
