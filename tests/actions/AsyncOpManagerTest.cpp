#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#ifdef __linux__
#include <pthread.h>
#endif

#include "TestSupport.h"
#include "qimmisc/ActionThread.h"
#include "qimmisc/AsyncOpManager.h"

using ::testing::ElementsAre;

namespace QIM {
namespace {

class AsyncOpManagerTest : public test::TracingTest {
 protected:
  void SetUp() override {
    TracingTest::SetUp();
    owner_.start("AOM owner");
  }
  void TearDown() override {
    owner_.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
    TracingTest::TearDown();
  }
  // Runs `fn` on the owner's thread, after what is already queued there.
  template <class F>
  void onOwner(F fn) {
    test::Gate done;
    owner_.push_back(makeFunctor([&] { fn(), done.open(); }), 0);
    done.wait();
  }
  bool asserted(const std::string& condition) const {
    return sink_.contains("Assertion failed: \"" + condition + "\"");
  }
  ActionThread owner_;
};

// One thread: each operation on a new thread with the next number; the
// second starts when the first reports, before the first thread has ended;
// results arrive in operation order.
TEST_F(AsyncOpManagerTest, OneThreadRunsOperationsInTurnOnNewNumberedThreads) {
  AsyncOpManager manager(owner_, 1);
  test::Gate secondStarted;
  std::atomic<bool> firstSawSecond{false};
  std::vector<std::string> names(4);
  std::vector<int> delivered;  // owner's thread only
  for (int i = 1; i <= 3; ++i) {
    manager.startOp(makeFunctor([&, i] {
#ifdef __linux__
      char name[16] = {};
      pthread_getname_np(pthread_self(), name, sizeof name);
      names[i] = name;
#endif
      if (i == 2) secondStarted.open();
      manager.reportResult(makeFunctor([&, i] { delivered.push_back(i); }));
      if (i == 1) firstSawSecond = secondStarted.waitFor(10000);
    }));
  }
  ASSERT_TRUE(test::eventually([&] {
    bool three = false;
    onOwner([&] { three = delivered.size() == 3; });
    return three;
  }));
  onOwner([&] { manager.terminate(); });
  EXPECT_TRUE(firstSawSecond.load());
  EXPECT_THAT(delivered, ElementsAre(1, 2, 3));
#ifdef __linux__
  const unsigned long first = std::stoul(names[1].substr(4));
  for (int i = 2; i <= 3; ++i) EXPECT_EQ(names[i], "AOM-" + std::to_string(first + i - 1));
#endif
  EXPECT_FALSE(sink_.contains("Assertion failed"));
}

// terminate waits for the running operation, whose result is dropped, and
// drops a result already queued and the waiting operation; then the manager
// works as before.
TEST_F(AsyncOpManagerTest, TerminateWaitsForTheRunningAndDropsEverythingElse) {
  AsyncOpManager manager(owner_, 1);
  test::Gate release;
  const auto alive = std::make_shared<int>();
  std::atomic<int> delivered{0}, refused{0}, waitingRan{0};
  auto op = [&](bool blocks) {
    return makeFunctor([&, blocks, alive] {
      if (blocks) release.waitFor(10000);
      if (!manager.reportResult(makeFunctor([&, alive] { ++delivered; }))) ++refused;
    });
  };
  onOwner([&] {
    manager.startOp(op(false));  // its result waits behind this action
    ASSERT_TRUE(test::eventually([&] { return owner_.size(-1) == 1; }));
    manager.startOp(op(true));
    manager.startOp(makeFunctor([&, alive] { ++waitingRan; }));
    std::thread releaser([&] {
      // A start during terminate is reported (an empty one then ignored).
      test::eventually([&] { return manager.startOp(Functor()), asserted("!terminating_"); });
      release.open();
    });
    manager.terminate();
    releaser.join();
  });
  onOwner([] {});
  EXPECT_TRUE(test::eventually([&] { return refused == 1 && alive.use_count() == 1; }));
  EXPECT_EQ(delivered.load(), 0);
  EXPECT_EQ(waitingRan.load(), 0);
  manager.startOp(op(false));
  ASSERT_TRUE(test::eventually([&] { return delivered == 1; }));
  onOwner([&] { manager.terminate(); });
}

// Terminates amid operations started from several threads, some running,
// some waiting, some results on their way: nothing is delivered afterwards.
TEST_F(AsyncOpManagerTest, TerminateUnderLoadDeliversNothingAfterwards) {
  for (const unsigned int maxThreads : {0u, 1u, 3u}) {
    std::atomic<int> delivered{0}, late{0};
    bool terminated = false;  // owner's thread only
    AsyncOpManager manager(owner_, maxThreads);
    auto op = makeFunctor([&] {
      manager.reportResult(makeFunctor([&] { late += terminated, ++delivered; }));
    });
    std::thread starters[2];
    for (auto& starter : starters) {
      starter = std::thread([&] {
        for (int i = 0; i < 30; ++i) manager.startOp(op);
      });
    }
    for (auto& starter : starters) starter.join();
    ASSERT_TRUE(test::eventually([&] { return delivered >= 5; }));
    onOwner([&] { manager.terminate(), terminated = true; });
    onOwner([] {});
    EXPECT_EQ(late.load(), 0) << maxThreads;
  }
  EXPECT_FALSE(sink_.contains("Assertion failed"));
}

TEST_F(AsyncOpManagerTest, AnOperationThatThrowsGivesUpItsSlotWithoutAResult) {
  AsyncOpManager manager(owner_, 1);
  std::atomic<int> delivered{0};
  manager.startOp(makeFunctor([] { throw std::runtime_error("directory unreachable"); }));
  manager.startOp(makeFunctor([&] { manager.reportResult(makeFunctor([&] { ++delivered; })); }));
  ASSERT_TRUE(test::eventually([&] { return delivered == 1; }));
  EXPECT_TRUE(sink_.contains("operation threw an exception: directory unreachable"));
  onOwner([&] { manager.terminate(); });  // returns: the failed one holds nothing
}

TEST_F(AsyncOpManagerTest, MisuseIsReportedAndHandled) {
  test::ManualQueue queue;
  std::atomic<int> delivered{0};
  auto result = makeFunctor([&] { ++delivered; });
  {
    AsyncOpManager manager(queue, 0);
    // Not an operation of this manager: reported, posted anyway.
    EXPECT_TRUE(manager.reportResult(result));
    EXPECT_TRUE(asserted("it!=threads_.end()"));
    EXPECT_EQ(queue.runAll(), 1);  // learns this thread as the queue's
    // Delivered on another thread: reported, delivered anyway.
    manager.reportResult(result);
    std::thread([&] { queue.runAll(); }).join();
    EXPECT_TRUE(asserted("ACE_OS::thr_equal(that->queueTid_,ACE_Thread::self())"));
    EXPECT_EQ(delivered.load(), 2);
    // Terminated off the queue's (last known) thread: reported, done anyway.
    manager.reportResult(result);
    manager.terminate();
    EXPECT_TRUE(asserted("!haveQueueTid_ || ACE_OS::thr_equal(queueTid_, ACE_Thread::self())"));
    // An empty operation could never report; a terminate by an operation
    // would wait for itself.
    manager.startOp(Functor());
    EXPECT_TRUE(asserted("!op.empty()"));
    std::atomic<bool> reported{false};
    manager.startOp(makeFunctor([&] { manager.terminate(), reported = manager.reportResult(result); }));
    ASSERT_TRUE(test::eventually([&] { return reported.load(); }));
    EXPECT_TRUE(asserted("!byOwnOperation"));
    // A result still queued when the manager goes is dropped, not run.
  }
  EXPECT_EQ(queue.runAll(), 2);
  EXPECT_EQ(delivered.load(), 2);
}

TEST_F(AsyncOpManagerTest, DestroyingWithARunningOperationWaitsForItsReport) {
  std::atomic<int> posted{-1};
  {
    AsyncOpManager manager(owner_, 0);
    manager.startOp(makeFunctor([&] {
      test::eventually([&] { return asserted("threads_.empty()"); });
      posted = manager.reportResult(Functor());
    }));
  }
  EXPECT_TRUE(test::eventually([&] { return posted == 0; }));
}

}  // namespace
}  // namespace QIM
