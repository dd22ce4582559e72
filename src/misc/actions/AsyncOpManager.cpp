#include "qimmisc/AsyncOpManager.h"

#include <ace/Guard_T.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "actions/ThreadChecker.h"
#include "actions/ThreadDetach.h"
#include "qimmisc/ThreadUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {

QIM_INSTANTIATE_COUNTED_OBJECT(AsyncOpManager);

namespace {

// Numbers the operation threads of the whole process: AOM-1, AOM-2, ...
std::atomic<unsigned long> operationThreadCount{0};

// The states of a handed-over operation.
enum HandoffState : int { Reserved, Claimed, Dropped };

unsigned long currentThread() { return static_cast<unsigned long>(ACE_Thread::self()); }

template <class List>
auto findThread(List& threads, unsigned long tid) {
  return std::find_if(threads.begin(), threads.end(), [tid](const auto& op) {
    return ACE_OS::thr_equal(static_cast<ACE_thread_t>(op.tid), static_cast<ACE_thread_t>(tid));
  });
}

}  // namespace

struct AsyncOpManager::PostsInFlight {
  void begin() {
    std::lock_guard<std::mutex> lock(mutex);
    ++count;
  }
  void end() {
    std::lock_guard<std::mutex> lock(mutex);
    if (--count == 0) idle.notify_all();
  }
  void waitIdle() {
    std::unique_lock<std::mutex> lock(mutex);
    idle.wait(lock, [this] { return count == 0; });
  }
  std::mutex mutex;
  std::condition_variable idle;
  int count = 0;
};

AsyncOpManager::AsyncOpManager(ActionQueue& queue, unsigned int maxThreads)
    : queue_(queue),
      queueThread_(std::make_unique<detail::ThreadChecker>()),
      posts_(std::make_shared<PostsInFlight>()),
      cond_(mutex_),
      maxThreads_(maxThreads) {
  QIM_ENTRY("maxThreads=" << maxThreads);
}

AsyncOpManager::~AsyncOpManager() {
  QIM_ENTRY();
  std::list<Functor> dropped;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    QIM_ASSERT(threads_.empty());
    QIM_ASSERT(!terminating_);
    // Operations still running would report to a destroyed manager, and
    // posted results would reach one: wait and cancel as terminate does.
    if (!terminating_) terminateLocked(dropped);
  }
  if (!detail::isCurrentThread(queue_.tid())) posts_->waitIdle();
}

void AsyncOpManager::startOp(const Functor& op) {
  QIM_ENTRY();
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  QIM_ASSERT(!terminating_);
  QIM_ASSERT(!op.empty());
  if (op.empty()) return;
  if (pending_.empty() && hasFreeSlotLocked()) {
    startLocked(op);
  } else {
    pending_.push_back(op);
  }
}

bool AsyncOpManager::reportResult(const Functor& result) {
  QIM_ENTRY();
  auto canceled = std::make_shared<std::atomic<bool>>(false);
  std::shared_ptr<std::atomic<int>> handedOff;
  // Copied under the mutex: once it is released the manager may be
  // terminated and destroyed (see Posting in the header).
  ActionQueue* queue = nullptr;
  std::shared_ptr<PostsInFlight> posts;
  AsyncOpManager* const that = this;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    auto it = findThread(threads_, currentThread());
    QIM_ASSERT(it!=threads_.end());
    if (it != threads_.end()) {
      it->reported->store(true);
      releaseLocked(it);
    }
    if (terminating_) {
      if (idleLocked()) cond_.broadcast();
      return false;
    }
    cancelers_.insert(canceled);
    queue = &queue_;
    posts = posts_;
    posts->begin();
    handedOff = handOffLocked();
  }
  queue->push_back(makeFunctor([canceled, that, result = Functor(result)]() mutable {
                    resultReporter(canceled, that, result);
                  }),
                  ResultPriority);
  posts->end();
  if (handedOff) startHandedOff(that, handedOff);
  return true;
}

void AsyncOpManager::terminate() {
  QIM_ENTRY();
  std::list<Functor> dropped;  // destroyed after the mutex: captures may lock
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  QIM_ASSERT_AS(queueThread_->check(),
                "!haveQueueTid_ || ACE_OS::thr_equal(queueTid_, ACE_Thread::self())");
  const bool byOwnOperation = findThread(threads_, currentThread()) != threads_.end();
  QIM_ASSERT(!byOwnOperation, "terminate by a running operation would wait for itself");
  if (byOwnOperation) return;
  terminateLocked(dropped);
}

bool AsyncOpManager::hasFreeSlotLocked() const {
  return maxThreads_ == 0 || threads_.size() + handoffs_.size() < maxThreads_;
}

