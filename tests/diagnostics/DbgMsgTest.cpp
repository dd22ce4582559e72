#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "TestSupport.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/Trace.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace QIM {
namespace {

using DbgMsgTest = test::TracingTest;

// The header up to the channel column: "[" 4+ hex digits "] " name, padded.
const std::string kThreadColumn = R"(\[[0-9A-F]{4,}\] )";

void level3() { QIM_ENTRY("c=" << 3); }
void level2() {
  QIM_ENTRY("b=" << 2);
  level3();
}
void level1() {
  QIM_ENTRY("a=" << 1);
  level2();
}

TEST_F(DbgMsgTest, TraceLineHasHeaderThenText) {
  QIM_ERROR("hello " << 42);
  const auto lines = sink_.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0], test::MatchesStdRegex(kThreadColumn + R"(ERROR *> DbgMsgTest:[0-9]+ )"
                                     R"(\(QIM::`anonymous-namespace'::DbgMsgTest_TraceLineHasHeaderThenText_Test::TestBody\) hello 42)"));
}

TEST_F(DbgMsgTest, ClosedChannelFormatsNothing) {
  DbgMsg::initChannels("-all");
  int evaluated = 0;
  QIM_ERROR("x" << ++evaluated);
  EXPECT_EQ(evaluated, 0);
  EXPECT_TRUE(sink_.lines().empty());
}

TEST_F(DbgMsgTest, ChannelColumnIsPaddedToWidestNameSeen) {
  const int channel = DbgMsg::getChannelByName("A_RATHER_LONG_CHANNEL_NAME");
  DbgMsg::toggleChannel(channel, true);
  QIM_TRACE(channel, "first");
  QIM_ERROR("second");
  const auto lines = sink_.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], HasSubstr("] A_RATHER_LONG_CHANNEL_NAME> "));
  EXPECT_THAT(lines[1], HasSubstr("] ERROR                     > "));
}

TEST_F(DbgMsgTest, EntryLinesShowDepthAsArrows) {
  level1();
  const auto entry = sink_.linesWith("] ENTRY");
  ASSERT_EQ(entry.size(), 6u);
  EXPECT_THAT(entry[0], test::MatchesStdRegex(kThreadColumn + R"(ENTRY *> DbgMsgTest:[0-9]+ \(QIM::`anonymous-namespace'::level1\) a=1)"));
  EXPECT_THAT(entry[1], test::MatchesStdRegex(kThreadColumn + R"(ENTRY *>> .*level2\) b=2)"));
  EXPECT_THAT(entry[2], test::MatchesStdRegex(kThreadColumn + R"(ENTRY *>>> .*level3\) c=3)"));
  EXPECT_THAT(entry[3], test::MatchesStdRegex(kThreadColumn + R"(ENTRY *>>> .*level3\) <ret Time:[0-9]+ usec>)"));
  EXPECT_THAT(entry[5], test::MatchesStdRegex(kThreadColumn + R"(ENTRY *> .*level1\) <ret Time:[0-9]+ usec>)"));
}

TEST_F(DbgMsgTest, EntryLinesShowDepthInBracketsWithoutArrows) {
  DbgMsg::setEntryParams(false, -1);
  level2();
  const auto entry = sink_.linesWith("] ENTRY");
  ASSERT_EQ(entry.size(), 4u);
  EXPECT_THAT(entry[0], test::MatchesStdRegex(kThreadColumn + R"(ENTRY *>\[ 1\] DbgMsgTest:.*b=2)"));
  EXPECT_THAT(entry[1], test::MatchesStdRegex(kThreadColumn + R"(ENTRY *>\[ 2\] DbgMsgTest:.*c=3)"));
}

