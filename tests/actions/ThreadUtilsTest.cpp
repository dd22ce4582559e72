// createThread itself is exercised by every threaded test (the ids and
// names of operation threads are checked in AsyncOpManagerTest).
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "qimmisc/ThreadUtils.h"

namespace QIM {
namespace {

using ThreadUtilsTest = test::TracingTest;

TEST_F(ThreadUtilsTest, SecondMainQueueIsReportedAndWins) {
  auto* first = reinterpret_cast<ActionQueue*>(0x1000);
  auto* second = reinterpret_cast<ActionQueue*>(0x2000);
  setMainActionQueue(*first);
  setMainActionQueue(*second);
  EXPECT_EQ(&getMainActionQueue(), second);
  EXPECT_TRUE(sink_.contains(
      "Assertion failed: \"NULL == mainActionQueue_\" : Main ActionQueue already set!"));
  resetMainActionQueue();
}

}  // namespace
}  // namespace QIM
