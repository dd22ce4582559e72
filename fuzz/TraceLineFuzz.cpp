// Fuzz target for the trace line parser, which reads whatever a customer's
// trace file holds. The input is split into lines, each parsed.
//
// Besides "no crash, no hang": every text field is a piece of the line
// itself; a line read as one the library writes is written again from its
// fields, exactly as the facility writes it, and gives back the same line
// (the numbers included, so only their one written form is accepted); a
// line end's carriage return changes nothing; and a foreign line has no
// fields.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "qimmisc/TraceLineParser.h"

namespace {

using QIM::DbgMsg::DepthMarker;
using QIM::DbgMsg::TraceLine;
using Kind = QIM::DbgMsg::TraceLineKind;
using QIM::fuzz::check;

bool inside(std::string_view field, std::string_view line) {
  return field.empty() ||
         (field.data() >= line.data() && field.data() + field.size() <= line.data() + line.size());
}

std::string hex(std::uint64_t id) {
  char digits[24];
  std::snprintf(digits, sizeof digits, "%04llX", static_cast<unsigned long long>(id));
  return digits;
}

std::string twoColumns(long long n) { return (n >= 0 && n < 10 ? " " : "") + std::to_string(n); }

// The text after the header, from the fields of its kind.
std::string textOf(const TraceLine& f) {
  switch (f.kind) {
    case Kind::Return:
      return "<ret Time:" + std::to_string(f.usec) + " usec>";
    case Kind::Assertion: {
      std::string text = "Assertion failed: \"" + std::string(f.condition) + "\"";
      // An empty message after " : " and none at all both read as empty.
      const std::string_view quoted = f.text.substr(0, f.text.rfind("  OS ERROR: "));
      if (!f.message.empty() || quoted.ends_with("\" : ")) text += " : " + std::string(f.message);
      return text + "  OS ERROR: " + std::to_string(f.osError) +
             " errno: " + std::to_string(f.errnoValue);
    }
    default:
      return std::string(f.text);
  }
}

// The line as the facility writes it from these fields.
std::string written(const TraceLine& f) {
  switch (f.kind) {
    case Kind::BackTraceHead: return "Stack trace for thread " + hex(f.thread);
    case Kind::DelayedTraceHead: return "Delayed stack trace for thread " + hex(f.thread);
    case Kind::AdditionalInfo: return "Additional information: ";
    case Kind::Frame:
      return "[" + twoColumns(f.frameNumber) + "] " + std::string(f.function) + "()    <" +
             std::string(f.file) + ":" + std::to_string(f.line) + ">";
    case Kind::Foreign: return std::string();
    default: break;
  }
  std::string line = "[" + hex(f.thread) + "] " + std::string(f.channel);
  line.append(f.channelWidth - f.channel.size(), ' ');
  line += '>';
  if (f.marker == DepthMarker::Arrows) line.append(static_cast<std::size_t>(f.depth - 1), '>');
  if (f.marker == DepthMarker::Brackets) line += "[" + twoColumns(f.depth) + "]";
  return line + " " + std::string(f.file) + ":" + std::to_string(f.line) + " (" +
         std::string(f.function) + ") " + textOf(f);
}

bool sameFields(const TraceLine& a, const TraceLine& b) {
  return a.kind == b.kind && a.thread == b.thread && a.channel == b.channel &&
         a.channelWidth == b.channelWidth && a.depth == b.depth && a.marker == b.marker &&
         a.file == b.file && a.line == b.line && a.function == b.function && a.text == b.text &&
         a.usec == b.usec && a.condition == b.condition && a.message == b.message &&
         a.osError == b.osError && a.errnoValue == b.errnoValue &&
         a.exceptionType == b.exceptionType && a.exceptionMessage == b.exceptionMessage &&
         a.detail == b.detail && a.frameNumber == b.frameNumber;
}

void checkLine(std::string_view line) {
  TraceLine fields;
  const bool known = QIM::DbgMsg::parseTraceLine(line, fields);
  check(known == (fields.kind != Kind::Foreign), "the result says whether a kind was found");
  for (const std::string_view field :
       {fields.channel, fields.file, fields.function, fields.text, fields.condition,
        fields.message, fields.exceptionType, fields.exceptionMessage, fields.detail}) {
    check(inside(field, line), "every field is a piece of the line");
  }
  if (!known) {
    check(sameFields(fields, TraceLine()), "a foreign line has no fields");
    return;
  }
  std::string_view bare = line;
  if (!bare.empty() && bare.back() == '\r') bare.remove_suffix(1);
  const std::string again = written(fields);
  // A header whose trailing blank an editor removed, and the additional
  // information line without its blank, also read.
  check(again == bare || again == std::string(bare) + " ", "written again, the line comes back");

  if (line.ends_with('\r')) return;
  std::string withCr(line);
  withCr += '\r';
  TraceLine crFields;
  check(QIM::DbgMsg::parseTraceLine(withCr, crFields) && sameFields(crFields, fields),
        "a carriage return at the end changes nothing");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  for (std::size_t at = 0; at <= input.size();) {
    std::size_t end = input.find('\n', at);
    if (end == std::string_view::npos) end = input.size();
    checkLine(input.substr(at, end - at));
    at = end + 1;
  }
  return 0;
}
