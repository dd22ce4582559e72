// TimerScheduler: one-shot timers whose actions run on the caller's queue.
//
// A timer runs a Functor once, after a delay, by posting it to an
// ActionQueue that the caller names; the action then runs on that queue's
// thread, never on the scheduler's. Every TimerScheduler object in the
// process shares one thread, "QIM::TimerScheduler", and one time-ordered
// list of pending timers; each object keeps only the timers it scheduled, so
// that it can cancel them and drops them all when it is destroyed.
//
//   class Reconnector {
//     explicit Reconnector(ActionQueue& myQueue) : queue_(myQueue) {}
//     void onAddressChange() {                    // on myQueue's thread
//       timers_.cancel(pending_);                 // null is fine
//       pending_ = timers_.schedule(makeFunctor(this, &Reconnector::settle),
//                                   &queue_, ACE_Time_Value(2), false);
//     }
//     void settle() { pending_ = nullptr; ... }   // on myQueue's thread
//     ActionQueue& queue_;
//     Timer* pending_ = nullptr;
//     TimerScheduler timers_;
//   };
//
// Clock. Expiry times are taken from the monotonic clock (ACE's monotonic
// time policy: CLOCK_MONOTONIC on Linux, the performance counter on
// Windows), not from the wall clock, so setting the system time neither
// fires pending timers early nor holds them back. A timer never fires before
// its delay has passed; how late it fires depends on the system's timer
// granularity and on how busy its queue is.
//
// Threads. schedule and the destructor may be called from any thread. cancel
// belongs on the thread of the timer's queue: the fired action runs there
// too, so a timer cancelled there never runs after cancel returns. A cancel
// from another thread is reported and still cancels, but the action may then
// already be running. The scheduler thread posts with no lock of its own
// held, so every kind of queue works, a reactor's included. The destructor
// returns only once no post of this object's timers is under way, unless
// it runs on the thread of the queue being posted to (a reactor's thread may
// be what the post waits for); cancel never waits for a post.
//
// Diagnostics. The scheduler's own trace lines ("scheduled timer ",
// "queueing expired timer ", "executing expired timer: ", "canceling
// scheduled timer ", "canceling expired timer ", "discarding canceled
// expired timer: ", each followed by the timer's address) are written on the
// channel "TIMER", which is closed unless opened (e.g. "+TIMER"). Misuse is
// reported on the ERROR channel as assertions, and execution goes on.
#pragma once

#include <ace/Time_Value.h>

#include <cstddef>

#include "qimmisc/ActionQueue.h"
#include "qimmisc/Export.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/functor.h"

namespace QIM {

/// A scheduled timer. Opaque: callers hold a Timer* only as a handle for
/// TimerScheduler::cancel and must never dereference it; it may already be
/// freed once the timer has run or been cancelled.
class Timer;

QIM_EXPORT_COUNTED_OBJECT(TimerScheduler);

/// Schedules one-shot timers on the process-wide scheduler thread.
class QIMMISC_API TimerScheduler : public TCountedObject<TimerScheduler> {
 public:
  /// The priority at which a fired timer is posted to its queue, unless it
  /// was scheduled as high-priority (then ActionQueue::push_highPriority).
  static constexpr int TimerPriority = 5;

  /// Longest delay honoured, about three years; a longer one (or a more
  /// negative one) is cut to it, so that no expiry time can overflow where
  /// ACE_Time_Value keeps 32-bit seconds (Windows). Note that there
  /// ACE_Time_Value::max_time itself reads as a negative time, so it is no
  /// way to say "never": do not schedule such a timer at all.
  static constexpr long MaxDelaySeconds = 100000000L;

  /// The first live object starts the shared thread "QIM::TimerScheduler";
  /// later ones reuse it. If the previous last object is still stopping the
  /// thread, waits until it has stopped and then starts a new one. When no
  /// thread can be made, createThread's std::bad_alloc reaches the caller.
  TimerScheduler();

  /// Frees this object's pending timers at once; its timers already posted
  /// to their queues are discarded unrun when their queue reaches them (or
  /// freed with the queue's actions). The last live object stops the shared
  /// thread and waits until it has stopped. Any thread.
  ~TimerScheduler();

  TimerScheduler(const TimerScheduler&) = delete;
  TimerScheduler& operator=(const TimerScheduler&) = delete;

  /// Runs `action` (a copy, remembering where it was scheduled) once on
  /// `queue`'s thread after `delay`: posted at TimerPriority, or by
  /// push_highPriority when `highPriority` is true. A zero or negative delay
  /// fires at the scheduler thread's next turn. Timers with the same expiry
  /// fire in the order they were scheduled. `queue` is not owned and must
  /// outlive the timer: until it ran, or this object was destroyed (or the
  /// timer cancelled, and the queue has then run what was posted to it). A
  /// null `queue` is reported ("0!=queue") and nothing
  /// is scheduled: null is returned. Any thread. Returns the timer's handle.
  Timer* schedule(const Functor& action, ActionQueue* queue, const ACE_Time_Value& delay,
                  bool highPriority);

  /// Cancels `timer`, a handle from this object's schedule: its action will
  /// not run, and a timer not yet due is freed at once (one already posted
  /// is discarded when its queue reaches it). Call it on the timer's queue's
  /// thread; another thread is reported and the cancellation goes ahead. A
  /// null `timer` is ignored; a timer of another object, or one that already
  /// ran or was cancelled, is reported ("trying to cancel unknown timer ")
  /// and left alone.
  void cancel(Timer* timer);

 private:
  friend class Timer;
  friend class TimeoutExecutor;
  class Impl;  // the timers this object scheduled
  Impl* pimpl_;
};

/// What a fired timer is posted as: an executor that owns one Timer and, on
/// execution, runs its action unless the timer was cancelled after it was
/// posted (then it logs "discarding canceled expired timer: " and does
/// nothing). Made only by the scheduler thread; exported because it travels
/// in Functors through the caller's queues. Cloning hands the timer over to
/// the clone, so exactly one executor owns a timer at any time.
class QIMMISC_API TimeoutExecutor : public Functor::Executor {
 public:
  /// Takes ownership of `timer`, which must have been posted by the
  /// scheduler thread; a null timer is reported on execution ("0!=timer").
  explicit TimeoutExecutor(Timer* timer) noexcept : timer_(timer) {}
  /// Releases the timer: frees it unless its scheduler still lists it (as
  /// when its queue destroys it unrun), in which case the scheduler frees it
  /// when the timer is cancelled or the scheduler destroyed.
  ~TimeoutExecutor() override;
  TimeoutExecutor(const TimeoutExecutor&) = delete;
  TimeoutExecutor& operator=(const TimeoutExecutor&) = delete;

  void execute() override;
  /// The clone takes the timer over; this executor is left without one.
  Functor::Executor* clone() const override;
  /// As clone, made in the Functor's own storage when it fits.
  Functor::Executor* cloneInto(void* storage, std::size_t size) const override;
  /// As cloneInto.
  Functor::Executor* moveInto(void* storage, std::size_t size) override;

 private:
  mutable Timer* timer_;
};

}  // namespace QIM
