// The kernel tells every socket of the netlink route family that joined its
// multicast groups about each route, address and link change, so one such
// socket takes the place of the Winsock change requests. An eventfd is the
// change event: poll waits on both.
#include "net/RouteChangeWatch.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>

#include "qimmisc/Trace.h"

namespace QIM::detail {

const int RouteChangeWatch::kWouldBlock = EWOULDBLOCK;
const int RouteChangeWatch::kNotSupported = EOPNOTSUPP;

namespace {

// Without an eventfd a signal is only seen by looking at the flag, so the
// wait then looks this often.
constexpr int kFlagPollMs = 50;

bool noNetlinkHere(int error) { return error == EAFNOSUPPORT || error == EPROTONOSUPPORT; }

}  // namespace

struct RouteChangeWatch::Impl {
  int netlink = -1;
  int openError = 0;  // why netlink is -1
  int wake = -1;
  std::atomic<bool> signalled{false};

  void openNetlink() {
    netlink = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (netlink < 0) {
      openError = errno;
      QIM_ERROR("Failed to create the netlink route socket. errno=" << openError);
      return;
    }
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_IPV4_ROUTE | RTMGRP_IPV4_IFADDR | RTMGRP_LINK;
    if (::bind(netlink, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
      openError = errno;
      QIM_ERROR("Failed to join the netlink route groups. errno=" << openError);
      closeNetlink();
    }
  }

  void closeNetlink() {
    if (netlink >= 0) ::close(netlink);
    netlink = -1;
  }

  // Reads every message queued so far; what they say does not matter, only
  // that something changed. A lost message (ENOBUFS) is a change as well.
  void drainNetlink() {
    alignas(nlmsghdr) char buffer[8192];
    for (;;) {
      if (::recv(netlink, buffer, sizeof buffer, MSG_DONTWAIT) >= 0) continue;
      const int error = errno;
      if (error == EINTR || error == ENOBUFS) continue;
      if (error == EAGAIN || error == EWOULDBLOCK) return;
      QIM_ERROR("Failed to read the netlink route socket. errno=" << error);
      openError = error;
      closeNetlink();  // opened again by the next request
      return;
    }
  }

  void drainWake() {
    std::uint64_t count = 0;
    while (::read(wake, &count, sizeof count) == sizeof count) {
    }
  }
};

RouteChangeWatch::RouteChangeWatch() : impl_(new Impl) {
  impl_->wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (impl_->wake < 0) QIM_ERROR("Failed to create the change event. errno=" << errno);
  impl_->openNetlink();
}

RouteChangeWatch::~RouteChangeWatch() {
  impl_->closeNetlink();
  if (impl_->wake >= 0) ::close(impl_->wake);
  delete impl_;
}

int RouteChangeWatch::requestRoutingInterfaceChange(std::uint32_t, std::uint16_t) {
  if (impl_->netlink >= 0) return 0;
  if (noNetlinkHere(impl_->openError)) return kNotSupported;
  impl_->openNetlink();
  if (impl_->netlink >= 0) return 0;
  return noNetlinkHere(impl_->openError) ? kNotSupported : impl_->openError;
}

int RouteChangeWatch::requestAddressListChange() {
  return impl_->netlink >= 0 ? 0 : impl_->openError;
}

void RouteChangeWatch::signal() {
  impl_->signalled.store(true);
  if (impl_->wake < 0) return;
  const std::uint64_t one = 1;
  if (::write(impl_->wake, &one, sizeof one) != sizeof one && errno != EAGAIN) {
    QIM_ERROR("Failed to signal the change event. errno=" << errno);
  }
}

void RouteChangeWatch::wait(const ACE_Time_Value* timeout) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline =
      timeout ? Clock::now() + std::chrono::milliseconds(timeout->msec()) : Clock::time_point::max();
  for (;;) {
    if (impl_->signalled.exchange(false)) return;
    int waitMs = -1;
    if (timeout) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) return;
      waitMs = static_cast<int>(std::min<long long>(left, 1000LL * 60 * 60));
    }
    if (impl_->wake < 0) waitMs = waitMs < 0 ? kFlagPollMs : std::min(waitMs, kFlagPollMs);
    pollfd fds[2];
    nfds_t count = 0;
    if (impl_->netlink >= 0) fds[count++] = pollfd{impl_->netlink, POLLIN, 0};
    if (impl_->wake >= 0) fds[count++] = pollfd{impl_->wake, POLLIN, 0};
    const int ready = ::poll(fds, count, waitMs);
    if (ready < 0) {
      if (errno == EINTR) continue;
      QIM_ERROR("Failed to wait for network changes. errno=" << errno);
      return;
    }
    if (impl_->wake >= 0 && (fds[count - 1].revents & POLLIN)) impl_->drainWake();
    if (impl_->netlink >= 0 && fds[0].revents != 0) {
      impl_->drainNetlink();
      return;
    }
  }
}

}  // namespace QIM::detail