TEST_F(DbgMsgTest, DepthLimitSilencesDeeperScopesButKeepsTheirFrames) {
  DbgMsg::setEntryParams(true, 2);
  struct Probe {
    static void deepest() {
      QIM_ENTRY("deep");
      DbgMsg::printBackTrace();
    }
    static void middle() {
      QIM_ENTRY("middle");
      deepest();
    }
    static void top() {
      QIM_ENTRY("top");
      middle();
    }
  };
  Probe::top();
  EXPECT_TRUE(sink_.linesWith(") deep").empty());
  EXPECT_EQ(sink_.linesWith("<ret Time:").size(), 2u);
  EXPECT_EQ(sink_.linesWith("[ 3] QIM::`anonymous-namespace'::DbgMsgTest_DepthLimit").size(), 1u);
}

TEST_F(DbgMsgTest, BackTraceListsFramesNewestFirstThenStackInfo) {
  struct Probe {
    static void inner() {
      QIM_ENTRY();
      DbgMsg::setStackInfo("posted from elsewhere");
      DbgMsg::printBackTrace();
    }
    static void outer() {
      QIM_ENTRY();
      inner();
    }
  };
  DbgMsg::initChannels("-all");  // frames are listed whatever the channels
  Probe::outer();
  const auto lines = sink_.lines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_THAT(lines[0], test::MatchesStdRegex("Stack trace for thread [0-9A-F]{4,}"));
  EXPECT_THAT(lines[1], test::MatchesStdRegex(R"(\[ 2\] QIM::.*Probe::inner\(\)    <DbgMsgTest:[0-9]+>)"));
  EXPECT_THAT(lines[2], test::MatchesStdRegex(R"(\[ 1\] QIM::.*Probe::outer\(\)    <DbgMsgTest:[0-9]+>)"));
  EXPECT_EQ(lines[3], "Additional information: ");
  EXPECT_EQ(lines[4], "posted from elsewhere");
}

TEST_F(DbgMsgTest, BackTraceWithNoFramesIsOneLine) {
  DbgMsg::printBackTrace();
  const auto lines = sink_.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0], test::MatchesStdRegex("Stack trace for thread [0-9A-F]{4,}"));
}

TEST_F(DbgMsgTest, LoggingIsOffForTheThreadWhilePrintingABackTrace) {
  // A sink that logs from inside delivery must not re-enter the facility.
  struct ReentrantSink : test::CaptureSink {
    std::vector<bool> openSeen;
    void doLogging(const std::string& line, const DbgMsg::LogLineType& type) override {
      openSeen.push_back(DbgMsg::isOpen(DbgMsg::ErrorId));
      QIM_ERROR("nested");
      test::CaptureSink::doLogging(line, type);
    }
  } reentrant;
  DbgMsg::setLogDest(&reentrant);
  DbgMsg::printBackTrace();
  DbgMsg::setLogDest(&sink_);
  EXPECT_THAT(reentrant.openSeen, ElementsAre(false));
  EXPECT_TRUE(DbgMsg::isOpen(DbgMsg::ErrorId));  // restored afterwards
}

TEST_F(DbgMsgTest, AdvancedUserDestinationTakesEveryLine) {
  test::CaptureSink adv;
  DbgMsg::setAdvUserLogDest(&adv);
  QIM_ERROR("ordinary");
  QIM_TRACE(DbgMsg::AdvUserLogId, "bare user text");
  DbgMsg::setAdvUserLogDest(nullptr);
  EXPECT_TRUE(sink_.lines().empty());
  const auto lines = adv.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], HasSubstr("ordinary"));
  EXPECT_EQ(lines[1], "bare user text");
}

TEST_F(DbgMsgTest, AdvUserLogLinesCarryHeaderWithoutAdvancedDestination) {
  QIM_TRACE(DbgMsg::AdvUserLogId, "text");
  EXPECT_THAT(sink_.lines(), ElementsAre(test::MatchesStdRegex(kThreadColumn + "ADVUSERLOG *> .* text")));
}

