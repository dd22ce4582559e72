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

class BufferConfigurationFileTest : public TracingTest {
 protected:
  // Loads `bytes` as a file into `file_`.
  void load(const std::string& bytes) {
    const std::wstring path = folder_.path("settings.ini");
    writeBytes(path, bytes);
    file_.loadConfigurationFile(path);
  }
  std::string text() { return toUtf8(file_.toText()); }

  ScratchFolder folder_;
  BufferConfigurationFile file_;
};

struct ParseCase {
  const char* name;
  std::string input;
  std::string written;  // the written form of what loads
};

void PrintTo(const ParseCase& c, std::ostream* os) { *os << c.name; }

const std::string k255(255, 'k');
const std::string k256(256, 'k');
std::string repeat(const std::string& s, int n) { return n ? s + repeat(s, n - 1) : ""; }
const std::string emoji128 = repeat("\xF0\x9F\x98\x80", 128);  // 256 UTF-16 units

const ParseCase kParseCases[] = {
    {"empty_file", "", ""},
    {"empty_value_dropped", "Key=\n", ""},
    {"blank_value_kept_empty", "[S]\nk=  \n", "[S]\nk=\n"},
    {"indented_header_ignored", "  [Sec]\nk=v\n", "[]\nk=v\n"},
    {"header_without_bracket", "[Sec\nk=v\n", "[Sec]\nk=v\n"},
    {"text_after_bracket_ignored", "[S] tail\nk=v\n", "[S]\nk=v\n"},
    {"empty_brackets_not_header", "[]\nk=v\n", "[]\nk=v\n"},
    {"blank_header_is_empty_name", "[ ]\nk=v\n", "[]\nk=v\n"},
    {"line_starting_with_equals", "=value\n[S]\n=v\n", "[S]\n"},
    {"blank_key_kept", "[S]\n  =v\n", "[S]\n=v\n"},
    {"repeated_header_empties", "[A]\nx=1\n[A]\ny=2\n", "[A]\ny=2\n"},
    {"repeated_key_replaces", "[S]\nk=1\nk=2\n", "[S]\nk=2\n"},
    {"trimmed", "[  S  ]\n  key \t=  a value \n", "[S]\nkey=a value\n"},
    {"value_keeps_equals", "[S]\nk=a=b\n", "[S]\nk=a=b\n"},
    {"no_comment_syntax", ";note\n;a=b\n", "[]\n;a=b\n"},
    {"line_without_equals", "[S]\njunk\n", "[S]\n"},
    {"entries_before_header", "a=1\n[S]\nb=2\n", "[]\na=1\n[S]\nb=2\n"},
    {"no_final_newline", "[S]\nk=v", "[S]\nk=v\n"},
    {"crlf_folded", "[S]\r\nk=v\r\n\r\nj=w\r\n", "[S]\nj=w\nk=v\n"},
    {"lone_cr_ends_value", "[S]\nk=v\rjunk\n", "[S]\nk=v\n"},
    {"value_of_only_cr_dropped", "[S]\nk=\r\r\n", "[S]\n"},
    {"text_ends_at_nul", std::string("[S]\nk=v\n\0[T]\nj=w\n", 18), "[S]\nk=v\n"},
    {"key_of_255", "[S]\n" + k255 + "=v\n", "[S]\n" + k255 + "=v\n"},
    {"key_of_256_ignored", "[S]\n" + k256 + "=v\n", "[S]\n"},
    {"key_length_in_utf16_units", "[S]\n" + emoji128 + "=v\n", "[S]\n"},
    {"header_cut_at_255", "[" + k256 + "]\n", "[" + k255 + "]\n"},
    {"sections_fold_first_spelling", "[Main]\nx=1\n[MAIN]\nVolume=2\nVOLUME=3\n",
     "[Main]\nVolume=3\n"},
    {"non_ascii", "[\xC3\x9C\x62\x65r]\n\xD0\xBA=\xF0\x9F\x98\x80 \xE2\x82\xAC\n",
     "[\xC3\x9C\x62\x65r]\n\xD0\xBA=\xF0\x9F\x98\x80 \xE2\x82\xAC\n"},
    {"invalid_utf8_loads_nothing", "[S]\nk=v\nj=\xFF\n", ""},
    {"bom_is_kept_in_name", "\xEF\xBB\xBFk=v\n", "[]\n\xEF\xBB\xBFk=v\n"},
};

