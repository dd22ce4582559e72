// qimmisc: support and administration tool of the QIM client.
//
//   qimmisc [--trace CHANNELS] [--log FILE] COMMAND [ARGS...]
//   qimmisc --help | COMMAND --help | help COMMAND
#include <iostream>
#include <string>
#include <vector>

#include "Commands.h"
#include "TraceOptions.h"
#include "qimmisc/QIMMisc.h"

namespace {

void printUsage(std::ostream& out) {
  out << "Usage: qimmisc [global options] COMMAND [ARGS...]\n"
         "\n"
         "Commands:\n";
  for (const qimtool::Command& command : qimtool::commands()) {
    out << "  " << command.name << std::string(10 - std::string(command.name).size(), ' ')
        << command.summary << '\n';
  }
  out << "  help      show the help of a command\n"
         "\n"
         "Global options:\n"
         "  --trace CHANNELS  trace the tool's own work to standard error; CHANNELS\n"
         "                    is a ':'-separated list of +NAME / -NAME items, NAME a\n"
         "                    channel or 'all', e.g. +all:-ENTRY\n"
         "  --log FILE        write the trace to FILE (all channels stay as given by\n"
         "                    --trace, or ERROR alone without it)\n"
         "  --help            show this help\n"
         "\n"
         "Run 'qimmisc COMMAND --help' for a command's own help.\n";
}

int showHelpFor(const std::string& name) {
  if (const qimtool::Command* command = qimtool::findCommand(name)) {
    std::cout << command->help;
    return qimtool::kExitOk;
  }
  std::cerr << "qimmisc: unknown command '" << name << "'\n";
  return qimtool::kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  qimtool::TraceOptions trace;
  std::size_t i = 0;
  for (; i < args.size() && args[i].rfind("--", 0) == 0; ++i) {
    const std::string& option = args[i];
    if (option == "--help") {
      printUsage(std::cout);
      return qimtool::kExitOk;
    }
    if ((option == "--trace" || option == "--log") && i + 1 < args.size()) {
      (option == "--trace" ? trace.channels : trace.logFile) = args[++i];
      continue;
    }
    std::cerr << "qimmisc: " << (option == "--trace" || option == "--log"
                                     ? "option " + option + " needs a value"
                                     : "unknown option '" + option + "'")
              << "\n\n";
    printUsage(std::cerr);
    return qimtool::kExitUsage;
  }
  if (i == args.size()) {
    printUsage(std::cerr);
    return qimtool::kExitUsage;
  }
  const std::string name = args[i];
  std::vector<std::string> rest(args.begin() + static_cast<std::ptrdiff_t>(i) + 1, args.end());
  if (name == "help") return rest.empty() ? (printUsage(std::cout), qimtool::kExitOk)
                                          : showHelpFor(rest.front());
  const qimtool::Command* command = qimtool::findCommand(name);
  if (!command) {
    std::cerr << "qimmisc: unknown command '" << name << "'\n\n";
    printUsage(std::cerr);
    return qimtool::kExitUsage;
  }
  if (!rest.empty() && (rest.front() == "--help" || rest.front() == "-h")) {
    return showHelpFor(name);
  }

  std::string error;
  if (!trace.install(error)) {
    std::cerr << "qimmisc: " << error << '\n';
    return qimtool::kExitUsage;
  }
  QIM::QIMMiscApi::init();
  const int rc = command->run(rest, std::cout, std::cerr);
  QIM::QIMMiscApi::exit();
  return rc;
}
