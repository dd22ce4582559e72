// The connectivity manager on any host: what it logs, how it hands its
// calls to the owner's queue, and how it ends. The kernel's real changes are
// exercised in IpConnectivityNetnsTest.cpp.
#include "qimmisc/IpConnectivityManager.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "net/ConnectivityHarness.h"
#include "qimmisc/HandlerList.h"

namespace QIM {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(ValidatePortTest, OnlyValuesBelow65536TakenUnsignedPass) {
  const std::pair<long, bool> rows[] = {{0, true},      {5060, true},   {65535, true},
                                        {65536, false}, {-1, false},    {-65535, false},
                                        {LONG_MAX, false}};
  for (const auto& [port, valid] : rows) EXPECT_EQ(validatePort(port), valid) << port;
}

// Logs its calls; may remove a handler (itself, or another) when called.
struct Listener {
  std::vector<std::string>& log;
  std::string name;
  HandlerList<Listener>* list = nullptr;
  Listener* removes = nullptr;
  void onEvent(int event) {
    log.push_back(name + std::to_string(event));
    if (removes) list->removeHandler(removes);
  }
};

TEST(HandlerListTest, AddRemoveAndRemovalFromInsideACall) {
  std::vector<std::string> log;
  HandlerList<Listener> list;
  Listener a{log, "a", &list}, b{log, "b", &list}, c{log, "c"}, d{log, "d"};
  a.removes = &a;  // itself: still called this time, not the next
  b.removes = &c;  // a later one: not called even this time
  EXPECT_FALSE(list.addHandler(nullptr));
  for (Listener* listener : {&a, &b, &c, &d}) EXPECT_TRUE(list.addHandler(listener));
  EXPECT_FALSE(list.addHandler(&b));
  EXPECT_TRUE(list.removeHandler(&d));
  EXPECT_FALSE(list.removeHandler(&d));
  list.callHandlers(&Listener::onEvent, 1);
  list.callHandlers(&Listener::onEvent, 2);
  EXPECT_THAT(log, ElementsAre("a1", "b1", "b2"));
  EXPECT_EQ(list.size(), 1U);
}

class IpConnectivityManagerTest : public ::testing::Test {
 protected:
  test::ConnectivityHarness h_{10};
};

TEST_F(IpConnectivityManagerTest, WatchesTheRouteToTheDestinationOrToAnyAddress) {
  {
    IpConnectivityManager manager(&h_.owner);
    ASSERT_TRUE(test::eventually([&] {
      return h_.lines("Waiting for evants") + h_.lines("before checking the routing") > 0;
    }));
    EXPECT_EQ(h_.lines("Monitoring the route to 0.0.0.0"), 1);
    manager.setMonitoredDestination(L"192.0.2.7:5061");
    EXPECT_EQ(manager.getMonitoredDestination(), L"192.0.2.7:5061");
    // Once the requests are refused (Wine), the passes watch no route.
    if (h_.lines("Ioctl operation is not supported") == 0) {
      ASSERT_TRUE(test::eventually(
          [&] { return h_.lines("Monitoring the route to :192.0.2.7:5061") > 0; }));
    }
  }
  EXPECT_EQ(h_.lines("actionQueue="), 1);
  EXPECT_EQ(h_.lines("The routing interface monitoring thread is terminating ..."), 1);
}

// Suspended, every check finds no interface: the address is lost once,
// whichever thread asked, and the call comes on the owner's queue.
TEST_F(IpConnectivityManagerTest, ALostAddressIsReportedOnceOnTheOwnersQueue) {
  IpConnectivityManager manager(&h_.owner);
  ASSERT_TRUE(manager.addHandler(&h_.handler));
  manager.onSuspend();
  EXPECT_TRUE(manager.isSuspended());
  manager.setMonitoredDestination(L"192.0.2.7");  // wakes the thread: a check follows
  ASSERT_TRUE(test::eventually([&] { return manager.isLocalAddressLost(); }));
  manager.setMonitoredDestination(L"192.0.2.8");
  ASSERT_TRUE(test::eventually(
      [&] { return h_.lines("Changes detected in available network interfaces") == 2; }));
  h_.onOwner([] {});
  EXPECT_THAT(h_.handler.calls(), ElementsAre("lost"));
  EXPECT_EQ(manager.getBestInterface(), L"");
  EXPECT_EQ(h_.lines("Local address:is no longer valid"), 1);
}

TEST_F(IpConnectivityManagerTest, TheChangeInterfaceTimerNotifiesOnTheOwnersQueue) {
  IpConnectivityManager manager(&h_.owner);
  manager.addHandler(&h_.handler);
  auto* const pending = reinterpret_cast<Timer*>(&h_);  // only compared
  h_.onOwner([&] {
    EXPECT_EQ(manager.scheduleChangeInterface(1, pending), pending);
    EXPECT_NE(manager.scheduleChangeInterface(1, nullptr), nullptr);
  });
  ASSERT_TRUE(test::eventually([&] { return h_.handler.calls().size() == 1; }));
  EXPECT_THAT(h_.handler.calls(), ElementsAre("routing"));
  EXPECT_EQ(h_.lines("Sending routing change notification."), 1);
}

// Each manager goes with its wake, its check and (every other time) its
// settling timer in flight: none may reach it afterwards (the sanitizer
// lanes see any that does), and its thread, waiting without limit or
// polling, ends at once.
TEST_F(IpConnectivityManagerTest, RepeatedCreateAndDestroyLeavesNothingBehind) {
  constexpr int kRounds = 20;
  for (int round = 0; round < kRounds; ++round) {
    auto manager = std::make_unique<IpConnectivityManager>(&h_.owner);
    manager->addHandler(&h_.handler);
    manager->onSuspend();
    manager->setMonitoredDestination(L"192.0.2.9");
    if (round % 2 == 1) h_.idle(1);
  }
  EXPECT_EQ(h_.lines("The routing interface monitoring thread is terminating ..."), kRounds);
  const int checks = h_.lines("Changes detected in available network interfaces");
  const std::size_t calls = h_.handler.calls().size();
  h_.idle(5);
  h_.onOwner([] {});
  EXPECT_EQ(h_.lines("Changes detected in available network interfaces"), checks);
  EXPECT_EQ(h_.handler.calls().size(), calls);
}

#ifdef _WIN32
// Wine answers the routing request with WSAEOPNOTSUPP; Windows itself may
// not, and then there is nothing to see.
TEST_F(IpConnectivityManagerTest, AnUnsupportedRequestTurnsIntoPollingEvery45Seconds) {
  const char kPass[] = "IpConnectivityManager::startMonitoringRoutingInterfaceChange using ";
  IpConnectivityManager manager(&h_.owner);
  ASSERT_TRUE(test::eventually(
      [&] { return h_.lines(kPass) >= 4 || h_.lines("Waiting for evants") > 0; }));
  if (h_.lines("errno=10045") == 0) GTEST_SKIP() << "this Winsock offers the request";
  const auto passes = h_.sink.linesWith(kPass);
  EXPECT_THAT(passes[0], HasSubstr("using ioctl"));
  for (std::size_t i = 1; i < passes.size(); ++i) {
    EXPECT_THAT(passes[i], HasSubstr("using 45 seconds timer")) << i;
  }
  EXPECT_THAT(h_.sink.linesWith("Ioctl operation is not supported, disabling"), testing::SizeIs(1));
}
#endif

}  // namespace
}  // namespace QIM
