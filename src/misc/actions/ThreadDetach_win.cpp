#include "actions/ThreadDetach.h"

#include "platform/Win32.h"

namespace QIM::detail {

bool tryJoinThread(void* handle) {
  if (::WaitForSingleObject(static_cast<HANDLE>(handle), 0) != WAIT_OBJECT_0) return false;
  ::CloseHandle(static_cast<HANDLE>(handle));
  return true;
}

void forgetThread(void* handle) { ::CloseHandle(static_cast<HANDLE>(handle)); }

// Windows processes do not fork.
void watchForks(void (*)(), void (*)(), void (*)()) {}

}  // namespace QIM::detail
