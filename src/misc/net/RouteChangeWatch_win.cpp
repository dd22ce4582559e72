// Winsock reports routing and address-list changes on a socket whose change
// requests are armed: with WSAEventSelect the report signals our event. A
// request reports once; the monitoring thread issues it again each pass.
#include "net/RouteChangeWatch.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <ace/Auto_Event.h>

#include "qimmisc/Trace.h"

namespace QIM::detail {

const int RouteChangeWatch::kWouldBlock = WSAEWOULDBLOCK;
const int RouteChangeWatch::kNotSupported = WSAEOPNOTSUPP;

namespace {

// The control codes as the Winsock headers define them.
constexpr DWORD kRoutingInterfaceChange = 0x88000015UL;
constexpr DWORD kAddressListChange = 0x28000017UL;
constexpr long kChangeEvents = FD_ROUTING_INTERFACE_CHANGE | FD_ADDRESS_LIST_CHANGE;
static_assert(kChangeEvents == 768, "the routing and address-list change events");

}  // namespace

struct RouteChangeWatch::Impl {
  bool winsock = false;
  SOCKET socket = INVALID_SOCKET;
  ACE_Auto_Event event;  // not signalled

  int control(DWORD code, void* input, DWORD inputSize) {
    if (socket == INVALID_SOCKET) return WSAENOTSOCK;
    DWORD returned = 0;
    // The socket is non-blocking (WSAEventSelect): the request is armed and
    // answers WSAEWOULDBLOCK; the change then signals the event.
    if (WSAIoctl(socket, code, input, inputSize, nullptr, 0, &returned, nullptr, nullptr) == 0) {
      return 0;
    }
    return WSAGetLastError();
  }
};

RouteChangeWatch::RouteChangeWatch() : impl_(new Impl) {
  WSADATA data;
  const int started = WSAStartup(MAKEWORD(2, 2), &data);
  if (started != 0) {
    QIM_ERROR("WSAStartup failed. error=" << started);
  } else {
    impl_->winsock = true;
  }
  impl_->socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (impl_->socket == INVALID_SOCKET) {
    QIM_ERROR("Failed to create the monitoring socket. WSAGetLastError=" << WSAGetLastError());
    return;
  }
  if (WSAEventSelect(impl_->socket, impl_->event.handle(), kChangeEvents) == SOCKET_ERROR) {
    QIM_ERROR("WSAEventSelect failed. WSAGetLastError=" << WSAGetLastError());
  }
}

RouteChangeWatch::~RouteChangeWatch() {
  if (impl_->socket != INVALID_SOCKET) closesocket(impl_->socket);
  if (impl_->winsock) WSACleanup();
  delete impl_;
}

int RouteChangeWatch::requestRoutingInterfaceChange(std::uint32_t address, std::uint16_t port) {
  sockaddr_in target{};  // the 16 bytes the request takes
  target.sin_family = AF_INET;
  target.sin_port = htons(port);
  target.sin_addr.s_addr = htonl(address);
  return impl_->control(kRoutingInterfaceChange, &target, sizeof target);
}

int RouteChangeWatch::requestAddressListChange() {
  return impl_->control(kAddressListChange, nullptr, 0);
}

void RouteChangeWatch::signal() { impl_->event.signal(); }

void RouteChangeWatch::wait(const ACE_Time_Value* timeout) {
  if (timeout) {
    impl_->event.wait(timeout, 0);
  } else {
    impl_->event.wait();
  }
  if (impl_->socket == INVALID_SOCKET) return;
  // Clears the socket's record of the reported changes.
  WSANETWORKEVENTS reported;
  WSAEnumNetworkEvents(impl_->socket, nullptr, &reported);
}

}  // namespace QIM::detail
