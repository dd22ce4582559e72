// AsyncOpManager: blocking operations on threads of their own, with their
// results delivered as actions on the owner's queue.
//
// Each operation is a Functor that runs on a new thread named "AOM-<n>" (n
// counts every operation thread the process ever started, from 1). When it
// has finished, the operation calls reportResult with a second Functor that
// carries its result; the manager posts that Functor, at priority 5, to the
// ActionQueue named at construction, so the owner receives it on its own
// thread. At most maxThreads operations run at once; the rest wait in
// arrival order. terminate drops every result that has not been delivered
// yet, so the owner sees none after it returns.
//
//   class Lookup {
//     Lookup(ActionQueue& myQueue) : ops_(myQueue, 4) {}
//     void find(const std::string& name) {
//       ops_.startOp(makeFunctor([this, name] {
//         Entry e = slowDirectoryQuery(name);  // blocks this operation thread
//         ops_.reportResult(makeFunctor(this, &Lookup::found, e));  // last step
//       }));
//     }
//     void found(Entry e);  // runs on myQueue's thread
//     ~Lookup() { ops_.terminate(); }  // on myQueue's thread
//     AsyncOpManager ops_;
//   };
//
// The contract of an operation:
//  - it obtains its manager however its author likes; normally the manager's
//    address is bound into the operation's Functor, as above;
//  - it calls reportResult exactly once, on its own thread, as its last use
//    of the manager: once reportResult has returned (true or false) the
//    owner may terminate and destroy the manager at any moment;
//  - after reportResult it only unwinds. Its thread ends on its own and
//    nobody waits for it but the process, which joins every such thread
//    before its exit-time teardown; the operation's Functor is destroyed
//    there, possibly after terminate has returned, so its captures must not
//    need the owner;
//  - an operation that returns without calling reportResult keeps its slot
//    for ever (an ERROR line names it) and makes terminate wait for ever. One
//    that throws instead is logged and gives its slot up without a result.
//
// Posting. A reporting operation posts its result with none of the
// manager's locks held: a queue may take a post only when its own thread is
// free (a reactor's queue waits for the reactor's lock, which the reactor
// holds while it runs this manager's results or terminate), so posting
// under the manager's mutex deadlocks. Hence:
//  - reportResult does its book-keeping under the mutex (frees the slot,
//    registers the result's cancellation flag, hands the oldest waiting
//    operation to the reporter), then posts, then starts the handed-over
//    operation; after the mutex it touches the manager only once it has
//    claimed that operation, which terminate then waits for;
//  - terminate waits for every operation to report, not for posts on their
//    way: a result that enters the queue after terminate returned finds its
//    flag set and is dropped, and a handed-over operation not yet started
//    is dropped unrun;
//  - a result is posted before the operation it hands over starts, so a
//    manager with one thread delivers results in operation order.
// The destructor, off the queue's thread, also waits until the results on
// their way are in the queue, so the queue may go right after the manager.
// On the queue's thread it cannot (that thread is what such a post waits
// for): there, keep the queue until its thread is free again.
//
// Thread affinity. startOp may be called from any thread, reportResult only
// by operation threads. Results are delivered, and terminate and the
// destructor must run, on the queue's thread (or, for the destructor, once
// that queue no longer runs this manager's results); the manager learns that
// thread from the first result it delivers and reports a terminate from any
// other.
#pragma once

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>

#include <atomic>
#include <list>
#include <memory>
#include <set>

#include "qimmisc/ActionQueue.h"
#include "qimmisc/Export.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/functor.h"

namespace QIM {

namespace detail {
class ThreadChecker;
}

QIM_EXPORT_COUNTED_OBJECT(AsyncOpManager);

class QIMMISC_API AsyncOpManager : public TCountedObject<AsyncOpManager> {
 public:
  /// The priority at which results are posted to the owner's queue.
  static constexpr int ResultPriority = 5;

  /// Results will be posted to `queue`, which must outlive the manager. At
  /// most `maxThreads` operations run at once; 0 means no limit. Nothing
  /// runs yet.
  AsyncOpManager(ActionQueue& queue, unsigned int maxThreads);

  /// Reports "threads_.empty()" when operations are still running and
  /// "!terminating_" when a terminate is in progress. Running operations are
  /// then waited for as by terminate, so that none of them ever reaches a
  /// destroyed manager. Results still on their way are dropped and pending
  /// operations are destroyed unrun (see Posting above).
  virtual ~AsyncOpManager();

