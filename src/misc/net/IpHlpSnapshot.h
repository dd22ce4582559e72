// What the IP tables ask of the operating system: its IPv4 address and
// routing tables as portable rows, one interface's MTU, and the local UDP
// ports in use. Windows asks the IP Helper; Linux asks the kernel of the
// calling thread's network namespace.
#pragma once

#include <vector>

#include "qimmisc/IpHlpAddrTable.h"
#include "qimmisc/IpHlpForwardTable.h"

namespace QIM::net {

/// The address table in the operating system's order; empty on failure.
std::vector<IpHlpAddrTable::Row> takeAddressRows();

/// The routing table in the operating system's order; empty on failure.
std::vector<IpHlpForwardTable::Row> takeRouteRows();

/// Reads the MTU of interface `interfaceIndex` into `mtu`. Returns 0, or
/// the operating system's error code (left in the log by the caller).
unsigned long readInterfaceMtu(unsigned long interfaceIndex, unsigned long& mtu);

/// Appends the local UDP ports (host byte order) in table order: by local
/// address, then port. Leaves `ports` as it is when the table is unreadable.
void appendUdpPorts(std::vector<int>& ports);

}  // namespace QIM::net
