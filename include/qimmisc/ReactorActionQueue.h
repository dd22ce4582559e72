// ReactorActionQueue: an ActionQueue whose actions run inside an ACE
// reactor's event loop, on the reactor's owner thread.
//
//   ACE_Reactor* reactor = ...;            // its loop runs on the network thread
//   ReactorActionQueue queue;
//   queue.setReactor(reactor);
//   queue.push_back(makeFunctor(this, &SipStack::onSend), 0);  // any thread
//
// The queue adds no thread: each posted action asks the reactor for one
// zero-delay timer, and each expiry runs exactly one action (the most
// urgent one queued), so the reactor dispatches its other events between
// actions. Actions never run with the queue's mutex held and may post to
// their own queue.
//
// Lifetime rules:
//  - The reactor must outlive the queue, or be detached first with
//    setReactor(nullptr).
//  - Destroy the queue (and call setReactor) on the reactor's owner thread,
//    or while its event loop is not running: a reactor that is dispatching
//    one of the queue's timers on another thread at that moment would call
//    into an object that is going away.
#pragma once

#include <ace/Event_Handler.h>

#include "qimmisc/ActionQueue.h"
#include "qimmisc/Export.h"

namespace QIM {

// The event handler is an implementation detail: callers see an
// ActionQueue. Subclasses reach the handler (the inheritance is protected).
class QIMMISC_API ReactorActionQueue : public ActionQueue, protected ACE_Event_Handler {
 public:
  /// An empty queue with no reactor. Actions posted before a reactor is set
  /// are reported ("reactor()") and wait in the queue.
  ReactorActionQueue();

  /// Cancels this queue's pending timers on its reactor (cancel_timer), so
  /// the reactor never calls back into the destroyed object, then destroys
  /// the queued actions unrun. See the lifetime rules above.
  ~ReactorActionQueue() override;

  /// Attaches the queue to `reactor`; null detaches it. Setting a reactor
  /// while one is set is reported ("!reactor()") and the new one wins.
  ///
  /// Timers already scheduled on the reactor being replaced or cleared are
  /// cancelled there, so that reactor never runs this queue's actions on
  /// its thread again nor keeps a pointer to this queue. The queued actions
  /// themselves stay queued: when a new reactor is given, one timer per
  /// queued action is scheduled on it (this also starts actions posted while
  /// no reactor was set). Call it before other threads post, or on the
  /// current reactor's owner thread.
  void setReactor(ACE_Reactor* reactor);

  /// The reactor's owner thread (ACE_Reactor::owner). Without a reactor,
  /// reports "reactor()" and returns 0. Note that a thread-pool reactor
  /// reports the calling thread as its owner.
  unsigned long tid() const override;

 protected:
  /// Schedules one zero-delay timer for this queue on the reactor, with the
  /// queue's mutex released for the call. Without a reactor, reports
  /// "reactor()" and schedules nothing: the action waits in the queue.
  void signal() override;

  /// Reactor callback: runs the next queued action, exactly one per
  /// expiry. An expiry that finds the queue empty (its action was discarded
  /// by clear()) reports "!empty()". An expiry off the owner thread reports
  /// "ACE_OS::thr_equal(ACE_Thread::self(), tid())" and still runs the
  /// action. An action's exception is logged and swallowed so that it never
  /// unwinds through the reactor. Always returns 0: the handler stays
  /// registered.
  int handle_timeout(const ACE_Time_Value& currentTime, const void* act) override;
};

}  // namespace QIM
