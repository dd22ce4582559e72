#include "qimmisc/ReactorActionQueue.h"

#include <ace/Guard_T.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Reactor.h>
#include <ace/Reactor_Impl.h>
#include <ace/Thread.h>
#include <ace/Time_Value.h>

#include "actions/ThreadChecker.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {

// Releases a held mutex for its scope and takes it back on the way out,
// also when the reactor call throws.
class MutexReleaser {
 public:
  explicit MutexReleaser(ACE_Thread_Mutex& mutex) : mutex_(mutex) { mutex_.release(); }
  ~MutexReleaser() { mutex_.acquire(); }
  MutexReleaser(const MutexReleaser&) = delete;
  MutexReleaser& operator=(const MutexReleaser&) = delete;

 private:
  ACE_Thread_Mutex& mutex_;
};

// ACE_Reactor::schedule_timer stores the reactor into the handler without
// any lock; posting threads would race with each other and with the reads
// this queue makes under its mutex. The implementation's schedule_timer
// does the same scheduling without touching the handler.
long scheduleZeroDelayTimer(ACE_Reactor* reactor, ACE_Event_Handler* handler) {
  return reactor->implementation()->schedule_timer(handler, nullptr, ACE_Time_Value::zero,
                                                   ACE_Time_Value::zero);
}

}  // namespace

ReactorActionQueue::ReactorActionQueue() : ACE_Event_Handler(nullptr) {}

ReactorActionQueue::~ReactorActionQueue() {
  ACE_Reactor* attached = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    attached = ACE_Event_Handler::reactor();
  }
  // Not under the mutex: the reactor may be dispatching one of our timers,
  // which takes the mutex while the reactor holds its own lock.
  if (attached) attached->cancel_timer(this);
}

void ReactorActionQueue::setReactor(ACE_Reactor* newReactor) {
  QIM_ENTRY("reactor=" << static_cast<const void*>(newReactor));
  ACE_Reactor* previous = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    previous = reactor();
    if (newReactor) QIM_ASSERT(!reactor());
    ACE_Event_Handler::reactor(newReactor);
  }
  if (newReactor == previous) return;
  // The old reactor must not dispatch into this queue any more: it would
  // run actions on its own thread, and it would keep a pointer that
  // outlives the queue.
  if (previous) previous->cancel_timer(this);
  if (!newReactor) return;
  // One timer per waiting action, as if each had been posted just now.
  const int queued = size(-1);
  for (int i = 0; i < queued; ++i) {
    if (scheduleZeroDelayTimer(newReactor, this) == -1) {
      QIM_ERROR("schedule_timer failed, errno=" << DbgMsg::GetErrno());
    }
  }
}

unsigned long ReactorActionQueue::tid() const {
  ACE_Reactor* current = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    current = reactor();
    QIM_ASSERT(reactor());
  }
  if (!current) return 0;
  // Asked without the mutex: a select reactor answers under its token,
  // which its event loop holds while it dispatches into this queue.
  ACE_thread_t owner{};
  if (current->owner(&owner) == -1) return 0;
  return static_cast<unsigned long>(owner);
}

void ReactorActionQueue::signal() {
  QIM_ENTRY();
  QIM_ASSERT(reactor());
  ACE_Reactor* const target = reactor();
  if (!target) return;
  long timerId = 0;
  {
    // The reactor thread takes this mutex inside handle_timeout while it
    // holds the reactor's lock; holding it here would invert that order.
    MutexReleaser unlocked(mutex_);
    timerId = scheduleZeroDelayTimer(target, this);
  }
  if (timerId == -1) {
    QIM_ERROR("schedule_timer failed, errno=" << DbgMsg::GetErrno());
  }
}

// The expiry time says nothing here: every timer was due at once.
int ReactorActionQueue::handle_timeout(const ACE_Time_Value& /*currentTime*/, const void* act) {
  QIM_ENTRY("act=" << act);
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  QIM_ASSERT(reactor());
  if (reactor()) {
    // tid() takes the mutex itself and asks the reactor.
    lock.release();
    QIM_ASSERT_ON_THREAD(tid(), "ACE_OS::thr_equal(ACE_Thread::self(), tid())");
    lock.acquire();
  }
  if (empty()) {
    QIM_ASSERT(!empty());
    return 0;
  }
  runNextAction();
  return 0;
}

}  // namespace QIM
