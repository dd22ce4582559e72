#include <pthread.h>

#include <cstdlib>

#include "platform/ThreadSlot.h"

namespace QIM {
namespace detail {

namespace {
void destroyValue(void* value) { delete static_cast<ThreadSlotValue*>(value); }
}  // namespace

ThreadSlot::ThreadSlot() {
  pthread_key_t key;
  // Without a key the library cannot keep per-thread state at all.
  if (::pthread_key_create(&key, destroyValue) != 0) std::abort();
  key_ = static_cast<unsigned long>(key);
}

ThreadSlotValue* ThreadSlot::get() const {
  return static_cast<ThreadSlotValue*>(::pthread_getspecific(static_cast<pthread_key_t>(key_)));
}

void ThreadSlot::set(ThreadSlotValue* value) {
  ::pthread_setspecific(static_cast<pthread_key_t>(key_), value);
}

}  // namespace detail
}  // namespace QIM
