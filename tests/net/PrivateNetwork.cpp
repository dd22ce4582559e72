#include "net/PrivateNetwork.h"

#include <sched.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace QIM::test {

void PrivateNetwork::SetUp() {
  if (unshare(CLONE_NEWNET) != 0) {
    const int error = errno;
    if (error == EPERM || error == EINVAL || error == ENOSPC) {
      GTEST_SKIP() << "no private network namespace here (unshare: " << std::strerror(error)
                   << "); run as root on a kernel with network namespaces";
    }
    FAIL() << "unshare(CLONE_NEWNET): " << std::strerror(error);
  }
  ip("link set lo up");
}

void PrivateNetwork::ip(const std::string& arguments) {
  const std::string command = "ip " + arguments + " 2>&1";
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

void PrivateNetwork::addVethWithDefaultRoute(int mtu) {
  const std::string m = std::to_string(mtu);
  ip("link add veth0 mtu " + m + " type veth peer name veth1 mtu " + m);
  ip("link set veth0 up");
  ip("link set veth1 up");
  ip("addr add 10.9.0.1/24 dev veth0");
  ip("route add default via 10.9.0.2 dev veth0");
}

}  // namespace QIM::test
