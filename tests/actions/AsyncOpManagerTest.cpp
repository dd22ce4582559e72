#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ace/Thread.h>

#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#ifdef __linux__
#include <dirent.h>
#include <pthread.h>
#endif

#include "TestSupport.h"
#include "qimmisc/ActionThread.h"
#include "qimmisc/AsyncOpManager.h"

using ::testing::ElementsAre;
using ::testing::Each;
using ::testing::Not;
using ::testing::Contains;

namespace QIM {
namespace {

unsigned long self() { return static_cast<unsigned long>(ACE_Thread::self()); }

#ifdef __linux__
std::string threadName() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

// Threads of this process; other tests' threads may still be ending.
int taskCount() {
  int count = 0;
  if (DIR* dir = opendir("/proc/self/task")) {
    while (dirent* entry = readdir(dir)) count += entry->d_name[0] != '.';
    closedir(dir);
  }
  return count;
}
#endif

// Counts live copies, to see operations destroyed (run or not).
struct Tracked {
  static std::atomic<int> live;
  Tracked() { ++live; }
  Tracked(const Tracked&) { ++live; }
  ~Tracked() { --live; }
};
std::atomic<int> Tracked::live{0};

// Opens a gate at scope end: a failed check never leaves an operation blocked.
struct OpenOnExit {
  test::Gate& gate;
  ~OpenOnExit() { gate.open(); }
};

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

  // Runs `fn` on the owner's thread, after the results already queued there.
  template <class F>
  void onOwner(F fn) {
    test::Gate done;
    owner_.push_back(makeFunctor([&] {
                       fn();
                       done.open();
                     }),
                     0);
    done.wait();
  }

  void terminateOnOwner(AsyncOpManager& manager) { onOwner([&manager] { manager.terminate(); }); }
  // Queues a terminate on the owner's thread that sets `terminated` when done.
  void terminateLater(AsyncOpManager& manager, std::atomic<bool>& terminated) {
    owner_.push_back(makeFunctor([&manager, &terminated] {
                       manager.terminate();
                       terminated = true;
                     }),
                     0);
  }

  // Whether a terminate of `manager` is under way: a start during one is
  // reported, and an empty operation is never started.
  bool waitUntilTerminating(AsyncOpManager& manager) {
    return test::eventually([&] {
      manager.startOp(Functor());
      return sink_.contains(R"(Assertion failed: "!terminating_")");
    });
  }

  std::size_t assertions(const std::string& condition) const {
    return sink_.linesWith("Assertion failed: \"" + condition + "\"").size();
  }

