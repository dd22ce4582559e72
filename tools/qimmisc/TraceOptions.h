// --trace and --log: the tool traces its own work through the library's
// facility, to standard error and/or a file.
#pragma once

#include <memory>
#include <string>

#include "qimmisc/DbgMsg.h"
#include "qimmisc/FileLogger.h"
#include "qimmisc/TeeLogger.h"

namespace qimtool {

class TraceOptions {
 public:
  /// Channels to open, in the library's "+name:-name" form; empty = none.
  std::string channels;
  /// File to write trace lines to (FileLogger); empty = none.
  std::string logFile;

  /// Installs the sinks; they stay until the object is destroyed.
  /// Returns false (with a message) when the log file cannot be opened.
  bool install(std::string& error);
  ~TraceOptions();

 private:
  std::unique_ptr<QIM::DbgMsg::LineLogger> stderr_;
  std::unique_ptr<QIM::FileLogger> file_;
  std::unique_ptr<QIM::DbgMsg::TeeLogger> tee_;
};

}  // namespace qimtool
