#include "qimmisc/ActionThread.h"

#include <ace/Guard_T.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include <exception>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

#include "qimmisc/ThreadUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {
constexpr int kSpinRounds = 256;  // half pauses, half yields: some 20 us

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  _mm_pause();
#endif
}
}  // namespace

ActionThread::ActionThread() : cond_(mutex_) {}

ActionThread::~ActionThread() {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  QIM_ASSERT(Stopped == state_);
  QIM_ASSERT(0 == tid_);
  const bool orphanWorker =
      state_ != Stopped && tid_ != 0 && !ACE_OS::thr_equal(ACE_Thread::self(), tid_);
  lock.release();
  if (orphanWorker) stop(StopImmediate, ReturnWait);
  lock.acquire();
  joinFinishedWorker();
  name_.clear();
}

void ActionThread::start(const std::string& name) {
  QIM_ENTRY("name=" << name);
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  QIM_ASSERT(0==tid_);
  QIM_ASSERT(Stopped==state_);
  joinFinishedWorker();
  name_ = name;
  try {
    tid_ = createThread(makeFunctor(this, &ActionThread::run), name_, &handle_, 0);
  } catch (const std::bad_alloc&) {
    tid_ = 0;  // logged by createThread; the queue waits for a later start
  }
  QIM_ASSERT(0!=tid_);
  state_ = Running;
}

void ActionThread::stop(StopStyle stopStyle, ReturnStyle returnStyle) {
  QIM_ENTRY("stop=" << static_cast<int>(stopStyle) << " return=" << static_cast<int>(returnStyle));
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  QIM_ASSERT(Stopped!=state_);
  posts_.fetch_add(1, std::memory_order_release);  // ends a worker's brief watch
  if (stopStyle == StopImmediate) {
    state_ = StopNow;
  } else if (state_ != StopNow) {
    state_ = StopWhenEmpty;
  }
  cond_.broadcast();
  if (returnStyle == ReturnWait) {
    QIM_ASSERT(!ACE_OS::thr_equal(ACE_Thread::self(),tid_));
    // Without a worker (never started, or its thread could not be made)
    // nothing would ever set Stopped: return instead of hanging.
    while (state_ != Stopped && tid_ != 0) cond_.wait();
    joinFinishedWorker();
  }
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

void ActionThread::signal() {
  QIM_ENTRY();
  posts_.fetch_add(1, std::memory_order_release);
  // Only the worker waits for work; a broadcast nobody waits for is a cost
  // on every post for nothing.
  if (workerWaiting_) cond_.broadcast();
}

// Under a steady stream of posts the next action usually arrives within
// microseconds of the queue running dry, while a sleep and wake-up on the
// condition variable costs a context switch on each side. So the worker
// watches for a post (or a stop) for a short, bounded while before it
// sleeps. Called without the mutex.
bool ActionThread::awaitPostBriefly(unsigned seenPosts) const {
  for (int i = 0; i < kSpinRounds; ++i) {
    if (posts_.load(std::memory_order_acquire) != seenPosts) return true;
    if (i < kSpinRounds / 2) {
      cpuRelax();
    } else {
      ACE_OS::thr_yield();
    }
  }
  return posts_.load(std::memory_order_acquire) != seenPosts;
}

// A worker that has left its loop (tid_ back to 0) no longer touches the
// object, so joining it under the mutex cannot deadlock. Called with mutex_
// held. The state is not the test: a stop reported on a stopped thread
// leaves it at a stop state with the last worker already gone.
void ActionThread::joinFinishedWorker() {
  if (!handle_ || tid_ != 0) return;
  joinThread(handle_);
  handle_ = nullptr;
}

void ActionThread::run() {
  ActionThread* const that = this;
  QIM_ENTRY();
  QIM_ASSERT(0!=that);
  // The thread was named by createThread with name_.
  that->mutex_.acquire();
  for (;;) {
    QIM_ASSERT(0 != that->tid_);
    QIM_ASSERT(ACE_OS::thr_equal(ACE_Thread::self(),that->tid_));
    QIM_ASSERT(Stopped != that->state_);
    if (that->state_ == StopNow) break;
    if (!that->empty()) {
      {
        Functor action = that->pop_front();
        that->mutex_.release();
        runAction(action);
      }
      that->mutex_.acquire();
      continue;
    }
    if (that->state_ == StopWhenEmpty) break;
    QIM_ASSERT(Running == that->state_);
    const unsigned seenPosts = that->posts_.load(std::memory_order_relaxed);
    that->mutex_.release();
    const bool posted = that->awaitPostBriefly(seenPosts);
    that->mutex_.acquire();
    if (posted || !that->empty() || that->state_ != Running) continue;
    that->workerWaiting_ = true;
    that->cond_.wait();
    that->workerWaiting_ = false;
  }
  that->mutex_.release();
  that->mutex_.acquire();
  that->state_ = Stopped;
  that->tid_ = 0;
  that->cond_.broadcast();
  that->mutex_.release();
}

}  // namespace QIM
