// Resource file parsing against its floor: splitting the same 1 MB file into
// lines with std::getline and nothing else.
#include <benchmark/benchmark.h>

#include <sstream>
#include <string>

#include "qimmisc/JavaResourceParser.h"

namespace {

// Language-file-like lines: comments, blanks, plain values and values with
// every escape kind, about 1 MB in all.
const std::string& resourceFile() {
  static const std::string file = [] {
    std::string text;
    for (int i = 0; text.size() < (1u << 20); ++i) {
      if (i % 50 == 0) text += "# Section " + std::to_string(i / 50) + "\n\n";
      text += "DIALOG_" + std::to_string(i) + "_LABEL=";
      switch (i % 4) {
        case 0: text += "Call history for the last seven days\n"; break;
        case 1: text += "Caf\\u00e9 \\u4e2d\\u6587 number " + std::to_string(i) + "\n"; break;
        case 2: text += "First line\\nSecond line\\twith a tab\n"; break;
        default: text += "  value = with = equals and C:\\path\\name\n"; break;
      }
    }
    return text;
  }();
  return file;
}

class CountingSink : public QIM::IJavaResourceSink {
 public:
  bool addResource(const std::string& key, const std::wstring& value) override {
    count_ += key.size() + value.size();
    return true;
  }
  std::size_t count_ = 0;
};

void parseResources(benchmark::State& state) {
  for (auto _ : state) {
    std::istringstream in(resourceFile());
    CountingSink sink;
    QIM::parseJavaResources(in, sink);
    benchmark::DoNotOptimize(sink.count_);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * resourceFile().size()));
}

void splitLines(benchmark::State& state) {
  for (auto _ : state) {
    std::istringstream in(resourceFile());
    std::string line;
    std::size_t count = 0;
    while (std::getline(in, line)) count += line.size();
    benchmark::DoNotOptimize(count);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * resourceFile().size()));
}

}  // namespace

BENCHMARK(parseResources)->Name("Resources_parse_1MB/qimmisc")->Unit(benchmark::kMillisecond);
BENCHMARK(splitLines)->Name("Resources_parse_1MB/line_splitter")->Unit(benchmark::kMillisecond);
