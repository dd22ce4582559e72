// Posting traces: the text a Functor keeps of where it was posted.
#include "diagnostics/PostingTrace.h"

#include <mutex>

#include "diagnostics/LineFormat.h"
#include "diagnostics/NoDestructor.h"
#include "diagnostics/ThreadState.h"

namespace QIM {
namespace DbgMsg {
namespace detail {

namespace {

std::atomic<std::size_t> liveTraces{0};

// Making a text reads and releases snapshots that other traces share, so
// one lock serialises it. Only readers of a text not yet made take it.
std::mutex& formatLock() {
  static ::QIM::detail::NoDestructor<std::mutex> lock;
  return *lock;
}

unsigned chainBelow(const StackSnapshot& snapshot) {
  const PostingTrace* earlier = snapshot.info() ? snapshot.info()->asPostingTrace() : nullptr;
  return earlier ? earlier->chainLength() : 0;
}

}  // namespace

PostingTrace::PostingTrace(std::shared_ptr<const StackSnapshot> snapshot)
    : snapshot_(std::move(snapshot)), chain_(1 + chainBelow(*snapshot_)) {
  liveTraces.fetch_add(1, std::memory_order_relaxed);
}

PostingTrace::~PostingTrace() {
  delete text_.load(std::memory_order_acquire);
  liveTraces.fetch_sub(1, std::memory_order_relaxed);
}

const std::string& PostingTrace::text() const {
  if (const std::string* made = text_.load(std::memory_order_acquire)) return *made;
  std::lock_guard<std::mutex> lock(formatLock());
  if (const std::string* made = text_.load(std::memory_order_acquire)) return *made;
  const std::string* made = new std::string(format());
  text_.store(made, std::memory_order_release);
  snapshot_.reset();  // the text is all that is needed from now on
  return *made;
}

// The StackTrace text of the snapshot, cut. Each earlier trace still unmade
// contributes its head in turn until the cut is reached or a made text or
// plain information ends the chain. The caller holds formatLock().
std::string PostingTrace::format() const {
  std::string out;
  const StackSnapshot* snapshot = snapshot_.get();
  while (out.size() < kMaxPostingTraceLength) {
    snapshot->appendHead(out);
    const StackText* info = snapshot->info().get();
    if (!info || out.size() >= kMaxPostingTraceLength) break;
    const PostingTrace* earlier = info->asPostingTrace();
    const std::string* text =
        earlier ? earlier->text_.load(std::memory_order_acquire) : &info->text();
    if (text && text->empty()) break;
    out += kAdditionalInformation;
    out += '\n';
    if (text) {
      out.append(*text, 0, kMaxPostingTraceLength - std::min(out.size(), kMaxPostingTraceLength));
      break;
    }
    snapshot = earlier->snapshot_.get();
  }
  if (out.size() > kMaxPostingTraceLength) out.resize(kMaxPostingTraceLength);
  return out;
}

StackTextPtr capturePostingTrace() {
  ThreadState& state = threadState();
  const std::shared_ptr<const StackSnapshot>& snapshot = currentSnapshot(state);
  if (!state.postingTrace) {
    auto trace = std::make_shared<const PostingTrace>(snapshot);
    if (trace->chainLength() > PostingTrace::kMaxChain) trace->text();
    state.postingTrace = std::move(trace);
  }
  return state.postingTrace;
}

std::size_t livePostingTraces() { return liveTraces.load(std::memory_order_relaxed); }

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
