// Calls rebuilt from ENTRY lines: which return ends which call, and what is
// reported when a return line is missing, never guessed.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "CallTracker.h"

namespace qimtool {
namespace {

// "<thread> <depth> <function> [usec]": an entry, or a return when a time
// is given; "<thread> SIP <function> usec" a return on another channel.
std::string lineOf(const std::string& shorthand) {
  char thread[8], depth[8], function[32];
  long long usec = -1;
  const int n = std::sscanf(shorthand.c_str(), "%7s %7s %31s %lld", thread, depth, function, &usec);
  EXPECT_GE(n, 3) << shorthand;
  const std::string channel = std::string(depth) == "SIP" ? "SIP  >" : "ENTRY>[" + std::string(depth).insert(0, 2 - std::string(depth).size(), ' ') + "]";
  return "[" + std::string(thread) + "] " + channel + " F:1 (" + function + ") " +
         (usec >= 0 ? "<ret Time:" + std::to_string(usec) + " usec>" : "args");
}

class Events : public CallListener {
 public:
  const CallTracker* calls = nullptr;
  std::vector<std::string> seen;
  std::string name(const OpenCall& call) const { return calls->functionName(call.function); }
  void onReturn(std::uint64_t, const OpenCall& call, long long usec, const ReadLine&) override {
    seen.push_back("ret " + name(call) + " " + std::to_string(usec) + " callees " + std::to_string(call.calleeUsec));
  }
  void onUnreturned(std::uint64_t, const OpenCall& call, Unreturned why) override {
    static const char* const whys[] = {"end", "new entry", "outer return"};
    seen.push_back("open " + name(call) + ": " + whys[static_cast<int>(why)]);
  }
  void onOrphanReturn(std::uint64_t, const ReadLine& line) override {
    seen.push_back("orphan " + std::string(line.fields.function));
  }
};

struct CallCase {
  const char* label;
  std::vector<std::string> lines;
  std::vector<std::string> events;
  const char* folded;  // "path self;..." of the calling-context tree
};

void PrintTo(const CallCase& c, std::ostream* os) { *os << c.label; }

class CallTest : public ::testing::TestWithParam<CallCase> {};

std::string foldedOf(const CallTracker& calls) {
  std::string out;
  for (std::uint32_t id = 1; id < calls.nodeCount(); ++id) {
    std::string path;
    for (std::uint32_t at = id; at != 0; at = calls.node(at).parent) {
      path = calls.functionName(calls.node(at).function) + (path.empty() ? "" : ">") + path;
    }
    out += path + " " + std::to_string(calls.node(id).selfUsec) + "/" + std::to_string(calls.node(id).unreturned) + ";";
  }
  return out;
}

TEST_P(CallTest, ReturnsEndTheirCallsAndMissingOnesAreReported) {
  Events events;
  CallTracker calls(&events, true);
  events.calls = &calls;
  std::uint64_t number = 0;
  for (const std::string& shorthand : GetParam().lines) {
    const std::string text = lineOf(shorthand);
    QIM::DbgMsg::TraceLine fields;
    ASSERT_TRUE(QIM::DbgMsg::parseTraceLine(text, fields)) << text;
    calls.onLine(ReadLine{fields, text, LineRole::Library, {0, ++number}});
  }
  calls.onEnd();
  EXPECT_EQ(events.seen, GetParam().events);
  EXPECT_EQ(foldedOf(calls), GetParam().folded);
}

INSTANTIATE_TEST_SUITE_P(Lines, CallTest, ::testing::Values(
    CallCase{"Nested", {"0A3C 1 a", "0A3C 2 b", "0A3C 2 b 5", "0A3C 1 a 20"},
             {"ret b 5 callees 0", "ret a 20 callees 5"}, "a 15/0;a>b 5/0;"},
    CallCase{"Recursion", {"0A3C 1 f", "0A3C 2 f", "0A3C 2 f 3", "0A3C 1 f 10"},
             {"ret f 3 callees 0", "ret f 10 callees 3"}, "f 7/0;f>f 3/0;"},
    CallCase{"InnerReturnLineMissing", {"0A3C 1 a", "0A3C 2 b", "0A3C 1 a 20"},
             {"open b: outer return", "ret a 20 callees 0"}, "a 20/0;a>b 0/1;"},
    CallCase{"NextCallAtTheSameDepth", {"0A3C 1 a", "0A3C 2 b", "0A3C 2 c", "0A3C 2 c 4"},
             {"open b: new entry", "ret c 4 callees 0", "open a: end"}, "a 0/1;a>b 0/1;a>c 4/0;"},
    CallCase{"ThreadDiedOthersGoOn", {"0B10 1 op", "0A3C 1 a", "0A3C 1 a 2"},
             {"ret a 2 callees 0", "open op: end"}, "op 0/1;a 2/0;"},
    CallCase{"ReturnWithoutEntryOrOfAnother", {"0A3C 3 z 1", "0A3C 1 a", "0A3C 1 b 2", "0A3C 1 a 7"},
             {"orphan z", "orphan b", "ret a 7 callees 0"}, "a 7/0;"},
    CallCase{"OtherChannelsAreNotCalls", {"0A3C 1 a", "0A3C SIP a 9", "0A3C 1 a 9"},
             {"ret a 9 callees 0"}, "a 9/0;"},
    CallCase{"CalleesLongerThanTheCallerLeaveNoNegativeSelf", {"0A3C 1 a", "0A3C 2 b", "0A3C 2 b 9", "0A3C 1 a 8"},
             {"ret b 9 callees 0", "ret a 8 callees 9"}, "a 0/0;a>b 9/0;"}),
    [](const auto& param) { return std::string(param.param.label); });

TEST(CallTracker, OneThreadOnlyWhenAsked) {
  const std::uint64_t thread = 0x0B10;
  CallTracker calls(nullptr, true, &thread);
  for (const std::string shorthand : {"0A3C 1 a", "0B10 1 b", "0B10 1 b 4", "0A3C 1 a 9"}) {
    const std::string text = lineOf(shorthand);
    QIM::DbgMsg::TraceLine fields;
    ASSERT_TRUE(QIM::DbgMsg::parseTraceLine(text, fields));
    calls.onLine(ReadLine{fields, text, LineRole::Library, {}});
  }
  EXPECT_EQ(calls.returned(), 1u);
  EXPECT_EQ(foldedOf(calls), "b 4/0;");
}

}  // namespace
}  // namespace qimtool
