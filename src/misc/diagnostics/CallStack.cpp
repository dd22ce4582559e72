// The per-thread call stack: StackLogger's push and pop with the timed
// return line, and the back-trace printed from it.
#include <cerrno>
#include <chrono>

#include "diagnostics/Channels.h"
#include "diagnostics/DbgMsgPlatform.h"
#include "diagnostics/Destinations.h"
#include "diagnostics/LineFormat.h"
#include "diagnostics/StackSnapshot.h"
#include "diagnostics/ThreadState.h"

namespace QIM {
namespace DbgMsg {

namespace {

// ENTRY durations come from a monotonic clock: a wall-clock step while a
// scope runs must not show as a negative or huge time.
long long monotonicMicros() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

StackLogger::StackLogger(const Locus& locus) : start_(-1), pushed_(true) {
  detail::CallStackTls& stack = detail::callStack;
  if (stack.depth >= stack.capacity && !detail::growCallStack()) {
    errno = ENOMEM;
    pushed_ = false;
    return;
  }
  // A copy: the caller's Locus may live on its own stack.
  stack.frames[stack.depth] = locus;
  const unsigned depth = ++stack.depth;
  ++stack.generation;
  if (isOpen(locus.channel)) {
    const int maxDepth = detail::entryMaxDepth();
    if (maxDepth < 0 || static_cast<int>(depth) <= maxDepth) start_ = monotonicMicros();
  }
}

StackLogger::~StackLogger() {
  if (!pushed_) return;
  detail::CallStackTls& stack = detail::callStack;
  if (isActive() && stack.depth <= stack.capacity) {
    const long long elapsed = monotonicMicros() - start_;
    // Written while the frame is still on the stack, so an ENTRY line shows
    // the function's own depth.
    const Locus locus = stack.frames[stack.depth - 1];
    Tracer line(locus, LLT_Default());
    line << "<ret Time:" << elapsed << " usec>";
  }
  --stack.depth;
  ++stack.generation;
}

void printBackTrace() {
  detail::DisableThreadLogging quiet;
  std::shared_lock<std::shared_mutex> lock(detail::destinationLock());
  LineLogger* sink = detail::traceSink();
  if (!sink) return;
  const LogLineType& type = LLT_Default();
  try {
    std::string line = "Stack trace for thread ";
    detail::appendThreadId(line, platform::currentThreadId());
    SinkAccess::deliver(*sink, line, type);
    const detail::CallStackTls& stack = detail::callStack;
    for (unsigned i = stack.depth < stack.capacity ? stack.depth : stack.capacity; i >= 1; --i) {
      line.clear();
      detail::appendFrameLine(line, static_cast<int>(i), stack.frames[i - 1]);
      SinkAccess::deliver(*sink, line, type);
    }
    const detail::StackTextPtr info = detail::threadState().info;
    if (info && !info->text().empty()) {
      SinkAccess::deliver(*sink, detail::kAdditionalInformation, type);
      SinkAccess::deliver(*sink, info->text(), type);
    }
  } catch (...) {
    // A failing sink loses its lines; the caller carries on.
  }
}

}  // namespace DbgMsg
}  // namespace QIM
