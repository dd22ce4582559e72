#include <cstring>
#include <string>

#include "platform/Win32.h"
#include "qimmisc/ThreadUtils.h"

namespace QIM {

namespace {

constexpr DWORD kSetThreadNameException = 0x406D1388;

// GCC has no __try: a vectored handler swallows the naming exception once a
// debugger (which sees it first) has had its look, so that it never reaches
// the process's unhandled-exception path.
LONG CALLBACK swallowThreadNameException(EXCEPTION_POINTERS* info) {
  return info->ExceptionRecord->ExceptionCode == kSetThreadNameException
             ? EXCEPTION_CONTINUE_EXECUTION
             : EXCEPTION_CONTINUE_SEARCH;
}

void raiseThreadNameException(const std::string& name) {
  static PVOID handler = ::AddVectoredExceptionHandler(1, swallowThreadNameException);
  if (!handler) return;
  // The record is type 0x1000, the name, thread -1 (the caller), flags 0.
  // Six arguments are passed, as debuggers have always been given; the
  // buffer is six words long so the extra ones read zeros, not the stack.
  ULONG_PTR arguments[6] = {};
  struct {
    DWORD type;
    LPCSTR name;
    DWORD threadId;
    DWORD flags;
  } record{0x1000, name.c_str(), static_cast<DWORD>(-1), 0};
  static_assert(sizeof record <= sizeof arguments);
  std::memcpy(arguments, &record, sizeof record);
  ::RaiseException(kSetThreadNameException, 0, 6, arguments);
}

void setThreadDescription(const std::string& name) {
  using SetThreadDescriptionFn = HRESULT(WINAPI*)(HANDLE, PCWSTR);
  static const auto fn = reinterpret_cast<SetThreadDescriptionFn>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "SetThreadDescription")));
  if (!fn) return;
  const int n = ::MultiByteToWideChar(CP_UTF8, 0, name.data(), static_cast<int>(name.size()),
                                      nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(n > 0 ? n : 0), L'\0');
  if (n > 0) {
    ::MultiByteToWideChar(CP_UTF8, 0, name.data(), static_cast<int>(name.size()), wide.data(), n);
  }
  fn(::GetCurrentThread(), wide.c_str());
}

}  // namespace

void setThreadName(const std::string& name) {
  raiseThreadNameException(name);
  setThreadDescription(name);
}

}  // namespace QIM
