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
  };

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

  /// Exchanges executors and posting traces.
  void swap(Functor& other) noexcept;

  /// Runs the executor with the posting trace installed as the thread's
  /// stack information; an empty functor does nothing.
  void operator()();

  /// Remembers the calling thread's instrumented call stack as the place
  /// this functor was posted. Cheap: the text is made only when read.
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
  Executor* executor_;
  DbgMsg::detail::StackTextPtr stackTrace_;
};

inline void swap(Functor& a, Functor& b) noexcept { a.swap(b); }

namespace FunctorExecutors {

/// Calls (obj_->*func_)() and discards the result.
template <class T, class F>
class ExecutorM0 : public Functor::Executor {
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
  Functor::Executor* clone() const override { return new ExecutorM0(*this); }

 private:
  T* obj_;
  F func_;
};

/// Calls (obj_->*func_)(argument) with a stored copy of the argument.
template <class T, class R, class C, class P, class A>
class ExecutorM1 : public Functor::Executor {
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
  Functor::Executor* clone() const override { return new ExecutorM1(*this); }

 private:
  T* obj_;
  Method func_;
  A argument_;
};

/// Calls any copyable callable taking no arguments (lambdas, free
/// functions, bound objects); the result is discarded.
template <class F>
class ExecutorF : public Functor::Executor {
 public:
  explicit ExecutorF(F func) : func_(std::move(func)) {}
  void execute() override { static_cast<void>(func_()); }
  Functor::Executor* clone() const override { return new ExecutorF(*this); }

 private:
  F func_;
};

}  // namespace FunctorExecutors

/// A Functor calling obj->func(); works for const and non-const members of
/// any result type.
template <class T, class F, std::enable_if_t<std::is_member_function_pointer_v<F>, int> = 0>
Functor makeFunctor(T* obj, F func) {
  return Functor(new FunctorExecutors::ExecutorM0<T, F>(obj, func));
}

/// A Functor calling obj->func(argument) with a copy of `argument`.
template <class T, class R, class C, class P, class A>
Functor makeFunctor(T* obj, R (C::*func)(P), A&& argument) {
  using Stored = std::decay_t<A>;
  return Functor(new FunctorExecutors::ExecutorM1<T, R, C, P, Stored>(
      obj, func, std::forward<A>(argument)));
}

/// A Functor calling `func()`.
template <class F>
Functor makeFunctor(F&& func) {
  return Functor(new FunctorExecutors::ExecutorF<std::decay_t<F>>(std::forward<F>(func)));
}

}  // namespace QIM
