// What "qimmisc log summary" gathers in its one pass: lines per channel and
// per thread, assertion failures and throws by site with one example
// back-trace each, the slowest calls, calls without a return line and the
// lines that were not read. Bounded by channels, threads, sites and
// functions, not by the lines read.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

#include "CallTracker.h"
#include "LogReader.h"

namespace qimtool {

/// The summary pass: a reader feeds it every line, then it prints.
class LogSummary : public LogLineHandler, private CallListener {
 public:
  static constexpr std::size_t kSlowest = 10;
  static constexpr std::size_t kListed = 10;      // unreturned calls listed
  static constexpr std::size_t kTraceLines = 40;  // lines of an example back-trace

  LogSummary();
  void onLine(const ReadLine& line) override;
  void onEnd() override;

  /// Prints the summary; `reader` is the one that fed this object.
  void print(std::ostream& out, const LogReader& reader) const;

  std::uint64_t libraryLines() const { return libraryLines_; }

 private:
  struct Site {
    std::string file, function, what;  // what: the condition or the exception
    int line = 0;
    std::uint64_t count = 0;
    // The ENTRY calls open on its thread the first time, then the back-trace
    // printed after it (assertions only).
    std::vector<std::string> example;
    LinePosition at;
  };
  struct Call {
    long long usec = 0;
    std::uint32_t function = 0;
    std::uint64_t thread = 0;
    LinePosition at;
    Unreturned why = Unreturned::EndOfInput;
    int depth = 0;
  };
  using SiteTable = std::unordered_map<std::string, std::size_t>;

  void onReturn(std::uint64_t thread, const OpenCall& call, long long usec,
                const ReadLine& line) override;
  void onUnreturned(std::uint64_t thread, const OpenCall& call, Unreturned why) override;
  void onOrphanReturn(std::uint64_t thread, const ReadLine& line) override;

  void count(const ReadLine& line);
  Site& site(std::vector<Site>& sites, SiteTable& table, const ReadLine& line);
  void assertion(const ReadLine& line);
  void thrown(const ReadLine& line);
  void followBackTrace(const ReadLine& line);
  void printSites(std::ostream& out, const LogReader& reader, const char* title,
                  const std::vector<Site>& sites) const;
  void printCalls(std::ostream& out, const LogReader& reader) const;

  CallTracker calls_;
  std::vector<std::pair<std::string, std::uint64_t>> channels_;
  std::size_t lastChannel_ = 0;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> threads_;
  std::unordered_map<std::uint64_t, std::size_t> threadIndex_;
  std::size_t lastThread_ = 0;
  std::uint64_t libraryLines_ = 0, stackInfoLines_ = 0;
  std::uint64_t backTraces_ = 0, delayedTraces_ = 0, frames_ = 0;
  std::uint64_t arrows_ = 0, brackets_ = 0;
  std::uint64_t assertionCount_ = 0, throwCount_ = 0;
  std::vector<Site> assertions_, throws_;
  SiteTable assertionSites_, throwSites_;
  // The assertion whose back-trace is awaited or being copied.
  std::size_t tracedSite_ = 0;
  std::uint64_t tracedThread_ = 0;
  enum class Follow { None, Head, Lines } follow_ = Follow::None;
  std::vector<Call> slowest_;  // a min-heap on usec
  std::vector<Call> unreturned_;
  std::uint64_t unreturnedCount_[3] = {};
  std::vector<Call> orphans_;
  std::vector<std::string> orphanNames_;
};

}  // namespace qimtool
