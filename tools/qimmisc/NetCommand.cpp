// "qimmisc net": the network as the client sees it, for a support engineer
// whose client cannot register or loses media: which local interface leads
// to a server and how large a UDP payload it carries, and which UDP ports
// are taken inside the ports the client is configured to use.
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "NetChecks.h"
#include "SettingsFiles.h"
#include "qimmisc/IpHlpUdpTable.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"
#include "qimmisc/VelderIni.h"

namespace qimtool {

namespace {

struct NetArguments {
  std::string destination, settingsFile;
};

int runRoute(const NetArguments& args) {
  QIM_ENTRY("destination=" << args.destination);
  std::string host, problem;
  unsigned port = 0;
  if (!parseDestination(args.destination, host, port, problem)) {
    std::cerr << "net route: " << problem << '\n';
    return kExitUsage;
  }
  const RouteAnswer route = findRoute(host);
  if (!route.problem.empty()) {
    std::cout << "destination: " << host << ':' << port << "\n" << route.problem << '\n';
    return kExitProblems;
  }
  std::cout << "destination: " << host << ':' << port << " (" << route.destination << ")\n";
  if (route.bestInterface.empty()) {
    std::cout << "best interface: none (no route to " << route.destination << ")\n";
    return kExitProblems;
  }
  std::cout << "best interface: " << route.bestInterface << "\nMTU: "
            << (route.mtu ? std::to_string(route.mtu) : std::string("unknown"))
            << "\nUDP bearer size: " << route.bearerSize << '\n';
  return kExitOk;
}

// One configured range and the ports in use inside it; whether any are.
bool printRange(const char* name, const QIM::Data::IntRange& range,
                const std::vector<int>& ports) {
  const std::vector<int> inside = portsInRange(ports, range);
  std::cout << name << " port range " << rangeText(range) << ": "
            << (inside.empty() ? "no port in use" : "in use: " + portList(inside)) << '\n';
  return !inside.empty();
}

int runPorts(const NetArguments& args) {
  QIM_ENTRY();
  QIM::Data::VelderIni settings;
  settings.readVelderIniFile(args.settingsFile.empty() ? QIM::Data::getVELDerIniPath()
                                                       : widePath(args.settingsFile));
  const QIM::IpHlpUdpTable table;
  const std::vector<int>& ports = table.getPortsInUse();
  std::cout << "UDP ports in use (" << ports.size() << " sockets): "
            << (ports.empty() ? "none" : portList(ports)) << '\n';
  const bool rtp = printRange("RTP", settings.getRTPportRange(), ports);
  const bool collab = printRange("collaboration", settings.getCollabPortRange(), ports);
  return rtp || collab ? kExitProblems : kExitOk;
}

}  // namespace

void addNetCommand(CLI::App& app, CommandBody& chosen) {
  CLI::App* net = app.add_subcommand("net", "Show routes, MTU and UDP ports as the client sees them");
  net->require_subcommand(1);

  // The arguments live as long as the callbacks that read them.
  const auto args = std::make_shared<NetArguments>();

  CLI::App* route = net->add_subcommand("route", "Show the local interface that leads to a destination");
  route->add_option("DEST", args->destination, "host[:port], a name or a dotted IPv4 address")
      ->required();
  route->footer(
      "Resolves DEST to IPv4 and picks the local interface from the routing table\n"
      "as the client does, then prints that interface's address, its MTU and the\n"
      "UDP payload size the client uses on it (MTU less 28, from 548 to 1272).\n"
      "Exit code 0 with a route, 1 when DEST does not resolve or no route leads\n"
      "to it, 2 for a malformed DEST.");
  route->callback([&chosen, args] { chosen = [args] { return runRoute(*args); }; });

  CLI::App* ports = net->add_subcommand("ports", "List UDP ports in use and those inside the client's ranges");
  ports->add_option("--settings", args->settingsFile,
                    "the enciphered main settings file (default: the installation's)")
      ->type_name("FILE");
  ports->footer(
      "Lists the local UDP ports in use (IPv4, by local address then port), then\n"
      "those inside the RTP and collaboration port ranges of the main settings\n"
      "(RTPportRange, CollabPortRange), which the client needs free. Exit code 0\n"
      "when both ranges are free, 1 when a port inside one is taken.");
  ports->callback([&chosen, args] { chosen = [args] { return runPorts(*args); }; });
}

}  // namespace qimtool