  AsyncOpManager(const AsyncOpManager&) = delete;
  AsyncOpManager& operator=(const AsyncOpManager&) = delete;

  /// Runs `op` on a new thread "AOM-<n>" when fewer than maxThreads
  /// operations run (or there is no limit); otherwise queues a copy behind
  /// the operations already waiting. Any thread. A start during terminate is
  /// reported ("!terminating_") and goes ahead all the same. An empty `op`
  /// could never report, so it is reported ("!op.empty()") and ignored.
  /// When no thread can be made, createThread's std::bad_alloc reaches the
  /// caller and `op` is neither running nor queued.
  void startOp(const Functor& op);

  /// Called by an operation on its own thread, once, as its last use of the
  /// manager. Frees the operation's slot and posts `result` to the owner's
  /// queue, where it is called on the queue's thread unless terminate comes
  /// first; then starts the oldest waiting operation, if any, on a new
  /// thread. Returns true when the result was posted, false when the manager
  /// is terminating and dropped it. A thread that is not a running operation
  /// of this manager is reported ("it!=threads_.end()") and its result is
  /// posted anyway.
  bool reportResult(const Functor& result);

  /// Waits until every running operation has called reportResult (their
  /// results are dropped), drops every result posted but not yet delivered,
  /// and destroys the waiting operations unrun. Then the manager is idle and startOp works as before. Call it on the
  /// queue's thread; another thread, once the queue's thread is known, is
  /// reported (and terminates all the same). Called by a running operation
  /// of this manager it would wait for itself: that is reported and nothing
  /// is terminated.
  void terminate();

 private:
  // A running operation's thread. `reported` is shared with the thread's
  // body, which reads it after the operation returns or throws without
  // touching the manager.
  struct RunningOp {
    unsigned long tid;
    std::shared_ptr<std::atomic<bool>> reported;
    void* handle;
  };
  // The oldest waiting operation, handed to a reporting thread to start once
  // its result is posted. It holds a slot meanwhile. The first to move
  // `state` off Reserved decides: the reporter starts it, or terminate drops
  // it.
  struct Handoff {
    std::shared_ptr<std::atomic<int>> state;
    Functor op;
  };
  // Counts results on their way into the queue; shared with the reporting
  // threads, which sign off after the post, when the manager may be gone.
  struct PostsInFlight;
  using CancelFlag = std::shared_ptr<std::atomic<bool>>;

  bool hasFreeSlotLocked() const;
  bool idleLocked() const { return threads_.empty() && handoffs_.empty(); }
  // Starts `op` on a new thread and registers it. Called with mutex_ held.
  void startLocked(const Functor& op);
  // Forgets a running operation that has reported or given up, and lets the
  // library join its thread once it ends. Called with mutex_ held.
  void releaseLocked(std::list<RunningOp>::iterator it);
  // Starts waiting operations while there are free slots. Called with
  // mutex_ held.
  void startPendingLocked();
  // Hands the oldest waiting operation to the reporting thread when a slot
  // is free; null when there is none. Called with mutex_ held.
  std::shared_ptr<std::atomic<int>> handOffLocked();
  // On the reporting thread, after its post: starts the operation handed
  // over, unless terminate dropped it first.
  static void startHandedOff(AsyncOpManager* that, const std::shared_ptr<std::atomic<int>>& state);
  // The steps of terminate from setting terminating_ on, shared with the
  // destructor. Called with mutex_ held; hands the waiting operations to
  // `dropped`, to be destroyed after the mutex.
  void terminateLocked(std::list<Functor>& dropped);
  // An operation whose thread ended by an exception before it reported.
  void abandon(unsigned long tid);
  // The posted action: delivers `result` unless `canceled` was set.
  static void resultReporter(const CancelFlag& canceled, AsyncOpManager* that, Functor& result);

  ActionQueue& queue_;
  // The queue's thread, learned from the first delivered result.
  std::unique_ptr<detail::ThreadChecker> queueThread_;
  std::list<RunningOp> threads_;
  std::list<Handoff> handoffs_;
  // One flag per result posted and not yet delivered. A flag is shared by
  // the posted action and this set, so that setting it stays safe even when
  // the queue destroys the action unrun.
  std::set<CancelFlag> cancelers_;
  const std::shared_ptr<PostsInFlight> posts_;
  ACE_Thread_Mutex mutex_;
  ACE_Condition_Thread_Mutex cond_;
  bool terminating_ = false;
  const unsigned int maxThreads_;
  std::list<Functor> pending_;
};

}  // namespace QIM
