#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "qimmisc/AutoFileLock.h"
#include "settings/SettingsFiles.h"

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace QIM::test {
namespace {

bool exists(const std::wstring& path) {
  return std::filesystem::exists(std::filesystem::path(path));
}

TEST(AutoFileLockTest, SecondHolderIsRefusedAndDeletesNothing) {
  ScratchFolder folder;
  const std::wstring path = folder.path("app.lock");
  auto holder = std::make_unique<AutoFileLock>(path);
  EXPECT_TRUE(holder->isLocked());
  EXPECT_TRUE(exists(path));
  {
    AutoFileLock second(path);
    EXPECT_FALSE(second.isLocked());
  }
  EXPECT_TRUE(exists(path));
  holder.reset();
  EXPECT_FALSE(exists(path));
  EXPECT_TRUE(AutoFileLock(path).isLocked());
  EXPECT_FALSE(AutoFileLock(folder.path("no-such-folder/app.lock")).isLocked());
}

#ifndef _WIN32
TEST(AutoFileLockTest, RefusedAttemptLeavesTheHoldersContent) {
  ScratchFolder folder;
  const std::wstring path = folder.path("app.lock");
  AutoFileLock holder(path);
  std::ofstream(std::filesystem::path(path), std::ios::app) << "pid 1";
  AutoFileLock second(path);
  EXPECT_FALSE(second.isLocked());
  EXPECT_EQ(readBytes(path), "pid 1");
}

TEST(AutoFileLockTest, AnotherProcessSeesTheLock) {
  ScratchFolder folder;
  const std::wstring path = folder.path("app.lock");
  AutoFileLock holder(path);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const bool locked = AutoFileLock(path).isLocked();
    ::_exit(locked ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_TRUE(exists(path));
}
#endif

}  // namespace
}  // namespace QIM::test
