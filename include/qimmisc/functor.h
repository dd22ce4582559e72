// Functor: the library's unit of deferred work.
//
// A copyable, type-erased call with no arguments and no result that owns an
// Executor. Queued actions, timer callbacks, asynchronous results and thread
// bodies are all Functors. A Functor can remember where it was posted
// (saveStackTrace) and installs that trace as the running thread's
// additional stack information while it runs, so a failure inside an action
// reports both where it failed and where it was posted.
//
//   Functor f = makeFunctor(this, &ActionThread::run);      // member, no arg
//   Functor g = makeFunctor(handler, &Handler::onEvent, ev);  // member, 1 arg
//   Functor h = makeFunctor([this] { poll(); });              // any callable
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "qimmisc/DbgMsg.h"
#include "qimmisc/Export.h"
#include "qimmisc/Trace.h"

namespace QIM {

class QIMMISC_API Functor {
 public:
  /// What a Functor calls. Copying a Functor clones its executor.
  class QIMMISC_API Executor {
   public:
    virtual void execute() = 0;
    virtual Executor* clone() const = 0;
    virtual ~Executor();
    /// Copies this executor into `storage` (`size` bytes, pointer-aligned)
    /// when it fits there, else onto the heap as clone() does; returns the
    /// copy. Executors of this header fit; others may keep this default.
    virtual Executor* cloneInto(void* storage, std::size_t size) const;
    /// Like cloneInto, but may move from this executor, which is destroyed
    /// right afterwards.
    virtual Executor* moveInto(void* storage, std::size_t size);
  };

  /// Bytes of executor a Functor holds without a heap allocation: enough
  /// for a member call with one pointer-sized argument, or a lambda that
  /// captures up to four pointers.
  enum : std::size_t { InlineExecutorSize = 40 };

  /// Empty: calling it does nothing.
  Functor() noexcept : executor_(nullptr) {}
  /// Takes ownership of `executor`; a null one is reported ("0!=executor_")
  /// and leaves the functor empty.
  explicit Functor(Executor* executor);
  /// Clones the executor; the posting trace is not copied.
  Functor(const Functor& other);
  /// Takes the executor and the posting trace; `other` becomes empty.
  Functor(Functor&& other) noexcept;
  /// Clones `other`'s executor; this functor's posting trace is dropped.
  Functor& operator=(const Functor& other);
  Functor& operator=(Functor&& other) noexcept;
  ~Functor();

  /// A Functor whose executor E is built from `args` in place: inside the
  /// functor when it fits, on the heap otherwise. makeFunctor uses it.
  template <class E, class... Args>
  static Functor make(Args&&... args) {
    Functor f;
    if constexpr (sizeof(E) <= InlineExecutorSize && alignof(E) <= alignof(void*)) {
      f.executor_ = new (f.inline_) E(std::forward<Args>(args)...);
    } else {
      f.executor_ = new E(std::forward<Args>(args)...);
    }
    return f;
  }

  /// Exchanges executors and posting traces.
  void swap(Functor& other) noexcept;

  /// Runs the executor with the posting trace installed as the thread's
  /// stack information; an empty functor does nothing.
  void operator()();

  /// Remembers the calling thread's instrumented call stack (a StackTrace)
  /// as the place this functor was posted. Cheap: posts from an unchanged
  /// stack share one capture, and the text is made only when read.
  void saveStackTrace();

  /// The posting trace text (at most 10000 characters), or empty.
  std::string stackTrace() const;

  /// Whether there is nothing to call.
  bool empty() const noexcept { return executor_ == nullptr; }

  /// Set the first time an executor skips a call because its object pointer
  /// is null; never reset by the library.
  static std::atomic<bool> nullPointerDetected;

  /// The longest posting trace text kept. An enumerator, not a static data
  /// member, so that using it never needs the member imported from the DLL.
  enum : std::size_t { MaxStackTraceLength = 10000 };

 private:
  bool holdsInline() const noexcept {
    return static_cast<const void*>(executor_) == static_cast<const void*>(inline_);
  }
  // Moves `other`'s executor here; this functor holds none beforehand.
  void takeExecutor(Functor& other) noexcept;
  void destroyExecutor() noexcept;

