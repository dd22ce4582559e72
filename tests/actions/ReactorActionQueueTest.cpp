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
// destroyed queue; one action per expiry, in priority order.
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
}

TEST_F(ReactorActionQueueTest, ExpiryChecksReactorAndThreadAndStillRunsTheAction) {
  const char* offThread = "ACE_OS::thr_equal(ACE_Thread::self(), tid())";
  for (const char* reported : {"", offThread, "reactor()"}) {
    test::ReactorLoop loop;  // never started: its owner is this thread
    ASSERT_TRUE(loop.ready());
    TestQueue queue;
    if (reported != std::string("reactor()")) queue.setReactor(loop.reactor());
    if (reported == offThread) loop.reactor()->owner(ACE_thread_t{});  // not this thread
    queue.push_back(record(queue, "x"), 0);
    sink_.clear();
    EXPECT_EQ(queue.expire(), 0);
    EXPECT_EQ(sink_.linesWith("Assertion failed").size(), *reported ? 1u : 0u);
    EXPECT_EQ(asserted(reported), *reported ? 1u : 0u);
    EXPECT_EQ(queue.expire(), 0);  // the queue is empty: reported, nothing runs
    EXPECT_EQ(asserted("!empty()"), 1u);
  }
  EXPECT_EQ(runs_.size(), 3u);
}

}  // namespace
}  // namespace QIM
