#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ace/Thread.h>

#include <string>

#include "TestSupport.h"
#include "qimmisc/ThreadUtils.h"

#ifdef __linux__
#include <pthread.h>
#endif

namespace QIM {
namespace {

using ThreadUtilsTest = test::TracingTest;

TEST_F(ThreadUtilsTest, ReturnsOnceTheNamedThreadRunsWithTheIdItSees) {
  unsigned long inside = 0;
  std::string name = "QIM::TimerSched", info;
  void* handle = nullptr;
  unsigned long tid = 0;
  {
    QIM_ENTRY();
    tid = createThread(makeFunctor([&] {
                         inside = static_cast<unsigned long>(ACE_Thread::self());
                         info = DbgMsg::getStackInfo();  // where it was started
#ifdef __linux__
                         char buf[32] = {};
                         pthread_getname_np(pthread_self(), buf, sizeof buf);
                         name = buf;  // cut to the kernel's 15 bytes
#endif
                       }),
                       "QIM::TimerScheduler", &handle, 0);
  }
  joinThread(handle);
  EXPECT_EQ(inside, tid);
  EXPECT_EQ(name, "QIM::TimerSched");
  EXPECT_THAT(info, ::testing::HasSubstr("ReturnsOnceTheNamedThreadRunsWithTheIdItSees"));
  EXPECT_TRUE(sink_.contains("(QIM::`anonymous-namespace'::threadFunc) arg="));
  EXPECT_FALSE(sink_.contains("Assertion failed"));
  EXPECT_EQ(getThreadName(), "");
}

TEST_F(ThreadUtilsTest, SecondMainQueueIsReportedAndWins) {
  auto* first = reinterpret_cast<ActionQueue*>(0x1000);
  auto* second = reinterpret_cast<ActionQueue*>(0x2000);
  setMainActionQueue(*first);
  setMainActionQueue(*second);
  EXPECT_EQ(&getMainActionQueue(), second);
  EXPECT_TRUE(sink_.contains(
      R"(Assertion failed: "NULL == mainActionQueue_" : Main ActionQueue already set!)"));
  resetMainActionQueue();
}

}  // namespace
}  // namespace QIM
