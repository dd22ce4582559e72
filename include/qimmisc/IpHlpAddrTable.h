// IpHlpAddrTable: a snapshot of the host's IPv4 address table.
//
// Which address belongs to which interface, and how large a UDP payload an
// interface carries. Windows reads the IP Helper's address table
// (GetIpAddrTable, GetIfEntry); Linux reads the kernel's through rtnetlink
// (address and link dumps). Addresses are 32-bit values in network byte
// order, as the tables hold them. The snapshot never changes after
// construction: take a new object to see new addresses.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qimmisc/Export.h"

namespace QIM {

class QIMMISC_API IpHlpAddrTable {
 public:
  /// One row of the address table.
  struct Row {
    std::uint32_t address = 0;         ///< network byte order
    std::uint32_t interfaceIndex = 0;  ///< the operating system's index
    std::uint32_t mask = 0;            ///< network byte order
    std::uint32_t broadcastAddress = 0;
    std::uint32_t reassemblySize = 0;  ///< largest datagram reassembled
    std::uint16_t type = 0;            ///< Windows' MIB_IPADDR_* flags
  };

  /// The payload size used when an interface's MTU is unknown, and the
  /// largest ever used.
  static constexpr int DefaultBearerSize = 1272;
  /// The smallest payload size ever used.
  static constexpr int MinimumBearerSize = 548;

  /// Takes the operating system's table. A failed snapshot is empty.
  IpHlpAddrTable();
  /// Uses `rows` as the snapshot (tests, and tools that read a saved table).
  explicit IpHlpAddrTable(std::vector<Row> rows);

  /// The number of rows; 0 for an empty snapshot.
  unsigned long getNumOfIpAddresses() const;
  /// The address of the row at `index`, as an int; 0 past the end.
  int getIpAddress(unsigned long index) const;
  /// The address of the first row of interface `interfaceIndex`, 0 when none.
  int getIpAddressOfInterface(unsigned long interfaceIndex) const;
  /// The UDP payload size for the interface owning `ipAddress` (dotted
  /// IPv4): its MTU less 28 bytes of IPv4 and UDP headers, held between 548
  /// and 1272; 1272 when no row holds the address or its MTU is unreadable.
  int getMtuSizeForInterface(const std::wstring& ipAddress) const;
  /// The MTU of the interface owning `ipAddress`, read as
  /// getMtuSizeForInterface reads it; 0 when no row holds the address or
  /// its MTU is unreadable.
  unsigned long getInterfaceMtu(const std::wstring& ipAddress) const;

  /// The rows, in the operating system's order.
  const std::vector<Row>& rows() const { return rows_; }

 private:
  std::vector<Row> rows_;
};

}  // namespace QIM
