// The operating system's half of IpConnectivityManager: a socket that asks
// to be told of IPv4 routing and address changes, and the change event that
// wakes the monitoring thread when one is reported or when the manager
// signals it.
//
// Windows: a UDP socket with the Winsock routing-interface and address-list
// change requests, bound with WSAEventSelect to an auto-reset event. Each
// request reports one change and is then issued again.
// Linux: a netlink route socket subscribed to IPv4 route, IPv4 address and
// link changes stands for both requests (it stays subscribed, so issuing
// them again only checks that it is open) and an eventfd is the event.
#pragma once

#include <ace/Time_Value.h>

#include <cstdint>

namespace QIM::detail {

class RouteChangeWatch {
 public:
  /// The answer of a request that is armed without completing at once.
  static const int kWouldBlock;
  /// The answer of a request the operating system does not offer at all.
  static const int kNotSupported;

  /// Creates the socket and the change event and binds them. On Linux the
  /// socket belongs to the calling thread's network namespace. Failures are
  /// logged with their numbers; the requests then answer an error.
  RouteChangeWatch();
  ~RouteChangeWatch();
  RouteChangeWatch(const RouteChangeWatch&) = delete;
  RouteChangeWatch& operator=(const RouteChangeWatch&) = delete;

  /// Asks to be told when the route to `address`:`port` (host byte order)
  /// changes. Returns 0 or kWouldBlock when armed, else the platform's error
  /// number (WSAGetLastError, errno). Monitoring thread only.
  int requestRoutingInterfaceChange(std::uint32_t address, std::uint16_t port);
  /// Asks to be told when the host's address list changes; answers as above.
  int requestAddressListChange();

  /// Signals the change event. Any thread.
  void signal();
  /// Waits until a change is reported or the event is signalled, at most
  /// `timeout` (relative) when it is not null. Consumes what woke it: every
  /// change reported so far and the signal. Monitoring thread only.
  void wait(const ACE_Time_Value* timeout);

 private:
  struct Impl;
  Impl* impl_;
};

}  // namespace QIM::detail
