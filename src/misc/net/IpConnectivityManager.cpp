#include "qimmisc/IpConnectivityManager.h"

#include <ace/Guard_T.h>
#include <ace/INET_Addr.h>
#include <ace/Thread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>

#include "net/NetChannel.h"
#include "net/RouteChangeWatch.h"
#include "qimmisc/IpHlpAddrTable.h"
#include "qimmisc/IpHlpForwardTable.h"
#include "qimmisc/NetUtils.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/ThreadUtils.h"
#include "qimmisc/Trace.h"
#include "qimmisc/VelderIni.h"

namespace QIM {

namespace {

using net::networkChannel;

constexpr long kSettleSeconds = 2;
constexpr long kPollSeconds = 45;
constexpr int kActionPriority = 5;
// The port of the route watched when the destination names none.
const char* const kDefaultPort = "5060";

// How long one of the manager's seconds lasts, in microseconds.
std::atomic<long long> secondLength{1000000};

ACE_Time_Value managerSeconds(long seconds) {
  // The timer scheduler cuts what is longer; the cut keeps the product in
  // range whatever the test hook set.
  const double length = static_cast<double>(seconds) * secondLength.load() / 1e6;
  ACE_Time_Value value;
  value.set(length < TimerScheduler::MaxDelaySeconds ? length
                                                     : double(TimerScheduler::MaxDelaySeconds));
  return value;
}

// Splits "host[:port]" at a colon followed by a port number; without one the
// whole text is the host.
void splitDestination(const std::wstring& destination, std::wstring& host, std::wstring& port) {
  const std::size_t colon = destination.rfind(L':');
  if (colon != std::wstring::npos && colon + 1 < destination.size() &&
      destination.find_first_not_of(L"0123456789", colon + 1) == std::wstring::npos) {
    host = destination.substr(0, colon);
    port = destination.substr(colon + 1);
    return;
  }
  host = destination;
  port.clear();
}

// The IPv4 address (host byte order) of the destination's host; the empty
// host is 0.0.0.0. A name goes to the system resolver.
bool resolveDestination(const std::wstring& destination, std::uint32_t& address) {
  std::wstring host, port;
  splitDestination(destination, host, port);
  address = 0;
  if (host.empty()) return true;
  const std::string name = toUtf8(host);
  ACE_INET_Addr resolved;
  if (name.empty() || resolved.set(static_cast<u_short>(0), name.c_str(), 1, AF_INET) != 0) {
    QIM_ERROR("Cannot resolve the destination " << name << " to an IPv4 address");
    return false;
  }
  address = resolved.get_ip_address();
  return true;
}

// A pass of the monitoring thread leaves errno as it found it.
class ErrnoKeeper {
 public:
  ErrnoKeeper() : saved_(errno) {}
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  const int saved_;
};

}  // namespace

// Posted actions and timer actions reach the manager only through this: the
// destructor clears `manager` under `mutex`, which an action holds while it
// runs, so an action either finishes first or finds the manager gone.
struct IpConnectivityManager::Life {
  ACE_Thread_Mutex mutex;
  IpConnectivityManager* manager;
};

bool validatePort(long port) { return static_cast<std::uint32_t>(port) < 65536U; }

void IpConnectivityManager::setSecondForTesting(const ACE_Time_Value& second) {
  const long long length = static_cast<long long>(second.sec()) * 1000000 + second.usec();
  secondLength.store(length < 1000 ? 1000 : length);
}

IpConnectivityManager::IpConnectivityManager(ActionQueue* actionQueue)
    : actionQueue_(actionQueue),
      watch_(nullptr),
      life_(std::make_shared<Life>()) {
  QIM_ENTRY("actionQueue=" << static_cast<const void*>(actionQueue));
  QIM_ASSERT(0!=actionQueue);
  life_->manager = this;
  watch_ = new detail::RouteChangeWatch;
  try {
    createThread(makeFunctor(this, &IpConnectivityManager::routingInterfaceMonitoringThread),
                 "QIM::IpConnectivityManager", &threadHandle_);
  } catch (...) {
    delete watch_;
    throw;
  }
}

IpConnectivityManager::~IpConnectivityManager() {
  QIM_ENTRY();
  terminateMonitoringThread();
  {
    ACE_Guard<ACE_Thread_Mutex> guard(life_->mutex);
    life_->manager = nullptr;
  }
  delete watch_;
}

void IpConnectivityManager::terminateMonitoringThread() {
  QIM_TRACE(networkChannel(), "IpConnectivityManager::terminateMonitoringThread");
  terminate_.store(true);
  watch_->signal();
  threadEnded_.wait();
  joinThread(threadHandle_);
  threadHandle_ = nullptr;
}

bool IpConnectivityManager::addHandler(IIpConnectivityEventHandler* handler) {
  return handlers_.addHandler(handler);
}

bool IpConnectivityManager::removeHandler(IIpConnectivityEventHandler* handler) {
  return handlers_.removeHandler(handler);
}

void IpConnectivityManager::setMonitoredDestination(const std::wstring& destination) {
  QIM_ENTRY("destination=" << toUtf8(destination));
  {
    ACE_Guard<ACE_Thread_Mutex> guard(mutex_);
    destination_ = destination;
    QIM_TRACE(networkChannel(), "IpConnectivityManager::setMonitoredDestination destination:"
                                    << toUtf8(destination));
  }
  checkOnOwnerThread();
  watch_->signal();  // the thread asks again, for the new route
}

std::wstring IpConnectivityManager::getMonitoredDestination() const {
  ACE_Guard<ACE_Thread_Mutex> guard(mutex_);
  return destination_;
}

std::wstring IpConnectivityManager::getBestInterface() const {
  QIM_ENTRY();
  std::wstring best;
  {
    ACE_Guard<ACE_Thread_Mutex> guard(mutex_);
    best = bestInterface_;
  }
  if (isLocalAddressValid(best)) {
    QIM_TRACE(networkChannel(),
              "IpConnectivityManager::getBestInterface returning:" << toUtf8(best));
    return best;
  }
  QIM_TRACE(networkChannel(), "Local address:" << toUtf8(best) << "is no longer valid");
  return std::wstring();
}

std::wstring IpConnectivityManager::getBestInterfaceForDestination(
    const std::wstring& destination) {
  QIM_ENTRY("destination=" << toUtf8(destination));
  QIM_TRACE(networkChannel(), "Looking for best interface for accessing "
                                  << "destination=" << toUtf8(destination));
  std::uint32_t address = 0;
  std::wstring best;
  if (resolveDestination(destination, address)) {
    const int local = IpHlpForwardTable().getBestInterfaceFor(static_cast<int>(address));
    if (local != 0) best = ipAddrToString(static_cast<std::uint32_t>(local));
  }
  QIM_TRACE(networkChannel(), "Best interface is " << toUtf8(best));
  return best;
}

void IpConnectivityManager::updateBestInterface() {
  QIM_ENTRY();
  checkOnOwnerThread();
}

void IpConnectivityManager::onSuspend() {
  QIM_ENTRY();
  QIM_TRACE(networkChannel(), "IpConnectivityManager::onSuspend() called");
  suspended_.store(true);
  updateBestInterface();
}

void IpConnectivityManager::onResume() {
  QIM_ENTRY();
  QIM_TRACE(networkChannel(), "IpConnectivityManager::onResume() called");
  suspended_.store(false);
  updateBestInterface();
}

int IpConnectivityManager::getMtuSizeForInterface(const std::wstring& interfaceAddress) {
  QIM_ENTRY("interfaceAddress=" << toUtf8(interfaceAddress));
  return IpHlpAddrTable().getMtuSizeForInterface(interfaceAddress);
}

Timer* IpConnectivityManager::scheduleChangeInterface(int delay, Timer* pending) {
  QIM_ENTRY("delay=" << delay);
  if (pending) return pending;
  return scheduleGuarded(&IpConnectivityManager::onChangeRoutingInterface, delay);
}

// ---- Monitoring thread ------------------------------------------------------

void IpConnectivityManager::routingInterfaceMonitoringThread() {
  QIM_ENTRY();
  while (!terminate_.load()) {
    if (startMonitoringRoutingInterfaceChange()) {
      QIM_TRACE(networkChannel(),
                "Waiting for evants for FD_ROUTING_INTERFACE_CHANGE or FD_ADDRESS_LIST_CHANGE");
      watch_->wait(nullptr);
      QIM_TRACE(networkChannel(), "FD_ROUTING_INTERFACE_CHANGE or FD_ADDRESS_LIST_CHANGE occurred");
    } else {
      QIM_TRACE(networkChannel(), "Wait for " << kPollSeconds
                                              << " seconds before checking the routing interface again");
      const ACE_Time_Value limit = managerSeconds(kPollSeconds);
      watch_->wait(&limit);
    }
    if (terminate_.load()) break;
    postWake();
  }
  QIM_TRACE(networkChannel(), "The routing interface monitoring thread is terminating ...");
  threadEnded_.signal();
}

bool IpConnectivityManager::startMonitoringRoutingInterfaceChange() {
  const ErrnoKeeper keepErrno;
  QIM_ENTRY();
  const bool useIoctl = useIoctl_.load();
  QIM_TRACE(networkChannel(), "IpConnectivityManager::startMonitoringRoutingInterfaceChange using "
                                  << (useIoctl ? "ioctl" : "45 seconds timer"));
  if (!useIoctl) return false;

  ACE_INET_Addr target;
  const std::wstring destination = getMonitoredDestination();
  if (!destination.empty()) {
    std::wstring host, port;
    splitDestination(destination, host, port);
    const std::string text = toUtf8(port.empty() ? destination + L":" + fromUtf8(kDefaultPort)
                                                 : destination);
    if (target.string_to_addr(text.c_str(), AF_INET) != 0) {
      QIM_ERROR("Cannot parse the monitored destination " << text << ", watching any route");
      target.string_to_addr(kDefaultPort, AF_INET);
    }
    QIM_TRACE(networkChannel(), "Monitoring the route to :" << toUtf8(destination));
  } else {
    target.string_to_addr(kDefaultPort, AF_INET);
    QIM_TRACE(networkChannel(), "Monitoring the route to 0.0.0.0");
  }

  using detail::RouteChangeWatch;
  int error = watch_->requestRoutingInterfaceChange(target.get_ip_address(),
                                                    target.get_port_number());
  if (error != 0 && error != RouteChangeWatch::kWouldBlock) {
    if (error == RouteChangeWatch::kNotSupported) {
      useIoctl_.store(false);
      QIM_ERROR("Ioctl operation is not supported, disabling the use of ioctl for monitoring of "
                "routing interface changes. errno="
                << error);
    } else {
      QIM_ERROR("Failed to use ioctl to monitor routing interface changes. Will try again in "
                << kPollSeconds << " seconds. errno=" << error);
    }
    return false;
  }
  error = watch_->requestAddressListChange();
  if (error != 0 && error != RouteChangeWatch::kWouldBlock) {
    QIM_ASSERT_AS(error != RouteChangeWatch::kNotSupported, "errno != WSAEOPNOTSUPP",
                  "SIO_ROUTING_INTERFACE_CHANGE is supported but SIO_ADDRESS_LIST_CHANGE is not "
                  "supported.");
    QIM_ERROR("Failed to use ioctl to monitor  interface address changes. Will try again in "
              << kPollSeconds << " seconds. errno=" << error);
    return false;
  }
  return true;
}

// At most one wake waits in the owner's queue: a flood of changes cannot
// grow it. The ticket lives in the posted action, so a wake that its queue
// destroys unrun does not stop later ones; a change seen while the queued
// wake runs is covered by the check that wake schedules.
void IpConnectivityManager::postWake() {
  if (!actionQueue_ || !wakeTicket_.expired()) return;
  auto ticket = std::make_shared<char>(0);
  wakeTicket_ = ticket;
  std::shared_ptr<Life> life = life_;
  actionQueue_->push_back(makeFunctor([life, ticket] {
                            ACE_Guard<ACE_Thread_Mutex> guard(life->mutex);
                            if (life->manager) life->manager->scheduleNotificationTimer();
                          }),
                          kActionPriority);
}

// ---- Owner's queue thread ---------------------------------------------------

Functor IpConnectivityManager::guarded(void (IpConnectivityManager::*operation)()) const {
  std::shared_ptr<Life> life = life_;
  return makeFunctor([life, operation] {
    ACE_Guard<ACE_Thread_Mutex> guard(life->mutex);
    if (life->manager) (life->manager->*operation)();
  });
}

void IpConnectivityManager::post(void (IpConnectivityManager::*operation)()) {
  if (actionQueue_) actionQueue_->push_back(guarded(operation), kActionPriority);
}

Timer* IpConnectivityManager::scheduleGuarded(void (IpConnectivityManager::*operation)(),
                                              long seconds) {
  return timers_.schedule(guarded(operation), actionQueue_, managerSeconds(seconds), false);
}

void IpConnectivityManager::checkOnOwnerThread() {
  if (actionQueue_ &&
      actionQueue_->tid() == static_cast<unsigned long>(ACE_Thread::self())) {
    checkBestInterfaceChanged();
  } else {
    post(&IpConnectivityManager::checkBestInterfaceChanged);
  }
}

void IpConnectivityManager::scheduleNotificationTimer() {
  QIM_ENTRY();
  if (notificationTimer_) {
    timers_.cancel(notificationTimer_);
    QIM_TRACE(networkChannel(), "IpConnectivityManager: rescheduling notificationTimer_");
  }
  notificationTimer_ = scheduleGuarded(&IpConnectivityManager::onNotificationTimeout,
                                       kSettleSeconds);
}

void IpConnectivityManager::onNotificationTimeout() {
  QIM_ENTRY();
  notificationTimer_ = nullptr;
  onRoutingInterfaceChanged();
}

void IpConnectivityManager::onRoutingInterfaceChanged() {
  QIM_ENTRY();
  QIM_TRACE(networkChannel(), "Changes detected in available network interfaces");
  const bool reachable =
      !suspended_.load() && !getBestInterfaceForDestination(getMonitoredDestination()).empty();
  if (!reachable) {
    if (!localAddressLost_.exchange(true)) {
      handlers_.callHandlers(&IIpConnectivityEventHandler::onLocalAddressLost);
    }
    return;
  }
  localAddressLost_.store(false);
  if (idleTimer_) {
    timers_.cancel(idleTimer_);
    idleTimer_ = nullptr;
  }
  const Data::VelderIni* settings = Data::VelderIni::instance();
  const int delay = settings ? settings->getIPChangeReConnectDelay() : 0;
  if (delay < 1) {
    handlers_.callHandlers(&IIpConnectivityEventHandler::onRoutingChange);
    checkBestInterfaceChanged();
  } else if (!changeInterfaceTimer_) {
    QIM_TRACE(networkChannel(), "Reconnect will be done after " << delay << " msecs.");
    // The setting is in milliseconds, yet its value times 1000 is taken as
    // seconds: the delay the client has always had.
    changeInterfaceTimer_ = scheduleChangeInterface(delay * 1000, changeInterfaceTimer_);
  }
}

void IpConnectivityManager::onChangeRoutingInterface() {
  QIM_ENTRY();
  QIM_TRACE(networkChannel(), "Sending routing change notification.");
  changeInterfaceTimer_ = nullptr;
  idleTimer_ = nullptr;
  handlers_.callHandlers(&IIpConnectivityEventHandler::onRoutingChange);
}

void IpConnectivityManager::checkBestInterfaceChanged() {
  QIM_ENTRY();
  const std::wstring best = suspended_.load()
                                ? std::wstring()
                                : getBestInterfaceForDestination(getMonitoredDestination());
  if (!best.empty()) localAddressLost_.store(false);
  std::wstring old;
  {
    ACE_Guard<ACE_Thread_Mutex> guard(mutex_);
    old = bestInterface_;
    if (best != old) bestInterface_ = best;
  }
  if (best == old) {
    QIM_TRACE(networkChannel(),
              "IpConnectivityManager::checkBestInterfaceChanged best is still:" << toUtf8(best));
    return;
  }
  QIM_TRACE(networkChannel(), "IpConnectivityManager::checkBestInterfaceChanged from:"
                                  << toUtf8(old) << " to:" << toUtf8(best));
  handlers_.callHandlers(&IIpConnectivityEventHandler::onBestInterfaceChanged);
}

}  // namespace QIM
