// System paths on Linux. Paths are bytes here; they must be UTF-8 to become
// wide text, and a name that is not is reported rather than dropped. The
// per-user folders follow the XDG base directory and user-dirs conventions.
#include "qimmisc/SystemPaths.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/SystemPathsPlatform.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {
namespace {

std::string env(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

bool isAbsolute(const std::string& path) { return !path.empty() && path[0] == '/'; }

// `base` + "/" + `name` without doubling a separator ("/" + "x" is "/x").
std::string join(std::string base, const std::string& name) {
  if (base.empty() || base.back() != '/') base += '/';
  return base + name;
}

std::string homeFolder() {
  std::string home = env("HOME");
  if (!home.empty()) return home;
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  int rc = 0;
  while ((rc = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found)) ==
             ERANGE &&
         buffer.size() < (1u << 20)) {
    buffer.resize(buffer.size() * 2);
  }
  if (rc == 0 && found && found->pw_dir) home = found->pw_dir;
  return home;
}

// $XDG_CONFIG_HOME when absolute (relative values are invalid by the XDG
// rules), else ~/.config.
std::string configFolder(const std::string& home) {
  const std::string config = env("XDG_CONFIG_HOME");
  if (isAbsolute(config)) return config;
  return home.empty() ? std::string() : join(home, ".config");
}

// A user-dirs value: "$HOME" or "$HOME/..." is under the home folder, an
// absolute path stands as it is, anything else is not a valid setting.
std::string expandHome(const std::string& value, const std::string& home) {
  static const std::string kHome = "$HOME";
  if (value.compare(0, kHome.size(), kHome) == 0 &&
      (value.size() == kHome.size() || value[kHome.size()] == '/')) {
    if (home.empty()) return {};
    const std::size_t rest = value.find_first_not_of('/', kHome.size());
    return rest == std::string::npos ? home : join(home, value.substr(rest));
  }
  return isAbsolute(value) ? value : std::string();
}

// The value of the last line `key="value"` in a user-dirs.dirs file, with
// shell backslash escapes removed; empty when there is none.
std::string userDirsValue(const std::string& file, const std::string& key) {
  // Only a regular file is read: opening a FIFO would block.
  struct stat st {};
  if (::stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return {};
  std::ifstream in(file, std::ios::binary);
  std::string found;
  std::string line;
  while (std::getline(in, line)) {
    std::size_t p = line.find_first_not_of(" \t");
    if (p == std::string::npos || line.compare(p, key.size(), key) != 0) continue;
    p = line.find_first_not_of(" \t", p + key.size());
    if (p == std::string::npos || line[p] != '=') continue;
    p = line.find_first_not_of(" \t", p + 1);
    if (p == std::string::npos || line[p] != '"') continue;
    std::string value;
    bool closed = false;
    for (++p; p < line.size(); ++p) {
      if (line[p] == '\\' && p + 1 < line.size()) {
        value += line[++p];
      } else if (line[p] == '"') {
        closed = true;
        break;
      } else {
        value += line[p];
      }
    }
    if (closed) found = value;
  }
  return found;
}

// The wide form of a folder name. Bytes that are not UTF-8 cannot become
// wide text; the problem then shows them, escaped, so the user can find the
// folder.
FolderLookup toLookup(const std::string& folder) {
  if (folder.empty()) return {};
  std::wstring wide = fromUtf8(folder);
  if (!wide.empty()) return {std::move(wide), {}};
  std::string shown;
  for (const char c : folder) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7F) {
      shown += c;
    } else {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
      shown += escaped;
    }
  }
  return {{}, "name is not valid UTF-8: " + shown};
}

std::string documentsFolder() {
  static const std::string kKey = "XDG_DOCUMENTS_DIR";
  const std::string home = homeFolder();
  std::string docs = expandHome(env(kKey.c_str()), home);
  if (docs.empty()) {
    const std::string config = configFolder(home);
    if (!config.empty()) docs = expandHome(userDirsValue(join(config, "user-dirs.dirs"), kKey), home);
  }
  if (docs.empty() && !home.empty()) docs = join(home, "Documents");
  return docs;
}

}  // namespace

namespace detail {

FolderLookup executableFolder() {
  std::vector<char> buffer(4096);
  for (;;) {
    const ssize_t n = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (n < 0) {
      const int code = errno;
      QIM_ERROR("readlink(/proc/self/exe) failed. errno:" << code);
      return {};
    }
    if (static_cast<std::size_t>(n) < buffer.size()) {
      const std::string path(buffer.data(), static_cast<std::size_t>(n));
      return toLookup(path.substr(0, path.rfind('/') + 1));
    }
    if (buffer.size() >= (1u << 20)) return {};  // the kernel caps it far below
    buffer.resize(buffer.size() * 2);            // possibly truncated: retry
  }
}

FolderLookup environmentFolder(const wchar_t* name) {
  return toLookup(env(toUtf8(name).c_str()));
}

FolderLookup userFolder(Folder which) {
  switch (which) {
    case Folder::User: return toLookup(homeFolder());
    case Folder::UserDocuments: return toLookup(documentsFolder());
    case Folder::UserAppData: return toLookup(configFolder(homeFolder()));
    case Folder::Installation: break;
  }
  return {};
}

}  // namespace detail

bool fileExists(const std::wstring& path) {
  if (path.empty() || path.find(L'\0') != std::wstring::npos) return false;
  const std::string bytes = toUtf8(path);
  struct stat st {};
  return !bytes.empty() && ::stat(bytes.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

}  // namespace QIM
