// "qimmisc net watch": the connectivity events the client would get, live,
// for a support engineer chasing a client that re-registers or drops off
// when the network changes (a VPN coming up, a docking station, Wi-Fi
// roaming). The reconnect delay comes from the installed main settings.
#include <CLI/CLI.hpp>

#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>

#include "Commands.h"
#include "NetChecks.h"
#include "qimmisc/ActionThread.h"
#include "qimmisc/IpConnectivityManager.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"

namespace qimtool {

namespace {

struct WatchArguments {
  std::string destination;
  int seconds = 0;  // 0: until interrupted
};

std::atomic<bool> interrupted{false};

extern "C" void onInterrupt(int) { interrupted.store(true); }

std::string now() {
  const auto stamp = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(stamp);
  const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(
                          stamp.time_since_epoch()).count() % 1000;
  std::tm local{};
#ifdef _WIN32
  localtime_s(&local, &seconds);
#else
  localtime_r(&seconds, &local);
#endif
  std::ostringstream text;
  text << std::put_time(&local, "%H:%M:%S") << '.' << std::setw(3) << std::setfill('0') << millis;
  return text.str();
}

std::string shown(const std::wstring& address) {
  return address.empty() ? std::string("none") : QIM::toUtf8(address);
}

// Prints each call with the time and the best interface as the manager
// then answers it; on the owner's queue thread.
class Printer : public QIM::IpConnectivityManager::IIpConnectivityEventHandler {
 public:
  /// The manager asked for the best interface; set before any call.
  const QIM::IpConnectivityManager* manager = nullptr;

  void onRoutingChange() override { report("routing change"); }
  void onBestInterfaceChanged() override { report("best interface changed"); }
  void onLocalAddressLost() override { report("local address lost"); }

  void print(const std::string& event, const std::wstring& best) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::cout << now() << ' ' << event << " (best interface: " << shown(best) << ")" << std::endl;
  }

 private:
  void report(const std::string& event) { print(event, manager->getBestInterface()); }

  std::mutex mutex_;
};

int runWatch(const WatchArguments& args) {
  QIM_ENTRY("destination=" << args.destination << " seconds=" << args.seconds);
  std::string host, problem;
  unsigned port = 0;
  if (!args.destination.empty() && !parseDestination(args.destination, host, port, problem)) {
    std::cerr << "net watch: " << problem << '\n';
    return kExitUsage;
  }
  const std::wstring destination = QIM::fromUtf8(args.destination);
  std::cout << "Watching the route to " << (args.destination.empty() ? "0.0.0.0" : args.destination)
            << (args.seconds > 0 ? " for " + std::to_string(args.seconds) + " s"
                                 : std::string(" until interrupted"))
            << std::endl;

  QIM::ActionThread owner;
  owner.start("qimmisc net watch");
  {
    Printer printer;  // outlives the manager, which calls it until it goes
    QIM::IpConnectivityManager manager(&owner);
    printer.manager = &manager;
    printer.print("start", QIM::IpConnectivityManager::getBestInterfaceForDestination(destination));
    manager.addHandler(&printer);
    manager.setMonitoredDestination(destination);

    interrupted.store(false);
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(args.seconds);
    while (!interrupted.load() && (args.seconds == 0 || std::chrono::steady_clock::now() < end)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
  }
  owner.stop(QIM::ActionThread::StopDrain, QIM::ActionThread::ReturnWait);
  return kExitOk;
}

}  // namespace

void addNetWatchCommand(CLI::App& app, CommandBody& chosen) {
  CLI::App* watch = app.get_subcommand("net")->add_subcommand(
      "watch", "Print connectivity events live, as the client gets them");
  const auto args = std::make_shared<WatchArguments>();
  watch->add_option("DEST", args->destination,
                    "the server whose route is watched, host[:port] (default: any address)");
  watch->add_option("--seconds", args->seconds, "stop after N seconds (default: until interrupted)")
      ->type_name("N")
      ->check(CLI::Range(1, 100000000));
  watch->footer(
      "Prints a line for the start and for each event: the time, the event\n"
      "(routing change, best interface changed, local address lost) and the best\n"
      "interface, the local address leading to DEST. Changes settle for 2 seconds\n"
      "before they are checked; a routing change waits for the reconnect delay of\n"
      "the installed main settings (IPChangeReConnectDelay).");
  watch->callback([&chosen, args] { chosen = [args] { return runWatch(*args); }; });
}

}  // namespace qimtool
