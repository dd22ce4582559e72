#include <windows.h>

#include "qimmisc/DbgMsg.h"

namespace QIM {

void ODSLogger::doLogging(const std::string& line, const DbgMsg::LogLineType&) {
  ::OutputDebugStringA(line.c_str());
  ::OutputDebugStringA("\n");
}

}  // namespace QIM
