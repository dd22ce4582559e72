#include <algorithm>
#include <functional>
#include <optional>
#include <regex>

#include "TestSupport.h"
#include "diagnostics/PostingTrace.h"
#include "qimmisc/functor.h"

namespace QIM {
namespace {

// Frames whose Locus lives on this function's stack, as a host may build it.
void atDepth(int depth, int line, const std::function<void()>& at) {
  if (depth == 0) return at();
  const DbgMsg::Locus locus{DbgMsg::EntryId, "StackSite", line, "atDepth", "??? ?? ????"};
  DbgMsg::StackLogger frame(locus);
  atDepth(depth - 1, line, at);
}

class TraceTextTest : public test::TracingTest,
                      public ::testing::WithParamInterface<std::pair<int, std::string>> {};

// A back-trace, a StackTrace and a posting trace show one stack: the frames
// newest first, then the stack information; only the posting trace is cut.
// Captured frames are copies, right after their Locus is gone and its
// stack reused by another post.
TEST_P(TraceTextTest, ShowFramesNewestFirstThenTheInfo) {
  const auto& [depth, info] = GetParam();
  DbgMsg::initChannels("-all");  // frames are listed whatever the channels
  DbgMsg::setStackInfo(info);
  std::optional<DbgMsg::StackTrace> trace;
  Functor posted = makeFunctor([] {}), other = makeFunctor([] {});
  atDepth(depth, 7, [&] { DbgMsg::printBackTrace(); trace.emplace(); posted.saveStackTrace(); });
  atDepth(depth, 8, [&] { other.saveStackTrace(); });
  DbgMsg::setStackInfo("changed later");
  std::string backTrace;
  for (const auto& line : sink_.lines()) backTrace += (backTrace.empty() ? "" : "\n") + line;
  std::string text = "Delayed s" + backTrace.substr(1, backTrace.find('\n') - 1) + "\n";
  for (int i = depth; i >= 1; --i) text += "[ " + std::to_string(i) + "] atDepth()    <StackSite:7>\n";
  if (!info.empty()) text += "Additional information: \n" + info;
  EXPECT_EQ(trace->format(), text);
  EXPECT_EQ(posted.stackTrace(), text.substr(0, Functor::MaxStackTraceLength));
  EXPECT_EQ(other.stackTrace(), std::regex_replace(posted.stackTrace(), std::regex(":7>"), ":8>"));
  EXPECT_EQ(backTrace, "S" + text.substr(9, text.size() - 9 - (text.back() == '\n')));
}

INSTANTIATE_TEST_SUITE_P(Stacks, TraceTextTest,
                         ::testing::Values(std::pair(0, std::string()),
                                           std::pair(2, std::string("posted from elsewhere")),
                                           std::pair(1, std::string(20000, 'x'))));

// Periodic work: an action that posts itself again, turn after turn.
struct Repost {
  test::ManualQueue queue;
  int left = 100000;
  std::size_t peakTraces = 0;
  std::vector<std::string> early;  // the posting traces of turns 1 and 2

  void turn() {
    QIM_ENTRY();
    peakTraces = std::max(peakTraces, DbgMsg::detail::livePostingTraces());
    if (early.size() < 2) early.push_back(DbgMsg::getStackInfo());
    if (--left > 0) return queue.push_back(makeFunctor(this, &Repost::turn), 0);
    QIM_ASSERT(left > 0);  // the last turn prints its posting trace
  }
};

using StackTraceTest = test::TracingTest;

TEST_F(StackTraceTest, SelfRepostingActionKeepsBoundedTracesWithTheExactText) {
  DbgMsg::toggleChannel(DbgMsg::EntryId, false);
  Repost repost;
  repost.queue.push_back(makeFunctor(&repost, &Repost::turn), 0);
  repost.queue.runAll();
  EXPECT_LE(repost.peakTraces, 2 * DbgMsg::detail::PostingTrace::kMaxChain);
  // Turn k's trace is its own head, then the trace of turn k-1, all cut.
  const std::string link = "Additional information: \n";
  ASSERT_THAT(repost.early.at(1), ::testing::EndsWith(link + repost.early[0]));
  const std::string head = repost.early[1].substr(0, repost.early[1].size() - link.size() - repost.early[0].size());
  std::string late;
  while (late.size() < Functor::MaxStackTraceLength) late += head + link;
  EXPECT_EQ(sink_.lines().back(), late.substr(0, Functor::MaxStackTraceLength));
}

}  // namespace
}  // namespace QIM
