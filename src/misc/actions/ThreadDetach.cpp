#include "actions/ThreadDetach.h"

#include <ace/Thread.h>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "diagnostics/NoDestructor.h"
#include "qimmisc/Trace.h"

namespace QIM::detail {

namespace {

// Threads handed over and not yet joined. Never destroyed: a thread may be
// handed over while the process runs its exit-time destructors.
struct Released {
  std::mutex mutex;
  std::vector<void*> handles;
};

Released& released() {
  static NoDestructor<Released> instance;
  return *instance;
}

// Made on the first hand-over, hence destroyed before anything older.
struct JoinAtExit {
  JoinAtExit() {
    // A forked child inherits the list but none of its threads: joining
    // them at its exit would wait for ever.
    watchForks([] { released().mutex.lock(); }, [] { released().mutex.unlock(); },
               [] {
                 Released& r = released();
                 for (void* handle : r.handles) forgetThread(handle);
                 r.handles.clear();
                 r.mutex.unlock();
               });
  }
  ~JoinAtExit() { joinDetachedThreads(); }
};

}  // namespace

void detachThread(void* handle) {
  if (!handle) return;
  static JoinAtExit joinAtExit;
  Released& r = released();
  std::lock_guard<std::mutex> lock(r.mutex);
  // Threads that have ended are joined now, so their stacks do not pile up
  // until the process exits.
  r.handles.erase(std::remove_if(r.handles.begin(), r.handles.end(), tryJoinThread),
                  r.handles.end());
  r.handles.push_back(handle);
}

std::size_t joinDetachedThreads() {
  std::vector<void*> handles;
  {
    Released& r = released();
    std::lock_guard<std::mutex> lock(r.mutex);
    handles.swap(r.handles);
  }
  // Joined without the lock: an ending thread may hand another one over.
  for (void* handle : handles) {
    if (ACE_Thread::join(reinterpret_cast<ACE_hthread_t>(handle)) == -1) {
      QIM_ERROR("ACE_Thread::join failed");
    }
  }
  return handles.size();
}

}  // namespace QIM::detail
