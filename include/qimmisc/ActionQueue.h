// ActionQueue: a place to post work.
//
// A prioritised queue of Functor actions, executed one at a time, in order,
// on one thread. Higher priority values run first; within a priority,
// actions run in posting order. The base is abstract: a subclass decides
// which thread runs the actions and how that thread is woken (a worker
// thread, a window's message loop, an ACE reactor).
#pragma once

#include <ace/Thread_Mutex.h>

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
  /// (Functor::saveStackTrace) and wakes the executor. Any thread.
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
  ActionQueue();

  /// Wakes the executor. Called by push_back with mutex_ held.
  virtual void signal() = 0;

  /// Whether no action is queued. The caller holds mutex_.
  bool empty() const { return count_ == 0; }

  /// Removes and returns the oldest action of the highest priority holding
  /// one; an empty Functor when there is none. The caller holds mutex_.
  Functor pop_front();

  /// Destroys every queued action unrun and forgets every priority. The
  /// caller holds mutex_.
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
  void acquireMutex();

  /// Guards the queue; subclasses guard their own state with it too.
  mutable ACE_Thread_Mutex mutex_;

 private:
  // A priority's list stays after it empties: the next post at that
  // priority then allocates nothing for the key.
  std::map<int, std::deque<Functor>> queues_;
  std::size_t count_ = 0;
  std::deque<Functor>* lastList_ = nullptr;  // the list of lastPriority_
  int lastPriority_ = 0;
};

}  // namespace QIM
