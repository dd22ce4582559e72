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

std::optional<std::wstring> getEnv(const std::wstring& name) {
#ifdef _WIN32
  const DWORD size = ::GetEnvironmentVariableW(name.c_str(), nullptr, 0);
  if (size == 0) return std::nullopt;
  std::wstring value(size, L'\0');
  value.resize(::GetEnvironmentVariableW(name.c_str(), value.data(), size));
  return value;
#else
  const char* value = std::getenv(QIM::toUtf8(name).c_str());
  if (!value) return std::nullopt;
  return QIM::fromUtf8(value);
#endif
}

void setEnv(const std::wstring& name, const std::optional<std::wstring>& value) {
#ifdef _WIN32
  ::SetEnvironmentVariableW(name.c_str(), value ? value->c_str() : nullptr);
#else
  if (value) {
    ::setenv(QIM::toUtf8(name).c_str(), QIM::toUtf8(*value).c_str(), 1);
  } else {
    ::unsetenv(QIM::toUtf8(name).c_str());
  }
#endif
}

// Sets (or, with nullopt, removes) a variable for a scope.
class ScopedEnv {
 public:
  ScopedEnv(std::wstring name, const std::optional<std::wstring>& value)
      : name_(std::move(name)), saved_(getEnv(name_)) {
    setEnv(name_, value);
  }
  ~ScopedEnv() { setEnv(name_, saved_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::wstring name_;
  std::optional<std::wstring> saved_;
};

// A fresh folder under the temporary directory, removed afterwards.
class TempDir {
 public:
  TempDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = fs::temp_directory_path() /
            (std::string("qimmisc_") + info->test_suite_name() + "_" + info->name() + "_" +
             std::to_string(counter_++));
    fs::remove_all(path_);
    fs::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }
  std::wstring wpath() const { return wide(path_); }

 private:
  static inline int counter_ = 0;
  fs::path path_;
};

class InstallationPathTest : public ::testing::Test {
 protected:
  void SetUp() override { QIM::setInstallationPath(L""); }
  void TearDown() override { QIM::setInstallationPath(L""); }
  ScopedEnv noEnv_{L"QIMMISC_INSTALL_DIR", std::nullopt};
};

TEST(PathSeparatorTest, MatchesThePlatform) {
#ifdef _WIN32
  EXPECT_EQ(QIM::kPathSeparator, L'\\');
#else
  EXPECT_EQ(QIM::kPathSeparator, L'/');
#endif
  EXPECT_EQ(QIM::pathSeparator(), QIM::kPathSeparator);
}

TEST_F(InstallationPathTest, DefaultIsTheExecutableFolder) {
  const std::wstring dir = QIM::getInstallationPath();
  ASSERT_FALSE(dir.empty());
  EXPECT_EQ(dir.back(), QIM::kPathSeparator);
  EXPECT_TRUE(fs::path(dir).is_absolute());
  EXPECT_TRUE(fs::is_directory(fs::path(dir)));
#ifndef _WIN32
  EXPECT_EQ(dir, wide(fs::read_symlink("/proc/self/exe").parent_path()) + kSep);
#endif
}

TEST_F(InstallationPathTest, ExplicitCallBeatsEnvironmentBeatsExecutable) {
  const std::wstring exeDir = QIM::getInstallationPath();
  const std::wstring envDir = kSep + L"from" + kSep + L"env";
  const std::wstring callDir = kSep + L"from" + kSep + L"call" + kSep;
  {
    ScopedEnv env(L"QIMMISC_INSTALL_DIR", envDir);
    EXPECT_EQ(QIM::getInstallationPath(), envDir + kSep);
    QIM::setInstallationPath(callDir);
    EXPECT_EQ(QIM::getInstallationPath(), callDir);
    QIM::setInstallationPath(L"");
    EXPECT_EQ(QIM::getInstallationPath(), envDir + kSep);
  }
  {
    // An empty variable counts as unset.
    ScopedEnv env(L"QIMMISC_INSTALL_DIR", L"");
    EXPECT_EQ(QIM::getInstallationPath(), exeDir);
  }
  EXPECT_EQ(QIM::getInstallationPath(), exeDir);
}

TEST_F(InstallationPathTest, SeparatorIsAddedOnlyWhenMissing) {
  struct Case {
    std::wstring given, expected;
  };
  std::vector<Case> cases = {
      {L"relative", L"relative" + kSep},
      {L"dir" + kSep, L"dir" + kSep},
      {kSep, kSep},
      {kSep + L"a b" + kSep + L"\u00E9", kSep + L"a b" + kSep + L"\u00E9" + kSep},
  };
#ifdef _WIN32
  cases.push_back({L"C:\\Program Files\\QIM", L"C:\\Program Files\\QIM\\"});
  cases.push_back({L"C:/Program Files/QIM/", L"C:/Program Files/QIM/"});
  cases.push_back({L"C:\\", L"C:\\"});
#endif
  for (const Case& c : cases) {
    SCOPED_TRACE(QIM::toUtf8(c.given));
    QIM::setInstallationPath(c.given);
    EXPECT_EQ(QIM::getInstallationPath(), c.expected);
    ScopedEnv env(L"QIMMISC_INSTALL_DIR", c.given);
    QIM::setInstallationPath(L"");
    EXPECT_EQ(QIM::getInstallationPath(), c.expected);
  }
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
  const fs::path file = tmp.path() / "present.txt";
  std::ofstream(file) << "x";
  // A non-ASCII name exercises the conversion to the file system's form.
  const fs::path unicode = tmp.path() / fs::path(u8"Gr\u00FC\u00DFe_\u65E5\u672C.txt");
  std::ofstream(unicode) << "x";
  fs::create_directory(tmp.path() / "sub");

  const std::wstring dir = tmp.wpath() + kSep;
  struct Case {
    std::wstring path;
    bool exists;
  };
  const Case cases[] = {
      {dir + L"present.txt", true},
      {dir + L"Gr\u00FC\u00DFe_\u65E5\u672C.txt", true},
      {dir + L"missing.txt", false},
      {dir + L"sub", false},
      {dir + L"sub" + kSep, false},
      {tmp.wpath(), false},
      {L"", false},
      // Only the part before the NUL exists; the call must not stop there.
      {dir + L"present.txt" + std::wstring(1, L'\0') + L"junk", false},
      {dir + std::wstring(1, static_cast<wchar_t>(0xD800)), false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path.size());
    EXPECT_EQ(QIM::fileExists(c.path), c.exists);
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
  XdgTest()
      : home_(tmp_.wpath() + L"/home"),
        config_(tmp_.wpath() + L"/cfg"),
        homeEnv_(L"HOME", home_),
        configEnv_(L"XDG_CONFIG_HOME", config_),
        docsEnv_(L"XDG_DOCUMENTS_DIR", std::nullopt) {
    fs::create_directories(tmp_.path() / "home");
    fs::create_directories(tmp_.path() / "cfg");
  }
  void writeUserDirs(const std::string& content) {
    std::ofstream(tmp_.path() / "cfg" / "user-dirs.dirs", std::ios::binary) << content;
  }

  TempDir tmp_;
  std::wstring home_;
  std::wstring config_;
  ScopedEnv homeEnv_;
  ScopedEnv configEnv_;
  ScopedEnv docsEnv_;
};

TEST_F(XdgTest, UserDirFromHome) {
  EXPECT_EQ(QIM::getUserDir(), home_ + L"/");
  {
    ScopedEnv home(L"HOME", home_ + L"/");
    EXPECT_EQ(QIM::getUserDir(), home_ + L"/");
  }
  ScopedEnv noHome(L"HOME", std::nullopt);
  const std::wstring fromPasswd = QIM::getUserDir();  // the password database
  ASSERT_FALSE(fromPasswd.empty());
  EXPECT_EQ(fromPasswd.back(), L'/');
}

TEST_F(XdgTest, AppDirFollowsConfigHome) {
  EXPECT_EQ(QIM::getUserAppDir(), config_ + L"/");
  {
    ScopedEnv relative(L"XDG_CONFIG_HOME", L"relative/cfg");
    EXPECT_EQ(QIM::getUserAppDir(), home_ + L"/.config/");
  }
  ScopedEnv unset(L"XDG_CONFIG_HOME", std::nullopt);
  EXPECT_EQ(QIM::getUserAppDir(), home_ + L"/.config/");
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
      {"file $HOME", std::nullopt, "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n",
       home + L"/Dokumente/"},
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
      {"empty file", std::nullopt, "", home + L"/Documents/"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove(tmp_.path() / "cfg" / "user-dirs.dirs");
    if (c.userDirs) writeUserDirs(*c.userDirs);
    ScopedEnv env(L"XDG_DOCUMENTS_DIR", c.env);
    EXPECT_EQ(QIM::getUserDocsDir(), c.expected);
  }
}

TEST_F(XdgTest, DocsDirUsesDefaultConfigFolder) {
  ScopedEnv unset(L"XDG_CONFIG_HOME", std::nullopt);
  fs::create_directories(tmp_.path() / "home" / ".config");
  std::ofstream(tmp_.path() / "home" / ".config" / "user-dirs.dirs")
      << "XDG_DOCUMENTS_DIR=\"$HOME/Docs\"\n";
  EXPECT_EQ(QIM::getUserDocsDir(), home_ + L"/Docs/");
}

TEST_F(XdgTest, UnreadableUserDirsFallsBackWithoutBlocking) {
  const fs::path file = tmp_.path() / "cfg" / "user-dirs.dirs";
  fs::create_directory(file);  // a directory where the file should be
  EXPECT_EQ(QIM::getUserDocsDir(), home_ + L"/Documents/");
  fs::remove(file);
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);  // opening a FIFO would block
  EXPECT_EQ(QIM::getUserDocsDir(), home_ + L"/Documents/");
}

#endif

}  // namespace
