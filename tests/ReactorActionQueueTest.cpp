#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ace/Guard_T.h>
#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/Thread.h>
#include <ace/Time_Value.h>
#include <ace/Timer_Queue.h>

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ReactorActionQueue.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace QIM {
namespace {

using ReactorActionQueueTest = test::TracingTest;

unsigned long selfId() { return static_cast<unsigned long>(ACE_Thread::self()); }

// A select reactor of its own whose event loop runs on a thread started by
// start(). Until then the reactor is idle and its timer queue may be
// inspected from the test thread.
class ReactorLoop {
 public:
  ReactorLoop() : reactor_(&impl_) {}
  ~ReactorLoop() { stop(); }
  ReactorLoop(const ReactorLoop&) = delete;
  ReactorLoop& operator=(const ReactorLoop&) = delete;

  ACE_Reactor* reactor() { return &reactor_; }

  // Starts the loop thread; returns once it owns the reactor.
  void start() {
    thread_ = std::thread([this] {
      reactor_.owner(ACE_Thread::self());
      tid_ = selfId();
      owned_.open();
      reactor_.run_reactor_event_loop();
    });
    owned_.wait();
  }

  void stop() {
    if (!thread_.joinable()) return;
    reactor_.end_reactor_event_loop();
    thread_.join();
  }

  unsigned long loopTid() const { return tid_.load(); }

  // Timers pending for `handler`; only while the loop is not running. Each
  // one must be a one-shot timer with no argument.
  int timersFor(const ACE_Event_Handler* handler) {
    int count = 0;
    ACE_Timer_Queue::ITERATOR& it = impl_.timer_queue()->iter();
    for (it.first(); !it.isdone(); it.next()) {
      ACE_Timer_Node_T<ACE_Event_Handler*>* node = it.item();
      if (node->get_type() != handler) continue;
      EXPECT_EQ(node->get_act(), nullptr);
      EXPECT_EQ(node->get_interval(), ACE_Time_Value::zero);
      ++count;
    }
    return count;
  }

 private:
  ACE_Select_Reactor impl_;
  ACE_Reactor reactor_;
  std::thread thread_;
  std::atomic<unsigned long> tid_{0};
  test::Gate owned_;
};

// Reaches what the queue keeps to itself: its event handler, a flush, and a
// direct expiry.
class TestQueue : public ReactorActionQueue {
 public:
  const ACE_Event_Handler* handler() const { return this; }
  void flush() {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    clear();
  }
  int expire() { return handle_timeout(ACE_Time_Value::zero, nullptr); }
};

// What ran, where, and how much was still queued at that moment.
class Recorder {
 public:
  Functor record(TestQueue& queue, const std::string& name) {
    return makeFunctor([this, &queue, name] {
      const int left = queue.size(-1);
      std::lock_guard<std::mutex> lock(mutex_);
      names_.push_back(name);
      left_.push_back(left);
      threads_.push_back(selfId());
    });
  }
  std::size_t count() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return names_.size();
  }
  std::vector<std::string> names() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return names_;
  }
  std::vector<int> left() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return left_;
  }
  std::vector<unsigned long> threads() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return threads_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> names_;
  std::vector<int> left_;
  std::vector<unsigned long> threads_;
};

std::size_t assertions(const test::CaptureSink& sink, const std::string& condition) {
  return sink.linesWith("Assertion failed: \"" + condition + "\"").size();
}