TEST_F(DbgMsgTest, AssertionWritesLineThenBackTraceAndContinues) {
  bool continued = false;
  {
    QIM_ENTRY();
    errno = 0;
    const int value = 2;
    QIM_ASSERT(value == 1, "value is " << value);
    continued = true;
  }
  EXPECT_TRUE(continued);
  const auto lines = sink_.lines();
  ASSERT_GE(lines.size(), 4u);
  EXPECT_THAT(lines[1], test::MatchesStdRegex(kThreadColumn + R"(ERROR *> DbgMsgTest:[0-9]+ \(.*\) )"
                                     R"(Assertion failed: "value == 1" : value is 2  OS ERROR: [0-9]+ errno: 0)"));
  EXPECT_THAT(lines[2], HasSubstr("Stack trace for thread "));
  EXPECT_THAT(lines[3], test::MatchesStdRegex(R"(\[ 1\] .*AssertionWritesLine.*\(\)    <DbgMsgTest:[0-9]+>)"));
}

TEST_F(DbgMsgTest, AssertionWithoutMessageAndClosedErrorStillPrintsBackTrace) {
  DbgMsg::toggleChannel(DbgMsg::ErrorId, false);
  QIM_ASSERT(1 + 1 == 3);
  EXPECT_THAT(sink_.lines(), ElementsAre(HasSubstr("Stack trace for thread ")));
  DbgMsg::toggleChannel(DbgMsg::ErrorId, true);
  QIM_ASSERT(1 + 1 == 3);
  EXPECT_THAT(sink_.lines()[1], test::MatchesStdRegex(R"(.*\) Assertion failed: "1 \+ 1 == 3"  OS ERROR: .*)"));
}

TEST_F(DbgMsgTest, ThrowWritesItsLineBeforeThrowing) {
  const auto throwIt = [] {
    QIM_THROW(FileNotFoundException, "File not found", "path=" << "x.ini");
  };
  EXPECT_THROW(throwIt(), FileNotFoundException);
  EXPECT_THAT(sink_.lines(), ElementsAre(HasSubstr(R"(ThrowWritesItsLineBeforeThrowing_Test::TestBody::<lambda>) Throwing FileNotFoundException("File not found") : path=x.ini)")));
}

TEST_F(DbgMsgTest, LastErrorIdPrefersErrno) {
  errno = 0;
  const unsigned int os = DbgMsg::GetLastErrorId();
  errno = ENOENT;
  EXPECT_EQ(DbgMsg::GetLastErrorId(), static_cast<unsigned>(ENOENT));
  EXPECT_EQ(DbgMsg::GetErrno(), ENOENT);
  errno = 0;
  EXPECT_EQ(DbgMsg::GetLastErrorId(), os);
}

TEST(DbgMsgChannels, InitChannelsAppliesItemsInOrder) {
  DbgMsg::initChannels("+all:-ENTRY");
  EXPECT_TRUE(DbgMsg::isOpen(DbgMsg::ErrorId));
  EXPECT_FALSE(DbgMsg::isOpen(DbgMsg::EntryId));
  EXPECT_TRUE(DbgMsg::isOpen(DbgMsg::AdvUserLogId));

  // A channel configured before any module asked for it keeps that state,
  // and "all" also decides channels made later.
  DbgMsg::initChannels("-all:+CONFIGURED_FIRST");
  EXPECT_TRUE(DbgMsg::isOpen(DbgMsg::getChannelByName("CONFIGURED_FIRST")));
  EXPECT_FALSE(DbgMsg::isOpen(DbgMsg::getChannelByName("MADE_AFTER_MINUS_ALL")));
  DbgMsg::initChannels("+all");
  EXPECT_TRUE(DbgMsg::isOpen(DbgMsg::getChannelByName("MADE_AFTER_PLUS_ALL")));

  DbgMsg::initChannels(nullptr);
  EXPECT_TRUE(DbgMsg::isOpen(DbgMsg::ErrorId));
  EXPECT_FALSE(DbgMsg::isOpen(DbgMsg::EntryId));
  EXPECT_TRUE(DbgMsg::isOpen(DbgMsg::AdvUserLogId));
  EXPECT_FALSE(DbgMsg::isOpen(DbgMsg::getChannelByName("CONFIGURED_FIRST")));
}

