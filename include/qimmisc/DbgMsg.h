// Channelled trace logging, function-entry tracing and back-traces.
//
// Every module writes its diagnostics through QIM::DbgMsg. A line is built by
// a Tracer only when its channel is open (test isOpen first; the QIM_TRACE
// family of macros in Trace.h does that), gets a fixed header and is handed to
// the current LineLogger sink (FileLogger.h, ODSLogger.h and TeeLogger.h hold
// the library's own). StackLogger marks an instrumented function and keeps a
// per-thread stack of them that printBackTrace and StackTrace show.
#pragma once

#include <atomic>
#include <memory>
#include <ostream>
#include <string>

#include "qimmisc/Export.h"

namespace QIM {
namespace DbgMsg {

/// Number of the predefined channels "ERROR", "ENTRY" and "ADVUSERLOG".
inline constexpr int ErrorId = 0;
inline constexpr int EntryId = 1;
inline constexpr int AdvUserLogId = 2;

/// Upper bound on the number of channels; getChannelByName returns -1 once
/// the table is full.
inline constexpr int MaxChannels = 256;

/// The place a line comes from, built at the logging site (Trace.h keeps it
/// in a function-local static). The call stack and captured traces hold
/// copies; the texts are the site's string constants.
struct Locus {
  int channel;
  const char* file;      ///< bare source-file name, e.g. "ActionThread"
  int line;
  const char* function;  ///< qualified name, e.g. "QIM::ActionThread::stop"
  const char* date;      ///< always "??? ?? ????"; no format prints it
};

/// A line's type: a prefix that travels with the line to the sink. Only the
/// three singletons below exist; the library's own sinks ignore it.
class QIMMISC_API LogLineType {
 public:
  const std::string& getPrefix() const { return prefix_; }

 private:
  explicit LogLineType(const char* prefix) : prefix_(prefix) {}
  friend QIMMISC_API const LogLineType& LLT_Default();
  friend QIMMISC_API const LogLineType& LLT_Level1();
  friend QIMMISC_API const LogLineType& LLT_User();
  std::string prefix_;
};

/// Prefix "\t": the type of every line the library writes.
QIMMISC_API const LogLineType& LLT_Default();
/// Prefix "level1".
QIMMISC_API const LogLineType& LLT_Level1();
/// Prefix "custom".
QIMMISC_API const LogLineType& LLT_User();

/// Abstract line sink. It may be called from several threads at once and
/// serialises itself if it needs to. It receives lines without a newline.
class QIMMISC_API LineLogger {
 public:
  virtual ~LineLogger();

