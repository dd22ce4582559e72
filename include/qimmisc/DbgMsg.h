// Channelled trace logging, function-entry tracing and back-traces.
//
// Every module writes its diagnostics through QIM::DbgMsg. A line is built by
// a Tracer only when its channel is open (test isOpen first; the QIM_TRACE
// family of macros in Trace.h does that), gets a fixed header and is handed to
// the current LineLogger sink. StackLogger marks an instrumented function and
// keeps a per-thread stack of them that printBackTrace and StackTrace show.
#pragma once

#include <atomic>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

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

/// The place a line comes from. Sites keep their Locus in a function-local
/// static (see Trace.h), so frames on the call stack are plain pointers.
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
  friend class Tracer;
  friend struct SinkAccess;
  virtual void doLogging(const std::string& line, const LogLineType& type) = 0;
};

/// Fans one line out to two sinks, first then second; owns neither.
class QIMMISC_API TeeLogger : public LineLogger {
 public:
  TeeLogger(LineLogger* first, LineLogger* second);

 private:
  void doLogging(const std::string& line, const LogLineType& type) override;
  LineLogger* first_;
  LineLogger* second_;
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
QIMMISC_API void initChannels(const char* spec);

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

namespace detail {

// Channel open flags, read inline by isOpen so that a closed channel costs
// one load. Written by toggleChannel/initChannels.
QIMMISC_API extern std::atomic<bool> channelOpen[MaxChannels];

// Slow half of isOpen: the calling thread's enabled flag.
QIMMISC_API bool threadEnabled();

// Text of a thread's additional stack information. The text of a captured
// posting trace is formatted only when somebody reads it.
class QIMMISC_API StackText {
 public:
  virtual ~StackText();
  virtual const std::string& text() const = 0;
};
using StackTextPtr = std::shared_ptr<const StackText>;

// Swaps `text` with the calling thread's stack information, without
// formatting or copying it. Functor swaps its posting trace in while it
// runs and back out afterwards.
QIMMISC_API void swapStackText(StackTextPtr& text);

// The calling thread's call stack and stack information as a posting trace:
// a StackTrace whose text is formatted by its first reader and cut to
// `maxLength` characters. Posting again from the same stack returns the
// same object, so a busy call site allocates nothing.
QIMMISC_API StackTextPtr capturePostingTrace(std::size_t maxLength);

// Builds the qualified function name ("QIM::ActionThread::stop") from the
// compiler's pretty function signature, and the bare file name
// ("ActionThread") from a path. Results live for the whole process.
QIMMISC_API const char* functionName(const char* prettyFunction);
QIMMISC_API const char* fileName(const char* path);

// Write the assertion line (when ERROR is open) and a back-trace.
QIMMISC_API void assertionFailed(const Locus& locus, const char* condition);
QIMMISC_API void assertionFailed(const Locus& locus, const char* condition,
                                 const std::string& message);

}  // namespace detail

/// True when `channel` is open and logging is on for the calling thread.
inline bool isOpen(int channel) {
  return static_cast<unsigned>(channel) < static_cast<unsigned>(MaxChannels) &&
         detail::channelOpen[channel].load(std::memory_order_relaxed) &&
         detail::threadEnabled();
}

namespace detail {
class LineStream;
class DeferredStackText;
}  // namespace detail

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

/// Marks an instrumented function for its lifetime: pushes a frame on the
/// thread's call stack and, when ENTRY is open within the depth limit, times
/// the scope and writes "<ret Time:N usec>" at its end. `locus` must outlive
/// the object (sites use a static Locus).
class QIMMISC_API StackLogger {
 public:
  explicit StackLogger(const Locus& locus);
  ~StackLogger();
  StackLogger(const StackLogger&) = delete;
  StackLogger& operator=(const StackLogger&) = delete;

  /// Whether this scope writes its ENTRY lines.
  bool isActive() const { return start_ >= 0; }

 private:
  const Locus& locus_;
  long long start_;     // microseconds since the epoch; -1 when inactive
  bool pushed_ = true;  // false only when the frame could not be stored
};

/// A copy of the calling thread's call stack, stack information and id,
/// taken at construction, to be printed or formatted later.
class QIMMISC_API StackTrace {
 public:
  StackTrace();
  /// Writes format()'s text to the current sink in one line-set.
  void print() const;
  /// "Delayed stack trace for thread XXXX" and one line per frame, newest
  /// first, then the additional information.
  std::string format() const;

 private:
  friend class detail::DeferredStackText;
  std::vector<const Locus*> frames_;
  detail::StackTextPtr info_;
  unsigned long threadId_;
};

}  // namespace DbgMsg

/// Writes each line to a file opened (truncated) at construction and shared
/// with other processes for reading and writing. Each line goes out in one
/// write followed by a newline, so concurrent lines never interleave. A file
/// that cannot be opened silently loses its lines.
class QIMMISC_API FileLogger : public DbgMsg::LineLogger {
 public:
  explicit FileLogger(const char* path);
  ~FileLogger() override;
  FileLogger(const FileLogger&) = delete;
  FileLogger& operator=(const FileLogger&) = delete;

  /// Whether the file was opened.
  bool isOpen() const;

 private:
  void doLogging(const std::string& line, const DbgMsg::LogLineType& type) override;
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Writes each line to the debugger's output (OutputDebugStringA on
/// Windows, standard error elsewhere).
class QIMMISC_API ODSLogger : public DbgMsg::LineLogger {
 private:
  void doLogging(const std::string& line, const DbgMsg::LogLineType& type) override;
};

}  // namespace QIM
