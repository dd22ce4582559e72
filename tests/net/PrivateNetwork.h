// A fixture that moves the test into a network namespace of its own, so it
// can add links, addresses and routes and watch the kernel react without
// touching the machine's network. Linux only; needs root (CAP_SYS_ADMIN and
// CAP_NET_ADMIN) and iproute2's `ip`.
//
// Each test runs in a process of its own (CTest), and threads started after
// SetUp inherit the namespace, so objects made in the test see only it.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace QIM::test {

class PrivateNetwork : public ::testing::Test {
 protected:
  /// Enters a fresh namespace with its loopback up, or skips the test with
  /// the reason namespaces are impossible here.
  void SetUp() override;

  /// Runs `ip <arguments>` in the namespace; a failure fails the test.
  static void ip(const std::string& arguments);

  /// A veth pair "veth0"/"veth1", both up, "10.9.0.1/24" on veth0 with
  /// `mtu` on both ends, and a default route through 10.9.0.2.
  static void addVethWithDefaultRoute(int mtu = 1500);
};

}  // namespace QIM::test
