#include "qimmisc/SystemPaths.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "qimmisc/StringUtils.h"

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;

namespace {

const std::wstring kSep(1, QIM::kPathSeparator);

// The wide form of a path, as the library's callers hold it.
std::wstring wide(const fs::path& p) {
#ifdef _WIN32
  return p.wstring();
#else
  return QIM::fromUtf8(p.string());
#endif
}

// Sets (or, with nullopt, removes) a variable for a scope.
class ScopedEnv {
 public:
  ScopedEnv(std::wstring name, const std::optional<std::wstring>& value) : name_(std::move(name)) {
#ifdef _WIN32
    std::wstring old(32767, L'\0');
    const DWORD n = ::GetEnvironmentVariableW(name_.c_str(), old.data(), 32767);
    if (n > 0) saved_ = old.substr(0, n);
#else
    if (const char* old = std::getenv(QIM::toUtf8(name_).c_str())) saved_ = QIM::fromUtf8(old);
#endif
    set(value);
  }
  ~ScopedEnv() { set(saved_); }

 private:
  void set(const std::optional<std::wstring>& value) {
#ifdef _WIN32
    ::SetEnvironmentVariableW(name_.c_str(), value ? value->c_str() : nullptr);
#else
    const std::string name = QIM::toUtf8(name_);
    value ? ::setenv(name.c_str(), QIM::toUtf8(*value).c_str(), 1) : ::unsetenv(name.c_str());
#endif
  }
  std::wstring name_;
  std::optional<std::wstring> saved_;
};

// A fresh folder under the temporary directory, removed afterwards.
struct TempDir {
  TempDir() {
    fs::remove_all(path);
    fs::create_directories(path);
  }
  ~TempDir() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  std::wstring wpath() const { return wide(path); }
  const fs::path path = fs::temp_directory_path() /
      (std::string("qimmisc_") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
};

class InstallationPathTest : public ::testing::Test {
 protected:
  void SetUp() override { QIM::setInstallationPath(L""); }
  void TearDown() override { QIM::setInstallationPath(L""); }
  ScopedEnv noEnv_{L"QIMMISC_INSTALL_DIR", std::nullopt};
};

TEST_F(InstallationPathTest, DefaultIsTheExecutableFolder) {
  EXPECT_EQ(QIM::kPathSeparator, static_cast<wchar_t>(fs::path::preferred_separator));
  EXPECT_EQ(QIM::pathSeparator(), QIM::kPathSeparator);
  const std::wstring dir = QIM::getInstallationPath();
  ASSERT_FALSE(dir.empty());
  EXPECT_EQ(dir.back(), QIM::kPathSeparator);
  EXPECT_TRUE(fs::path(dir).is_absolute());
  EXPECT_TRUE(fs::is_directory(fs::path(dir)));
#ifndef _WIN32
  EXPECT_EQ(dir, wide(fs::read_symlink("/proc/self/exe").parent_path()) + kSep);
#endif
}

TEST_F(InstallationPathTest, CallBeatsEnvironmentBeatsExecutableEachGettingOneSeparator) {
  const std::wstring exeDir = QIM::getInstallationPath();
  std::vector<std::pair<std::wstring, std::wstring>> cases = {
      {L"dir" + kSep, L"dir" + kSep}, {kSep, kSep},
      {kSep + L"a b" + kSep + L"\u00E9", kSep + L"a b" + kSep + L"\u00E9" + kSep}};
#ifdef _WIN32
  cases.push_back({L"C:/Program Files/QIM/", L"C:/Program Files/QIM/"});
#endif
  for (const auto& [given, expected] : cases) {
    SCOPED_TRACE(QIM::toUtf8(given));
    ScopedEnv env(L"QIMMISC_INSTALL_DIR", given);
    EXPECT_EQ(QIM::getInstallationPath(), expected);
    QIM::setInstallationPath(L"call");
    EXPECT_EQ(QIM::getInstallationPath(), L"call" + kSep);
    QIM::setInstallationPath(given);
    EXPECT_EQ(QIM::getInstallationPath(), expected);
    QIM::setInstallationPath(L"");
    EXPECT_EQ(QIM::getInstallationPath(), expected);
  }
  {
    ScopedEnv env(L"QIMMISC_INSTALL_DIR", L"");  // an empty variable counts as unset
    EXPECT_EQ(QIM::getInstallationPath(), exeDir);
  }
  EXPECT_EQ(QIM::getInstallationPath(), exeDir);
}

TEST_F(InstallationPathTest, ConcurrentReadersSeeWholeValues) {
  const std::wstring a = kSep + std::wstring(300, L'a') + kSep;
  const std::wstring b = kSep + std::wstring(500, L'b') + kSep;
  QIM::setInstallationPath(a);
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) QIM::setInstallationPath((i + t) % 2 ? a : b);
    });
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        const std::wstring seen = QIM::getInstallationPath();
        if (seen != a && seen != b) ++bad;
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(bad.load(), 0);
}

