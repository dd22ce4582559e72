#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/Thread.h>
#include <ace/Time_Value.h>
#include <ace/Timer_Queue.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ReactorActionQueue.h"

using ::testing::ElementsAre;

namespace QIM {
namespace {

using ReactorActionQueueTest = test::TracingTest;

unsigned long selfId() { return static_cast<unsigned long>(ACE_Thread::self()); }

// A select reactor whose loop runs on its own thread once started; until then
// its timer queue may be inspected from the test thread.
class ReactorLoop {
 public:
  ReactorLoop() : reactor_(&impl_) {}
  ~ReactorLoop() { stop(); }
  ACE_Reactor* reactor() { return &reactor_; }
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
  // One-shot, argument-less timers pending for `handler` (loop not running).
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

class TestQueue : public ReactorActionQueue {
 public:
  const ACE_Event_Handler* handler() const { return this; }
  int expire() { return handle_timeout(ACE_Time_Value::zero, nullptr); }
};

// What ran, how much was still queued then, and on which thread. `runs` is
// read only after the running thread is joined (or is the test thread).
struct Recorder {
  struct Run {
    std::string name;
    int left;
    unsigned long tid;
  };
  Functor record(TestQueue& queue, const std::string& name) {
    return makeFunctor([this, &queue, name] {
      runs.push_back({name, queue.size(-1), selfId()});
      ++count;
    });
  }
  std::vector<std::string> names() const {
    std::vector<std::string> out;
    for (const Run& run : runs) out.push_back(run.name);
    return out;
  }
  std::atomic<std::size_t> count{0};
  std::vector<Run> runs;
};

std::size_t assertions(const test::CaptureSink& sink, const std::string& condition) {
  return sink.linesWith("Assertion failed: \"" + condition + "\"").size();
}

TEST_F(ReactorActionQueueTest, BurstSchedulesOneTimerPerPostAndRunsOneActionPerExpiryInOrder) {
  ReactorLoop loop;
  TestQueue queue;
  Recorder rec;
  queue.setReactor(loop.reactor());
  queue.push_back(rec.record(queue, "low"), 0);
  queue.push_highPriority(rec.record(queue, "high"));
  queue.push_back(rec.record(queue, "middle"), 5);
  queue.push_back(makeFunctor([] { throw std::runtime_error("boom"); }), 3);
  EXPECT_EQ(loop.timersFor(queue.handler()), 4);

  loop.start();
  ASSERT_TRUE(test::eventually([&] { return rec.count == 3; }));
  loop.stop();
  ASSERT_THAT(rec.names(), ElementsAre("high", "middle", "low"));
  // One action per expiry; a throwing one is logged and the loop goes on.
  EXPECT_EQ(rec.runs[0].left, 3);
  EXPECT_EQ(rec.runs[1].left, 2);
  EXPECT_EQ(rec.runs[2].left, 0);
  EXPECT_EQ(sink_.linesWith("action threw an exception: boom").size(), 1u);
  EXPECT_EQ(sink_.linesWith("(QIM::ReactorActionQueue::handle_timeout) act=").size(), 4u);
  EXPECT_EQ(loop.timersFor(queue.handler()), 0);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

TEST_F(ReactorActionQueueTest, ReactorChangesMoveTheTimersAndKeepEveryAction) {
  ReactorLoop first, second;
  TestQueue queue;
  Recorder rec;
  // Without a reactor, posting and tid() are reported and the action waits.
  queue.push_back(rec.record(queue, "early"), 0);
  EXPECT_EQ(assertions(sink_, "reactor()"), 1u);
  EXPECT_EQ(queue.tid(), 0u);
  EXPECT_EQ(assertions(sink_, "reactor()"), 2u);
  queue.setReactor(first.reactor());
  EXPECT_EQ(first.timersFor(queue.handler()), 1);
  queue.push_back(rec.record(queue, "urgent"), 1);

  // A second reactor is reported and takes the timers over.
  queue.setReactor(second.reactor());
  EXPECT_EQ(assertions(sink_, "!reactor()"), 1u);
  EXPECT_EQ(first.timersFor(queue.handler()), 0);
  EXPECT_EQ(second.timersFor(queue.handler()), 2);
  queue.push_back(rec.record(queue, "late"), 0);
  EXPECT_EQ(second.timersFor(queue.handler()), 3);

  // Clearing cancels the timers but keeps the actions.
  queue.setReactor(nullptr);
  EXPECT_EQ(second.timersFor(queue.handler()), 0);
  EXPECT_EQ(queue.size(-1), 3);
  queue.setReactor(second.reactor());
  EXPECT_EQ(second.timersFor(queue.handler()), 3);

  first.start();
  second.start();
  EXPECT_EQ(queue.tid(), second.loopTid());
  ASSERT_TRUE(test::eventually([&] { return rec.count == 3; }));
  first.stop();
  second.stop();
  EXPECT_THAT(rec.names(), ElementsAre("urgent", "early", "late"));
  for (const auto& run : rec.runs) EXPECT_EQ(run.tid, second.loopTid());
  EXPECT_EQ(sink_.linesWith("Assertion failed").size(), 3u);
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

  // Once a witness posted afterwards has run, every due timer was dispatched.
  TestQueue witness;
  Recorder rec;
  witness.setReactor(loop.reactor());
  witness.push_back(rec.record(witness, "witness"), 0);
  loop.start();
  ASSERT_TRUE(test::eventually([&] { return rec.count == 1; }));
  loop.stop();
  EXPECT_EQ(runs.load(), 0);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

TEST_F(ReactorActionQueueTest, ExpiryChecksReactorAndThreadAndStillRunsTheAction) {
  const struct {
    const char* name;
    bool attach, otherOwner;
    const char* reported;
  } cases[] = {
      {"on the owner thread", true, false, nullptr},
      {"off the owner thread", true, true, "ACE_OS::thr_equal(ACE_Thread::self(), tid())"},
      {"without reactor", false, false, "reactor()"},
  };
  ReactorLoop other;  // a live thread to name as some other owner
  other.start();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ReactorLoop loop;  // never started: its owner is this thread
    TestQueue queue;
    Recorder rec;
    if (c.attach) queue.setReactor(loop.reactor());
    if (c.otherOwner) loop.reactor()->owner(static_cast<ACE_thread_t>(other.loopTid()));
    queue.push_back(rec.record(queue, "x"), 0);
    sink_.clear();

    EXPECT_EQ(queue.expire(), 0);
    EXPECT_EQ(rec.count, 1u);
    EXPECT_EQ(sink_.linesWith("Assertion failed").size(), c.reported ? 1u : 0u);
    if (c.reported) {
      EXPECT_EQ(assertions(sink_, c.reported), 1u);
    }
    // An expiry that finds the queue empty reports and runs nothing.
    sink_.clear();
    EXPECT_EQ(queue.expire(), 0);
    EXPECT_EQ(rec.count, 1u);
    EXPECT_EQ(assertions(sink_, "!empty()"), 1u);
  }
}

TEST_F(ReactorActionQueueTest, ConcurrentPostersAllRunOnTheLoopThreadWhichIsTheQueueTid) {
  constexpr int kPosters = 4;
  constexpr int kPostsEach = 50;
  ReactorLoop loop;
  TestQueue queue;
  queue.setReactor(loop.reactor());
  loop.start();
  const unsigned long loopTid = loop.loopTid();
  EXPECT_EQ(queue.tid(), loopTid);
  std::atomic<int> runs{0};
  std::atomic<int> offThread{0};
  const auto action = [&] {
    if (selfId() != loopTid) ++offThread;
    ++runs;
  };
  std::vector<std::thread> posters;
  for (int p = 0; p < kPosters; ++p) {
    posters.emplace_back([&, p] {
      for (int i = 0; i < kPostsEach; ++i) queue.push_back(makeFunctor(action), (p + i) % 3);
    });
  }
  // An action may post to its own queue from the loop thread.
  queue.push_back(makeFunctor([&] { queue.push_back(makeFunctor(action), 0); }), 0);
  for (auto& t : posters) t.join();
  ASSERT_TRUE(test::eventually([&] { return runs.load() == kPosters * kPostsEach + 1; }));
  loop.stop();
  EXPECT_EQ(offThread.load(), 0);
  EXPECT_EQ(queue.size(-1), 0);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

}  // namespace
}  // namespace QIM