  ActionThread owner_;
};

TEST_F(AsyncOpManagerTest, WithoutALimitEveryOperationStartsAtOnce) {
  test::Gate release;
  std::mutex mutex;
  std::set<unsigned long> opThreads;
  std::vector<unsigned long> deliveredOn;
  std::atomic<int> running{0}, delivered{0}, posted{0};
  {
    AsyncOpManager manager(owner_, 0);
    OpenOnExit opener{release};
    constexpr int kOps = 4;
    for (int i = 0; i < kOps; ++i) {
      manager.startOp(makeFunctor([&] {
        {
          std::lock_guard<std::mutex> lock(mutex);
          opThreads.insert(self());
        }
        ++running;
        release.wait();
        const bool ok = manager.reportResult(makeFunctor([&] {
          std::lock_guard<std::mutex> lock(mutex);
          deliveredOn.push_back(self());
          ++delivered;
        }));
        posted += ok ? 1 : 0;
      }));
    }
    // None can report before the gate opens: all of them run side by side.
    ASSERT_TRUE(test::eventually([&] { return running == kOps; }));
    release.open();
    ASSERT_TRUE(test::eventually([&] { return delivered == kOps; }));
    terminateOnOwner(manager);
    EXPECT_EQ(posted.load(), kOps);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(opThreads.size(), static_cast<std::size_t>(kOps));
    EXPECT_THAT(opThreads, Not(Contains(self())));
    EXPECT_THAT(opThreads, Not(Contains(owner_.tid())));
    EXPECT_THAT(deliveredOn, Each(owner_.tid()));
  }
  EXPECT_FALSE(sink_.contains("Assertion failed"));
}

TEST_F(AsyncOpManagerTest, OneThreadRunsOperationsInTurnEachOnANewNumberedThread) {
  AsyncOpManager manager(owner_, 1);
  test::Gate go, firstMayEnd;
  OpenOnExit openGo{go}, openFirst{firstMayEnd};
  std::mutex mutex;
  std::vector<std::string> events, names;
  std::vector<int> deliveredOrder;  // owner's thread only
  std::atomic<int> delivered{0};
  std::atomic<bool> firstEnded{false}, secondSawFirstRunning{false};
  auto log = [&](const std::string& event) {
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back(event);
  };
  auto op = [&](int i) {
    return makeFunctor([&, i] {
      log("start" + std::to_string(i));
#ifdef __linux__
      {
        std::lock_guard<std::mutex> lock(mutex);
        names.push_back(threadName());
      }
#endif
      if (i == 1) go.wait();
      if (i == 2) {
        secondSawFirstRunning = !firstEnded;
        firstMayEnd.open();
      }
      log("report" + std::to_string(i));
      manager.reportResult(makeFunctor([&, i] {
        deliveredOrder.push_back(i);
        ++delivered;
      }));
      if (i == 1) {
        firstMayEnd.wait();  // still on its thread when the second starts
        firstEnded = true;
      }
    });
  };
  for (int i = 1; i <= 3; ++i) manager.startOp(op(i));
  ASSERT_TRUE(test::eventually([&] {
    std::lock_guard<std::mutex> lock(mutex);
    return !events.empty();
  }));
  {
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_THAT(events, ElementsAre("start1"));  // the others wait for the slot
  }
  go.open();
  ASSERT_TRUE(test::eventually([&] { return delivered == 3; }));
  terminateOnOwner(manager);
  EXPECT_TRUE(secondSawFirstRunning.load());
  EXPECT_THAT(deliveredOrder, ElementsAre(1, 2, 3));
  std::lock_guard<std::mutex> lock(mutex);
  EXPECT_THAT(events, ElementsAre("start1", "report1", "start2", "report2", "start3", "report3"));
#ifdef __linux__
  ASSERT_EQ(names.size(), 3u);
  ASSERT_EQ(names[0].rfind("AOM-", 0), 0u) << names[0];
  const unsigned long first = std::stoul(names[0].substr(4));
  EXPECT_GE(first, 1u);
  EXPECT_THAT(names, ElementsAre("AOM-" + std::to_string(first), "AOM-" + std::to_string(first + 1),
                                 "AOM-" + std::to_string(first + 2)));
#endif
  EXPECT_FALSE(sink_.contains("Assertion failed"));
}

TEST_F(AsyncOpManagerTest, TerminateWaitsForRunningOperationsAndDropsTheirResults) {
  AsyncOpManager manager(owner_, 0);
  test::Gate release1, release2;
  OpenOnExit open1{release1}, open2{release2};
  std::atomic<int> started{0}, delivered{0};
  std::atomic<int> posted1{-1}, posted2{-1}, postedLate{-1};
  std::atomic<bool> terminated{false};
  auto op = [&](test::Gate& release, std::atomic<int>& posted) {
    return makeFunctor([&] {
      ++started;
      release.wait();
      posted = manager.reportResult(makeFunctor([&] { ++delivered; })) ? 1 : 0;
    });
  };
  manager.startOp(op(release1, posted1));
  manager.startOp(op(release2, posted2));
  ASSERT_TRUE(test::eventually([&] { return started == 2; }));
  terminateLater(manager, terminated);
  ASSERT_TRUE(waitUntilTerminating(manager));

  // Started during the terminate: reported, run all the same, waited for.
  manager.startOp(makeFunctor(
      [&] { postedLate = manager.reportResult(makeFunctor([&] { ++delivered; })) ? 1 : 0; }));
  ASSERT_TRUE(test::eventually([&] { return postedLate != -1; }));
  EXPECT_EQ(postedLate.load(), 0);

  release1.open();
  ASSERT_TRUE(test::eventually([&] { return posted1 != -1; }));
  EXPECT_EQ(posted1.load(), 0);
  EXPECT_FALSE(terminated.load());  // the second operation has not reported

  release2.open();
  ASSERT_TRUE(test::eventually([&] { return terminated.load(); }));
  EXPECT_EQ(posted2.load(), 0);
  onOwner([] {});
  EXPECT_EQ(delivered.load(), 0);

  // Idle again: a new operation runs and delivers normally.
  manager.startOp(
      makeFunctor([&] { EXPECT_TRUE(manager.reportResult(makeFunctor([&] { ++delivered; }))); }));
  ASSERT_TRUE(test::eventually([&] { return delivered == 1; }));
  terminateOnOwner(manager);
}

TEST_F(AsyncOpManagerTest, TerminateDropsResultsAlreadyWaitingInTheQueue) {
  AsyncOpManager manager(owner_, 0);
  test::Gate ownerBusy;
  std::atomic<int> posted{0}, delivered{0};
  std::atomic<bool> bothPosted{false}, terminated{false};
  // Keeps the owner's thread busy while the results arrive behind it, then
  // terminates before the queue reaches them.
  owner_.push_back(makeFunctor([&] {
                     ownerBusy.open();
                     bothPosted = test::eventually([&] { return posted == 2; });
                     manager.terminate();
                     terminated = true;
                   }),
                   0);
  ownerBusy.wait();
  for (int i = 0; i < 2; ++i) {
    manager.startOp(makeFunctor([&] {
      const Tracked alive;
      if (manager.reportResult(makeFunctor([&, alive] { ++delivered; }))) ++posted;
    }));
  }
  ASSERT_TRUE(test::eventually([&] { return terminated.load(); }));
  onOwner([] {});
  EXPECT_TRUE(bothPosted.load());
  EXPECT_EQ(delivered.load(), 0);
  EXPECT_EQ(Tracked::live.load(), 0);  // the dropped results are gone too
  EXPECT_FALSE(sink_.contains("Assertion failed"));
}

TEST_F(AsyncOpManagerTest, WaitingOperationsNeverRunAfterTerminate) {
  AsyncOpManager manager(owner_, 1);
  test::Gate release;
  OpenOnExit opener{release};
  std::atomic<int> started{0}, waitingRuns{0}, delivered{0}, posted{-1};
  std::atomic<bool> terminated{false};
  manager.startOp(makeFunctor([&] {
    ++started;
    release.wait();
    posted = manager.reportResult(makeFunctor([&] { ++delivered; })) ? 1 : 0;
  }));
  ASSERT_TRUE(test::eventually([&] { return started == 1; }));
  for (int i = 0; i < 3; ++i) {
    manager.startOp(makeFunctor([&, alive = Tracked()] {
      ++waitingRuns;
      manager.reportResult(Functor());
    }));
  }
  EXPECT_EQ(Tracked::live.load(), 3);  // one copy each, waiting
  terminateLater(manager, terminated);
  ASSERT_TRUE(waitUntilTerminating(manager));
  release.open();
  ASSERT_TRUE(test::eventually([&] { return terminated.load(); }));
  EXPECT_EQ(posted.load(), 0);
  EXPECT_EQ(Tracked::live.load(), 0);

  manager.startOp(makeFunctor([&] { manager.reportResult(makeFunctor([&] { ++delivered; })); }));
  ASSERT_TRUE(test::eventually([&] { return delivered == 1; }));
  onOwner([] {});
  EXPECT_EQ(waitingRuns.load(), 0);
  terminateOnOwner(manager);
}

// Terminates managers in the middle of a crowd of operations, some running,
// some waiting, some results on their way, started from several threads.
TEST_F(AsyncOpManagerTest, TerminateUnderLoadLeavesNothingBehind) {
  struct Round {
    unsigned int maxThreads;
    int deliveriesBeforeTerminate;
  };
  const Round rounds[] = {{0, 0}, {3, 0}, {3, 10}, {1, 5}, {0, 25}, {8, 40}};
#ifdef __linux__
  const int tasksBefore = taskCount();
#endif
  for (const Round& round : rounds) {
    SCOPED_TRACE("maxThreads=" + std::to_string(round.maxThreads) +
                 " deliveries=" + std::to_string(round.deliveriesBeforeTerminate));
    std::atomic<int> delivered{0}, late{0}, liveAfterTerminate{-1};
    bool terminated = false;  // owner's thread only
    {
      AsyncOpManager manager(owner_, round.maxThreads);
      auto op = makeFunctor([&, alive = Tracked()] {
        std::this_thread::yield();
        manager.reportResult(makeFunctor([&] {
          late += terminated ? 1 : 0;
          ++delivered;
        }));
      });
      constexpr int kOpsPerStarter = 30;
      std::thread starters[2];
      for (auto& starter : starters) {
        starter = std::thread([&] {
          for (int i = 0; i < kOpsPerStarter; ++i) manager.startOp(op);
        });
      }
      for (auto& starter : starters) starter.join();
      ASSERT_TRUE(test::eventually(
          [&] { return delivered >= round.deliveriesBeforeTerminate; }));
      onOwner([&] {
        manager.terminate();
        terminated = true;
        liveAfterTerminate = Tracked::live.load() - 1;  // `op` itself
      });
      onOwner([] {});
      EXPECT_EQ(late.load(), 0);
      EXPECT_EQ(liveAfterTerminate.load(), 0);
      EXPECT_LE(delivered.load(), 2 * kOpsPerStarter);
    }
    EXPECT_EQ(Tracked::live.load(), 0);
  }
#ifdef __linux__
  EXPECT_TRUE(test::eventually([&] { return taskCount() <= tasksBefore; }));
#endif
  EXPECT_FALSE(sink_.contains("Assertion failed"));
}

TEST_F(AsyncOpManagerTest, AnOperationThatThrowsGivesUpItsSlotWithoutAResult) {
  AsyncOpManager manager(owner_, 1);
  std::atomic<int> delivered{0};
  manager.startOp(makeFunctor([] { throw std::runtime_error("directory unreachable"); }));
  manager.startOp(makeFunctor([&] { manager.reportResult(makeFunctor([&] { ++delivered; })); }));
  ASSERT_TRUE(test::eventually([&] { return delivered == 1; }));
  EXPECT_EQ(sink_.linesWith("operation threw an exception: directory unreachable").size(), 1u);
  terminateOnOwner(manager);  // returns: the failed operation holds nothing
  EXPECT_EQ(delivered.load(), 1);
}

TEST_F(AsyncOpManagerTest, MisuseIsReportedAndHandled) {
  test::ManualQueue queue;
  AsyncOpManager manager(queue, 0);
  std::atomic<int> delivered{0};
  auto result = makeFunctor([&] { ++delivered; });

  // No operation of this manager: reported, posted anyway.
  EXPECT_TRUE(manager.reportResult(result));
  EXPECT_EQ(assertions("it!=threads_.end()"), 1u);
  EXPECT_EQ(queue.runAll(), 1);  // learns this thread as the queue's
  EXPECT_EQ(delivered.load(), 1);

  // Delivered on another thread: reported, delivered anyway.
  manager.reportResult(result);
  std::thread([&] { queue.runAll(); }).join();
  EXPECT_EQ(assertions("ACE_OS::thr_equal(that->queueTid_,ACE_Thread::self())"), 1u);
  EXPECT_EQ(delivered.load(), 2);

  // Terminated off the queue's (last known) thread: reported, done anyway.
  manager.reportResult(result);
  manager.terminate();
  EXPECT_EQ(assertions("!haveQueueTid_ || ACE_OS::thr_equal(queueTid_, ACE_Thread::self())"), 1u);
  EXPECT_EQ(queue.runAll(), 1);
  EXPECT_EQ(delivered.load(), 2);

  // An empty operation could never report: reported and ignored.
  manager.startOp(Functor());
  EXPECT_EQ(assertions("!op.empty()"), 1u);
  manager.terminate();  // nothing to wait for

  // A terminate by one of its own operations would wait for itself.
  std::atomic<int> posted{-1};
  manager.startOp(makeFunctor([&] {
    manager.terminate();
    posted = manager.reportResult(result) ? 1 : 0;
  }));
  ASSERT_TRUE(test::eventually([&] { return posted != -1; }));
  EXPECT_EQ(assertions("!byOwnOperation"), 1u);
  EXPECT_EQ(posted.load(), 1);
  EXPECT_EQ(queue.runAll(), 1);
  EXPECT_EQ(delivered.load(), 3);
  manager.terminate();
}

// Results the queue throws away unrun leave nothing dangling; one still
// queued when the manager goes is dropped, not run against the dead manager.
TEST_F(AsyncOpManagerTest, ResultsOutliveTheirManagerOrQueueSafely) {
  test::ManualQueue queue;
  std::atomic<int> delivered{0};
  {
    AsyncOpManager manager(queue, 0);
    manager.reportResult(makeFunctor([&] { ++delivered; }));
    queue.discardAll();
    manager.terminate();
    manager.reportResult(makeFunctor([&] { ++delivered; }));
  }
  EXPECT_EQ(queue.runAll(), 1);
  EXPECT_EQ(delivered.load(), 0);
}

TEST_F(AsyncOpManagerTest, DestroyingWithARunningOperationWaitsForItsReport) {
  std::atomic<int> posted{-1};
  {
    AsyncOpManager manager(owner_, 0);
    manager.startOp(makeFunctor([&] {
      // Reports once the destructor has noticed it.
      test::eventually([&] { return sink_.contains(R"x(Assertion failed: "threads_.empty()")x"); });
      posted = manager.reportResult(Functor()) ? 1 : 0;
    }));
  }
  EXPECT_EQ(posted.load(), 0);
  EXPECT_EQ(assertions("threads_.empty()"), 1u);
}

}  // namespace
}  // namespace QIM
