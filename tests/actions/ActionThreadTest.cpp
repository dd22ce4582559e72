#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ace/Thread.h>

#include <atomic>
#include <functional>
#include <map>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ActionThread.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace QIM {
namespace {

using ActionThreadTest = test::TracingTest;

// Records the order actions ran in; only the worker writes, the test reads
// after the worker has stopped.
struct Recorder {
  std::vector<std::string> ran;
  Functor record(const std::string& name) {
    return makeFunctor([this, name] { ran.push_back(name); });
  }
};

// Counts live copies, to see queued actions destroyed unrun.
struct Tracked {
  static std::atomic<int> live;
  std::atomic<int>* runs;
  explicit Tracked(std::atomic<int>* r) : runs(r) { ++live; }
  Tracked(const Tracked& o) : runs(o.runs) { ++live; }
  ~Tracked() { --live; }
  void operator()() const { ++*runs; }
};
std::atomic<int> Tracked::live{0};

// Posts an action that keeps the worker busy until `release` opens (then
// runs `after`), and returns once the worker has started it.
void occupy(ActionThread& worker, test::Gate& release, std::function<void()> after = {}) {
  test::Gate busy;
  worker.push_back(makeFunctor([&busy, &release, after] {
                     busy.open();
                     release.wait();
                     if (after) after();
                   }),
                   0);
  busy.wait();
}

TEST_F(ActionThreadTest, HigherPriorityOvertakesWaitingActionsButKeepsFifoWithin) {
  ActionThread worker;
  Recorder rec;
  test::Gate release;
  worker.start("QIM::Test");
  occupy(worker, release);
  worker.push_back(rec.record("a0"), 0);
  worker.push_back(rec.record("b0"), 0);
  worker.push_highPriority(rec.record("high"));
  worker.push_back(rec.record("c5"), 5);
  EXPECT_EQ(worker.size(-1), 4);
  EXPECT_EQ(worker.size(0), 2);
  EXPECT_EQ(worker.size(10), 1);
  EXPECT_EQ(worker.size(7), 0);
  release.open();
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_THAT(rec.ran, ElementsAre("high", "c5", "a0", "b0"));
  EXPECT_EQ(worker.tid(), 0u);
  EXPECT_EQ(worker.state(), ActionThread::Stopped);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

TEST_F(ActionThreadTest, ImmediateStopLeavesActionsQueuedForTheNextStart) {
  ActionThread worker;
  Recorder rec;
  test::Gate release;
  worker.start("QIM::Test");
  occupy(worker, release);
  worker.push_back(rec.record("x"), 0);
  worker.push_back(rec.record("y"), 1);
  worker.stop(ActionThread::StopImmediate, ActionThread::ReturnNoWait);
  // A drain request never softens an immediate stop.
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnNoWait);
  EXPECT_EQ(worker.state(), ActionThread::StopNow);
  release.open();
  worker.stop(ActionThread::StopImmediate, ActionThread::ReturnWait);
  EXPECT_TRUE(rec.ran.empty());
  EXPECT_EQ(worker.size(-1), 2);

  worker.start("QIM::Test");
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_THAT(rec.ran, ElementsAre("y", "x"));
  EXPECT_EQ(worker.size(-1), 0);
}

TEST_F(ActionThreadTest, StopOnAStoppedThreadIsReportedAndStillSetsTheState) {
  ActionThread worker;
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);  // returns: no worker
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "Stopped!=state_")").size(), 1u);
  EXPECT_EQ(worker.state(), ActionThread::StopWhenEmpty);
  // A start from there is reported and runs all the same.
  std::atomic<bool> ran{false};
  worker.start("QIM::Test");
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "Stopped==state_")").size(), 1u);
  worker.push_back(makeFunctor([&ran] { ran = true; }), 0);
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_TRUE(ran.load());
}

TEST_F(ActionThreadTest, ActionsRunOnTheWorkerAndMayPostAndStopFromInside) {
  ActionThread worker;
  std::atomic<unsigned long> seen{0};
  std::atomic<int> followUps{0};
  worker.start("QIM::Test");
  const unsigned long tid = worker.tid();  // before the worker can stop itself
  worker.push_back(makeFunctor([&] {
                     seen = static_cast<unsigned long>(ACE_Thread::self());
                     worker.push_back(makeFunctor([&followUps] { ++followUps; }), 0);
                     EXPECT_EQ(worker.size(-1), 1);
                     worker.stop(ActionThread::StopDrain, ActionThread::ReturnNoWait);
                   }),
                   0);
  ASSERT_TRUE(test::eventually([&] { return worker.state() == ActionThread::Stopped; }));
  EXPECT_EQ(seen.load(), tid);
  EXPECT_EQ(followUps.load(), 1);
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);  // reported, returns
}

