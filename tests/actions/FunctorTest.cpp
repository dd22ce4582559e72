#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "qimmisc/functor.h"

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace QIM {
namespace {

using FunctorTest = test::TracingTest;

struct Counter {
  int calls = 0;
  int last = 0;
  int bump() { return ++calls; }
  void add(int n) {
    ++calls;
    last = n;
  }
  void addRef(const std::string& s) { last = static_cast<int>(s.size()); }
};

TEST_F(FunctorTest, MemberExecutorsCallTheirTarget) {
  Counter c;
  Functor f = makeFunctor(&c, &Counter::bump);
  f();
  f();
  Functor g = makeFunctor(&c, &Counter::add, 7);
  g();
  EXPECT_EQ(c.calls, 3);
  EXPECT_EQ(c.last, 7);
  std::string text = "four";
  Functor h = makeFunctor(&c, &Counter::addRef, text);
  text = "changed";  // the argument was copied at creation
  h();
  EXPECT_EQ(c.last, 4);
}

TEST_F(FunctorTest, EmptyFunctorDoesNothingAndWritesNothing) {
  Functor empty;
  EXPECT_TRUE(empty.empty());
  empty();
  EXPECT_TRUE(sink_.lines().empty());
}

TEST_F(FunctorTest, NullExecutorIsReportedAndLeavesFunctorEmpty) {
  Functor f(static_cast<Functor::Executor*>(nullptr));
  EXPECT_TRUE(f.empty());
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0!=executor_")").size(), 1u);
}

TEST_F(FunctorTest, NullObjectSkipsEachCallWithALine) {
  Functor f = makeFunctor(static_cast<Counter*>(nullptr), &Counter::bump);
  EXPECT_EQ(sink_.linesWith(R"(Assertion failed: "0!=obj_")").size(), 1u);
  sink_.clear();
  f();
  f();
  const auto skipped = sink_.linesWith("Functor execution skipped: obj_ is NULL!");
  ASSERT_EQ(skipped.size(), 2u);
  EXPECT_THAT(skipped[0], HasSubstr("(QIM::FunctorExecutors::ExecutorM0<T, F>::execute) "));
  EXPECT_TRUE(Functor::nullPointerDetected.load());
}

TEST_F(FunctorTest, CopiesOwnTheirExecutorAndDropThePostingTrace) {
  int calls = 0;
  Functor original = makeFunctor([&calls] { ++calls; });
  original.saveStackTrace();
  ASSERT_FALSE(original.stackTrace().empty());

  Functor copy(original);
  EXPECT_TRUE(copy.stackTrace().empty());
  Functor assigned;
  assigned.saveStackTrace();
  assigned = original;
  EXPECT_TRUE(assigned.stackTrace().empty());

  { Functor gone(original); }  // destroying one copy leaves the others whole
  original();
  copy();
  assigned();
  EXPECT_EQ(calls, 3);

  Functor moved(std::move(original));
  EXPECT_TRUE(original.empty());
  EXPECT_FALSE(moved.stackTrace().empty());
}

TEST_F(FunctorTest, SwapExchangesExecutorsAndTraces) {
  int a = 0, b = 0;
  Functor fa = makeFunctor([&a] { ++a; });
  Functor fb = makeFunctor([&b] { ++b; });
  fa.saveStackTrace();
  fa.swap(fb);
  fa();
  EXPECT_EQ(b, 1);
  EXPECT_TRUE(fa.stackTrace().empty());
  EXPECT_FALSE(fb.stackTrace().empty());
}

void postSite(Functor& f) {
  QIM_ENTRY();
  f.saveStackTrace();
}

TEST_F(FunctorTest, RunningInstallsThePostingTraceAndRestoresTheOldInfo) {
  std::string seenInside;
  Functor f = makeFunctor([&seenInside] { seenInside = DbgMsg::getStackInfo(); });
  postSite(f);
  DbgMsg::setStackInfo("outer info");
  f();
  EXPECT_THAT(seenInside, StartsWith("Delayed stack trace for thread "));
  EXPECT_THAT(seenInside, HasSubstr("QIM::`anonymous-namespace'::postSite()    <FunctorTest:"));
  EXPECT_EQ(DbgMsg::getStackInfo(), "outer info");
  // The call writes its own empty ENTRY line.
  EXPECT_EQ(sink_.linesWith("(QIM::Functor::operator()) ").size(), 2u);
}

TEST_F(FunctorTest, InfoIsRestoredWhenTheActionThrows) {
  Functor f = makeFunctor([] { throw std::runtime_error("boom"); });
  f.saveStackTrace();
  DbgMsg::setStackInfo("before");
  EXPECT_THROW(f(), std::runtime_error);
  EXPECT_EQ(DbgMsg::getStackInfo(), "before");
}

TEST_F(FunctorTest, PostingTraceIsCutAt10000Characters) {
  // Nested posting: each level's trace carries the previous one as its
  // additional information, so the text grows past the limit.
  Functor f = makeFunctor([] {});
  DbgMsg::setStackInfo(std::string(20000, 'x'));
  f.saveStackTrace();
  DbgMsg::setStackInfo("");
  const std::string text = f.stackTrace();
  EXPECT_EQ(text.size(), Functor::MaxStackTraceLength);
  EXPECT_THAT(text, StartsWith("Delayed stack trace for thread "));
  EXPECT_EQ(text.back(), 'x');
}

}  // namespace
}  // namespace QIM
