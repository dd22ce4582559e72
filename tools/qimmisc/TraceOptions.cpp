#include "TraceOptions.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <system_error>

#include "qimmisc/StringUtils.h"

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

bool isNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         c == '_' || c == '.';
}

std::string checkItem(const std::string& item) {
  if (item.empty()) return "empty item (two ':' in a row, or one at an end)";
  const std::string quoted = "item '" + item + "'";
  if (item[0] != '+' && item[0] != '-') {
    return quoted + " must start with '+' (open) or '-' (close)";
  }
  if (item.size() == 1) return quoted + " has no channel name after its sign";
  for (std::size_t i = 1; i < item.size(); ++i) {
    if (!isNameCharacter(item[i])) {
      return quoted + ": a channel name has only letters, digits, '_' and '.'";
    }
  }
  return {};
}

// Why `path` cannot be opened for writing, in the system's words. The
// library's FileLogger says only whether it opened, so the tool asks again.
std::string openFailure(const std::string& path) {
  errno = 0;
#ifdef _WIN32
  std::FILE* file = ::_wfopen(QIM::fromUtf8(path).c_str(), L"ab");
#else
  std::FILE* file = std::fopen(path.c_str(), "ab");
#endif
  const int code = errno;
  if (file) {
    std::fclose(file);
    return "it could not be created";
  }
  return std::generic_category().message(code);
}

}  // namespace

std::string checkChannelList(const std::string& list) {
  std::size_t begin = 0;
  for (;;) {
    const std::size_t end = list.find(':', begin);
    const std::string problem = checkItem(list.substr(begin, end - begin));
    if (!problem.empty() || end == std::string::npos) return problem;
    begin = end + 1;
  }
}

void TraceOptions::addTo(CLI::App& app) {
  app.add_option("--trace", channels_,
                 "Trace the tool's own work to standard error. LIST is ':'-separated "
                 "items, each '+' (open) or '-' (close) and a channel name or 'all', "
                 "e.g. +all:-ENTRY")
      ->type_name("LIST")
      ->check(CLI::Validator(
          [](const std::string& list) { return checkChannelList(list); }, "", "channel list"));
  app.add_option("--log", logFile_,
                 "Write the trace to FILE (the channels of --trace, or ERROR alone "
                 "without it)")
      ->type_name("FILE");
}

bool TraceOptions::install(std::string& error) {
  if (channels_.empty() && logFile_.empty()) return true;
  QIM::DbgMsg::initChannels(channels_.empty() ? nullptr : channels_.c_str());
  if (!logFile_.empty()) {
    file_ = std::make_unique<QIM::FileLogger>(logFile_.c_str());
    if (!file_->isOpen()) {
      error = "cannot open log file '" + logFile_ + "': " + openFailure(logFile_);
      return false;
    }
  }
  if (!channels_.empty()) stderr_ = std::make_unique<StderrLogger>();
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
