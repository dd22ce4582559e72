#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ActionThread.h"

using ::testing::ElementsAre;

namespace QIM {
namespace {

class ActionThreadTest : public test::TracingTest {
 protected:
  // Only the worker appends; tests read once the worker has stopped.
  Functor record(const std::string& name) {
    return makeFunctor([this, name] { ran_.push_back(name); });
  }
  // Keeps the worker busy until release_ opens; returns once it is.
  void occupy(ActionThread& worker) {
    test::Gate busy;
    worker.push_back(makeFunctor([&busy, this] { busy.open(); release_.wait(); }), 0);
    busy.wait();
  }
  size_t assertions(const std::string& text) const {
    return sink_.linesWith("Assertion failed: \"" + text + "\"").size();
  }
  std::vector<std::string> ran_;
  test::Gate release_;
};

TEST_F(ActionThreadTest, HigherPriorityOvertakesWaitingActionsButKeepsFifoWithin) {
  ActionThread worker;
  worker.start("QIM::Test");
  occupy(worker);
  for (const char* name : {"a0", "b0"}) worker.push_back(record(name), 0);
  std::string postedFrom;
  {
    QIM_ENTRY();
    worker.push_highPriority(makeFunctor([&] {  // posts from inside, too
      postedFrom = DbgMsg::getStackInfo();
      worker.push_back(record("follow-up"), 5);
    }));
  }
  worker.push_back(record("c5"), 5);
  EXPECT_EQ(worker.size(-1), 4);
  release_.open();
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_THAT(ran_, ElementsAre("c5", "follow-up", "a0", "b0"));
  EXPECT_THAT(postedFrom, ::testing::HasSubstr("HigherPriorityOvertakesWaitingActionsButKeepsFifoWithin"));
  EXPECT_FALSE(sink_.contains("Assertion failed"));  // all on the worker thread
}

// Left queued by an immediate stop, actions run after the next start; flush
// and destruction destroy them unrun.
TEST_F(ActionThreadTest, ImmediateStopLeavesActionsQueuedForTheNextStart) {
  ActionThread worker;
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);  // returns: no worker
  EXPECT_EQ(assertions("Stopped!=state_"), 1u);
  EXPECT_EQ(worker.state(), ActionThread::StopWhenEmpty);
  worker.start("QIM::Test");  // reported, and starts all the same
  occupy(worker);
  worker.push_back(record("x"), 0);
  worker.push_back(record("y"), 1);
  worker.stop(ActionThread::StopImmediate, ActionThread::ReturnNoWait);
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnNoWait);  // never softened
  EXPECT_EQ(worker.state(), ActionThread::StopNow);
  release_.open();
  ASSERT_TRUE(test::eventually([&] { return worker.state() == ActionThread::Stopped; }));
  EXPECT_EQ(worker.size(-1), 2);
  worker.start("QIM::Test");
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_THAT(ran_, ElementsAre("y", "x"));
  auto token = std::make_shared<int>();  // each queued action holds a copy
  for (int i = 0; i < 3; ++i) worker.push_back(makeFunctor([token] {}), i);
  worker.flush();
  EXPECT_EQ(token.use_count(), 1);
  ActionThread(/*never started*/).push_back(makeFunctor([token] {}), 0);
  EXPECT_EQ(token.use_count(), 1);
  EXPECT_EQ(assertions("Stopped==state_"), 1u);
}

// A restart while the stopped worker is still in its last action is
// reported and waits for it; a second worker would report on every turn.
TEST_F(ActionThreadTest, RestartWhileTheOldWorkerLeavesWaitsForIt) {
  ActionThread worker;
  worker.start("QIM::Test");
  occupy(worker);
  worker.stop(ActionThread::StopImmediate, ActionThread::ReturnNoWait);
  std::thread releaser([this] {
    test::eventually([this] { return assertions("Stopped==state_") == 1; });
    release_.open();
  });
  worker.start("QIM::Test");
  releaser.join();
  for (int i = 0; i < 100; ++i) worker.push_back(record("a"), 0);
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_EQ(ran_.size(), 100u);
  EXPECT_EQ(sink_.linesWith("Assertion failed").size(), 2u);  // "0==tid_" and that
}

TEST_F(ActionThreadTest, AThrowingActionIsLoggedAndTheWorkerGoesOn) {
  ActionThread worker;
  worker.start("QIM::Test");
  worker.push_back(makeFunctor([] { throw std::runtime_error("bad action"); }), 0);
  worker.push_back(record("after"), 0);
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_THAT(ran_, ElementsAre("after"));
  EXPECT_TRUE(sink_.contains("action threw an exception: bad action"));
}

// Destroyed while its worker runs, from another thread or by one of its own
// actions: reported, and the worker never touches the freed object.
TEST_F(ActionThreadTest, DestroyingARunningThreadIsReportedAndSafe) {
  ActionThread().start("QIM::Test");  // stopped and waited for by the destructor
  auto* self = new ActionThread;
  self->start("QIM::Test");
  self->push_back(makeFunctor([self] { delete self; }), 0);
  // Both workers have left their loops: the second one without a back-trace.
  ASSERT_TRUE(test::eventually([this] { return sink_.linesWith("ActionThread::run) <ret").size() == 2; }));
  EXPECT_EQ(assertions("Stopped == state_"), 2u);
  EXPECT_EQ(assertions("0 == tid_"), 2u);
  EXPECT_EQ(sink_.linesWith("Assertion failed").size(), 4u);
}

// Producers race the worker: nothing is lost or run twice, and each
// producer's actions (one priority each) keep their order.
TEST(ActionThreadStress, ProducersAtSeveralPrioritiesLoseNothing) {
  constexpr int kProducers = 3, kPerProducer = 3000;
  ActionThread worker;
  std::vector<int> next(kProducers, 0);  // worker-only
  worker.start("QIM::Stress");
  std::vector<std::thread> threads;
  for (int p = 0; p < kProducers; ++p) {
    threads.emplace_back([&, p] {
      for (int i = 0; i < kPerProducer; ++i) {
        worker.push_back(makeFunctor([&, p, i] { EXPECT_EQ(next[p]++, i); }), p * 5);
      }
    });
  }
  for (auto& t : threads) t.join();
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_THAT(next, ::testing::Each(kPerProducer));
}

}  // namespace
}  // namespace QIM
