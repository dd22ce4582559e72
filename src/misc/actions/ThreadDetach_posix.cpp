#include "actions/ThreadDetach.h"

#include <pthread.h>

#include <cstdint>

#include "qimmisc/Trace.h"

namespace QIM::detail {

void detachThread(void* handle) {
  const auto thread = static_cast<pthread_t>(reinterpret_cast<std::uintptr_t>(handle));
  if (const int rc = ::pthread_detach(thread); rc != 0) {
    QIM_ERROR("pthread_detach failed, error=" << rc);
  }
}

}  // namespace QIM::detail
