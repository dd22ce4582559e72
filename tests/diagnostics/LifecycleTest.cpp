#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "qimmisc/BuildInfo.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/QIMMiscApi.h"
#include "qimmisc/TimerScheduler.h"

using ::testing::HasSubstr;

namespace QIM {
namespace {

using LifecycleTest = test::TracingTest;

TEST_F(LifecycleTest, InitAndExitAreCounted) {
  const int before = QIMMiscApi::refCount();
  QIMMiscApi::init();
  QIMMiscApi::init();
  EXPECT_EQ(QIMMiscApi::refCount(), before + 2);
  QIMMiscApi::exit();
  QIMMiscApi::exit();
  EXPECT_EQ(QIMMiscApi::refCount(), before);
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

TEST_F(LifecycleTest, UnbalancedExitIsReportedAndCountStaysNegative) {
  ASSERT_EQ(QIMMiscApi::refCount(), 0);
  QIMMiscApi::exit();
  EXPECT_EQ(QIMMiscApi::refCount(), -1);
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "refCount_>=0" : refCount_ should not be negative  OS ERROR: )").size(), 1u);
  // The next init reports again and only brings the count back to 0.
  QIMMiscApi::init();
  EXPECT_EQ(QIMMiscApi::refCount(), 0);
  EXPECT_EQ(sink_.linesWith("refCount_ should not be negative").size(), 2u);
}

TEST_F(LifecycleTest, LastExitReportsALiveTimerScheduler) {
  QIMMiscApi::init();
  QIMMiscApi::init();
  auto scheduler = std::make_unique<TimerScheduler>();
  // The host reads the library's own counter.
  EXPECT_EQ(TCountedObject<TimerScheduler>::liveCount(), 1);
  QIMMiscApi::exit();
  EXPECT_TRUE(sink_.linesWith("undestroyed objects of type").empty());
  QIMMiscApi::exit();
  EXPECT_THAT(sink_.linesWith("undestroyed objects of type"),
              ::testing::ElementsAre(HasSubstr(
                  R"(Assertion failed: "count == 0" : 1 undestroyed objects of type QIM::TimerScheduler  OS ERROR)")));
  scheduler.reset();
  sink_.clear();
  QIMMiscApi::init();
  QIMMiscApi::exit();
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

struct Leaky : TCountedObject<Leaky> {};

TEST_F(LifecycleTest, CountedObjectsReportTheUndestroyed) {
  {
    Leaky a;
    Leaky copy(a);
    EXPECT_EQ(TCountedObject<Leaky>::liveCount(), 2);
    TCountedObject<Leaky>::objectCountSanity();
  }
  EXPECT_THAT(sink_.linesWith("Assertion failed"),
              ::testing::ElementsAre(HasSubstr(
                  R"("count == 0" : 2 undestroyed objects of type QIM::(anonymous namespace)::Leaky  OS ERROR)")));
  sink_.clear();
  EXPECT_EQ(TCountedObject<Leaky>::liveCount(), 0);
  TCountedObject<Leaky>::objectCountSanity();
  EXPECT_TRUE(sink_.lines().empty());
}

TEST(Exceptions, KeepBothTextsAndReturnTheMessage) {
  try {
    throw PreferencesWriteException("Flush error");
  } catch (const QIMException& e) {
    EXPECT_STREQ(e.what(), "Flush error");
    EXPECT_STREQ(e.first(), "PreferencesWriteException");
  }
  const QIMException plain("first", "message");
  EXPECT_STREQ(plain.what(), "message");
  EXPECT_STREQ(QIMException("x", nullptr).what(), "");
}

TEST(BuildInfo, ReportsTheValuesFixedByTheBuild) {
  EXPECT_FALSE(isBuildSecure());
  EXPECT_EQ(getBuildVersion(), L"10.4");
  EXPECT_EQ(getBuildNumber(), L"1680");
  EXPECT_EQ(getBuildDate(), L"20171127");
  EXPECT_EQ(getCopyrightYear(), L"2017");
  EXPECT_EQ(getBuildMode(), L"Standard build");
  EXPECT_FALSE(getBuildSource().empty());
  EXPECT_EQ(getBuildSource().find(L'\n'), std::wstring::npos);
}

}  // namespace
}  // namespace QIM
