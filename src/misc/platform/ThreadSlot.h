// A per-thread pointer whose object is destroyed when its thread ends, in
// every thread, including threads the C runtime did not start. The mingw
// runtime cannot be trusted with thread_local objects that have destructors
// in such threads (ACE's, the host's): its exit-time destructor list breaks
// when several of them end at once. Implemented with fiber-local storage on
// Windows and a pthread key elsewhere.
#pragma once

namespace QIM {
namespace detail {

/// What a ThreadSlot holds: destroyed through this base at thread exit.
class ThreadSlotValue {
 public:
  virtual ~ThreadSlotValue();
};

class ThreadSlot {
 public:
  ThreadSlot();
  ThreadSlot(const ThreadSlot&) = delete;
  ThreadSlot& operator=(const ThreadSlot&) = delete;

  /// The calling thread's value, or null.
  ThreadSlotValue* get() const;
  /// Sets the calling thread's value; the slot owns it from now on.
  void set(ThreadSlotValue* value);

 private:
  unsigned long key_;
};

/// The calling thread's T in `slot`, made on first use.
template <class T>
T& threadLocal(ThreadSlot& slot) {
  if (ThreadSlotValue* value = slot.get()) return *static_cast<T*>(value);
  T* made = new T;
  slot.set(made);
  return *made;
}

}  // namespace detail
}  // namespace QIM
