// The window-message executor exists only on Windows.
#ifdef _WIN32

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ActionWindow.h"

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::UnorderedElementsAre;

namespace QIM {
namespace {

// Thread messages the tests post to themselves.
constexpr UINT kOtherMessage = WM_APP + 1;
constexpr UINT kSentinel = WM_APP + 2;

using Observer = std::function<void(const MSG&)>;

// Pumps messages until `done`, showing each to `observe` before dispatch;
// false after about 10 seconds.
bool pumpUntil(const std::function<bool()>& done, const Observer& observe = {}) {
  const ULONGLONG deadline = GetTickCount64() + 10000;
  while (!done()) {
    if (GetTickCount64() > deadline) return false;
    MsgWaitForMultipleObjectsEx(0, nullptr, 50, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
    MSG msg;
    while (!done() && PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      if (observe) observe(msg);
      DispatchMessageW(&msg);
    }
  }
  return true;
}

// Pumps until a sentinel posted now comes back: all earlier posts delivered.
bool pumpUntilSentinel(const Observer& observe = {}) {
  PostThreadMessageW(GetCurrentThreadId(), kSentinel, 0, 0);
  bool seen = false;
  return pumpUntil([&] { return seen; }, [&](const MSG& msg) {
    if (msg.hwnd == nullptr && msg.message == kSentinel) seen = true;
    if (observe) observe(msg);
  });
}

bool isWakeUp(const MSG& msg, const ActionWindow& window) {
  return msg.message == ActionWindow::RunActionMessage &&
         msg.wParam == reinterpret_cast<WPARAM>(&window) && msg.lParam == 0;
}

bool contains(const std::vector<std::string>& events, const std::string& event) {
  return std::find(events.begin(), events.end(), event) != events.end();
}

class ActionWindowTest : public test::TracingTest {
 protected:
  void SetUp() override {
    test::TracingTest::SetUp();
    MSG msg;  // leftovers of an earlier test must not be counted here
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
  }

  Functor record(const std::string& event) {
    return makeFunctor([this, event] { events_.push_back(event); });
  }

  std::vector<std::string> events_;
};

TEST_F(ActionWindowTest, BurstKeepsOneWakeUpOutstandingAndLetsOtherMessagesIn) {
  ActionWindow window(false);
  window.init();
  EXPECT_EQ(window.tid(), GetCurrentThreadId());
  const DWORD windowThread = GetCurrentThreadId();
  std::thread poster([&] {
    for (int i = 0; i < 10; ++i) {
      window.push_back(makeFunctor([this, i, windowThread] {
                         events_.push_back("a" + std::to_string(i));
                         PostThreadMessageW(windowThread, kOtherMessage, i, 0);
                       }),
                       0);
    }
  });
  poster.join();
  EXPECT_EQ(window.size(-1), 10);

  int wakeUps = 0;
  ASSERT_TRUE(pumpUntil([&] { return events_.size() == 20; }, [&](const MSG& msg) {
    if (isWakeUp(msg, window)) ++wakeUps;
    if (msg.hwnd == nullptr && msg.message == kOtherMessage) {
      events_.push_back("m" + std::to_string(msg.wParam));
    }
  }));
  // Each action's own message comes before the next action: one action per
  // wake-up, and never a second wake-up queued ahead of it.
  std::vector<std::string> expected;
  for (int i = 0; i < 10; ++i) {
    expected.push_back("a" + std::to_string(i));
    expected.push_back("m" + std::to_string(i));
  }
  EXPECT_THAT(events_, ElementsAreArray(expected));
  EXPECT_EQ(wakeUps, 10);
  EXPECT_EQ(window.size(-1), 0);
  window.halt();
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

TEST_F(ActionWindowTest, NestedLoopInsideAnActionRunsOrHoldsTheNextOnesByReentrancy) {
  struct Case {
    bool reentrant;
    std::vector<std::string> events;
    int nestedWakeUps;  // delivered inside A's own loop
    int outerWakeUps;   // delivered by the test's loop
  };
  const Case cases[] = {
      // Held: the nested delivery is swallowed, C posts no further wake-up
      // while A runs, and the queue resumes once A returns.
      {false, {"A begins", "A ends", "B", "C"}, 1, 3},
      {true, {"A begins", "B", "C", "A ends"}, 2, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.reentrant ? "reentrant" : "not reentrant");
    events_.clear();
    ActionWindow window(c.reentrant);
    window.init();
    int nestedWakeUps = 0;
    bool stillExecutingAfterNested = false;
    const Observer countNested = [&](const MSG& msg) {
      if (isWakeUp(msg, window)) ++nestedWakeUps;
    };
    window.push_back(makeFunctor([&] {
                       events_.push_back("A begins");
                       window.push_back(record("B"), 0);
                       EXPECT_TRUE(pumpUntil([&] { return nestedWakeUps >= 1; }, countNested));
                       window.push_back(record("C"), 0);
                       EXPECT_TRUE(pumpUntilSentinel(countNested));
                       stillExecutingAfterNested = window.isExecuting();
                       events_.push_back("A ends");
                     }),
                     0);
    int outerWakeUps = 0;
    ASSERT_TRUE(pumpUntil([&] { return contains(events_, "C") && contains(events_, "A ends"); },
                          [&](const MSG& msg) {
                            if (isWakeUp(msg, window)) ++outerWakeUps;
                          }));
    EXPECT_THAT(events_, ElementsAreArray(c.events));
    EXPECT_EQ(nestedWakeUps, c.nestedWakeUps);
    EXPECT_EQ(outerWakeUps, c.outerWakeUps);
    EXPECT_TRUE(stillExecutingAfterNested);
    EXPECT_FALSE(window.isExecuting());
    window.halt();
  }
}

TEST_F(ActionWindowTest, HighPriorityActionReachesWindowThreadInsideNestedLoop) {
  ActionWindow window(false);
  window.init();
  DWORD highPriorityThread = 0;
  window.push_back(
      makeFunctor([&] {
        events_.push_back("A begins");
        std::thread other([&] {
          window.push_highPriority(makeFunctor([&] {
            highPriorityThread = GetCurrentThreadId();
            events_.push_back("H");
          }));
          window.push_back(record("O"), 0);
        });
        other.join();
        // A modal-style wait that pulls no posted message at all: only
        // sent messages get in.
        const ULONGLONG deadline = GetTickCount64() + 10000;
        while (!contains(events_, "H") && GetTickCount64() < deadline) {
          MsgWaitForMultipleObjectsEx(0, nullptr, 50, QS_SENDMESSAGE, 0);
          MSG msg;
          PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
        }
        events_.push_back("A ends");
      }),
      0);
  ASSERT_TRUE(pumpUntil([&] { return contains(events_, "O"); }));
  EXPECT_THAT(events_, ElementsAre("A begins", "H", "A ends", "O"));
  EXPECT_EQ(highPriorityThread, GetCurrentThreadId());
  EXPECT_FALSE(sink_.linesWith(" msg=1026 ").empty());
  window.halt();
}

TEST_F(ActionWindowTest, FlushDiscardsOrdinaryActionsAndKeepsHighPriorityOnes) {
  ActionWindow window(false);
  window.init();
  window.push_back(record("a"), 0);
  window.push_back(record("b"), 5);
  window.push_highPriority(record("H"));
  window.flush();
  EXPECT_EQ(window.size(-1), 0);

  // The wake-up of the flushed actions still arrives, to an empty queue;
  // it must not leave the queue deaf to the next post.
  int wakeUps = 0;
  ASSERT_TRUE(pumpUntil([&] { return contains(events_, "H") && wakeUps == 1; },
                        [&](const MSG& msg) {
                          if (isWakeUp(msg, window)) ++wakeUps;
                        }));
  window.push_back(record("S"), 0);
  ASSERT_TRUE(pumpUntil([&] { return contains(events_, "S"); }));
  EXPECT_THAT(events_, ElementsAre("H", "S"));
  window.halt();
}

TEST_F(ActionWindowTest, SecondWindowSharesTheClassAndThrowingActionsAreLogged) {
  ActionWindow first(false);
  ActionWindow second(true);
  first.init();
  second.init();
  first.push_back(record("first"), 0);
  second.push_back(record("second"), 0);
  ASSERT_TRUE(pumpUntil([&] { return events_.size() == 2; }));
  EXPECT_THAT(events_, ElementsAre("first", "second"));

  // Throwing actions are logged and the queue goes on.
  first.halt();
  second.push_back(makeFunctor([]() -> void { throw std::runtime_error("ordinary boom"); }), 0);
  second.push_back(record("after"), 0);
  second.push_highPriority(makeFunctor([]() -> void { throw 42; }));
  second.push_highPriority(record("high after"));
  ASSERT_TRUE(pumpUntil([&] { return events_.size() == 4; }));
  EXPECT_EQ(sink_.linesWith("action threw an exception: ordinary boom").size(), 1u);
  EXPECT_EQ(sink_.linesWith("action threw an exception of unknown type").size(), 1u);
  EXPECT_FALSE(second.isExecuting());
  second.halt();
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
  EXPECT_TRUE(sink_.linesWith("Throwing").empty());
}

TEST_F(ActionWindowTest, ActionsPostedWithoutAWindowOrAfterHaltWaitForTheNextInit) {
  ActionWindow window(false);
  window.push_back(record("before init"), 0);
  window.push_highPriority(record("high before init"));
  window.init();
  // The two paths race each other to the window thread: no order.
  ASSERT_TRUE(pumpUntil([&] { return events_.size() == 2; }));
  EXPECT_THAT(events_, UnorderedElementsAre("high before init", "before init"));

  // A high-priority action may halt its own window; posts then wait again.
  events_.clear();
  window.push_highPriority(makeFunctor([&] {
    window.halt();
    events_.push_back("halted");
  }));
  ASSERT_TRUE(pumpUntil([&] { return contains(events_, "halted"); }));
  window.push_back(record("while halted"), 0);
  window.push_highPriority(record("high while halted"));
  ASSERT_TRUE(pumpUntilSentinel());
  EXPECT_THAT(events_, ElementsAre("halted"));
  EXPECT_EQ(window.size(-1), 1);

  window.init();
  ASSERT_TRUE(pumpUntil([&] { return events_.size() == 3; }));
  EXPECT_THAT(events_, UnorderedElementsAre("halted", "high while halted", "while halted"));
  window.halt();
  EXPECT_TRUE(sink_.linesWith("Assertion failed").empty());
}

TEST_F(ActionWindowTest, HaltLetsInTheHighPriorityMessageBeingSent) {
  ActionWindow window(false);
  window.init();
  // The test thread does not pump: the worker blocks sending to it.
  window.push_highPriority(record("H"));
  ASSERT_TRUE(test::eventually([&] { return sink_.contains("ActionWindow::highPriorityFunc"); }));
  window.halt();  // a plain wait for the worker would never return
  EXPECT_THAT(events_, ElementsAre("H"));
}

TEST_F(ActionWindowTest, ForeignWakeUpMessagesRunNothing) {
  ActionWindow window(false);
  window.init();
  HWND hwnd = nullptr;
  window.push_back(record("own"), 0);
  ASSERT_TRUE(pumpUntil([&] { return contains(events_, "own"); }, [&](const MSG& msg) {
    if (isWakeUp(msg, window)) hwnd = msg.hwnd;
  }));
  ASSERT_NE(hwnd, nullptr);

  ActionWindow other(false);  // never given a window
  other.push_back(record("other"), 0);
  PostMessageW(hwnd, ActionWindow::RunActionMessage, 0, 0);
  PostMessageW(hwnd, ActionWindow::RunHighPriorityMessage, 0, 0);
  PostMessageW(hwnd, ActionWindow::RunActionMessage, reinterpret_cast<WPARAM>(&other), 0);
  ASSERT_TRUE(pumpUntilSentinel());
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0!=that")").size(), 2u);
  EXPECT_EQ(sink_.linesWith("does not serve").size(), 1u);
  EXPECT_EQ(other.size(-1), 1);

  window.push_back(record("own again"), 0);
  ASSERT_TRUE(pumpUntil([&] { return contains(events_, "own again"); }));
  EXPECT_THAT(events_, ElementsAre("own", "own again"));
  window.halt();
}

LRESULT CALLBACK foreignProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
  return DefWindowProcW(hwnd, msg, wParam, lParam);
}

TEST_F(ActionWindowTest, ForeignClassOfTheSameNameMakesInitThrow) {
  // The class is process-wide; no window of it is left by other tests, so
  // it can be taken over here and given back afterwards.
  HINSTANCE module = GetModuleHandleW(nullptr);
  UnregisterClassW(ActionWindow::ClassName, module);
  WNDCLASSW foreign = {};
  foreign.lpfnWndProc = foreignProc;
  foreign.hInstance = module;
  foreign.lpszClassName = ActionWindow::ClassName;
  ASSERT_NE(RegisterClassW(&foreign), 0);

  ActionWindow window(false);
  bool threw = false;
  try {
    window.init();
  } catch (const std::bad_alloc& e) {
    threw = true;
    EXPECT_STREQ(e.what(), "RegisterClass failure");
  }
  EXPECT_TRUE(UnregisterClassW(ActionWindow::ClassName, module));
  EXPECT_TRUE(threw);
  EXPECT_EQ(sink_
                .linesWith("Throwing std::bad_alloc(\"RegisterClass failure\") : "
                           "Preexisting class is not the right one")
                .size(),
            1u);

  // Still without a window: nothing to halt, and posts wait.
  window.push_back(record("later"), 0);
  window.halt();
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0!=hwnd_")").size(), 1u);

  window.init();  // the name is free again: the class is ours now
  ASSERT_TRUE(pumpUntil([&] { return contains(events_, "later"); }));
  window.halt();
}

