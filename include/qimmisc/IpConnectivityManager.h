// IpConnectivityManager: tells the client when the local interface that
// leads to its server (the "best interface") changes or is gone, so that it
// can re-register.
//
//   class Registrar : public IpConnectivityManager::IIpConnectivityEventHandler {
//     void onRoutingChange() override { reRegister(); }     // on `queue`
//     void onBestInterfaceChanged() override { ... }
//     void onLocalAddressLost() override { showOffline(); }
//   };
//   IpConnectivityManager manager(&queue);
//   manager.addHandler(&registrar);
//   manager.setMonitoredDestination(L"proxy.example.com:5061");
//
// A monitoring thread, "QIM::IpConnectivityManager", waits for the
// operating system to report a change: on Windows the Winsock routing and
// address-list change requests on a UDP socket, whose event wakes it; on
// Linux a netlink socket subscribed to IPv4 route, IPv4 address and link
// changes (an overflowed socket buffer also counts as a change). Where
// those notifications are refused for good (WSAEOPNOTSUPP; a kernel
// without netlink), the thread polls every 45 seconds instead. Each wake
// posts one action to the owner's queue; there a 2-second timer settles a
// burst into one check, and every check, timer and handler call runs on
// that queue's thread.
//
// Choices the client relies on:
//  - getBestInterface answers the empty string, not the stale address,
//    once the stored address has left the host.
//  - A destination is "host[:port]" or "address[:port]"; a host name is
//    resolved with the system resolver, IPv4 only, on the calling thread.
//    The empty destination stands for 0.0.0.0, so the default route's
//    interface is the best one.
//  - isLocalAddressLost turns true when the check that follows a reported
//    change finds no interface (or the manager suspended), and false again
//    as soon as any check finds one. The best-interface comparison looks at
//    the address text only.
//  - At most one wake from the monitoring thread waits in the owner's queue
//    at a time, so a flood of changes cannot grow it; actions and timers
//    still queued when the manager goes do nothing when they run.
//  - Operations that check the best interface (setMonitoredDestination,
//    updateBestInterface, onSuspend, onResume) run the check at once on
//    the owner's queue thread and post it there from any other thread, so
//    that handlers are only ever called on that thread.
//  - Must not be destroyed from inside one of its own handler calls.
#pragma once

#include <ace/Manual_Event.h>
#include <ace/Thread_Mutex.h>
#include <ace/Time_Value.h>

#include <atomic>
#include <memory>
#include <string>

#include "qimmisc/ActionQueue.h"
#include "qimmisc/Export.h"
#include "qimmisc/HandlerList.h"
#include "qimmisc/TimerScheduler.h"

namespace QIM {

namespace detail {
class RouteChangeWatch;  // the platform's socket and change event
}

class QIMMISC_API IpConnectivityManager {
 public:
  /// What the manager tells its listeners, always on the owner's queue.
  class IIpConnectivityEventHandler {
   public:
    /// The path to the server has changed: reconnect now.
    virtual void onRoutingChange() = 0;
    /// The best interface has a new value (getBestInterface).
    virtual void onBestInterfaceChanged() = 0;
    /// No local interface leads to the destination any more.
    virtual void onLocalAddressLost() = 0;

   protected:
    virtual ~IIpConnectivityEventHandler() = default;
  };

  /// Starts monitoring; `actionQueue` (not owned) must outlive the manager.
  explicit IpConnectivityManager(ActionQueue* actionQueue);
  /// Stops the monitoring thread and waits for it; pending timers are
  /// freed and actions already posted do nothing when they run.
  virtual ~IpConnectivityManager();

  IpConnectivityManager(const IpConnectivityManager&) = delete;
  IpConnectivityManager& operator=(const IpConnectivityManager&) = delete;

  /// Registers `handler` (not owned; it must stay alive until removed).
  /// False for null or a handler already registered. Any thread.
  bool addHandler(IIpConnectivityEventHandler* handler);
  /// Unregisters `handler`; false when it was not registered. Any thread;
  /// on the owner's queue thread no call to it runs after this returns.
  bool removeHandler(IIpConnectivityEventHandler* handler);

