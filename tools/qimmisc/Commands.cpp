#include "Commands.h"

namespace qimtool {

void addCommands(CLI::App& app, CommandBody& chosen) {
  addDoctorCommand(app, chosen);
  addSettingsCommand(app, chosen);
  addRingtonesCommand(app, chosen);
  addSipCommand(app, chosen);
  addNetCommand(app, chosen);
  addNetWatchCommand(app, chosen);
  addLogCommand(app, chosen);
}

}  // namespace qimtool
