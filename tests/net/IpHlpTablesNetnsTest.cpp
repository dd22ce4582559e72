// The tables against the kernel, in a network namespace of the test's own.
#include <ace/OS_NS_arpa_inet.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "net/BoundUdp.h"
#include "net/PrivateNetwork.h"
#include "qimmisc/IpHlpForwardTable.h"
#include "qimmisc/IpHlpUdpTable.h"
#include "qimmisc/NetUtils.h"

namespace QIM {
namespace {

class IpHlpTablesNetnsTest : public test::PrivateNetwork {
 protected:
  // The dotted local address chosen for `destination`.
  static std::wstring bestFor(const char* destination) {
    const int host = static_cast<int>(ntohl(ACE_OS::inet_addr(destination)));
    return ipAddrToString(static_cast<std::uint32_t>(IpHlpForwardTable().getBestInterfaceFor(host)));
  }

  // A second link, veth2 with 10.8.0.1/24, and no default route through it.
  static void addSecondLink() {
    ip("link add veth2 type veth peer name veth3");
    ip("link set veth2 up");
    ip("link set veth3 up");
    ip("addr add 10.8.0.1/24 dev veth2");
  }
};

TEST_F(IpHlpTablesNetnsTest, DefaultSubnetHostAndMultipathRoutes) {
  addVethWithDefaultRoute();
  EXPECT_EQ(bestFor("8.8.8.8"), L"10.9.0.1");
  EXPECT_EQ(bestFor("127.0.0.1"), L"127.0.0.1");
  addSecondLink();
  ip("route add 172.16.0.0/16 via 10.8.0.2 dev veth2");
  ip("route add 8.8.4.4/32 via 10.8.0.2 dev veth2");
  EXPECT_EQ(bestFor("172.16.3.3"), L"10.8.0.1");
  EXPECT_EQ(bestFor("8.8.4.4"), L"10.8.0.1");
  EXPECT_EQ(bestFor("8.8.8.8"), L"10.9.0.1");
  EXPECT_EQ(bestFor("10.8.0.77"), L"10.8.0.1");
  // A multipath route gives one row per next hop.
  ip("route add 192.168.50.0/24 nexthop via 10.9.0.2 dev veth0 nexthop via 10.8.0.2 dev veth2");
  std::vector<std::pair<std::wstring, std::wstring>> hops;  // next hop, interface address
  const IpHlpForwardTable table;
  for (const IpHlpForwardTable::Row& row : table.rows()) {
    if (row.destination != ACE_OS::inet_addr("192.168.50.0")) continue;
    EXPECT_EQ(row.mask, ACE_OS::inet_addr("255.255.255.0"));
    hops.emplace_back(ipAddrToString(row.nextHop),
                      ipAddrToString(static_cast<std::uint32_t>(
                          table.addresses().getIpAddressOfInterface(row.interfaceIndex))));
  }
  std::sort(hops.begin(), hops.end());
  EXPECT_EQ(hops, (std::vector<std::pair<std::wstring, std::wstring>>{
                      {L"10.8.0.2", L"10.8.0.1"}, {L"10.9.0.2", L"10.9.0.1"}}));
}

TEST_F(IpHlpTablesNetnsTest, BearerSizeFollowsTheLinkMtu) {
  addVethWithDefaultRoute(1280);
  EXPECT_EQ(IpHlpAddrTable().getMtuSizeForInterface(L"10.9.0.1"), 1252);
  const std::pair<int, int> cases[] = {{500, 548},   {576, 548},   {577, 549}, {1300, 1272},
                                       {1301, 1272}, {1500, 1272}, {9000, 1272}};
  for (const auto& [mtu, bearer] : cases) {
    ip("link set veth0 mtu " + std::to_string(mtu));
    const IpHlpAddrTable table;
    EXPECT_EQ(table.getMtuSizeForInterface(L"10.9.0.1"), bearer) << "MTU " << mtu;
    EXPECT_EQ(table.getInterfaceMtu(L"10.9.0.1"), static_cast<unsigned long>(mtu));
  }
  EXPECT_EQ(IpHlpAddrTable().getMtuSizeForInterface(L"10.9.0.99"), 1272);
  EXPECT_EQ(IpHlpAddrTable().getInterfaceMtu(L"10.9.0.99"), 0ul);
}

// Only this namespace's sockets, in the sorted order: 0.0.0.0, 10.9.0.1,
// then 127.0.0.1.
TEST_F(IpHlpTablesNetnsTest, UdpTableShowsExactlyTheNamespaceSockets) {
  addVethWithDefaultRoute();
  EXPECT_TRUE(IpHlpUdpTable().getPortsInUse().empty());
  const test::BoundUdp loopback("127.0.0.1");
  const test::BoundUdp veth("10.9.0.1");
  const test::BoundUdp any("0.0.0.0");
  ASSERT_TRUE(loopback.port() && veth.port() && any.port());
  EXPECT_EQ(IpHlpUdpTable().getPortsInUse(),
            (std::vector<int>{any.port(), veth.port(), loopback.port()}));
}

TEST_F(IpHlpTablesNetnsTest, LocalAddressesFollowTheKernel) {
  addVethWithDefaultRoute();
  EXPECT_FALSE(isLocalAddressValid(L"10.7.0.1"));
  ip("addr add 10.7.0.1/24 dev veth0");
  EXPECT_TRUE(isLocalAddressValid(L"10.7.0.1"));
  const std::vector<std::wstring> added = getLocalAddresses();
  EXPECT_NE(std::find(added.begin(), added.end(), L"10.7.0.1"), added.end());
  ip("addr del 10.7.0.1/24 dev veth0");
  EXPECT_FALSE(isLocalAddressValid(L"10.7.0.1"));
  EXPECT_EQ(getLocalAddresses(), (std::vector<std::wstring>{L"127.0.0.1", L"10.9.0.1"}));
}

}  // namespace
}  // namespace QIM
