#include "TestSupport.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/QIMMiscApi.h"
#include "qimmisc/TimerScheduler.h"

namespace QIM {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

using LifecycleTest = test::TracingTest;

TEST_F(LifecycleTest, UnbalancedExitIsReportedUntilTheCountIsBack) {
  QIMMiscApi::exit();
  EXPECT_EQ(QIMMiscApi::refCount(), -1);
  QIMMiscApi::init();  // reports again and only brings the count back to 0
  EXPECT_EQ(QIMMiscApi::refCount(), 0);
  const auto line = HasSubstr(R"(Assertion failed: "refCount_>=0" : refCount_ should not be negative  OS ERROR: )");
  EXPECT_THAT(sink_.linesWith("Assertion failed"), ElementsAre(line, line));
}

TEST_F(LifecycleTest, OnlyTheLastExitReportsALiveTimerScheduler) {
  QIMMiscApi::init();
  QIMMiscApi::init();
  auto scheduler = std::make_unique<TimerScheduler>();
  EXPECT_EQ(TCountedObject<TimerScheduler>::liveCount(), 1);  // the library's own counter
  QIMMiscApi::exit();
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
  QIMMiscApi::exit();
  EXPECT_THAT(sink_.linesWith("Assertion failed"), ElementsAre(HasSubstr(
      R"(Assertion failed: "count == 0" : 1 undestroyed objects of type QIM::TimerScheduler  OS ERROR)")));
}

}  // namespace
}  // namespace QIM
