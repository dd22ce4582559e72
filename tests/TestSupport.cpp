#include "TestSupport.h"

#include <ace/Guard_T.h>
#include <ace/Thread.h>

#include <chrono>
#include <cstdio>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#endif

namespace QIM::test {

#ifdef _WIN32
namespace {
// A crash must fail its test at once. Left alone, Windows (or Wine, whose
// prefix may not be set up by scripts/with-wine.sh) starts a debugger that
// waits for a user until the test's time limit.
LONG WINAPI exitOnCrash(EXCEPTION_POINTERS* info) {
  std::fprintf(stderr, "unhandled exception 0x%08lX: the test process ends\n",
               static_cast<unsigned long>(info->ExceptionRecord->ExceptionCode));
  std::fflush(stderr);
  ::TerminateProcess(::GetCurrentProcess(), 3);
  return EXCEPTION_EXECUTE_HANDLER;
}
[[maybe_unused]] const bool crashesEndTheProcess = [] {
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
  ::SetUnhandledExceptionFilter(exitOnCrash);
  return true;
}();
}  // namespace
#endif

std::vector<std::string> CaptureSink::lines() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

std::vector<std::string> CaptureSink::linesWith(const std::string& needle) const {
  std::vector<std::string> out;
  for (const auto& line : lines()) {
    if (line.find(needle) != std::string::npos) out.push_back(line);
  }
  return out;
}

void CaptureSink::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.clear();
}

void CaptureSink::doLogging(const std::string& line, const DbgMsg::LogLineType&) {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.push_back(line);
}

void Gate::open() {
  std::lock_guard<std::mutex> lock(mutex_);
  open_ = true;
  cond_.notify_all();
}

void Gate::wait() {
  std::unique_lock<std::mutex> lock(mutex_);
  cond_.wait(lock, [this] { return open_; });
}

bool Gate::waitFor(int ms) {
  std::unique_lock<std::mutex> lock(mutex_);
  return cond_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return open_; });
}

bool eventually(const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

ManualQueue::ManualQueue() : tid_(static_cast<unsigned long>(ACE_Thread::self())) {}

int ManualQueue::runAll() {
  int ran = 0;
  for (;;) {
    Functor action;
    {
      ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
      if (empty()) return ran;
      action = pop_front();
    }
    action();
    ++ran;
  }
}

void ManualQueue::discardAll() {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  clear();
}

bool ManualQueue::waitForQueued(int count) {
  return eventually([this, count] { return size(-1) >= count; });
}

void TracingTest::SetUp() {
  DbgMsg::initChannels("+all");
  DbgMsg::setEntryParams(true, -1);
  DbgMsg::setLogDest(&sink_);
}

void TracingTest::TearDown() {
  DbgMsg::setLogDest(nullptr);
  DbgMsg::setAdvUserLogDest(nullptr);
  DbgMsg::initChannels(nullptr);
  DbgMsg::setEntryParams(true, -1);
  DbgMsg::setStackInfo("");
}

}  // namespace QIM::test