class ParseTest : public BufferConfigurationFileTest,
                  public ::testing::WithParamInterface<ParseCase> {};

TEST_P(ParseTest, LoadsAsTheFormatSays) {
  load(GetParam().input);
  EXPECT_EQ(text(), GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(Lines, ParseTest, ::testing::ValuesIn(kParseCases),
                         [](const auto& param) { return std::string(param.param.name); });

TEST_F(BufferConfigurationFileTest, OverlongLineIsSkippedWithOneErrorLine) {
  const std::string longest = "k=" + std::string(1021, 'v');  // 1023 characters
  load("[S]\n" + longest + "\nx=" + std::string(1022, 'v') + "\r\nlast=1\n");
  EXPECT_EQ(file_.getString(L"S", L"k", L"").size(), 1021u);
  EXPECT_EQ(file_.getString(L"S", L"x", L"none"), L"none");
  EXPECT_EQ(file_.getString(L"S", L"last", L""), L"1");
  const auto errors = sink_.linesWith("Skipping line");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_NE(errors[0].find("Skipping line 3 of "), std::string::npos);
  EXPECT_NE(errors[0].find("settings.ini"), std::string::npos);
}

TEST_F(BufferConfigurationFileTest, MissingFileThrowsAndKeepsSections) {
  load("[A]\nk=v\n");
  EXPECT_THROW(file_.loadConfigurationFile(folder_.path("absent.ini")), FileNotFoundException);
  EXPECT_EQ(text(), "[A]\nk=v\n");
  EXPECT_TRUE(sink_.contains("Throwing FileNotFoundException(\"File not found\") : OS ERROR: "));
  // The failed load still took the path: write() goes there.
  file_.write();
  EXPECT_EQ(readBytes(folder_.path("absent.ini")), std::string("[A]\nk=v\n", 8) + '\0');
}

// Each value with what getInt(99) and getBool gives (-1: the default).
struct ConversionCase {
  const wchar_t* value;
  int asInt;
  int asBool;
};

TEST_F(BufferConfigurationFileTest, ConversionsFollowScanfAndTrueFalse) {
  const ConversionCase cases[] = {{L"42", 42, -1},
                                  {L" \t42", 42, -1},
                                  {L"-7", -7, -1},
                                  {L"+5", 5, -1},
                                  {L"12abc", 12, -1},
                                  {L"0x10", 0, -1},
                                  {L"abc", 99, -1},
                                  {L"", 99, -1},
                                  {L"- 5", 99, -1},
                                  {L"2147483647", INT_MAX, -1},
                                  {L"-2147483648", INT_MIN, -1},
                                  {L"2147483648", 99, -1},
                                  {L"99999999999999999999", 99, -1},
                                  {L"1", 1, -1},
                                  {L"true", 99, 1},
                                  {L"TRUE", 99, 1},
                                  {L"False", 99, 0},
                                  {L" true", 99, -1}};
  for (const ConversionCase& c : cases) {
    file_.setString(L"S", L"k", c.value);
    EXPECT_EQ(file_.getInt(L"S", L"k", 99), c.asInt) << toUtf8(c.value);
    for (bool fallback : {false, true}) {
      EXPECT_EQ(file_.getBool(L"S", L"k", fallback), c.asBool < 0 ? fallback : c.asBool == 1)
          << toUtf8(c.value);
    }
  }
  file_.setInt(L"S", L"i", -123);
  file_.setBool(L"S", L"b", false);
  EXPECT_EQ(text(), "[S]\nb=false\ni=-123\nk= true\n");
}

TEST_F(BufferConfigurationFileTest, ReadsCreateAbsentSections) {
  EXPECT_EQ(file_.getString(L"New", L"k", L"d"), L"d");
  EXPECT_TRUE(file_.getSection(L"Other").empty());
  EXPECT_EQ(file_.getSections(), (std::vector<std::wstring>{L"New", L"Other"}));
  EXPECT_EQ(text(), "[New]\n[Other]\n");
}

TEST_F(BufferConfigurationFileTest, NamesMatchIgnoringCaseAndKeepFirstSpelling) {
  load("[Main]\nVolume=1\n");
  file_.setString(L"MAIN", L"VOLUME", L"2");
  file_.setString(L"main", L"Mute", L"true");
  EXPECT_EQ(text(), "[Main]\nMute=true\nVolume=2\n");
  file_.setSection(L"mAiN", {{L"Volume", L"3"}, {L"VOLUME", L"4"}});
  // The first key in map order wins: "VOLUME" sorts before "Volume".
  EXPECT_EQ(file_.getString(L"main", L"volume", L""), L"4");
  EXPECT_EQ(file_.getString(L"main", L"Volume", L""), L"3");
}

TEST_F(BufferConfigurationFileTest, ClearSectionUsesExactSpelling) {
  load("[Main]\nk=v\n");
  file_.clearSection(L"MAIN");
  EXPECT_EQ(file_.getSections(), (std::vector<std::wstring>{L"MAIN", L"Main"}));
  EXPECT_EQ(file_.getString(L"Main", L"k", L"d"), L"v");
  // Other spellings now resolve to "MAIN", first in map order.
  EXPECT_EQ(file_.getString(L"main", L"k", L"d"), L"d");
}

// The normalisation walk exactly as the format describes it, over plain
// maps: the reference for the indexed implementation.
template <class Map>
std::wstring walk(const Map& map, const std::wstring& name) {
  if (map.count(name)) return name;
  for (const auto& entry : map) {
    if (equalsIgnoreCase(entry.first, name)) return entry.first;
  }
  return name;
}

TEST_F(BufferConfigurationFileTest, IndexedMatchingAgreesWithTheWalk) {
  std::mt19937 random(7);
  const auto spelling = [&random](std::wstring s) {
    for (wchar_t& c : s)
      c = random() % 2 ? static_cast<wchar_t>(towupper(static_cast<wint_t>(c))) : c;
    return s;
  };
  const wchar_t* const names[] = {L"main", L"net", L"ab", L"x"};
  const auto name = [&]() { return spelling(names[random() % 4]); };
  const auto key = [&]() { return name() + std::to_wstring(random() % 500); };
  std::map<std::wstring, ConfigurationSection> model;
  std::string input;
  std::wstring current;
  for (int line = 0; line < 20000; ++line) {
    if (random() % 50 == 0) {
      const std::wstring raw = name();
      model[current = walk(model, raw)].clear();
      input += "[" + toUtf8(raw) + "]\n";
    } else {
      const std::wstring k = key();
      model[current][walk(model[current], k)] = std::to_wstring(line);
      input += toUtf8(k) + "=" + std::to_string(line) + "\n";
    }
  }
  load(input);
  for (int step = 0; step < 3000; ++step) {
    const std::wstring sec = name();
    const std::wstring k = key();
    ConfigurationSection& values = step % 4 == 1 ? model[sec] : model[walk(model, sec)];
    const std::wstring resolved = walk(values, k);
    if (step % 4 == 0) {
      values[resolved] = L"set";
      file_.setString(sec, k, L"set");
    } else if (step % 4 == 1) {
      values.clear();
      file_.clearSection(sec);
    } else if (step % 4 == 2) {
      values = {{k, L"a"}, {spelling(k), L"b"}};
      file_.setSection(sec, values);
    } else {
      EXPECT_EQ(file_.getString(sec, k, L"-"), values.count(resolved) ? values[resolved] : L"-");
    }
  }
  for (const auto& [section, values] : model) EXPECT_EQ(file_.getSection(section), values);
  EXPECT_EQ(file_.getSections().size(), model.size());
}

TEST_F(BufferConfigurationFileTest, WrittenFormEndsWithOneNulAndReadsBack) {
  load("k0=v0\n[B]\nb=2\n[A]\na=1\nempty=\n[C]\n");
  const std::wstring path = folder_.path("out.ini");
  file_.write(path);
  const std::string expected = "[]\nk0=v0\n[A]\na=1\n[B]\nb=2\n[C]\n";
  EXPECT_EQ(readBytes(path), expected + '\0');
  BufferConfigurationFile again;
  again.loadConfigurationFile(path);
  EXPECT_EQ(toUtf8(again.toText()), expected);
}

TEST_F(BufferConfigurationFileTest, UnwritableTargetShowsTheMessage) {
  NotifierSpy spy;
  const std::wstring missing = folder_.path("no-such-folder/x.ini");
  file_.write(missing);
  EXPECT_EQ(spy.title, L"Error");
  EXPECT_EQ(spy.text, missing + L" could not be opened for writing. Check file actually exists.");
  namespace fs = std::filesystem;
  const std::wstring readOnly = folder_.path("ro.ini");
  writeBytes(readOnly, "old");
  fs::permissions(readOnly,
                  fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                  fs::perm_options::remove);
  file_.write(readOnly);
  const std::string after = readBytes(readOnly);
  fs::permissions(readOnly, fs::perms::owner_all, fs::perm_options::add);
  if (spy.calls == 1) GTEST_SKIP() << "this user may write read-only files";
  EXPECT_EQ(spy.text,
            readOnly + L" could not be opened for writing. Check you have sufficient privileges.");
  EXPECT_EQ(after, "old");
}

TEST_F(BufferConfigurationFileTest, FailedWriteLeavesTheOldFileWhole) {
  const std::wstring path = folder_.path("settings.ini");
  const std::string old = std::string("[Old]\nk=v\n") + '\0';
  writeBytes(path, old);
  for (int i = 0; i < 200; ++i) file_.setInt(L"New", L"key" + std::to_wstring(i), i);
  NotifierSpy spy;
  detail::failNextReplaceAfter(100);
  file_.write(path);
  EXPECT_EQ(spy.calls, 1);
  EXPECT_EQ(readBytes(path), old);
  EXPECT_EQ(folder_.entryCount(), 1);  // no temporary file left behind
  file_.write(path);
  EXPECT_EQ(spy.calls, 1);
  EXPECT_EQ(readBytes(path).size(), toUtf8(file_.toText()).size() + 1);
}

#ifndef _WIN32
// A writer killed at random moments while it alternates two contents: the
// file is always one of them whole.
TEST_F(BufferConfigurationFileTest, KilledWriterLeavesOldOrNewFile) {
  const std::wstring path = folder_.path("settings.ini");
  BufferConfigurationFile contents[2];
  std::string bytes[2];
  for (int c = 0; c < 2; ++c) {
    for (int i = 0; i < 5000; ++i)
      contents[c].setInt(L"S" + std::to_wstring(c), L"k" + std::to_wstring(i), i);
    bytes[c] = toUtf8(contents[c].toText()) + '\0';
  }
  contents[0].write(path);
  std::mt19937 random(3);
  for (int round = 0; round < 10; ++round) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    for (int c = 0; child == 0; c ^= 1) contents[c].write(path);
    ::usleep(static_cast<useconds_t>(random() % 20000));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    const std::string now = readBytes(path);
    EXPECT_TRUE(now == bytes[0] || now == bytes[1])
        << "round " << round << ": " << now.size() << " bytes";
  }
}
#endif

TEST_F(BufferConfigurationFileTest, SeparateObjectsLoadAtTheSameTime) {
  std::string input;
  for (int i = 0; i < 2000; ++i)
    input += "[S" + std::to_string(i % 7) + "]\nk" + std::to_string(i) + "=v\n";
  load(input);
  const std::wstring expected = file_.toText();
  int mismatches[2] = {0, 0};
  const auto reload = [&](int t) {
    BufferConfigurationFile mine;
    for (int round = 0; round < 20; ++round) {
      mine.loadConfigurationFile(folder_.path("settings.ini"));
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
