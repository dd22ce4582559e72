// Intrusive reference counting for objects shared between threads, such as
// objects handed to queued actions.
//
//   class Call : public SimpleRefCountedObject { ... };
//   Call* call = new Call;                  // count 1: the creator's reference
//   worker.push_back(makeFunctor(call, &Call::onTimer), 0);
//   call->addRef();                         // one more holder
//   if (call->release() == 0) delete call;  // the holder that sees 0 deletes
//
// Both classes delete nothing themselves: whoever sees the count reach 0
// deletes the object (a subclass exposes a public destructor, or a friend or
// member function deletes it).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "qimmisc/Export.h"

namespace QIM {

/// An intrusive, thread-safe reference count, 1 after construction.
class QIMMISC_API SimpleRefCountedObject {
 public:
  /// The count starts at 1: the creator holds the first reference.
  SimpleRefCountedObject() noexcept;
  /// A shared object has an identity: copies would share no count.
  SimpleRefCountedObject(const SimpleRefCountedObject&) = delete;
  SimpleRefCountedObject& operator=(const SimpleRefCountedObject&) = delete;

  /// Atomically increments the count; returns the new value.
  long addRef() noexcept;

  /// Atomically decrements the count; returns the new value. Never deletes
  /// the object. Releasing more often than referenced is not checked here:
  /// the count goes negative and shows in the destructor's trace line.
  long release() noexcept;

  /// The current count (a snapshot while other threads hold references).
  long count() const noexcept;

 protected:
  /// Writes "destroying refcounted object with refcount=" and the count
  /// (channel "REFCOUNT"); reports "count <= 1" when references are still
  /// held. Deleting at count 1 (never shared) or 0 (all released) is normal.
  virtual ~SimpleRefCountedObject();

 private:
  std::atomic<std::int32_t> count_;
};

namespace Net {

/// A reference-counted base for networking objects that also keeps a
/// process-wide registry of its live objects, for usage reports and a leak
/// check at shutdown.
///
/// The registry itself is thread-safe. The two reports read each live
/// object's run-time type, so call them while no NetworkRefCounted object
/// is being constructed or destroyed on another thread (as at shutdown):
/// an object half-way through construction or destruction has no stable
/// type to read.
class QIMMISC_API NetworkRefCounted : public SimpleRefCountedObject {
 public:
  /// Writes ">> NetworkRefCounted objects alive: " and their number on the
  /// "REFCOUNT" channel, then one line per live object, oldest first:
  /// "   NetworkRefCounted " and its run-time type name.
  static void logUsage();

  /// At shutdown: when objects are still alive, writes on the ERROR channel
  /// their number followed by " undestroyed NetworkRefCounted objects!",
  /// then one line per object as in logUsage. Writes nothing when none is
  /// alive. Frees nothing.
  static void shutdownSanityCheck();

  /// The number of live objects.
  static std::size_t liveCount();

 protected:
  /// Registers the object as alive.
  NetworkRefCounted();
  /// Unregisters the object.
  ~NetworkRefCounted() override;
};

}  // namespace Net
}  // namespace QIM
