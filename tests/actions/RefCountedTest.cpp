#include <memory>

#include "TestSupport.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/RefCounted.h"

using ::testing::ElementsAre;
using ::testing::EndsWith;

namespace QIM {
namespace {

using RefCountedTest = test::TracingTest;
struct Shared : SimpleRefCountedObject {};
struct Alpha : Net::NetworkRefCounted {};
struct Beta : Net::NetworkRefCounted {};

TEST_F(RefCountedTest, CountingNeverDeletesAndDestructionReportsReferencesStillHeld) {
  for (const long extra : {-2L, -1L, 0L, 1L, 4L}) {  // added to, or taken from, the first
    sink_.clear();
    auto* shared = new Shared;
    for (long i = 1; i <= extra; ++i) EXPECT_EQ(shared->addRef(), 1 + i);
    for (long i = 1; i <= -extra; ++i) EXPECT_EQ(shared->release(), 1 - i);
    EXPECT_EQ(shared->count(), 1 + extra);
    delete shared;
    EXPECT_THAT(sink_.linesWith("destroying refcounted object with refcount="),
                ElementsAre(EndsWith("refcount=" + std::to_string(1 + extra))));
    EXPECT_EQ(sink_.contains("Assertion failed: \"count <= 1\""), extra > 0) << extra;
  }
}

TEST_F(RefCountedTest, UsageAndShutdownCheckListLiveObjectsOldestFirst) {
  Net::NetworkRefCounted::shutdownSanityCheck();  // none alive: silent
  auto first = std::make_unique<Beta>(), gone = std::make_unique<Beta>();
  auto third = std::make_unique<Alpha>();
  gone.reset();
  const std::string alpha = "   NetworkRefCounted " + detail::typeName(typeid(Alpha));
  const std::string beta = "   NetworkRefCounted " + detail::typeName(typeid(Beta));
  Net::NetworkRefCounted::logUsage();
  Net::NetworkRefCounted::shutdownSanityCheck();
  EXPECT_THAT(sink_.linesWith("NetworkRefCounted"),
              ElementsAre(EndsWith(">> NetworkRefCounted objects alive: 2"), EndsWith(beta),
                          EndsWith(alpha), EndsWith("2 undestroyed NetworkRefCounted objects!"),
                          EndsWith(beta), EndsWith(alpha)));
}

}  // namespace
}  // namespace QIM
