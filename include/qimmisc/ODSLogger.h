// ODSLogger: the library's debugger-output sink for trace lines.
#pragma once

#include <string>

#include "qimmisc/DbgMsg.h"
#include "qimmisc/Export.h"

namespace QIM {

/// Writes each line to the debugger's output (OutputDebugStringA on
/// Windows, standard error elsewhere), then a newline.
class QIMMISC_API ODSLogger : public DbgMsg::LineLogger {
 private:
  void doLogging(const std::string& line, const DbgMsg::LogLineType& type) override;
};

}  // namespace QIM
