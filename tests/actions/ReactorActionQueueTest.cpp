#include <ace/Time_Value.h>

#include <stdexcept>

#include "RunningQueue.h"
#include "TestSupport.h"
#include "qimmisc/ReactorActionQueue.h"

namespace QIM {
namespace {

class TestQueue : public ReactorActionQueue {
 public:
  const ACE_Event_Handler* handler() const { return this; }
  int expire() { return handle_timeout(ACE_Time_Value::zero, nullptr); }
};

class ReactorActionQueueTest : public test::TracingTest {
 protected:
  std::size_t asserted(const std::string& condition) const {
    return sink_.linesWith("Assertion failed: \"" + condition + "\"").size();
  }
  // Records "name:left", left being the actions still queued as it ran.
  Functor record(ActionQueue& queue, const std::string& name) {
    return makeFunctor(
        [this, &queue, name] { runs_.push_back(name + ":" + std::to_string(queue.size(-1))); });
  }
  std::vector<std::string> runs_;  // read once the loop has stopped
};

// One timer per post, moved along when the reactor changes, none left for a
// destroyed queue; one action per expiry, in priority order, on the owner
// thread.
TEST_F(ReactorActionQueueTest, TimersFollowTheReactorAndEachExpiryRunsOneActionInOrder) {
  test::ReactorLoop first, second;
  ASSERT_TRUE(first.ready());
  ASSERT_TRUE(second.ready());
  TestQueue queue;
  queue.push_back(record(queue, "early"), 0);  // no reactor: reported, waits
  EXPECT_EQ(queue.tid(), 0u);
  EXPECT_EQ(asserted("reactor()"), 2u);
  queue.setReactor(first.reactor());
  queue.push_back(record(queue, "low"), 0);
  queue.push_highPriority(record(queue, "high"));
  queue.push_back(record(queue, "middle"), 5);
  queue.push_back(makeFunctor([] { throw std::runtime_error("boom"); }), 3);
  queue.setReactor(second.reactor());
  EXPECT_EQ(asserted("!reactor()"), 1u);
  EXPECT_EQ(first.timersFor(queue.handler()), 0);
  EXPECT_EQ(second.timersFor(queue.handler()), 5);
  const ACE_Event_Handler* gone = nullptr;
  {
    TestQueue doomed;
    doomed.setReactor(second.reactor());
    doomed.push_back(Functor(), 0);
    gone = doomed.handler();
  }
  EXPECT_EQ(second.timersFor(gone), 0);
  second.start();
  EXPECT_EQ(queue.tid(), second.loopTid());
  ASSERT_TRUE(test::eventually([&] { return queue.size(-1) == 0; }));
  second.stop();  // once the last action taken has run
  EXPECT_THAT(runs_, ::testing::ElementsAre("high:4", "middle:3", "early:1", "low:0"));
  EXPECT_TRUE(sink_.contains("action threw an exception: boom"));
  EXPECT_EQ(sink_.linesWith("Assertion failed").size(), 3u);
  // An expiry off the owner thread, or without a reactor, is reported and
  // still runs the action; one that finds the queue empty runs nothing.
  queue.push_back(record(queue, "stray"), 0);
  EXPECT_EQ(queue.expire(), 0);
  EXPECT_EQ(asserted("ACE_OS::thr_equal(ACE_Thread::self(), tid())"), 1u);
  queue.setReactor(nullptr);
  EXPECT_EQ(queue.expire(), 0);
  EXPECT_EQ(asserted("reactor()"), 3u);  // two above
  EXPECT_EQ(asserted("!empty()"), 1u);
  EXPECT_EQ(runs_.back(), "stray:0");
}

}  // namespace
}  // namespace QIM
