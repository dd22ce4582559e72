// IpHlpForwardTable: a snapshot of the host's IPv4 routing table, and the
// local address the host would use to reach a destination.
//
// Windows reads the IP Helper's forward table (GetIpForwardTable); Linux
// reads the kernel's routes through rtnetlink: the unicast and local routes
// of every routing table, a multipath route giving one row per next hop.
// Addresses and masks are in network byte order, as the tables hold them.
#pragma once

#include <cstdint>
#include <vector>

#include "qimmisc/Export.h"
#include "qimmisc/IpHlpAddrTable.h"

namespace QIM {

class QIMMISC_API IpHlpForwardTable {
 public:
  /// One row of the routing table.
  struct Row {
    std::uint32_t destination = 0;  ///< network byte order
    std::uint32_t mask = 0;         ///< network byte order
    std::uint32_t policy = 0;
    std::uint32_t nextHop = 0;      ///< network byte order; 0 on a link
    std::uint32_t interfaceIndex = 0;
    std::uint32_t type = 0;         ///< Windows' MIB_IPROUTE_TYPE_* values
    std::uint32_t protocol = 0;
    std::uint32_t age = 0;
    std::uint32_t metric1 = 0;
  };

  /// Takes the address table, then the routing table, from the operating
  /// system. A failed snapshot is empty.
  IpHlpForwardTable();
  /// Uses the given snapshots (tests, and tools that read saved tables).
  IpHlpForwardTable(IpHlpAddrTable addresses, std::vector<Row> routes);

  /// The local address (network byte order, as an int) of the interface
  /// chosen for `destination`, an IPv4 address as a number in host byte
  /// order (as ACE_INET_Addr::get_ip_address gives it); 0 when no route
  /// matches. Among matching routes the one whose masked destination is
  /// numerically largest wins, and a route whose interface has no address
  /// does not block a later match: the rule the client has always used.
  int getBestInterfaceFor(int destination) const;

  /// The address table taken with the routes.
  const IpHlpAddrTable& addresses() const { return addresses_; }
  /// The routes, in the operating system's order.
  const std::vector<Row>& rows() const { return rows_; }

 private:
  IpHlpAddrTable addresses_;
  std::vector<Row> rows_;
};

}  // namespace QIM
