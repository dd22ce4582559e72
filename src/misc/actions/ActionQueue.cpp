#include "qimmisc/ActionQueue.h"

#include <ace/Guard_T.h>

#include <exception>

#include "actions/CpuRelax.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {
// Under a microsecond: several times what a post or a pop holds the lock,
// and little lost when the holder has been preempted on a busy machine.
constexpr int kLockSpins = 16;
}  // namespace

ActionQueue::ActionQueue() = default;

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
  acquireMutex();
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_, true, 1);  // releases it
  // Posts come in runs of one priority: remember its list (map nodes stay
  // put) and skip the lookup under the lock.
  if (!lastList_ || lastPriority_ != priority) {
    lastList_ = &queues_[priority];
    lastPriority_ = priority;
  }
  lastList_->push_back(std::move(action));
  ++count_;
  signal();
}

void ActionQueue::push_highPriority(const Functor& action) { push_back(action, HighPriority); }

int ActionQueue::size(int priority) {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  if (priority == -1) return static_cast<int>(count_);
  const auto it = queues_.find(priority);
  return it == queues_.end() ? 0 : static_cast<int>(it->second.size());
}

Functor ActionQueue::pop_front() {
  // One named result, so that it is built in the caller's place.
  Functor action;
  if (count_ == 0) return action;
  for (auto it = queues_.rbegin(); it != queues_.rend(); ++it) {
    std::deque<Functor>& list = it->second;
    if (list.empty()) continue;
    action = std::move(list.front());
    list.pop_front();
    --count_;
    break;
  }
  return action;
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

void ActionQueue::acquireMutex() {
  for (int i = 0; i < kLockSpins; ++i) {
    if (mutex_.tryacquire() == 0) return;
    detail::cpuRelax();
  }
  mutex_.acquire();
}

void ActionQueue::clear() {
  queues_.clear();
  lastList_ = nullptr;
  count_ = 0;
}

}  // namespace QIM
