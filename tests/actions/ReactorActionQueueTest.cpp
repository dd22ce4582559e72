#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ace/Thread.h>
#include <ace/Time_Value.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

#include "RunningQueue.h"
#include "TestSupport.h"
#include "qimmisc/ReactorActionQueue.h"

using ::testing::ElementsAre;

namespace QIM {
namespace {

class ReactorActionQueueTest : public test::TracingTest {
 protected:
  std::size_t asserted(const std::string& condition) const {
    return sink_.linesWith("Assertion failed: \"" + condition + "\"").size();
  }
  // Records "name:left" (actions still queued as it ran) and the thread;
  // read once the loop is stopped or runs on the test's thread.
  Functor record(ActionQueue& queue, const std::string& name) {
    return makeFunctor([this, &queue, name] {
      runs_.push_back(name + ":" + std::to_string(queue.size(-1)));
      tids_.push_back(static_cast<unsigned long>(ACE_Thread::self()));
      ++count_;
    });
  }
  std::atomic<int> count_{0};
  std::vector<std::string> runs_;
  std::vector<unsigned long> tids_;
};

class TestQueue : public ReactorActionQueue {
 public:
  const ACE_Event_Handler* handler() const { return this; }
  int expire() { return handle_timeout(ACE_Time_Value::zero, nullptr); }
};

// One timer per post, moved along when the reactor changes; one action per
// expiry in priority order, on the loop's thread.
TEST_F(ReactorActionQueueTest, TimersFollowTheReactorAndEachExpiryRunsOneActionInOrder) {
  test::ReactorLoop first, second;
  ASSERT_TRUE(first.ready());
  ASSERT_TRUE(second.ready());
  TestQueue queue;
  // Without a reactor, posting and tid() are reported and the action waits.
  queue.push_back(record(queue, "early"), 0);
  EXPECT_EQ(queue.tid(), 0u);
  EXPECT_EQ(asserted("reactor()"), 2u);
  queue.setReactor(first.reactor());
  queue.push_back(record(queue, "low"), 0);
  queue.push_highPriority(record(queue, "high"));
  queue.push_back(record(queue, "middle"), 5);
  queue.push_back(makeFunctor([] { throw std::runtime_error("boom"); }), 3);
  EXPECT_EQ(first.timersFor(queue.handler()), 5);
  // A second reactor is reported and takes the timers over.
  queue.setReactor(second.reactor());
  EXPECT_EQ(asserted("!reactor()"), 1u);
  EXPECT_EQ(first.timersFor(queue.handler()), 0);
  EXPECT_EQ(second.timersFor(queue.handler()), 5);
  const ACE_Event_Handler* gone = nullptr;
  {  // A destroyed queue leaves no timer behind to call it back.
    TestQueue doomed;
    doomed.setReactor(second.reactor());
    doomed.push_back(Functor(), 0);
    gone = doomed.handler();
  }
  EXPECT_EQ(second.timersFor(gone), 0);
  second.start();
  EXPECT_EQ(queue.tid(), second.loopTid());
  ASSERT_TRUE(test::eventually([&] { return count_ == 4; }));
  second.stop();
  EXPECT_THAT(runs_, ElementsAre("high:4", "middle:3", "early:1", "low:0"));
  EXPECT_THAT(tids_, ::testing::Each(second.loopTid()));
  EXPECT_TRUE(sink_.contains("action threw an exception: boom"));
  EXPECT_EQ(second.timersFor(queue.handler()), 0);
}

TEST_F(ReactorActionQueueTest, ExpiryChecksReactorAndThreadAndStillRunsTheAction) {
  const struct {
    bool attach, otherOwner;
    const char* reported;
  } cases[] = {
      {true, false, nullptr},
      {true, true, "ACE_OS::thr_equal(ACE_Thread::self(), tid())"},
      {false, false, "reactor()"},
  };
  test::ReactorLoop other;  // a live thread to name as some other owner
  ASSERT_TRUE(other.ready());
  other.start();
  for (const auto& c : cases) {
    test::ReactorLoop loop;  // never started: its owner is this thread
    ASSERT_TRUE(loop.ready());
    TestQueue queue;
    if (c.attach) queue.setReactor(loop.reactor());
    if (c.otherOwner) loop.reactor()->owner(static_cast<ACE_thread_t>(other.loopTid()));
    queue.push_back(record(queue, "x"), 0);
    sink_.clear();
    EXPECT_EQ(queue.expire(), 0);
    EXPECT_EQ(sink_.linesWith("Assertion failed").size(), c.reported ? 1u : 0u);
    if (c.reported) {
      EXPECT_EQ(asserted(c.reported), 1u);
    }
    // An expiry that finds the queue empty reports and runs nothing.
    EXPECT_EQ(queue.expire(), 0);
    EXPECT_EQ(asserted("!empty()"), 1u);
  }
  EXPECT_EQ(count_, 3);
}

}  // namespace
}  // namespace QIM
