// The tool's commands: each has a name, a one-line summary, a help text and
// a function that runs it with the arguments that follow its name.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace qimtool {

struct Command {
  const char* name;
  const char* summary;
  const char* help;  // shown by "qimmisc NAME --help"
  int (*run)(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);
};

/// Every command, in the order "qimmisc --help" lists them.
const std::vector<Command>& commands();

/// The command called `name`, or null.
const Command* findCommand(const std::string& name);

/// Exit codes shared by every command.
inline constexpr int kExitOk = 0;
inline constexpr int kExitProblems = 1;  // the command ran and found problems
inline constexpr int kExitUsage = 2;     // the command line was wrong

int runDoctor(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace qimtool
