// Shared test helpers: a sink that records lines, and a fixture that leaves
// the process-wide trace configuration as it found it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

#include "qimmisc/ActionQueue.h"
#include "qimmisc/DbgMsg.h"

namespace QIM::test {

/// Whole-string match against an ECMAScript std::regex. GoogleTest's own
/// regex matchers fall back to a tiny dialect on Windows.
MATCHER_P(MatchesStdRegex, pattern, "matches regex \"" + std::string(pattern) + "\"") {
  return std::regex_match(std::string(arg), std::regex(pattern));
}

/// Records every delivered line; safe to call from many threads.
class CaptureSink : public DbgMsg::LineLogger {
 public:
  std::vector<std::string> lines() const;
  /// Lines that contain `needle`.
  std::vector<std::string> linesWith(const std::string& needle) const;
  bool contains(const std::string& needle) const { return !linesWith(needle).empty(); }
  void clear();

 protected:
  void doLogging(const std::string& line, const DbgMsg::LogLineType& type) override;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

/// A one-shot gate: wait() blocks until open() is called (once, any thread).
class Gate {
 public:
  void open();
  void wait();
  /// Waits at most `ms` milliseconds; whether the gate opened.
  bool waitFor(int ms);

 private:
  std::mutex mutex_;
  std::condition_variable cond_;
  bool open_ = false;
};

/// Polls `done` until it holds or about 10 seconds pass; whether it held.
/// For state another thread reaches; never a measure of speed.
bool eventually(const std::function<bool()>& done);

/// A queue served by hand on the thread that made it: that thread is the
/// queue's thread, and nothing runs until the test says so.
class ManualQueue : public ActionQueue {
 public:
  ManualQueue();
  unsigned long tid() const override { return tid_; }
  /// Runs every queued action, in queue order, on the calling thread;
  /// returns how many ran.
  int runAll();
  /// Destroys every queued action unrun.
  void discardAll();
  /// Waits until at least `count` actions are queued by another thread.
  bool waitForQueued(int count);

 protected:
  void signal() override {}

 private:
  const unsigned long tid_;
};

/// Installs a CaptureSink as the main destination with every channel open,
/// and restores the default configuration afterwards.
class TracingTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  CaptureSink sink_;
};

}  // namespace QIM::test
