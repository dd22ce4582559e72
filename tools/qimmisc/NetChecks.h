// What the net commands and doctor's network section share: the route the
// host would take to a destination, and the UDP ports inside the client's
// configured port ranges.
#pragma once

#include <string>
#include <vector>

#include "qimmisc/VelderIni.h"

namespace qimtool {

/// The local side of the route to a destination.
struct RouteAnswer {
  std::string problem;        ///< why there is no answer; empty when resolved
  std::string destination;    ///< the destination's dotted IPv4 address
  std::string bestInterface;  ///< dotted; empty when no route matches
  unsigned long mtu = 0;      ///< of the best interface; 0 when unreadable
  int bearerSize = 0;         ///< the UDP payload size the client would use
};

/// Splits "host[:port]" and resolves the host to IPv4. False, with the
/// reason in `problem`, for an empty host or a port outside 0..65535.
bool parseDestination(const std::string& text, std::string& host, unsigned& port,
                      std::string& problem);

/// Resolves `host` (name or dotted IPv4) and asks the routing table for the
/// interface leading to it, with its MTU and bearer size.
RouteAnswer findRoute(const std::string& host);

/// The "host[:port]" part of a proxy setting ("sip:user@host:port;params").
std::string proxyHost(const std::wstring& proxy);

/// Distinct ports of `ports`, in their order, that lie in `range` (bounds
/// included).
std::vector<int> portsInRange(const std::vector<int>& ports, const QIM::Data::IntRange& range);

/// "low-high".
std::string rangeText(const QIM::Data::IntRange& range);

/// The ports joined with ", ".
std::string portList(const std::vector<int>& ports);

}  // namespace qimtool