  /// Watches the route to `destination` ("host[:port]"), checks the best
  /// interface, and re-arms the operating system's change request.
  void setMonitoredDestination(const std::wstring& destination);
  /// The destination as given to setMonitoredDestination.
  std::wstring getMonitoredDestination() const;

  /// The stored best interface (dotted IPv4) while it is still one of the
  /// host's addresses; otherwise logs why and returns the empty string.
  std::wstring getBestInterface() const;
  /// The dotted address of the local interface that routes to
  /// `destination` (see the class comment), empty when there is none.
  static std::wstring getBestInterfaceForDestination(const std::wstring& destination);
  /// Checks the best interface now and tells handlers if it changed.
  void updateBestInterface();

  /// The host is going to sleep: the best interface becomes empty.
  void onSuspend();
  /// The host woke up: the best interface is looked up again.
  void onResume();
  bool isSuspended() const { return suspended_.load(); }
  bool isLocalAddressLost() const { return localAddressLost_.load(); }

  /// The UDP payload size for the interface owning `interfaceAddress`
  /// (IpHlpAddrTable::getMtuSizeForInterface).
  int getMtuSizeForInterface(const std::wstring& interfaceAddress);

  /// Returns `pending` when it is not null; otherwise schedules the routing
  /// change notification on the owner's queue after `delay` whole seconds
  /// and returns the new timer. On the owner's queue thread.
  Timer* scheduleChangeInterface(int delay, Timer* pending);

  /// The client's idle timer, cancelled (with the manager's own scheduler,
  /// as for scheduleChangeInterface's timers) and forgotten when a check
  /// finds a working interface, forgotten when the routing change is sent.
  /// On the owner's queue thread.
  Timer* getIdleTimer() const { return idleTimer_; }
  void setIdleTimer(Timer* timer) { idleTimer_ = timer; }

  /// Test hook: how long one of the manager's seconds lasts (the 2-second
  /// settling, the 45-second polling and the reconnect delay), for every
  /// manager in the process; ACE_Time_Value(1) restores the real length. Log
  /// texts keep the real numbers.
  static void setSecondForTesting(const ACE_Time_Value& second);

 private:
  struct Life;  // lets posted actions and timers outlive the manager safely

  // Monitoring thread.
  void routingInterfaceMonitoringThread();
  bool startMonitoringRoutingInterfaceChange();
  void terminateMonitoringThread();

  // Owner's queue thread.
  void scheduleNotificationTimer();
  void onNotificationTimeout();
  void onRoutingInterfaceChanged();
  void onChangeRoutingInterface();
  void checkBestInterfaceChanged();
  void checkOnOwnerThread();
  void post(void (IpConnectivityManager::*operation)());
  void postWake();
  Timer* scheduleGuarded(void (IpConnectivityManager::*operation)(), long seconds);
  Functor guarded(void (IpConnectivityManager::*operation)()) const;

  HandlerList<IIpConnectivityEventHandler> handlers_;
  mutable ACE_Thread_Mutex mutex_;  // guards the two strings
  std::wstring bestInterface_;
  std::wstring destination_;
  std::atomic<bool> suspended_{false};
  std::atomic<bool> useIoctl_{true};
  std::atomic<bool> localAddressLost_{false};
  std::atomic<bool> terminate_{false};
  std::weak_ptr<void> wakeTicket_;  // alive while a posted wake is queued
  ActionQueue* actionQueue_;
  detail::RouteChangeWatch* watch_;  // the monitoring socket and change event
  ACE_Manual_Event threadEnded_;
  void* threadHandle_ = nullptr;
  Timer* notificationTimer_ = nullptr;
  Timer* changeInterfaceTimer_ = nullptr;
  Timer* idleTimer_ = nullptr;
  TimerScheduler timers_;
  std::shared_ptr<Life> life_;
};

/// True exactly when `port`, taken as an unsigned 32-bit number, is below
/// 65536: 0 to 65535 pass, negative values fail.
QIMMISC_API bool validatePort(long port);

}  // namespace QIM
