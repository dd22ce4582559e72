#include <gtest/gtest.h>

#include <ace/Reactor.h>
#include <ace/Select_Reactor.h>
#include <ace/Thread.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ActionThread.h"
#include "qimmisc/ReactorActionQueue.h"
#include "qimmisc/TimerScheduler.h"

namespace QIM {
namespace {

// An action's runs and its live copies: a freed timer destroys its copy.
struct Probe {
  std::shared_ptr<std::atomic<int>> runs = std::make_shared<std::atomic<int>>(0);
  Functor action() const { return makeFunctor([r = runs] { ++*r; }); }
  int live() const { return static_cast<int>(runs.use_count()) - 1; }
  int ran() const { return runs->load(); }
};

const ACE_Time_Value kNow(0);
const ACE_Time_Value kOneHour(3600);

class TimerSchedulerTest : public test::TracingTest {
 protected:
  std::size_t lines(const std::string& text) const { return sink_.linesWith(text).size(); }
  static std::string at(const Timer* timer) { return (std::ostringstream() << timer).str(); }
  // Waits until `count` timers are posted to `queue`, then runs them.
  static int fire(test::ManualQueue& queue, int count) {
    return queue.waitForQueued(count) ? queue.runAll() : -1;
  }
};

// The delay, whether high-priority, the priority it is posted at.
using DelayCase = std::tuple<ACE_Time_Value, bool, int>;
class FiringTest : public TimerSchedulerTest, public ::testing::WithParamInterface<DelayCase> {};

// Also: equal expiries fire in scheduling order, and a far-off timer
// neither overflows nor keeps earlier ones waiting.
TEST_P(FiringTest, IsPostedOnceAtItsPriorityAndRunsInOrderOnTheQueueThread) {
  const auto& [delay, highPriority, priority] = GetParam();
  test::ManualQueue queue;
  TimerScheduler timers;
  timers.schedule(makeFunctor([] {}), &queue, ACE_Time_Value(2147483647), false);
  Probe probe;
  std::vector<int> order;
  Timer* first = timers.schedule(probe.action(), &queue, delay, highPriority);
  for (int i = 0; i < 100; ++i) {
    timers.schedule(makeFunctor([&order, i] { order.push_back(i); }), &queue, delay, highPriority);
  }
  ASSERT_TRUE(queue.waitForQueued(101));
  EXPECT_EQ(queue.size(priority), 101);
  EXPECT_EQ(probe.ran(), 0);  // nothing runs on the scheduler thread
  EXPECT_EQ(queue.runAll(), 101);
  EXPECT_EQ(probe.ran(), 1);
  EXPECT_EQ(probe.live(), 0);  // freed with the executed action
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
  for (std::string text :
       {"scheduled timer ", "queueing expired timer ", "executing expired timer: "}) {
    EXPECT_EQ(lines(text + at(first)), 1u) << text;
  }
  EXPECT_EQ(lines("Assertion failed"), 0u);
}
INSTANTIATE_TEST_SUITE_P(Delays, FiringTest,
                         ::testing::Values(DelayCase{kNow, false, TimerScheduler::TimerPriority},
                                           DelayCase{ACE_Time_Value(-2147483647), false, 5},
                                           DelayCase{kNow, true, ActionQueue::HighPriority}));

enum End { CanceledPending, CanceledPosted, CanceledDropped, DestroyedPending, DestroyedPosted };
class EndTest : public TimerSchedulerTest, public ::testing::WithParamInterface<End> {};

// A timer cancelled, or whose scheduler goes, never runs and is freed once,
// also after its queue dropped it unrun (ASan sees a leak or double free).
TEST_P(EndTest, TheActionNeverRunsAndIsFreed) {
  const End end = GetParam();
  const bool pending = end == CanceledPending || end == DestroyedPending;
  const bool canceled = end < DestroyedPending;
  test::ManualQueue queue;
  auto timers = std::make_unique<TimerScheduler>();
  Probe probe;
  Timer* timer = timers->schedule(probe.action(), &queue, pending ? kOneHour : kNow, false);
  ASSERT_TRUE(pending || queue.waitForQueued(1));
  if (end == CanceledDropped) queue.discardAll();
  if (canceled) timers->cancel(timer);
  std::unique_ptr<TimerScheduler> fresh;  // made while the last one goes
  std::thread maker([&] { fresh = std::make_unique<TimerScheduler>(); });
  timers.reset();
  maker.join();
  queue.runAll();
  EXPECT_EQ(lines("canceling scheduled timer " + at(timer)), canceled && pending ? 1u : 0u);
  EXPECT_EQ(lines("canceling expired timer " + at(timer)), canceled && !pending ? 1u : 0u);
  EXPECT_EQ(lines("discarding canceled expired timer: " + at(timer)),
            end == CanceledPosted || end == DestroyedPosted ? 1u : 0u);
  EXPECT_EQ(probe.ran() + probe.live(), 0);
  fresh->schedule(probe.action(), &queue, kNow, false);  // has a running thread
  EXPECT_EQ(fire(queue, 1), 1);
  EXPECT_EQ(lines("Assertion failed"), 0u);
}
INSTANTIATE_TEST_SUITE_P(Cases, EndTest,
                         ::testing::Values(CanceledPending, CanceledPosted, CanceledDropped,
                                           DestroyedPending, DestroyedPosted));

TEST_F(TimerSchedulerTest, MisuseIsReported) {
  ActionThread worker;
  worker.start("QIM::TimerTest");
  TimerScheduler timers;
  Probe probe;
  timers.cancel(nullptr);  // ignored
  EXPECT_EQ(timers.schedule(probe.action(), nullptr, kNow, false), nullptr);
  EXPECT_EQ(lines(R"(Assertion failed: "0!=queue")"), 1u);
  TimeoutExecutor(nullptr).execute();
  EXPECT_EQ(lines(R"(Assertion failed: "0!=timer")"), 1u);
  // Off the queue's thread a cancel is reported and still cancels.
  Timer* timer = timers.schedule(probe.action(), &worker, kOneHour, false);
  timers.cancel(timer);
  EXPECT_EQ(lines(R"x(Assertion failed: "ACE_OS::thr_equal(ACE_Thread::self(),)x"
                  R"x(timer->queue->tid())" : self=)x"),
            1u);
  EXPECT_EQ(lines(" tid=" + std::to_string(worker.tid())), 1u);
  EXPECT_EQ(lines("canceling scheduled timer " + at(timer)), 1u);
  // Unknown handles: another scheduler's, one already run, one cancelled.
  test::ManualQueue queue;
  TimerScheduler other;
  Timer* foreign = other.schedule(probe.action(), &queue, kOneHour, false);
  Timer* ran = timers.schedule(probe.action(), &queue, kNow, false);
  ASSERT_EQ(fire(queue, 1), 1);
  for (Timer* unknown : {foreign, ran, timer}) {  // `timer`'s address may be reused
    sink_.clear();
    timers.cancel(unknown);
    EXPECT_EQ(lines(R"x(Assertion failed: "it1 != pimpl_->timers_.end()" : )x"
                    "trying to cancel unknown timer " + at(unknown) + "  OS ERROR: "),
              1u);
    EXPECT_EQ(lines("canceling"), 0u);
  }
  EXPECT_EQ(probe.live(), 1);  // only the foreign one, left alone
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
}

// Timers are cancelled on their queue's thread while the scheduler thread
// posts others there.
TEST_F(TimerSchedulerTest, CanceledTimersNeverRunWhileOthersFire) {
  DbgMsg::initChannels(nullptr);
  enum : char { Pending, Canceled, Ran };
  ActionThread worker;
  worker.start("QIM::TimerStress");
  TimerScheduler timers;
  std::vector<char> state;  // these three are touched on the worker only
  std::vector<Timer*> handles;
  std::mt19937 rng(7);
  std::atomic<int> ended{0}, violations{0};
  const auto round = [&] {
    for (int k = 0; k < 100; ++k) {
      const std::size_t i = handles.size();
      state.push_back(Pending);
      const auto fired = [&, i] { violations += state[i] != Pending; state[i] = Ran; ++ended; };
      const ACE_Time_Value delay(0, static_cast<long>(rng() % 300));
      handles.push_back(timers.schedule(makeFunctor(fired), &worker, delay, rng() % 4 == 0));
      const std::size_t victim = i - rng() % (i < 8 ? i + 1 : 8);
      if (state[victim] != Pending) continue;
      timers.cancel(handles[victim]);
      state[victim] = Canceled;
      ++ended;
    }
  };
  for (int r = 0; r < 30; ++r) worker.push_back(makeFunctor(round), 0);
  EXPECT_TRUE(test::eventually([&] { return ended.load() == 3000; }));
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_EQ(violations.load() + static_cast<int>(lines("Assertion failed")), 0);
}

// The scheduler thread posts without its mutex: a reactor queue's post
// waits for the reactor's lock, which the reactor thread holds while an
// expiring timer takes that mutex.
TEST_F(TimerSchedulerTest, TimersReachAReactorQueueWhoseLoopIsRunning) {
  DbgMsg::initChannels(nullptr);
  ACE_Select_Reactor impl;
  ACE_Reactor reactor(&impl);
  ReactorActionQueue queue;
  queue.setReactor(&reactor);
  test::Gate owned;
  std::thread loop([&] {
    reactor.owner(ACE_Thread::self());
    owned.open();
    reactor.run_reactor_event_loop();
  });
  owned.wait();
  std::atomic<int> ran{0};
  TimerScheduler timers;
  std::thread producer([&] {  // it too may get stuck, in schedule
    for (int i = 0; i < 300; ++i) {
      timers.schedule(makeFunctor([&] { ++ran; }), &queue, kNow, i % 2 == 0);
    }
  });
  if (!test::eventually([&] { return ran.load() == 300; })) {
    ADD_FAILURE() << "stuck at " << ran.load() << " of 300; reactor open: " << impl.initialized();
    std::fflush(stdout);
    std::_Exit(1);  // the threads are stuck: leaving is the only bounded way out
  }
  producer.join();
  reactor.end_reactor_event_loop();
  loop.join();
  EXPECT_EQ(lines("Assertion failed"), 0u);
}

}  // namespace
}  // namespace QIM
