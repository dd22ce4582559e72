// The records behind TimerScheduler: a scheduled Timer, the process-wide
// list of pending timers by expiry (ExpiryList), and the set of timers one
// scheduler object owns (TimerSet). Neither container allocates per timer:
// the list is one array of entries (each timer keeps its place in it), the
// set one table of addresses; scheduling allocates the Timer alone, besides
// the arrays' occasional growth. None of them locks: the scheduler's mutex
// guards them all.
#pragma once

#include <ace/Time_Value.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "qimmisc/TimerScheduler.h"
#include "qimmisc/functor.h"

namespace QIM {

class ActionQueue;

// A scheduled timer; a plain record, its fields named as the assertion
// texts name them ("timer->queue->tid()", "timer->scheduler->timers_").
//
// Who frees a timer. While it is pending (in the ExpiryList) its scheduler
// owns it. Once posted, two parties may hold it: its scheduler's TimerSet
// (until the timer runs or is cancelled, or the scheduler goes) and the
// TimeoutExecutor in the queue (until the queue destroys that action, run
// or unrun). `claims` counts them; whichever lets go last deletes the timer.
// So a queue that drops the action unrun never leaves a dangling entry in
// the set, and a cancel after that still finds a live timer.
class Timer {
 public:
  Timer(const Functor& callerAction, ActionQueue* target, TimerScheduler::Impl* owner,
        bool isHighPriority)
      : action(callerAction),
        queue(target),
        scheduler(owner),
        highPriority(isHighPriority) {}
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  static constexpr std::size_t NotPending = static_cast<std::size_t>(-1);

  // Touched by the scheduler until the timer is posted, then only by the
  // executor that owns it.
  Functor action;
  ActionQueue* queue;
  // Null once the timer was cancelled after it was posted, or its scheduler
  // was destroyed: the posted action then discards it.
  TimerScheduler::Impl* scheduler;
  bool highPriority;
  std::atomic<int> claims{1};
  // Where the timer is in the ExpiryList's heap, which also holds its expiry
  // time; NotPending once taken out.
  std::size_t slot = NotPending;
};

namespace detail {

// Pending timers, earliest first; timers due at the same time in the order
// they were added. A binary heap in one array, with each timer's place kept
// in Timer::slot so that any timer comes out in O(log n): the array stays
// in the cache where a tree's nodes, spread over the heap, cost a cache miss
// per level on every insertion. A large array is freed only once the list
// is empty: shrinking it step by step as timers go would free and regrow
// large blocks, which costs more than the timers themselves.
class ExpiryList {
 public:
  bool empty() const { return entries_.empty(); }
  // The earliest timer and its expiry; the list must not be empty.
  Timer* front() const { return entries_.front().timer; }
  ACE_Time_Value frontExpiry() const;
  // Adds `timer`, due at `dueUs` (monotonic time in microseconds); whether
  // it became the earliest. May throw std::bad_alloc, leaving the list as it
  // was.
  bool insert(Timer* timer, std::int64_t dueUs);
  // Takes `timer`, which must be in the list, out of it.
  void erase(Timer* timer);
  // Whether `timer`, a live timer, is in the list.
  static bool contains(const Timer* timer) { return timer->slot != Timer::NotPending; }

 private:
  struct Entry {
    std::int64_t due;     // expiry in microseconds
    std::uint64_t order;  // when it was added, for equal expiries
    Timer* timer;
    bool operator<(const Entry& other) const {
      return due != other.due ? due < other.due : order < other.order;
    }
  };
  void siftUp(std::size_t slot, Entry entry);
  void siftDown(std::size_t slot, Entry entry);
  void put(std::size_t slot, const Entry& entry) {
    entries_[slot] = entry;
    entry.timer->slot = slot;
  }

  std::vector<Entry> entries_;
  std::uint64_t added_ = 0;
};

// The timers one scheduler object owns, looked up by address: a lookup
// compares addresses only, so an unknown, foreign or freed handle is safe to
// look for. An open-addressing hash table of pointers (linear probing, at
// most half full): a lookup reads one or two adjacent slots, where a chained
// table would follow links through other timers, each a cache miss. Like
// the ExpiryList's array, a large table is freed only once the set is empty.
class TimerSet {
 public:
  TimerSet() = default;
  TimerSet(const TimerSet&) = delete;
  TimerSet& operator=(const TimerSet&) = delete;

  bool empty() const { return size_ == 0; }
  // The listed timer at `timer`'s address, or null.
  Timer* find(const Timer* timer) const {
    if (size_ == 0) return nullptr;
    for (std::size_t i = home(timer);; i = (i + 1) & mask_) {
      if (slots_[i] == timer) return slots_[i];
      if (!slots_[i]) return nullptr;
    }
  }
  // Where a lookup of `timer` starts, or null while the set has no table.
  const void* slotFor(const Timer* timer) const {
    return slots_ ? &slots_[home(timer)] : nullptr;
  }
  // Adds `timer`, which must not be listed. May throw std::bad_alloc,
  // leaving the set as it was.
  void insert(Timer* timer);
  // Removes `timer`, which must be listed.
  void erase(const Timer* timer);
  // Empties the set, handing each timer to `take`.
  template <typename F>
  void drain(F take) {
    std::unique_ptr<Timer*[]> slots = std::move(slots_);
    const std::size_t capacity = size_ ? mask_ + 1 : 0;
    size_ = 0;
    mask_ = 0;
    for (std::size_t i = 0; i < capacity; ++i) {
      if (slots[i]) take(*slots[i]);
    }
  }

 private:
  static constexpr std::size_t MinCapacity = 8;
  std::size_t home(const Timer* timer) const {
    // Addresses differ mostly in their middle bits: mix them into the low.
    const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(timer));
    const std::uint64_t mixed = bits * 0x9E3779B97F4A7C15ull;
    return static_cast<std::size_t>(mixed >> 32) & mask_;
  }
  // Moves every timer into a table of `capacity` slots; false without memory.
  bool resize(std::size_t capacity);

  std::unique_ptr<Timer*[]> slots_;
  std::size_t mask_ = 0;  // capacity - 1, when there are slots
  std::size_t size_ = 0;
};

}  // namespace detail
}  // namespace QIM
