#include "qimmisc/functor.h"

namespace QIM {

namespace {

// A posting trace captured by saveStackTrace. Capturing copies frame
// pointers only; the text is made once, by the first reader, and cut to
// Functor::MaxStackTraceLength.
class DeferredStackText final : public DbgMsg::detail::StackText {
 public:
  ~DeferredStackText() override { delete text_.load(std::memory_order_acquire); }

  const std::string& text() const override {
    if (const std::string* ready = text_.load(std::memory_order_acquire)) return *ready;
    std::string formatted = trace_.format();
    if (formatted.size() > Functor::MaxStackTraceLength) {
      formatted.resize(Functor::MaxStackTraceLength);
    }
    auto* mine = new std::string(std::move(formatted));
    const std::string* expected = nullptr;
    if (text_.compare_exchange_strong(expected, mine, std::memory_order_acq_rel)) return *mine;
    delete mine;  // another reader won the race; its text is the same
    return *expected;
  }

 private:
  DbgMsg::StackTrace trace_;
  mutable std::atomic<const std::string*> text_{nullptr};
};

// Puts the posting trace in place for the duration of a call, and back
// again however the call ends.
class InstalledStackText {
 public:
  explicit InstalledStackText(const DbgMsg::detail::StackTextPtr& text)
      : installed_(static_cast<bool>(text)) {
    if (installed_) saved_ = DbgMsg::detail::exchangeStackText(text);
  }
  ~InstalledStackText() {
    if (installed_) DbgMsg::detail::exchangeStackText(std::move(saved_));
  }
  InstalledStackText(const InstalledStackText&) = delete;
  InstalledStackText& operator=(const InstalledStackText&) = delete;

 private:
  bool installed_;
  DbgMsg::detail::StackTextPtr saved_;
};

}  // namespace

std::atomic<bool> Functor::nullPointerDetected{false};

Functor::Executor::~Executor() = default;

Functor::Functor(Executor* executor) : executor_(executor) { QIM_ASSERT(0!=executor_); }

Functor::Functor(const Functor& other)
    : executor_(other.executor_ ? other.executor_->clone() : nullptr) {}

Functor::Functor(Functor&& other) noexcept
    : executor_(std::exchange(other.executor_, nullptr)),
      stackTrace_(std::move(other.stackTrace_)) {}

Functor& Functor::operator=(const Functor& other) {
  Functor copy(other);
  swap(copy);  // the old executor and trace leave with `copy`
  return *this;
}

Functor& Functor::operator=(Functor&& other) noexcept {
  Functor taken(std::move(other));
  swap(taken);
  return *this;
}

Functor::~Functor() { delete executor_; }

void Functor::swap(Functor& other) noexcept {
  std::swap(executor_, other.executor_);
  stackTrace_.swap(other.stackTrace_);
}

void Functor::operator()() {
  if (!executor_) return;
  QIM_ENTRY();
  InstalledStackText posting(stackTrace_);
  executor_->execute();
}

void Functor::saveStackTrace() { stackTrace_ = std::make_shared<DeferredStackText>(); }

std::string Functor::stackTrace() const {
  return stackTrace_ ? stackTrace_->text() : std::string();
}

}  // namespace QIM
