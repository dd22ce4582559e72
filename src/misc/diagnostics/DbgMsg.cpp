#include "qimmisc/DbgMsg.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string_view>
#include <unordered_set>

#include "diagnostics/DbgMsgPlatform.h"
#include "platform/ThreadSlot.h"

namespace QIM {
namespace DbgMsg {

// Lets the facility and TeeLogger call a sink's private doLogging.
struct SinkAccess {
  static void deliver(LineLogger& sink, const std::string& line,
                      const LogLineType& type) {
    sink.doLogging(line, type);
  }
};

namespace {

// ---- Channel table --------------------------------------------------------
// Names and flags are fixed-size arrays that are constant-initialised, so
// the table exists before any static constructor of any module runs. A name
// is published before the count that makes it visible, so readers need no
// lock; adding a name takes addLock().

std::atomic<const char*> channelNames[MaxChannels] = {"ERROR", "ENTRY",
                                                      "ADVUSERLOG"};
std::atomic<int> channelCount{3};
// Open state given to channels added later, set by the last "+all"/"-all".
std::atomic<bool> newChannelsOpen{false};
std::atomic<unsigned> widestName{0};

std::atomic<bool> entryArrows{true};
std::atomic<int> entryMaxDepth{-1};

std::mutex& addLock() {
  static auto* m = new std::mutex;  // never destroyed: threads may log at exit
  return *m;
}

int findChannel(const char* name) {
  const int n = channelCount.load(std::memory_order_acquire);
  for (int i = 0; i < n; ++i) {
    if (std::strcmp(channelNames[i].load(std::memory_order_relaxed), name) == 0) return i;
  }
  return -1;
}

// ---- Destinations ---------------------------------------------------------
// Delivery holds the lock shared, setters exclusive: once a setter returns,
// no thread is still inside the old sink.

std::atomic<LineLogger*> mainDest{nullptr};
std::atomic<LineLogger*> advDest{nullptr};

std::shared_mutex& destLock() {
  static auto* m = new std::shared_mutex;  // never destroyed, as above
  return *m;
}

// Where back-traces go: the advanced-user destination if set, else the
// main one. The caller holds destLock() shared.
LineLogger* backTraceSink() {
  LineLogger* adv = advDest.load(std::memory_order_acquire);
  return adv ? adv : mainDest.load(std::memory_order_acquire);
}

void setDest(std::atomic<LineLogger*>& slot, LineLogger* dest) {
  std::unique_lock<std::shared_mutex> lock(destLock());
  slot.store(dest, std::memory_order_release);
}

// ---- Per-thread state -----------------------------------------------------
// Split in two so that the hot path (StackLogger push/pop, isOpen) touches
// only plain, zero-initialised thread-local data: no construction guard, no
// destructor registration. The rest is made on a thread's first use of it.

constexpr unsigned kInlineFrames = 32;

struct FastTss {
  unsigned depth;    // frames on the call stack
  bool disabled;     // logging is off for this thread
  const Locus* frames[kInlineFrames];  // oldest first; deeper ones overflow
};
// Initial-exec TLS turns each access into one register-relative load instead
// of a __tls_get_addr call. The block is small (under 300 bytes), so it fits
// the static TLS reserve even when the library is loaded with dlopen.
#if defined(__ELF__)
thread_local FastTss fast __attribute__((tls_model("initial-exec")));
#else
thread_local FastTss fast;
#endif

struct SlowTss : ::QIM::detail::ThreadSlotValue {
  std::vector<const Locus*> overflow;  // frames kInlineFrames and up
  detail::StackTextPtr info;
  std::vector<std::unique_ptr<detail::LineStream>> freeLines;
  std::shared_ptr<const detail::DeferredStackText> lastPostingTrace;
};

SlowTss& slowTss() {
  static auto* slot = new ::QIM::detail::ThreadSlot;  // never destroyed: threads outlive statics
  return ::QIM::detail::threadLocal<SlowTss>(*slot);
}

const Locus* frameAt(unsigned index) {
  return index < kInlineFrames ? fast.frames[index] : slowTss().overflow[index - kInlineFrames];
}

// The calling thread's frames, oldest first.
std::vector<const Locus*> copyFrames() {
  std::vector<const Locus*> frames;
  frames.reserve(fast.depth);
  for (unsigned i = 0; i < fast.depth; ++i) frames.push_back(frameAt(i));
  return frames;
}

class PlainStackText final : public detail::StackText {
 public:
  explicit PlainStackText(std::string text) : text_(std::move(text)) {}
  const std::string& text() const override { return text_; }