 private:
  friend struct SinkAccess;  // the facility's delivery and TeeLogger
  virtual void doLogging(const std::string& line, const LogLineType& type) = 0;
};

/// OS last error read first; errno wins when it is non-zero.
QIMMISC_API unsigned int GetLastErrorId();
/// The runtime library's errno.
QIMMISC_API int GetErrno();

/// Number of the channel called `name` (exact bytes). An unknown name is
/// added, closed, so that a module and its configuration can meet by name in
/// either order; -1 when the table is full or `name` is null.
QIMMISC_API int getChannelByName(const char* name);

/// Null: close every channel, then open ERROR and ADVUSERLOG. Otherwise a
/// ":"-separated list of items, each a sign ("+" opens, anything else
/// closes) and a channel name or "all", applied in order. Unknown names are
/// added to the table with the requested state.
QIMMISC_API void initChannels(const char* items);

/// Sets a channel's open flag; an out-of-range number is ignored.
QIMMISC_API void toggleChannel(int channel, bool open);

/// Name of channel `channel`, or null for a number not in the table.
QIMMISC_API const char* channelName(int channel);

/// Sets the main destination (the caller keeps ownership). When it returns,
/// no thread is still delivering to the previous sink, so that one may be
/// destroyed.
QIMMISC_API void setLogDest(LineLogger* dest);
QIMMISC_API LineLogger* getLogDest();
/// Sets the advanced-user destination; while set, every line goes there.
QIMMISC_API void setAdvUserLogDest(LineLogger* dest);

/// ENTRY lines show depth as ">" arrows (true) or as "[ n]"; a StackLogger
/// deeper than `maxDepth` (when >= 0) writes nothing.
QIMMISC_API void setEntryParams(bool arrows, int maxDepth);

/// The calling thread's additional stack information, appended to its
/// back-traces.
QIMMISC_API void setStackInfo(const std::string& info);
QIMMISC_API std::string getStackInfo();

/// Prints the calling thread's instrumented call stack to the current sink.
QIMMISC_API void printBackTrace();

// What the inline fast path and the macros of Trace.h reach. The rest of
// the facility's internals stay inside the library.
namespace detail {

// Channel open flags, read inline by isOpen so that a closed channel costs
// one relaxed load at the site. Written by toggleChannel/initChannels.
QIMMISC_API extern std::atomic<bool> channelOpen[MaxChannels];

// Slow half of isOpen, reached only for an open channel: the calling
// thread's enabled flag.
QIMMISC_API bool threadEnabled();

// The qualified function name ("QIM::ActionThread::stop") from the
// compiler's pretty function signature, and the bare file name
// ("ActionThread") from a path; made once per site by Trace.h. Results live
// for the whole process.
QIMMISC_API const char* functionName(const char* prettyFunction);
QIMMISC_API const char* fileName(const char* path);

// The assertion line (when ERROR is open) and a back-trace, out of line so
// that a site costs only its test.
QIMMISC_API void assertionFailed(const Locus& locus, const char* condition);
QIMMISC_API void assertionFailed(const Locus& locus, const char* condition,
                                 const std::string& message);

// Named only, defined inside the library: the pooled line buffer behind a
// Tracer, the shared copy of a thread's call stack behind a StackTrace, and
// the stack information a Functor keeps as its posting trace.
class LineStream;
class StackSnapshot;
class StackText;

}  // namespace detail

/// True when `channel` is open and logging is on for the calling thread.
inline bool isOpen(int channel) {
  return static_cast<unsigned>(channel) < static_cast<unsigned>(MaxChannels) &&
         detail::channelOpen[channel].load(std::memory_order_relaxed) &&
         detail::threadEnabled();
}

/// Collects one line. The constructor writes the header, the caller streams
/// the message into it like into any std::ostream, the destructor delivers
/// the line to the destination slot chosen at construction (read again at
/// delivery). The stream behind it is taken from a per-thread pool and comes
/// with default formatting, so an open line costs no stream construction.
class QIMMISC_API Tracer {
 public:
  Tracer(const Locus& locus, const LogLineType& type);
  ~Tracer();
  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;

  /// The stream the message goes to.
  std::ostream& stream() { return *stream_; }

  template <class T>
  Tracer& operator<<(const T& value) {
    *stream_ << value;
    return *this;
  }
  Tracer& operator<<(std::ostream& (*manipulator)(std::ostream&)) {
    manipulator(*stream_);
    return *this;
  }
  Tracer& operator<<(std::ios_base& (*manipulator)(std::ios_base&)) {
    manipulator(*stream_);
    return *this;
  }

 private:
  detail::LineStream* line_;
  std::ostream* stream_;
  const std::atomic<LineLogger*>* slot_;
  const LogLineType* type_;
};

/// Marks an instrumented function for its lifetime: pushes a copy of
/// `locus` on the thread's call stack and, when its channel is open within
/// the depth limit, times the scope on a monotonic clock and writes
/// "<ret Time:N usec>" at its end.
class QIMMISC_API StackLogger {
 public:
  explicit StackLogger(const Locus& locus);
  ~StackLogger();
  StackLogger(const StackLogger&) = delete;
  StackLogger& operator=(const StackLogger&) = delete;

  /// Whether this scope writes its ENTRY lines.
  bool isActive() const { return start_ >= 0; }

 private:
  long long start_;  // monotonic microseconds at entry; -1 when inactive
  bool pushed_;      // false only when the frame could not be stored
};

/// A copy of the calling thread's call stack, stack information and id,
/// taken at construction, to be printed or formatted later. Copies share
/// the captured state, which never changes.
class QIMMISC_API StackTrace {
 public:
  StackTrace();
  /// Writes format()'s text to the current sink in one call.
  void print() const;
  /// "Delayed stack trace for thread XXXX" and one line per frame, newest
  /// first, then the additional information.
  std::string format() const;

 private:
  std::shared_ptr<const detail::StackSnapshot> snapshot_;
};

}  // namespace DbgMsg
}  // namespace QIM
