#include "qimmisc/ActionWindow.h"

#include <ace/Guard_T.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include <exception>
#include <type_traits>
#include <utility>

#include "actions/ThreadChecker.h"
#include "platform/Win32.h"
#include "qimmisc/Trace.h"

namespace QIM {

QIM_INSTANTIATE_COUNTED_OBJECT(ActionWindow);

// The header spells the procedure's type without <windows.h>.
static_assert(std::is_same_v<decltype(&ActionWindow::actionWindowProc), WNDPROC>,
              "actionWindowProc must be a WNDPROC");
static_assert(ActionWindow::RunActionMessage == WM_USER + 1);
static_assert(ActionWindow::RunHighPriorityMessage == WM_USER + 2);

namespace {

constexpr DWORD kClassAlreadyExists = 1410;  // ERROR_CLASS_ALREADY_EXISTS
constexpr int kOwnerSlot = GWLP_USERDATA;


// Registers the shared class, or checks that the one already registered
// under the name is ours.
void registerWindowClass(HINSTANCE module) {
  WNDCLASSW wc = {};
  wc.style = 0;
  wc.lpfnWndProc = &ActionWindow::actionWindowProc;
  wc.hInstance = module;
  wc.lpszClassName = ActionWindow::ClassName;
  if (RegisterClassW(&wc) != 0) return;
  const DWORD error = GetLastError();
  if (error != 0 && error != kClassAlreadyExists) {
    QIM_ERROR("Throwing std::bad_alloc(\"RegisterClass failure\") : lasterror=" << error);
    throw ActionWindow::InitFailure("RegisterClass failure");
  }
  WNDCLASSW existing = {};
  if (!GetClassInfoW(module, ActionWindow::ClassName, &existing) ||
      existing.lpfnWndProc != &ActionWindow::actionWindowProc) {
    QIM_ERROR("Throwing std::bad_alloc(\"RegisterClass failure\") : "
              << "Preexisting class is not the right one");
    throw ActionWindow::InitFailure("RegisterClass failure");
  }
}

}  // namespace

const char* ActionWindow::InitFailure::what() const noexcept { return what_; }

ActionWindow::ActionWindow(bool reentrant) : reentrant_(reentrant) {}

ActionWindow::~ActionWindow() {
  bool hasWindow = false;
  bool onWindowThread = false;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    QIM_ASSERT(0==hwnd_, "ActionWindow destroyed without halt()");
    hasWindow = hwnd_ != nullptr;
    onWindowThread = detail::isCurrentThread(tid_);
  }
  if (!hasWindow) return;
  if (onWindowThread) {
    halt();
    return;
  }
  // The worker may be blocked sending to the window thread, which answers
  // as long as it pumps (or has ended, destroying its windows).
  if (highPriThread_.state() != ActionThread::Stopped) {
    highPriThread_.stop(ActionThread::StopImmediate, ActionThread::ReturnWait);
  }
  detachWindow(false);
}

void ActionWindow::init() {
  QIM_ENTRY();
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    QIM_ASSERT(0==hwnd_);
    if (hwnd_) return;
  }
  // A halt from inside a high-priority action leaves the worker to end on
  // its own; it must be gone before it can be started again.
  stopHighPriorityWorker();

  // Creation sends messages to the procedure on this thread: no lock here.
  HINSTANCE module = GetModuleHandleW(nullptr);
  registerWindowClass(module);
  HWND hwnd = CreateWindowExW(0, ClassName, L"ActionWindow", 0, 0, 0, 0, 0, nullptr, nullptr,
                              module, nullptr);
  if (!hwnd) {
    const DWORD error = GetLastError();
    QIM_ERROR("Throwing std::bad_alloc(\"CreateWindow failure\") : lasterror=" << error);
    throw InitFailure("CreateWindow failure");
  }
  // The procedure serves only the object recorded here; messages carrying
  // any other wParam are ignored.
  SetWindowLongPtrW(hwnd, kOwnerSlot, reinterpret_cast<LONG_PTR>(this));

  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    hwnd_ = hwnd;
    tid_ = ACE_Thread::self();
    signalPosted_ = false;
    signalSwallowed_ = false;
    if (!empty()) signal();
    // High-priority actions left from before need a trigger of their own
    // unless one still waits in the worker's queue.
    if (!highPriList_.empty() && highPriThread_.size(-1) == 0) {
      highPriThread_.push_back(makeFunctor(this, &ActionWindow::highPriorityFunc),
                               HighPriorityTriggerPriority);
    }
  }
  highPriThread_.start("ActionWindow high-pri thread");
}

void ActionWindow::halt() {
  QIM_ENTRY();
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    QIM_ASSERT(0!=hwnd_);
    if (!hwnd_) return;
    QIM_ASSERT_ON_THREAD(tid_, "ACE_OS::thr_equal(tid_, ACE_Thread::self())");
  }
  highPriThread_.stop(ActionThread::StopImmediate, ActionThread::ReturnNoWait);
  stopHighPriorityWorker();
  detachWindow(true);
}

