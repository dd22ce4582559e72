#include "Commands.h"

namespace qimtool {

const std::vector<Command>& commands() {
  static const std::vector<Command> all = {
      {"doctor", "report the client's environment and what is wrong with it",
       "Usage: qimmisc [global options] doctor [--help]\n"
       "\n"
       "Prints a report of the client's environment, section by section:\n"
       "  Build     the library's build information\n"
       "  Folders   the installation, user, documents and application data\n"
       "            folders, and whether each exists\n"
       "Each check is marked [ok], [warn] or [FAIL]; the exit code is 0 when\n"
       "nothing failed and 1 otherwise.\n"
       "\n"
       "The installation folder is the folder of the qimmisc executable unless\n"
       "QIMMISC_INSTALL_DIR names another one.\n",
       runDoctor},
  };
  return all;
}

const Command* findCommand(const std::string& name) {
  for (const Command& command : commands()) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

}  // namespace qimtool
