// --trace and --log: the tool traces its own work through the library's
// facility, to standard error and/or a file. Both are global options,
// accepted before or after the command.
#pragma once

#include <memory>
#include <string>

#include "qimmisc/DbgMsg.h"
#include "qimmisc/FileLogger.h"
#include "qimmisc/TeeLogger.h"

namespace CLI {
class App;
}

namespace qimtool {

/// Checks a --trace list item by item: each item is a sign ('+' opens, '-'
/// closes) and a channel name (letters, digits, '_', '.') or "all", items
/// separated by ':'. Returns an empty string when the list is good, else a
/// message that names the first bad item.
std::string checkChannelList(const std::string& list);

class TraceOptions {
 public:
  /// Adds --trace and --log to `app`; parsing fills the two fields.
  void addTo(CLI::App& app);

  /// Installs the sinks; they stay until the object is destroyed.
  /// Returns false (with a message that gives the system's reason) when the
  /// log file cannot be opened.
  bool install(std::string& error);
  ~TraceOptions();

 private:
  std::string channels_;  // "+name:-name" form; empty = none
  std::string logFile_;   // empty = none
  std::unique_ptr<QIM::DbgMsg::LineLogger> stderr_;
  std::unique_ptr<QIM::FileLogger> file_;
  std::unique_ptr<QIM::DbgMsg::TeeLogger> tee_;
};

}  // namespace qimtool