TEST(FileExistsTest, TrueOnlyForExistingNonDirectories) {
  TempDir tmp;
  std::ofstream(tmp.path / "present.txt") << "x";
  std::ofstream(tmp.path / fs::path(u8"Gr\u00FC\u00DFe_\u65E5\u672C.txt")) << "x";
  fs::create_directory(tmp.path / "sub");

  const std::wstring dir = tmp.wpath() + kSep;
  EXPECT_TRUE(QIM::fileExists(dir + L"present.txt"));
  EXPECT_TRUE(QIM::fileExists(dir + L"Gr\u00FC\u00DFe_\u65E5\u672C.txt"));
  const std::wstring absent[] = {
      dir + L"missing.txt", dir + L"sub", dir + L"sub" + kSep, L"",
      dir + L"present.txt" + std::wstring(1, L'\0') + L"junk",  // must not stop at the NUL
      dir + std::wstring(1, static_cast<wchar_t>(0xD800))};
  for (const std::wstring& path : absent) {
    SCOPED_TRACE(path.size());
    EXPECT_FALSE(QIM::fileExists(path));
  }
}

#ifdef _WIN32

TEST(UserFoldersTest, ShellFoldersExistAndEndWithSeparator) {
  for (const std::wstring& dir :
       {QIM::getUserDir(), QIM::getUserDocsDir(), QIM::getUserAppDir()}) {
    SCOPED_TRACE(QIM::toUtf8(dir));
    ASSERT_FALSE(dir.empty());
    EXPECT_EQ(dir.back(), L'\\');
    EXPECT_TRUE(fs::is_directory(fs::path(dir)));
  }
}

#else

// A private home and configuration folder for each test.
class XdgTest : public ::testing::Test {
 protected:
  XdgTest() {
    fs::create_directories(tmp_.path / "home" / ".config");
    fs::create_directories(tmp_.path / "cfg");
  }
  TempDir tmp_;
  const std::wstring home_ = tmp_.wpath() + L"/home", config_ = tmp_.wpath() + L"/cfg";
  ScopedEnv homeEnv_{L"HOME", home_}, configEnv_{L"XDG_CONFIG_HOME", config_};
  ScopedEnv docsEnv_{L"XDG_DOCUMENTS_DIR", std::nullopt};
};

TEST_F(XdgTest, UserAndAppDirsFollowHomeAndConfigHome) {
  EXPECT_EQ(QIM::getUserDir(), home_ + L"/");
  EXPECT_EQ(QIM::getUserAppDir(), config_ + L"/");
  {
    ScopedEnv home(L"HOME", home_ + L"/");
    ScopedEnv relative(L"XDG_CONFIG_HOME", L"relative/cfg");
    EXPECT_EQ(QIM::getUserDir(), home_ + L"/");
    EXPECT_EQ(QIM::getUserAppDir(), home_ + L"/.config/");
  }
  {
    // Without XDG_CONFIG_HOME, user-dirs.dirs is read from ~/.config too.
    ScopedEnv unset(L"XDG_CONFIG_HOME", std::nullopt);
    EXPECT_EQ(QIM::getUserAppDir(), home_ + L"/.config/");
    std::ofstream(tmp_.path / "home" / ".config" / "user-dirs.dirs")
        << "XDG_DOCUMENTS_DIR=\"$HOME/Docs\"\n";
    EXPECT_EQ(QIM::getUserDocsDir(), home_ + L"/Docs/");
  }
  ScopedEnv noHome(L"HOME", std::nullopt);
  const std::wstring fromPasswd = QIM::getUserDir();  // the password database
  ASSERT_FALSE(fromPasswd.empty());
  EXPECT_EQ(fromPasswd.back(), L'/');
}

