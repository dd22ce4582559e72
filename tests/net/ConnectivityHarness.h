// What every connectivity manager test needs: trace lines captured, the
// library started (main settings with the chosen reconnect delay), an owner
// queue served by a worker thread of its own, a listener that records its
// calls, and the manager's seconds shortened through its test hook.
//
// Make it after the test has entered its network namespace: the worker,
// which reads the routing tables, inherits the namespace of its maker.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ActionThread.h"
#include "qimmisc/IpConnectivityManager.h"

namespace QIM::test {

/// Records the manager's calls in order: "routing", "best", "lost", with a
/// leading "!" for a call made off the owner queue's thread.
class RecordingHandler : public IpConnectivityManager::IIpConnectivityEventHandler {
 public:
  explicit RecordingHandler(const ActionQueue& owner) : owner_(owner) {}
  void onRoutingChange() override { record("routing"); }
  void onBestInterfaceChanged() override { record("best"); }
  void onLocalAddressLost() override { record("lost"); }
  std::vector<std::string> calls() const;

 private:
  void record(const std::string& call);
  const ActionQueue& owner_;
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
};

class ConnectivityHarness {
 public:
  /// One manager second lasts `millisecondsPerSecond`.
  explicit ConnectivityHarness(int millisecondsPerSecond, int reconnectDelay = 0);
  ~ConnectivityHarness();

  /// Trace lines holding `needle`.
  int lines(const std::string& needle) const { return int(sink.linesWith(needle).size()); }
  /// Runs `action` on the owner's thread and waits for it.
  void onOwner(const std::function<void()>& action);
  /// Sleeps `seconds` shortened seconds, to see that nothing more happens.
  void idle(int seconds) const;

  CaptureSink sink;
  ActionThread owner;
  RecordingHandler handler{owner};

 private:
  const int millisecondsPerSecond_;
};

}  // namespace QIM::test
