// ActionQueue: a place to post work.
//
// A prioritised queue of Functor actions, executed one at a time, in order,
// on one thread. Higher priority values run first; within a priority,
// actions run in posting order. The base is abstract: a subclass decides
// which thread runs the actions and how that thread is woken (a worker
// thread, a window's message loop, an ACE reactor).
#pragma once

#include <ace/Thread_Mutex.h>

#include <atomic>
#include <climits>
#include <deque>
#include <map>

#include "qimmisc/Export.h"
#include "qimmisc/functor.h"

namespace QIM {

class QIMMISC_API ActionQueue {
 public:
  /// The priority of push_highPriority.
  static constexpr int HighPriority = 10;

  /// Destroys the queued actions without running them.
  virtual ~ActionQueue();
  ActionQueue(const ActionQueue&) = delete;
  ActionQueue& operator=(const ActionQueue&) = delete;

  /// Queues a copy of `action` at `priority`, remembers where it was posted
  /// (Functor::saveStackTrace) and wakes the executor (signal). Any thread.
  void push_back(const Functor& action, int priority);
  /// The same, taking `action` over instead of copying it.
  void push_back(Functor&& action, int priority);

  /// Queues `action` at priority 10, ahead of everything lower still
  /// waiting; it never interrupts the running action.
  virtual void push_highPriority(const Functor& action);

  /// With `priority` -1 the number of queued actions over all priorities,
  /// else the number at that priority (0 for one never used).
  int size(int priority);

  /// The id of the thread that executes the actions.
  virtual unsigned long tid() const = 0;

 protected:
  /// How posts reach the queue.
  enum class Posting {
    /// Under mutex_, then signal() with mutex_ held.
    Locked,
    /// Into an intake under a lock of its own (intakeMutex_), then signal()
    /// with that lock held: producers do not compete with the executor for
    /// mutex_, and the executor takes the intake over in one go. For an
    /// executor whose wake-up needs no mutex_ held.
    Intake,
  };

  explicit ActionQueue(Posting posting = Posting::Locked);

  /// Wakes the executor. Called by push_back once per post, with mutex_
  /// held, or with intakeMutex_ held for a queue posting through an intake.
  virtual void signal() = 0;

  /// Whether no action is queued, the intake included. The caller holds
  /// mutex_.
  bool empty() const { return count_ == 0 && intakeCount_.load() == 0; }

  /// Whether the intake holds posts the executor has not taken over yet.
  /// Any thread, no lock needed.
  bool intakePending() const { return intakeCount_.load(std::memory_order_acquire) != 0; }

  /// Removes and returns the oldest action of the highest priority holding
  /// one; an empty Functor when there is none. The caller holds mutex_.
  Functor pop_front();

  /// Destroys every queued action unrun, the intake's too, and forgets
  /// every priority. The caller holds mutex_.
  void clear();

  /// The step of every executor, once it holds mutex_ and has seen the
  /// queue non-empty: takes the next action (pop_front), releases mutex_,
  /// runs the action (runAction), destroys it and takes mutex_ back.
  /// An action may destroy the queue it runs on: `gone`, when given, is a
  /// flag of the caller's that the destructor then sets, and the step
  /// returns false without touching the object again (mutex_ not held).
  bool runNextAction(const bool* gone = nullptr);

  /// The same step for an action the caller took off a list of its own.
  bool runUnlocked(Functor action, const bool* gone = nullptr);

  /// Runs an action taken off the queue, without mutex_ held. An exception
  /// it throws is logged on ERROR and goes no further: it must not take the
  /// executing thread down, nor unwind through a message loop or reactor.
  static void runAction(Functor& action);

  /// Takes mutex_, trying briefly before sleeping on it: posts and pops
  /// hold it for a few dozen nanoseconds, far less than a sleep and
  /// wake-up on the OS lock costs either side.
  void acquireMutex() { acquire(mutex_); }

  /// Guards the queue; subclasses guard their own state with it too.
  mutable ACE_Thread_Mutex mutex_;
  /// Guards the intake; taken after mutex_, never before it. Held while
  /// signal() runs for a queue with an intake. The intake keeps to cache
  /// lines of its own (64 bytes on the processors of interest), so that
  /// producers filling it do not slow down the executor's mutex_ and lists.
  alignas(64) ACE_Thread_Mutex intakeMutex_;

 private:
  static void acquire(ACE_Thread_Mutex& mutex);

  // The lists by priority. A priority's list stays after it empties: the
  // next post at that priority then allocates nothing for the key.
  struct Lists {
    // The list of `priority`, created if needed. Posts come in runs of one
    // priority: the last list is remembered (map nodes stay put), which
    // skips the lookup.
    std::deque<Functor>& of(int priority);
    void clear();

    std::map<int, std::deque<Functor>> byPriority;
    std::deque<Functor>* last = nullptr;  // the list of lastPriority
    int lastPriority = 0;
  };

  // The highest priority holding an action, INT_MIN for none.
  int topPriority() const;
  // Moves the intake's posts into the queue, each after those of its
  // priority already there. The caller holds mutex_.
  void takeIntake();
  // Whether the next action to run may still be in the intake: an intake
  // post of a higher priority than every queued one runs first. The caller
  // holds mutex_.
  bool intakeGoesFirst() const;

  // Next to intakeMutex_, which guards them.
  Lists intake_;
  // Written under intakeMutex_. The count is read without it, to learn
  // whether there is anything to take over; the top, once the count has
  // been seen non-zero.
  std::atomic<std::size_t> intakeCount_{0};
  std::atomic<int> intakeTop_{INT_MIN};

  alignas(64) Lists queues_;
  std::size_t count_ = 0;
  const bool hasIntake_;
};

}  // namespace QIM
