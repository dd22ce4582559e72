// The kernel's IPv4 UDP sockets, from the calling thread's own view of
// /proc (its network namespace). The file is there wherever /proc is;
// sock_diag would need the udp_diag module, which a container cannot load.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "net/IpHlpSnapshot.h"

namespace QIM::net {

namespace {

// The tables' "local_address" column is the address as the kernel holds it
// (network byte order) in hexadecimal, then ':' and the port in host order.
bool parseLocalEndpoint(const std::string& line, std::uint32_t& address, unsigned& port) {
  unsigned slot = 0;
  unsigned rawAddress = 0;
  char colon = 0;
  if (std::sscanf(line.c_str(), " %u: %8X%c%4X", &slot, &rawAddress, &colon, &port) != 4) {
    return false;
  }
  address = rawAddress;
  return colon == ':' && port <= 0xFFFF;
}

}  // namespace

void appendUdpPorts(std::vector<int>& ports) {
  std::ifstream table("/proc/thread-self/net/udp");
  if (!table) table.open("/proc/net/udp");
  if (!table) return;
  std::vector<std::pair<std::uint32_t, unsigned>> sockets;  // host-order address, port
  std::string line;
  std::getline(table, line);  // the column titles
  while (std::getline(table, line)) {
    std::uint32_t address = 0;
    unsigned port = 0;
    if (parseLocalEndpoint(line, address, port)) sockets.emplace_back(ntohl(address), port);
  }
  // The IP Helper's sorted order: local address, then local port.
  std::stable_sort(sockets.begin(), sockets.end());
  for (const auto& socket : sockets) ports.push_back(static_cast<int>(socket.second));
}

}  // namespace QIM::net
