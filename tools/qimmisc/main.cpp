// qimmisc: support and administration tool of the QIM client.
//
//   qimmisc [--trace LIST] [--log FILE] COMMAND [OPTIONS...]
//   qimmisc --help | --version | COMMAND --help
//
// Exit codes: 0 done, 1 the command found problems, 2 a wrong command line
// (or a log file that cannot be opened).
#include <CLI/CLI.hpp>

#include <iostream>
#include <string>

#include "Commands.h"
#include "TraceOptions.h"
#include "qimmisc/QIMMisc.h"

int main(int argc, char** argv) {
  CLI::App app("Support and administration tool of the QIM client.", "qimmisc");
  app.allow_windows_style_options(false);  // "/path" is a file, never an option
  app.fallthrough();                       // global options also after the command
  app.require_subcommand(1);
  app.footer("Run 'qimmisc COMMAND --help' for a command's own help.");
  app.set_version_flag("--version", [] {
    return "qimmisc " + QIM::toUtf8(QIM::getBuildVersion()) + " (build " +
           QIM::toUtf8(QIM::getBuildNumber()) + ")";
  });
  qimtool::TraceOptions trace;
  trace.addTo(app);
  qimtool::CommandBody command;
  qimtool::addCommands(app, command);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // Help and version are "errors" with exit code 0; exit() prints them.
    return app.exit(e) == 0 ? qimtool::kExitOk : qimtool::kExitUsage;
  }

  std::string error;
  if (!trace.install(error)) {
    std::cerr << "qimmisc: " << error << '\n';
    return qimtool::kExitUsage;
  }
  QIM::QIMMiscApi::init();
  const int rc = command();
  QIM::QIMMiscApi::exit();
  return rc;
}
