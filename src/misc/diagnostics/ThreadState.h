// The facility's per-thread state (ThreadState.cpp): the call stack, the
// enabled flag, the additional stack information, the pool of trace lines
// and the cache of the last captured stack.
#pragma once

#include <memory>
#include <vector>

#include "platform/ThreadSlot.h"
#include "qimmisc/DbgMsg.h"

namespace QIM {
namespace DbgMsg {
namespace detail {

class PostingTrace;
struct ThreadState;
using StackTextPtr = std::shared_ptr<const StackText>;

/// The hot half: plain, zero-initialised thread-local data, so that a
/// StackLogger's push and pop and isOpen need no construction guard and no
/// destructor registration.
struct CallStackTls {
  Locus* frames;       // oldest first; owned by the thread's ThreadState
  unsigned capacity;   // room in `frames`; 0 until the first push
  unsigned depth;      // frames in use
  // Bumped by every push, pop and change of stack information, so a
  // snapshot taken at the same generation is still the thread's stack.
  unsigned long long generation;
  bool disabled;       // logging is off for this thread
  // The thread's ThreadState once made (a plain pointer: the slot owns it),
  // so that every post and action reaches it without a slot look-up.
  ThreadState* state;
};

// Initial-exec TLS turns each access into one register-relative load
// instead of a __tls_get_addr call; the block is small enough for the
// static TLS reserve even when the library is loaded with dlopen.
#if defined(__ELF__)
extern constinit thread_local CallStackTls callStack __attribute__((tls_model("initial-exec")));
#else
extern constinit thread_local CallStackTls callStack;
#endif

/// The rest, made on the thread's first push, line or capture and
/// destroyed when the thread ends.
struct ThreadState : ::QIM::detail::ThreadSlotValue {
  ~ThreadState() override;

  std::unique_ptr<Locus[]> frames;  // what callStack.frames points at
  StackTextPtr info;                // additional stack information, or null
  std::vector<std::unique_ptr<LineStream>> freeLines;

  // The last snapshot taken on this thread and the generation it was last
  // found current at, and the posting trace made from it (or null).
  std::shared_ptr<const StackSnapshot> snapshot;
  unsigned long long snapshotGeneration = 0;
  std::shared_ptr<const PostingTrace> postingTrace;
};

/// The calling thread's state, made on first use.
ThreadState& threadState();

/// Makes room for one more frame; false when memory ran out.
bool growCallStack();

/// Replaces the calling thread's stack information.
void setStackText(StackTextPtr text);

/// Clears the thread's enabled flag for a scope, so that whatever a sink
/// logs while a back-trace is printed does not re-enter the facility.
class DisableThreadLogging {
 public:
  DisableThreadLogging() : saved_(callStack.disabled) { callStack.disabled = true; }
  ~DisableThreadLogging() { callStack.disabled = saved_; }
  DisableThreadLogging(const DisableThreadLogging&) = delete;
  DisableThreadLogging& operator=(const DisableThreadLogging&) = delete;

 private:
  bool saved_;
};

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
