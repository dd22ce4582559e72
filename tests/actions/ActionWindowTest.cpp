#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/ActionWindow.h"

using ::testing::ElementsAre;

namespace QIM {
namespace {

constexpr UINT kOtherMessage = WM_APP + 1;  // posted by the tests to their thread

class ActionWindowTest : public test::TracingTest {
 protected:
  Functor record(const std::string& event) {
    return makeFunctor([this, event] { events_.push_back(event); });
  }
  bool ran(const std::string& event) const {
    return std::find(events_.begin(), events_.end(), event) != events_.end();
  }
  // Pumps this thread's messages until `done` (false after about 10 s),
  // counting wake-ups and recording the tests' own thread messages.
  bool pumpUntil(const std::function<bool()>& done) {
    for (const ULONGLONG end = GetTickCount64() + 10000; !done();) {
      if (GetTickCount64() > end) return false;
      MsgWaitForMultipleObjectsEx(0, nullptr, 50, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
      for (MSG m; !done() && PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE); DispatchMessageW(&m)) {
        wakeUps_ += m.message == ActionWindow::RunActionMessage;
        if (!m.hwnd && m.message == kOtherMessage) events_.push_back("m" + std::to_string(m.wParam));
      }
    }
    return true;
  }
  std::vector<std::string> events_;
  int wakeUps_ = 0;
};

// One wake-up outstanding at a time, one action per wake-up, and each
// action's own message gets in before the next action.
TEST_F(ActionWindowTest, BurstRunsOneActionPerWakeUpWithOtherMessagesBetween) {
  ActionWindow window(false);
  window.init();
  window.init();  // reported, changes nothing
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0==hwnd_")").size(), 1u);
  for (int i = 0; i < 10; ++i) {
    window.push_back(makeFunctor([this, i] {
                       events_.push_back("a" + std::to_string(i));
                       PostThreadMessageW(GetCurrentThreadId(), kOtherMessage, i, 0);
                     }),
                     0);
  }
  ASSERT_TRUE(pumpUntil([&] { return events_.size() == 20; }));
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(events_[2 * i] + events_[2 * i + 1], "a" + std::to_string(i) + "m" + std::to_string(i));
  }
  EXPECT_EQ(wakeUps_, 10);
  window.halt();
}

TEST_F(ActionWindowTest, NestedLoopInsideAnActionRunsOrHoldsTheNextOnesByReentrancy) {
  for (const bool reentrant : {false, true}) {
    events_.clear();
    ActionWindow window(reentrant);
    window.init();
    window.push_back(makeFunctor([&] {
                       events_.push_back("A begins");
                       window.push_back(record("B"), 0);
                       const int before = wakeUps_;  // a non-reentrant window swallows it
                       EXPECT_TRUE(pumpUntil([&] { return wakeUps_ > before; }));
                       EXPECT_TRUE(window.isExecuting());
                       events_.push_back("A ends");
                     }),
                     0);
    ASSERT_TRUE(pumpUntil([&] { return ran("A ends") && ran("B"); }));
    EXPECT_THAT(events_, reentrant ? ElementsAre("A begins", "B", "A ends")
                                   : ElementsAre("A begins", "A ends", "B"));
    window.halt();
  }
}

// Urgent actions reach a window thread that pulls no posted message at all,
// as inside a modal loop; flush leaves them queued.
TEST_F(ActionWindowTest, HighPriorityActionsGetIntoAModalWaitAndSurviveFlush) {
  ActionWindow window(false);
  window.init();
  window.push_back(makeFunctor([&] {
                     std::thread([&] {
                       window.push_back(record("flushed"), 0);
                       window.push_highPriority(record("H"));
                       window.flush();
                       window.push_back(record("O"), 0);
                     }).join();
                     for (const ULONGLONG end = GetTickCount64() + 10000;
                          !ran("H") && GetTickCount64() < end;) {
                       MsgWaitForMultipleObjectsEx(0, nullptr, 50, QS_SENDMESSAGE, 0);
                       MSG msg;
                       PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
                     }
                     events_.push_back("A ends");
                   }),
                   0);
  ASSERT_TRUE(pumpUntil([&] { return ran("O"); }));
  EXPECT_THAT(events_, ElementsAre("H", "A ends", "O"));
  window.halt();
}

// A class of the same name with another procedure makes init throw; posts
// then wait for a window, and wake-ups without an object run nothing.
TEST_F(ActionWindowTest, ForeignClassOfTheSameNameMakesInitThrow) {
  HINSTANCE module = GetModuleHandleW(nullptr);
  UnregisterClassW(ActionWindow::ClassName, module);  // no window of it is left
  WNDCLASSW foreign = {0, DefWindowProcW, 0, 0, module, {}, {}, {}, {}, ActionWindow::ClassName};
  ASSERT_NE(RegisterClassW(&foreign), 0);
  ActionWindow window(false);
  EXPECT_THROW(window.init(), std::bad_alloc);
  EXPECT_TRUE(UnregisterClassW(ActionWindow::ClassName, module));
  EXPECT_TRUE(sink_.contains("Throwing std::bad_alloc(\"RegisterClass failure\") : "
                             "Preexisting class is not the right one"));
  window.halt();
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0!=hwnd_")").size(), 1u);

  window.push_back(record("first"), 0);
  window.init();  // the class is ours now, and the waiting post runs
  ASSERT_TRUE(pumpUntil([&] { return ran("first"); }));
  for (const UINT msg : {ActionWindow::RunActionMessage, ActionWindow::RunHighPriorityMessage}) {
    SendMessageW(FindWindowW(ActionWindow::ClassName, nullptr), msg, 0, 0);
  }
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0!=that")").size(), 2u);
  window.halt();
}

}  // namespace
}  // namespace QIM