TEST_F(ReactorActionQueueTest, BurstSchedulesOneTimerPerPostAndRunsOneActionPerExpiry) {
  ReactorLoop loop;
  TestQueue queue;
  Recorder rec;
  queue.setReactor(loop.reactor());
  queue.push_back(rec.record(queue, "low"), 0);
  queue.push_highPriority(rec.record(queue, "high"));
  queue.push_back(rec.record(queue, "middle"), 5);
  EXPECT_EQ(loop.timersFor(queue.handler()), 3);

  loop.start();
  ASSERT_TRUE(test::eventually([&] { return rec.count() == 3; }));
  loop.stop();
  EXPECT_THAT(rec.names(), ElementsAre("high", "middle", "low"));
  // Each expiry left the rest queued for the next one.
  EXPECT_THAT(rec.left(), ElementsAre(2, 1, 0));
  EXPECT_EQ(sink_.linesWith("(QIM::ReactorActionQueue::handle_timeout) act=").size(), 3u);
  EXPECT_EQ(loop.timersFor(queue.handler()), 0);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

TEST_F(ReactorActionQueueTest, ActionsRunOnTheLoopThreadWhichIsTheQueueTid) {
  ReactorLoop loop;
  TestQueue queue;
  Recorder rec;
  queue.setReactor(loop.reactor());
  loop.start();
  EXPECT_EQ(queue.tid(), loop.loopTid());
  EXPECT_NE(queue.tid(), selfId());

  // An action may post to its own queue from the loop thread.
  queue.push_back(makeFunctor([&] { queue.push_back(rec.record(queue, "follow-up"), 0); }), 0);
  ASSERT_TRUE(test::eventually([&] { return rec.count() == 1; }));
  loop.stop();
  EXPECT_THAT(rec.threads(), ElementsAre(loop.loopTid()));
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

TEST_F(ReactorActionQueueTest, PostingWithoutReactorQueuesAndReportsUntilAReactorIsSet) {
  ReactorLoop loop;
  TestQueue queue;
  Recorder rec;
  queue.push_back(rec.record(queue, "early"), 0);
  EXPECT_EQ(assertions(sink_, "reactor()"), 1u);
  EXPECT_EQ(queue.size(-1), 1);
  EXPECT_EQ(queue.tid(), 0u);
  EXPECT_EQ(assertions(sink_, "reactor()"), 2u);

  // The waiting action gets its timer once there is a reactor.
  queue.setReactor(loop.reactor());
  EXPECT_EQ(loop.timersFor(queue.handler()), 1);
  loop.start();
  ASSERT_TRUE(test::eventually([&] { return rec.count() == 1; }));
  loop.stop();
  EXPECT_THAT(rec.threads(), ElementsAre(loop.loopTid()));
  EXPECT_EQ(assertions(sink_, "!reactor()"), 0u);
  EXPECT_EQ(assertions(sink_, "reactor()"), 2u);
}

TEST_F(ReactorActionQueueTest, SecondReactorIsReportedAndReplacesTheFirstWithItsTimers) {
  ReactorLoop first, second;
  TestQueue queue;
  Recorder rec;
  queue.setReactor(first.reactor());
  queue.push_back(rec.record(queue, "before"), 0);
  EXPECT_EQ(first.timersFor(queue.handler()), 1);

  queue.setReactor(second.reactor());
  EXPECT_EQ(assertions(sink_, "!reactor()"), 1u);
  EXPECT_EQ(first.timersFor(queue.handler()), 0);
  EXPECT_EQ(second.timersFor(queue.handler()), 1);
  queue.push_back(rec.record(queue, "after"), 0);
  EXPECT_EQ(second.timersFor(queue.handler()), 2);

  first.start();
  second.start();
  EXPECT_EQ(queue.tid(), second.loopTid());
  ASSERT_TRUE(test::eventually([&] { return rec.count() == 2; }));
  first.stop();
  second.stop();
  EXPECT_THAT(rec.names(), ElementsAre("before", "after"));
  EXPECT_THAT(rec.threads(), ElementsAre(second.loopTid(), second.loopTid()));
  EXPECT_EQ(sink_.linesWith("Assertion failed").size(), 1u);
}

TEST_F(ReactorActionQueueTest, ClearingTheReactorCancelsItsTimersAndKeepsTheActions) {
  ReactorLoop loop;
  TestQueue queue;
  Recorder rec;
  queue.setReactor(loop.reactor());
  queue.push_back(rec.record(queue, "a"), 0);
  queue.push_back(rec.record(queue, "b"), 1);
  queue.setReactor(nullptr);
  EXPECT_EQ(loop.timersFor(queue.handler()), 0);
  EXPECT_EQ(queue.size(-1), 2);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
  EXPECT_EQ(queue.tid(), 0u);
  EXPECT_EQ(assertions(sink_, "reactor()"), 1u);

  // Attached again, they run in priority order.
  queue.setReactor(loop.reactor());
  loop.start();
  ASSERT_TRUE(test::eventually([&] { return rec.count() == 2; }));
  loop.stop();
  EXPECT_THAT(rec.names(), ElementsAre("b", "a"));
  EXPECT_EQ(assertions(sink_, "!reactor()"), 0u);
}

TEST_F(ReactorActionQueueTest, ExpiryAfterTheQueueWasEmptiedReportsAndRunsNothing) {
  ReactorLoop loop;
  TestQueue queue;
  Recorder rec;
  queue.setReactor(loop.reactor());
  queue.push_back(rec.record(queue, "discarded"), 0);
  queue.flush();
  EXPECT_EQ(loop.timersFor(queue.handler()), 1);  // left behind by the flush

  loop.start();
  ASSERT_TRUE(test::eventually([&] { return assertions(sink_, "!empty()") == 1; }));
  loop.stop();
  EXPECT_EQ(rec.count(), 0u);
  EXPECT_EQ(sink_.linesWith("Assertion failed").size(), 1u);
}

TEST_F(ReactorActionQueueTest, DestroyedQueueIsNeverCalledBack) {
  ReactorLoop loop;
  std::atomic<int> runs{0};
  const ACE_Event_Handler* gone = nullptr;
  {
    TestQueue doomed;
    doomed.setReactor(loop.reactor());
    for (int i = 0; i < 3; ++i) doomed.push_back(makeFunctor([&runs] { ++runs; }), i);
    gone = doomed.handler();
    EXPECT_EQ(loop.timersFor(gone), 3);
  }
  EXPECT_EQ(loop.timersFor(gone), 0);

  // A witness posted after the destruction has run, so the loop has
  // dispatched every timer that was due: none of them was the dead queue's.
  TestQueue witness;
  Recorder rec;
  witness.setReactor(loop.reactor());
  witness.push_back(rec.record(witness, "witness"), 0);
  loop.start();
  ASSERT_TRUE(test::eventually([&] { return rec.count() == 1; }));
  loop.stop();
  EXPECT_EQ(runs.load(), 0);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

TEST_F(ReactorActionQueueTest, ExpiryChecksReactorAndThreadAndStillRunsTheAction) {
  enum class Setup { OwnerThread, OtherThread, NoReactor };
  struct Case {
    const char* name;
    Setup setup;
    std::vector<std::string> reported;
  };
  const Case cases[] = {
      {"on the owner thread", Setup::OwnerThread, {}},
      {"off the owner thread", Setup::OtherThread,
       {"ACE_OS::thr_equal(ACE_Thread::self(), tid())"}},
      {"without reactor", Setup::NoReactor, {"reactor()"}},
  };
  // A live thread whose id serves as some other owner.
  std::atomic<unsigned long> otherId{0};
  test::Gate otherReady, otherDone;
  std::thread other([&] {
    otherId = selfId();
    otherReady.open();
    otherDone.wait();
  });
  otherReady.wait();

  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ReactorLoop loop;  // never started: its owner is this thread
    TestQueue queue;
    Recorder rec;
    if (c.setup != Setup::NoReactor) queue.setReactor(loop.reactor());
    if (c.setup == Setup::OtherThread) {
      loop.reactor()->owner(static_cast<ACE_thread_t>(otherId.load()));
    }
    queue.push_back(rec.record(queue, "x"), 0);
    sink_.clear();

    EXPECT_EQ(queue.expire(), 0);
    EXPECT_EQ(rec.count(), 1u);
    const auto failed = sink_.linesWith("Assertion failed");
    ASSERT_EQ(failed.size(), c.reported.size());
    for (std::size_t i = 0; i < failed.size(); ++i) {
      EXPECT_THAT(failed[i], HasSubstr("Assertion failed: \"" + c.reported[i] + "\""));
    }
    // The next expiry finds nothing left.
    sink_.clear();
    EXPECT_EQ(queue.expire(), 0);
    EXPECT_EQ(rec.count(), 1u);
    EXPECT_EQ(assertions(sink_, "!empty()"), 1u);
  }
  otherDone.open();
  other.join();
}

TEST_F(ReactorActionQueueTest, ThrowingActionIsLoggedAndTheLoopGoesOn) {
  ReactorLoop loop;
  TestQueue queue;
  Recorder rec;
  queue.setReactor(loop.reactor());
  queue.push_back(makeFunctor([] { throw std::runtime_error("boom"); }), 1);
  queue.push_back(rec.record(queue, "after"), 0);
  loop.start();
  ASSERT_TRUE(test::eventually([&] { return rec.count() == 1; }));
  loop.stop();
  EXPECT_EQ(sink_.linesWith("action threw an exception: boom").size(), 1u);
}

TEST_F(ReactorActionQueueTest, ConcurrentPostersAllRunOnTheLoopThread) {
  constexpr int kPosters = 4;
  constexpr int kPostsEach = 50;
  ReactorLoop loop;
  TestQueue queue;
  queue.setReactor(loop.reactor());
  loop.start();
  const unsigned long loopTid = loop.loopTid();
  std::atomic<int> runs{0};
  std::atomic<int> offThread{0};
  std::vector<std::thread> posters;
  for (int p = 0; p < kPosters; ++p) {
    posters.emplace_back([&, p] {
      for (int i = 0; i < kPostsEach; ++i) {
        queue.push_back(makeFunctor([&] {
                          if (selfId() != loopTid) ++offThread;
                          ++runs;
                        }),
                        (p + i) % 3);
      }
    });
  }
  for (auto& t : posters) t.join();
  ASSERT_TRUE(test::eventually([&] { return runs.load() == kPosters * kPostsEach; }));
  loop.stop();
  EXPECT_EQ(offThread.load(), 0);
  EXPECT_EQ(queue.size(-1), 0);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

}  // namespace
}  // namespace QIM
