#include <gmock/gmock.h>
#include <gtest/gtest.h>

#define WIN32_LEAN_AND_MEAN
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
  // Pumps this thread's messages until `done`, counting the wake-ups of
  // `window` in `wakeUps`; false after about 10 seconds.
  bool pumpUntil(const std::function<bool()>& done, const ActionWindow* window = nullptr,
                 int* wakeUps = nullptr) {
    for (const ULONGLONG deadline = GetTickCount64() + 10000; !done();) {
      if (GetTickCount64() > deadline) return false;
      MsgWaitForMultipleObjectsEx(0, nullptr, 50, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
      for (MSG msg; !done() && PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);) {
        if (msg.message == ActionWindow::RunActionMessage && wakeUps &&
            msg.wParam == reinterpret_cast<WPARAM>(window)) {
          ++*wakeUps;
        }
        if (msg.hwnd == nullptr && msg.message == kOtherMessage) {
          events_.push_back("m" + std::to_string(msg.wParam));
        }
        DispatchMessageW(&msg);
      }
    }
    return true;
  }
  std::vector<std::string> events_;
};

// One wake-up outstanding at a time, one action per wake-up, and each
// action's own message gets in before the next action.
TEST_F(ActionWindowTest, BurstRunsOneActionPerWakeUpWithOtherMessagesBetween) {
  ActionWindow window(false);
  window.init();
  EXPECT_EQ(window.tid(), GetCurrentThreadId());
  for (int i = 0; i < 10; ++i) {
    window.push_back(makeFunctor([this, i] {
                       events_.push_back("a" + std::to_string(i));
                       PostThreadMessageW(GetCurrentThreadId(), kOtherMessage, i, 0);
                     }),
                     0);
  }
  int wakeUps = 0;
  ASSERT_TRUE(pumpUntil([&] { return events_.size() == 20; }, &window, &wakeUps));
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(events_[2 * i], "a" + std::to_string(i));
    EXPECT_EQ(events_[2 * i + 1], "m" + std::to_string(i));
  }
  EXPECT_EQ(wakeUps, 10);
  window.halt();
  EXPECT_FALSE(sink_.contains("Assertion failed"));
}

TEST_F(ActionWindowTest, NestedLoopInsideAnActionRunsOrHoldsTheNextOnesByReentrancy) {
  for (const bool reentrant : {false, true}) {
    SCOPED_TRACE(reentrant ? "reentrant" : "not reentrant");
    events_.clear();
    ActionWindow window(reentrant);
    window.init();
    window.push_back(makeFunctor([&] {
                       events_.push_back("A begins");
                       window.push_back(record("B"), 0);
                       int nested = 0;  // a non-reentrant window swallows this one
                       EXPECT_TRUE(pumpUntil([&] { return nested == 1; }, &window, &nested));
                       EXPECT_TRUE(window.isExecuting());
                       events_.push_back("A ends");
                     }),
                     0);
    ASSERT_TRUE(pumpUntil([&] { return ran("A ends") && ran("B"); }));
    EXPECT_THAT(events_, reentrant ? ElementsAre("A begins", "B", "A ends")
                                   : ElementsAre("A begins", "A ends", "B"));
    EXPECT_FALSE(window.isExecuting());
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
  // A worker blocked sending to a thread that does not pump: halt lets it in.
  const auto sends = [this] { return sink_.linesWith("ActionWindow::highPriorityFunc").size(); };
  const size_t before = sends();
  window.push_highPriority(record("H2"));
  ASSERT_TRUE(test::eventually([&] { return sends() > before; }));
  window.halt();
  EXPECT_TRUE(ran("H2"));
}

LRESULT CALLBACK foreignProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
  return DefWindowProcW(hwnd, msg, wParam, lParam);
}

// A class of the same name with another procedure makes init throw; posts
// then wait for a window, and wake-ups without an object run nothing.
TEST_F(ActionWindowTest, ForeignClassOfTheSameNameMakesInitThrow) {
  HINSTANCE module = GetModuleHandleW(nullptr);
  UnregisterClassW(ActionWindow::ClassName, module);  // no window of it is left
  WNDCLASSW foreign = {};
  foreign.lpfnWndProc = foreignProc;
  foreign.hInstance = module;
  foreign.lpszClassName = ActionWindow::ClassName;
  ASSERT_NE(RegisterClassW(&foreign), 0);
  ActionWindow window(false);
  EXPECT_THROW(window.init(), std::bad_alloc);
  EXPECT_TRUE(UnregisterClassW(ActionWindow::ClassName, module));
  EXPECT_TRUE(sink_.contains("Throwing std::bad_alloc(\"RegisterClass failure\") : "
                             "Preexisting class is not the right one"));
  window.halt();
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0!=hwnd_")").size(), 1u);

  window.push_back(record("first"), 0);
  window.init();  // the class is ours now
  ActionWindow second(false);  // and shared by a second window
  second.init();
  second.push_back(record("second"), 0);
  ASSERT_TRUE(pumpUntil([&] { return events_.size() == 2; }));
  for (const UINT msg : {ActionWindow::RunActionMessage, ActionWindow::RunHighPriorityMessage}) {
    SendMessageW(FindWindowW(ActionWindow::ClassName, nullptr), msg, 0, 0);
  }
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0!=that")").size(), 2u);
  second.halt();
  window.halt();
}

// Without halt, the destructor on another thread detaches the window so
// that its queued wake-up runs nothing, and has the window thread close it.
TEST_F(ActionWindowTest, DestroyedFromAnotherThreadDetachesAndClosesTheWindow) {
  auto* window = new ActionWindow(false);
  test::Gate ready, destroyed;
  bool closed = false;
  std::thread windowThread([&] {
    window->init();
    window->push_back(record("never"), 0);
    ready.open();
    destroyed.wait();
    closed = pumpUntil([] { return !FindWindowW(ActionWindow::ClassName, nullptr); });
  });
  ready.wait();
  delete window;
  destroyed.open();
  windowThread.join();
  EXPECT_TRUE(closed);
  EXPECT_TRUE(events_.empty());
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0==hwnd_")").size(), 1u);
}

}  // namespace
}  // namespace QIM
