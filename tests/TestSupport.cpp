#include "TestSupport.h"

namespace QIM::test {

std::vector<std::string> CaptureSink::lines() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

std::vector<std::string> CaptureSink::linesWith(const std::string& needle) const {
  std::vector<std::string> out;
  for (const auto& line : lines()) {
    if (line.find(needle) != std::string::npos) out.push_back(line);
  }
  return out;
}

void CaptureSink::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.clear();
}

void CaptureSink::doLogging(const std::string& line, const DbgMsg::LogLineType&) {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.push_back(line);
}

void TracingTest::SetUp() {
  DbgMsg::initChannels("+all");
  DbgMsg::setEntryParams(true, -1);
  DbgMsg::setLogDest(&sink_);
}

void TracingTest::TearDown() {
  DbgMsg::setLogDest(nullptr);
  DbgMsg::setAdvUserLogDest(nullptr);
  DbgMsg::initChannels(nullptr);
  DbgMsg::setEntryParams(true, -1);
  DbgMsg::setStackInfo("");
}

}  // namespace QIM::test