 private:
  std::string text_;
};

// Clears the thread's enabled flag for a scope, so that whatever a sink
// logs while a back-trace is printed does not re-enter the facility.
class DisableThreadLogging {
 public:
  DisableThreadLogging() : saved_(fast.disabled) { fast.disabled = true; }
  ~DisableThreadLogging() { fast.disabled = saved_; }
  DisableThreadLogging(const DisableThreadLogging&) = delete;
  DisableThreadLogging& operator=(const DisableThreadLogging&) = delete;

 private:
  bool saved_;
};

void appendHex(std::string& out, unsigned long value, int minDigits) {
  char buf[2 * sizeof value];
  int n = 0;
  do {
    buf[n++] = "0123456789ABCDEF"[value & 0xF];
    value >>= 4;
  } while (value != 0);
  for (int i = n; i < minDigits; ++i) out += '0';
  while (n > 0) out += buf[--n];
}

void appendDecimal(std::string& out, long long value) {
  char buf[24];
  const auto result = std::to_chars(buf, buf + sizeof buf, value);
  out.append(buf, result.ptr);
}

std::string hexThreadId(unsigned long id) {
  std::string out;
  appendHex(out, id, 4);
  return out;
}

// "[ n] function()    <file:line>", the frame line of both trace forms.
std::string frameLine(int number, const Locus& locus) {
  char num[16];
  std::snprintf(num, sizeof num, "[%2d] ", number);
  std::string out(num);
  out += locus.function;
  out += "()    <";
  out += locus.file;
  out += ':';
  out += std::to_string(locus.line);
  out += '>';
  return out;
}

void updateWidest(unsigned len) {
  unsigned cur = widestName.load(std::memory_order_relaxed);
  while (len > cur &&
         !widestName.compare_exchange_weak(cur, len, std::memory_order_relaxed)) {
  }
}

// Process-lifetime storage for the texts that loci point at.
const char* intern(std::string text) {
  static auto* mutex = new std::mutex;
  static auto* table = new std::unordered_set<std::string>;
  std::lock_guard<std::mutex> lock(*mutex);
  return table->insert(std::move(text)).first->c_str();
}

}  // namespace

namespace detail {

std::atomic<bool> channelOpen[MaxChannels] = {true, false, true};

bool threadEnabled() { return !fast.disabled; }

// A reusable line: an std::ostream writing straight into a string. Lines are
// pooled per thread (nested Tracers take one each), so an open trace line
// builds no stream and copies no text.
class LineStream {
 public:
  LineStream() : stream_(&buffer_) {}
  std::string& text() { return buffer_.text; }
  std::ostream& stream() { return stream_; }

  // Back to an empty line with default formatting, whatever the previous
  // user streamed (std::hex, widths, a failed state).
  void reset() {
    if (buffer_.text.capacity() > kKeptCapacity) {
      std::string().swap(buffer_.text);
    } else {
      buffer_.text.clear();
    }
    stream_.clear();
    stream_.flags(std::ios_base::dec | std::ios_base::skipws);
    stream_.width(0);
    stream_.precision(6);
    stream_.fill(' ');
  }

 private:
  static constexpr std::size_t kKeptCapacity = 4096;
  struct Buffer : std::streambuf {
    std::string text;
    int_type overflow(int_type c) override {
      if (!traits_type::eq_int_type(c, traits_type::eof())) text.push_back(static_cast<char>(c));
      return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override {
      text.append(s, static_cast<std::size_t>(n));
      return n;
    }
  };
  Buffer buffer_;
  std::ostream stream_;
};

StackText::~StackText() = default;

void swapStackText(StackTextPtr& text) { slowTss().info.swap(text); }

// A posting trace. Capturing copies frame pointers only; the text is made
// once, by the first reader.
class DeferredStackText final : public StackText {
 public:
  explicit DeferredStackText(std::size_t maxLength) : maxLength_(maxLength) {}
  ~DeferredStackText() override { delete text_.load(std::memory_order_acquire); }

