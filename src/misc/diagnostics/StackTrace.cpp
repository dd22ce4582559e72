// Captured call stacks: the shared snapshot and StackTrace.
#include "qimmisc/DbgMsg.h"

#include "diagnostics/DbgMsgPlatform.h"
#include "diagnostics/Destinations.h"
#include "diagnostics/LineFormat.h"
#include "diagnostics/PostingTrace.h"
#include "diagnostics/StackSnapshot.h"
#include "diagnostics/ThreadState.h"

namespace QIM {
namespace DbgMsg {
namespace detail {

namespace {

// The frames in use; none of them if the thread's state was cleared at its
// end while scopes were still open.
unsigned framesInUse() {
  return callStack.depth <= callStack.capacity ? callStack.depth : 0;
}

bool sameLocus(const Locus& a, const Locus& b) {
  return a.channel == b.channel && a.line == b.line && a.file == b.file &&
         a.function == b.function && a.date == b.date;
}

}  // namespace

StackText::~StackText() = default;

StackSnapshot::StackSnapshot()
    : threadId_(platform::currentThreadId()),
      frames_(framesInUse() ? callStack.frames : nullptr,
              framesInUse() ? callStack.frames + framesInUse() : nullptr),
      info_(threadState().info) {}

bool StackSnapshot::matchesCallingThread() const {
  const unsigned depth = framesInUse();
  if (frames_.size() != depth || info_ != threadState().info) return false;
  for (unsigned i = 0; i < depth; ++i) {
    if (!sameLocus(frames_[i], callStack.frames[i])) return false;
  }
  return true;
}

void StackSnapshot::appendHead(std::string& out) const {
  out += "Delayed stack trace for thread ";
  appendThreadId(out, threadId_);
  out += '\n';
  for (std::size_t i = frames_.size(); i >= 1; --i) {
    appendFrameLine(out, static_cast<int>(i), frames_[i - 1]);
    out += '\n';
  }
}

const std::shared_ptr<const StackSnapshot>& currentSnapshot(ThreadState& state) {
  if (state.snapshot && state.snapshotGeneration == callStack.generation) return state.snapshot;
  // The stack moved since: a scope left and an equal one entered (a loop
  // that posts from an instrumented helper) still matches.
  if (!state.snapshot || !state.snapshot->matchesCallingThread()) {
    state.snapshot = std::make_shared<const StackSnapshot>();
    state.postingTrace.reset();
  }
  state.snapshotGeneration = callStack.generation;
  return state.snapshot;
}

}  // namespace detail

StackTrace::StackTrace() : snapshot_(detail::currentSnapshot(detail::threadState())) {}

std::string StackTrace::format() const {
  std::string out;
  snapshot_->appendHead(out);
  if (const detail::StackTextPtr& info = snapshot_->info(); info && !info->text().empty()) {
    out += detail::kAdditionalInformation;
    out += '\n';
    out += info->text();
  }
  return out;
}

void StackTrace::print() const {
  // One call: the sink adds the final newline itself.
  std::string text = format();
  if (!text.empty() && text.back() == '\n') text.pop_back();
  std::shared_lock<std::shared_mutex> lock(detail::destinationLock());
  LineLogger* sink = detail::traceSink();
  if (!sink) return;
  try {
    SinkAccess::deliver(*sink, text, LLT_Default());
  } catch (...) {
  }
}

}  // namespace DbgMsg
}  // namespace QIM
