#include "qimmisc/IpHlpUdpTable.h"

#include "net/IpHlpSnapshot.h"
#include "qimmisc/Trace.h"

namespace QIM {

IpHlpUdpTable::IpHlpUdpTable() {
  QIM_ENTRY();
  update();
}

void IpHlpUdpTable::update() {
  QIM_ENTRY();
  ports_.clear();
  net::appendUdpPorts(ports_);
}

}  // namespace QIM