TEST(DbgMsgChannels, NamesAreExactAndBadNumbersAreClosed) {
  EXPECT_EQ(DbgMsg::getChannelByName("ERROR"), DbgMsg::ErrorId);
  EXPECT_EQ(DbgMsg::getChannelByName("ENTRY"), DbgMsg::EntryId);
  EXPECT_EQ(DbgMsg::getChannelByName("ADVUSERLOG"), DbgMsg::AdvUserLogId);
  EXPECT_NE(DbgMsg::getChannelByName("error"), DbgMsg::ErrorId);
  EXPECT_EQ(DbgMsg::getChannelByName(nullptr), -1);
  EXPECT_FALSE(DbgMsg::isOpen(-1));
  EXPECT_FALSE(DbgMsg::isOpen(DbgMsg::MaxChannels));
  DbgMsg::toggleChannel(DbgMsg::MaxChannels + 5, true);  // ignored, no crash
  EXPECT_STREQ(DbgMsg::channelName(DbgMsg::EntryId), "ENTRY");
  EXPECT_EQ(DbgMsg::channelName(-3), nullptr);
}

struct NameCase {
  const char* label;
  const char* pretty;
  const char* expected;
};

void PrintTo(const NameCase& c, std::ostream* os) { *os << c.label; }

class FunctionNameTest : public ::testing::TestWithParam<NameCase> {};

