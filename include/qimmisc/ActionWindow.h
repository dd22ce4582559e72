// ActionWindow: an ActionQueue whose actions run inside a thread's Win32
// message loop. The class exists only on Windows; elsewhere this header
// declares nothing.
//
// The thread that calls init() owns a hidden, zero-sized window; posting an
// action posts a wake-up message to it, and the window procedure runs one
// action per message, so the thread's ordinary message loop (typically the
// user-interface thread's) runs the queue, and other messages interleave
// between actions.
//
//   ActionWindow uiQueue(false);
//   uiQueue.init();                                   // on the UI thread
//   worker.onResult = [&] { uiQueue.push_back(makeFunctor(this, &View::refresh), 0); };
//   ... the UI thread's GetMessage/DispatchMessage loop runs the actions ...
//   uiQueue.halt();                                   // on the UI thread
//
// Urgent actions (push_highPriority) take a second path: a worker thread of
// the object, "ActionWindow high-pri thread", sends (SendMessageW) a message
// to the window, which the window thread handles even while it sits in a
// modal or nested message loop that pulls no posted messages; the worker
// blocks until the window thread has run every waiting urgent action.
//
// Wake-ups. At most one wake-up message (1025) is in the message queue at a
// time, whatever the number of posted actions; it is marked outstanding when
// posted and no longer outstanding when the window procedure receives it.
// An action that posts while it runs therefore gets a wake-up of its own,
// which a nested message loop inside the action delivers. A reentrant window
// then runs the next action inside the nested loop; a non-reentrant one
// swallows that delivery, posts nothing more while the action runs, and
// resumes the queue when the action returns.
//
// Window class. Every ActionWindow in the process shares one window class,
// registered on the first init() with the module handle of the process
// (GetModuleHandleW(nullptr)), not of this library. So the class outlives
// the library: if the library is unloaded and loaded again elsewhere in
// memory, or two copies of it live in one process, the class found under
// the name has another window procedure, and init() throws (see
// InitFailure). The class is never unregistered.
//
// Diagnostics. Misuse is reported as assertions on the ERROR channel
// ("0==hwnd_", "0!=hwnd_", "ACE_OS::thr_equal(tid_, ACE_Thread::self())",
// "0!=destroyWindowRes", "0!=that") and execution goes on; a failed wake-up
// post writes "ActionWindow::signal(): PostMessage() failed".
#pragma once

#ifdef _WIN32

#include <cstdint>
#include <deque>
#include <new>

#include "qimmisc/ActionQueue.h"
#include "qimmisc/ActionThread.h"
#include "qimmisc/Export.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/functor.h"

// The handle type behind HWND, so that this header needs no <windows.h>.
struct HWND__;

namespace QIM {

QIM_EXPORT_COUNTED_OBJECT(ActionWindow);

/// Runs actions on the thread that pumps the messages of a hidden window.
class QIMMISC_API ActionWindow : public ActionQueue, public TCountedObject<ActionWindow> {
 public:
  /// What init() throws when the window class cannot be registered (also
  /// when a class of the same name with another window procedure exists) or
  /// the window cannot be created. std::bad_alloc itself carries no text,
  /// so this subclass's what() returns "RegisterClass failure" or
  /// "CreateWindow failure". It holds no allocated memory.
  class QIMMISC_API InitFailure : public std::bad_alloc {
   public:
    /// `what` must be a string literal (it is kept, not copied).
    explicit InitFailure(const char* what) noexcept : what_(what) {}
    const char* what() const noexcept override;

   private:
    const char* what_;
  };

  /// The window class name shared by every ActionWindow of the process.
  static constexpr const wchar_t* ClassName =
      L"ActionWindow_Class_7A0E2CF7_EED3_4442_98D0_F0BFBC39A483";
  /// The message (WM_USER + 1, posted) that runs one ordinary action;
  /// wParam is the ActionWindow.
  static constexpr unsigned int RunActionMessage = 1025;
  /// The message (WM_USER + 2, sent by the high-priority worker) that runs
  /// every waiting high-priority action; wParam is the ActionWindow.
  static constexpr unsigned int RunHighPriorityMessage = 1026;
  /// The priority at which the high-priority worker is given its trigger.
  static constexpr int HighPriorityTriggerPriority = 5;

