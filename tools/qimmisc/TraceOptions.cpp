#include "TraceOptions.h"

#include <cstdio>
#include <mutex>

namespace qimtool {

namespace {
// Standard error on every platform: on Windows the library's debugger sink
// would hide the trace from the person who asked for it.
class StderrLogger : public QIM::DbgMsg::LineLogger {
  void doLogging(const std::string& line, const QIM::DbgMsg::LogLineType&) override {
    std::lock_guard<std::mutex> lock(mutex_);
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fputc('\n', stderr);
  }
  std::mutex mutex_;
};
}  // namespace

bool TraceOptions::install(std::string& error) {
  if (channels.empty() && logFile.empty()) return true;
  QIM::DbgMsg::initChannels(channels.empty() ? nullptr : channels.c_str());
  if (!logFile.empty()) {
    file_ = std::make_unique<QIM::FileLogger>(logFile.c_str());
    if (!file_->isOpen()) {
      error = "cannot open log file '" + logFile + "'";
      return false;
    }
  }
  if (!channels.empty()) stderr_ = std::make_unique<StderrLogger>();
  QIM::DbgMsg::LineLogger* dest = file_ ? static_cast<QIM::DbgMsg::LineLogger*>(file_.get())
                                        : stderr_.get();
  if (file_ && stderr_) {
    tee_ = std::make_unique<QIM::DbgMsg::TeeLogger>(stderr_.get(), file_.get());
    dest = tee_.get();
  }
  QIM::DbgMsg::setLogDest(dest);
  return true;
}

TraceOptions::~TraceOptions() {
  if (stderr_ || file_) QIM::DbgMsg::setLogDest(nullptr);
}

}  // namespace qimtool