TEST_P(FunctionNameTest, ReducesSignatureToQualifiedName) {
  EXPECT_STREQ(DbgMsg::detail::functionName(GetParam().pretty), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Signatures, FunctionNameTest,
    ::testing::Values(
        NameCase{"Member", "void QIM::ActionThread::stop(QIM::ActionThread::StopStyle, int)",
                 "QIM::ActionThread::stop"},
        NameCase{"AnonymousNamespace", "void* QIM::{anonymous}::threadFunc(void*)",
                 "QIM::`anonymous-namespace'::threadFunc"},
        NameCase{"CallOperator", "void QIM::Functor::operator()()", "QIM::Functor::operator()"},
        NameCase{"Qualifiers", "int QIM::A::get() const noexcept", "QIM::A::get"},
        NameCase{"Constructor", "QIM::A::A()", "QIM::A::A"},
        NameCase{"Template",
                 "void QIM::FunctorExecutors::ExecutorM0<T, F>::execute() "
                 "[with T = Foo; F = void (Foo::*)()]",
                 "QIM::FunctorExecutors::ExecutorM0<T, F>::execute"},
        NameCase{"TemplateReturn", "std::map<int, std::list<int> > QIM::X::f(std::pair<int, int>)",
                 "QIM::X::f"},
        NameCase{"Lambda", "QIM::X::run(int)::<lambda()>", "QIM::X::run::<lambda>"},
        NameCase{"MsvcSignature", "void __cdecl QIM::ActionThread::stop(enum QIM::StopStyle)",
                 "QIM::ActionThread::stop"},
        NameCase{"BareName", "main", "main"},
        NameCase{"Empty", "", ""}),
    [](const ::testing::TestParamInfo<NameCase>& info) { return std::string(info.param.label); });

TEST(DbgMsgFileName, KeepsBareNameWithoutFolderOrExtension) {
  EXPECT_STREQ(DbgMsg::detail::fileName("/src/misc/ActionThread.cpp"), "ActionThread");
  EXPECT_STREQ(DbgMsg::detail::fileName("C:\\src\\misc\\functor.h"), "functor");
  EXPECT_STREQ(DbgMsg::detail::fileName("NoExtension"), "NoExtension");
  EXPECT_STREQ(DbgMsg::detail::fileName("dir.d/.hidden"), ".hidden");
}

TEST_F(DbgMsgTest, StackTraceFormatsTheCapturedMoment) {
  struct Probe {
    static DbgMsg::StackTrace capture() {
      QIM_ENTRY();
      return DbgMsg::StackTrace();
    }
  };
  DbgMsg::setStackInfo("info line");
  const DbgMsg::StackTrace trace = Probe::capture();
  DbgMsg::setStackInfo("changed later");
  const std::string text = trace.format();
  EXPECT_THAT(text, test::MatchesStdRegex("Delayed stack trace for thread [0-9A-F]{4,}\n"
                                 R"(\[ 1\] .*Probe::capture\(\)    <DbgMsgTest:[0-9]+>)"
                                 "\nAdditional information: \ninfo line"));
  sink_.clear();
  trace.print();
  EXPECT_THAT(sink_.lines(), ElementsAre(text));
}

TEST_F(DbgMsgTest, TeeLoggerFeedsBothSinksInOrder) {
  test::CaptureSink second;
  DbgMsg::TeeLogger tee(&sink_, &second);
  DbgMsg::setLogDest(&tee);
  QIM_ERROR("both");
  DbgMsg::setLogDest(&sink_);
  EXPECT_EQ(sink_.lines(), second.lines());
  EXPECT_EQ(sink_.lines().size(), 1u);
}

std::vector<std::string> readLines(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST_F(DbgMsgTest, FileLoggerTruncatesAndWritesOneLinePerCall) {
  const std::string path = ::testing::TempDir() + "qimmisc_filelogger.log";
  { std::ofstream(path) << "old content\n"; }
  {
    FileLogger file(path.c_str());
    ASSERT_TRUE(file.isOpen());
    DbgMsg::setLogDest(&file);
    QIM_ERROR("first");
    // Readable by someone else while the logger holds it, and already there.
    EXPECT_THAT(readLines(path), ElementsAre(HasSubstr(") first")));
    QIM_ERROR("second");
    DbgMsg::setLogDest(&sink_);
  }
  EXPECT_THAT(readLines(path), ElementsAre(HasSubstr(") first"), HasSubstr(") second")));
  std::remove(path.c_str());
}

TEST_F(DbgMsgTest, FileLoggerOnUnopenablePathLosesLinesQuietly) {
  FileLogger file((::testing::TempDir() + "no/such/dir/x.log").c_str());
  EXPECT_FALSE(file.isOpen());
  DbgMsg::setLogDest(&file);
  QIM_ERROR("lost");
  DbgMsg::setLogDest(&sink_);
}

TEST_F(DbgMsgTest, ConcurrentTracingWhileSwappingSinksKeepsLinesWhole) {
  const std::string path = ::testing::TempDir() + "qimmisc_concurrent.log";
  FileLogger file(path.c_str());
  test::CaptureSink other;
  std::atomic<bool> stop{false};
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([&stop, t] {
      for (int i = 0; i < 2000 && !stop.load(); ++i) {
        QIM_ENTRY("t=" << t);
        QIM_ERROR("writer " << t << " line " << i << " end");
      }
    });
  }
  for (int i = 0; i < 200; ++i) {
    DbgMsg::setLogDest(i % 3 == 0 ? static_cast<DbgMsg::LineLogger*>(&file)
                       : i % 3 == 1 ? static_cast<DbgMsg::LineLogger*>(&other)
                                    : nullptr);
    DbgMsg::toggleChannel(DbgMsg::EntryId, i % 2 == 0);
    std::this_thread::yield();
  }
  stop = true;
  for (auto& w : writers) w.join();
  DbgMsg::setLogDest(&sink_);

  const std::regex whole(kThreadColumn + R"((ERROR *> .*writer [0-3] line [0-9]+ end|ENTRY *> .*))");
  std::vector<std::string> all = readLines(path);
  const auto captured = other.lines();
  all.insert(all.end(), captured.begin(), captured.end());
  for (const auto& line : all) EXPECT_TRUE(std::regex_match(line, whole)) << line;
  std::remove(path.c_str());
}

}  // namespace
}  // namespace QIM
