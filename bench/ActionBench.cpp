// Posting and running actions: an ActionThread against a boost::asio
// io_context run by one thread, made with the default concurrency hint
// ("asio") and with hint 1 ("asio_hint1", which tells it that one thread
// runs it). All run the same empty action (an atomic increment, so the
// producer knows when all have run).
#include <benchmark/benchmark.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include <atomic>
#include <thread>
#include <vector>

#include "AllocCounter.h"
#include "qimmisc/ActionThread.h"

namespace {

constexpr int kActionsPerIteration = 100000;

struct Counter {
  std::atomic<long> value{0};
  void bump() { value.fetch_add(1, std::memory_order_relaxed); }
};

void waitFor(const std::atomic<long>& value, long target) {
  while (value.load(std::memory_order_relaxed) < target) std::this_thread::yield();
}

// `producers` threads share kActionsPerIteration posts; the iteration ends
// when the worker has run them all.
template <class Post>
void runProducers(int producers, Post post) {
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([&post, producers] {
      for (int i = 0; i < kActionsPerIteration / producers; ++i) post();
    });
  }
  for (auto& t : threads) t.join();
}

void postRunQimmisc(benchmark::State& state) {
  const int producers = static_cast<int>(state.range(0));
  QIM::ActionThread worker;
  worker.start("bench worker");
  Counter counter;
  const QIM::Functor action = QIM::makeFunctor(&counter, &Counter::bump);
  long target = 0;
  for (auto _ : state) {
    runProducers(producers, [&] { worker.push_back(action, 0); });
    target += kActionsPerIteration;
    waitFor(counter.value, target);
  }
  worker.stop(QIM::ActionThread::StopDrain, QIM::ActionThread::ReturnWait);
  state.SetItemsProcessed(state.iterations() * kActionsPerIteration);
}
BENCHMARK(postRunQimmisc)->Name("post_run/qimmisc")->Arg(1)->Arg(4)->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// A running io_context; hint 0 stands for the default hint.
template <int Hint>
struct AsioRunner {
  boost::asio::io_context context{Hint == 0 ? BOOST_ASIO_CONCURRENCY_HINT_DEFAULT : Hint};
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> guard{
      boost::asio::make_work_guard(context)};
  std::thread runner{[this] { context.run(); }};
  ~AsioRunner() {
    guard.reset();
    runner.join();
  }
};

template <int Hint>
void postRunAsio(benchmark::State& state) {
  const int producers = static_cast<int>(state.range(0));
  AsioRunner<Hint> asio;
  Counter counter;
  long target = 0;
  for (auto _ : state) {
    runProducers(producers,
                 [&] { boost::asio::post(asio.context, [&counter] { counter.bump(); }); });
    target += kActionsPerIteration;
    waitFor(counter.value, target);
  }
  state.SetItemsProcessed(state.iterations() * kActionsPerIteration);
}
BENCHMARK(postRunAsio<0>)->Name("post_run/asio")->Arg(1)->Arg(4)->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(postRunAsio<1>)->Name("post_run/asio_hint1")->Arg(1)->Arg(4)->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// One post from another thread to the start of its execution and back: the
// round trip of a ping-pong with an idle worker.
void pingPongQimmisc(benchmark::State& state) {
  QIM::ActionThread worker;
  worker.start("bench worker");
  std::atomic<long> pong{0};
  long expected = 0;
  for (auto _ : state) {
    worker.push_back(QIM::makeFunctor([&pong] { pong.fetch_add(1, std::memory_order_release); }), 0);
    ++expected;
    while (pong.load(std::memory_order_acquire) < expected) {
    }
  }
  worker.stop(QIM::ActionThread::StopDrain, QIM::ActionThread::ReturnWait);
}
BENCHMARK(pingPongQimmisc)->Name("ping_pong/qimmisc")->UseRealTime();

template <int Hint>
void pingPongAsio(benchmark::State& state) {
  AsioRunner<Hint> asio;
  std::atomic<long> pong{0};
  long expected = 0;
  for (auto _ : state) {
    boost::asio::post(asio.context, [&pong] { pong.fetch_add(1, std::memory_order_release); });
    ++expected;
    while (pong.load(std::memory_order_acquire) < expected) {
    }
  }
}
BENCHMARK(pingPongAsio<0>)->Name("ping_pong/asio")->UseRealTime();
BENCHMARK(pingPongAsio<1>)->Name("ping_pong/asio_hint1")->UseRealTime();

// Heap bytes held per queued action (functor, executor, posting trace and
// queue storage), with the worker stopped so nothing runs meanwhile.
void queuedActionBytes(benchmark::State& state) {
  Counter counter;
  const QIM::Functor action = QIM::makeFunctor(&counter, &Counter::bump);
  constexpr int kQueued = 10000;
  double perAction = 0;
  for (auto _ : state) {
    QIM::ActionThread worker;
    const std::size_t before = qimbench::allocatedBytes();
    for (int i = 0; i < kQueued; ++i) worker.push_back(action, 0);
    perAction = static_cast<double>(qimbench::allocatedBytes() - before) / kQueued;
  }
  state.counters["bytes_per_action"] = perAction;
}
BENCHMARK(queuedActionBytes)->Name("queued_action_memory/qimmisc")->Iterations(3);

}  // namespace
