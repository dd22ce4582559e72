// HandlerList: the listeners of an event source, called in registration
// order.
//
//   HandlerList<IListener> listeners_;
//   listeners_.addHandler(&ui);
//   listeners_.callHandlers(&IListener::onChange);
//
// Add and remove may be called from any thread. callHandlers calls the
// handlers registered when it started, skipping any removed since, so a
// handler may remove itself (or another) from inside its call. A handler
// removed on another thread while callHandlers runs may still be in its
// call when removeHandler returns: remove on the calling thread to be sure.
#pragma once

#include <ace/Guard_T.h>
#include <ace/Thread_Mutex.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace QIM {

template <class Handler>
class HandlerList {
 public:
  HandlerList() = default;
  HandlerList(const HandlerList&) = delete;
  HandlerList& operator=(const HandlerList&) = delete;

  /// Appends `handler` (not owned). Null, or a handler already registered,
  /// is ignored and false is returned.
  bool addHandler(Handler* handler) {
    ACE_Guard<ACE_Thread_Mutex> guard(mutex_);
    if (handler == nullptr || contains(handler)) return false;
    handlers_.push_back(handler);
    return true;
  }

  /// Removes `handler`; false when it was not registered.
  bool removeHandler(Handler* handler) {
    ACE_Guard<ACE_Thread_Mutex> guard(mutex_);
    auto it = std::find(handlers_.begin(), handlers_.end(), handler);
    if (it == handlers_.end()) return false;
    handlers_.erase(it);
    return true;
  }

  /// Calls `(handler->*operation)(args...)` on every handler, in order. The
  /// list's lock is not held during a call.
  template <class Operation, class... Args>
  void callHandlers(Operation operation, const Args&... args) {
    std::vector<Handler*> snapshot;
    {
      ACE_Guard<ACE_Thread_Mutex> guard(mutex_);
      snapshot = handlers_;
    }
    for (Handler* handler : snapshot) {
      {
        ACE_Guard<ACE_Thread_Mutex> guard(mutex_);
        if (!contains(handler)) continue;
      }
      (handler->*operation)(args...);
    }
  }

  /// The number of registered handlers.
  std::size_t size() const {
    ACE_Guard<ACE_Thread_Mutex> guard(mutex_);
    return handlers_.size();
  }

 private:
  bool contains(Handler* handler) const {
    return std::find(handlers_.begin(), handlers_.end(), handler) != handlers_.end();
  }

  mutable ACE_Thread_Mutex mutex_;
  std::vector<Handler*> handlers_;
};

}  // namespace QIM
