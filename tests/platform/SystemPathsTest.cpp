#include "qimmisc/SystemPaths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include "TestSupport.h"
#include "qimmisc/StringUtils.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/stat.h>
#endif

namespace fs = std::filesystem;

namespace {

const std::wstring kSep(1, QIM::kPathSeparator);

// Sets (or, with nullopt, removes) an environment variable for a scope. The
// value is UTF-8; on Linux any bytes.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::optional<std::string>& value) : name_(name) {
    if (const char* old = std::getenv(name)) saved_ = old;  // Windows: never changed here
    set(value);
  }
  ~ScopedEnv() { set(saved_); }

 private:
  void set(const std::optional<std::string>& value) {
#ifdef _WIN32
    ::SetEnvironmentVariableW(QIM::fromUtf8(name_).c_str(),
                              value ? QIM::fromUtf8(*value).c_str() : nullptr);
#else
    value ? ::setenv(name_, value->c_str(), 1) : ::unsetenv(name_);
#endif
  }
  const char* name_;
  std::optional<std::string> saved_;
};

// Each test gets a fresh folder of its own, and every folder lookup is traced.
class SystemPathsTest : public QIM::test::TracingTest {
 protected:
  SystemPathsTest() { fs::create_directories(tmp_ / "home"); }
  ~SystemPathsTest() override {
    QIM::setInstallationPath(L"");
    std::error_code ignored;
    fs::remove_all(tmp_, ignored);
  }
  const fs::path tmp_ = fs::temp_directory_path() /
      ("qimmisc_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
  ScopedEnv noInstallDir_{"QIMMISC_INSTALL_DIR", std::nullopt};
};

TEST_F(SystemPathsTest, InstallationIsCallThenEnvironmentThenExecutableFolder) {
  const std::wstring exeDir = QIM::getInstallationPath();
  EXPECT_TRUE(fs::path(exeDir).is_absolute() && fs::is_directory(fs::path(exeDir)));
#ifndef _WIN32
  EXPECT_EQ(exeDir, fs::read_symlink("/proc/self/exe").parent_path().wstring() + kSep);
#endif
  for (const auto& [given, expected] : {std::pair<std::string, std::wstring>{"dir/", L"dir/"},
                                        {"/", L"/"}, {"a b/\xC3\xA9", L"a b/\u00E9" + kSep}}) {
    SCOPED_TRACE(given);
    ScopedEnv env("QIMMISC_INSTALL_DIR", given);
    EXPECT_EQ(QIM::getInstallationPath(), expected);
    QIM::setInstallationPath(L"call");
    EXPECT_EQ(QIM::getInstallationPath(), L"call" + kSep);
    QIM::setInstallationPath(L"");
    EXPECT_EQ(QIM::getInstallationPath(), expected);
  }
  ScopedEnv empty("QIMMISC_INSTALL_DIR", "");  // an empty variable counts as unset
  EXPECT_EQ(QIM::getInstallationPath(), exeDir);
}

TEST_F(SystemPathsTest, FileExistsOnlyForExistingNonDirectories) {
  std::ofstream(tmp_ / fs::path(u8"Gr\u00FC\u00DFe.txt")) << "x";
  const std::wstring dir = tmp_.wstring() + kSep;
  EXPECT_TRUE(QIM::fileExists(dir + L"Gr\u00FC\u00DFe.txt"));
  for (const std::wstring& path : {dir + L"missing.txt", dir + L"home", std::wstring(),
                                   dir + L"Gr\u00FC\u00DFe.txt" + std::wstring(1, L'\0') + L"x",
                                   dir + std::wstring(1, static_cast<wchar_t>(0xD800))}) {
    EXPECT_FALSE(QIM::fileExists(path)) << path.size();  // must not stop at a NUL
  }
}

#ifdef _WIN32

TEST_F(SystemPathsTest, ShellFoldersExistAndEndWithSeparator) {
  for (const std::wstring& dir : {QIM::getUserDir(), QIM::getUserDocsDir(), QIM::getUserAppDir()})
    EXPECT_TRUE(dir.ends_with(L"\\") && fs::is_directory(fs::path(dir))) << QIM::toUtf8(dir);
}

#else

TEST_F(SystemPathsTest, UserFoldersFollowHomeConfigHomeAndUserDirs) {
  const std::string home = tmp_ / "home", config = tmp_ / "cfg";
  ScopedEnv homeEnv("HOME", home);
  struct Case {
    std::optional<std::string> env, userDirs, configHome;
    std::string docs;  // "~" is the home folder
  };
  const Case cases[] = {
      {"/data/docs", "XDG_DOCUMENTS_DIR=\"$HOME/File\"\n", config, "/data/docs/"},
      {"Papers", "XDG_DOCUMENTS_DIR=\"$HOME/File\"\n", config, "~/File/"},  // relative: ignored
      {std::nullopt,
       "# noise\nXDG_DOCUMENTS_DIRX=\"/wrong\"\n  XDG_DOCUMENTS_DIR = \"/srv/a\"  \n"
       "XDG_DOCUMENTS_DIR=\"$HOME/My \\\"D\\\"\"\n#XDG_DOCUMENTS_DIR=\"/commented\"\n",
       config, "~/My \"D\"/"},  // the last line wins, escapes removed
      {std::nullopt, "XDG_DOCUMENTS_DIR=\"$HOMEX/a\"\n", config, "~/Documents/"},
      {std::nullopt, "XDG_DOCUMENTS_DIR=\"/srv/docs\n", config, "~/Documents/"},  // unterminated
      {std::nullopt, "XDG_DOCUMENTS_DIR=\"$HOME/D\"\n", std::nullopt, "~/D/"},  // ~/.config
      {std::nullopt, std::nullopt, "relative/cfg", "~/Documents/"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.docs);
    ScopedEnv env("XDG_DOCUMENTS_DIR", c.env), configHome("XDG_CONFIG_HOME", c.configHome);
    const std::string folder = c.configHome == config ? config : home + "/.config";
    fs::create_directories(folder);
    fs::remove(folder + "/user-dirs.dirs");
    if (c.userDirs) std::ofstream(folder + "/user-dirs.dirs") << *c.userDirs;
    const std::string docs = c.docs[0] == '~' ? home + c.docs.substr(1) : c.docs;
    EXPECT_EQ(QIM::getUserDocsDir(), QIM::fromUtf8(docs));
    EXPECT_EQ(QIM::getUserAppDir(), QIM::fromUtf8(folder + "/"));
    EXPECT_EQ(QIM::getUserDir(), QIM::fromUtf8(home + "/"));
  }
  // A directory, then a FIFO (opening it would block), where the file should be.
  ScopedEnv configHome("XDG_CONFIG_HOME", config);
  fs::remove(config + "/user-dirs.dirs");
  fs::create_directories(config + "/user-dirs.dirs");
  EXPECT_EQ(QIM::getUserDocsDir(), QIM::fromUtf8(home + "/Documents/"));
  fs::remove(config + "/user-dirs.dirs");
  ASSERT_EQ(::mkfifo((config + "/user-dirs.dirs").c_str(), 0600), 0);
  EXPECT_EQ(QIM::getUserDocsDir(), QIM::fromUtf8(home + "/Documents/"));
  ScopedEnv noHome("HOME", std::nullopt);
  EXPECT_TRUE(QIM::getUserDir().ends_with(L"/"));  // from the password database
}

TEST_F(SystemPathsTest, FolderNameThatIsNotUtf8IsReportedAsSuch) {
  for (const auto& [variable, folder] : {std::pair{"HOME", QIM::Folder::User},
                                         {"QIMMISC_INSTALL_DIR", QIM::Folder::Installation}}) {
    ScopedEnv env(variable, tmp_.string() + "/caf\xE9");
    const QIM::FolderLookup found = QIM::lookUpFolder(folder);
    EXPECT_EQ(found.folder, L"") << variable;
    EXPECT_EQ(found.problem, "name is not valid UTF-8: " + tmp_.string() + "/caf\\xE9");
    EXPECT_EQ(sink_.linesWith("folder: name is not valid UTF-8: ").size(), 1u);
    sink_.clear();
  }
}

#endif

}  // namespace
