// Timers: ours against boost::asio::steady_timer.
//
// timers_schedule_cancel: schedule 100,000 timers with mixed delays (spread
// over one second to one hour, in random order, so that none falls due and
// the ordered list is filled all over, not only at its end), then cancel
// them all in a shuffled order, on the thread the timers belong to (our
// queue's thread; asio's io_context thread). Both sides get the same delays
// and the same cancel order. Items are timers. The counter bytes_per_timer
// is the heap a pending timer costs, handle storage included: the bytes
// requested from operator new while the timers are scheduled (counted by
// the benchmark binary's replacement of operator new, AllocCounter),
// divided by their number. Allocator overhead is not in it. On Windows the
// library is a DLL with its own operator new, so there the figure misses
// our side's allocations; read it on Linux.
//
// timer_lateness_10k_pending: 10,000 timers with delays spread over 50 to
// 150 ms, scheduled in random order, so that all are pending when the first
// fires. Lateness is the time an action starts minus the time it was due
// (the clock read just before scheduling plus the delay). Ours run on an
// ActionThread's queue (scheduler thread, then queue thread); asio's
// handlers run on the thread in io_context::run. Counters p50_us and p99_us
// are over every timer of every iteration.
#include <benchmark/benchmark.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <ace/Thread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <random>
#include <thread>
#include <vector>

#include "AllocCounter.h"
#include "qimmisc/ActionQueue.h"
#include "qimmisc/ActionThread.h"
#include "qimmisc/TimerScheduler.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kScheduleCancelTimers = 100000;
constexpr int kLatenessTimers = 10000;

// The schedule/cancel case's delays in microseconds (1 s to 1 h, random)
// and the order in which the timers are cancelled (a shuffled permutation).
struct ScheduleCancelPlan {
  ScheduleCancelPlan() : delaysUs(kScheduleCancelTimers), cancelOrder(kScheduleCancelTimers) {
    std::mt19937_64 rng(20171127);
    std::uniform_int_distribution<long long> delay(1000000LL, 3600000000LL);
    for (auto& d : delaysUs) d = delay(rng);
    for (int i = 0; i < kScheduleCancelTimers; ++i) cancelOrder[static_cast<std::size_t>(i)] = i;
    std::shuffle(cancelOrder.begin(), cancelOrder.end(), rng);
  }
  std::vector<long long> delaysUs;
  std::vector<int> cancelOrder;
};

const ScheduleCancelPlan& plan() {
  static const ScheduleCancelPlan shared;
  return shared;
}

// A queue whose thread is the benchmark thread and that nobody pumps: the
// schedule/cancel case cancels where timers belong, and none falls due.
class IdleQueue : public QIM::ActionQueue {
 public:
  IdleQueue() : tid_(static_cast<unsigned long>(ACE_Thread::self())) {}
  unsigned long tid() const override { return tid_; }

 protected:
  void signal() override {}

 private:
  const unsigned long tid_;
};

void scheduleCancelQimmisc(benchmark::State& state) {
  QIM::TimerScheduler timers;
  IdleQueue queue;
  const QIM::Functor action = QIM::makeFunctor([] {});
  const ScheduleCancelPlan& p = plan();
  std::vector<ACE_Time_Value> delays;
  for (long long us : p.delaysUs) delays.emplace_back(us / 1000000, us % 1000000);
  std::vector<QIM::Timer*> handles;
  const auto scheduleAll = [&] {
    for (std::size_t i = 0; i < handles.size(); ++i) {
      handles[i] = timers.schedule(action, &queue, delays[i], false);
    }
  };
  const auto cancelAll = [&] {
    for (int i : p.cancelOrder) timers.cancel(handles[static_cast<std::size_t>(i)]);
  };

  // Memory first, outside the timed loop; the handles count too.
  const std::size_t before = qimbench::allocatedBytes();
  handles.resize(kScheduleCancelTimers);
  scheduleAll();
  const std::size_t after = qimbench::allocatedBytes();
  cancelAll();
  state.counters["bytes_per_timer"] = static_cast<double>(after - before) / kScheduleCancelTimers;

  for (auto _ : state) {
    scheduleAll();
    cancelAll();
  }
  state.SetItemsProcessed(state.iterations() * kScheduleCancelTimers);
}
BENCHMARK(scheduleCancelQimmisc)
    ->Name("timers_schedule_cancel/qimmisc")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The peer: the same on the io_context's own thread (this one). A cancelled
