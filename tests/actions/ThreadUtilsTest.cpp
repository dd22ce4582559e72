#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include <atomic>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ThreadUtils.h"

#if defined(__linux__)
#include <pthread.h>
#endif

using ::testing::HasSubstr;

namespace QIM {
namespace {

using ThreadUtilsTest = test::TracingTest;

TEST_F(ThreadUtilsTest, ReturnsTheIdTheThreadSeesAndJoins) {
  std::atomic<unsigned long> inside{0};
  void* handle = nullptr;
  const unsigned long tid = createThread(
      makeFunctor([&inside] { inside = static_cast<unsigned long>(ACE_Thread::self()); }),
      "QIM::Test", &handle, 0);
  // The thread has recorded itself before createThread returned.
  ASSERT_NE(handle, nullptr);
  joinThread(handle);
  EXPECT_EQ(inside.load(), tid);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
  EXPECT_EQ(sink_.linesWith("(QIM::`anonymous-namespace'::threadFunc) arg=").size(), 1u);
}

TEST_F(ThreadUtilsTest, ManyConcurrentStartsEachGetTheirOwnId) {
  std::vector<void*> handles(8);
  std::vector<unsigned long> ids(8);
  std::vector<std::atomic<unsigned long>> seen(8);
  for (std::size_t i = 0; i < handles.size(); ++i) {
    auto* slot = &seen[i];
    ids[i] = createThread(makeFunctor([slot] {
                            *slot = static_cast<unsigned long>(ACE_Thread::self());
                          }),
                          "", &handles[i], 64 * 1024);
  }
  for (std::size_t i = 0; i < handles.size(); ++i) {
    joinThread(handles[i]);
    EXPECT_EQ(seen[i].load(), ids[i]);
  }
}

TEST_F(ThreadUtilsTest, DetachedThreadRunsWithoutHandle) {
  std::atomic<bool> ran{false};
  createThread(makeFunctor([&ran] { ran = true; }), "QIM::Detached", nullptr, 0);
  for (int i = 0; i < 5000 && !ran; ++i) ACE_OS::thr_yield();
  while (!ran) ACE_OS::thr_yield();
  EXPECT_TRUE(ran.load());
}

TEST_F(ThreadUtilsTest, BodyCarriesItsCreatorsStack) {
  std::string info;
  void* handle = nullptr;
  {
    QIM_ENTRY();
    createThread(makeFunctor([&info] { info = DbgMsg::getStackInfo(); }), "", &handle, 0);
  }
  joinThread(handle);
  EXPECT_THAT(info, HasSubstr("BodyCarriesItsCreatorsStack"));
}

#if defined(__linux__)
TEST_F(ThreadUtilsTest, NamesTheThreadCutToTheKernelLimit) {
  std::string name;
  void* handle = nullptr;
  createThread(makeFunctor([&name] {
                 char buf[32] = {};
                 pthread_getname_np(pthread_self(), buf, sizeof buf);
                 name = buf;
               }),
               "QIM::TimerScheduler", &handle, 0);
  joinThread(handle);
  EXPECT_EQ(name, "QIM::TimerSched");  // 15 bytes and the NUL
  EXPECT_EQ(getThreadName(), "");
}
#endif

TEST_F(ThreadUtilsTest, SetThreadNameIsSafeWithoutADebugger) {
  setThreadName("QIM::Named");
  setThreadName("");
  setThreadName(std::string(100, 'n'));
  setThreadName("\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9");
  EXPECT_EQ(getThreadName(), "");
}

TEST_F(ThreadUtilsTest, SecondMainQueueIsReportedAndWins) {
  auto* first = reinterpret_cast<ActionQueue*>(0x1000);
  auto* second = reinterpret_cast<ActionQueue*>(0x2000);
  setMainActionQueue(*first);
  setMainActionQueue(*second);
  EXPECT_EQ(&getMainActionQueue(), second);
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "NULL == mainActionQueue_" : Main ActionQueue already set!)").size(), 1u);
  resetMainActionQueue();
  setMainActionQueue(*first);
  EXPECT_EQ(sink_.linesWith("Main ActionQueue already set!").size(), 1u);
  resetMainActionQueue();
}

}  // namespace
}  // namespace QIM
