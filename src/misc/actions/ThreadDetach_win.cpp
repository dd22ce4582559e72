#include "actions/ThreadDetach.h"

#include "platform/Win32.h"
#include "qimmisc/Trace.h"

namespace QIM::detail {

void detachThread(void* handle) {
  if (!::CloseHandle(static_cast<HANDLE>(handle))) {
    QIM_ERROR("CloseHandle failed, lasterror=" << ::GetLastError());
  }
}

}  // namespace QIM::detail
