#include "qimmisc/FileLogger.h"

#include <mutex>
#include <string>

#include "platform/Win32.h"

namespace QIM {

// The file is created (truncated) once, then reopened for appending only:
// with FILE_APPEND_DATA every WriteFile lands whole at the end, so threads
// and other processes sharing the file never tear a line. Threads of this
// process take turns through a mutex, which also guards the line buffer.
// The path is UTF-8.
struct FileLogger::Impl {
  HANDLE file = INVALID_HANDLE_VALUE;
  std::mutex mutex;
  std::string buffer;
};

namespace {
std::wstring widePath(const char* path) {
  const int n = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, -1, nullptr, 0);
  if (n <= 0) return std::wstring();
  std::wstring out(static_cast<std::size_t>(n), L'\0');
  ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, -1, out.data(), n);
  out.resize(static_cast<std::size_t>(n) - 1);
  return out;
}

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
}  // namespace

FileLogger::FileLogger(const char* path) : impl_(std::make_unique<Impl>()) {
  if (!path) return;
  const std::wstring wide = widePath(path);
  if (wide.empty()) return;
  HANDLE created = ::CreateFileW(wide.c_str(), GENERIC_WRITE, kShareAll, nullptr,
                                 CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (created == INVALID_HANDLE_VALUE) return;
  ::CloseHandle(created);
  impl_->file = ::CreateFileW(wide.c_str(), FILE_APPEND_DATA | SYNCHRONIZE, kShareAll,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

FileLogger::~FileLogger() {
  if (impl_->file != INVALID_HANDLE_VALUE) ::CloseHandle(impl_->file);
}

bool FileLogger::isOpen() const { return impl_->file != INVALID_HANDLE_VALUE; }

void FileLogger::doLogging(const std::string& line, const DbgMsg::LogLineType&) {
  if (impl_->file == INVALID_HANDLE_VALUE) return;
  const DWORD savedError = ::GetLastError();
  std::lock_guard<std::mutex> lock(impl_->mutex);
  std::string& out = impl_->buffer;
  out.assign(line);
  out += '\n';
  DWORD written = 0;
  ::WriteFile(impl_->file, out.data(), static_cast<DWORD>(out.size()), &written, nullptr);
  ::SetLastError(savedError);
}

}  // namespace QIM
