// "qimmisc ringtones": the distinctive ring tones as the client reads them,
// to check a provisioned ringtone file before it reaches users.
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "SettingsFiles.h"
#include "qimmisc/RingtoneIni.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/Trace.h"

namespace qimtool {

namespace {

const char* yesNo(bool flag) { return flag ? "yes" : "no"; }

int runRingtones(const std::string& in) {
  QIM_ENTRY("in=" << in);
  const std::wstring path = in.empty() ? QIM::Data::getRingtoneIniPath() : widePath(in);
  std::cout << "Ringtone file: " << QIM::toUtf8(path) << '\n';
  // The library reads a missing file as no tones; here that is the problem
  // to report.
  if (!QIM::fileExists(path)) {
    std::cerr << "qimmisc: cannot read " << QIM::toUtf8(path) << ": File not found\n";
    return kExitProblems;
  }
  QIM::Data::RingtoneIni ringtones;
  ringtones.readRingtoneIniFile(path);
  const auto& tones = ringtones.tones();
  std::cout << tones.size() << (tones.size() == 1 ? " tone" : " tones") << '\n';
  for (const auto& [name, tone] : tones) {
    std::cout << QIM::toUtf8(name) << '\n'
              << "  ringtonePath   = " << QIM::toUtf8(tone.ringtonePath) << '\n'
              << "  ringtoneLoop   = " << yesNo(tone.ringtoneLoop) << '\n'
              << "  ringtoneDevice = " << yesNo(tone.ringtoneDevice) << '\n'
              << "  cwtPath        = " << QIM::toUtf8(tone.cwtPath) << '\n'
              << "  cwtLoop        = " << yesNo(tone.cwtLoop) << '\n'
              << "  cwtDevice      = " << yesNo(tone.cwtDevice) << '\n';
  }
  return kExitOk;
}

}  // namespace

void addRingtonesCommand(CLI::App& app, CommandBody& chosen) {
  CLI::App* ringtones =
      app.add_subcommand("ringtones", "Show the distinctive ring tones of a ringtone file");
  const auto file = std::make_shared<std::string>();
  ringtones->add_option("FILE", *file, "the ringtone file (default: the installation's)");
  ringtones->footer(
      "Prints each tone (names are lower-cased, as the client looks them up) with\n"
      "its six fields as the client reads them: a flag is yes only for the value 1;\n"
      "a value that is not a number gives the field's default. Exit code 1 when the\n"
      "file is missing.");
  ringtones->callback([&chosen, file] { chosen = [file] { return runRingtones(*file); }; });
}

}  // namespace qimtool
