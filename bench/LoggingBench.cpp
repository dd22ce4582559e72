// Trace-site costs against spdlog: a closed channel, an ENTRY scope with
// ENTRY closed, and an open line to a file flushed on every line; and the
// posting trace every post saves.
#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <cstdio>
#include <memory>
#include <string>

#include "qimmisc/FileLogger.h"
#include "qimmisc/Trace.h"
#include "qimmisc/functor.h"

namespace {

const int kClosedChannel = QIM::DbgMsg::getChannelByName("BENCH_CLOSED");

std::shared_ptr<spdlog::logger> makeSpdlogFileLogger(const std::string& path) {
  auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true);
  auto logger = std::make_shared<spdlog::logger>("bench_file", sink);
  logger->set_pattern("[%t] %l> %s:%# (%!) %v");
  logger->flush_on(spdlog::level::trace);
  return logger;
}

void closedSiteQimmisc(benchmark::State& state) {
  QIM::DbgMsg::toggleChannel(kClosedChannel, false);
  long i = 0;
  for (auto _ : state) {
    QIM_TRACE(kClosedChannel, "value " << ++i);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(closedSiteQimmisc)->Name("closed_site/qimmisc");

void closedSiteSpdlog(benchmark::State& state) {
  auto logger = std::make_shared<spdlog::logger>(
      "bench_closed", std::make_shared<spdlog::sinks::null_sink_mt>());
  logger->set_level(spdlog::level::info);
  long i = 0;
  for (auto _ : state) {
    logger->debug("value {}", ++i);
    benchmark::ClobberMemory();
  }

}
BENCHMARK(closedSiteSpdlog)->Name("closed_site/spdlog");

// The bare tests: isOpen against spdlog's should_log.
void closedCheckQimmisc(benchmark::State& state) {
  QIM::DbgMsg::toggleChannel(kClosedChannel, false);
  for (auto _ : state) benchmark::DoNotOptimize(QIM::DbgMsg::isOpen(kClosedChannel));
}
BENCHMARK(closedCheckQimmisc)->Name("closed_check/qimmisc");

void closedCheckSpdlog(benchmark::State& state) {
  spdlog::logger logger("bench_check", std::make_shared<spdlog::sinks::null_sink_mt>());
  logger.set_level(spdlog::level::info);
  for (auto _ : state) benchmark::DoNotOptimize(logger.should_log(spdlog::level::debug));
}
BENCHMARK(closedCheckSpdlog)->Name("closed_check/spdlog");

void instrumented(long i) {
  QIM_ENTRY("i=" << i);
  benchmark::DoNotOptimize(i);
}

void entryScopeClosed(benchmark::State& state) {
  QIM::DbgMsg::toggleChannel(QIM::DbgMsg::EntryId, false);
  long i = 0;
  for (auto _ : state) instrumented(++i);
}
BENCHMARK(entryScopeClosed)->Name("entry_scope_closed/qimmisc");

struct QimFileSetup {
  QimFileSetup() : file("/tmp/qimmisc_bench_file.log") {
    QIM::DbgMsg::toggleChannel(QIM::DbgMsg::ErrorId, true);
    QIM::DbgMsg::setLogDest(&file);
  }
  ~QimFileSetup() { QIM::DbgMsg::setLogDest(nullptr); }
  QIM::FileLogger file;
};

void fileLineQimmisc(benchmark::State& state) {
  static QimFileSetup* setup = nullptr;
  if (state.thread_index() == 0) setup = new QimFileSetup;
  long i = 0;
  for (auto _ : state) QIM_ERROR("line " << ++i << " of thread " << state.thread_index());
  state.SetItemsProcessed(state.iterations());
  if (state.thread_index() == 0) {
    delete setup;
    setup = nullptr;
  }
}
BENCHMARK(fileLineQimmisc)->Name("file_line/qimmisc")->Threads(1)->Threads(4)->UseRealTime();

void fileLineSpdlog(benchmark::State& state) {
  static std::shared_ptr<spdlog::logger> logger;
  if (state.thread_index() == 0) logger = makeSpdlogFileLogger("/tmp/qimmisc_bench_spdlog.log");
  long i = 0;
  // The macro passes the source location, so spdlog formats the same
  // fields ours does (file, line, function).
  for (auto _ : state) {
    SPDLOG_LOGGER_ERROR(logger, "line {} of thread {}", ++i, state.thread_index());
  }
  state.SetItemsProcessed(state.iterations());
  if (state.thread_index() == 0) logger.reset();
}
BENCHMARK(fileLineSpdlog)->Name("file_line/spdlog")->Threads(1)->Threads(4)->UseRealTime();

// Saving the posting trace, as every post does: from an unchanged stack
// (the snapshot is shared) and from a fresh instrumented scope each time.
void savePostingTraceSameStack(benchmark::State& state) {
  QIM::Functor action = QIM::makeFunctor([] {});
  for (auto _ : state) {
    action.saveStackTrace();
    benchmark::ClobberMemory();
  }
}
BENCHMARK(savePostingTraceSameStack)->Name("save_posting_trace/same_stack");

void postFromScope(QIM::Functor& action) {
  QIM_ENTRY();
  action.saveStackTrace();
}

void savePostingTraceNewScope(benchmark::State& state) {
  QIM::DbgMsg::toggleChannel(QIM::DbgMsg::EntryId, false);
  QIM::Functor action = QIM::makeFunctor([] {});
  for (auto _ : state) postFromScope(action);
}
BENCHMARK(savePostingTraceNewScope)->Name("save_posting_trace/new_scope");

}  // namespace
