// Reading trace lines back: one line of a trace file in, its fields out,
// exactly as DbgMsg wrote them (the line header, ENTRY depth markers in
// either style, "<ret Time:N usec>" lines, assertion and "Throwing" lines,
// back-traces and captured "Delayed stack trace" blocks). A host or a tool
// reuses it to read the files its FileLogger wrote.
//
//   QIM::DbgMsg::TraceLine fields;
//   if (QIM::DbgMsg::parseTraceLine(line, fields)) use(fields.function, ...);
//
// The fields are views into the caller's line: nothing is allocated, and
// they are valid only as long as the line's characters are.
//
// Choices where the written form allows more than one reading:
// - The channel name runs to the first '>' after the thread column, less its
//   padding blanks, so a name that holds '>' is not read back.
// - The source file runs to the first ':' followed by a decimal line number
//   and " ("; the function runs to the first ") " after that (or to a ')'
//   that ends the line: an editor may have removed the trailing blank of a
//   line with no text), so a text that holds ") " stays whole in the text,
//   while a function name holding one is cut there.
// - "Additional information:" without its trailing blank is read too.
// - Numbers are read only in the form the library writes them: decimal
//   without sign or leading zeros, the thread id in 4 or more upper-case
//   hexadecimal digits (more than 4 only without a leading zero). Anything
//   else is not a line the library wrote.
// - An assertion's condition ends at the first "\" : " when a message
//   follows, else at the last '"' before "  OS ERROR: ".
// - A line end's carriage return, if any, is not part of the line.
#pragma once

#include <cstdint>
#include <string_view>

#include "qimmisc/Export.h"

namespace QIM {
namespace DbgMsg {

/// What a line is. The first five, and only they, carry the line header.
enum class TraceLineKind {
  Trace,             ///< a header and the caller's text, any channel
  Entry,             ///< an ENTRY-channel line that opens an instrumented call
  Return,            ///< "<ret Time:N usec>", on the ENTRY channel or another
  Assertion,         ///< "Assertion failed: ..." after the header
  Throw,             ///< "Throwing ..." after the header
  BackTraceHead,     ///< "Stack trace for thread XXXX" (printBackTrace)
  DelayedTraceHead,  ///< "Delayed stack trace for thread XXXX" (StackTrace)
  Frame,             ///< "[ n] function()    <file:line>" of either trace
  AdditionalInfo,    ///< "Additional information: "; the info follows
  Foreign            ///< a line the library never writes (or a torn one)
};

/// How an ENTRY line shows its depth.
enum class DepthMarker {
  None,     ///< not an ENTRY line
  Arrows,   ///< depth - 1 '>' characters after the channel column
  Brackets  ///< "[ n]", the depth right-aligned in 2 columns
};

/// The fields of one parsed line. Fields a kind does not have are empty or
/// zero.
struct TraceLine {
  TraceLineKind kind = TraceLineKind::Foreign;

  /// Thread id: header lines and the heads of both trace forms.
  std::uint64_t thread = 0;
  /// The channel name without its padding, and the width of the column
  /// it was padded to (the widest name the writer had seen).
  std::string_view channel;
  unsigned channelWidth = 0;
  /// ENTRY lines (Entry and Return on the ENTRY channel): the depth, 1 for
  /// the outermost instrumented call, and how it was written.
  int depth = 0;
  DepthMarker marker = DepthMarker::None;

  /// The site: from the header, or from a frame line.
  std::string_view file;
  int line = 0;
  std::string_view function;
  /// Everything after the header: the caller's text.
  std::string_view text;

  /// Return: the elapsed microseconds.
  long long usec = 0;

  /// Assertion: the condition's text, the message (empty when none) and
  /// the two error codes.
  std::string_view condition;
  std::string_view message;
  long long osError = 0;
  long long errnoValue = 0;

  /// Throw: the exception class, its message (the quoted text, empty when
  /// the line has none) and what follows " :" (leading blank dropped).
  std::string_view exceptionType;
  std::string_view exceptionMessage;
  std::string_view detail;

  /// Frame: its number, counting down to 1 for the outermost call.
  int frameNumber = 0;
};

/// Parses one line (without its line end; a trailing '\r' is ignored).
/// Returns false, with `out.kind` Foreign, for a line the library never
/// writes; `out` is otherwise filled for the kind found.
QIMMISC_API bool parseTraceLine(std::string_view line, TraceLine& out);

/// True for the kinds that begin with the "[XXXX] CHANNEL>" header.
inline bool hasHeader(TraceLineKind kind) { return kind <= TraceLineKind::Throw; }

}  // namespace DbgMsg
}  // namespace QIM
