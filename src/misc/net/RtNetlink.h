// One rtnetlink request and its answers, over a socket of its own that
// lives only for the request (so it belongs to the calling thread's network
// namespace).
#pragma once

#include <linux/netlink.h>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace QIM::net {

/// Called once per answer message (the family header follows the netlink
/// header).
using RtNetlinkVisitor = std::function<void(const nlmsghdr&)>;

/// Sends a request of `type` whose body is `header` (`headerSize` bytes,
/// e.g. an rtmsg), as a dump when `dump`, and visits every answer message.
/// Returns 0, or the errno of the failure (the kernel's own for a refused
/// request).
int rtnetlinkRequest(std::uint16_t type, bool dump, const void* header, std::size_t headerSize,
                     const RtNetlinkVisitor& visit);

}  // namespace QIM::net