// Waits until the high-priority worker has ended, after a stop. The worker
// may be inside SendMessageW to this thread, which a plain wait would never
// answer: sent messages are let in while waiting. Inside a high-priority
// action on this thread the worker is blocked on that very action, so there
// is no waiting at all.
void ActionWindow::stopHighPriorityWorker() {
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    if (highPriExecuting_ && detail::isCurrentThread(tid_)) return;
  }
  // tid 0 while not Stopped: a worker that could not be made never ends.
  while (highPriThread_.state() != ActionThread::Stopped && highPriThread_.tid() != 0) {
    MsgWaitForMultipleObjectsEx(0, nullptr, 1, QS_SENDMESSAGE, 0);
    MSG msg;
    PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
  }
}

// Forgets the window. Nothing queued for it reaches this object any more.
// `destroy` on the window thread; otherwise the window thread is asked to
// destroy it.
void ActionWindow::detachWindow(bool destroy) {
  HWND hwnd = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    hwnd = hwnd_;
    hwnd_ = nullptr;
    signalPosted_ = false;
    signalSwallowed_ = false;
  }
  SetWindowLongPtrW(hwnd, kOwnerSlot, 0);
  if (destroy) {
    const BOOL destroyWindowRes = DestroyWindow(hwnd);
    QIM_ASSERT(0!=destroyWindowRes);
    if (destroyWindowRes) return;
  }
  PostMessageW(hwnd, WM_CLOSE, 0, 0);
}

void ActionWindow::flush() {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  clear();
}

bool ActionWindow::isExecuting() {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  return executing_;
}

unsigned long ActionWindow::tid() const {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  return tid_;
}

void ActionWindow::push_highPriority(const Functor& action) {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  highPriList_.push_back(action);
  highPriList_.back().saveStackTrace();
  highPriThread_.push_back(makeFunctor(this, &ActionWindow::highPriorityFunc),
                           HighPriorityTriggerPriority);
}

void ActionWindow::highPriorityFunc() {
  QIM_ENTRY();
  HWND hwnd = nullptr;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
    hwnd = hwnd_;
  }
  // The worker runs only while the window exists; init re-triggers the
  // list should this ever find none.
  if (hwnd) SendMessageW(hwnd, RunHighPriorityMessage, reinterpret_cast<WPARAM>(this), 0);
}

void ActionWindow::signal() {
  QIM_ENTRY();
  if (!hwnd_ || signalPosted_) return;
  if (!PostMessageW(hwnd_, RunActionMessage, reinterpret_cast<WPARAM>(this), 0)) {
    QIM_ERROR("ActionWindow::signal(): PostMessage() failed");
  }
  signalPosted_ = true;
}

LRESULT CALLBACK ActionWindow::actionWindowProc(HWND hwnd, UINT msg, WPARAM wParam,
                                                LPARAM lParam) {
  QIM_ENTRY("hwnd=" << hwnd << " msg=" << msg << " wparam=" << wParam << " lparam=" << lParam);
  if (msg != RunActionMessage && msg != RunHighPriorityMessage) {
    return DefWindowProcW(hwnd, msg, wParam, lParam);
  }
  ActionWindow* const that = reinterpret_cast<ActionWindow*>(wParam);
  QIM_ASSERT(0!=that);
  if (!that) return 0;
  // Only the object that made the window is trusted: a stale message after
  // a detach, or anyone else's, runs nothing.
  if (GetWindowLongPtrW(hwnd, kOwnerSlot) != static_cast<LONG_PTR>(wParam)) {
    QIM_ERROR("message " << msg << " for an object this window does not serve: wparam="
                         << wParam << "; ignored");
    return 0;
  }
  return msg == RunActionMessage ? that->runOneAction() : that->runHighPriorityActions();
}

LRESULT ActionWindow::runOneAction() {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  if (executing_ && !reentrant_) {
    // Delivered by a nested loop inside the running action. Posting on
    // would only feed that loop more of the same, so the wake-up stays
    // outstanding until the action returns.
    signalSwallowed_ = true;
    return 0;
  }
  signalPosted_ = false;
  if (!empty()) {
    // Nested runs (reentrant) restore the outer action's flag.
    const bool wasExecuting = executing_;
    executing_ = true;
    runNextAction();  // never unwinds through the dispatcher
    executing_ = wasExecuting;
  }
  if (!executing_ && signalSwallowed_) {
    signalSwallowed_ = false;
    signalPosted_ = false;
  }
  if (!empty()) signal();
  return 0;
}

LRESULT ActionWindow::runHighPriorityActions() {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  // The outer run takes whatever was added meanwhile.
  if (highPriExecuting_ && !reentrant_) return 0;
  const bool wasExecuting = highPriExecuting_;
  highPriExecuting_ = true;
  while (!highPriList_.empty()) {
    // Moved, not copied: a copy would lose the posting trace.
    Functor action(std::move(highPriList_.front()));
    highPriList_.pop_front();
    runUnlocked(std::move(action));
  }
  highPriExecuting_ = wasExecuting;
  return 0;
}

}  // namespace QIM
