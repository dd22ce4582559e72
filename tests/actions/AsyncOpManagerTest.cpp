#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

#include "TestSupport.h"
#include "actions/ThreadDetach.h"
#include "qimmisc/AsyncOpManager.h"

namespace QIM {
namespace {

// Counts the threads that ran to their very end, thread-local destructors
// included: what ACE's own thread-exit cleanup also belongs to.
std::atomic<int> threadsEnded{0};
struct EndMark {
  bool armed = false;
  ~EndMark() {
    if (armed) ++threadsEnded;
  }
};
thread_local EndMark endMark;

// The queue is served by hand on the test's thread, which is its thread.
class AsyncOpManagerTest : public test::TracingTest {
 protected:
  bool asserted(const std::string& condition) const {
    return sink_.contains("Assertion failed: \"" + condition + "\"");
  }
  test::ManualQueue queue_;
};

// One thread: each operation on a new thread with the next number; the
// second starts when the first reports, before the first thread has ended;
// results arrive in operation order.
TEST_F(AsyncOpManagerTest, OneThreadRunsOperationsInTurnOnNewNumberedThreads) {
  AsyncOpManager manager(queue_, 1);
  test::Gate secondStarted;
  std::atomic<bool> firstSawSecond{false};
  std::vector<int> delivered;
  for (int i = 1; i <= 3; ++i) {
    manager.startOp(makeFunctor([&, i] {
      if (i == 2) secondStarted.open();
      manager.reportResult(makeFunctor([&, i] { delivered.push_back(i); }));
      if (i == 1) firstSawSecond = secondStarted.waitFor(10000);
    }));
  }
  ASSERT_TRUE(queue_.waitForQueued(3));
  queue_.runAll();
  manager.terminate();
  EXPECT_TRUE(firstSawSecond.load());
  EXPECT_THAT(delivered, ::testing::ElementsAre(1, 2, 3));
  std::vector<unsigned long> numbers;  // of the threads' names, "AOM-<n>"
  for (const auto& line : sink_.linesWith("(QIM::createThread) name=AOM-")) {
    numbers.push_back(std::stoul(line.substr(line.rfind('-') + 1)));
  }
  ASSERT_EQ(numbers.size(), 3u);
  EXPECT_THAT(numbers, ::testing::ElementsAre(numbers[0], numbers[0] + 1, numbers[0] + 2));
  EXPECT_TRUE(sink_.contains("(QIM::`anonymous-namespace'::threadFunc) arg="));
  EXPECT_FALSE(sink_.contains("Assertion failed"));
}

// terminate waits for the running operation, whose result is dropped, and
// drops a result already queued and the waiting operation; then the manager
// works as before.
TEST_F(AsyncOpManagerTest, TerminateWaitsForTheRunningAndDropsEverythingElse) {
  AsyncOpManager manager(queue_, 1);
  test::Gate release;
  const auto alive = std::make_shared<int>();
  std::atomic<int> delivered{0}, refused{0}, waitingRan{0};
  auto op = [&](bool blocks) {
    return makeFunctor([&, blocks, alive] {
      if (blocks) release.waitFor(10000);
      if (!manager.reportResult(makeFunctor([&, alive] { ++delivered; }))) ++refused;
    });
  };
  manager.startOp(op(false));
  ASSERT_TRUE(queue_.waitForQueued(1));
  manager.startOp(op(true));
  manager.startOp(makeFunctor([&, alive] { ++waitingRan; }));
  std::thread releaser([&] {
    // A start during terminate is reported (an empty one then ignored).
    test::eventually([&] { return manager.startOp(Functor()), asserted("!terminating_"); });
    release.open();
  });
  manager.terminate();
  releaser.join();
  EXPECT_TRUE(test::eventually([&] { return refused == 1 && alive.use_count() == 2; }));
  queue_.runAll();  // drops the result queued before terminate
  EXPECT_EQ(delivered + waitingRan, 0);
  EXPECT_EQ(alive.use_count(), 1);  // nothing dropped is kept
  manager.startOp(op(false));  // and it works as before
  ASSERT_TRUE(queue_.waitForQueued(1));
  queue_.runAll();
  EXPECT_EQ(delivered.load(), 1);
}

// Terminates amid operations started from several threads, some running,
// some waiting, some results on their way: nothing is delivered afterwards.
TEST_F(AsyncOpManagerTest, TerminateUnderLoadDeliversNothingAfterwards) {
  for (const unsigned int maxThreads : {0u, 1u, 3u}) {
    std::atomic<int> started{0}, returned{0}, delivered{0};
    AsyncOpManager manager(queue_, maxThreads);
    auto op = makeFunctor([&] {
      ++started;
      manager.reportResult(makeFunctor([&] { ++delivered; }));
      ++returned;
    });
    auto start = [&] {
      for (int i = 0; i < 30; ++i) manager.startOp(op);
    };
    std::thread starter(start);
    start();
    starter.join();
    ASSERT_TRUE(queue_.waitForQueued(3));
    queue_.runAll();
    manager.terminate();
    const int before = delivered;
    EXPECT_TRUE(test::eventually([&] { return returned == started; }));
    queue_.runAll();
    EXPECT_EQ(delivered.load(), before) << maxThreads;
  }
  EXPECT_FALSE(sink_.contains("Assertion failed"));
}

// Operation threads are not joined by terminate but by the process before
// its exit-time teardown: once that join is done, every operation thread has
// ended, whether it reported, threw or was started for a waiting operation.
TEST_F(AsyncOpManagerTest, OperationThreadsHaveEndedOnceTheProcessJoinsThem) {
  for (const unsigned int maxThreads : {0u, 1u}) {
    detail::joinDetachedThreads();
    threadsEnded = 0;
    {
      AsyncOpManager manager(queue_, maxThreads);
      for (int i = 0; i < 4; ++i) {
        manager.startOp(makeFunctor([&, i] {
          endMark.armed = true;
          if (i == 3) throw std::runtime_error("gone");
          manager.reportResult(makeFunctor([] {}));
        }));
      }
      ASSERT_TRUE(queue_.waitForQueued(3));
      ASSERT_TRUE(test::eventually([&] { return sink_.contains("exception: gone"); }));
      queue_.runAll();
      manager.terminate();
    }
    EXPECT_GE(detail::joinDetachedThreads(), 1u) << maxThreads;
    EXPECT_EQ(threadsEnded.load(), 4) << maxThreads;
    EXPECT_EQ(detail::joinDetachedThreads(), 0u) << maxThreads;
  }
  EXPECT_FALSE(sink_.contains("Assertion failed"));
}

#ifndef _WIN32
// A forked child has none of its parent's operation threads, so it has none
// to join on its way out (joining one would wait for ever).
TEST_F(AsyncOpManagerTest, ForkedChildHasNoOperationThreadToJoin) {
  AsyncOpManager manager(queue_, 0);
  test::Gate release;
  manager.startOp(makeFunctor([&] {
    manager.reportResult(makeFunctor([] {}));
    release.waitFor(10000);  // still running when the parent forks
  }));
  ASSERT_TRUE(queue_.waitForQueued(1));
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) ::_exit(detail::joinDetachedThreads() == 0 ? 0 : 1);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  release.open();
  queue_.runAll();
  manager.terminate();
  EXPECT_GE(detail::joinDetachedThreads(), 1u);
}
#endif

TEST_F(AsyncOpManagerTest, MisuseIsReportedAndHandled) {
  std::atomic<int> delivered{0};
  auto result = makeFunctor([&] { ++delivered; });
  {
    AsyncOpManager manager(queue_, 0);
    // Not an operation of this manager: reported, posted anyway.
    EXPECT_TRUE(manager.reportResult(result));
    EXPECT_TRUE(asserted("it!=threads_.end()"));
    EXPECT_EQ(queue_.runAll(), 1);  // learns this thread as the queue's
    // Delivered on another thread: reported, delivered anyway.
    manager.reportResult(result);
    std::thread([&] { queue_.runAll(); }).join();
    EXPECT_TRUE(asserted("ACE_OS::thr_equal(that->queueTid_,ACE_Thread::self())"));
    EXPECT_EQ(delivered.load(), 2);
    // Terminated off the queue's (last known) thread: reported, done anyway.
    manager.reportResult(result);
    manager.terminate();
    EXPECT_TRUE(asserted("!haveQueueTid_ || ACE_OS::thr_equal(queueTid_, ACE_Thread::self())"));
    // An empty operation could never report; a terminate by an operation
    // would wait for itself; an operation that throws is logged.
    manager.startOp(Functor());
    EXPECT_TRUE(asserted("!op.empty()"));
    manager.startOp(makeFunctor([] { throw std::runtime_error("directory unreachable"); }));
    manager.startOp(makeFunctor([&] { manager.terminate(), manager.reportResult(result); }));
    ASSERT_TRUE(queue_.waitForQueued(2));
    EXPECT_TRUE(asserted("!byOwnOperation"));
    EXPECT_TRUE(test::eventually(
        [&] { return sink_.contains("operation threw an exception: directory unreachable"); }));
    // Destroyed with an operation running: reported, and waits for it.
    manager.startOp(makeFunctor([&] {
      test::eventually([&] { return asserted("threads_.empty()"); });
      manager.reportResult(result);
    }));
  }
  // Results still queued when the manager went are dropped, not run.
  EXPECT_EQ(queue_.runAll(), 2);
  EXPECT_EQ(delivered.load(), 2);
}

}  // namespace
}  // namespace QIM
