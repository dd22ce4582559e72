// The host's own IPv4 addresses, read from a fresh address table.
#include <cstdint>

#include "net/Ipv4Text.h"
#include "qimmisc/IpHlpAddrTable.h"
#include "qimmisc/NetUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {

std::wstring ipAddrToString(std::uint32_t address) {
  QIM_ENTRY();
  // Network byte order: the first byte in memory is the first number.
  const auto* bytes = reinterpret_cast<const unsigned char*>(&address);
  return std::to_wstring(bytes[0]) + L'.' + std::to_wstring(bytes[1]) + L'.' +
         std::to_wstring(bytes[2]) + L'.' + std::to_wstring(bytes[3]);
}

bool isLocalAddressValid(const std::wstring& address) {
  QIM_ENTRY("address=" << toUtf8(address));
  std::uint32_t value = 0;
  if (!net::parseIpv4(address, value) || value == 0) return false;
  const IpHlpAddrTable table;
  for (const IpHlpAddrTable::Row& row : table.rows()) {
    if (row.address == value) return true;
  }
  return false;
}

std::vector<std::wstring> getLocalAddresses() {
  QIM_ENTRY();
  std::vector<std::wstring> addresses;
  const IpHlpAddrTable table;
  for (const IpHlpAddrTable::Row& row : table.rows()) {
    if (row.address != 0) addresses.push_back(ipAddrToString(row.address));
  }
  return addresses;
}

}  // namespace QIM
