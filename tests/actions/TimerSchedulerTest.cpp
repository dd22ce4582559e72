#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ace/Thread.h>

#include <atomic>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ActionThread.h"
#include "qimmisc/TimerScheduler.h"

using ::testing::HasSubstr;
using ::testing::SizeIs;

namespace QIM {
namespace {

// Live copies of an action and its runs: a freed timer destroys its copy.
struct Counts {
  std::atomic<int> live{0}, runs{0};
};

struct Tracked {
  explicit Tracked(Counts* c) : counts(c) { ++counts->live; }
  Tracked(const Tracked& other) : counts(other.counts) { ++counts->live; }
  Tracked& operator=(const Tracked&) = delete;
  ~Tracked() { --counts->live; }
  void operator()() const { ++counts->runs; }
  Counts* counts;
};

Functor tracked(Counts& counts) { return makeFunctor(Tracked(&counts)); }

std::string addressOf(const Timer* timer) {
  std::ostringstream out;
  out << timer;
  return out.str();
}

const ACE_Time_Value kNow(0);
const ACE_Time_Value kOneHour(3600);
constexpr int kIntMax = std::numeric_limits<int>::max();

class TimerSchedulerTest : public test::TracingTest {
 protected:
  std::size_t assertions() const { return sink_.linesWith("Assertion failed").size(); }
};

struct DelayCase {
  const char* name;
  ACE_Time_Value delay;
  bool highPriority;
  int expectedPriority;
};

class TimerFiringTest : public TimerSchedulerTest,
                        public ::testing::WithParamInterface<DelayCase> {};

TEST_P(TimerFiringTest, DueTimerIsPostedOnceAtItsPriorityAndRunsOnTheQueueThread) {
  const DelayCase& c = GetParam();
  test::ManualQueue queue;
  TimerScheduler timers;
  Counts counts;
  Timer* timer = timers.schedule(tracked(counts), &queue, c.delay, c.highPriority);
  ASSERT_NE(timer, nullptr);
  ASSERT_TRUE(queue.waitForQueued(1));
  EXPECT_EQ(queue.size(c.expectedPriority), 1);
  EXPECT_EQ(queue.size(-1), 1);
  EXPECT_EQ(counts.runs.load(), 0);  // nothing runs on the scheduler thread
  EXPECT_EQ(queue.runAll(), 1);
  EXPECT_EQ(counts.runs.load(), 1);
  EXPECT_EQ(counts.live.load(), 0);  // freed with the executed action

  const std::string address = addressOf(timer);
  EXPECT_THAT(sink_.linesWith("scheduled timer " + address), SizeIs(1));
  EXPECT_THAT(sink_.linesWith("queueing expired timer " + address), SizeIs(1));
  EXPECT_THAT(sink_.linesWith("executing expired timer: " + address), SizeIs(1));
  EXPECT_EQ(assertions(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Delays, TimerFiringTest,
    ::testing::Values(DelayCase{"Zero", ACE_Time_Value(0), false, TimerScheduler::TimerPriority},
                      DelayCase{"OneMicrosecond", ACE_Time_Value(0, 1), false, 5},
                      DelayCase{"NegativeSeconds", ACE_Time_Value(-5), false, 5},
                      DelayCase{"NegativeMicroseconds", ACE_Time_Value(0, -300), false, 5},
                      DelayCase{"FarInThePast", ACE_Time_Value(-kIntMax), false, 5},
                      DelayCase{"HighPriority", ACE_Time_Value(0), true, ActionQueue::HighPriority}),
    [](const ::testing::TestParamInfo<DelayCase>& param) { return std::string(param.param.name); });

TEST_F(TimerSchedulerTest, TimersWithTheSameDelayFireInSchedulingOrder) {
  constexpr int kTimers = 300;
  test::ManualQueue queue;
  TimerScheduler timers;
  std::vector<int> order;
  for (int i = 0; i < kTimers; ++i) {
    timers.schedule(makeFunctor([&order, i] { order.push_back(i); }), &queue, kNow, false);
  }
  ASSERT_TRUE(queue.waitForQueued(kTimers));
  queue.runAll();
  ASSERT_EQ(order.size(), static_cast<std::size_t>(kTimers));
  for (int i = 0; i < kTimers; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

// Far and extreme delays neither overflow nor keep the thread from waking for
// an earlier timer.
TEST_F(TimerSchedulerTest, AnEarlierTimerWakesTheThreadWaitingForLaterOnes) {
  test::ManualQueue queue;
  TimerScheduler timers;
  Counts late, soon;
  Timer* later[] = {
      timers.schedule(tracked(late), &queue, ACE_Time_Value(kIntMax), false),
      timers.schedule(tracked(late), &queue, ACE_Time_Value(TimerScheduler::MaxDelaySeconds), false),
      timers.schedule(tracked(late), &queue, kOneHour, false)};
  ASSERT_TRUE(test::eventually([&] {  // the thread settles into its wait first
    return !sink_.linesWith("scheduled timer " + addressOf(later[2])).empty();
  }));
  timers.schedule(tracked(soon), &queue, kNow, false);
  ASSERT_TRUE(queue.waitForQueued(1));
  queue.runAll();
  EXPECT_EQ(soon.runs.load(), 1);
  for (Timer* timer : later) timers.cancel(timer);
  EXPECT_EQ(late.runs.load(), 0);
  EXPECT_EQ(late.live.load(), 0);
  EXPECT_EQ(assertions(), 0u);
}

TEST_F(TimerSchedulerTest, CancelFreesAPendingTimerAtOnceAndDiscardsAPostedOneWhenReached) {
  test::ManualQueue queue;
  TimerScheduler timers;
  Counts pending, counts;
  Timer* pendingTimer = timers.schedule(tracked(pending), &queue, kOneHour, false);
  EXPECT_EQ(pending.live.load(), 1);  // the timer's copy
  timers.cancel(pendingTimer);
  EXPECT_EQ(pending.live.load(), 0);
  EXPECT_THAT(sink_.linesWith("canceling scheduled timer " + addressOf(pendingTimer)), SizeIs(1));
  EXPECT_EQ(queue.size(-1), 0);

  Timer* timer = timers.schedule(tracked(counts), &queue, kNow, false);
  const std::string address = addressOf(timer);
  ASSERT_TRUE(queue.waitForQueued(1));
  timers.cancel(timer);
  EXPECT_THAT(sink_.linesWith("canceling expired timer " + address), SizeIs(1));
  EXPECT_EQ(counts.live.load(), 1);  // still in the queue
  EXPECT_EQ(queue.runAll(), 1);
  EXPECT_EQ(counts.runs.load(), 0);
  EXPECT_EQ(counts.live.load(), 0);
  EXPECT_THAT(sink_.linesWith("discarding canceled expired timer: " + address), SizeIs(1));
  EXPECT_TRUE(sink_.linesWith("executing expired timer: " + address).empty());
  EXPECT_EQ(assertions(), 0u);
}

enum class Unknown { OfAnotherScheduler, AlreadyRun, AlreadyCanceled };

class UnknownTimerTest : public TimerSchedulerTest,
                         public ::testing::WithParamInterface<Unknown> {};

TEST_P(UnknownTimerTest, IsReportedAndLeftAlone) {
  test::ManualQueue queue;
  TimerScheduler mine, other;
  Counts counts;
  Timer* timer = nullptr;
  switch (GetParam()) {
    case Unknown::OfAnotherScheduler:
      timer = other.schedule(tracked(counts), &queue, kNow, false);
      break;
    case Unknown::AlreadyRun:
      timer = mine.schedule(tracked(counts), &queue, kNow, false);
      ASSERT_TRUE(queue.waitForQueued(1));
      queue.runAll();
      ASSERT_EQ(counts.runs.load(), 1);
      break;
    case Unknown::AlreadyCanceled:
      timer = mine.schedule(tracked(counts), &queue, kNow, false);
      mine.cancel(timer);
      break;
  }
  const std::string address = addressOf(timer);
  sink_.clear();
  mine.cancel(timer);
  EXPECT_THAT(sink_.linesWith(R"x(Assertion failed: "it1 != pimpl_->timers_.end()" : )x"
                              "trying to cancel unknown timer " + address + "  OS ERROR: "),
              SizeIs(1));
  EXPECT_TRUE(sink_.linesWith("canceling").empty());
  if (GetParam() == Unknown::OfAnotherScheduler) {
    // Not cancelled: it still fires for its own scheduler.
    ASSERT_TRUE(queue.waitForQueued(1));
    queue.runAll();
    EXPECT_EQ(counts.runs.load(), 1);
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, UnknownTimerTest,
                         ::testing::Values(Unknown::OfAnotherScheduler, Unknown::AlreadyRun,
                                           Unknown::AlreadyCanceled));

TEST_F(TimerSchedulerTest, NullArgumentsAreHarmless) {
  test::ManualQueue queue;
  TimerScheduler timers;
  Counts counts;
  timers.cancel(nullptr);
  EXPECT_EQ(assertions(), 0u);
  EXPECT_EQ(timers.schedule(tracked(counts), nullptr, kNow, false), nullptr);
  EXPECT_THAT(sink_.linesWith(R"(Assertion failed: "0!=queue")"), SizeIs(1));
  EXPECT_EQ(counts.live.load(), 0);

  TimeoutExecutor empty(nullptr);
  empty.execute();
  EXPECT_THAT(sink_.linesWith(R"(Assertion failed: "0!=timer")"), SizeIs(1));
}

TEST_F(TimerSchedulerTest, CancelFromAnotherThreadIsReportedAndStillCancels) {
  ActionThread worker;
  worker.start("QIM::TimerTest");
  Counts counts;
  {
    TimerScheduler timers;
    Timer* timer = timers.schedule(tracked(counts), &worker, kOneHour, false);
    timers.cancel(timer);  // from the test thread, not the worker
    EXPECT_EQ(counts.live.load(), 0);
    const auto lines = sink_.linesWith(
        R"x(Assertion failed: "ACE_OS::thr_equal(ACE_Thread::self(),timer->queue->tid())" : self=)x");
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines[0], HasSubstr(" tid=" + std::to_string(worker.tid())));
    EXPECT_THAT(sink_.linesWith("canceling scheduled timer " + addressOf(timer)), SizeIs(1));
  }
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_EQ(counts.runs.load(), 0);
}

TEST_F(TimerSchedulerTest, ActionsRunOnTheQueueThreadAndMayRescheduleAndCancel) {
  ActionThread worker;
  worker.start("QIM::TimerTest");
  TimerScheduler timers;
  Counts never;
  std::atomic<int> ticks{0};
  std::atomic<unsigned long> ranOn{0};
  std::string postedFrom;  // written by the worker, read after it stopped
  Timer* blocker = nullptr;   // only the worker touches it after scheduling
  test::Gate done;

  // A periodic activity: each tick reschedules the next from its action.
  std::function<void()> tick = [&] {
    ranOn = static_cast<unsigned long>(ACE_Thread::self());
    if (++ticks < 5) {
      timers.schedule(makeFunctor(tick), &worker, kNow, false);
      return;
    }
    timers.cancel(blocker);  // on the queue's thread: no report
    done.open();
  };
  worker.push_back(makeFunctor([&] {
                     blocker = timers.schedule(tracked(never), &worker, kOneHour, false);
                     QIM_ENTRY();
                     timers.schedule(makeFunctor([&postedFrom] {
                                       postedFrom = DbgMsg::getStackInfo();
                                     }),
                                     &worker, kNow, true);
                     timers.schedule(makeFunctor(tick), &worker, kNow, false);
                   }),
                   0);
  done.wait();
  const unsigned long workerTid = worker.tid();
  worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  EXPECT_EQ(ticks.load(), 5);
  EXPECT_EQ(ranOn.load(), workerTid);
  EXPECT_EQ(never.runs.load(), 0);
  EXPECT_EQ(never.live.load(), 0);
  // The action carries the trace of the place that scheduled it.
  EXPECT_THAT(postedFrom, HasSubstr("ActionsRunOnTheQueueThreadAndMayRescheduleAndCancel"));
  EXPECT_EQ(assertions(), 0u);
}

class DroppedByQueueTest : public TimerSchedulerTest,
                           public ::testing::WithParamInterface<bool> {};

// A queue that destroys a posted timer unrun frees its action at once; the
// scheduler still lists the timer until a cancel or its own end frees it,
// once (a leak or a double free shows under the sanitizers).
TEST_P(DroppedByQueueTest, PostedTimerDroppedUnrunIsFreedExactlyOnce) {
  const bool cancelAfterwards = GetParam();
  Counts counts;
  test::ManualQueue queue;
  auto timers = std::make_unique<TimerScheduler>();
  Timer* timer = timers->schedule(tracked(counts), &queue, kNow, false);
  ASSERT_TRUE(queue.waitForQueued(1));
  queue.discardAll();
  EXPECT_EQ(counts.live.load(), 0);
  if (cancelAfterwards) {
    timers->cancel(timer);
    EXPECT_THAT(sink_.linesWith("canceling expired timer " + addressOf(timer)), SizeIs(1));
  }
  timers.reset();
  EXPECT_EQ(counts.runs.load(), 0);
  EXPECT_EQ(assertions(), 0u);
}

INSTANTIATE_TEST_SUITE_P(ThenCancel, DroppedByQueueTest, ::testing::Bool());

// The scheduler thread's ENTRY line, one per thread started.
std::size_t schedulerThreadStarts(const test::CaptureSink& sink) {
  std::size_t starts = 0;
  for (const auto& line : sink.linesWith("runScheduler)")) {
    if (line.find("<ret") == std::string::npos) ++starts;
  }
  return starts;
}

// Also: destroying a scheduler frees its pending timers and discards posted ones.
TEST_F(TimerSchedulerTest, AllSchedulersShareOneThreadWhileAnyLives) {
  test::ManualQueue queue;
  Counts counts, pending, posted;
  Timer* postedTimer = nullptr;
  {
    TimerScheduler first;
    {
      TimerScheduler second;
      first.schedule(tracked(counts), &queue, kNow, false);
      second.schedule(tracked(counts), &queue, kNow, false);
      ASSERT_TRUE(queue.waitForQueued(2));
      EXPECT_EQ(queue.runAll(), 2);
    }
    first.schedule(tracked(counts), &queue, kNow, false);  // thread still running
    ASSERT_TRUE(queue.waitForQueued(1));
    EXPECT_EQ(queue.runAll(), 1);
  }
  EXPECT_EQ(schedulerThreadStarts(sink_), 1u);
  {
    TimerScheduler again;  // the last one went: a new thread
    again.schedule(tracked(counts), &queue, kNow, false);
    ASSERT_TRUE(queue.waitForQueued(1));
    EXPECT_EQ(queue.runAll(), 1);
    again.schedule(tracked(pending), &queue, kOneHour, false);
    postedTimer = again.schedule(tracked(posted), &queue, kNow, true);
    ASSERT_TRUE(queue.waitForQueued(1));
  }
  EXPECT_EQ(schedulerThreadStarts(sink_), 2u);
  EXPECT_EQ(counts.runs.load(), 4);
  EXPECT_EQ(pending.live.load(), 0);
  EXPECT_EQ(posted.live.load(), 1);  // waits in the queue
  EXPECT_EQ(queue.runAll(), 1);
  EXPECT_EQ(posted.runs.load(), 0);
  EXPECT_EQ(posted.live.load(), 0);
  EXPECT_THAT(sink_.linesWith("discarding canceled expired timer: " + addressOf(postedTimer)),
              SizeIs(1));
  EXPECT_EQ(assertions(), 0u);
}

// The last scheduler is destroyed on one thread while a new one is made on
// another: the new one waits for the old thread to stop, starts its own, and
// its timers fire.
TEST_F(TimerSchedulerTest, LastSchedulerDestroyedWhileANewOneIsMade) {
  DbgMsg::initChannels(nullptr);  // only ERROR: many rounds
  constexpr int kRounds = 40;
  test::ManualQueue queue;
  Counts counts;
  for (int round = 0; round < kRounds; ++round) {
    auto old = std::make_unique<TimerScheduler>();
    old->schedule(tracked(counts), &queue, kOneHour, false);
    std::unique_ptr<TimerScheduler> fresh;
    test::Gate ready;
    std::thread maker([&] {
      ready.open();
      fresh = std::make_unique<TimerScheduler>();
    });
    ready.wait();
    old.reset();
    maker.join();
    fresh->schedule(tracked(counts), &queue, kNow, round % 2 == 0);
    ASSERT_TRUE(queue.waitForQueued(1)) << "round " << round;
    EXPECT_EQ(queue.runAll(), 1);
  }
  EXPECT_EQ(counts.runs.load(), kRounds);
  EXPECT_EQ(counts.live.load(), 0);
  EXPECT_EQ(assertions(), 0u);
}

Counts g_stressActions;  // live copies of every stress action

// Schedules and cancels timers from its queue's thread while the scheduler
// thread fires others. Its slots are touched only on the worker thread, so
// the check "a cancelled timer never runs" needs no lock.
class Driver {
 public:
  enum SlotState { Pending, Canceled, Ran };

  Driver(std::vector<std::unique_ptr<TimerScheduler>>& schedulers, unsigned seed, int rounds)
      : schedulers_(schedulers), rng_(seed), roundsLeft_(rounds) {}

  ActionThread worker;
  std::atomic<int> violations{0};
  std::atomic<int> ran{0};
  std::atomic<int> canceled{0};
  test::Gate done;

  void start() { worker.push_back(makeFunctor(this, &Driver::round), 0); }

 private:
  struct Slot {
    Timer* timer;
    TimerScheduler* owner;
    SlotState state;
  };

  struct Fire {
    void operator()() const { driver->fired(index); }
    Driver* driver;
    std::size_t index;
    Tracked alive;
  };

  void round() {
    std::uniform_int_distribution<int> delayUs(-50, 400);
    std::uniform_int_distribution<std::size_t> pick(0, schedulers_.size() - 1);
    for (int i = 0; i < 8; ++i) {
      TimerScheduler* owner = schedulers_[pick(rng_)].get();
      const std::size_t index = slots_.size();
      // One in eight stays pending until its scheduler is destroyed.
      const ACE_Time_Value delay = i == 7 ? kOneHour : ACE_Time_Value(0, delayUs(rng_));
      slots_.push_back({nullptr, owner, Pending});
      slots_[index].timer = owner->schedule(makeFunctor(Fire{this, index, Tracked(&g_stressActions)}), &worker, delay,
                                            rng_() % 4 == 0);
    }
    for (int i = 0; i < 5 && !slots_.empty(); ++i) {
      // Mostly recent timers: some due, some posted, some still pending.
      const std::size_t recent = std::min<std::size_t>(slots_.size(), 40);
      std::uniform_int_distribution<std::size_t> which(slots_.size() - recent, slots_.size() - 1);
      Slot& slot = slots_[which(rng_)];
      if (slot.state != Pending) continue;
      slot.owner->cancel(slot.timer);
      slot.state = Canceled;
      ++canceled;
    }
    if (--roundsLeft_ > 0) {
      worker.push_back(makeFunctor(this, &Driver::round), 0);
    } else {
      done.open();
    }
  }

  void fired(std::size_t index) {
    Slot& slot = slots_[index];
    if (slot.state != Pending) ++violations;
    slot.state = Ran;
    ++ran;
  }

  std::vector<std::unique_ptr<TimerScheduler>>& schedulers_;
  std::mt19937 rng_;
  int roundsLeft_;
  std::vector<Slot> slots_;
};

class TimerSchedulerStress : public test::TracingTest {
 protected:
  void SetUp() override {
    TracingTest::SetUp();
    DbgMsg::initChannels(nullptr);  // ERROR only: assertions still show
  }
};

TEST_F(TimerSchedulerStress, CanceledActionsNeverRunAndNothingLeaks) {
  constexpr int kRounds = 300;
  std::vector<std::unique_ptr<TimerScheduler>> schedulers;
  for (int i = 0; i < 3; ++i) schedulers.push_back(std::make_unique<TimerScheduler>());
  Driver a(schedulers, 1234, kRounds), b(schedulers, 98765, kRounds);
  a.worker.start("QIM::TimerStressA");
  b.worker.start("QIM::TimerStressB");
  a.start();
  b.start();
  a.done.wait();
  b.done.wait();
  // Short timers that were not cancelled keep firing after the last round.
  ASSERT_TRUE(test::eventually([&] { return a.ran.load() + b.ran.load() >= 50; }));

  // Hold both workers, let timers pile up in their queues, then destroy the
  // schedulers with timers pending and posted.
  test::Gate releaseWorkers;
  test::Gate heldA, heldB;
  a.worker.push_back(makeFunctor([&] { heldA.open(); releaseWorkers.wait(); }), 20);
  b.worker.push_back(makeFunctor([&] { heldB.open(); releaseWorkers.wait(); }), 20);
  heldA.wait();
  heldB.wait();
  std::atomic<int> ranAfterDestruction{0};
  for (auto& scheduler : schedulers) {
    for (ActionThread* worker : {&a.worker, &b.worker}) {
      scheduler->schedule(makeFunctor([&ranAfterDestruction] { ++ranAfterDestruction; }), worker,
                          kNow, false);
    }
  }
  ASSERT_TRUE(test::eventually([&] {
    return a.worker.size(TimerScheduler::TimerPriority) >= 3 &&
           b.worker.size(TimerScheduler::TimerPriority) >= 3;
  }));
  schedulers.clear();  // from a thread that is neither queue's
  releaseWorkers.open();
  a.worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  b.worker.stop(ActionThread::StopDrain, ActionThread::ReturnWait);

  EXPECT_EQ(a.violations.load(), 0);
  EXPECT_EQ(b.violations.load(), 0);
  EXPECT_EQ(ranAfterDestruction.load(), 0);
  EXPECT_GT(a.canceled.load() + b.canceled.load(), 0);
  EXPECT_EQ(g_stressActions.live.load(), 0);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

}  // namespace
}  // namespace QIM
