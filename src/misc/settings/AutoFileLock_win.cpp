#include "platform/Win32.h"
#include "settings/AutoFileLock.h"

namespace QIM::detail {

std::intptr_t acquireLockFile(const std::wstring& path) {
  // No sharing: while this handle is open nobody else can open the file.
  const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  return reinterpret_cast<std::intptr_t>(file);  // INVALID_HANDLE_VALUE is -1
}

void releaseLockFile(std::intptr_t handle, const std::wstring& path) {
  ::CloseHandle(reinterpret_cast<HANDLE>(handle));
  ::DeleteFileW(path.c_str());
}

}  // namespace QIM::detail
