#include "actions/ThreadDetach.h"

#include <pthread.h>

#include <cstdint>

#include "qimmisc/Trace.h"

namespace QIM::detail {

namespace {

pthread_t threadOf(void* handle) {
  return static_cast<pthread_t>(reinterpret_cast<std::uintptr_t>(handle));
}

}  // namespace

bool tryJoinThread(void* handle) { return ::pthread_tryjoin_np(threadOf(handle), nullptr) == 0; }

void forgetThread(void* handle) { ::pthread_detach(threadOf(handle)); }

void watchForks(void (*prepare)(), void (*parent)(), void (*child)()) {
  if (const int rc = ::pthread_atfork(prepare, parent, child); rc != 0) {
    QIM_ERROR("pthread_atfork failed, error=" << rc);
  }
}

}  // namespace QIM::detail
