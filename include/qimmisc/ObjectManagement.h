// Object bookkeeping: live-object counting for leak reports at the last
// QIMMiscApi::exit, and the heap-checking scope marker.
#pragma once

#include <atomic>
#include <string>
#include <typeinfo>

#include "qimmisc/Export.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace detail {
/// Readable name of a type ("QIM::TimerScheduler"), demangled where the
/// compiler mangles run-time type names.
QIMMISC_API std::string typeName(const std::type_info& type);
}  // namespace detail

/// Counts the live objects of type T in one process-wide counter per type.
/// Use it as a base (class TimerScheduler : TCountedObject<TimerScheduler>)
/// or as a member. A type counted by a shared library declares its
/// instantiation exported (QIM_EXPORT_COUNTED_OBJECT), so the library and
/// its users read one counter; otherwise each module counts on its own.
template <class T>
class TCountedObject {
 public:
  TCountedObject() noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
  TCountedObject(const TCountedObject&) noexcept : TCountedObject() {}
  TCountedObject& operator=(const TCountedObject&) noexcept { return *this; }
  ~TCountedObject() { count_.fetch_sub(1, std::memory_order_relaxed); }

  /// Number of live objects of type T.
  static long liveCount() noexcept { return count_.load(std::memory_order_relaxed); }

  /// Reports live objects of T as an assertion ("count == 0") with their
  /// number and type name, and a back-trace. Frees nothing.
  static void objectCountSanity() {
    const long count = liveCount();
    QIM_ASSERT(count == 0,
               count << " undestroyed objects of type " << detail::typeName(typeid(T)));
  }

 private:
  static std::atomic<long> count_;
};

template <class T>
std::atomic<long> TCountedObject<T>::count_{0};

/// Declares the counter of `Type`, a class of this library, as the one the
/// library exports; put it before the class definition. The library
/// instantiates it in the class's source file with QIM_INSTANTIATE_COUNTED_OBJECT.
#define QIM_EXPORT_COUNTED_OBJECT(Type) \
  class Type;                           \
  extern template class QIMMISC_API ::QIM::TCountedObject<Type>

#define QIM_INSTANTIATE_COUNTED_OBJECT(Type) \
  template class ::QIM::TCountedObject<Type>

/// Marks a scope in which heap checking could be enabled; does nothing in
/// this build.
class QIMMISC_API AutoHeapChecker {
 public:
  AutoHeapChecker() noexcept {}
  ~AutoHeapChecker() {}
  AutoHeapChecker(const AutoHeapChecker&) = delete;
  AutoHeapChecker& operator=(const AutoHeapChecker&) = delete;
};

}  // namespace QIM
