// TeeLogger: sends each trace line to two sinks.
#pragma once

#include <string>

#include "qimmisc/DbgMsg.h"
#include "qimmisc/Export.h"

namespace QIM {
namespace DbgMsg {

/// Fans one line out to two sinks, first then second, with the same type;
/// owns neither. A null sink is skipped.
class QIMMISC_API TeeLogger : public LineLogger {
 public:
  TeeLogger(LineLogger* first, LineLogger* second);

 private:
  void doLogging(const std::string& line, const LogLineType& type) override;
  LineLogger* first_;
  LineLogger* second_;
};

}  // namespace DbgMsg
}  // namespace QIM
