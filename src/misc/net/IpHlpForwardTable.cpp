#include "qimmisc/IpHlpForwardTable.h"

#include <ace/OS_NS_arpa_inet.h>

#include <utility>

#include "net/IpHlpSnapshot.h"
#include "qimmisc/Trace.h"

namespace QIM {

// addresses_, declared first, takes the address table before the routes are
// read.
IpHlpForwardTable::IpHlpForwardTable() : rows_(net::takeRouteRows()) { QIM_ENTRY(); }

IpHlpForwardTable::IpHlpForwardTable(IpHlpAddrTable addresses, std::vector<Row> routes)
    : addresses_(std::move(addresses)), rows_(std::move(routes)) {
  QIM_ENTRY();
}

int IpHlpForwardTable::getBestInterfaceFor(int destination) const {
  QIM_ENTRY("destination=" << destination);
  const std::uint32_t converted = ntohl(static_cast<std::uint32_t>(destination));
  std::uint32_t bestMasked = 0;
  int chosen = 0;
  for (const Row& row : rows_) {
    const std::uint32_t masked = row.mask & converted;
    if (masked != row.destination) continue;
    // The masked value itself breaks ties, and an interface without an
    // address leaves the choice open for a later row.
    if (chosen == 0 || masked > bestMasked) {
      bestMasked = masked;
      chosen = addresses_.getIpAddressOfInterface(row.interfaceIndex);
    }
  }
  return chosen;
}

}  // namespace QIM
