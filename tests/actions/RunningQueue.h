// Queues whose threads run, one of each kind a producer may post to.
#pragma once

#include <gtest/gtest.h>

#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>

#include <atomic>
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
  ::testing::AssertionResult ready();
  ACE_Reactor* reactor() { return &reactor_; }
  void start();
  void stop();
  unsigned long loopTid() const { return tid_; }
  /// Timers pending for `handler` (loop stopped).
  int timersFor(const ACE_Event_Handler* handler);

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
