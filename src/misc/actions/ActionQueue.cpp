#include "qimmisc/ActionQueue.h"

#include <ace/Guard_T.h>

#include <climits>
#include <exception>
#include <iterator>
#include <utility>

#include "actions/CpuRelax.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {
// Under a microsecond: several times what a post or a pop holds the lock,
// and little lost when the holder has been preempted on a busy machine.
constexpr int kLockSpins = 16;
}  // namespace

ActionQueue::ActionQueue(Posting posting) : hasIntake_(posting == Posting::Intake) {}

ActionQueue::~ActionQueue() {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  clear();
}

void ActionQueue::push_back(const Functor& action, int priority) {
  push_back(Functor(action), priority);
}

void ActionQueue::push_back(Functor&& action, int priority) {
  // The posting trace is the caller's stack either way; taking it before
  // the lock keeps the lock short.
  action.saveStackTrace();
  if (hasIntake_) {
    acquire(intakeMutex_);
    ACE_Guard<ACE_Thread_Mutex> lock(intakeMutex_, true, 1);  // releases it
    intake_.of(priority).push_back(std::move(action));
    if (priority > intakeTop_.load(std::memory_order_relaxed)) {
      intakeTop_.store(priority, std::memory_order_relaxed);
    }
    intakeCount_.fetch_add(1, std::memory_order_release);
    // Still under the intake's lock: the executor cannot take this post
    // over, run it, and perhaps destroy the queue, before the wake-up has
    // finished with the object.
    signal();
    return;
  }
  acquireMutex();
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_, true, 1);  // releases it
  queues_.of(priority).push_back(std::move(action));
  ++count_;
  signal();
}

void ActionQueue::push_highPriority(const Functor& action) { push_back(action, HighPriority); }

int ActionQueue::size(int priority) {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  takeIntake();
  if (priority == -1) return static_cast<int>(count_);
  const auto it = queues_.byPriority.find(priority);
  return it == queues_.byPriority.end() ? 0 : static_cast<int>(it->second.size());
}

Functor ActionQueue::pop_front() {
  if (intakeGoesFirst()) takeIntake();
  // One named result, so that it is built in the caller's place.
  Functor action;
  if (count_ == 0) return action;
  for (auto it = queues_.byPriority.rbegin(); it != queues_.byPriority.rend(); ++it) {
    std::deque<Functor>& list = it->second;
    if (list.empty()) continue;
    action = std::move(list.front());
    list.pop_front();
    --count_;
    break;
  }
  return action;
}

int ActionQueue::topPriority() const {
  if (count_ != 0) {
    for (auto it = queues_.byPriority.rbegin(); it != queues_.byPriority.rend(); ++it) {
      if (!it->second.empty()) return it->first;
    }
  }
  return INT_MIN;
}

// Taking the intake over costs the executor the intake's lock, which the
// producers want too; so while queued actions of at least the intake's
// highest priority remain, they run first and the intake keeps filling:
// the order is the same either way.
bool ActionQueue::intakeGoesFirst() const {
  // The top was written before the count that was seen (acquire).
  return intakePending() &&
         (count_ == 0 || intakeTop_.load(std::memory_order_relaxed) > topPriority());
}

void ActionQueue::takeIntake() {
  if (!intakePending()) return;
  ACE_Guard<ACE_Thread_Mutex> lock(intakeMutex_);
  for (auto& [priority, posted] : intake_.byPriority) {
    if (posted.empty()) continue;
    std::deque<Functor>& list = queues_.of(priority);
    if (list.empty()) {
      list.swap(posted);  // the usual case: nothing moves
    } else {
      std::move(posted.begin(), posted.end(), std::back_inserter(list));
      posted.clear();
    }
  }
  count_ += intakeCount_.exchange(0);
  intakeTop_.store(INT_MIN, std::memory_order_relaxed);
}

bool ActionQueue::runNextAction(const bool* gone) { return runUnlocked(pop_front(), gone); }

bool ActionQueue::runUnlocked(Functor action, const bool* gone) {
  mutex_.release();
  runAction(action);
  // Destroyed before the lock is taken back: its destruction may post to
  // this queue, or destroy the queue itself.
  action = Functor();
  if (gone && *gone) return false;
  acquireMutex();
  return true;
}

void ActionQueue::runAction(Functor& action) {
  try {
    action();
  } catch (const std::exception& e) {
    QIM_ERROR("action threw an exception: " << e.what());
  } catch (...) {
    QIM_ERROR("action threw an exception of unknown type");
  }
}

void ActionQueue::acquire(ACE_Thread_Mutex& mutex) {
  for (int i = 0; i < kLockSpins; ++i) {
    if (mutex.tryacquire() == 0) return;
    detail::cpuRelax();
  }
  mutex.acquire();
}

void ActionQueue::clear() {
  queues_.clear();
  count_ = 0;
  if (!hasIntake_) return;
  ACE_Guard<ACE_Thread_Mutex> lock(intakeMutex_);
  intake_.clear();
  intakeCount_.store(0);
  intakeTop_.store(INT_MIN, std::memory_order_relaxed);
}

std::deque<Functor>& ActionQueue::Lists::of(int priority) {
  if (!last || lastPriority != priority) {
    last = &byPriority[priority];
    lastPriority = priority;
  }
  return *last;
}

void ActionQueue::Lists::clear() {
  byPriority.clear();
  last = nullptr;
}

}  // namespace QIM
