// Queues whose threads run, one of each kind a producer may post to.
#pragma once

#include <gtest/gtest.h>

#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/Thread.h>
#include <ace/Timer_Queue.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

#include "qimmisc/ActionQueue.h"

namespace QIM::test {

/// A select reactor whose loop runs on its own thread once started; until
/// then its timer queue may be inspected from the test thread.
class ReactorLoop {
 public:
  ReactorLoop() : reactor_(&impl_) {}
  ~ReactorLoop() { stop(); }
  /// Fails, saying so, when the reactor could not open (on Windows, its
  /// loopback notification pipe). Check it before any other use.
  ::testing::AssertionResult ready() {
    if (impl_.initialized()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "the select reactor did not open, errno=" << errno;
  }
  ACE_Reactor* reactor() { return &reactor_; }
  void start() {
    tid_ = 0;
    thread_ = std::thread([this] {
      reactor_.owner(ACE_Thread::self());
      tid_ = static_cast<unsigned long>(ACE_Thread::self());
      reactor_.run_reactor_event_loop();
    });
    while (!tid_) std::this_thread::yield();
  }
  void stop() {
    if (thread_.joinable()) reactor_.end_reactor_event_loop(), thread_.join();
  }
  unsigned long loopTid() const { return tid_; }
  /// Timers pending for `handler` (loop stopped).
  int timersFor(const ACE_Event_Handler* handler) {
    int count = 0;
    ACE_Timer_Queue::ITERATOR& it = impl_.timer_queue()->iter();
    for (it.first(); !it.isdone(); it.next()) count += it.item()->get_type() == handler;
    return count;
  }

 private:
  ACE_Select_Reactor impl_;
  ACE_Reactor reactor_;
  std::thread thread_;
  std::atomic<unsigned long> tid_{0};
};

/// ActionThread, ReactorActionQueue on a running ReactorLoop, and (Windows
/// only) ActionWindow pumped by its own thread.
enum class QueueKind { ActionThread, ReactorActionQueue, ActionWindow };
inline const char* const kQueueKindNames[] = {"ActionThread", "ReactorActionQueue", "ActionWindow"};
inline const std::vector<QueueKind> kQueueKinds = {QueueKind::ActionThread,
                                                   QueueKind::ReactorActionQueue,
#ifdef _WIN32
                                                   QueueKind::ActionWindow
#endif
};

/// Starts a queue of `kind` into `out`, whose thread (the queue's tid())
/// runs until the last owner lets go; a fatal failure when it cannot run.
void startQueue(QueueKind kind, std::shared_ptr<ActionQueue>& out);

}  // namespace QIM::test
