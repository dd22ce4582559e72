#include "qimmisc/functor.h"

#include "diagnostics/PostingTrace.h"

namespace QIM {

static_assert(Functor::MaxStackTraceLength == DbgMsg::detail::kMaxPostingTraceLength);

namespace {

// Swaps the posting trace in for the duration of a call, and back out
// however the call ends. Swapping moves pointers: no reference counting.
class InstalledStackText {
 public:
  explicit InstalledStackText(DbgMsg::detail::StackTextPtr& text)
      : text_(text), installed_(static_cast<bool>(text)) {
    if (installed_) DbgMsg::detail::swapStackText(text_);
  }
  ~InstalledStackText() {
    if (installed_) DbgMsg::detail::swapStackText(text_);
  }
  InstalledStackText(const InstalledStackText&) = delete;
  InstalledStackText& operator=(const InstalledStackText&) = delete;

 private:
  DbgMsg::detail::StackTextPtr& text_;
  bool installed_;
};

}  // namespace

std::atomic<bool> Functor::nullPointerDetected{false};

Functor::Executor::~Executor() = default;

Functor::Executor* Functor::Executor::cloneInto(void*, std::size_t) const { return clone(); }

Functor::Executor* Functor::Executor::moveInto(void* storage, std::size_t size) {
  return cloneInto(storage, size);
}

Functor::Functor(Executor* executor) : executor_(executor) { QIM_ASSERT(0!=executor_); }

Functor::Functor(const Functor& other)
    : executor_(other.executor_ ? other.executor_->cloneInto(inline_, InlineExecutorSize)
                                : nullptr) {}

Functor::Functor(Functor&& other) noexcept
    : executor_(nullptr), stackTrace_(std::move(other.stackTrace_)) {
  takeExecutor(other);
}

Functor& Functor::operator=(const Functor& other) {
  Functor copy(other);
  swap(copy);  // the old executor and trace leave with `copy`
  return *this;
}

Functor& Functor::operator=(Functor&& other) noexcept {
  if (this != &other) {
    destroyExecutor();
    takeExecutor(other);
    stackTrace_ = std::move(other.stackTrace_);
  }
  return *this;
}

Functor::~Functor() { destroyExecutor(); }

void Functor::takeExecutor(Functor& other) noexcept {
  if (!other.holdsInline()) {
    executor_ = std::exchange(other.executor_, nullptr);
    return;
  }
  // An inline executor is moved across and the original dropped.
  executor_ = other.executor_->moveInto(inline_, InlineExecutorSize);
  other.destroyExecutor();
}

void Functor::destroyExecutor() noexcept {
  if (holdsInline()) {
    executor_->~Executor();
  } else {
    delete executor_;
  }
  executor_ = nullptr;
}

void Functor::swap(Functor& other) noexcept {
  if (this == &other) return;
  Functor held(std::move(other));
  other = std::move(*this);
  *this = std::move(held);
}

void Functor::operator()() {
  if (!executor_) return;
  QIM_ENTRY();
  InstalledStackText posting(stackTrace_);
  executor_->execute();
}

void Functor::saveStackTrace() {
  stackTrace_ = DbgMsg::detail::capturePostingTrace();
}

std::string Functor::stackTrace() const {
  return stackTrace_ ? stackTrace_->text() : std::string();
}

}  // namespace QIM
