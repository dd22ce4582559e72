// Lines written by the real facility, read back to the fields that went in.
#include <cctype>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/Trace.h"
#include "qimmisc/TraceLineParser.h"

namespace QIM {
namespace {

using DbgMsg::DepthMarker;
using DbgMsg::TraceLine;
using Kind = DbgMsg::TraceLineKind;

// Wider than any other channel name the tests use, so it sets the column.
const char kWide[] = "PARSER_TEST_CHANNEL_WIDER_THAN_EVERY_OTHER_NAME";
const std::string kFile = "TraceLineParserTest";
const std::string kAnon = "QIM::`anonymous-namespace'::";

int innerLine = 0, throwLine = 0;  // __LINE__ of the helpers' sites

void inner() { innerLine = __LINE__; QIM_ENTRY("c=" << 3); }
void outer() { QIM_ENTRY("b=" << 2 << " text with ) and :1 ("); inner(); }
void nest(int levels) {
  QIM_ENTRY("left=" << levels);
  if (levels > 1) nest(levels - 1);
}
void throwIt() { throwLine = __LINE__; QIM_THROW(FileNotFoundException, "File \"x\" not found", "path=" << "a b.ini"); }

// Every line delivered, each StackTrace block split at its line ends, parsed;
// the line after "Additional information: " is the host's own text.
class ParsedLinesTest : public test::TracingTest {
 protected:
  std::vector<TraceLine> parsed() {
    lines_.clear();
    for (const std::string& delivered : sink_.lines()) {
      for (std::size_t at = 0, end; at <= delivered.size(); at = end + 1) {
        end = delivered.find('\n', at);
        if (end == std::string::npos) end = delivered.size();
        lines_.push_back(delivered.substr(at, end - at));
      }
    }
    std::vector<TraceLine> out(lines_.size());
    for (std::size_t i = 0; i < lines_.size(); ++i) {
      const bool info = i > 0 && out[i - 1].kind == Kind::AdditionalInfo;
      EXPECT_TRUE(DbgMsg::parseTraceLine(lines_[i], out[i]) || info) << lines_[i];
    }
    return out;
  }
  std::vector<std::string> lines_;  // kept: the fields point into them
};

void expectSite(const TraceLine& line, Kind kind, const std::string& function, int at) {
  EXPECT_EQ(line.kind, kind);
  EXPECT_EQ(line.file, kFile);
  EXPECT_EQ(line.function, kAnon + function);
  if (at) {
    EXPECT_EQ(line.line, at);
  }
}

TEST_F(ParsedLinesTest, HeaderFieldsOnEveryChannelComeBack) {
  const int wide = DbgMsg::getChannelByName(kWide);
  const int line = __LINE__ + 1;
  QIM_TRACE(wide, "wide text");
  QIM_ERROR("padded ) text: 5 (x)");
  QIM_TRACE(DbgMsg::AdvUserLogId, "");
  DbgMsg::printBackTrace();
  const auto lines = parsed();
  ASSERT_EQ(lines.size(), 4u);
  const std::vector<std::string> channels = {kWide, "ERROR", "ADVUSERLOG"};
  const std::vector<std::string> texts = {"wide text", "padded ) text: 5 (x)", ""};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(lines[i].kind, Kind::Trace);
    EXPECT_EQ(lines[i].channel, channels[i]);
    EXPECT_EQ(lines[i].channelWidth, sizeof kWide - 1);
    EXPECT_EQ(lines[i].marker, DepthMarker::None);
    EXPECT_EQ(lines[i].file, kFile);
    EXPECT_EQ(lines[i].line, line + i);
    EXPECT_EQ(lines[i].function, "QIM::`anonymous-namespace'::ParsedLinesTest_HeaderFieldsOnEveryChannelComeBack_Test::TestBody");
    EXPECT_EQ(lines[i].text, texts[i]);
    EXPECT_EQ(lines[i].thread, lines[3].thread);
  }
  EXPECT_EQ(lines[3].kind, Kind::BackTraceHead);
}

struct EntryCase {
  const char* label;
  bool arrows;
};

class EntryLinesTest : public ParsedLinesTest, public ::testing::WithParamInterface<EntryCase> {};

TEST_P(EntryLinesTest, CallsComeBackWithDepthArgumentsAndTime) {
  DbgMsg::setEntryParams(GetParam().arrows, -1);
  outer();
  nest(12);  // two-digit depths
  const auto lines = parsed();
  ASSERT_EQ(lines.size(), 4u + 24u);
  const DepthMarker marker = GetParam().arrows ? DepthMarker::Arrows : DepthMarker::Brackets;
  const struct { Kind kind; const char* function; int depth; std::string text; } expected[] = {
      {Kind::Entry, "outer", 1, "b=2 text with ) and :1 ("}, {Kind::Entry, "inner", 2, "c=3"},
      {Kind::Return, "inner", 2, ""}, {Kind::Return, "outer", 1, ""}};
  for (int i = 0; i < 4; ++i) {
    expectSite(lines[i], expected[i].kind, expected[i].function, expected[i].function[0] == 'i' ? innerLine : 0);
    EXPECT_EQ(lines[i].channel, "ENTRY");
    EXPECT_EQ(lines[i].marker, marker);
    EXPECT_EQ(lines[i].depth, expected[i].depth);
    if (expected[i].kind == Kind::Entry) {
      EXPECT_EQ(lines[i].text, expected[i].text);
    } else {
      EXPECT_GE(lines[i].usec, 0);
    }
  }
  for (int depth = 1; depth <= 12; ++depth) {
    const TraceLine& entry = lines[3 + depth];
    const TraceLine& ret = lines[lines.size() - depth];
    EXPECT_EQ(entry.text, "left=" + std::to_string(13 - depth));
    EXPECT_TRUE(entry.kind == Kind::Entry && ret.kind == Kind::Return);
    EXPECT_TRUE(entry.depth == depth && ret.depth == depth) << lines_[3 + depth];
  }
}

INSTANTIATE_TEST_SUITE_P(Styles, EntryLinesTest,
                         ::testing::Values(EntryCase{"Arrows", true}, EntryCase{"Brackets", false}),
                         [](const auto& param) { return std::string(param.param.label); });

TEST_F(ParsedLinesTest, AssertionThrowAndBothTracesComeBack) {
  DbgMsg::setStackInfo("set by the host");
  std::string text = "a";
  const int line = __LINE__ + 1;
  QIM_ASSERT(text == "b : \"c\"", "text is " << text << " : really");
  QIM_ASSERT(text.empty());
  EXPECT_THROW(throwIt(), FileNotFoundException);
  {
    QIM_ENTRY();
    inner();  // the back-trace's frames are printed from inside
    DbgMsg::StackTrace().print();
  }
  const auto lines = parsed();
  // Assertion, back-trace head, additional information and its line, twice.
  ASSERT_GE(lines.size(), 9u);
  expectSite(lines[0], Kind::Assertion, "ParsedLinesTest_AssertionThrowAndBothTracesComeBack_Test::TestBody", line);
  EXPECT_EQ(lines[0].condition, "text == \"b : \\\"c\\\"\"");
  EXPECT_EQ(lines[0].message, "text is a : really");
  EXPECT_EQ(lines[1].kind, Kind::BackTraceHead);
  EXPECT_EQ(lines[1].thread, lines[0].thread);
  EXPECT_EQ(lines[2].kind, Kind::AdditionalInfo);
  EXPECT_EQ(lines_[3], "set by the host");
  EXPECT_EQ(lines[4].condition, "text.empty()");
  EXPECT_EQ(lines[4].message, "");
  expectSite(lines[8], Kind::Throw, "throwIt", throwLine);
  EXPECT_EQ(lines[8].exceptionType, "FileNotFoundException");
  EXPECT_EQ(lines[8].exceptionMessage, "File \"x\" not found");
  EXPECT_EQ(lines[8].detail, "path=a b.ini");
  // ENTRY lines of the block, then the delayed trace with frames 2 and 1.
  std::size_t delayed = 9;
  while (delayed < lines.size() && lines[delayed].kind != Kind::DelayedTraceHead) ++delayed;
  ASSERT_LT(delayed + 3, lines.size());
  EXPECT_EQ(lines[delayed].thread, lines[0].thread);
  EXPECT_EQ(lines[delayed + 1].kind, Kind::Frame);
  EXPECT_EQ(lines[delayed + 1].frameNumber, 1);
  EXPECT_EQ(lines[delayed + 1].file, kFile);
  EXPECT_EQ(lines[delayed + 1].function, "QIM::`anonymous-namespace'::ParsedLinesTest_AssertionThrowAndBothTracesComeBack_Test::TestBody");
  EXPECT_EQ(lines[delayed + 2].kind, Kind::AdditionalInfo);
}

TEST_F(ParsedLinesTest, BackTraceFramesCountDownWithTheirSites) {
  DbgMsg::toggleChannel(DbgMsg::EntryId, false);  // frames only
  const struct Scope {
    explicit Scope(int depth) {
      if (depth == 0) {
        DbgMsg::printBackTrace();
        return;
      }
      const DbgMsg::Locus locus{DbgMsg::EntryId, "Deep Site", 100 + depth, "ns::f<int>::operator()", "??? ?? ????"};
      DbgMsg::StackLogger frame(locus);
      Scope{depth - 1};
    }
  } scope(11);
  const auto lines = parsed();
  ASSERT_EQ(lines.size(), 12u);
  for (int n = 11; n >= 1; --n) {
    const TraceLine& frame = lines[12 - n];
    EXPECT_EQ(frame.kind, Kind::Frame) << lines_[12 - n];
    EXPECT_EQ(frame.frameNumber, n);
    EXPECT_EQ(frame.function, "ns::f<int>::operator()");
    EXPECT_EQ(frame.file, "Deep Site");
    EXPECT_EQ(frame.line, 112 - n);
  }
}

struct TextCase {
  const char* line;
  Kind kind;
  const char* field;  // the one field the case is about
};

// The test's name: the line with every character but letters and digits
// as '_'.
void PrintTo(const TextCase& c, std::ostream* os) {
  std::string name = *c.line ? c.line : "empty";
  for (char& ch : name) {
    if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
  }
  *os << name;
}

class TextTest : public ::testing::TestWithParam<TextCase> {};

std::string fieldOf(const TraceLine& line) {
  switch (line.kind) {
    case Kind::Trace: return std::string(line.function) + "|" + std::string(line.text);
    case Kind::Entry: return std::to_string(line.depth) + "|" + std::string(line.text);
    case Kind::Return: return std::to_string(line.usec);
    case Kind::Assertion:
      return std::string(line.condition) + "|" + std::string(line.message) + "|" +
             std::to_string(line.osError) + "|" + std::to_string(line.errnoValue);
    case Kind::Throw:
      return std::string(line.exceptionType) + "|" + std::string(line.exceptionMessage) + "|" +
             std::string(line.detail);
    case Kind::Frame: return std::to_string(line.frameNumber) + "|" + std::string(line.function);
    default: return std::to_string(line.thread);
  }
}

TEST_P(TextTest, ReadsAsTheLibraryWroteItOrNotAtAll) {
  TraceLine line;
  EXPECT_EQ(DbgMsg::parseTraceLine(GetParam().line, line), GetParam().kind != Kind::Foreign);
  EXPECT_EQ(line.kind, GetParam().kind);
  EXPECT_EQ(fieldOf(line), GetParam().field);
}

INSTANTIATE_TEST_SUITE_P(Lines, TextTest, ::testing::Values(
    TextCase{"[0A3C] ERROR> F:1 (A::operator()) t\r", Kind::Trace, "A::operator()|t"},
    TextCase{"[0A3C] ERROR> F:1 (f)", Kind::Trace, "f|"},  // trailing blank removed
    TextCase{"[1A3C5] CH WITH BLANK   > C:\\x:y:2 (f) ) (", Kind::Trace, "f|) ("},
    TextCase{"[0A3C] ENTRY> F:1 (f) ", Kind::Entry, "1|"},
    TextCase{"[0A3C] ENTRY>[ 0] F:1 (f) x", Kind::Entry, "0|x"},
    TextCase{"[0A3C] ENTRY>[123] F:1 (f) x", Kind::Entry, "123|x"},
    TextCase{"[0A3C] ENTRY>>>> F:1 (f) <ret Time:-12 usec>", Kind::Return, "-12"},
    TextCase{"[0A3C] OTHER> F:1 (f) <ret Time:0 usec>", Kind::Return, "0"},
    TextCase{"[0A3C] ERROR> F:1 (f) Assertion failed: \"a\"  OS ERROR: 0 errno: 0", Kind::Assertion, "a||0|0"},
    TextCase{"[0A3C] ERROR> F:1 (f) Assertion failed: \"\" :   OS ERROR: 5 errno: -1", Kind::Assertion, "||5|-1"},
    TextCase{"[0A3C] ERROR> F:1 (f) Throwing badalloc : ", Kind::Throw, "badalloc||"},
    TextCase{"[0A3C] ERROR> F:1 (f) Throwing std::bad_alloc(\"a\") : lasterror=5", Kind::Throw, "std::bad_alloc|a|lasterror=5"},
    TextCase{"[0A3C] ERROR> F:1 (f) Assertion failed: \"a\"  OS ERROR: 01 errno: 0", Kind::Trace, "f|Assertion failed: \"a\"  OS ERROR: 01 errno: 0"},
    TextCase{"[0A3C] ERROR> F:1 (f) <ret Time:x usec>", Kind::Trace, "f|<ret Time:x usec>"},
    TextCase{"[1000] f()    <F:1>", Kind::Frame, "1000|f"},
    TextCase{"[ 9] operator()()    <F:-1>", Kind::Frame, "9|operator()"},
    TextCase{"Stack trace for thread 12345", Kind::BackTraceHead, "74565"},
    TextCase{"Delayed stack trace for thread 0000", Kind::DelayedTraceHead, "0"},
    TextCase{"Additional information:", Kind::AdditionalInfo, "0"},
    // Lines the library never writes, and torn ones.
    TextCase{"", Kind::Foreign, "0"}, TextCase{"host line", Kind::Foreign, "0"},
    TextCase{"[0a3c] ERROR> F:1 (f) t", Kind::Foreign, "0"},
    TextCase{"[A3C] ERROR> F:1 (f) t", Kind::Foreign, "0"},
    TextCase{"[00A3C] ERROR> F:1 (f) t", Kind::Foreign, "0"},
    TextCase{"[0A3C] ERROR F:1 (f) t", Kind::Foreign, "0"},
    TextCase{"[0A3C] ERROR> F (f) t", Kind::Foreign, "0"},
    TextCase{"[0A3C] ERROR> F:01 (f) t", Kind::Foreign, "0"},
    TextCase{"[0A3C] ERROR> F:1 (f", Kind::Foreign, "0"},
    TextCase{"[0A3C] ERROR>F:2 (f) t", Kind::Foreign, "0"},
    TextCase{"[0A3C] ENTRY>[5] F:1 (f) t", Kind::Foreign, "0"},
    TextCase{"[0A3C] ENTRY>[ 12] F:1 (f) t", Kind::Foreign, "0"},
    TextCase{"[0A3C] ENTRY>[ 5 F:1 (f) t", Kind::Foreign, "0"},
    TextCase{"[0A3C] ENTRY", Kind::Foreign, "0"},
    TextCase{"[ 1] f()    <F:1", Kind::Foreign, "0"},
    TextCase{"[10 ] f()    <F:1>", Kind::Foreign, "0"},
    TextCase{"[1] f()    <F:1>", Kind::Foreign, "0"},
    TextCase{"[ 0] f()    <F:1>", Kind::Foreign, "0"},
    TextCase{"[ 1] f()   <F:1>", Kind::Foreign, "0"},
    TextCase{"Stack trace for thread 0A3", Kind::Foreign, "0"},
    TextCase{"Delayed stack trace for thread 0A3C ", Kind::Foreign, "0"},
    TextCase{"Additional information: x", Kind::Foreign, "0"}));

}  // namespace
}  // namespace QIM
