// rtnetlink requests through libmnl.
#include "net/RtNetlink.h"

#include <libmnl/libmnl.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace QIM::net {

namespace {

// Large enough for one datagram of a dump: the kernel fills up to 32 KiB
// (or a page, when larger) per read, and a smaller buffer truncates it.
constexpr std::size_t kReceiveBytes = 32768;

struct SocketCloser {
  void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
};
using Socket = std::unique_ptr<mnl_socket, SocketCloser>;

int visitMessage(const nlmsghdr* message, void* data) {
  (*static_cast<const RtNetlinkVisitor*>(data))(*message);
  return MNL_CB_OK;
}

int lastError() { return errno != 0 ? errno : EIO; }

}  // namespace

int rtnetlinkRequest(std::uint16_t type, bool dump, const void* header, std::size_t headerSize,
                     const RtNetlinkVisitor& visit) {
  static std::atomic<unsigned> sequence{1};
  Socket socket(mnl_socket_open(NETLINK_ROUTE));
  if (!socket) return lastError();
  if (mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) return lastError();

  std::vector<char> buffer(kReceiveBytes);
  nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
  request->nlmsg_type = type;
  request->nlmsg_flags = NLM_F_REQUEST | (dump ? NLM_F_DUMP : 0);
  request->nlmsg_seq = sequence.fetch_add(1, std::memory_order_relaxed);
  std::memcpy(mnl_nlmsg_put_extra_header(request, headerSize), header, headerSize);
  const unsigned seq = request->nlmsg_seq;
  const unsigned portId = mnl_socket_get_portid(socket.get());
  if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) return lastError();

  // A dump ends with NLMSG_DONE (MNL_CB_STOP); a single request with its one
  // answer.
  for (;;) {
    const ssize_t received = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
    if (received < 0) return lastError();
    errno = 0;
    const int result = mnl_cb_run(buffer.data(), static_cast<std::size_t>(received), seq, portId,
                                  visitMessage, const_cast<RtNetlinkVisitor*>(&visit));
    if (result == MNL_CB_ERROR) return lastError();
    if (result == MNL_CB_STOP || !dump) return 0;
  }
}

}  // namespace QIM::net
