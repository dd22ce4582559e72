// Posting traces (PostingTrace.cpp): where a Functor was posted, kept as
// text that is made only when somebody reads it, and installed as the
// running thread's stack information while the Functor runs.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include "diagnostics/StackSnapshot.h"
#include "qimmisc/Export.h"

namespace QIM {
namespace DbgMsg {
namespace detail {

/// A posting trace's text is cut to this many characters.
inline constexpr std::size_t kMaxPostingTraceLength = 10000;

/// A snapshot's StackTrace text cut to kMaxPostingTraceLength characters.
///
/// The snapshot's stack information is the trace of the action that was
/// running when this one was taken, so periodic work (an action posting
/// itself again, a timer rescheduling itself) builds a chain of traces, each
/// holding the one before. The text is a prefix cut of the own head plus
/// the earlier trace's text, so only the newest traces of a chain matter,
/// and the chain is kept short: once a trace's text is made it releases its
/// snapshot and with it the older traces, and a new trace that would reach
/// more than kMaxChain unmade traces makes its text at once. Memory per
/// chain is therefore bounded, and formatting walks the chain in a loop,
/// never recursively, as far as the cut needs.
class PostingTrace final : public StackText {
 public:
  explicit PostingTrace(std::shared_ptr<const StackSnapshot> snapshot);
  ~PostingTrace() override;
  PostingTrace(const PostingTrace&) = delete;
  PostingTrace& operator=(const PostingTrace&) = delete;

  const std::string& text() const override;
  const PostingTrace* asPostingTrace() const override { return this; }

  /// Whether the text is made and the snapshot released.
  bool isMade() const { return text_.load(std::memory_order_acquire) != nullptr; }
  /// Unmade traces this one reaches, itself included (0 once made).
  unsigned chainLength() const { return isMade() ? 0 : chain_; }

  /// Longest chain of unmade traces kept; about 300 bytes each.
  static constexpr unsigned kMaxChain = 64;

 private:
  std::string format() const;

  // Released, under the format lock, once text_ is made.
  mutable std::shared_ptr<const StackSnapshot> snapshot_;
  const unsigned chain_;
  mutable std::atomic<const std::string*> text_{nullptr};
};

/// The calling thread's call stack and stack information as a posting
/// trace. Posting again while the thread's stack is unchanged returns the
/// same object, so a busy posting site allocates nothing.
StackTextPtr capturePostingTrace();

/// Swaps `text` with the calling thread's stack information, without
/// formatting or copying it. Functor swaps its posting trace in while it
/// runs and back out afterwards.
void swapStackText(StackTextPtr& text);

/// Posting traces alive in the process: a measure of what periodic work
/// retains.
QIMMISC_API std::size_t livePostingTraces();

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
