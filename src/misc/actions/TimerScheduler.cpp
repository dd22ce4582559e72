#include "qimmisc/TimerScheduler.h"

#include <ace/Condition_Attributes.h>
#include <ace/Condition_Thread_Mutex.h>
#include <ace/Guard_T.h>
#include <ace/Monotonic_Time_Policy.h>
#include <ace/OS_NS_string.h>
#include <ace/Thread_Mutex.h>
#include <ace/Time_Value_T.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "actions/ThreadChecker.h"
#include "actions/TimerList.h"
#include "diagnostics/NoDestructor.h"
#include "qimmisc/ThreadUtils.h"
#include "qimmisc/Trace.h"

// Locking protocol. One process-wide mutex guards the expiry list, every
// object's TimerSet, the instance count, the stop request and the hand-over
// record below. Nothing calls into an ActionQueue while holding it, neither
// to post nor to ask for its tid(): a queue may need another thread to get
// on (a reactor queue needs the reactor's lock, which the reactor's thread
// holds while it runs an action that schedules or cancels a timer, and so
// waits for this mutex).
//
// So the scheduler thread hands a due timer over in three steps: under the
// mutex it takes the timer out of the expiry list and records the hand-over
// (timer, queue, owner); without the mutex it posts; under the mutex again it
// clears the record. Meanwhile the timer is still listed by its scheduler, so
// a cancel, or the scheduler's destruction, only marks it (scheduler = null)
// and the executor discards it on the queue's thread: a cancelled timer never
// runs once cancel has returned there. What a destructor must not do is
// return while its timer is being posted, since its owner may then destroy
// the queue: it waits for the record to clear, unless it runs on that
// queue's own thread, which the post may be waiting for (and then the queue
// is evidently alive). The last destructor likewise waits for the thread to
// stop unless the thread is posting to the caller's own queue; then the
// thread leaves by itself after that post, and the next constructor joins it
// or, if it has not left yet, takes it back. cancel never waits: it belongs
// on the queue's thread, whose queue the post may be waiting for.

namespace QIM {

QIM_INSTANTIATE_COUNTED_OBJECT(TimerScheduler);

namespace detail {
// The absolute monotonic time to wait until for a timer expiring at
// `expiry`: later than `expiry` where the platform's timed wait would
// otherwise time out early (TimerScheduler_win.cpp, TimerScheduler_posix.cpp).
ACE_Time_Value timerWaitDeadline(const ACE_Time_Value& expiry);
}  // namespace detail

class TimerScheduler::Impl {
 public:
  // Timers this object scheduled that have neither run nor been cancelled,
  // pending or posted.
  detail::TimerSet timers_;
};

namespace {

// Everything the TimerScheduler objects of the process share. Never
// destroyed, so that a scheduler destroyed during static destruction, or the
// thread ending late, still finds it.
struct SchedulerState {
  SchedulerState()
      : wakeUp(mutex, monotonic), stopAcknowledged(mutex, monotonic), handedOver(mutex, monotonic) {}

  ACE_Thread_Mutex mutex;
  // Timed waits measure monotonic time, as the expiry times do.
  ACE_Condition_Attributes_T<ACE_Monotonic_Time_Policy> monotonic;
  ACE_Condition_Thread_Mutex wakeUp;
  ACE_Condition_Thread_Mutex stopAcknowledged;
  ACE_Condition_Thread_Mutex handedOver;
  detail::ExpiryList timers;
  int instances = 0;
  bool stop = false;
  // A destructor waits for the acknowledgement of its own stop request,
  // even if a new thread has been started and asked to stop since.
  unsigned long long stopsRequested = 0;
  unsigned long long stopsAcknowledged = 0;
  // Last destructors still deciding about, or waiting for, the stop.
  int stopWaiters = 0;
  // The running thread's handle, joined by the destructor that stops it.
  void* threadHandle = nullptr;
  // A stopping thread nobody waited for, joined by the next constructor.
  void* unjoinedThread = nullptr;

