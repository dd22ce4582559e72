#include "qimmisc/ActionThread.h"

#include <ace/Guard_T.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include <new>
#include <utility>

#include "actions/CpuRelax.h"
#include "actions/ThreadChecker.h"
#include "actions/ThreadDetach.h"
#include "qimmisc/ThreadUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {
// A few microseconds: long enough to catch the next post of a steady
// stream, short enough that an idle worker soon sleeps. A worker that
// spins, or yields, on a busy machine uses up its share of the processor
// and then waits a whole time slice for its next turn, while one that
// sleeps is run at once when woken.
constexpr int kWatchRounds = 128;
}  // namespace

ActionThread::ActionThread()
    : ActionQueue(Posting::Intake), cond_(mutex_), postCond_(intakeMutex_) {}

ActionThread::~ActionThread() {
  void* worker = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    QIM_ASSERT(Stopped == state_);
    QIM_ASSERT(0 == tid_);
    if (tid_ != 0 && detail::isCurrentThread(tid_)) {
      // Destroyed by one of its own actions: the worker cannot wait for
      // itself. It sees its flag once the action returns and leaves
      // without touching the object; nobody is left to join it.
      if (workerGone_) *workerGone_ = true;
      detail::detachThread(std::exchange(handle_, nullptr));
    } else if (tid_ != 0) {
      state_ = StopNow;
      wakeWorker();
      awaitWorkerExit();
    }
    worker = std::exchange(handle_, nullptr);
    name_.clear();
  }
  if (worker) joinThread(worker);
}

void ActionThread::start(const std::string& name) {
  QIM_ENTRY("name=" << name);
  void* previous = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    QIM_ASSERT(0==tid_);
    QIM_ASSERT(Stopped==state_);
    if (tid_ != 0) {
      // A running worker goes on serving; one leaving after a stop is
      // waited for, unless this is that worker itself.
      if (state_ == Running || detail::isCurrentThread(tid_)) return;
      awaitWorkerExit();
      if (tid_ != 0) return;  // another start got there first
    }
    previous = std::exchange(handle_, nullptr);
    name_ = name;
    try {
      tid_ = createThread(makeFunctor(this, &ActionThread::run), name_, &handle_, 0);
    } catch (const std::bad_alloc&) {
      tid_ = 0;  // logged by createThread; the queue waits for a later start
    }
    QIM_ASSERT(0!=tid_);
    if (tid_ != 0) ++workersStarted_;
    state_ = Running;
  }
  // Joined without the mutex: a thread is never joined while holding a
  // lock that someone else may need to make progress.
  if (previous) joinThread(previous);
}

void ActionThread::stop(StopStyle stopStyle, ReturnStyle returnStyle) {
  QIM_ENTRY("stop=" << static_cast<int>(stopStyle) << " return=" << static_cast<int>(returnStyle));
  void* finished = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    QIM_ASSERT(Stopped!=state_);
    if (stopStyle == StopImmediate) {
      state_ = StopNow;
    } else if (state_ != StopNow) {
      state_ = StopWhenEmpty;
    }
    wakeWorker();
    if (returnStyle != ReturnWait) return;
    QIM_ASSERT_AS(!detail::isCurrentThread(tid_), "!ACE_OS::thr_equal(ACE_Thread::self(),tid_)");
    awaitWorkerExit();
    finished = std::exchange(handle_, nullptr);
  }
  if (finished) joinThread(finished);
}

void ActionThread::awaitWorkerExit() {
  const unsigned long long worker = workersStarted_;
  while (workersLeft_ < worker) cond_.wait();
}

void ActionThread::flush() {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  clear();
}

int ActionThread::setThreadPriority(int priority) {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  if (!handle_) return -1;
  return ACE_Thread::setprio(reinterpret_cast<ACE_hthread_t>(handle_), priority);
}

unsigned long ActionThread::tid() const {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  return tid_;
}

ActionThread::State ActionThread::state() const {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  return state_;
}

// Called under intakeMutex_, which a worker holds from its last look at
// the intake until it sleeps on postCond_: a post either is seen by that
// look or finds sleeping_ set and wakes it. A busy or watching worker
// finds the post by itself, at no cost to the producer.
void ActionThread::signal() {
  QIM_ENTRY();
  if (sleeping_) postCond_.broadcast();
}

// Called with mutex_ held, after a change of state_.
void ActionThread::wakeWorker() {
  cond_.broadcast();
  wakeups_.fetch_add(1, std::memory_order_release);
  ACE_Guard<ACE_Thread_Mutex> lock(intakeMutex_);
  if (sleeping_) postCond_.broadcast();
}

// Under a steady stream of posts the next action usually arrives within
// microseconds of the queue running dry, while a sleep and wake-up costs a
// context switch on each side. So the worker watches for a post (or a
// stop) for a short, bounded while before it sleeps. Called without a lock.
bool ActionThread::awaitWorkBriefly(unsigned seenWakeups) const {
  for (int i = 0; i <= kWatchRounds; ++i) {
    if (intakePending() || wakeups_.load(std::memory_order_acquire) != seenWakeups) return true;
    detail::cpuRelax();
  }
  return false;
}

// Sleeps until a post or a stop. Called and returns with mutex_ held; the
// state was seen Running and the queue empty under it. A stop changes the
// state under mutex_ and then takes intakeMutex_ to wake: mutex_ is let go
// only once intakeMutex_ is held, so neither a post nor a stop can slip
// in between the look and the sleep.
void ActionThread::sleepUntilWoken() {
  intakeMutex_.acquire();
  if (intakePending()) {
    intakeMutex_.release();
    return;
  }
  sleeping_ = true;
  mutex_.release();
  postCond_.wait();  // spurious wake-ups are harmless: the loop looks again
  sleeping_ = false;
  intakeMutex_.release();
  acquireMutex();
}

void ActionThread::run() {
  ActionThread* const that = this;
  QIM_ENTRY();
  QIM_ASSERT(0!=that);
  // The thread was named by createThread with name_.
  bool gone = false;  // set by the destructor, run by one of our actions
  that->acquireMutex();
  that->workerGone_ = &gone;
  for (;;) {
    QIM_ASSERT(0 != that->tid_);
    QIM_ASSERT_ON_THREAD(that->tid_, "ACE_OS::thr_equal(ACE_Thread::self(),that->tid_)");
    QIM_ASSERT(Stopped != that->state_);
    if (that->state_ == StopNow) break;
    if (!that->empty()) {
      if (!that->runNextAction(&gone)) return;  // the object is gone
      continue;
    }
    if (that->state_ == StopWhenEmpty) break;
    QIM_ASSERT(Running == that->state_);
    const unsigned seenWakeups = that->wakeups_.load(std::memory_order_relaxed);
    that->mutex_.release();
    const bool woken = that->awaitWorkBriefly(seenWakeups);
    that->acquireMutex();
    if (woken || !that->empty() || that->state_ != Running) continue;
    that->sleepUntilWoken();
  }
  that->workerGone_ = nullptr;
  that->state_ = Stopped;
  that->tid_ = 0;
  ++that->workersLeft_;
  that->cond_.broadcast();
  that->mutex_.release();
}

}  // namespace QIM
