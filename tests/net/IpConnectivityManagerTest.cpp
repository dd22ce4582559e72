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
  const std::pair<long, bool> rows[] = {
      {0, true},       {1, true},       {5060, true}, {65535, true},
      {65536, false},  {-1, false},     {-65535, false}, {LONG_MAX, false},
      {100000, false},
  };
  for (const auto& [port, valid] : rows) EXPECT_EQ(validatePort(port), valid) << port;
}

// A listener of the handler list's own tests.
struct Listener {
  std::vector<std::string>* log;
  std::string name;
  HandlerList<Listener>* list = nullptr;
  Listener* removes = nullptr;
  void onEvent(const std::string& what) {
    log->push_back(name + ":" + what);
    if (removes) list->removeHandler(removes);
  }
};

TEST(HandlerListTest, AddsOnceRemovesAndCallsInOrder) {
  std::vector<std::string> log;
  HandlerList<Listener> list;
  Listener a{&log, "a"}, b{&log, "b"}, c{&log, "c"};
  EXPECT_FALSE(list.addHandler(nullptr));
  EXPECT_TRUE(list.addHandler(&b));
  EXPECT_TRUE(list.addHandler(&a));
  EXPECT_FALSE(list.addHandler(&b));
  EXPECT_TRUE(list.addHandler(&c));
  EXPECT_FALSE(list.removeHandler(nullptr));
  EXPECT_TRUE(list.removeHandler(&a));
  EXPECT_FALSE(list.removeHandler(&a));
  EXPECT_EQ(list.size(), 2U);
  list.callHandlers(&Listener::onEvent, std::string("x"));
  EXPECT_THAT(log, ElementsAre("b:x", "c:x"));
}

TEST(HandlerListTest, AHandlerMayRemoveItselfOrALaterOneDuringTheCall) {
  std::vector<std::string> log;
  HandlerList<Listener> list;
  Listener a{&log, "a", &list}, b{&log, "b", &list}, c{&log, "c"};
  a.removes = &a;  // itself: still called this time, not the next
  b.removes = &c;  // a later one: not called even this time
  for (Listener* listener : {&a, &b, &c}) list.addHandler(listener);
  list.callHandlers(&Listener::onEvent, std::string("1"));
  list.callHandlers(&Listener::onEvent, std::string("2"));
  EXPECT_THAT(log, ElementsAre("a:1", "b:1", "b:2"));
}

class IpConnectivityManagerTest : public ::testing::Test {
 protected:
  test::ConnectivityHarness h_{10};
};

TEST_F(IpConnectivityManagerTest, WatchesTheRouteToTheDestinationOrToAnyAddress) {
  {
    IpConnectivityManager manager(&h_.owner);
    ASSERT_TRUE(test::eventually([&] { return h_.lines("Monitoring the route to 0.0.0.0") > 0; }));
    EXPECT_EQ(h_.lines("actionQueue="), 1);
    manager.setMonitoredDestination(L"192.0.2.7:5061");
    EXPECT_EQ(manager.getMonitoredDestination(), L"192.0.2.7:5061");
    ASSERT_TRUE(test::eventually(
        [&] { return h_.lines("Monitoring the route to :192.0.2.7:5061") > 0; }));
    EXPECT_EQ(h_.lines("IpConnectivityManager::setMonitoredDestination destination:192.0.2.7:5061"),
              1);
  }
  EXPECT_EQ(h_.lines("IpConnectivityManager::terminateMonitoringThread"), 1);
  EXPECT_EQ(h_.lines("The routing interface monitoring thread is terminating ..."), 1);
}

// Suspended, every check finds no interface: the address is lost once,
// whichever thread asked, and the call comes on the owner's queue.
TEST_F(IpConnectivityManagerTest, ALostAddressIsReportedOnceOnTheOwnersQueue) {
  IpConnectivityManager manager(&h_.owner);
  ASSERT_TRUE(manager.addHandler(&h_.handler));
  EXPECT_FALSE(manager.addHandler(&h_.handler));
  manager.onSuspend();
  EXPECT_TRUE(manager.isSuspended());
  EXPECT_EQ(h_.lines("IpConnectivityManager::onSuspend() called"), 1);
  manager.setMonitoredDestination(L"192.0.2.7");  // wakes the thread: a check follows
  ASSERT_TRUE(test::eventually([&] { return h_.handler.count("lost") == 1; }));
  EXPECT_TRUE(manager.isLocalAddressLost());
  manager.updateBestInterface();
  manager.setMonitoredDestination(L"192.0.2.8");
  ASSERT_TRUE(test::eventually(
      [&] { return h_.lines("Changes detected in available network interfaces") >= 2; }));
  h_.onOwner([] {});
  EXPECT_THAT(h_.handler.calls(), ElementsAre("lost"));
  EXPECT_FALSE(h_.handler.offOwnerThread());
  EXPECT_GE(h_.lines("IpConnectivityManager::checkBestInterfaceChanged best is still:"), 2);
  EXPECT_EQ(manager.getBestInterface(), L"");
  EXPECT_EQ(h_.lines("Local address:is no longer valid"), 1);
}

