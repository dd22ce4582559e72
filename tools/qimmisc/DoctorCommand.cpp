// "qimmisc doctor": what a support engineer asks first about a client
// machine. Each section is one function, so later checks join as sections.
#include <CLI/CLI.hpp>

#include <filesystem>
#include <iostream>
#include <system_error>

#include "Commands.h"
#include "NetChecks.h"
#include "Report.h"
#include "SettingsFiles.h"
#include "qimmisc/QIMMisc.h"
#include "qimmisc/VelderIni.h"

namespace qimtool {

namespace {

std::string narrow(const std::wstring& text) { return QIM::toUtf8(text); }

Section buildSection() {
  QIM_ENTRY();
  return {"Build",
          {{"version", narrow(QIM::getBuildVersion())},
           {"build number", narrow(QIM::getBuildNumber())},
           {"build date", narrow(QIM::getBuildDate())},
           {"copyright year", narrow(QIM::getCopyrightYear())},
           {"build mode", narrow(QIM::getBuildMode())},
           {"secure build", QIM::isBuildSecure() ? "yes" : "no"},
           {"build source", narrow(QIM::getBuildSource())}}};
}

// A folder the client needs: present is fine, missing is a failure when the
// client cannot work without it, a warning otherwise.
Check folderCheck(const std::string& label, QIM::Folder which, bool required) {
  QIM_ENTRY("label=" << label);
  const QIM::FolderLookup found = QIM::lookUpFolder(which);
  Check check{label, narrow(found.folder)};
  check.verdict = required ? Verdict::Fail : Verdict::Warn;
  if (found.folder.empty()) {
    check.note = found.problem;
  } else if (check.value.empty()) {
    check.note = "name is not valid UTF-16";  // a lone surrogate on Windows
  } else if (std::error_code error; std::filesystem::is_directory(toPath(found.folder), error)) {
    check.verdict = Verdict::Ok;
  } else {
    check.note = error ? error.message() : "missing";
  }
  return check;
}

Section foldersSection() {
  QIM_ENTRY();
  return {"Folders",
          {folderCheck("installation", QIM::Folder::Installation, true),
           folderCheck("user", QIM::Folder::User, true),
           folderCheck("user documents", QIM::Folder::UserDocuments, false),
           folderCheck("user app data", QIM::Folder::UserAppData, false)}};
}

// The client starts with defaults when its main settings file is missing or
// damaged, so neither stops it: both warn. Values the library rejected or
// clamped warn too, each with the library's own line.
Section mainSettingsSection(const std::wstring& path, const QIM::Data::VelderIni& settings) {
  QIM_ENTRY();
  Check file{"main settings file", narrow(path), Verdict::Ok};
  if (!settings.fileFound() || settings.fileDamaged()) {
    file.verdict = Verdict::Warn;
    file.note = settings.fileFound() ? "damaged: invalid padding count; every setting has its default"
                                     : "not found; every setting has its default";
  }
  const std::vector<std::string>& messages = settings.readMessages();
  Check values{"rejected or clamped", std::to_string(messages.size()),
               messages.empty() ? Verdict::Ok : Verdict::Warn};
  Section section{"Main settings", {file, values}};
  for (const std::string& message : messages) section.checks.emplace_back("", message);
  return section;
}

// An address setting the client dials or registers with: unset is fine, one
// that is not user or user@domain (after its scheme) warns.
Check sipAddressCheck(const std::string& label, const std::wstring& value) {
  QIM_ENTRY("label=" << label);
  Check check{label, narrow(value), Verdict::Ok};
  std::wstring user, domain;
  if (value.empty()) {
    check.verdict = Verdict::Info;
    check.value = "(not set)";
  } else if (!QIM::parseUserAndDomain(QIM::removeSipUrlScheme(value), user, domain)) {
    check.verdict = Verdict::Warn;
    check.note = "does not parse as a SIP address (user or user@domain)";
  }
  return check;
}

Section sipSection(const QIM::Data::VelderIni& settings) {
  QIM_ENTRY();
  const std::wstring& prefixes = settings.getStripPrefix();
  return {"SIP",
          {{"strip prefixes", prefixes.empty() ? "(none)" : narrow(prefixes)},
           sipAddressCheck("proxy", settings.getProxy()),
           sipAddressCheck("domain", settings.getDomainName())}};
}

// The route to the proxy (or, with none set, the default route). A machine
// without a route, as in a container or a test run, gets a note, not a
// failure.
void addRouteChecks(Section& section, const std::wstring& proxySetting) {
  const std::string proxy = proxyHost(proxySetting);
  std::string host = "0.0.0.0", problem;
  unsigned port = 0;
  RouteAnswer route;
  if (!proxy.empty() && !parseDestination(proxy, host, port, problem)) {
    route.problem = problem;
  } else {
    route = findRoute(host);
  }
  std::string where = proxy.empty() ? "(no proxy set: the default route)" : proxy;
  if (!proxy.empty() && !route.destination.empty() && route.destination != host) {
    where += " (" + route.destination + ")";
  }
  section.checks.emplace_back("route to", where);
  Check best{"best interface", route.bestInterface, Verdict::Ok};
  if (!route.problem.empty()) {
    best.verdict = Verdict::Warn;
    best.note = route.problem;
  } else if (route.bestInterface.empty()) {
    best.verdict = Verdict::Info;
    best.value = "(none)";
    best.note = "no route from this machine";
  }
  section.checks.push_back(best);
  if (route.bestInterface.empty()) return;
  section.checks.emplace_back("MTU", (route.mtu ? std::to_string(route.mtu) : std::string("unknown")) +
                                         ", UDP bearer size " + std::to_string(route.bearerSize));
}

// UDP ports taken inside the client's ranges warn: it needs them free.
void addPortChecks(Section& section, const QIM::Data::VelderIni& settings) {
  const QIM::IpHlpUdpTable udp;
  for (const auto& [label, range] : {std::pair{"RTP ports", settings.getRTPportRange()},
                                     std::pair{"collab ports", settings.getCollabPortRange()}}) {
    const std::vector<int> taken = portsInRange(udp.getPortsInUse(), range);
    Check check{label, rangeText(range) + (taken.empty() ? " free" : " in use: " + portList(taken)),
                taken.empty() ? Verdict::Ok : Verdict::Warn};
    if (!taken.empty()) check.note = "the client needs these UDP ports free";
    section.checks.push_back(check);
  }
}

Section networkSection(const QIM::Data::VelderIni& settings) {
  QIM_ENTRY();
  Section section{"Network", {}};
  addRouteChecks(section, settings.getProxy());
  addPortChecks(section, settings);
  return section;
}

int runDoctor() {
  QIM_ENTRY();
  const std::wstring path = QIM::Data::getVELDerIniPath();
  QIM::Data::VelderIni settings;
  settings.readVelderIniFile(path);
  Report report;
  report.add(buildSection());
  report.add(foldersSection());
  report.add(mainSettingsSection(path, settings));
  report.add(sipSection(settings));
  report.add(networkSection(settings));
  std::cout << "QIM client environment report\n\n";
  report.print(std::cout);
  return report.failed() ? kExitProblems : kExitOk;
}

}  // namespace

void addDoctorCommand(CLI::App& app, CommandBody& chosen) {
  CLI::App* doctor =
      app.add_subcommand("doctor", "Report the client's environment and what is wrong with it");
  doctor->footer(
      "Prints a report of the client's environment, section by section:\n"
      "  Build          the library's build information\n"
      "  Folders        the installation, user, documents and application data\n"
      "                 folders, and whether each exists\n"
      "  Main settings  the main settings file of the installation, whether it was\n"
      "                 found, and the values the library rejected or clamped\n"
      "  SIP            the dialling prefixes cut from numbers, and whether the\n"
      "                 proxy and domain settings parse as SIP addresses\n"
      "  Network        the local interface that leads to the proxy (the default\n"
      "                 route when none is set), its MTU and UDP bearer size, and\n"
      "                 UDP ports taken inside the RTP and collaboration ranges\n"
      "Each check is marked [ok], [warn] or [FAIL]; the exit code is 0 when\n"
      "nothing failed and 1 otherwise.\n"
      "\n"
      "The installation folder is the folder of the qimmisc executable unless\n"
      "QIMMISC_INSTALL_DIR names another one.");
  doctor->callback([&chosen] { chosen = runDoctor; });
}

}  // namespace qimtool
