#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/BufferConfigurationFile.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/StringUtils.h"
#include "settings/AtomicFile.h"
#include "settings/SettingsFiles.h"

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#endif

namespace QIM::test {
namespace {
namespace fs = std::filesystem;

class BufferConfigurationFileTest : public TracingTest {
 protected:
  BufferConfigurationFileTest() {
    // Records the write-failure message instead of showing it.
    previous_ =
        setWriteFailureNotifier([this](const std::wstring& text, const std::wstring& title) {
          notices_.push_back(title + L": " + text);
        });
  }
  ~BufferConfigurationFileTest() override { setWriteFailureNotifier(previous_); }
  void load(const std::string& bytes) {
    writeBytes(path_, bytes);
    file_.loadConfigurationFile(path_);
  }
  std::string text() { return toUtf8(file_.toText()); }

  ScratchFolder folder_;
  const std::wstring path_ = folder_.path("settings.ini");
  BufferConfigurationFile file_;
  std::vector<std::wstring> notices_;
  WriteFailureNotifier previous_;
};

TEST_F(BufferConfigurationFileTest, LoadsAsTheFormatSays) {
  const std::string k255(255, 'k'), k256(256, 'k');
  std::string emoji128;  // 128 characters, 256 UTF-16 units
  for (int i = 0; i < 128; ++i) emoji128 += "\xF0\x9F\x98\x80";
  // Each input with the written form of what loads from it.
  const std::pair<std::string, std::string> cases[] = {
      // clang-format off
      // Empty or blank values, an indented header, "[Sec" without "]", text after "]".
      {"", ""}, {"Key=\n", ""}, {"[S]\nk=  \n", "[S]\nk=\n"}, {"  [Sec]\nk=v\n", "[]\nk=v\n"},
      {"[Sec\nk=v\n", "[Sec]\nk=v\n"}, {"[S] tail\nk=v\n", "[S]\nk=v\n"},
      // "[]" is no header, "[ ]" names the empty section; "=value" is ignored, " =v" is not.
      {"[S]\n[]\nk=v\n", "[S]\nk=v\n"}, {"[ ]\nk=v\n", "[]\nk=v\n"},
      {"=value\n[S]\n=v\n", "[S]\n"}, {"[S]\n  =v\n", "[S]\n=v\n"},
      // A repeated header empties the section; a repeated key replaces.
      {"[A]\nx=1\n[A]\ny=2\n", "[A]\ny=2\n"}, {"[S]\nk=1\nk=2\n", "[S]\nk=2\n"},
      {"[  S  ]\n  key \t=  a value \n", "[S]\nkey=a value\n"}, {"[S]\nk=a=b\n", "[S]\nk=a=b\n"},
      // No comment syntax; a line without "=" is skipped; entries before any header.
      {";note\n;a=b\n", "[]\n;a=b\n"}, {"[S]\njunk\n", "[S]\n"},
      {"a=1\n[S]\nb=2\n", "[]\na=1\n[S]\nb=2\n"}, {"[S]\nk=v", "[S]\nk=v\n"},
      // CR LF, a lone CR, a value of only CR, the text ending at NUL.
      {"[S]\r\nk=v\r\n\r\nj=w\r\n", "[S]\nj=w\nk=v\n"}, {"[S]\nk=v\rjunk\n", "[S]\nk=v\n"},
      {"[S]\nk=\r\r\n", "[S]\n"}, {std::string("[S]\nk=v\n\0[T]\nj=w\n", 18), "[S]\nk=v\n"},
      // Keys of up to 255 UTF-16 units; any value length; headers cut at 255.
      {"[S]\n" + k255 + "=v\n", "[S]\n" + k255 + "=v\n"}, {"[S]\n" + k256 + "=v\n", "[S]\n"},
      {"[S]\n" + emoji128 + "=v\n", "[S]\n"}, {"[" + k256 + "]\n", "[" + k255 + "]\n"},
      {"[S]\nk=" + k256 + k256 + "\n", "[S]\nk=" + k256 + k256 + "\n"},
      // Case folding keeps the first spelling.
      {"[Main]\nx=1\n[MAIN]\nVolume=2\nVOLUME=3\n", "[Main]\nVolume=3\n"},
      // UTF-8: kept, a BOM included; invalid anywhere loads nothing.
      {"[\xD0\xBA]\n\xC3\xA4=\xF0\x9F\x98\x80\n", "[\xD0\xBA]\n\xC3\xA4=\xF0\x9F\x98\x80\n"},
      {"\xEF\xBB\xBFk=v\n", "[]\n\xEF\xBB\xBFk=v\n"}, {"[S]\nk=v\nj=\xFF\n", ""},
      // clang-format on
  };
  for (const auto& [input, written] : cases) {
    load(input);
    EXPECT_EQ(text(), written) << ::testing::PrintToString(input);
  }
}

TEST_F(BufferConfigurationFileTest, OverlongLineIsSkippedWithOneErrorLine) {
  const std::string longest = "k=" + std::string(1021, 'v');  // 1023 characters
  load("[S]\n" + longest + "\nx=" + std::string(1022, 'v') + "\r\nlast=1\n");
  EXPECT_EQ(text(), "[S]\n" + longest + "\nlast=1\n");
  const auto errors = sink_.linesWith("Skipping line");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_NE(errors[0].find("Skipping line 3 of "), std::string::npos);
  EXPECT_NE(errors[0].find("settings.ini"), std::string::npos);
}

TEST_F(BufferConfigurationFileTest, ConversionsFollowScanfAndTrueFalse) {
  // Each value with what getInt(99) and getBool give (-1: the default).
  // clang-format off
  const struct {
    const wchar_t* value;
    int asInt, asBool;
  } cases[] = {
      {L"42", 42, -1}, {L" \t42", 42, -1}, {L"-7", -7, -1}, {L"+5", 5, -1}, {L"12abc", 12, -1},
      {L"0x10", 0, -1}, {L"abc", 99, -1}, {L"", 99, -1}, {L"- 5", 99, -1}, {L"1", 1, -1},
      {L"2147483647", INT_MAX, -1}, {L"-2147483648", INT_MIN, -1}, {L"2147483648", 99, -1},
      {L"true", 99, 1}, {L"TRUE", 99, 1}, {L"False", 99, 0}, {L" true", 99, -1}};
  // clang-format on
  for (const auto& c : cases) {
    file_.setString(L"S", L"k", c.value);
    EXPECT_EQ(file_.getInt(L"S", L"k", 99), c.asInt) << toUtf8(c.value);
    for (bool fallback : {false, true}) {
      EXPECT_EQ(file_.getBool(L"S", L"k", fallback), c.asBool < 0 ? fallback : c.asBool == 1)
          << toUtf8(c.value);
    }
  }
  file_.setInt(L"S", L"i", -123);
  file_.setBool(L"S", L"b", false);
  EXPECT_EQ(file_.getString(L"New", L"k", L"d"), L"d");  // creates the section
  EXPECT_EQ(text(), "[New]\n[S]\nb=false\ni=-123\nk= true\n");
}

// A name resolves to its exact spelling, else to the first stored spelling in
// map order that equals it ignoring case; the case-folded index must follow
// every change of which spelling is first.
TEST_F(BufferConfigurationFileTest, CaseTwinsResolveToTheFirstSpellingInMapOrder) {
  load("[main]\nkey=1\n[Net]\nA=1\na=2\n");
  file_.clearSection(L"MAIN");  // exactly this spelling: a twin that sorts first
  file_.setString(L"Main", L"k", L"v");
  EXPECT_EQ(file_.getString(L"main", L"KEY", L""), L"1");
  file_.setSection(L"NET", {{L"x", L"1"}, {L"X", L"2"}});  // stored as given, twins too
  file_.setString(L"net", L"x", L"3");
  EXPECT_EQ(file_.getString(L"nEt", L"x", L""), L"3");
  EXPECT_EQ(text(), "[MAIN]\nk=v\n[Net]\nX=2\nx=3\n[main]\nkey=1\n");
  for (int i = 0; i < 3000; ++i) {
    file_.setInt(L"Sec" + std::to_wstring(i % 500), L"Key" + std::to_wstring(i), i);
  }
  for (int i = 0; i < 3000; ++i) {
    EXPECT_EQ(file_.getInt(L"sEC" + std::to_wstring(i % 500), L"kEY" + std::to_wstring(i), -1), i);
  }
}

TEST_F(BufferConfigurationFileTest, MissingFileThrowsAndWrittenFormReadsBack) {
  load("k0=v0\n[B]\nb=2\n[A]\na=1\nempty=\n[C]\n");
  const std::wstring absent = folder_.path("absent.ini");
  EXPECT_THROW(file_.loadConfigurationFile(absent), FileNotFoundException);
  EXPECT_TRUE(sink_.contains("Throwing FileNotFoundException(\"File not found\") : OS ERROR: "));
  file_.write();  // the failed load kept the sections and took the path
  const std::string expected = "[]\nk0=v0\n[A]\na=1\n[B]\nb=2\n[C]\n";
  EXPECT_EQ(readBytes(absent), expected + '\0');
  file_.loadConfigurationFile(absent);
  EXPECT_EQ(text(), expected);
}

TEST_F(BufferConfigurationFileTest, UnwritableTargetShowsTheMessage) {
  const std::wstring missing = folder_.path("no-such-folder/x.ini");
  file_.write(missing);
  const std::wstring because = L" could not be opened for writing. Check ";
  EXPECT_EQ(notices_.back(), L"Error: " + missing + because + L"file actually exists.");
  writeBytes(path_, "old");
  fs::permissions(path_, fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                  fs::perm_options::remove);
  file_.write(path_);
  const std::string after = readBytes(path_);
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add);
  if (notices_.size() == 1) GTEST_SKIP() << "this user may write read-only files";
  EXPECT_EQ(notices_.back(), L"Error: " + path_ + because + L"you have sufficient privileges.");
  EXPECT_EQ(after, "old");
}

TEST_F(BufferConfigurationFileTest, FailedWriteLeavesTheOldFileWhole) {
  const std::string old = std::string("[Old]\nk=v\n") + '\0';
  writeBytes(path_, old);
  for (int i = 0; i < 200; ++i) file_.setInt(L"New", L"key" + std::to_wstring(i), i);
  detail::failNextReplaceAfter(100);
  file_.write(path_);
  EXPECT_EQ(notices_.size(), 1u);
  EXPECT_EQ(readBytes(path_), old);
  const fs::directory_iterator entries(fs::path(path_).parent_path());
  EXPECT_EQ(std::distance(entries, fs::directory_iterator()), 1) << "a temporary was left";
}

#ifndef _WIN32
// A writer killed at random moments while it alternates two contents: the
// file is always one of them whole.
TEST_F(BufferConfigurationFileTest, KilledWriterLeavesOldOrNewFile) {
  BufferConfigurationFile contents[2];
  std::string bytes[2];
  for (int c = 0; c < 2; ++c) {
    for (int i = 0; i < 5000; ++i)
      contents[c].setInt(L"S" + std::to_wstring(c), L"k" + std::to_wstring(i), i);
    bytes[c] = toUtf8(contents[c].toText()) + '\0';
  }
  contents[0].write(path_);
  std::mt19937 random(3);
  for (int round = 0; round < 10; ++round) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    for (int c = 0; child == 0; c ^= 1) contents[c].write(path_);
    ::usleep(static_cast<useconds_t>(random() % 20000));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    const std::string now = readBytes(path_);
    EXPECT_TRUE(now == bytes[0] || now == bytes[1]) << "round " << round << ": " << now.size();
  }
}
#endif

TEST_F(BufferConfigurationFileTest, SeparateObjectsLoadAtTheSameTime) {
  std::string input;
  for (int i = 0; i < 2000; ++i)
    input += "[S" + std::to_string(i % 7) + "]\nk=" + std::to_string(i) + "\n";
  load(input);
  const std::wstring expected = file_.toText();
  int mismatches[2] = {0, 0};
  const auto reload = [&](int t) {
    BufferConfigurationFile mine;
    for (int round = 0; round < 20; ++round) {
      mine.loadConfigurationFile(path_);
      mismatches[t] += mine.toText() != expected;
    }
  };
  std::thread other(reload, 1);
  reload(0);
  other.join();
  EXPECT_EQ(mismatches[0] + mismatches[1], 0);
}

}  // namespace
}  // namespace QIM::test
