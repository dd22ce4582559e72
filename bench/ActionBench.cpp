// Posting and running actions: an ActionThread against a boost::asio
// io_context run by one thread. Both run the same empty action (an atomic
// increment, so the producer knows when all have run).
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

void postRunAsio(benchmark::State& state) {
  const int producers = static_cast<int>(state.range(0));
  boost::asio::io_context context(1);
  auto guard = boost::asio::make_work_guard(context);
  std::thread runner([&context] { context.run(); });
  Counter counter;
  long target = 0;
  for (auto _ : state) {
    runProducers(producers, [&] { boost::asio::post(context, [&counter] { counter.bump(); }); });
    target += kActionsPerIteration;
    waitFor(counter.value, target);
  }
  guard.reset();
  runner.join();
  state.SetItemsProcessed(state.iterations() * kActionsPerIteration);
}
BENCHMARK(postRunAsio)->Name("post_run/asio")->Arg(1)->Arg(4)->UseRealTime()
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

void pingPongAsio(benchmark::State& state) {
  boost::asio::io_context context(1);
  auto guard = boost::asio::make_work_guard(context);
  std::thread runner([&context] { context.run(); });
  std::atomic<long> pong{0};
  long expected = 0;
  for (auto _ : state) {
    boost::asio::post(context, [&pong] { pong.fetch_add(1, std::memory_order_release); });
    ++expected;
    while (pong.load(std::memory_order_acquire) < expected) {
    }
  }
  guard.reset();
  runner.join();
}
BENCHMARK(pingPongAsio)->Name("ping_pong/asio")->UseRealTime();

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
