#include <atomic>
#include <cerrno>
#include <fstream>
#include <thread>

#include "TestSupport.h"
#include "qimmisc/FileLogger.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/TeeLogger.h"
#include "qimmisc/Trace.h"

namespace QIM {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// The header up to the channel column: "[" 4+ hex digits "] ".
const std::string kThreadColumn = R"(\[[0-9A-F]{4,}\] )";

void level3() { QIM_ENTRY("c=" << 3); }
void level2() { QIM_ENTRY("b=" << 2); level3(); }
void throwIt() { QIM_THROW(FileNotFoundException, "File not found", "path=" << "x.ini"); }
int mustNotFormat() { ADD_FAILURE() << "a closed channel formatted its text"; return 0; }

struct LineCase {
  const char* label;
  void (*act)();
  std::vector<std::string> lines;  // patterns; "@" stands for the thread column
};

void PrintTo(const LineCase& c, std::ostream* os) { *os << c.label; }

class LineTest : public test::TracingTest, public ::testing::WithParamInterface<LineCase> {};

TEST_P(LineTest, WritesExactlyTheseLines) {
  GetParam().act();
  std::vector<::testing::Matcher<std::string>> expected;
  for (const std::string& line : GetParam().lines) {
    expected.push_back(test::MatchesStdRegex(std::regex_replace(line, std::regex("@"), kThreadColumn)));
  }
  EXPECT_THAT(sink_.lines(), ::testing::ElementsAreArray(expected));
}

INSTANTIATE_TEST_SUITE_P(Texts, LineTest, ::testing::Values(
    LineCase{"ColumnFitsTheWidestNameSeen", +[] {
      QIM_TRACE(DbgMsg::getChannelByName("A_CHANNEL_NAME_WIDER_THAN_ANY_OTHER"), "wide");
      QIM_ERROR("padded");
      QIM_TRACE(DbgMsg::AdvUserLogId, "text");
    }, {"@A_CHANNEL_NAME_WIDER_THAN_ANY_OTHER> .* wide", "@ERROR {30}> .* padded", "@ADVUSERLOG {25}> .* text"}},
    LineCase{"EntryArrows", level2, {R"(@ENTRY *> DbgMsgTest:\d+ \(QIM::`anonymous-namespace'::level2\) b=2)",
      R"(@ENTRY *>> .*level3\) c=3)", R"(@ENTRY *>> .*level3\) <ret Time:\d+ usec>)", R"(@ENTRY *> .*level2\) <ret Time:\d+ usec>)"}},
    LineCase{"EntryDepthInBracketsAndItsLimit", +[] {
      DbgMsg::setEntryParams(false, 2);
      level2();
      DbgMsg::setEntryParams(false, 0);
      QIM_ENTRY("silent");  // deeper than the limit: no lines, but a frame
      DbgMsg::printBackTrace();
    }, {R"(@ENTRY *>\[ 1\] .*b=2)", R"(@ENTRY *>\[ 2\] .*c=3)", R"(@ENTRY *>\[ 2\] .*<ret.*)",
        R"(@ENTRY *>\[ 1\] .*<ret.*)", "Stack trace for thread .*", R"(\[ 1\] .*)"}},
    LineCase{"AdvancedDestinationTakesEveryLine", +[] {
      DbgMsg::setAdvUserLogDest(DbgMsg::getLogDest());
      DbgMsg::setLogDest(nullptr);
      QIM_ERROR("ordinary");
      QIM_TRACE(DbgMsg::AdvUserLogId, "bare user text");  // its own channel's lines go bare
    }, {R"(@ERROR *> .*\) ordinary)", "bare user text"}},
    LineCase{"ChannelItemsApplyInOrder", +[] {
      DbgMsg::initChannels("-all:+NAMED_FIRST");  // before any module asked for it
      QIM_TRACE(DbgMsg::getChannelByName("NAMED_FIRST"), "named first");
      QIM_TRACE(DbgMsg::getChannelByName("MADE_AFTER_MINUS_ALL"), mustNotFormat());
      DbgMsg::initChannels("+all:-ENTRY");
      level2();
      QIM_TRACE(DbgMsg::getChannelByName("MADE_AFTER_PLUS_ALL"), "open");
      DbgMsg::initChannels(nullptr);
      QIM_TRACE(DbgMsg::getChannelByName("NAMED_FIRST"), "closed again");
      QIM_ERROR("error stays open");
    }, {"@NAMED_FIRST *> .* named first", "@MADE_AFTER_PLUS_ALL *> .* open", "@ERROR *> .* error stays open"}},
    LineCase{"Assertion", +[] {
      errno = ENOENT;  // wins over the OS code
      const int value = 2;
      QIM_ASSERT(value == 1, "value is " << value);
      QIM_ASSERT(1 + 1 == 3);
      DbgMsg::toggleChannel(DbgMsg::ErrorId, false);
      QIM_ASSERT(value == 1);  // no line, still a back-trace
    }, {R"(@ERROR *> DbgMsgTest:\d+ \(.*\) Assertion failed: "value == 1" : value is 2  OS ERROR: 2 errno: 2)",
        "Stack trace for thread [0-9A-F]{4,}", R"(@ERROR *> .*\) Assertion failed: "1 \+ 1 == 3"  OS ERROR: \d+ errno: \d+)",
        "Stack trace for thread .*", "Stack trace for thread .*"}},
    LineCase{"Throw", +[] { EXPECT_THROW(throwIt(), FileNotFoundException); },
      {R"(@ERROR *> .*::throwIt\) Throwing FileNotFoundException\("File not found"\) : path=x.ini)"}}));

std::vector<std::string> readLines(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Writers trace while the destination changes under them: every sink of the
// tee gets each line whole, and the file is truncated first and readable
// while held.
TEST(DbgMsg, SinksGetEachLineWholeWhileWritersRunAndTheDestinationChanges) {
  const std::string path = ::testing::TempDir() + "qimmisc_filelogger.log";
  std::ofstream(path) << "old content\n";
  FileLogger file(path.c_str()), lost((::testing::TempDir() + "no/such/dir/x.log").c_str());
  test::CaptureSink copy;
  DbgMsg::TeeLogger second(&lost, &copy), both(&file, &second);
  DbgMsg::setLogDest(&both);
  QIM_ERROR("first");
  EXPECT_THAT(readLines(path), ElementsAre(HasSubstr(") first")));
  std::atomic<bool> stop{false};
  const auto write = [&stop] {
    for (int i = 0; i < 2000 && !stop.load(); ++i) QIM_ERROR("writer line " << i << " end");
  };
  std::thread writers[] = {std::thread(write), std::thread(write)};
  for (int i = 0; i < 200; ++i) {
    DbgMsg::setLogDest(i % 2 ? &both : nullptr);
    std::this_thread::yield();
  }
  stop = true;
  for (auto& w : writers) w.join();
  DbgMsg::setLogDest(nullptr);
  const auto lines = readLines(path);
  EXPECT_TRUE(file.isOpen() && !lost.isOpen() && lines.size() == copy.lines().size());
  for (const auto& line : lines) {
    EXPECT_THAT(line, test::MatchesStdRegex(kThreadColumn + R"(ERROR *> .*\) (first|writer line \d+ end))"));
  }
}

}  // namespace
}  // namespace QIM