TEST_F(ActionThreadTest, ActionsStillQueuedAtDestructionAreDestroyedUnrun) {
  std::atomic<int> runs{0};
  {
    ActionThread worker;
    for (int i = 0; i < 5; ++i) worker.push_back(makeFunctor(Tracked(&runs)), i);
    EXPECT_EQ(Tracked::live.load(), 5);
  }
  EXPECT_EQ(Tracked::live.load(), 0);
  EXPECT_EQ(runs.load(), 0);
}

TEST_F(ActionThreadTest, FlushDiscardsQueuedButNotTheRunningAction) {
  ActionThread worker;
  std::atomic<int> runs{0};
  test::Gate release;
  worker.start("QIM::Test");
  occupy(worker, release, [&runs] { ++runs; });
  for (int i = 0; i < 3; ++i) worker.push_back(makeFunctor(Tracked(&runs)), 0);
  worker.flush();
  EXPECT_EQ(worker.size(-1), 0);
  EXPECT_EQ(Tracked::live.load(), 0);
  release.open();
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_EQ(runs.load(), 1);
}

TEST_F(ActionThreadTest, DestroyingARunningThreadIsReportedAndSafe) {
  std::atomic<int> runs{0};
  {
    ActionThread worker;
    worker.start("QIM::Test");
    worker.push_back(makeFunctor([&runs] { ++runs; }), 0);
    ASSERT_TRUE(test::eventually([&] { return runs.load() == 1; }));
  }
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "Stopped == state_")").size(), 1u);
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0 == tid_")").size(), 1u);
}

TEST_F(ActionThreadTest, AThrowingActionIsLoggedAndTheWorkerGoesOn) {
  ActionThread worker;
  std::atomic<bool> after{false};
  worker.start("QIM::Test");
  worker.push_back(makeFunctor([] { throw std::runtime_error("bad action"); }), 0);
  worker.push_back(makeFunctor([&after] { after = true; }), 0);
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_TRUE(after.load());
  EXPECT_EQ(sink_.linesWith("action threw an exception: bad action").size(), 1u);
}

TEST_F(ActionThreadTest, PostedActionsRememberWhereTheyWerePosted) {
  ActionThread worker;
  std::string info;
  worker.start("QIM::Test");
  {
    QIM_ENTRY();
    worker.push_back(makeFunctor([&info] { info = DbgMsg::getStackInfo(); }), 0);
  }
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_THAT(info, HasSubstr("PostedActionsRememberWhereTheyWerePosted"));
}

// Several producers at mixed priorities while the worker runs: nothing is
// lost or run twice, and each producer's actions of one priority run in the
// order it posted them.
TEST(ActionThreadStress, ProducersAtMixedPrioritiesLoseNothing) {
  constexpr int kProducers = 4;
  constexpr int kPerProducer = 3000;
  ActionThread worker;
  // Written only by the worker; read after it stopped.
  std::map<std::pair<int, int>, std::vector<int>> seen;  // (producer, priority) -> seqs
  worker.start("QIM::Stress");
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&worker, &seen, p] {
      for (int i = 0; i < kPerProducer; ++i) {
        const int priority = i % 3 == 0 ? 10 : i % 3;
        worker.push_back(makeFunctor([&seen, p, priority, i] {
                           seen[{p, priority}].push_back(i);
                         }),
                         priority);
      }
    });
  }
  for (auto& t : producers) t.join();
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  int total = 0;
  for (const auto& [key, seqs] : seen) {
    total += static_cast<int>(seqs.size());
    EXPECT_TRUE(std::is_sorted(seqs.begin(), seqs.end())) << key.first << "/" << key.second;
    EXPECT_EQ(std::adjacent_find(seqs.begin(), seqs.end()), seqs.end());
  }
  EXPECT_EQ(total, kProducers * kPerProducer);
}

// Start, drain-stop, immediate-stop and restart while producers post:
// every action runs at most once, and all run once the last drain ends.
TEST(ActionThreadStress, StartsAndStopsRacingWithProducers) {
  constexpr int kPerProducer = 2000;
  ActionThread worker;
  std::atomic<int> runs{0};
  std::atomic<bool> producing{true};
  std::vector<std::thread> producers;
  for (int p = 0; p < 2; ++p) {
    producers.emplace_back([&] {
      for (int i = 0; i < kPerProducer; ++i) worker.push_back(makeFunctor([&runs] { ++runs; }), i % 4);
    });
  }
  std::thread controller([&] {
    for (int round = 0; producing; ++round) {
      worker.start("QIM::Churn");
      std::this_thread::yield();
      worker.stop(round % 2 ? ActionThread::StopImmediate : ActionThread::StopDrain,
                  ActionThread::ReturnWait);
    }
  });
  for (auto& t : producers) t.join();
  producing = false;
  controller.join();
  worker.start("QIM::Churn");
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_EQ(runs.load(), 2 * kPerProducer);
  EXPECT_EQ(worker.size(-1), 0);
}

}  // namespace
}  // namespace QIM
