// FileLogger: the library's file sink for trace lines.
#pragma once

#include <memory>
#include <string>

#include "qimmisc/DbgMsg.h"
#include "qimmisc/Export.h"

namespace QIM {

/// Writes each line to a file opened (truncated) at construction and shared
/// with other processes for reading and writing. Each line goes out in one
/// write followed by a newline, so concurrent lines never interleave. A file
/// that cannot be opened silently loses its lines.
///
///   QIM::FileLogger log("client.log");
///   QIM::DbgMsg::setLogDest(&log);
///   ...
///   QIM::DbgMsg::setLogDest(nullptr);  // before `log` goes
class QIMMISC_API FileLogger : public DbgMsg::LineLogger {
 public:
  /// `path` is UTF-8.
  explicit FileLogger(const char* path);
  ~FileLogger() override;
  FileLogger(const FileLogger&) = delete;
  FileLogger& operator=(const FileLogger&) = delete;

  /// Whether the file was opened.
  bool isOpen() const;

 private:
  void doLogging(const std::string& line, const DbgMsg::LogLineType& type) override;
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace QIM