  // The timer the thread is posting, while it posts without the mutex.
  struct Handover {
    Timer* timer = nullptr;
    ActionQueue* queue = nullptr;
    const void* owner = nullptr;  // the timer's scheduler when posting began
    unsigned long long number = 0;
  } handover;
  int handoverWaiters = 0;
};

SchedulerState& state() {
  static detail::NoDestructor<SchedulerState> shared;
  return *shared;
}

int timerChannel() {
  static const int channel = DbgMsg::getChannelByName("TIMER");
  return channel;
}

void prefetch(const void* address) {
#if defined(__GNUC__)
  __builtin_prefetch(address);
#else
  static_cast<void>(address);
#endif
}

ACE_Time_Value monotonicNow() { return ACE_Monotonic_Time_Policy()(); }

std::int64_t microseconds(const ACE_Time_Value& time) {
  return static_cast<std::int64_t>(time.sec()) * 1000000 + time.usec();
}

// Lets go of one claim on `timer`; true when it was the last, and the
// caller must delete the timer.
bool releaseClaim(Timer* timer) {
  return timer->claims.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

// Takes the earliest timer out of the list and posts it to its queue. Called
// on the scheduler thread with `lock` held; posts without it.
void postEarliest(SchedulerState& st, ACE_Guard<ACE_Thread_Mutex>& lock) {
  Timer* const timer = st.timers.front();
  st.timers.erase(timer);
  timer->claims.fetch_add(1, std::memory_order_relaxed);  // the executor's
  ActionQueue* const queue = timer->queue;
  const bool highPriority = timer->highPriority;
  st.handover = {timer, queue, timer->scheduler, st.handover.number + 1};
  QIM_TRACE(timerChannel(), "queueing expired timer " << timer);
  lock.release();
  try {
    Functor fired = Functor::make<TimeoutExecutor>(timer);
    if (highPriority) {
      queue->push_highPriority(fired);
    } else {
      queue->push_back(std::move(fired), TimerScheduler::TimerPriority);
    }
  } catch (const std::bad_alloc&) {
    // As if the queue had dropped the action: it never runs, and the timer
    // stays listed until it is cancelled or its scheduler goes.
    QIM_ERROR("out of memory posting expired timer " << timer);
  }
  lock.acquire();
  st.handover.timer = nullptr;
  if (st.handoverWaiters > 0) st.handedOver.broadcast();
}

// The body of the thread "QIM::TimerScheduler". One timer is posted per
// turn; a timer already due is posted at once, without a timed wait for a
// past deadline (a trip through the kernel's timers, tens of microseconds,
// per timer when many fall due together).
void runScheduler() {
  QIM_ENTRY();
  SchedulerState& st = state();
  ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
  while (!st.stop) {
    int ret = 0;
    if (st.timers.empty()) {
      ret = st.wakeUp.wait();
    } else {
      const ACE_Time_Value expiry = st.timers.frontExpiry();
      if (expiry <= monotonicNow()) {
        postEarliest(st, lock);
        continue;
      }
      ACE_Time_Value_T<ACE_Monotonic_Time_Policy> deadline(detail::timerWaitDeadline(expiry));
      ret = st.wakeUp.wait(&deadline);
    }
    // Woken or timed out: the next turn looks at the earliest timer again,
    // which may have changed meanwhile.
    if (ret != -1) continue;
    const int err = errno;
    if (err == ETIME) continue;
    QIM_ASSERT(-1 != ret, "wait failed, errno=" << err << " -> " << ACE_OS::strerror(err));
  }
  st.stop = false;
  st.stopsAcknowledged = st.stopsRequested;
  st.stopAcknowledged.broadcast();
}

// Whether the caller runs on `queue`'s thread. Asked without the mutex.
bool onThreadOf(ACE_Guard<ACE_Thread_Mutex>& lock, ActionQueue* queue) {
  lock.release();
  const bool onIt = detail::isCurrentThread(queue->tid());
  lock.acquire();
  return onIt;
}

}  // namespace

TimerScheduler::TimerScheduler() : pimpl_(new Impl) {
  QIM_ENTRY();
  SchedulerState& st = state();
  void* stoppedThread = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
    if (++st.instances == 1) {
      if (st.stop && st.stopWaiters == 0) {
        // Nobody waits for the thread to stop: it simply carries on.
        st.stop = false;
        st.stopsAcknowledged = st.stopsRequested;
        st.threadHandle = std::exchange(st.unjoinedThread, nullptr);
        return;
      }
      // The previous last object may still be waiting for its thread.
      while (st.stop) st.stopAcknowledged.wait();
      stoppedThread = std::exchange(st.unjoinedThread, nullptr);
      try {
        createThread(makeFunctor(&runScheduler), "QIM::TimerScheduler", &st.threadHandle, 0);
      } catch (...) {
        --st.instances;
        st.unjoinedThread = stoppedThread;
        delete pimpl_;
        throw;
      }
    }
  }
  if (stoppedThread) joinThread(stoppedThread);
}

TimerScheduler::~TimerScheduler() {
  QIM_ENTRY();
  SchedulerState& st = state();
  std::vector<Timer*> unclaimed;
  void* stoppedThread = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
    const bool last = --st.instances == 0;
    unsigned long long ticket = 0;
    if (last) {
      st.stop = true;
      ticket = ++st.stopsRequested;
      stoppedThread = std::exchange(st.threadHandle, nullptr);
      ++st.stopWaiters;  // until this destructor has decided whether to wait
      st.wakeUp.signal();
    }
    // As in cancel, removing timers needs no wake-up of the thread.
    pimpl_->timers_.drain([&](Timer& timer) {
      if (st.timers.contains(&timer)) st.timers.erase(&timer);
      timer.scheduler = nullptr;  // a posted one is discarded by its queue
      if (releaseClaim(&timer)) unclaimed.push_back(&timer);
    });
    // See the locking protocol above.
    bool mayWait = true;
    while (st.handover.timer && (st.handover.owner == pimpl_ || last)) {
      const unsigned long long number = st.handover.number;
      if (onThreadOf(lock, st.handover.queue)) {
        mayWait = false;
        break;
      }
      ++st.handoverWaiters;
      while (st.handover.timer && st.handover.number == number) st.handedOver.wait();
      --st.handoverWaiters;
    }
    if (last) {
      if (mayWait) {
        while (st.stopsAcknowledged < ticket) st.stopAcknowledged.wait();
      } else {
        st.unjoinedThread = std::exchange(stoppedThread, nullptr);
      }
      --st.stopWaiters;
    }
  }
  // Actions are destroyed without the mutex: their destructors may use
  // timers themselves.
  for (Timer* timer : unclaimed) delete timer;
  // The thread no longer touches anything shared once it has acknowledged.
  if (stoppedThread) joinThread(stoppedThread);
  delete pimpl_;
}

