#include "qimmisc/TimerScheduler.h"

#include <ace/Condition_Attributes.h>
#include <ace/Condition_Thread_Mutex.h>
#include <ace/Guard_T.h>
#include <ace/Monotonic_Time_Policy.h>
#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_string.h>
#include <ace/Thread.h>
#include <ace/Thread_Mutex.h>
#include <ace/Time_Value_T.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <utility>
#include <vector>

#include "qimmisc/ThreadUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {

QIM_INSTANTIATE_COUNTED_OBJECT(TimerScheduler);

namespace detail {
// The absolute monotonic time to wait until for a timer expiring at
// `expiry`: later than `expiry` where the platform's timed wait would
// otherwise time out early (TimerScheduler_win.cpp, TimerScheduler_posix.cpp).
ACE_Time_Value timerWaitDeadline(const ACE_Time_Value& expiry);
}  // namespace detail

namespace {
using TimerMap = std::multimap<ACE_Time_Value, Timer*>;
}  // namespace

// A scheduled timer; a plain record, its fields guarded by the process-wide
// mutex, except `action`, which only its current owner touches. The fields
// carry no trailing underscore so that the assertion texts read as they
// must ("timer->queue->tid()", "timer->scheduler->timers_").
//
// Who frees a timer. While it is pending (in s_timers) its scheduler owns
// it. Once posted, two parties may hold it: its scheduler's timers_ (until
// the timer runs or is cancelled, or the scheduler goes) and the
// TimeoutExecutor in the queue (until the queue destroys that action, run
// or unrun). `claims` counts them; whichever lets go last deletes the timer.
// So a queue that drops the action unrun never leaves a dangling entry in
// timers_, and a cancel after that still finds a live timer.
class Timer {
 public:
  Timer(const ACE_Time_Value& expiryTime, const Functor& callerAction, ActionQueue* target,
        TimerScheduler::Impl* owner, bool isHighPriority)
      : expiry(expiryTime),
        action(callerAction),
        queue(target),
        scheduler(owner),
        highPriority(isHighPriority) {}

  // Monotonic time at which the timer is due.
  ACE_Time_Value expiry;
  Functor action;
  ActionQueue* queue;
  // Null once the timer was cancelled after it was posted, or its scheduler
  // was destroyed: the posted action then discards it.
  TimerScheduler::Impl* scheduler;
  bool highPriority;

  // This timer's entry in s_timers, valid while `pending`.
  TimerMap::iterator position;
  bool pending = false;
  std::atomic<int> claims{1};
};

class TimerScheduler::Impl {
 public:
  // Timers this object scheduled that have neither run nor been cancelled,
  // pending or posted.
  std::set<Timer*> timers_;
};

namespace {

// Everything the TimerScheduler objects of the process share. Made on first
// use and never destroyed, so that a scheduler destroyed during static
// destruction, or the thread ending late, still finds it.
struct SchedulerState {
  SchedulerState() : wakeUp(mutex, monotonic), stopAcknowledged(mutex, monotonic) {}

