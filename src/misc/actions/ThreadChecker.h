// Thread-affinity checks of queues, timers and asynchronous results.
//
// Each site keeps the condition text its log has always shown, so the check
// goes through QIM_ASSERT_AS:
//
//   QIM_ASSERT_ON_THREAD(queue->tid(),
//                        "ACE_OS::thr_equal(ACE_Thread::self(),queue->tid())");
#pragma once

#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include "qimmisc/Trace.h"

namespace QIM::detail {

/// Whether the caller runs on the thread `tid` (an ACE thread id).
inline bool isCurrentThread(unsigned long tid) {
  return ACE_OS::thr_equal(ACE_Thread::self(), static_cast<ACE_thread_t>(tid));
}

/// Remembers the first thread that checks in and tells later callers
/// whether they are that thread (a queue learns its thread from the first
/// action it delivers). Not locked: the owner guards it.
class ThreadChecker {
 public:
  /// True for the first caller (which the checker then remembers) and for
  /// every later call from that thread.
  bool checkAndBind() {
    const unsigned long self = static_cast<unsigned long>(ACE_Thread::self());
    if (!bound_) {
      bound_ = true;
      tid_ = self;
      return true;
    }
    return isCurrentThread(tid_);
  }
  /// True when no thread is bound yet or the caller is the bound one.
  bool check() const { return !bound_ || isCurrentThread(tid_); }
  /// Forgets the bound thread.
  void detach() { bound_ = false; tid_ = 0; }
  bool bound() const { return bound_; }
  unsigned long tid() const { return tid_; }

 private:
  bool bound_ = false;
  unsigned long tid_ = 0;
};

}  // namespace QIM::detail

/// Asserts, with `text` as the logged condition, that the caller runs on the
/// thread `tid`; further arguments are streamed into the message.
#define QIM_ASSERT_ON_THREAD(tid, text, ...) \
  QIM_ASSERT_AS(::QIM::detail::isCurrentThread(tid), text __VA_OPT__(, ) __VA_ARGS__)