// wait still completes with operation_aborted, so each iteration runs the
// context until those completions are done: that is part of cancelling.
void scheduleCancelAsio(benchmark::State& state) {
  boost::asio::io_context io;
  const auto handler = [](const boost::system::error_code&) {};
  const ScheduleCancelPlan& p = plan();
  std::vector<std::chrono::microseconds> delays;
  for (long long us : p.delaysUs) delays.emplace_back(us);

  // Memory first, outside the timed loop: the timer objects are made here,
  // as our schedule makes its timers.
  const std::size_t before = qimbench::allocatedBytes();
  std::vector<boost::asio::steady_timer> timers;
  timers.reserve(kScheduleCancelTimers);
  for (std::size_t i = 0; i < delays.size(); ++i) {
    timers.emplace_back(io, delays[i]);
    timers.back().async_wait(handler);
  }
  const std::size_t after = qimbench::allocatedBytes();
  for (int i : p.cancelOrder) timers[static_cast<std::size_t>(i)].cancel();
  io.restart();
  io.run();
  state.counters["bytes_per_timer"] = static_cast<double>(after - before) / kScheduleCancelTimers;

  // Then the timer objects are reused: only scheduling and cancelling count.
  for (auto _ : state) {
    for (std::size_t i = 0; i < timers.size(); ++i) {
      timers[i].expires_after(delays[i]);
      timers[i].async_wait(handler);
    }
    for (int i : p.cancelOrder) timers[static_cast<std::size_t>(i)].cancel();
    io.restart();
    io.run();
  }
  state.SetItemsProcessed(state.iterations() * kScheduleCancelTimers);
}
BENCHMARK(scheduleCancelAsio)
    ->Name("timers_schedule_cancel/asio")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Delays from 50 to 150 ms in a fixed random order, in microseconds.
std::vector<int> spreadDelaysUs() {
  std::vector<int> delays(kLatenessTimers);
  for (int i = 0; i < kLatenessTimers; ++i) delays[i] = 50000 + i * 100000 / kLatenessTimers;
  std::shuffle(delays.begin(), delays.end(), std::mt19937(20171127));
  return delays;
}

// Lateness samples of one side, in microseconds.
class Lateness {
 public:
  explicit Lateness(benchmark::State& state) : state_(state) {
    samples_.reserve(static_cast<std::size_t>(kLatenessTimers) * 8);
  }
  void add(const std::vector<Clock::time_point>& due, const std::vector<Clock::time_point>& ran) {
    for (std::size_t i = 0; i < due.size(); ++i) {
      samples_.push_back(std::chrono::duration<double, std::micro>(ran[i] - due[i]).count());
    }
  }
  ~Lateness() {
    if (samples_.empty()) return;
    std::sort(samples_.begin(), samples_.end());
    const auto at = [this](double q) {
      return samples_[static_cast<std::size_t>(q * static_cast<double>(samples_.size() - 1))];
    };
    state_.counters["p50_us"] = at(0.50);
    state_.counters["p99_us"] = at(0.99);
  }

 private:
  benchmark::State& state_;
  std::vector<double> samples_;
};

void latenessQimmisc(benchmark::State& state) {
  const std::vector<int> delays = spreadDelaysUs();
  QIM::ActionThread worker;
  worker.start("bench-timers");
  {
    QIM::TimerScheduler timers;
    Lateness lateness(state);
    for (auto _ : state) {
      std::vector<Clock::time_point> due(kLatenessTimers), ran(kLatenessTimers);
      std::atomic<int> fired{0};
      std::promise<void> allFired;
      for (int i = 0; i < kLatenessTimers; ++i) {
        const auto index = static_cast<std::size_t>(i);
        due[index] = Clock::now() + std::chrono::microseconds(delays[index]);
        timers.schedule(QIM::makeFunctor([&, index] {
                          ran[index] = Clock::now();
                          if (fired.fetch_add(1) + 1 == kLatenessTimers) allFired.set_value();
                        }),
                        &worker, ACE_Time_Value(0, delays[index]), false);
      }
      allFired.get_future().wait();
      lateness.add(due, ran);
    }
  }
  worker.stop(QIM::ActionThread::StopDrain, QIM::ActionThread::ReturnWait);
  state.SetItemsProcessed(state.iterations() * kLatenessTimers);
}
BENCHMARK(latenessQimmisc)
    ->Name("timer_lateness_10k_pending/qimmisc")
    ->Iterations(8)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void latenessAsio(benchmark::State& state) {
  const std::vector<int> delays = spreadDelaysUs();
  boost::asio::io_context io;
  auto work = boost::asio::make_work_guard(io);
  std::vector<boost::asio::steady_timer> timers;
  timers.reserve(kLatenessTimers);
  for (int i = 0; i < kLatenessTimers; ++i) timers.emplace_back(io);
  std::thread runner([&io] { io.run(); });
  {
    Lateness lateness(state);
    for (auto _ : state) {
      std::vector<Clock::time_point> due(kLatenessTimers), ran(kLatenessTimers);
      std::atomic<int> fired{0};
      std::promise<void> allFired;
      for (int i = 0; i < kLatenessTimers; ++i) {
        const auto index = static_cast<std::size_t>(i);
        const auto delay = std::chrono::microseconds(delays[index]);
        due[index] = Clock::now() + delay;
        // Distinct timers from this thread while the context runs on
        // another: the context is thread-safe, each timer is used by one
        // thread at a time.
        timers[index].expires_after(delay);
        timers[index].async_wait([&, index](const boost::system::error_code&) {
          ran[index] = Clock::now();
          if (fired.fetch_add(1) + 1 == kLatenessTimers) allFired.set_value();
        });
      }
      allFired.get_future().wait();
      lateness.add(due, ran);
    }
  }
  work.reset();
  runner.join();
  state.SetItemsProcessed(state.iterations() * kLatenessTimers);
}
BENCHMARK(latenessAsio)
    ->Name("timer_lateness_10k_pending/asio")
    ->Iterations(8)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
