// System paths on Windows: the shell's folder ids, with the environment as
// the fallback when the shell cannot answer (a service without a loaded
// profile, for instance).
#include "qimmisc/SystemPaths.h"

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#include <shlobj.h>

#include "qimmisc/Trace.h"

namespace QIM {
namespace {

// A shell folder such as CSIDL_APPDATA; empty when the shell has none.
std::wstring shellFolder(int csidl) {
  wchar_t buffer[MAX_PATH] = {};
  const HRESULT hr = ::SHGetFolderPathW(nullptr, csidl, nullptr, SHGFP_TYPE_CURRENT, buffer);
  if (hr != S_OK) {
    QIM_ERROR("SHGetFolderPathW(" << csidl << ") failed. hr:" << static_cast<unsigned long>(hr));
    return {};
  }
  return buffer;
}

}  // namespace

namespace detail {

std::wstring executableFolder() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD n = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (n == 0) {
      const DWORD code = ::GetLastError();
      QIM_ERROR("GetModuleFileNameW failed. lasterror:" << code);
      return {};
    }
    if (n < path.size()) {  // a truncated name fills the buffer exactly
      path.resize(n);
      const std::size_t slash = path.find_last_of(L"\\/");
      return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash + 1);
    }
    if (path.size() >= 65536) return {};  // beyond the longest possible path
    path.resize(path.size() * 2);
  }
}

std::wstring environmentVariable(const wchar_t* name) {
  std::wstring value;
  DWORD size = ::GetEnvironmentVariableW(name, nullptr, 0);
  // The value can change between the calls; retry until it fits.
  while (size > 0) {
    value.assign(size, L'\0');
    const DWORD n = ::GetEnvironmentVariableW(name, value.data(), size);
    if (n < size) {
      value.resize(n);
      return value;
    }
    size = n;
  }
  return {};
}

}  // namespace detail

std::wstring getUserDir() {
  std::wstring dir = shellFolder(CSIDL_PROFILE);
  if (dir.empty()) dir = detail::environmentVariable(L"USERPROFILE");
  return detail::folderOrError(std::move(dir), "user's home");
}

std::wstring getUserDocsDir() {
  std::wstring dir = shellFolder(CSIDL_PERSONAL);
  if (dir.empty()) {
    const std::wstring profile = detail::environmentVariable(L"USERPROFILE");
    if (!profile.empty()) dir = detail::withTrailingSeparator(profile) + L"Documents";
  }
  return detail::folderOrError(std::move(dir), "user's documents");
}

std::wstring getUserAppDir() {
  std::wstring dir = shellFolder(CSIDL_APPDATA);
  if (dir.empty()) dir = detail::environmentVariable(L"APPDATA");
  return detail::folderOrError(std::move(dir), "user's application data");
}

bool fileExists(const std::wstring& path) {
  if (path.empty() || path.find(L'\0') != std::wstring::npos) return false;
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace QIM
