// Every producer delivers to every kind of queue under load: on the queue's
// own thread, all of it, and without a hang (a producer that posts while it
// holds its own mutex deadlocks with a reactor's queue).
#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include <atomic>
#include <tuple>

#include "RunningQueue.h"
#include "TestSupport.h"
#include "qimmisc/AsyncOpManager.h"
#include "qimmisc/TimerScheduler.h"

namespace QIM {
namespace {

using test::QueueKind;
class ProducerQueueTest : public ::testing::TestWithParam<std::tuple<bool, QueueKind>> {};

TEST_P(ProducerQueueTest, EveryDeliveryArrivesOnTheQueueThread) {
  const auto [timers, kind] = GetParam();
  std::shared_ptr<ActionQueue> queue;
  ASSERT_NO_FATAL_FAILURE(test::startQueue(kind, queue));
  const auto runner = static_cast<ACE_thread_t>(queue->tid());
  std::atomic<int> arrived{0}, offThread{0};
  const Functor deliver = makeFunctor([&] {
    offThread += ACE_OS::thr_equal(ACE_Thread::self(), runner) ? 0 : 1;
    ++arrived;
  });
  if (timers) {
    TimerScheduler scheduler;
    for (int i = 0; i < 100; ++i) scheduler.schedule(deliver, queue.get(), ACE_Time_Value::zero, false);
    EXPECT_TRUE(test::eventually([&] { return arrived == 100; })) << arrived;
  } else {
    AsyncOpManager manager(*queue, 8);  // most operations wait for a slot
    for (int i = 0; i < 200; ++i) manager.startOp(makeFunctor([&] { manager.reportResult(deliver); }));
    EXPECT_TRUE(test::eventually([&] { return arrived == 200; })) << arrived;
    test::Gate terminated;
    queue->push_back(makeFunctor([&] { manager.terminate(), terminated.open(); }), 0);
    ASSERT_TRUE(terminated.waitFor(10000));
  }
  EXPECT_EQ(offThread.load(), 0);
}

INSTANTIATE_TEST_SUITE_P(All, ProducerQueueTest,
                         ::testing::Combine(::testing::Bool(), ::testing::ValuesIn(test::kQueueKinds)),
                         [](const auto& param) {
                           return std::string(std::get<0>(param.param) ? "Timers" : "Operations") +
                                  "To" + test::kQueueKindNames[int(std::get<1>(param.param))];
                         });

}  // namespace
}  // namespace QIM
