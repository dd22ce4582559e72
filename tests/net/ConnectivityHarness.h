// What every connectivity manager test needs: trace lines captured, the
// library started (main settings with chosen values), an owner queue served
// by a worker thread of its own, a listener that records its calls, and the
// manager's seconds shortened through its test hook.
//
// Build it after the test has entered its network namespace: the worker,
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

/// Records the manager's calls in order ("routing", "best", "lost") and
/// whether any came on a thread other than the owner queue's.
class RecordingHandler : public IpConnectivityManager::IIpConnectivityEventHandler {
 public:
  explicit RecordingHandler(const ActionQueue& owner) : owner_(owner) {}
  void onRoutingChange() override { record("routing"); }
  void onBestInterfaceChanged() override { record("best"); }
  void onLocalAddressLost() override { record("lost"); }

  std::vector<std::string> calls() const;
  int count(const std::string& call) const;
  bool offOwnerThread() const;
  void clear();

 private:
  void record(const char* call);

  const ActionQueue& owner_;
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
  bool offOwnerThread_ = false;
};

class ConnectivityHarness {
 public:
  /// One manager second lasts `millisecondsPerSecond`; the reconnect delay
  /// setting reads `reconnectDelay`.
  explicit ConnectivityHarness(int millisecondsPerSecond, int reconnectDelay = 0);
  ~ConnectivityHarness();
  ConnectivityHarness(const ConnectivityHarness&) = delete;
  ConnectivityHarness& operator=(const ConnectivityHarness&) = delete;

  /// Trace lines holding `needle`.
  int lines(const std::string& needle) const;
  /// Runs `action` on the owner's thread and waits for it.
  void onOwner(const std::function<void()>& action);
  /// Waits `seconds` of the manager's shortened seconds: long enough for
  /// whatever settles in that time to have happened. Only to see that
  /// nothing more happens.
  void idle(int seconds) const;

  CaptureSink sink;
  ActionThread owner;
  RecordingHandler handler{owner};

 private:
  const int millisecondsPerSecond_;
};

}  // namespace QIM::test
