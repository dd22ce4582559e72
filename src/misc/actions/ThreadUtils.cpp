#include "qimmisc/ThreadUtils.h"

#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include <condition_variable>
#include <mutex>
#include <new>

#include "diagnostics/NoDestructor.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {

// What the creator hands to the new thread. It lives on the creator's stack
// until the thread has recorded its id; after that the thread touches only
// its own copy of the body.
struct StartRecord {
  Functor body;
  std::string name;
  unsigned long tid = 0;
};

// Serialises thread starts across the process and carries the hand-shake.
// Never destroyed: threads the library does not own may start threads
// while static destructors run.
std::mutex& startMutex() {
  static detail::NoDestructor<std::mutex> mutex;
  return *mutex;
}
std::condition_variable& startCondition() {
  static detail::NoDestructor<std::condition_variable> condition;
  return *condition;
}

ActionQueue* mainActionQueue_ = nullptr;

ACE_THR_FUNC_RETURN threadFunc(void* argument) {
  auto* params = static_cast<StartRecord*>(argument);
  QIM_ENTRY("arg=" << argument);
  QIM_ASSERT(0!=params);
  if (!params) return 0;
  if (!params->name.empty()) setThreadName(params->name);
  // Moved, not copied: a copy would drop the creator's posting trace.
  Functor body(std::move(params->body));
  {
    std::lock_guard<std::mutex> lock(startMutex());
    params->tid = static_cast<unsigned long>(ACE_Thread::self());
    QIM_ASSERT(params->tid);
    startCondition().notify_all();
  }
  body();
  return 0;
}

}  // namespace

unsigned long createThread(const Functor& body, const std::string& name, void** handle,
                           unsigned long long stackSize) {
  QIM_ENTRY("name=" << name);
  StartRecord arg{body, name, 0};
  arg.body.saveStackTrace();

  // Joinable when the caller keeps the handle, detached otherwise so that an
  // unjoined thread leaves nothing behind.
  const long flags = handle ? (THR_NEW_LWP | THR_JOINABLE)
                            : (THR_NEW_LWP | THR_DETACHED);
  std::unique_lock<std::mutex> lock(startMutex());
  ACE_thread_t tid{};
  ACE_hthread_t threadHandle{};
  const int rc = ACE_Thread::spawn(threadFunc, &arg, flags, &tid,
                                   handle ? &threadHandle : nullptr,
                                   ACE_DEFAULT_THREAD_PRIORITY, nullptr,
                                   static_cast<size_t>(stackSize));
  if (rc == -1) {
    QIM_ERROR("ACE_Thread::spawn failed, errno=" << DbgMsg::GetErrno());
    QIM_ERROR("Throwing badalloc : ");
    throw std::bad_alloc();
  }
  startCondition().wait(lock, [&arg] { return arg.tid != 0; });
  QIM_ASSERT(ACE_OS::thr_equal(tid,arg.tid));
  if (handle) *handle = reinterpret_cast<void*>(threadHandle);
  return static_cast<unsigned long>(tid);
}

void joinThread(void* handle) {
  QIM_ENTRY("handle=" << handle);
  if (ACE_Thread::join(reinterpret_cast<ACE_hthread_t>(handle)) == -1) {
    QIM_ERROR("ACE_Thread::join failed");
  }
}

std::string getThreadName() { return std::string(); }

void setMainActionQueue(ActionQueue& queue) {
  QIM_ENTRY("queue=" << &queue);
  QIM_ASSERT(NULL == mainActionQueue_, "Main ActionQueue already set!");
  mainActionQueue_ = &queue;
}

ActionQueue& getMainActionQueue() {
  QIM_ASSERT(NULL != mainActionQueue_, "Main ActionQueue not set!");
  return *mainActionQueue_;
}

void resetMainActionQueue() { mainActionQueue_ = nullptr; }

}  // namespace QIM
