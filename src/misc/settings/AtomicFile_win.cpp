#include "platform/Win32.h"
#include "settings/AtomicFile.h"

namespace QIM::detail {
namespace {

ReplaceResult failed(const char* step, DWORD error) {
  ReplaceResult result;
  result.accessDenied = error == ERROR_ACCESS_DENIED;
  result.error = error;
  result.step = step;
  ::SetLastError(error);
  return result;
}

bool writeAll(HANDLE file, const char* data, std::size_t size) {
  while (size > 0) {
    const DWORD chunk = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
    DWORD written = 0;
    if (!::WriteFile(file, data, chunk, &written, nullptr) || written == 0) return false;
    data += written;
    size -= written;
  }
  return true;
}

}  // namespace

ReplaceResult replaceFileAtomically(const std::wstring& path, const char* data, std::size_t size) {
  if (path.empty() || path.find(L'\0') != std::wstring::npos) {
    return failed("create", ERROR_FILE_NOT_FOUND);
  }
  // Refused as opening them for writing would be: the rename alone would
  // replace a read-only file.
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES &&
      (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY))) {
    return failed("create", ERROR_ACCESS_DENIED);
  }

  const std::wstring temporary = temporaryNameBeside(path);
  const HANDLE file = ::CreateFileW(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return failed("create", ::GetLastError());

  const char* step = nullptr;
  const long long limit = takeInjectedFailure();
  if (limit >= 0 && static_cast<unsigned long long>(limit) < size) {
    writeAll(file, data, static_cast<std::size_t>(limit));
    ::SetLastError(ERROR_WRITE_FAULT);
    step = "write";
  } else if (!writeAll(file, data, size)) {
    step = "write";
  } else if (!::FlushFileBuffers(file)) {
    step = "flush";
  }
  DWORD error = ::GetLastError();
  ::CloseHandle(file);
  if (!step && !::MoveFileExW(temporary.c_str(), path.c_str(),
                              MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    step = "replace";
    error = ::GetLastError();
  }
  if (step) {
    ::DeleteFileW(temporary.c_str());
    return failed(step, error);
  }
  ReplaceResult result;
  result.ok = true;
  return result;
}

}  // namespace QIM::detail
