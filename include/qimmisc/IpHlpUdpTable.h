// IpHlpUdpTable: the local UDP ports in use on this host (IPv4).
//
// Windows reads the IP Helper's UDP table (GetUdpTable, sorted); Linux reads
// the kernel's UDP sockets, ordered the same way (by local address, then
// port). Only the ports are kept.
#pragma once

#include <vector>

#include "qimmisc/Export.h"

namespace QIM {

class QIMMISC_API IpHlpUdpTable {
 public:
  /// Takes the list at once.
  IpHlpUdpTable();

  /// Empties the list and reads it again; a failure leaves it empty.
  void update();

  /// The local ports, host byte order, in table order; a port bound on
  /// several addresses appears once per socket.
  const std::vector<int>& getPortsInUse() const { return ports_; }

 private:
  std::vector<int> ports_;
};

}  // namespace QIM