  Executor* executor_;
  // Where it was posted; shared with other posts from the same stack.
  std::shared_ptr<const DbgMsg::detail::StackText> stackTrace_;
  // Small executors live here, so that copying a Functor into a queue
  // allocates nothing.
  alignas(void*) unsigned char inline_[InlineExecutorSize];
};

inline void swap(Functor& a, Functor& b) noexcept { a.swap(b); }

namespace FunctorExecutors {

/// Gives an executor its clone operations: a copy on the heap, or in a
/// Functor's inline storage when it fits there.
template <class Derived>
class CloneableExecutor : public Functor::Executor {
 public:
  Functor::Executor* clone() const override {
    return new Derived(static_cast<const Derived&>(*this));
  }
  Functor::Executor* cloneInto(void* storage, std::size_t size) const override {
    if (sizeof(Derived) <= size && alignof(Derived) <= alignof(void*)) {
      return new (storage) Derived(static_cast<const Derived&>(*this));
    }
    return clone();
  }
  Functor::Executor* moveInto(void* storage, std::size_t size) override {
    if (sizeof(Derived) <= size && alignof(Derived) <= alignof(void*)) {
      return new (storage) Derived(std::move(static_cast<Derived&>(*this)));
    }
    return clone();
  }
};

/// Calls (obj_->*func_)() and discards the result.
template <class T, class F>
class ExecutorM0 : public CloneableExecutor<ExecutorM0<T, F>> {
 public:
  ExecutorM0(T* obj, F func) : obj_(obj), func_(func) {
    QIM_ASSERT(0!=obj_);
    QIM_ASSERT(0!=func_);
  }
  void execute() override {
    if (!obj_) {
      QIM_ERROR("Functor execution skipped: obj_ is NULL!");
      Functor::nullPointerDetected.store(true, std::memory_order_relaxed);
      return;
    }
    (obj_->*func_)();
  }

 private:
  T* obj_;
  F func_;
};

/// Calls (obj_->*func_)(argument) with a stored copy of the argument.
template <class T, class R, class C, class P, class A>
class ExecutorM1 : public CloneableExecutor<ExecutorM1<T, R, C, P, A>> {
 public:
  using Method = R (C::*)(P);
  ExecutorM1(T* obj, Method func, A argument)
      : obj_(obj), func_(func), argument_(std::move(argument)) {
    QIM_ASSERT(0!=obj_);
    QIM_ASSERT(0!=func_);
  }
  void execute() override {
    if (!obj_) {
      QIM_ERROR("Functor execution skipped: obj_ is NULL!");
      Functor::nullPointerDetected.store(true, std::memory_order_relaxed);
      return;
    }
    (obj_->*func_)(argument_);
  }

 private:
  T* obj_;
  Method func_;
  A argument_;
};

/// Calls any copyable callable taking no arguments (lambdas, free
/// functions, bound objects); the result is discarded.
template <class F>
class ExecutorF : public CloneableExecutor<ExecutorF<F>> {
 public:
  explicit ExecutorF(F func) : func_(std::move(func)) {}
  void execute() override { static_cast<void>(func_()); }

 private:
  F func_;
};

}  // namespace FunctorExecutors

/// A Functor calling obj->func(); works for const and non-const members of
/// any result type.
template <class T, class F, std::enable_if_t<std::is_member_function_pointer_v<F>, int> = 0>
Functor makeFunctor(T* obj, F func) {
  return Functor::make<FunctorExecutors::ExecutorM0<T, F>>(obj, func);
}

/// A Functor calling obj->func(argument) with a copy of `argument`.
template <class T, class R, class C, class P, class A>
Functor makeFunctor(T* obj, R (C::*func)(P), A&& argument) {
  using Stored = std::decay_t<A>;
  return Functor::make<FunctorExecutors::ExecutorM1<T, R, C, P, Stored>>(
      obj, func, std::forward<A>(argument));
}

/// A Functor calling `func()`.
template <class F>
Functor makeFunctor(F&& func) {
  return Functor::make<FunctorExecutors::ExecutorF<std::decay_t<F>>>(std::forward<F>(func));
}

}  // namespace QIM