TEST_F(ActionWindowTest, DestroyedWithoutHaltOnItsThreadLeavesNothingToRun) {
  auto window = std::make_unique<ActionWindow>(false);
  window->init();
  window->push_back(record("ordinary"), 0);
  // Its send may or may not have begun when the object goes; either way
  // it must be over before the object is.
  window->push_highPriority(record("high"));
  window.reset();
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0==hwnd_")").size(), 1u);
  ASSERT_TRUE(pumpUntilSentinel());  // the stale wake-up, if still queued
  EXPECT_FALSE(contains(events_, "ordinary"));
}

TEST_F(ActionWindowTest, DestroyedFromAnotherThreadDetachesAndClosesTheWindow) {
  auto* window = new ActionWindow(false);
  std::atomic<bool> ran{false};
  std::atomic<bool> closed{false};
  std::atomic<bool> pumped{false};
  test::Gate ready, destroyed;
  std::thread windowThread([&] {
    window->init();
    window->push_back(makeFunctor([&] { ran = true; }), 0);
    ready.open();
    destroyed.wait();  // the wake-up stays queued until then
    pumped = pumpUntil([&] { return closed.load(); }, [&](const MSG& msg) {
      if (msg.message == WM_CLOSE) closed = true;
    });
  });
  ready.wait();
  delete window;
  destroyed.open();
  windowThread.join();
  EXPECT_TRUE(pumped);
  EXPECT_TRUE(closed);
  EXPECT_FALSE(ran);
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0==hwnd_")").size(), 1u);
  EXPECT_EQ(sink_.linesWith("does not serve").size(), 1u);
}

}  // namespace
}  // namespace QIM

#endif  // _WIN32
