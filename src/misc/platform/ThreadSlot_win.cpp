#include "platform/ThreadSlot.h"

#include <cstdlib>

#include "platform/Win32.h"

namespace QIM {
namespace detail {

namespace {
// Called by the system for each thread's non-null value when the thread
// ends (and for the main thread at process exit).
VOID WINAPI destroyValue(PVOID value) { delete static_cast<ThreadSlotValue*>(value); }
}  // namespace

ThreadSlot::ThreadSlot() {
  const DWORD key = ::FlsAlloc(destroyValue);
  // Without a slot the library cannot keep per-thread state at all.
  if (key == FLS_OUT_OF_INDEXES) std::abort();
  key_ = key;
}

ThreadSlotValue* ThreadSlot::get() const {
  return static_cast<ThreadSlotValue*>(::FlsGetValue(static_cast<DWORD>(key_)));
}

void ThreadSlot::set(ThreadSlotValue* value) { ::FlsSetValue(static_cast<DWORD>(key_), value); }

}  // namespace detail
}  // namespace QIM
