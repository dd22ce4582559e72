// The kernel's IPv4 address and routing tables, and a link's MTU, through
// rtnetlink, shaped as the IP Helper's rows.
#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <climits>
#include <vector>

#include "net/IpHlpSnapshot.h"
#include "net/RtNetlink.h"

namespace QIM::net {

namespace {

// The IP Helper's codes, so rows read the same on both systems.
constexpr std::uint16_t kAddressPrimary = 0x0001;     // MIB_IPADDR_PRIMARY
constexpr std::uint32_t kRouteDirect = 3;             // MIB_IPROUTE_TYPE_DIRECT
constexpr std::uint32_t kRouteIndirect = 4;           // MIB_IPROUTE_TYPE_INDIRECT
constexpr std::uint32_t kProtocolLocal = 2;           // MIB_IPPROTO_LOCAL
constexpr std::uint32_t kProtocolNetManagement = 3;   // MIB_IPPROTO_NETMGMT
// Linux reassembles up to the largest IPv4 datagram.
constexpr std::uint32_t kReassemblySize = 65535;

// A message's attributes by type, each checked to hold a 32-bit payload
// where one is read.
class Attributes {
 public:
  Attributes(const void* first, std::size_t bytes, unsigned maxType)
      : table_(maxType + 1, nullptr) {
    mnl_attr_parse_payload(first, bytes, &Attributes::keep, this);
  }

  bool has(unsigned type) const { return type < table_.size() && table_[type]; }

  // 0 when absent or too short.
  std::uint32_t u32(unsigned type) const {
    if (!has(type) || mnl_attr_validate(table_[type], MNL_TYPE_U32) < 0) return 0;
    return mnl_attr_get_u32(table_[type]);
  }

  const nlattr* get(unsigned type) const { return has(type) ? table_[type] : nullptr; }

 private:
  static int keep(const nlattr* attribute, void* data) {
    auto& table = static_cast<Attributes*>(data)->table_;
    const unsigned type = mnl_attr_get_type(attribute);
    if (type < table.size()) table[type] = attribute;
    return MNL_CB_OK;
  }

