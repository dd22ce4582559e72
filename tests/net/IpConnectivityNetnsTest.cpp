// The connectivity manager against the kernel's own change reports, in a
// network namespace of the test's own: routes and addresses change for
// real, and the manager's listener hears of them on the owner's queue.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "net/ConnectivityHarness.h"
#include "net/PrivateNetwork.h"
#include "qimmisc/IpConnectivityManager.h"

namespace QIM {
namespace {

using ::testing::ElementsAre;

// Reached through the default route of veth0 (10.9.0.1), or through veth2
// once it has an address and a route of its own.
const wchar_t kDestination[] = L"10.20.30.40";
// One manager second: the 2-second settling takes 200 ms.
constexpr int kMillisecondsPerSecond = 100;
const char kCheck[] = "Changes detected in available network interfaces";

// Runs the `ip` commands in one process, so that the kernel reports them
// as one burst.
void batch(const std::vector<std::string>& commands) {
  FILE* pipe = popen("ip -batch - 2>&1", "w");
  ASSERT_NE(pipe, nullptr);
  for (const std::string& command : commands) std::fputs((command + "\n").c_str(), pipe);
  ASSERT_EQ(pclose(pipe), 0);
}

class IpConnectivityNetnsTest : public test::PrivateNetwork {
 protected:
  void SetUp() override {
    PrivateNetwork::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    addVethWithDefaultRoute();
    ip("link add veth2 type veth peer name veth3");
    ip("link set veth2 up");
    ip("link set veth3 up");
    // The kernel reports a carrier some time after the link is set up; that
    // report must not land among a test's own changes.
    for (const char* link : {"veth0", "veth2"}) {
      const std::string up = std::string("ip -o link show ") + link + " | grep -q 'state UP'";
      ASSERT_TRUE(test::eventually([&] { return std::system(up.c_str()) == 0; })) << link;
    }
  }

  void TearDown() override {
    manager_.reset();
    h_.reset();
  }

  // Starts the owner's queue and a manager watching kDestination, and lets
  // the check that setting the destination brings settle.
  void start(int reconnectDelay = 0) {
    h_.emplace(kMillisecondsPerSecond, reconnectDelay);
    manager_.emplace(&h_->owner);
    manager_->addHandler(&h_->handler);
    manager_->setMonitoredDestination(kDestination);
    ASSERT_TRUE(test::eventually([this] { return h_->lines(kCheck) == 1; }));
    h_->idle(4);
    ASSERT_EQ(h_->lines(kCheck), 1);
    EXPECT_EQ(manager_->getBestInterface(), L"10.9.0.1");
  }

  // Waits until `more` checks after those seen so far have run.
  void awaitChecks(int more) {
    const int target = h_->lines(kCheck) + more;
    ASSERT_TRUE(test::eventually([&] { return h_->lines(kCheck) >= target; }));
  }

  std::optional<test::ConnectivityHarness> h_;
  std::optional<IpConnectivityManager> manager_;
};

// Start: the posted check finds 10.9.0.1 ("best"), the wake's check a
// working interface (reconnect delay 0: "routing").
TEST_F(IpConnectivityNetnsTest, ANewAddressAndRouteChangeTheBestInterfaceAtOnce) {
  start();
  batch({"addr add 10.8.0.1/24 dev veth2", "route add 10.20.30.0/24 via 10.8.0.2 dev veth2"});
  ASSERT_TRUE(test::eventually([this] { return h_->handler.calls().size() == 4; }));
  EXPECT_THAT(h_->handler.calls(), ElementsAre("best", "routing", "routing", "best"));
  EXPECT_EQ(manager_->getBestInterface(), L"10.8.0.1");
  EXPECT_EQ(h_->lines("IpConnectivityManager::checkBestInterfaceChanged from:10.9.0.1 to:10.8.0.1"),
            1);
}

TEST_F(IpConnectivityNetnsTest, FiveChangesInABurstGiveOneCheck) {
  start();
  batch({"addr add 10.9.1.1/24 dev veth0", "addr add 10.9.2.1/24 dev veth0",
         "addr add 10.9.3.1/24 dev veth0", "addr add 10.9.4.1/24 dev veth0",
         "addr add 10.9.5.1/24 dev veth0"});
  awaitChecks(1);
  h_->idle(6);
  EXPECT_EQ(h_->lines(kCheck), 2);  // the start's and the burst's
}

TEST_F(IpConnectivityNetnsTest, RemovingTheRouteLosesTheLocalAddressUntilItIsBack) {
  start();
  ip("route del default");
  ASSERT_TRUE(test::eventually([this] { return manager_->isLocalAddressLost(); }));
  ip("route add default via 10.9.0.2 dev veth0");
  ASSERT_TRUE(test::eventually([this] { return !manager_->isLocalAddressLost(); }));
  h_->onOwner([] {});
  EXPECT_THAT(h_->handler.calls(), ElementsAre("best", "routing", "lost", "routing"));
}

// Logged as milliseconds, the setting's value times 1000 is scheduled as
// seconds: the start's change timer is still pending at the next change.
TEST_F(IpConnectivityNetnsTest, AReconnectDelayIsScheduledOnceWhilePending) {
  start(3);
  EXPECT_EQ(h_->lines("Reconnect will be done after 3 msecs."), 1);
  ip("addr add 10.9.1.1/24 dev veth0");
  awaitChecks(1);
  EXPECT_EQ(h_->lines("Reconnect will be done after "), 1);
  EXPECT_THAT(h_->handler.calls(), ElementsAre("best"));
}

// While the owner's queue is busy, a flood of changes leaves one wake in it;
// once free, one check settles the flood.
TEST_F(IpConnectivityNetnsTest, AFloodOfChangesQueuesOneWake) {
  start();
  test::Gate entered, release;
  h_->owner.push_back(makeFunctor([&] {
                        entered.open();
                        release.wait();
                      }),
                      0);
  entered.wait();
  std::vector<std::string> commands;
  for (int i = 1; i <= 200; ++i) {
    commands.push_back("addr add 10.60.0." + std::to_string(i) + "/32 dev veth0");
    commands.push_back("addr del 10.60.0." + std::to_string(i) + "/32 dev veth0");
  }
  batch(commands);
  ASSERT_TRUE(test::eventually([this] { return h_->owner.size(-1) == 1; }));
  h_->idle(2);
  EXPECT_EQ(h_->owner.size(-1), 1);
  release.open();
  awaitChecks(1);
  h_->idle(6);
  EXPECT_EQ(h_->lines(kCheck), 2);
}

}  // namespace
}  // namespace QIM
