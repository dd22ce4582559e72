#include "RunningQueue.h"

#include "TestSupport.h"
#include "qimmisc/ActionThread.h"
#include "qimmisc/ReactorActionQueue.h"
#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include "qimmisc/ActionWindow.h"
#endif

namespace QIM::test {
namespace {

struct ThreadQueue {
  ThreadQueue() { queue.start("RunningQueue"); }
  ~ThreadQueue() { queue.stop(ActionThread::StopDrain, ActionThread::ReturnWait); }
  ActionThread queue;
};

struct ReactorQueue {
  ~ReactorQueue() { loop.stop(), queue.setReactor(nullptr); }
  ReactorLoop loop;
  ReactorActionQueue queue;
};

#ifdef _WIN32
// The window lives on a thread that pumps its messages until told to stop.
struct WindowQueue {
  WindowQueue() {
    Gate started;
    thread = std::thread([&] {
      try {
        queue.init();
      } catch (const std::exception&) {  // tid() stays 0
      }
      started.open();
      for (MSG msg; queue.tid() && !stop;) {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
      }
      if (queue.tid()) queue.halt();
    });
    started.wait();
  }
  ~WindowQueue() { stop = true, thread.join(); }
  ActionWindow queue{false};
  std::thread thread;
  std::atomic<bool> stop{false};
};
#endif

template <class Holder>
std::shared_ptr<ActionQueue> shareQueue(const std::shared_ptr<Holder>& holder) {
  return std::shared_ptr<ActionQueue>(holder, &holder->queue);
}

}  // namespace

void startQueue(QueueKind kind, std::shared_ptr<ActionQueue>& out) {
  if (kind == QueueKind::ReactorActionQueue) {
    auto holder = std::make_shared<ReactorQueue>();
    ASSERT_TRUE(holder->loop.ready());
    holder->queue.setReactor(holder->loop.reactor());
    holder->loop.start();
    out = shareQueue(holder);
#ifdef _WIN32
  } else if (kind == QueueKind::ActionWindow) {
    auto holder = std::make_shared<WindowQueue>();
    ASSERT_NE(holder->queue.tid(), 0u) << "the action window could not be made";
    out = shareQueue(holder);
#endif
  } else {
    out = shareQueue(std::make_shared<ThreadQueue>());
  }
}

}  // namespace QIM::test
