#include <stdexcept>

#include "TestSupport.h"
#include "qimmisc/functor.h"

namespace QIM {
namespace {

using FunctorTest = test::TracingTest;

struct Counter {
  int calls = 0;
  std::size_t last = 0;
  int bump() { return ++calls; }
  void add(const std::string& s) { last = s.size(); }
};

TEST_F(FunctorTest, ExecutorsCallTheirTargetOrReportANullOne) {
  Counter c;
  std::string text = "four";
  Functor calls[] = {makeFunctor(&c, &Counter::bump), makeFunctor(&c, &Counter::add, text),
                     makeFunctor([&c] { c.bump(); }), Functor(), Functor(static_cast<Functor::Executor*>(nullptr)),
                     makeFunctor(static_cast<Counter*>(nullptr), &Counter::bump)};
  text = "changed";  // the argument was copied at creation
  for (Functor& f : calls) f();
  EXPECT_TRUE(c.calls == 2 && c.last == 4 && calls[4].empty() && Functor::nullPointerDetected.load());
  const std::string lines[] = {R"(Assertion failed: "0!=executor_")", R"(Assertion failed: "0!=obj_")",
                               "(QIM::FunctorExecutors::ExecutorM0<T, F>::execute) "
                               "Functor execution skipped: obj_ is NULL!"};
  for (const auto& line : lines) EXPECT_EQ(sink_.linesWith(line).size(), 1u) << line;
  EXPECT_EQ(sink_.linesWith("(QIM::Functor::operator()) ").size(), 8u);  // ENTRY, return; 4 calls
}

// The posting trace is the thread's stack information while the action
// runs, however it ends; copies run the same call without it.
TEST_F(FunctorTest, OnlyMovesAndSwapsKeepThePostingTraceThatARunInstalls) {
  std::string inside;
  Functor original = makeFunctor([&inside] { inside = DbgMsg::getStackInfo(); throw std::runtime_error("x"); });
  original.saveStackTrace();
  const std::string trace = original.stackTrace();
  Functor copy(original), assigned, swapped;
  assigned.saveStackTrace();
  assigned = original;
  swapped.swap(original);
  DbgMsg::setStackInfo("outer info");
  EXPECT_THROW(Functor(std::move(swapped))(), std::runtime_error);
  EXPECT_EQ(inside, trace);
  EXPECT_EQ(DbgMsg::getStackInfo(), "outer info");
  EXPECT_THROW(copy(), std::runtime_error);
  EXPECT_THROW(assigned(), std::runtime_error);
  EXPECT_EQ(inside, "outer info");
  EXPECT_TRUE(original.empty() && original.stackTrace().empty());
}

}  // namespace
}  // namespace QIM
