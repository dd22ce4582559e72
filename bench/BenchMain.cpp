// Runs every benchmark, then pairs the runs named "<case>/qimmisc" and
// "<case>/<peer>" (same thread count) and prints how many times faster
// ours is: peer time / our time, so above 1 means ours is faster.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

struct Result {
  std::string name;
  double nsPerIteration;
};

class PairingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
      const double ns = run.GetAdjustedRealTime() *
                        (run.time_unit == benchmark::kNanosecond ? 1.0
                         : run.time_unit == benchmark::kMicrosecond ? 1e3
                         : run.time_unit == benchmark::kMillisecond ? 1e6 : 1e9);
      results_.push_back({run.benchmark_name(), ns});
    }
  }

  void printRatios() const {
    // "case/side/threads:N" -> key "case/threads:N", side.
    std::map<std::string, std::map<std::string, double>> bySide;
    for (const Result& r : results_) {
      const auto first = r.name.find('/');
      if (first == std::string::npos) continue;
      const auto second = r.name.find('/', first + 1);
      const std::string side = r.name.substr(first + 1, second == std::string::npos
                                                            ? std::string::npos
                                                            : second - first - 1);
      const std::string rest = second == std::string::npos ? "" : r.name.substr(second);
      bySide[r.name.substr(0, first) + rest][side] = r.nsPerIteration;
    }
    std::printf("\n%-44s %12s %12s %10s  %s\n", "case", "qimmisc ns", "peer ns", "ratio",
                "(peer time / ours; >1 means ours is faster)");
    for (const auto& [key, sides] : bySide) {
      const auto ours = sides.find("qimmisc");
      if (ours == sides.end()) continue;
      for (const auto& [side, ns] : sides) {
        if (side == "qimmisc") continue;
        std::printf("%-44s %12.1f %12.1f %9.2fx  vs %s\n", key.c_str(), ours->second, ns,
                    ns / ours->second, side.c_str());
      }
    }
  }

 private:
  std::vector<Result> results_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  PairingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
  benchmark::Shutdown();
  return 0;
}