  ACE_Thread_Mutex mutex;
  // Timed waits measure monotonic time, as the expiry times do.
  ACE_Condition_Attributes_T<ACE_Monotonic_Time_Policy> monotonic;
  ACE_Condition_Thread_Mutex wakeUp;
  ACE_Condition_Thread_Mutex stopAcknowledged;
  // Pending timers by expiry; equal expiries in scheduling order.
  TimerMap timers;
  int instances = 0;
  bool stop = false;
  // A destructor waits for the acknowledgement of its own stop request,
  // even if a new thread has been started and asked to stop since.
  unsigned long long stopsRequested = 0;
  unsigned long long stopsAcknowledged = 0;
  // The running thread's handle, joined by the destructor that stops it.
  void* threadHandle = nullptr;
};

SchedulerState& state() {
  static SchedulerState* const shared = new SchedulerState;
  return *shared;
}

int timerChannel() {
  static const int channel = DbgMsg::getChannelByName("TIMER");
  return channel;
}

ACE_Time_Value monotonicNow() { return ACE_Monotonic_Time_Policy()(); }

// Lets go of one claim on `timer`; true when it was the last, and the
// caller must delete the timer.
bool releaseClaim(Timer* timer) {
  return timer->claims.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

// Where `timer` is in s_timers, found by its expiry (not through its own
// bookkeeping), or s_timers.end(). Called with the mutex held.
TimerMap::iterator findTimeout(Timer* timer) {
  TimerMap& s_timers = state().timers;
  const auto range = s_timers.equal_range(timer->expiry);
  for (auto it = range.first; it != range.second; ++it) {
    if (it->second == timer) return it;
  }
  return s_timers.end();
}

// Takes the earliest timer out of s_timers and posts it to its queue.
// Called with the mutex held, on the scheduler thread.
void postEarliest() {
  TimerMap& s_timers = state().timers;
  Timer* const timer = s_timers.begin()->second;
  s_timers.erase(s_timers.begin());
  timer->pending = false;
  QIM_TRACE(timerChannel(), "queueing expired timer " << timer);
  try {
    auto* executor = new TimeoutExecutor(timer);
    timer->claims.fetch_add(1, std::memory_order_relaxed);  // the executor's
    Functor fired(executor);
    if (timer->highPriority) {
      timer->queue->push_highPriority(fired);
    } else {
      timer->queue->push_back(std::move(fired), TimerScheduler::TimerPriority);
    }
  } catch (const std::bad_alloc&) {
    // Handled as if the queue had dropped the action: it never runs, and
    // the timer stays listed until it is cancelled or its scheduler goes.
    QIM_ERROR("out of memory posting expired timer " << timer);
  }
}

// The body of the thread "QIM::TimerScheduler".
void runScheduler() {
  QIM_ENTRY();
  SchedulerState& st = state();
  TimerMap& s_timers = st.timers;
  ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
  while (!st.stop) {
    int ret = 0;
    Timer* waitedFor = nullptr;
    if (s_timers.empty()) {
      ret = st.wakeUp.wait();
    } else {
      waitedFor = s_timers.begin()->second;
      // A timer already due is posted without a wait: a timed wait for a
      // past deadline still costs a trip through the kernel's timers, tens
      // of microseconds per timer when many fall due together.
      if (waitedFor->expiry <= monotonicNow()) {
        postEarliest();
        continue;
      }
      ACE_Time_Value_T<ACE_Monotonic_Time_Policy> deadline(
          detail::timerWaitDeadline(waitedFor->expiry));
      ret = st.wakeUp.wait(&deadline);
    }
    if (ret != -1) continue;  // woken: re-evaluate
    const int err = errno;
    if (err == ETIME) {
      // One timer per turn. The earliest entry may have changed during the
      // wait (a cancel, an earlier timer, even a new timer at a freed
      // address), so post only the entry waited for, and only once it is
      // really due; otherwise the next turn sees to it.
      if (!s_timers.empty() && s_timers.begin()->second == waitedFor &&
          waitedFor->expiry <= monotonicNow()) {
        postEarliest();
      }
      continue;
    }
    QIM_ASSERT(-1 != ret, "wait failed, errno=" << err << " -> " << ACE_OS::strerror(err));
  }
  st.stop = false;
  ++st.stopsAcknowledged;
  st.stopAcknowledged.broadcast();
}

}  // namespace

TimerScheduler::TimerScheduler() : pimpl_(new Impl) {
  QIM_ENTRY();
  SchedulerState& st = state();
  ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
  if (++st.instances != 1) return;
  // The previous last object may still be waiting for its thread to stop.
  while (st.stop) st.stopAcknowledged.wait();
  try {
    createThread(makeFunctor(&runScheduler), "QIM::TimerScheduler", &st.threadHandle, 0);
  } catch (...) {
    --st.instances;
    delete pimpl_;
    throw;
  }
}

TimerScheduler::~TimerScheduler() {
  QIM_ENTRY();
  SchedulerState& st = state();
  TimerMap& s_timers = st.timers;
  std::vector<Timer*> unclaimed;
  void* stoppedThread = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
    if (--st.instances == 0) {
      st.stop = true;
      const unsigned long long ticket = ++st.stopsRequested;
      stoppedThread = std::exchange(st.threadHandle, nullptr);
      st.wakeUp.signal();
      while (st.stopsAcknowledged < ticket) st.stopAcknowledged.wait();
    }
    // As in cancel, removing timers needs no wake-up of the thread.
    std::set<Timer*>& timers = pimpl_->timers_;
    while (!timers.empty()) {
      Timer* const timer = *timers.begin();
      timers.erase(timers.begin());
      if (timer->pending) {
        s_timers.erase(timer->position);
        timer->pending = false;
      }
      timer->scheduler = nullptr;  // a posted one is discarded by its queue
      if (releaseClaim(timer)) unclaimed.push_back(timer);
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
  const ACE_Time_Value earliest(-MaxDelaySeconds);
  const ACE_Time_Value bounded = delay > longest ? longest : delay < earliest ? earliest : delay;
  auto timer = std::make_unique<Timer>(monotonicNow() + bounded, action, queue, pimpl_,
                                       highPriority);
  timer->action.saveStackTrace();

  SchedulerState& st = state();
  TimerMap& s_timers = st.timers;
  ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
  pimpl_->timers_.insert(timer.get());
  try {
    // A multimap inserts after the entries with an equal key.
    timer->position = s_timers.emplace(timer->expiry, timer.get());
  } catch (...) {
    pimpl_->timers_.erase(timer.get());
    throw;
  }
  timer->pending = true;
  // The thread sleeps until the earliest expiry; only a new earliest timer
  // changes how long that is.
  if (timer->position == s_timers.begin()) st.wakeUp.signal();
  QIM_TRACE(timerChannel(), "scheduled timer " << timer.get());
  return timer.release();
}

void TimerScheduler::cancel(Timer* timer) {
  QIM_ENTRY("timer=" << timer);
  if (!timer) return;
  SchedulerState& st = state();
  TimerMap& s_timers = st.timers;
  Timer* unclaimed = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
    const auto it1 = pimpl_->timers_.find(timer);
    // An unknown handle may be dangling: only its address is used.
    QIM_ASSERT(it1 != pimpl_->timers_.end(), "trying to cancel unknown timer " << timer);
    if (it1 == pimpl_->timers_.end()) return;
    QIM_ASSERT(ACE_OS::thr_equal(ACE_Thread::self(),timer->queue->tid()),
               "self=" << ACE_Thread::self() << " tid=" << timer->queue->tid());
    pimpl_->timers_.erase(it1);
    timer->scheduler = nullptr;
    if (timer->pending) {
      QIM_TRACE(timerChannel(), "canceling scheduled timer " << timer);
      // No wake-up: a removal can only make the earliest expiry later, and
      // a thread that wakes for a timer no longer first just waits again.
      s_timers.erase(timer->position);
      timer->pending = false;
    } else {
      QIM_TRACE(timerChannel(), "canceling expired timer " << timer);
    }
    if (releaseClaim(timer)) unclaimed = timer;
  }
  delete unclaimed;  // its action's destructor runs without the mutex
}

TimeoutExecutor::~TimeoutExecutor() {
  if (!timer_) return;
  // The action leaves with the executor, run or not; nobody else touches it
  // once the timer has been posted.
  Functor().swap(timer_->action);
  if (releaseClaim(timer_)) delete timer_;
}

Functor::Executor* TimeoutExecutor::clone() const {
  auto* copy = new TimeoutExecutor(timer_);
  timer_ = nullptr;
  return copy;
}

void TimeoutExecutor::execute() {
  Timer* const timer = timer_;
  QIM_ASSERT(0!=timer);
  if (!timer) return;
  SchedulerState& st = state();
  TimerMap& s_timers = st.timers;
  bool canceled = false;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(st.mutex);
    if (timer->scheduler == nullptr) {
      canceled = true;
    } else {
      QIM_ASSERT(findTimeout(timer) == s_timers.end());
      QIM_ASSERT(timer->scheduler->timers_.find(timer) != timer->scheduler->timers_.end());
      if (timer->scheduler->timers_.erase(timer) == 1) {
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