Timer* TimerScheduler::schedule(const Functor& action, ActionQueue* queue,
                                const ACE_Time_Value& delay, bool highPriority) {
  QIM_ENTRY("queue=" << queue << " delay=" << delay.sec() << "s" << delay.usec()
                     << "us highPriority=" << highPriority);
  QIM_ASSERT(0!=queue);
  if (!queue) return nullptr;
  // Bounded both ways, so that adding it to the clock cannot overflow.
  const ACE_Time_Value longest(MaxDelaySeconds);
  const ACE_Time_Value shortest(-MaxDelaySeconds);
  const ACE_Time_Value bounded = delay > longest ? longest : delay < shortest ? shortest : delay;
  const std::int64_t dueUs = microseconds(monotonicNow()) + microseconds(bounded);
  auto timer = std::make_unique<Timer>(action, queue, pimpl_, highPriority);
  timer->action.saveStackTrace();

  SchedulerState& st = state();
  ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
  // The set's slot is fetched while the expiry list is updated.
  prefetch(pimpl_->timers_.slotFor(timer.get()));
  const bool earliest = st.timers.insert(timer.get(), dueUs);
  try {
    pimpl_->timers_.insert(timer.get());
  } catch (...) {
    st.timers.erase(timer.get());
    throw;
  }
  // The thread sleeps until the earliest expiry; only a new earliest timer
  // changes how long that is.
  if (earliest) st.wakeUp.signal();
  QIM_TRACE(timerChannel(), "scheduled timer " << timer.get());
  return timer.release();
}

