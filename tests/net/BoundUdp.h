// A UDP socket bound for the length of a test, to be found in the tables.
#pragma once

#include <ace/INET_Addr.h>
#include <ace/SOCK_Dgram.h>

namespace QIM::test {

class BoundUdp {
 public:
  /// Binds to `address` (dotted IPv4) on a port the system picks; port()
  /// is 0 when that fails.
  explicit BoundUdp(const char* address) {
    ACE_INET_Addr bound;
    if (socket_.open(ACE_INET_Addr(static_cast<u_short>(0), address), AF_INET) == 0 &&
        socket_.get_local_addr(bound) == 0) {
      port_ = bound.get_port_number();
    }
  }
  ~BoundUdp() { socket_.close(); }
  int port() const { return port_; }

 private:
  ACE_SOCK_Dgram socket_;
  int port_ = 0;
};

}  // namespace QIM::test
