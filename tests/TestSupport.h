// Shared test helpers: a sink that records lines, and a fixture that leaves
// the process-wide trace configuration as it found it.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "qimmisc/DbgMsg.h"

namespace QIM::test {

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

/// Installs a CaptureSink as the main destination with every channel open,
/// and restores the default configuration afterwards.
class TracingTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  CaptureSink sink_;
};

}  // namespace QIM::test
