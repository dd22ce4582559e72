// The summary pass of "qimmisc log" against its floor: reading the same
// trace file in blocks and counting its line ends, as "wc -l" does. The
// ratio printed is the floor's time over the summary's (goal: 0.3 or more).
//
// The trace is written by the library itself, through DbgMsg: nested ENTRY
// calls with their return lines, a module channel, assertions with their
// back-traces and throws, from two threads. QIMMISC_LOG_BENCH_MB sets its
// size (default 16 MB); QIMMISC_LOG_BENCH_FILE keeps it under that name, and
// a file already there of at least that size is used as it is.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "LogReader.h"
#include "LogSummary.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/Trace.h"

namespace {

namespace fs = std::filesystem;

// Lines collected in memory and written in large blocks, so that writing
// hundreds of megabytes takes seconds.
class BlockFileSink : public QIM::DbgMsg::LineLogger {
 public:
  explicit BlockFileSink(const std::string& path) : file_(std::fopen(path.c_str(), "wb")) {}
  ~BlockFileSink() override {
    flush();
    if (file_) std::fclose(file_);
  }
  std::size_t written() {
    std::lock_guard<std::mutex> lock(mutex_);
    return written_ + buffer_.size();
  }

 private:
  void doLogging(const std::string& line, const QIM::DbgMsg::LogLineType&) override {
    std::lock_guard<std::mutex> lock(mutex_);
    buffer_ += line;
    buffer_ += '\n';
    if (buffer_.size() >= (1u << 20)) flush();
  }
  void flush() {
    if (file_) std::fwrite(buffer_.data(), 1, buffer_.size(), file_);
    written_ += buffer_.size();
    buffer_.clear();
  }

  std::FILE* file_;
  std::mutex mutex_;
  std::string buffer_;
  std::size_t written_ = 0;
};

}  // namespace

// A client's kind of work, instrumented as the library instruments its own.
namespace Client {

int sipChannel() {
  static const int channel = QIM::DbgMsg::getChannelByName("SIPSTACK");
  return channel;
}

struct Registrar {
  static void tokenize(int) { QIM_ENTRY(); }
  static void parse(int i) {
    QIM_ENTRY("bytes=" << 100 + i % 400);
    tokenize(i);
    tokenize(i + 1);
  }
  static void lookup(int i) { QIM_ENTRY("key=presence.k" << i % 31); }
  static void handle(int i) {
    QIM_ENTRY("request=" << i << " user=user" << i % 97 << "@example.com");
    parse(i);
    lookup(i);
    if (i % 5 == 0) QIM_TRACE(sipChannel(), "REGISTER sip:pbx.example.com;transport=tls CSeq " << i);
    QIM_ASSERT(i % 1000 != 7, "request " << i);
    if (i % 1500 == 3) {
      try {
        QIM_THROW(QIM::FileNotFoundException, "File not found", "path=data\\user" << i << ".ini");
      } catch (const QIM::FileNotFoundException&) {
      }
    }
  }
};

}  // namespace

namespace {

std::size_t requestedBytes() {
  const char* mb = std::getenv("QIMMISC_LOG_BENCH_MB");
  const long value = mb ? std::strtol(mb, nullptr, 10) : 0;
  return static_cast<std::size_t>(value > 0 ? value : 16) << 20;
}

void writeTrace(const std::string& path, std::size_t bytes) {
  BlockFileSink sink(path);
  QIM::DbgMsg::initChannels("+all");
  QIM::DbgMsg::setLogDest(&sink);
  const auto work = [&sink, bytes](int first) {
    for (int i = first; sink.written() < bytes; i += 2) Client::Registrar::handle(i);
  };
  std::thread other(work, 1);
  work(0);
  other.join();
  QIM::DbgMsg::setLogDest(nullptr);
  QIM::DbgMsg::initChannels(nullptr);
}

// The trace, written on first use; a temporary one is removed at exit.
const std::string& traceFile() {
  static const std::string path = [] {
    const char* kept = std::getenv("QIMMISC_LOG_BENCH_FILE");
    const std::string name =
        kept ? kept : (fs::temp_directory_path() / "qimmisc_log_bench.log").string();
    std::error_code error;
    if (!kept || fs::file_size(name, error) < requestedBytes() || error) {
      writeTrace(name, requestedBytes());
    }
    if (!kept) {
      static std::string removeAtExit = name;
      std::atexit([] { std::remove(removeAtExit.c_str()); });
    }
    return name;
  }();
  return path;
}

void summaryPass(benchmark::State& state) {
  const std::vector<std::string> files{traceFile()};  // written before the clock starts
  std::uint64_t bytes = 0;
  for (auto _ : state) {
    qimtool::LogReader reader;
    qimtool::LogSummary summary;
    std::string error;
    if (!reader.read(files, summary, error)) state.SkipWithError(error.c_str());
    bytes = reader.files().front().bytes;
    benchmark::DoNotOptimize(summary.libraryLines());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

// "wc -l": blocks read and their line ends counted, nothing else.
void countLineEnds(benchmark::State& state) {
  const std::string& path = traceFile();  // written before the clock starts
  const std::unique_ptr<char[]> block(new char[1 << 20]);
  std::uint64_t bytes = 0;
  for (auto _ : state) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    std::uint64_t lines = 0;
    bytes = 0;
    for (std::size_t n; (n = std::fread(block.get(), 1, 1 << 20, file)) > 0;) {
      bytes += n;
      for (const char* p = block.get(), *end = p + n;
           (p = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p))));
           ++p) {
        ++lines;
      }
    }
    std::fclose(file);
    benchmark::DoNotOptimize(lines);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

}  // namespace

BENCHMARK(summaryPass)->Name("Log_summary/qimmisc")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(countLineEnds)->Name("Log_summary/wc_floor")->Unit(benchmark::kMillisecond)->UseRealTime();