void TimerScheduler::cancel(Timer* timer) {
  // The lookup below reads a slot of the set, then the timer: two cache
  // misses when timers are many. Fetching the timer now lets them overlap.
  // A prefetch never faults, whatever the handle points at.
  prefetch(timer);
  QIM_ENTRY("timer=" << timer);
  if (!timer) return;
  SchedulerState& st = state();
  ActionQueue* queue = nullptr;
  bool wasPending = false;
  bool unclaimed = false;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
    // An unknown handle may be dangling: only its address is used.
    if (pimpl_->timers_.find(timer)) {
      queue = timer->queue;
      pimpl_->timers_.erase(timer);
      timer->scheduler = nullptr;
      // No wake-up: a removal can only make the earliest expiry later, and
      // a thread that wakes for a timer no longer first just waits again.
      wasPending = st.timers.contains(timer);
      if (wasPending) st.timers.erase(timer);
      // A timer never posted has no other claim.
      unclaimed = wasPending || releaseClaim(timer);
    }
  }
  QIM_ASSERT_AS(queue, "it1 != pimpl_->timers_.end()", "trying to cancel unknown timer " << timer);
  if (!queue) return;
  // Asked of the queue without the mutex; the queue outlives the timer.
  QIM_ASSERT_ON_THREAD(queue->tid(), "ACE_OS::thr_equal(ACE_Thread::self(),timer->queue->tid())",
                       "self=" << ACE_Thread::self() << " tid=" << queue->tid());
  if (wasPending) {
    QIM_TRACE(timerChannel(), "canceling scheduled timer " << timer);
  } else {
    QIM_TRACE(timerChannel(), "canceling expired timer " << timer);
  }
  if (unclaimed) delete timer;  // its action's destructor runs without the mutex
}

TimeoutExecutor::~TimeoutExecutor() {
  if (!timer_) return;
  // The action leaves with the executor, run or not; nobody else touches it
  // once the timer has been posted.
  Functor().swap(timer_->action);
  if (releaseClaim(timer_)) delete timer_;
}

Functor::Executor* TimeoutExecutor::clone() const {
  return new TimeoutExecutor(std::exchange(timer_, nullptr));
}

Functor::Executor* TimeoutExecutor::cloneInto(void* storage, std::size_t size) const {
  if (size < sizeof(TimeoutExecutor)) return clone();
  return new (storage) TimeoutExecutor(std::exchange(timer_, nullptr));
}

Functor::Executor* TimeoutExecutor::moveInto(void* storage, std::size_t size) {
  return cloneInto(storage, size);
}

void TimeoutExecutor::execute() {
  Timer* const timer = timer_;
  QIM_ASSERT(0!=timer);
  if (!timer) return;
  SchedulerState& st = state();
  bool canceled = false;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
    canceled = timer->scheduler == nullptr;
    if (!canceled) {
      QIM_ASSERT_AS(!st.timers.contains(timer), "findTimeout(timer) == s_timers.end()");
      detail::TimerSet& owned = timer->scheduler->timers_;
      const bool listed = owned.find(timer) != nullptr;
      QIM_ASSERT_AS(listed,
                    "timer->scheduler->timers_.find(timer) != timer->scheduler->timers_.end()");
      if (listed) {
        owned.erase(timer);
        releaseClaim(timer);  // never the last: this executor holds one
      }
      timer->scheduler = nullptr;
    }
  }
  if (canceled) {
    QIM_TRACE(timerChannel(), "discarding canceled expired timer: " << timer);
    return;
  }
  QIM_TRACE(timerChannel(), "executing expired timer: " << timer);
  timer->action();
}

}  // namespace QIM
