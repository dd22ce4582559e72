#include "qimmisc/ODSLogger.h"

#include "platform/Win32.h"

namespace QIM {

void ODSLogger::doLogging(const std::string& line, const DbgMsg::LogLineType&) {
  ::OutputDebugStringA(line.c_str());
  ::OutputDebugStringA("\n");
}

}  // namespace QIM
