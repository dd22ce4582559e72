#include "qimmisc/TeeLogger.h"

#include "diagnostics/Destinations.h"

namespace QIM {
namespace DbgMsg {

TeeLogger::TeeLogger(LineLogger* first, LineLogger* second) : first_(first), second_(second) {}

void TeeLogger::doLogging(const std::string& line, const LogLineType& type) {
  if (first_) SinkAccess::deliver(*first_, line, type);
  if (second_) SinkAccess::deliver(*second_, line, type);
}

}  // namespace DbgMsg
}  // namespace QIM