void AsyncOpManager::startLocked(const Functor& op) {
  const unsigned long number = operationThreadCount.fetch_add(1) + 1;
  auto reported = std::make_shared<std::atomic<bool>>(false);
  AsyncOpManager* const that = this;
  // The body reads `reported` before it touches the manager again: once the
  // operation has reported, the manager may already be gone.
  Functor body = makeFunctor([that, op = Functor(op), reported]() mutable {
    bool threw = false;
    try {
      op();
    } catch (const std::exception& e) {
      threw = true;
      QIM_ERROR("operation threw an exception: " << e.what());
    } catch (...) {
      threw = true;
      QIM_ERROR("operation threw an exception of unknown type");
    }
    if (reported->load()) return;
    if (threw) {
      that->abandon(currentThread());
    } else {
      QIM_ERROR("operation returned without reporting a result; it keeps its slot");
    }
  });
  // Registered before the mutex is released, so the operation cannot report
  // before it is known.
  void* handle = nullptr;
  const unsigned long tid = createThread(body, "AOM-" + std::to_string(number), &handle, 0);
  threads_.push_back(RunningOp{tid, std::move(reported), handle});
}

void AsyncOpManager::releaseLocked(std::list<RunningOp>::iterator it) {
  // Not joined here: a thread may still be posting its result when terminate
  // returns, so joining it could deadlock (see Posting in the header). The
  // library joins it once it has ended, at the latest when the process exits.
  detail::detachThread(it->handle);
  threads_.erase(it);
}

void AsyncOpManager::startPendingLocked() {
  while (!pending_.empty() && hasFreeSlotLocked()) {
    Functor next = std::move(pending_.front());
    pending_.pop_front();
    try {
      startLocked(next);
    } catch (const std::bad_alloc&) {
      // Nobody is there to tell: the reporting operation has finished.
      QIM_ERROR("no thread for a waiting operation; it is dropped");
    }
  }
}

std::shared_ptr<std::atomic<int>> AsyncOpManager::handOffLocked() {
  if (pending_.empty() || !hasFreeSlotLocked()) return nullptr;
  auto state = std::make_shared<std::atomic<int>>(Reserved);
  handoffs_.push_back(Handoff{state, std::move(pending_.front())});
  pending_.pop_front();
  return state;
}

void AsyncOpManager::startHandedOff(AsyncOpManager* that,
                                    const std::shared_ptr<std::atomic<int>>& state) {
  int expected = Reserved;
  // Dropped by terminate, which did not wait: the manager may be gone.
  if (!state->compare_exchange_strong(expected, Claimed)) return;
  // Claimed first: terminate waits for this slot, so the manager stays.
  ACE_Guard<ACE_Thread_Mutex> lock(that->mutex_);
  auto it = std::find_if(that->handoffs_.begin(), that->handoffs_.end(),
                         [&state](const Handoff& h) { return h.state == state; });
  if (it == that->handoffs_.end()) return;
  const Functor op = std::move(it->op);
  that->handoffs_.erase(it);
  try {
    that->startLocked(op);
  } catch (const std::bad_alloc&) {
    QIM_ERROR("no thread for a waiting operation; it is dropped");
    if (!that->terminating_) that->startPendingLocked();
  }
  if (that->terminating_ && that->idleLocked()) that->cond_.broadcast();
}

void AsyncOpManager::terminateLocked(std::list<Functor>& dropped) {
  terminating_ = true;
  // A handed-over operation not yet claimed is dropped rather than waited
  // for: its reporter may be stuck posting to this very thread's queue.
  for (auto it = handoffs_.begin(); it != handoffs_.end();) {
    int expected = Reserved;
    if (it->state->compare_exchange_strong(expected, Dropped)) {
      dropped.push_back(std::move(it->op));
      it = handoffs_.erase(it);
    } else {
      ++it;
    }
  }
  while (!idleLocked()) cond_.wait();
  for (auto it = cancelers_.begin(); it != cancelers_.end(); ++it) {
    QIM_ASSERT(0!=*it);
    if (*it) (*it)->store(true);
  }
  cancelers_.clear();
  dropped.splice(dropped.end(), pending_);
  terminating_ = false;
  queueThread_->detach();
}

void AsyncOpManager::abandon(unsigned long tid) {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  auto it = findThread(threads_, tid);
  if (it == threads_.end()) return;
  releaseLocked(it);
  if (terminating_) {
    if (idleLocked()) cond_.broadcast();
    return;
  }
  startPendingLocked();
}

void AsyncOpManager::resultReporter(const CancelFlag& canceled, AsyncOpManager* that,
                                    Functor& result) {
  QIM_ENTRY();
  QIM_ASSERT(0!=canceled);
  // Without a flag nobody can tell whether the manager still exists.
  if (!canceled) return;
  // Set by terminate or the destructor: the manager may be gone.
  if (canceled->load()) return;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(that->mutex_);
    auto it = that->cancelers_.find(canceled);
    QIM_ASSERT(it!=that->cancelers_.end());
    if (it != that->cancelers_.end()) that->cancelers_.erase(it);
    const bool expectedThread = that->queueThread_->checkAndBind();
    QIM_ASSERT_AS(expectedThread, "ACE_OS::thr_equal(that->queueTid_,ACE_Thread::self())");
    if (!expectedThread) {
      // The latest delivering thread is the one expected from now on.
      that->queueThread_->detach();
      that->queueThread_->checkAndBind();
    }
  }
  // The result may terminate or destroy the manager: nothing touches it
  // after this call.
  result();
}

}  // namespace QIM