TEST_F(IpConnectivityManagerTest, ChangeInterfaceTimerNotifiesOnTheOwnersQueue) {
  IpConnectivityManager manager(&h_.owner);
  manager.addHandler(&h_.handler);
  auto* const pending = reinterpret_cast<Timer*>(&h_);  // only compared, never used
  Timer* scheduled = nullptr;
  h_.onOwner([&] {
    EXPECT_EQ(manager.scheduleChangeInterface(1, pending), pending);
    scheduled = manager.scheduleChangeInterface(1, nullptr);
  });
  EXPECT_NE(scheduled, nullptr);
  ASSERT_TRUE(test::eventually([&] { return h_.handler.count("routing") == 1; }));
  EXPECT_EQ(h_.lines("Sending routing change notification."), 1);
  EXPECT_FALSE(h_.handler.offOwnerThread());
  ASSERT_TRUE(manager.removeHandler(&h_.handler));
  h_.onOwner([&] { manager.scheduleChangeInterface(0, nullptr); });
  ASSERT_TRUE(
      test::eventually([&] { return h_.lines("Sending routing change notification.") == 2; }));
  EXPECT_EQ(h_.handler.count("routing"), 1);
}

// Each manager is destroyed with its change wake, its check and a settling
// timer in flight: none of them may reach it afterwards (the sanitizer lanes
// see any that does), and the thread ends at once even while it polls.
TEST_F(IpConnectivityManagerTest, RepeatedCreateAndDestroyLeavesNothingBehind) {
  constexpr int kRounds = 20;
  for (int round = 0; round < kRounds; ++round) {
    auto manager = std::make_unique<IpConnectivityManager>(&h_.owner);
    manager->addHandler(&h_.handler);
    manager->onSuspend();
    manager->setMonitoredDestination(L"192.0.2.9");
    if (round % 2 == 1) h_.idle(1);  // the settling timer is then pending
    manager.reset();
  }
  EXPECT_EQ(h_.lines("The routing interface monitoring thread is terminating ..."), kRounds);
  const int checks = h_.lines("Changes detected in available network interfaces");
  const int lost = h_.handler.count("lost");
  h_.idle(5);
  h_.onOwner([] {});
  EXPECT_EQ(h_.lines("Changes detected in available network interfaces"), checks);
  EXPECT_EQ(h_.handler.count("lost"), lost);
  EXPECT_FALSE(h_.handler.offOwnerThread());
}

TEST(IpConnectivityManagerRealTimeTest, DestroyEndsAThreadWaitingWithoutLimitOrFor45Seconds) {
  test::CaptureSink sink;
  DbgMsg::initChannels("+all");
  DbgMsg::setLogDest(&sink);
  {
    ActionThread owner;
    owner.start("owner");
    {
      IpConnectivityManager manager(&owner);
      ASSERT_TRUE(test::eventually([&] {
        return sink.contains("Waiting for evants for FD_ROUTING_INTERFACE_CHANGE") ||
               sink.contains("seconds before checking the routing interface again");
      }));
    }  // a hang here is the fault
    owner.stop(ActionThread::StopDrain, ActionThread::ReturnWait);
  }
  DbgMsg::setLogDest(nullptr);
  DbgMsg::initChannels(nullptr);
  EXPECT_TRUE(sink.contains("The routing interface monitoring thread is terminating ..."));
}

#ifdef _WIN32
// Wine answers the routing request with WSAEOPNOTSUPP; Windows itself may
// not, and then there is nothing to see.
TEST_F(IpConnectivityManagerTest, UnsupportedRequestsTurnIntoPollingEvery45Seconds) {
  IpConnectivityManager manager(&h_.owner);
  ASSERT_TRUE(test::eventually([&] {
    return h_.lines("IpConnectivityManager::startMonitoringRoutingInterfaceChange using ") >= 4 ||
           h_.lines("Waiting for evants") > 0;
  }));
  if (h_.lines("Ioctl operation is not supported") == 0) {
    GTEST_SKIP() << "this Winsock offers the routing change request";
  }
  const auto passes =
      h_.sink.linesWith("IpConnectivityManager::startMonitoringRoutingInterfaceChange using ");
  ASSERT_GE(passes.size(), 4U);
  EXPECT_THAT(passes[0], HasSubstr("using ioctl"));
  for (std::size_t i = 1; i < passes.size(); ++i) {
    EXPECT_THAT(passes[i], HasSubstr("using 45 seconds timer")) << i;
  }
  EXPECT_THAT(h_.sink.linesWith("Ioctl operation is not supported"),
              ElementsAre(HasSubstr(
                  "disabling the use of ioctl for monitoring of routing interface changes. "
                  "errno=10045")));
  EXPECT_GE(h_.lines("Wait for 45 seconds before checking the routing interface again"), 3);
}
#endif

}  // namespace
}  // namespace QIM
