// The facility's per-thread state.
#include "diagnostics/ThreadState.h"

#include <new>

#include "diagnostics/LineStream.h"
#include "diagnostics/NoDestructor.h"
#include "diagnostics/PostingTrace.h"
#include "diagnostics/StackSnapshot.h"

namespace QIM {
namespace DbgMsg {
namespace detail {

#if defined(__ELF__)
constinit thread_local CallStackTls callStack __attribute__((tls_model("initial-exec"))) = {};
#else
constinit thread_local CallStackTls callStack = {};
#endif

namespace {
constexpr unsigned kInitialFrames = 32;
// Stands in for frames pushed before the thread's state was cleared at
// its end, should anything still run there.
constexpr Locus kLostFrame{0, "?", 0, "?", "??? ?? ????"};
}  // namespace

ThreadState::~ThreadState() {
  // The frames leave with this object; whatever the thread still runs
  // while its slots are cleared starts a new array.
  callStack.frames = nullptr;
  callStack.capacity = 0;
  callStack.state = nullptr;
}

ThreadState& threadState() {
  if (ThreadState* state = callStack.state) return *state;
  // Never destroyed: threads outlive the library's statics.
  static ::QIM::detail::NoDestructor<::QIM::detail::ThreadSlot> slot;
  ThreadState& state = ::QIM::detail::threadLocal<ThreadState>(*slot);
  callStack.state = &state;
  return state;
}

bool growCallStack() {
  try {
    ThreadState& state = threadState();
    const unsigned capacity = callStack.capacity ? 2 * callStack.capacity : kInitialFrames;
    std::unique_ptr<Locus[]> frames(new Locus[capacity]);
    for (unsigned i = 0; i < callStack.depth; ++i) {
      frames[i] = i < callStack.capacity ? callStack.frames[i] : kLostFrame;
    }
    state.frames = std::move(frames);
    callStack.frames = state.frames.get();
    callStack.capacity = capacity;
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void setStackText(StackTextPtr text) {
  threadState().info = std::move(text);
  ++callStack.generation;
}

void swapStackText(StackTextPtr& text) {
  threadState().info.swap(text);
  ++callStack.generation;
}

bool threadEnabled() { return !callStack.disabled; }

}  // namespace detail

void setStackInfo(const std::string& info) {
  detail::setStackText(info.empty() ? nullptr : std::make_shared<detail::PlainStackText>(info));
}

std::string getStackInfo() {
  const detail::StackTextPtr& info = detail::threadState().info;
  return info ? info->text() : std::string();
}

}  // namespace DbgMsg
}  // namespace QIM
