// A process-wide object that is built on first use and never destroyed.
//
// Threads the library does not own (a host's, ACE's) may still log, post or
// schedule while the process runs its exit-time destructors, so the
// library's statics must outlive them all:
//
//   std::mutex& registryMutex() {
//     static NoDestructor<std::mutex> mutex;
//     return *mutex;
//   }
#pragma once

#include <new>
#include <utility>

namespace QIM::detail {

template <typename T>
class NoDestructor {
 public:
  template <typename... Args>
  explicit NoDestructor(Args&&... args) {
    new (storage_) T(std::forward<Args>(args)...);
  }
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;

  T* get() { return std::launder(reinterpret_cast<T*>(storage_)); }
  const T* get() const { return std::launder(reinterpret_cast<const T*>(storage_)); }
  T& operator*() { return *get(); }
  const T& operator*() const { return *get(); }
  T* operator->() { return get(); }
  const T* operator->() const { return get(); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace QIM::detail