  const std::string& text() const override {
    if (const std::string* ready = text_.load(std::memory_order_acquire)) return *ready;
    std::string formatted = trace_.format();
    if (formatted.size() > maxLength_) formatted.resize(maxLength_);
    auto* mine = new std::string(std::move(formatted));
    const std::string* expected = nullptr;
    if (text_.compare_exchange_strong(expected, mine, std::memory_order_acq_rel)) return *mine;
    delete mine;  // another reader won the race; its text is the same
    return *expected;
  }

  // Whether this trace was taken from the stack the thread has now.
  bool matchesCurrentStack() const {
    const auto& frames = trace_.frames_;
    if (frames.size() != fast.depth || trace_.info_ != slowTss().info) return false;
    for (unsigned i = 0; i < fast.depth; ++i) {
      if (frames[i] != frameAt(i)) return false;
    }
    return true;
  }

  std::size_t maxLength() const { return maxLength_; }

 private:
  StackTrace trace_;
  std::size_t maxLength_;
  mutable std::atomic<const std::string*> text_{nullptr};
};


StackTextPtr capturePostingTrace(std::size_t maxLength) {
  std::shared_ptr<const DeferredStackText>& last = slowTss().lastPostingTrace;
  if (!last || last->maxLength() != maxLength || !last->matchesCurrentStack()) {
    last = std::make_shared<const DeferredStackText>(maxLength);
  }
  return last;
}

namespace {
std::string qualifiedName(std::string_view s);
}  // namespace

const char* functionName(const char* pretty) {
  std::string_view s(pretty);
  if (const auto with = s.find(" [with "); with != std::string_view::npos) {
    s = s.substr(0, with);
  }
  // Inside a lambda the enclosing function is what a reader needs.
  if (const auto lambda = s.find("::<lambda"); lambda != std::string_view::npos) {
    return intern(qualifiedName(s.substr(0, lambda)) + "::<lambda>");
  }
  return intern(qualifiedName(s));
}

namespace {
std::string qualifiedName(std::string_view s) {
  // The parameter list is the parenthesis group that the last ')' closes;
  // anything after it is a qualifier (const, noexcept, &&).
  std::size_t end = s.rfind(')');
  if (end != std::string_view::npos) {
    int depth = 0;
    for (std::size_t i = end + 1; i-- > 0;) {
      if (s[i] == ')') ++depth;
      if (s[i] == '(' && --depth == 0) {
        end = i;
        break;
      }
    }
  } else {
    end = s.size();
  }
  // The name starts after the last blank outside brackets: that drops the
  // return type and, for MSVC, the calling convention.
  std::size_t begin = 0;
  int depth = 0;
  for (std::size_t i = end; i-- > 0;) {
    const char c = s[i];
    if (c == ')' || c == '>') ++depth;
    if (c == '(' || c == '<') --depth;
    if (c == ' ' && depth == 0) {
      begin = i + 1;
      break;
    }
  }
  std::string name(s.substr(begin, end - begin));
  static constexpr std::string_view gccAnon = "{anonymous}";
  for (std::size_t at; (at = name.find(gccAnon)) != std::string::npos;) {
    name.replace(at, gccAnon.size(), "`anonymous-namespace'");
  }
  return name;
}
}  // namespace

const char* fileName(const char* path) {
  std::string_view s(path);
  if (const auto slash = s.find_last_of("/\\"); slash != std::string_view::npos) {
    s = s.substr(slash + 1);
  }
  if (const auto dot = s.rfind('.'); dot != std::string_view::npos && dot > 0) {
    s = s.substr(0, dot);
  }
  return intern(std::string(s));
}

namespace {
void writeAssertion(const Locus& locus, const char* condition,
                    const std::string* message) {
  // Read both codes before anything here can change them.
  const unsigned int lastError = GetLastErrorId();
  const int err = GetErrno();
  if (isOpen(ErrorId)) {
    Tracer line(locus, LLT_Default());
    line << "Assertion failed: \"" << condition << '"';
    if (message) line << " : " << *message;
    line << "  OS ERROR: " << lastError << " errno: " << err;
  }
  printBackTrace();
}
}  // namespace

void assertionFailed(const Locus& locus, const char* condition) {
  writeAssertion(locus, condition, nullptr);
}

void assertionFailed(const Locus& locus, const char* condition,
                     const std::string& message) {
  writeAssertion(locus, condition, &message);
}

}  // namespace detail

// ---- LogLineType, sinks -----------------------------------------------------

const LogLineType& LLT_Default() {
  static const LogLineType type("\t");
  return type;
}
const LogLineType& LLT_Level1() {
  static const LogLineType type("level1");
  return type;
}
const LogLineType& LLT_User() {
  static const LogLineType type("custom");
  return type;
}

LineLogger::~LineLogger() = default;

TeeLogger::TeeLogger(LineLogger* first, LineLogger* second)
    : first_(first), second_(second) {}

void TeeLogger::doLogging(const std::string& line, const LogLineType& type) {
  if (first_) SinkAccess::deliver(*first_, line, type);
  if (second_) SinkAccess::deliver(*second_, line, type);
}

// ---- Free functions -------------------------------------------------------

unsigned int GetLastErrorId() {
  const unsigned int os = platform::osLastError();
  const int err = errno;
  return err != 0 ? static_cast<unsigned int>(err) : os;
}

int GetErrno() { return errno; }

int getChannelByName(const char* name) {
  if (!name) return -1;
  if (const int found = findChannel(name); found >= 0) return found;
  std::lock_guard<std::mutex> lock(addLock());
  if (const int found = findChannel(name); found >= 0) return found;
  const int n = channelCount.load(std::memory_order_relaxed);
  if (n >= MaxChannels) return -1;
  channelNames[n].store(intern(name), std::memory_order_relaxed);
  detail::channelOpen[n].store(newChannelsOpen.load(std::memory_order_relaxed),
                               std::memory_order_relaxed);
  channelCount.store(n + 1, std::memory_order_release);
  return n;
}

const char* channelName(int channel) {
  if (channel < 0 || channel >= channelCount.load(std::memory_order_acquire)) {
    return nullptr;
  }
  return channelNames[channel].load(std::memory_order_relaxed);
}

void toggleChannel(int channel, bool open) {
  if (channel < 0 || channel >= MaxChannels) return;
  detail::channelOpen[channel].store(open, std::memory_order_relaxed);
}

void initChannels(const char* spec) {
  if (!spec) {
    newChannelsOpen.store(false, std::memory_order_relaxed);
    for (auto& flag : detail::channelOpen) flag.store(false, std::memory_order_relaxed);
    toggleChannel(ErrorId, true);
    toggleChannel(AdvUserLogId, true);
    return;
  }
  std::string_view rest(spec);
  while (!rest.empty()) {
    const auto colon = rest.find(':');
    const std::string_view item = rest.substr(0, colon);
    rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
    if (item.empty()) continue;
    const bool open = item.front() == '+';
    const std::string name(item.substr(1));
    if (name == "all") {
      newChannelsOpen.store(open, std::memory_order_relaxed);
      const int n = channelCount.load(std::memory_order_acquire);
      for (int i = 0; i < n; ++i) toggleChannel(i, open);
    } else if (!name.empty()) {
      toggleChannel(getChannelByName(name.c_str()), open);
    }
  }
}

void setLogDest(LineLogger* dest) { setDest(mainDest, dest); }

LineLogger* getLogDest() { return mainDest.load(std::memory_order_acquire); }

void setAdvUserLogDest(LineLogger* dest) { setDest(advDest, dest); }

void setEntryParams(bool arrows, int maxDepth) {
  entryArrows.store(arrows, std::memory_order_relaxed);
  entryMaxDepth.store(maxDepth, std::memory_order_relaxed);
}

void setStackInfo(const std::string& info) {
  slowTss().info = info.empty() ? nullptr : std::make_shared<PlainStackText>(info);
}

std::string getStackInfo() {
  const detail::StackTextPtr& info = slowTss().info;
  return info ? info->text() : std::string();
}

void printBackTrace() {
  DisableThreadLogging quiet;
  std::shared_lock<std::shared_mutex> lock(destLock());
  LineLogger* sink = backTraceSink();
  if (!sink) return;
  const LogLineType& type = LLT_Default();
  try {
    SinkAccess::deliver(
        *sink, "Stack trace for thread " + hexThreadId(platform::currentThreadId()), type);
    for (unsigned i = fast.depth; i >= 1; --i) {
      SinkAccess::deliver(*sink, frameLine(static_cast<int>(i), *frameAt(i - 1)), type);
    }
    const detail::StackTextPtr info = slowTss().info;
    if (info && !info->text().empty()) {
      SinkAccess::deliver(*sink, "Additional information: ", type);
      SinkAccess::deliver(*sink, info->text(), type);
    }
  } catch (...) {
    // A failing sink loses its lines; the caller carries on.
  }
}

// ---- Tracer -----------------------------------------------------------------

Tracer::Tracer(const Locus& locus, const LogLineType& type) : type_(&type) {
  auto& pool = slowTss().freeLines;
  if (pool.empty()) {
    line_ = new detail::LineStream;
  } else {
    line_ = pool.back().release();
    pool.pop_back();
  }
  stream_ = &line_->stream();

  LineLogger* adv = advDest.load(std::memory_order_acquire);
  slot_ = adv ? &advDest : &mainDest;
  if (adv && locus.channel == AdvUserLogId) return;  // bare user line

  const char* name = channelName(locus.channel);
  if (!name) name = "";
  const unsigned len = static_cast<unsigned>(std::strlen(name));
  updateWidest(len);
  const unsigned width = widestName.load(std::memory_order_relaxed);

  std::string& out = line_->text();
  out += '[';
  appendHex(out, platform::currentThreadId(), 4);
  out += "] ";
  out += name;
  if (width > len) out.append(width - len, ' ');
  out += '>';
  if (locus.channel == EntryId) {
    const unsigned depth = fast.depth;
    if (entryArrows.load(std::memory_order_relaxed)) {
      if (depth > 1) out.append(depth - 1, '>');
    } else {
      out += '[';
      if (depth < 10) out += ' ';
      appendDecimal(out, depth);
      out += ']';
    }
  }
  out += ' ';
  out += locus.file;
  out += ':';
  appendDecimal(out, locus.line);
  out += " (";
  out += locus.function;
  out += ") ";
}

Tracer::~Tracer() {
  try {
    std::shared_lock<std::shared_mutex> lock(destLock());
    if (LineLogger* sink = slot_->load(std::memory_order_acquire)) {
      SinkAccess::deliver(*sink, line_->text(), *type_);
    }
  } catch (...) {
    // Out of memory or a throwing sink: the line is lost, never the caller.
  }
  line_->reset();
  try {
    slowTss().freeLines.emplace_back(line_);
  } catch (...) {
    delete line_;
  }
}

// ---- StackLogger ------------------------------------------------------------

StackLogger::StackLogger(const Locus& locus) : locus_(locus), start_(-1) {
  const unsigned depth = fast.depth;
  if (depth < kInlineFrames) {
    fast.frames[depth] = &locus;
  } else {
    try {
      slowTss().overflow.push_back(&locus);
    } catch (const std::bad_alloc&) {
      errno = ENOMEM;
      pushed_ = false;
      return;
    }
  }
  fast.depth = depth + 1;
  if (isOpen(locus.channel)) {
    const int maxDepth = entryMaxDepth.load(std::memory_order_relaxed);
    if (maxDepth < 0 || static_cast<int>(depth + 1) <= maxDepth) {
      start_ = platform::systemTimeMicros();
    }
  }
}

StackLogger::~StackLogger() {
  if (!pushed_) return;
  if (isActive()) {
    const long long elapsed = platform::systemTimeMicros() - start_;
    Tracer line(locus_, LLT_Default());
    line << "<ret Time:" << elapsed << " usec>";
  }
  const unsigned depth = --fast.depth;
  if (depth >= kInlineFrames) slowTss().overflow.pop_back();
}

// ---- StackTrace -------------------------------------------------------------

StackTrace::StackTrace()
    : frames_(copyFrames()), info_(slowTss().info), threadId_(platform::currentThreadId()) {}

std::string StackTrace::format() const {
  std::string out = "Delayed stack trace for thread " + hexThreadId(threadId_) + '\n';
  for (int i = static_cast<int>(frames_.size()); i >= 1; --i) {
    out += frameLine(i, *frames_[i - 1]);
    out += '\n';
  }
  if (info_ && !info_->text().empty()) {
    out += "Additional information: \n";
    out += info_->text();
  }
  return out;
}

void StackTrace::print() const {
  // One call: the sink adds the final newline itself.
  std::string text = format();
  if (!text.empty() && text.back() == '\n') text.pop_back();
  std::shared_lock<std::shared_mutex> lock(destLock());
  LineLogger* sink = backTraceSink();
  if (!sink) return;
  try {
    SinkAccess::deliver(*sink, text, LLT_Default());
  } catch (...) {
  }
}

}  // namespace DbgMsg
}  // namespace QIM
