// The IP Helper's IPv4 tables.
#include "platform/Win32.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "net/IpHlpSnapshot.h"

namespace QIM::net {

namespace {

// Asks `get(buffer, &size)` with a null buffer, then with one of the size it
// reports for as long as it reports ERROR_INSUFFICIENT_BUFFER. Empty on any
// other error. A reported size that does not grow ends the loop too: asking
// again would get the same answer for ever.
template <class Get>
std::vector<unsigned char> takeTable(Get get) {
  std::vector<unsigned char> buffer;
  ULONG size = 0;
  DWORD result = get(nullptr, &size);
  while (result == ERROR_INSUFFICIENT_BUFFER && size > buffer.size()) {
    buffer.assign(size, 0);
    result = get(buffer.data(), &size);
  }
  if (result != NO_ERROR) buffer.clear();
  return buffer;
}

// The rows the header's count announces that the buffer really holds.
template <class Table>
DWORD rowCount(const void* data, std::size_t bytes) {
  if (bytes < offsetof(Table, table)) return 0;
  const auto* table = static_cast<const Table*>(data);
  const std::size_t room = (bytes - offsetof(Table, table)) / sizeof(table->table[0]);
  return static_cast<DWORD>(std::min<std::size_t>(table->dwNumEntries, room));
}

}  // namespace

std::vector<IpHlpAddrTable::Row> takeAddressRows() {
  const std::vector<unsigned char> buffer = takeTable([](unsigned char* data, ULONG* size) {
    return GetIpAddrTable(reinterpret_cast<PMIB_IPADDRTABLE>(data), size, FALSE);
  });
  std::vector<IpHlpAddrTable::Row> rows;
  const DWORD count = rowCount<MIB_IPADDRTABLE>(buffer.data(), buffer.size());
  const auto* table = reinterpret_cast<const MIB_IPADDRTABLE*>(buffer.data());
  for (DWORD i = 0; i < count; ++i) {
    const MIB_IPADDRROW& row = table->table[i];
    rows.push_back({row.dwAddr, row.dwIndex, row.dwMask, row.dwBCastAddr, row.dwReasmSize,
                    row.wType});
  }
  return rows;
}

std::vector<IpHlpForwardTable::Row> takeRouteRows() {
  const std::vector<unsigned char> buffer = takeTable([](unsigned char* data, ULONG* size) {
    return GetIpForwardTable(reinterpret_cast<PMIB_IPFORWARDTABLE>(data), size, FALSE);
  });
  std::vector<IpHlpForwardTable::Row> rows;
  const DWORD count = rowCount<MIB_IPFORWARDTABLE>(buffer.data(), buffer.size());
  const auto* table = reinterpret_cast<const MIB_IPFORWARDTABLE*>(buffer.data());
  for (DWORD i = 0; i < count; ++i) {
    const MIB_IPFORWARDROW& row = table->table[i];
    rows.push_back({row.dwForwardDest, row.dwForwardMask, row.dwForwardPolicy,
                    row.dwForwardNextHop, row.dwForwardIfIndex,
                    static_cast<std::uint32_t>(row.dwForwardType),
                    static_cast<std::uint32_t>(row.dwForwardProto), row.dwForwardAge,
                    static_cast<std::uint32_t>(row.dwForwardMetric1)});
  }
  return rows;
}

unsigned long readInterfaceMtu(unsigned long interfaceIndex, unsigned long& mtu) {
  MIB_IFROW row{};
  row.dwIndex = interfaceIndex;
  const DWORD result = GetIfEntry(&row);
  if (result == NO_ERROR) mtu = row.dwMtu;
  return result;
}

void appendUdpPorts(std::vector<int>& ports) {
  ULONG size = 0;
  if (GetUdpTable(nullptr, &size, TRUE) != ERROR_INSUFFICIENT_BUFFER || size == 0) return;
  // One table header's worth per reported byte: far more than the table
  // needs, so a table that grew since the first answer still fits.
  std::vector<MIB_UDPTABLE> buffer(size);
  const std::size_t bytes = buffer.size() * sizeof(MIB_UDPTABLE);
  ULONG asked = static_cast<ULONG>(bytes);
  if (GetUdpTable(buffer.data(), &asked, TRUE) != NO_ERROR) return;
  const DWORD count = rowCount<MIB_UDPTABLE>(buffer.data(), bytes);
  const MIB_UDPTABLE* table = buffer.data();
  for (DWORD i = 0; i < count; ++i) {
    ports.push_back(ntohs(static_cast<u_short>(table->table[i].dwLocalPort & 0xFFFF)));
  }
}

}  // namespace QIM::net
