#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "qimmisc/AutoFileLock.h"
#include "settings/SettingsFiles.h"

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace QIM::test {
namespace {

TEST(AutoFileLockTest, SecondHolderIsRefusedAndDeletesNothing) {
  ScratchFolder folder;
  const std::wstring path = folder.path("app.lock");
  auto holder = std::make_unique<AutoFileLock>(path);
  EXPECT_TRUE(holder->isLocked());
  writeBytes(path, "pid 1");
  EXPECT_FALSE(AutoFileLock(path).isLocked());
#ifndef _WIN32
  // Another process is refused too (a lock per process would not be).
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) ::_exit(AutoFileLock(path).isLocked() ? 1 : 0);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(readBytes(path), "pid 1");  // the refused ones left it whole
#endif
  EXPECT_TRUE(std::filesystem::exists(path));
  holder.reset();
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_TRUE(AutoFileLock(path).isLocked());
  EXPECT_FALSE(AutoFileLock(folder.path("no-such-folder/app.lock")).isLocked());
}

}  // namespace
}  // namespace QIM::test
