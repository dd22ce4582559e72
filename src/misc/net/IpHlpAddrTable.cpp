#include "qimmisc/IpHlpAddrTable.h"

#include <utility>

#include "net/IpHlpSnapshot.h"
#include "net/Ipv4Text.h"
#include "net/NetChannel.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {
// IPv4 and UDP headers, which the bearer does not carry.
constexpr unsigned long kHeaderBytes = 28;

// Walks the rows holding `ipAddress` until one's interface MTU reads; a
// failed read is logged and the walk goes on. Text that is no address is
// held by no row.
bool interfaceMtu(const std::vector<IpHlpAddrTable::Row>& rows, const std::wstring& ipAddress,
                  unsigned long& mtu) {
  std::uint32_t address = 0;
  if (!net::parseIpv4(ipAddress, address)) return false;
  for (const IpHlpAddrTable::Row& row : rows) {
    if (row.address != address) continue;
    const unsigned long error = net::readInterfaceMtu(row.interfaceIndex, mtu);
    if (error != 0) {
      QIM_ERROR("Failed to get IF Info for IP " << toUtf8(ipAddress) << ": " << error);
      continue;
    }
    QIM_TRACE(net::networkChannel(), "IpHlpAddrTable::getMtuSizeForInterface: MTU from interface "
                                         << toUtf8(ipAddress) << " is " << mtu);
    return true;
  }
  return false;
}

}  // namespace

IpHlpAddrTable::IpHlpAddrTable() : rows_(net::takeAddressRows()) { QIM_ENTRY(); }

IpHlpAddrTable::IpHlpAddrTable(std::vector<Row> rows) : rows_(std::move(rows)) { QIM_ENTRY(); }

unsigned long IpHlpAddrTable::getNumOfIpAddresses() const {
  QIM_ENTRY();
  return static_cast<unsigned long>(rows_.size());
}

int IpHlpAddrTable::getIpAddress(unsigned long index) const {
  QIM_ENTRY("index=" << index);
  if (index >= rows_.size()) return 0;
  return static_cast<int>(rows_[index].address);
}

int IpHlpAddrTable::getIpAddressOfInterface(unsigned long interfaceIndex) const {
  QIM_ENTRY("dwIfIndex=" << interfaceIndex);
  for (const Row& row : rows_) {
    if (row.interfaceIndex == interfaceIndex) return static_cast<int>(row.address);
  }
  return 0;
}

int IpHlpAddrTable::getMtuSizeForInterface(const std::wstring& ipAddress) const {
  QIM_ENTRY("ipAddress=" << toUtf8(ipAddress));
  int result = DefaultBearerSize;
  unsigned long mtu = 0;
  if (interfaceMtu(rows_, ipAddress, mtu)) {
    // An MTU below the headers is taken as the smallest bearer.
    const long bearer = static_cast<long>(mtu) - static_cast<long>(kHeaderBytes);
    if (bearer <= DefaultBearerSize) {
      result = bearer < MinimumBearerSize ? MinimumBearerSize : static_cast<int>(bearer);
    }
  }
  QIM_TRACE(net::networkChannel(),
            "IpHlpAddrTable::getMtuSizeForInterface: UDP Bearer data size is " << result);
  return result;
}

unsigned long IpHlpAddrTable::getInterfaceMtu(const std::wstring& ipAddress) const {
  QIM_ENTRY("ipAddress=" << toUtf8(ipAddress));
  unsigned long mtu = 0;
  return interfaceMtu(rows_, ipAddress, mtu) ? mtu : 0;
}

}  // namespace QIM
