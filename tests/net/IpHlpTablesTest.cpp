#include <gtest/gtest.h>

#include <ace/OS_NS_arpa_inet.h>

#include <algorithm>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "net/BoundUdp.h"
#include "qimmisc/IpHlpForwardTable.h"
#include "qimmisc/IpHlpUdpTable.h"
#include "qimmisc/NetUtils.h"
#include "qimmisc/StringUtils.h"

namespace QIM {
namespace {

// Network byte order, as the tables hold addresses.
std::uint32_t net(const char* dotted) { return ACE_OS::inet_addr(dotted); }
// Host byte order, as ACE_INET_Addr::get_ip_address gives a destination.
int host(const char* dotted) { return static_cast<int>(ntohl(net(dotted))); }

// A route to "a.b.c.d/len" through interface `ifIndex`.
IpHlpForwardTable::Row route(const std::string& prefix, std::uint32_t ifIndex) {
  const auto slash = prefix.find('/');
  const int length = std::stoi(prefix.substr(slash + 1));
  IpHlpForwardTable::Row row;
  row.destination = net(prefix.substr(0, slash).c_str());
  row.mask = length == 0 ? 0 : htonl(0xFFFFFFFFu << (32 - length));
  row.interfaceIndex = ifIndex;
  return row;
}

// Interfaces 1 to 3 have addresses 10.0.0.1 to 10.0.0.3; interface 9 none.
IpHlpAddrTable threeInterfaces() {
  std::vector<IpHlpAddrTable::Row> rows(3);
  for (std::uint32_t i = 1; i <= 3; ++i) {
    rows[i - 1].address = net(("10.0.0." + std::to_string(i)).c_str());
    rows[i - 1].interfaceIndex = i;
  }
  return IpHlpAddrTable(rows);
}

TEST(IpHlpTablesTest, BestInterfaceFollowsTheMaskedValueRule) {
  struct Case {
    const char* name;
    std::vector<IpHlpForwardTable::Row> routes;
    const char* destination;
    const char* chosen;
  };
  const auto any = route("0.0.0.0/0", 1);
  const Case cases[] = {
      {"empty table", {}, "8.8.8.8", "0.0.0.0"},
      {"default only", {any}, "8.8.8.8", "10.0.0.1"},
      {"subnet beats default", {any, route("172.16.0.0/16", 2)}, "172.16.4.4", "10.0.0.2"},
      {"subnet beats a later default", {route("172.16.0.0/16", 2), any}, "172.16.4.4", "10.0.0.2"},
      {"host route beats subnet", {route("172.16.0.0/16", 2), route("172.16.4.4/32", 3)},
       "172.16.4.4", "10.0.0.3"},
      // Equal masked values: the first row stays, whatever its mask length.
      {"tie, short mask first", {route("10.0.0.0/8", 1), route("10.0.0.0/16", 2)}, "10.0.5.5",
       "10.0.0.1"},
      {"tie, long mask first", {route("10.0.0.0/16", 2), route("10.0.0.0/8", 1)}, "10.0.5.5",
       "10.0.0.2"},
      {"no address does not block", {route("10.0.0.0/8", 9), any}, "10.1.1.1", "10.0.0.1"},
      {"a later match without address", {any, route("10.0.0.0/8", 9)}, "10.1.1.1", "0.0.0.0"},
      {"no route matches", {route("10.0.0.0/8", 1)}, "11.0.0.1", "0.0.0.0"},
      {"bits outside the mask", {route("10.0.0.1/8", 1)}, "10.0.0.1", "0.0.0.0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const IpHlpForwardTable table(threeInterfaces(), c.routes);
    EXPECT_EQ(ipAddrToString(static_cast<std::uint32_t>(table.getBestInterfaceFor(host(c.destination)))),
              fromUtf8(c.chosen));
  }
}

TEST(IpHlpTablesTest, AddressTableQueriesAndText) {
  const IpHlpAddrTable table = threeInterfaces();
  EXPECT_EQ(table.getNumOfIpAddresses(), 3u);
  EXPECT_EQ(static_cast<std::uint32_t>(table.getIpAddress(2)), net("10.0.0.3"));
  EXPECT_EQ(table.getIpAddress(3), 0);
  EXPECT_EQ(table.getIpAddress(~0ul), 0);
  EXPECT_EQ(static_cast<std::uint32_t>(table.getIpAddressOfInterface(2)), net("10.0.0.2"));
  EXPECT_EQ(table.getIpAddressOfInterface(9), 0);
  EXPECT_EQ(IpHlpAddrTable(std::vector<IpHlpAddrTable::Row>{}).getNumOfIpAddresses(), 0u);
  // Text of addresses in network byte order.
  const std::pair<std::uint32_t, const wchar_t*> cases[] = {
      {htonl(0x0A010203u), L"10.1.2.3"},   {htonl(0x7F000001u), L"127.0.0.1"},
      {0u, L"0.0.0.0"},                    {0xFFFFFFFFu, L"255.255.255.255"},
      {net("192.168.200.1"), L"192.168.200.1"},
  };
  for (const auto& [address, text] : cases) EXPECT_EQ(ipAddrToString(address), text);
}

class IpHlpTablesTraceTest : public test::TracingTest {};

TEST_F(IpHlpTablesTraceTest, MtuDefaultsWithoutAReadableInterface) {
  IpHlpAddrTable::Row missing;
  missing.address = net("10.0.0.7");
  missing.interfaceIndex = 0x7FFFFFF0;  // no such interface
  const IpHlpAddrTable table({missing});
  for (const wchar_t* text : {L"10.0.0.8", L"not an address", L"", L"10.0.0.7"}) {
    EXPECT_EQ(table.getMtuSizeForInterface(text), 1272) << toUtf8(text);
    EXPECT_EQ(table.getInterfaceMtu(text), 0ul) << toUtf8(text);
  }
  EXPECT_EQ(sink_.linesWith("UDP Bearer data size is 1272").size(), 4u);
  const auto failed = sink_.linesWith("Failed to get IF Info for IP 10.0.0.7: ");
  ASSERT_EQ(failed.size(), 2u);
  EXPECT_NE(failed[0].find("ERROR"), std::string::npos);
  EXPECT_TRUE(sink_.contains("(QIM::IpHlpAddrTable::getMtuSizeForInterface)"));
}

// The operating system's own tables: whatever the machine holds, they agree.
TEST(IpHlpTablesTest, SystemSnapshotsAreConsistent) {
  const IpHlpForwardTable routes;
  const IpHlpAddrTable& addresses = routes.addresses();
  ASSERT_EQ(addresses.getNumOfIpAddresses(), addresses.rows().size());
  for (unsigned long i = 0; i < addresses.getNumOfIpAddresses(); ++i) {
    EXPECT_EQ(static_cast<std::uint32_t>(addresses.getIpAddress(i)), addresses.rows()[i].address);
  }
  for (const IpHlpForwardTable::Row& row : routes.rows()) {
    EXPECT_EQ(row.destination & row.mask, row.destination) << ipAddrToString(row.destination);
  }
  for (const std::wstring& address : getLocalAddresses()) {
    EXPECT_TRUE(isLocalAddressValid(address)) << toUtf8(address);
    const int mtu = addresses.getMtuSizeForInterface(address);
    EXPECT_TRUE(mtu >= 548 && mtu <= 1272) << mtu;
  }
  if (const int best = routes.getBestInterfaceFor(host("127.0.0.1")); best != 0) {
    EXPECT_TRUE(isLocalAddressValid(ipAddrToString(static_cast<std::uint32_t>(best))));
  }
  for (const std::wstring& bad : {std::wstring(), std::wstring(L"host.example"),
                                  std::wstring(L"0.0.0.0"), std::wstring(L"1.2.3.4.5"),
                                  std::wstring(1, static_cast<wchar_t>(0xD800))}) {
    EXPECT_FALSE(isLocalAddressValid(bad)) << toUtf8(bad);
  }
}

TEST(IpHlpTablesTest, UdpTableListsBoundSocketsByAddressThenPort) {
  const test::BoundUdp loopbackA("127.0.0.1");
  const test::BoundUdp loopbackB("127.0.0.1");
  const test::BoundUdp any("0.0.0.0");
  ASSERT_TRUE(loopbackA.port() && loopbackB.port() && any.port());
  IpHlpUdpTable table;
  table.update();  // a refresh replaces the list rather than adding to it
  const std::vector<int>& ports = table.getPortsInUse();
  auto at = [&ports](int port) { return std::find(ports.begin(), ports.end(), port); };
  for (const int port : {any.port(), loopbackA.port(), loopbackB.port()}) {
    ASSERT_EQ(std::count(ports.begin(), ports.end(), port), 1) << port;
  }
#ifndef _WIN32
  // 0.0.0.0 sorts before 127.0.0.1; on one address, ports ascend. The order
  // on Windows is the system's own (Wine leaves the kernel's hash order).
  EXPECT_LT(at(any.port()), at(loopbackA.port()));
  EXPECT_EQ(at(loopbackA.port()) < at(loopbackB.port()), loopbackA.port() < loopbackB.port());
#endif
}

}  // namespace
}  // namespace QIM