TEST_F(XdgTest, DocsDirFromEnvironmentThenUserDirsThenDefault) {
  struct Case {
    const char* name;
    std::optional<std::wstring> env;
    std::optional<std::string> userDirs;
    std::wstring expected;  // after the home folder unless absolute
  };
  const std::wstring home = home_;
  const Case cases[] = {
      {"env absolute", L"/data/docs", "XDG_DOCUMENTS_DIR=\"$HOME/File\"\n", L"/data/docs/"},
      {"env $HOME", L"$HOME/Papers", std::nullopt, home + L"/Papers/"},
      {"env relative ignored", L"Papers", "XDG_DOCUMENTS_DIR=\"$HOME/File\"\n",
       home + L"/File/"},
      {"file with noise", std::nullopt,
       "# written by xdg-user-dirs-update\n"
       "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
       "XDG_DOCUMENTS_DIRX=\"/wrong\"\n"
       "  XDG_DOCUMENTS_DIR = \"/srv/docs\"  \n"
       "#XDG_DOCUMENTS_DIR=\"/commented\"\n",
       L"/srv/docs/"},
      {"last line wins", std::nullopt,
       "XDG_DOCUMENTS_DIR=\"/first\"\nXDG_DOCUMENTS_DIR=\"/second\"\n", L"/second/"},
      {"escapes", std::nullopt, "XDG_DOCUMENTS_DIR=\"$HOME/My \\\"Docs\\\"\"\n",
       home + L"/My \"Docs\"/"},
      {"utf-8 name", std::nullopt,
       "XDG_DOCUMENTS_DIR=\"$HOME/\xD0\x94\xD0\xBE\xD0\xBA\"\n", home + L"/\u0414\u043E\u043A/"},
      {"home itself", std::nullopt, "XDG_DOCUMENTS_DIR=\"$HOME\"\n", home + L"/"},
      {"relative value", std::nullopt, "XDG_DOCUMENTS_DIR=\"Docs\"\n", home + L"/Documents/"},
      {"$HOMEX is not $HOME", std::nullopt, "XDG_DOCUMENTS_DIR=\"$HOMEX/a\"\n",
       home + L"/Documents/"},
      {"unterminated", std::nullopt, "XDG_DOCUMENTS_DIR=\"/srv/docs\n", home + L"/Documents/"},
      {"unquoted", std::nullopt, "XDG_DOCUMENTS_DIR=/srv/docs\n", home + L"/Documents/"},
      {"no file", std::nullopt, std::nullopt, home + L"/Documents/"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove(tmp_.path / "cfg" / "user-dirs.dirs");
    if (c.userDirs) std::ofstream(tmp_.path / "cfg" / "user-dirs.dirs") << *c.userDirs;
    ScopedEnv env(L"XDG_DOCUMENTS_DIR", c.env);
    EXPECT_EQ(QIM::getUserDocsDir(), c.expected);
  }
}

TEST_F(XdgTest, UnreadableUserDirsFallsBackWithoutBlocking) {
  const fs::path file = tmp_.path / "cfg" / "user-dirs.dirs";
  fs::create_directory(file);  // a directory where the file should be
  EXPECT_EQ(QIM::getUserDocsDir(), home_ + L"/Documents/");
  fs::remove(file);
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);  // opening a FIFO would block
  EXPECT_EQ(QIM::getUserDocsDir(), home_ + L"/Documents/");
}

#endif

}  // namespace
