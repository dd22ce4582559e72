#include <pthread.h>

#include "qimmisc/ThreadUtils.h"

namespace QIM {

void setThreadName(const std::string& name) {
  // The kernel keeps 15 bytes; cut on a UTF-8 character boundary.
  std::size_t len = name.size() < 15 ? name.size() : 15;
  if (len < name.size()) {
    while (len > 0 && (static_cast<unsigned char>(name[len]) & 0xC0) == 0x80) --len;
  }
  ::pthread_setname_np(::pthread_self(), name.substr(0, len).c_str());
}

}  // namespace QIM
