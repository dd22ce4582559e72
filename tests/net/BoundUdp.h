// A UDP socket bound for the length of a test, to be found in the tables.
#pragma once

#include <ace/INET_Addr.h>
#include <ace/SOCK_Dgram.h>

#include <string>

namespace QIM::test {

class BoundUdp {
 public:
  /// Binds to `address` (dotted IPv4) on a port the system picks.
  explicit BoundUdp(const char* address) {
    const ACE_INET_Addr where(static_cast<u_short>(0), address);
    if (socket_.open(where, AF_INET) == 0) {
      ACE_INET_Addr bound;
      socket_.get_local_addr(bound);
      port_ = bound.get_port_number();
    }
  }
  ~BoundUdp() { socket_.close(); }
  BoundUdp(const BoundUdp&) = delete;
  BoundUdp& operator=(const BoundUdp&) = delete;

  /// The bound port; 0 when binding failed.
  int port() const { return port_; }

 private:
  ACE_SOCK_Dgram socket_;
  int port_ = 0;
};

}  // namespace QIM::test
