// Thread start-up: createThread returns once the new thread runs, so its
// latency is the spawn plus the start hand-shake.
#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

#include "qimmisc/ThreadUtils.h"

namespace {

void createThreadLatency(benchmark::State& state) {
  const QIM::Functor body = QIM::makeFunctor([] {});
  for (auto _ : state) {
    void* handle = nullptr;
    QIM::createThread(body, "", &handle, 0);
    state.PauseTiming();
    QIM::joinThread(handle);
    state.ResumeTiming();
  }
}
BENCHMARK(createThreadLatency)->Name("create_thread/qimmisc")->UseRealTime();

// The peer: std::thread, started and handed back with its own hand-shake,
// so both sides measure "returned once the thread runs".
void stdThreadLatency(benchmark::State& state) {
  for (auto _ : state) {
    std::atomic<bool> started{false};
    std::thread t([&started] { started.store(true, std::memory_order_release); });
    while (!started.load(std::memory_order_acquire)) std::this_thread::yield();
    state.PauseTiming();
    t.join();
    state.ResumeTiming();
  }
}
BENCHMARK(stdThreadLatency)->Name("create_thread/std_thread")->UseRealTime();

}  // namespace
