// Small text pieces shared by the trace line header, back-traces and
// captured traces, appended straight into the line being built.
#pragma once

#include <charconv>
#include <string>

#include "qimmisc/DbgMsg.h"

namespace QIM {
namespace DbgMsg {
namespace detail {

/// Thread id as upper-case hexadecimal, at least 4 digits, no "0x".
inline void appendThreadId(std::string& out, unsigned long id) {
  char digits[2 * sizeof id];
  int n = 0;
  do {
    digits[n++] = "0123456789ABCDEF"[id & 0xF];
    id >>= 4;
  } while (id != 0);
  if (n < 4) out.append(static_cast<std::size_t>(4 - n), '0');
  while (n > 0) out += digits[--n];
}

inline void appendDecimal(std::string& out, long long value) {
  char buf[24];
  const auto result = std::to_chars(buf, buf + sizeof buf, value);
  out.append(buf, result.ptr);
}

/// "[ n] function()    <file:line>": one frame of a back-trace or of a
/// captured trace, without a line end.
inline void appendFrameLine(std::string& out, int number, const Locus& locus) {
  out += '[';
  if (number >= 0 && number < 10) out += ' ';
  appendDecimal(out, number);
  out += "] ";
  out += locus.function;
  out += "()    <";
  out += locus.file;
  out += ':';
  appendDecimal(out, locus.line);
  out += '>';
}

/// Introduces a thread's additional stack information in both trace forms.
inline constexpr char kAdditionalInformation[] = "Additional information: ";

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
