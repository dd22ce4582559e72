// The trace channel of the network helpers' informational lines (errors go
// to ERROR as everywhere).
#pragma once

#include "qimmisc/DbgMsg.h"

namespace QIM::net {

/// The "NETWORK" channel, looked up once.
inline int networkChannel() {
  static const int channel = DbgMsg::getChannelByName("NETWORK");
  return channel;
}

}  // namespace QIM::net