  /// No window yet; `reentrant` says whether a nested message loop inside a
  /// running action (or high-priority action) may run further actions.
  explicit ActionWindow(bool reentrant);

  /// Meant to follow halt() on the window thread. If the window still
  /// exists, reports "0==hwnd_" and cleans up so that nothing reaches the
  /// destroyed object: on the window thread it halts; on another thread it
  /// stops the high-priority worker (which needs the window thread to still
  /// pump, or to have ended), detaches the window so that the messages still
  /// queued for it run nothing, and posts WM_CLOSE for the window thread to
  /// destroy it. Queued actions are destroyed unrun. Never destroy the
  /// object from inside one of its own actions, nor from another thread
  /// while the window thread runs one of them.
  ~ActionWindow() override;

  /// Registers the window class if needed, creates the hidden window on the
  /// calling thread (which becomes tid() and must pump its messages) and
  /// starts the high-priority worker. Actions posted before, or left queued
  /// by halt(), are woken up at once. Throws InitFailure, after its
  /// "Throwing std::bad_alloc(...)" ERROR line, when the class or the window
  /// cannot be made; the object then stays without a window. A second init
  /// while the window exists reports "0==hwnd_" and changes nothing.
  void init();

  /// Stops the high-priority worker, waiting for it while letting its
  /// pending sent message through (a plain wait would deadlock with a
  /// worker blocked in SendMessageW), then destroys the window. Inside a
  /// high-priority action the worker cannot end before the action returns,
  /// so halt then does not wait for it. Queued actions stay queued for a
  /// later init(). Belongs to the window thread; without a window it
  /// reports "0!=hwnd_" and does nothing.
  void halt();

  /// Discards every queued ordinary action unrun; waiting high-priority
  /// actions are kept. The running action is not affected.
  void flush();

  /// Whether an ordinary action is running on the window thread now.
  bool isExecuting();

  /// The window thread's id, recorded by init() (0 before; kept after
  /// halt() until the next init()).
  unsigned long tid() const override;

  /// Queues `action` (with its posting trace) in the high-priority list and
  /// has the high-priority worker send the window the message that runs
  /// the list. High-priority actions overtake every ordinary action and
  /// reach the window thread inside nested or modal message loops too.
  /// Posted before init() or after halt(), they run after the next init().
  void push_highPriority(const Functor& action) override;

  /// The window procedure of the shared class. Public so that a found class
  /// registration can be compared with it; not to be called directly (a
  /// message for a window or object it does not belong to runs nothing).
  static std::intptr_t __stdcall actionWindowProc(HWND__* hwnd, unsigned int msg,
                                                  std::uintptr_t wParam, std::intptr_t lParam);

 protected:
  /// On the high-priority worker: sends the window the message that runs
  /// the high-priority list and returns once the window thread has run it.
  void highPriorityFunc();

  /// Posts a wake-up message unless one is outstanding or there is no
  /// window. A failed post is logged and still counts as outstanding, so
  /// the queue then waits for the next halt()/init(). Called with mutex_.
  void signal() override;

 private:
  std::intptr_t runOneAction();
  std::intptr_t runHighPriorityActions();
  void stopHighPriorityWorker();
  void detachWindow(bool destroy);

  HWND__* hwnd_ = nullptr;
  bool executing_ = false;
  const bool reentrant_;
  bool signalPosted_ = false;
  unsigned long tid_ = 0;
  ActionThread highPriThread_;
  std::deque<Functor> highPriList_;
  bool highPriExecuting_ = false;
  // A wake-up was swallowed by a nested loop of a non-reentrant action: it
  // stays outstanding until that action returns, then the queue resumes.
  bool signalSwallowed_ = false;
};

}  // namespace QIM

#endif  // _WIN32
