#include "qimmisc/AsyncOpManager.h"

#include <ace/Guard_T.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include <algorithm>
#include <exception>
#include <new>
#include <string>
#include <utility>

#include "qimmisc/ThreadUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {

QIM_INSTANTIATE_COUNTED_OBJECT(AsyncOpManager);

namespace {

// Numbers the operation threads of the whole process: AOM-1, AOM-2, ...
std::atomic<unsigned long> operationThreadCount{0};

unsigned long currentThread() { return static_cast<unsigned long>(ACE_Thread::self()); }

template <class List>
auto findThread(List& threads, unsigned long tid) {
  return std::find_if(threads.begin(), threads.end(), [tid](const auto& op) {
    return ACE_OS::thr_equal(static_cast<ACE_thread_t>(op.tid), static_cast<ACE_thread_t>(tid));
  });
}

}  // namespace

AsyncOpManager::AsyncOpManager(ActionQueue& queue, unsigned int maxThreads)
    : queue_(queue), cond_(mutex_), maxThreads_(maxThreads) {
  QIM_ENTRY("maxThreads=" << maxThreads);
}

AsyncOpManager::~AsyncOpManager() {
  QIM_ENTRY();
  std::vector<void*> finished;
  std::list<Functor> dropped;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    QIM_ASSERT(threads_.empty());
    QIM_ASSERT(!terminating_);
    if (!terminating_) {
      // Operations still running would report to a destroyed manager, and
      // posted results would reach one: wait and cancel as terminate does.
      finished = terminateLocked(dropped);
    } else {
      finished.swap(finished_);
    }
  }
  joinAll(finished);
}

void AsyncOpManager::startOp(const Functor& op) {
  QIM_ENTRY();
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  QIM_ASSERT(!terminating_);
  QIM_ASSERT(!op.empty());
  if (op.empty()) return;
  if (maxThreads_ == 0 || threads_.size() < maxThreads_) {
    startLocked(op);
  } else {
    pending_.push_back(op);
  }
}

bool AsyncOpManager::reportResult(const Functor& result) {
  QIM_ENTRY();
  // Everything happens under one hold of the mutex, including the start of
  // the next waiting operation: once it is released the owner may destroy
  // the manager, so this thread must not come back.
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  auto it = findThread(threads_, currentThread());
  QIM_ASSERT(it!=threads_.end());
  if (it != threads_.end()) {
    finished_.push_back(it->handle);
    it->reported->store(true);
    threads_.erase(it);
  }
  if (terminating_) {
    if (threads_.empty()) cond_.broadcast();
    return false;
  }
  auto canceled = std::make_shared<bool>(false);
  cancelers_.insert(canceled);
  AsyncOpManager* const that = this;
  queue_.push_back(makeFunctor([canceled, that, result = Functor(result)]() mutable {
                     resultReporter(canceled, that, result);
                   }),
                   ResultPriority);
  startPendingLocked();
  return true;
}

void AsyncOpManager::terminate() {
  QIM_ENTRY();
  std::vector<void*> finished;
  std::list<Functor> dropped;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    QIM_ASSERT(!haveQueueTid_ || ACE_OS::thr_equal(queueTid_, ACE_Thread::self()));
    const bool byOwnOperation = findThread(threads_, currentThread()) != threads_.end();
    QIM_ASSERT(!byOwnOperation, "terminate by a running operation would wait for itself");
    if (byOwnOperation) return;
    finished = terminateLocked(dropped);
  }
  // Joined and destroyed without the mutex: a thread's last steps and an
  // operation's captures may take locks of their own.
  joinAll(finished);
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
  threads_.push_back(RunningOp{tid, handle, std::move(reported)});
}

void AsyncOpManager::startPendingLocked() {
  while (!pending_.empty() && (maxThreads_ == 0 || threads_.size() < maxThreads_)) {
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

std::vector<void*> AsyncOpManager::terminateLocked(std::list<Functor>& dropped) {
  terminating_ = true;
  while (!threads_.empty()) cond_.wait();
  for (auto it = cancelers_.begin(); it != cancelers_.end(); ++it) {
    QIM_ASSERT(0!=*it);
    if (*it) **it = true;
  }
  cancelers_.clear();
  dropped.swap(pending_);
  terminating_ = false;
  haveQueueTid_ = false;
  std::vector<void*> finished;
  finished.swap(finished_);
  return finished;
}

void AsyncOpManager::abandon(unsigned long tid) {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  auto it = findThread(threads_, tid);
  if (it == threads_.end()) return;
  finished_.push_back(it->handle);
  threads_.erase(it);
  if (terminating_) {
    if (threads_.empty()) cond_.broadcast();
    return;
  }
  startPendingLocked();
}

void AsyncOpManager::resultReporter(const std::shared_ptr<bool>& canceled, AsyncOpManager* that,
                                    Functor& result) {
  QIM_ENTRY();
  QIM_ASSERT(0!=canceled);
  // Without a flag nobody can tell whether the manager still exists.
  if (!canceled) return;
  // Set by terminate or the destructor: the manager may be gone.
  if (*canceled) return;
  std::vector<void*> finished;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(that->mutex_);
    auto it = that->cancelers_.find(canceled);
    QIM_ASSERT(it!=that->cancelers_.end());
    if (it != that->cancelers_.end()) that->cancelers_.erase(it);
    if (that->haveQueueTid_) {
      QIM_ASSERT(ACE_OS::thr_equal(that->queueTid_,ACE_Thread::self()));
    }
    that->haveQueueTid_ = true;
    that->queueTid_ = currentThread();
    finished.swap(that->finished_);
  }
  joinAll(finished);
  // The result may terminate or destroy the manager: nothing touches it
  // after this call.
  result();
}

void AsyncOpManager::joinAll(const std::vector<void*>& handles) {
  for (void* handle : handles) {
    if (handle) joinThread(handle);
  }
}

}  // namespace QIM