  std::vector<const nlattr*> table_;
};

// The family header of a message, or null when the message is too short.
template <class Header>
const Header* familyHeader(const nlmsghdr& message) {
  if (mnl_nlmsg_get_payload_len(&message) < sizeof(Header)) return nullptr;
  return static_cast<const Header*>(mnl_nlmsg_get_payload(&message));
}

template <class Header>
Attributes attributesOf(const nlmsghdr& message, unsigned maxType) {
  const void* first = mnl_nlmsg_get_payload_offset(&message, sizeof(Header));
  const std::size_t bytes = mnl_nlmsg_get_payload_len(&message) - MNL_ALIGN(sizeof(Header));
  return Attributes(first, bytes, maxType);
}

std::uint32_t prefixMask(unsigned length) {
  if (length == 0) return 0;
  if (length >= 32) return 0xFFFFFFFFu;
  return htonl(0xFFFFFFFFu << (32 - length));
}

void addAddress(const nlmsghdr& message, std::vector<IpHlpAddrTable::Row>& rows) {
  const auto* header = familyHeader<ifaddrmsg>(message);
  if (message.nlmsg_type != RTM_NEWADDR || !header || header->ifa_family != AF_INET) return;
  const Attributes attributes = attributesOf<ifaddrmsg>(message, IFA_MAX);
  // On a point-to-point link IFA_ADDRESS is the peer's; IFA_LOCAL is ours.
  const unsigned own = attributes.has(IFA_LOCAL) ? IFA_LOCAL : IFA_ADDRESS;
  IpHlpAddrTable::Row row;
  row.address = attributes.u32(own);
  row.interfaceIndex = header->ifa_index;
  row.mask = prefixMask(header->ifa_prefixlen);
  row.broadcastAddress = attributes.u32(IFA_BROADCAST);
  row.reassemblySize = kReassemblySize;
  row.type = (header->ifa_flags & IFA_F_SECONDARY) ? 0 : kAddressPrimary;
  rows.push_back(row);
}

// One row per next hop of a multipath route.
void addNextHops(const nlattr* multipath, IpHlpForwardTable::Row row,
                 std::vector<IpHlpForwardTable::Row>& rows) {
  const auto* hop = static_cast<const rtnexthop*>(mnl_attr_get_payload(multipath));
  std::size_t left = mnl_attr_get_payload_len(multipath);
  while (left >= sizeof(rtnexthop) && hop->rtnh_len >= sizeof(rtnexthop) &&
         hop->rtnh_len <= left) {
    const Attributes attributes(RTNH_DATA(hop),
                                hop->rtnh_len - RTNH_ALIGN(sizeof(rtnexthop)), RTA_MAX);
    row.nextHop = attributes.u32(RTA_GATEWAY);
    row.type = row.nextHop ? kRouteIndirect : kRouteDirect;
    row.interfaceIndex = static_cast<std::uint32_t>(hop->rtnh_ifindex);
    if (row.interfaceIndex != 0) rows.push_back(row);
    const std::size_t step = RTNH_ALIGN(hop->rtnh_len);
    if (step >= left) break;
    left -= step;
    hop = reinterpret_cast<const rtnexthop*>(reinterpret_cast<const char*>(hop) + step);
  }
}

void addRoute(const nlmsghdr& message, std::vector<IpHlpForwardTable::Row>& rows) {
  const auto* header = familyHeader<rtmsg>(message);
  if (message.nlmsg_type != RTM_NEWROUTE || !header || header->rtm_family != AF_INET) return;
  if (header->rtm_type != RTN_UNICAST && header->rtm_type != RTN_LOCAL) return;
  const Attributes attributes = attributesOf<rtmsg>(message, RTA_MAX);
  IpHlpForwardTable::Row row;
  row.destination = attributes.u32(RTA_DST);
  row.mask = prefixMask(header->rtm_dst_len);
  row.protocol = header->rtm_protocol == RTPROT_KERNEL ? kProtocolLocal : kProtocolNetManagement;
  row.metric1 = attributes.u32(RTA_PRIORITY);
  if (const nlattr* multipath = attributes.get(RTA_MULTIPATH)) {
    addNextHops(multipath, row, rows);
    return;
  }
  // A route without an output interface (blackhole-like, or through a
  // nexthop object) leads nowhere the tables can name.
  row.interfaceIndex = attributes.u32(RTA_OIF);
  if (row.interfaceIndex == 0) return;
  row.nextHop = attributes.u32(RTA_GATEWAY);
  row.type = row.nextHop ? kRouteIndirect : kRouteDirect;
  rows.push_back(row);
}

}  // namespace

std::vector<IpHlpAddrTable::Row> takeAddressRows() {
  ifaddrmsg request{};
  request.ifa_family = AF_INET;
  std::vector<IpHlpAddrTable::Row> rows;
  const int error = rtnetlinkRequest(RTM_GETADDR, true, &request, sizeof request,
                                     [&rows](const nlmsghdr& message) { addAddress(message, rows); });
  if (error != 0) rows.clear();
  return rows;
}

std::vector<IpHlpForwardTable::Row> takeRouteRows() {
  rtmsg request{};
  request.rtm_family = AF_INET;
  std::vector<IpHlpForwardTable::Row> rows;
  const int error = rtnetlinkRequest(RTM_GETROUTE, true, &request, sizeof request,
                                     [&rows](const nlmsghdr& message) { addRoute(message, rows); });
  if (error != 0) rows.clear();
  return rows;
}

unsigned long readInterfaceMtu(unsigned long interfaceIndex, unsigned long& mtu) {
  if (interfaceIndex == 0 || interfaceIndex > INT_MAX) return ENODEV;
  ifinfomsg request{};
  request.ifi_family = AF_UNSPEC;
  request.ifi_index = static_cast<int>(interfaceIndex);
  bool found = false;
  const int error = rtnetlinkRequest(RTM_GETLINK, false, &request, sizeof request,
                                     [&](const nlmsghdr& message) {
    if (message.nlmsg_type != RTM_NEWLINK || !familyHeader<ifinfomsg>(message)) return;
    const Attributes attributes = attributesOf<ifinfomsg>(message, IFLA_MAX);
    if (!attributes.has(IFLA_MTU)) return;
    mtu = attributes.u32(IFLA_MTU);
    found = true;
  });
  if (error != 0) return static_cast<unsigned long>(error);
  return found ? 0 : ENODATA;
}

}  // namespace QIM::net
