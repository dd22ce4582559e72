// Captured call stacks (StackTrace.cpp): the text type behind a thread's
// additional stack information, and the immutable snapshot that StackTrace
// and posting traces share.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qimmisc/DbgMsg.h"

namespace QIM {
namespace DbgMsg {
namespace detail {

class PostingTrace;
struct ThreadState;

/// A thread's additional stack information: a plain text, or a posting
/// trace whose text is made when first read.
class StackText {
 public:
  virtual ~StackText();
  virtual const std::string& text() const = 0;
  /// This text as a posting trace, or null.
  virtual const PostingTrace* asPostingTrace() const { return nullptr; }
};
using StackTextPtr = std::shared_ptr<const StackText>;

/// Stack information set as text (setStackInfo).
class PlainStackText final : public StackText {
 public:
  explicit PlainStackText(std::string text) : text_(std::move(text)) {}
  const std::string& text() const override { return text_; }

 private:
  std::string text_;
};

/// A copy of a thread's id, frames (the Locus records) and stack
/// information at one moment. Never changes once made, so any number of
/// traces and threads may share it.
class StackSnapshot {
 public:
  /// Copies the calling thread's state.
  StackSnapshot();

  /// Whether the calling thread's stack and stack information are still
  /// what this snapshot holds.
  bool matchesCallingThread() const;

  /// "Delayed stack trace for thread XXXX" and the frame lines, newest
  /// first, each line ended by "\n".
  void appendHead(std::string& out) const;

  const StackTextPtr& info() const { return info_; }

 private:
  unsigned long threadId_;
  std::vector<Locus> frames_;  // oldest first
  StackTextPtr info_;
};

/// The calling thread's snapshot (`state` is its ThreadState): the same
/// object while its stack and stack information are unchanged, so
/// capturing often is cheap.
const std::shared_ptr<const StackSnapshot>& currentSnapshot(ThreadState& state);

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
