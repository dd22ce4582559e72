#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/RefCounted.h"

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

namespace QIM {
namespace {

using RefCountedTest = test::TracingTest;

struct Shared : SimpleRefCountedObject {};
struct Alpha : Net::NetworkRefCounted {};
struct Beta : Net::NetworkRefCounted {};

TEST_F(RefCountedTest, CountingNeverDeletesAndDestructionReportsReferencesStillHeld) {
  const struct {
    long extraRefs;  // from the initial 1; negative releases
    const char* traced;
    bool reported;
  } cases[] = {
      {-1, "refcount=0", false},  // every reference released, still alive
      {0, "refcount=1", false},   // never shared
      {1, "refcount=2", true},
      {4, "refcount=5", true},
      {-2, "refcount=-1", false},  // released once too often
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.traced);
    sink_.clear();
    auto* shared = new Shared;
    EXPECT_EQ(shared->count(), 1);
    for (long i = 1; i <= c.extraRefs; ++i) EXPECT_EQ(shared->addRef(), 1 + i);
    for (long i = 1; i <= -c.extraRefs; ++i) EXPECT_EQ(shared->release(), 1 - i);
    EXPECT_EQ(shared->count(), 1 + c.extraRefs);
    EXPECT_TRUE(sink_.linesWith("destroying refcounted object").empty());
    delete shared;
    EXPECT_THAT(sink_.linesWith("destroying refcounted object with refcount="),
                ElementsAre(EndsWith(c.traced)));
    EXPECT_EQ(sink_.linesWith("Assertion failed: \"count <= 1\"").size(), c.reported ? 1u : 0u);
  }
}

TEST_F(RefCountedTest, ConcurrentHoldersSeeEveryCountExactlyOnce) {
  constexpr int kThreads = 4;
  constexpr int kEach = 1000;
  auto* shared = new Shared;
  std::vector<std::vector<long>> seen(kThreads);  // per thread: adds, then releases
  auto run = [&](bool add) {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t, add] {
        for (int i = 0; i < kEach; ++i) seen[t].push_back(add ? shared->addRef() : shared->release());
      });
    }
    for (auto& thread : threads) thread.join();
  };
  run(true);
  EXPECT_EQ(shared->count(), 1 + kThreads * kEach);
  run(false);
  EXPECT_EQ(shared->count(), 1);
  delete shared;

  // A lost update would show as a value seen twice and another never.
  std::vector<long> ups, downs;
  for (const auto& values : seen) {
    ups.insert(ups.end(), values.begin(), values.begin() + kEach);
    downs.insert(downs.end(), values.begin() + kEach, values.end());
  }
  std::sort(ups.begin(), ups.end());
  std::sort(downs.begin(), downs.end());
  for (int i = 0; i < kThreads * kEach; ++i) {
    ASSERT_EQ(ups[i], i + 2);
    ASSERT_EQ(downs[i], i + 1);
  }
}

std::string usageLine(const std::type_info& type) {
  return "   NetworkRefCounted " + detail::typeName(type);
}

TEST_F(RefCountedTest, UsageAndShutdownCheckListLiveObjectsOldestFirstWithTheirTypes) {
  ASSERT_EQ(Net::NetworkRefCounted::liveCount(), 0u);
  Net::NetworkRefCounted::shutdownSanityCheck();
  EXPECT_TRUE(sink_.linesWith("NetworkRefCounted").empty());
  Net::NetworkRefCounted::logUsage();
  EXPECT_THAT(sink_.linesWith("NetworkRefCounted"), ElementsAre(EndsWith("alive: 0")));

  sink_.clear();
  auto first = std::make_unique<Alpha>();
  auto second = std::make_unique<Beta>();
  auto third = std::make_unique<Alpha>();
  auto fourth = std::make_unique<Beta>();
  second.reset();
  Net::NetworkRefCounted::logUsage();
  EXPECT_THAT(sink_.linesWith("NetworkRefCounted"),
              ElementsAre(EndsWith(">> NetworkRefCounted objects alive: 3"),
                          EndsWith(usageLine(typeid(Alpha))), EndsWith(usageLine(typeid(Alpha))),
                          EndsWith(usageLine(typeid(Beta)))));

  // With the default channels (only ERROR open) the check alone is visible.
  sink_.clear();
  DbgMsg::initChannels(nullptr);
  Net::NetworkRefCounted::shutdownSanityCheck();
  const auto lines = sink_.linesWith("NetworkRefCounted");
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_THAT(lines[0], EndsWith("3 undestroyed NetworkRefCounted objects!"));
  EXPECT_THAT(lines[1], EndsWith(usageLine(typeid(Alpha))));
  EXPECT_THAT(lines[2], EndsWith(usageLine(typeid(Alpha))));
  EXPECT_THAT(lines[3], EndsWith(usageLine(typeid(Beta))));
  for (const auto& line : lines) EXPECT_THAT(line, HasSubstr("ERROR"));
  EXPECT_EQ(Net::NetworkRefCounted::liveCount(), 3u);  // the check frees nothing

  sink_.clear();
  Net::NetworkRefCounted::logUsage();
  first.reset();
  third.reset();
  fourth.reset();
  EXPECT_TRUE(sink_.lines().empty());
}

TEST_F(RefCountedTest, RegistryStaysExactUnderConcurrentCreationAndDestruction) {
  ASSERT_EQ(Net::NetworkRefCounted::liveCount(), 0u);
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  std::vector<std::thread> threads;
  std::vector<std::unique_ptr<Alpha>> kept(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&kept, t] {
      std::vector<std::unique_ptr<Alpha>> alphas;
      for (int i = 0; i < kRounds; ++i) {
        alphas.push_back(std::make_unique<Alpha>());
        if (i % 3 == 0) alphas.erase(alphas.begin() + alphas.size() / 2);
      }
      kept[t] = std::make_unique<Alpha>();
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(Net::NetworkRefCounted::liveCount(), static_cast<std::size_t>(kThreads));
  kept.clear();
  EXPECT_EQ(Net::NetworkRefCounted::liveCount(), 0u);
}

}  // namespace
}  // namespace QIM
