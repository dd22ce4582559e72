// ActionThread: an ActionQueue served by a worker thread of its own.
//
//   ActionThread worker;
//   worker.start("QIM::Presence");
//   worker.push_back(makeFunctor(this, &Presence::refresh), 0);
//   ...
//   worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
#pragma once

#include <ace/Condition_Thread_Mutex.h>

#include <atomic>
#include <string>

#include "qimmisc/ActionQueue.h"
#include "qimmisc/Export.h"

namespace QIM {

class QIMMISC_API ActionThread : public ActionQueue {
 public:
  /// How stop ends the worker.
  enum StopStyle {
    StopImmediate = 0,  ///< before its next action; the rest stays queued
    StopDrain = 1,      ///< once the queue is empty (any other value, too)
  };
  /// Whether stop waits for the worker to end.
  enum ReturnStyle {
    ReturnNoWait = 0,  ///< at once (any value but 1)
    ReturnWait = 1,    ///< once the worker has ended
  };
  enum State { Stopped = 0, Running = 1, StopWhenEmpty = 2, StopNow = 3 };

  ActionThread();
  /// Reports a worker that was not stopped ("Stopped == state_", "0 ==
  /// tid_"); such a worker is then stopped immediately and waited for, so
  /// that it never runs on a destroyed object. Destroyed by one of its own
  /// actions, the object cannot wait for its worker: the worker then leaves
  /// as soon as that action returns, without touching the object again.
  /// Queued actions are destroyed unrun.
  ~ActionThread() override;

  /// Starts the worker thread, named `name` for debuggers. Actions still
  /// queued from before run first. A start while not stopped is reported
  /// ("0==tid_", "Stopped==state_"): a worker still leaving after a stop is
  /// waited for first, so that two workers never serve the queue; a worker
  /// still running is left as it is.
  void start(const std::string& name);

  /// Asks the worker to end (see StopStyle); a drain is escalated by an
  /// immediate stop, never the reverse. With ReturnWait, returns once the
  /// worker has ended; the worker itself must not wait for its own end (it
  /// would hang, after a reported assertion).
  void stop(StopStyle stopStyle, ReturnStyle returnStyle);

  /// Destroys every queued action unrun; the running one is not affected.
  void flush();

  /// Sets the worker's scheduling priority (ACE_Thread::setprio); returns
  /// its result, -1 without a worker.
  int setThreadPriority(int priority);

  /// The worker's id, 0 when stopped.
  unsigned long tid() const override;

  /// The current state.
  State state() const;

 protected:
  void signal() override;

 private:
  void run();
  bool awaitWorkBriefly(unsigned seenWakeups) const;
  void sleepUntilWoken();
  void wakeWorker();
  // Waits until the worker present now, if any, has left its loop.
  // Called with mutex_ held.
  void awaitWorkerExit();

  // Broadcast by a leaving worker, for those waiting for it to end.
  ACE_Condition_Thread_Mutex cond_;
  unsigned long tid_ = 0;
  void* handle_ = nullptr;
  State state_ = Stopped;
  // Workers started and workers that have left: a waiter waits for the
  // worker of its own time, even if another has been started since.
  unsigned long long workersStarted_ = 0;
  unsigned long long workersLeft_ = 0;
  // The running worker's flag, set by the destructor when an action
  // destroys the object.
  bool* workerGone_ = nullptr;
  // An idle worker watches for posts (the intake's count) and for stops
  // (wakeups_, bumped under mutex_) for a short while, then sleeps on
  // postCond_, bound to intakeMutex_, which posts and stops broadcast
  // while sleeping_ (guarded by intakeMutex_) says it sleeps.
  ACE_Condition_Thread_Mutex postCond_;
  bool sleeping_ = false;
  std::atomic<unsigned> wakeups_{0};
  std::string name_;
};

}  // namespace QIM
