#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
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

// Deletable from outside, as a concrete shared type would be.
class Shared : public SimpleRefCountedObject {
 public:
  ~Shared() override = default;
};

class Alpha : public Net::NetworkRefCounted {
 public:
  ~Alpha() override = default;
};
class Beta : public Net::NetworkRefCounted {
 public:
  ~Beta() override = default;
};

TEST_F(RefCountedTest, AddRefAndReleaseReturnTheNewCountAndNeverDelete) {
  struct Step {
    bool add;
    long expected;
  };
  const Step steps[] = {{true, 2}, {true, 3}, {false, 2}, {false, 1}, {true, 2},
                        {false, 1}, {false, 0}};
  auto* shared = new Shared;
  EXPECT_EQ(shared->count(), 1);
  for (const Step& step : steps) {
    const long got = step.add ? shared->addRef() : shared->release();
    EXPECT_EQ(got, step.expected);
    EXPECT_EQ(shared->count(), step.expected);
  }
  // Still alive at 0: deleting is the caller's part.
  EXPECT_TRUE(sink_.linesWith("destroying refcounted object").empty());
  delete shared;
  EXPECT_THAT(sink_.linesWith("destroying refcounted object with refcount="),
              ElementsAre(EndsWith("refcount=0")));
}

TEST_F(RefCountedTest, DestructionTracesTheCountAndReportsReferencesStillHeld) {
  struct Case {
    long extraRefs;  // from the initial 1; negative releases
    const char* traced;
    bool reported;
  };
  const Case cases[] = {
      {-1, "refcount=0", false},  // every reference released
      {0, "refcount=1", false},   // never shared
      {1, "refcount=2", true},
      {4, "refcount=5", true},
      {-2, "refcount=-1", false},  // released once too often
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.traced);
    sink_.clear();
    auto* shared = new Shared;
    for (long i = 0; i < c.extraRefs; ++i) shared->addRef();
    for (long i = 0; i > c.extraRefs; --i) shared->release();
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
  std::vector<std::vector<long>> added(kThreads), released(kThreads);
  auto run = [&](bool add) {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t, add] {
        for (int i = 0; i < kEach; ++i) {
          (add ? added : released)[t].push_back(add ? shared->addRef() : shared->release());
        }
      });
    }
    for (auto& thread : threads) thread.join();
  };
  run(true);
  EXPECT_EQ(shared->count(), 1 + kThreads * kEach);
  run(false);
  EXPECT_EQ(shared->count(), 1);

  // A lost update would show as a value seen twice and another never.
  std::vector<long> ups, downs;
  for (int t = 0; t < kThreads; ++t) {
    ups.insert(ups.end(), added[t].begin(), added[t].end());
    downs.insert(downs.end(), released[t].begin(), released[t].end());
  }
  std::sort(ups.begin(), ups.end());
  std::sort(downs.begin(), downs.end());
  for (int i = 0; i < kThreads * kEach; ++i) {
    ASSERT_EQ(ups[i], i + 2);
    ASSERT_EQ(downs[i], i + 1);
  }
  delete shared;
}

std::string usageLine(const std::type_info& type) {
  return "   NetworkRefCounted " + detail::typeName(type);
}

TEST_F(RefCountedTest, LogUsageListsLiveObjectsOldestFirstWithTheirTypes) {
  ASSERT_EQ(Net::NetworkRefCounted::liveCount(), 0u);
  auto first = std::make_unique<Alpha>();
  auto second = std::make_unique<Beta>();
  auto third = std::make_unique<Alpha>();
  EXPECT_EQ(Net::NetworkRefCounted::liveCount(), 3u);

  Net::NetworkRefCounted::logUsage();
  EXPECT_THAT(sink_.linesWith("NetworkRefCounted"),
              ElementsAre(EndsWith(">> NetworkRefCounted objects alive: 3"),
                          EndsWith(usageLine(typeid(Alpha))), EndsWith(usageLine(typeid(Beta))),
                          EndsWith(usageLine(typeid(Alpha)))));
  EXPECT_THAT(usageLine(typeid(Beta)), HasSubstr("Beta"));

  sink_.clear();
  second.reset();
  Net::NetworkRefCounted::logUsage();
  EXPECT_THAT(sink_.linesWith("NetworkRefCounted"),
              ElementsAre(EndsWith("alive: 2"), EndsWith(usageLine(typeid(Alpha))),
                          EndsWith(usageLine(typeid(Alpha)))));

  sink_.clear();
  first.reset();
  third.reset();
  Net::NetworkRefCounted::logUsage();
  EXPECT_THAT(sink_.linesWith("NetworkRefCounted"), ElementsAre(EndsWith("alive: 0")));
}

TEST_F(RefCountedTest, ShutdownCheckReportsSurvivorsOnTheErrorChannelOnly) {
  ASSERT_EQ(Net::NetworkRefCounted::liveCount(), 0u);
  Net::NetworkRefCounted::shutdownSanityCheck();
  EXPECT_TRUE(sink_.linesWith("NetworkRefCounted").empty());

  // Visible with the default channels (ERROR open, everything else closed).
  DbgMsg::initChannels(nullptr);
  auto beta = std::make_unique<Beta>();
  auto alpha = std::make_unique<Alpha>();
  Net::NetworkRefCounted::shutdownSanityCheck();
  const auto lines = sink_.linesWith("NetworkRefCounted");
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_THAT(lines[0], EndsWith("2 undestroyed NetworkRefCounted objects!"));
  EXPECT_THAT(lines[1], EndsWith(usageLine(typeid(Beta))));
  EXPECT_THAT(lines[2], EndsWith(usageLine(typeid(Alpha))));
  for (const auto& line : lines) EXPECT_THAT(line, HasSubstr("ERROR"));
  // The check frees nothing.
  EXPECT_EQ(Net::NetworkRefCounted::liveCount(), 2u);

  // logUsage and destruction traces are not ERROR lines.
  sink_.clear();
  Net::NetworkRefCounted::logUsage();
  beta.reset();
  alpha.reset();
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
      std::vector<std::unique_ptr<Beta>> betas;
      for (int i = 0; i < kRounds; ++i) {
        if (i % 2) {
          alphas.push_back(std::make_unique<Alpha>());
        } else {
          betas.push_back(std::make_unique<Beta>());
        }
        if (i % 3 == 0 && !alphas.empty()) alphas.erase(alphas.begin());
        if (i % 5 == 0 && !betas.empty()) betas.erase(betas.begin());
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
