#include "actions/ThreadDetach.h"

#include <pthread.h>

#include <cstdint>

namespace QIM::detail {

bool tryJoinThread(void* handle) {
  const auto thread = static_cast<pthread_t>(reinterpret_cast<std::uintptr_t>(handle));
  return ::pthread_tryjoin_np(thread, nullptr) == 0;
}

}  // namespace QIM::detail
