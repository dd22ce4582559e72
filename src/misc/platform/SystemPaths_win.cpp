// System paths on Windows: the shell's folder ids, with the environment as
// the fallback when the shell cannot answer (a service without a loaded
// profile, for instance).
#include "qimmisc/SystemPaths.h"

#include "platform/Win32.h"
#include <shlobj.h>

#include "platform/SystemPathsPlatform.h"
#include "qimmisc/Trace.h"

namespace QIM {
namespace {

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

// A shell folder such as CSIDL_APPDATA, else the environment variable
// `fallback` (when not null); empty when neither has one.
std::wstring shellFolder(int csidl, const wchar_t* fallback) {
  wchar_t buffer[MAX_PATH] = {};
  const HRESULT hr = ::SHGetFolderPathW(nullptr, csidl, nullptr, SHGFP_TYPE_CURRENT, buffer);
  if (hr != S_OK) {
    QIM_ERROR("SHGetFolderPathW(" << csidl << ") failed. hr:" << static_cast<unsigned long>(hr));
    return fallback ? environmentVariable(fallback) : std::wstring();
  }
  return buffer;
}

}  // namespace

namespace detail {

FolderLookup executableFolder() {
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
      return {path.substr(0, slash + 1), {}};  // npos + 1: empty
    }
    if (path.size() >= 65536) return {};  // beyond the longest possible path
    path.resize(path.size() * 2);
  }
}

FolderLookup environmentFolder(const wchar_t* name) { return {environmentVariable(name), {}}; }

FolderLookup userFolder(Folder which) {
  switch (which) {
    case Folder::User: return {shellFolder(CSIDL_PROFILE, L"USERPROFILE"), {}};
    case Folder::UserDocuments: {
      std::wstring dir = shellFolder(CSIDL_PERSONAL, nullptr);
      if (dir.empty()) {
        const std::wstring profile = environmentVariable(L"USERPROFILE");
        if (!profile.empty()) dir = withTrailingSeparator(profile) + L"Documents";
      }
      return {std::move(dir), {}};
    }
    case Folder::UserAppData: return {shellFolder(CSIDL_APPDATA, L"APPDATA"), {}};
    case Folder::Installation: break;
  }
  return {};
}

}  // namespace detail

bool fileExists(const std::wstring& path) {
  if (path.empty() || path.find(L'\0') != std::wstring::npos) return false;
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace QIM
