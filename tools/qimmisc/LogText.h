// Texts every "log" command prints or reads: thread ids, positions in the
// input, and the closing note on lines that were not read.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "LogReader.h"

namespace qimtool {

/// A thread id as the library writes it: 4 or more upper-case hex digits.
std::string threadText(std::uint64_t thread);

/// Reads a --thread value: hexadecimal, with or without leading zeros or a
/// "0x", in any letter case.
bool readThread(const std::string& text, std::uint64_t& thread);

/// "file:line" of a position in the input.
std::string positionText(const LogReader& reader, const LinePosition& at);

/// One line on `out` when lines were skipped, torn or files are advanced-user
/// only, pointing to "qimmisc log summary" for the detail; nothing otherwise.
void noteSkipped(std::ostream& out, const LogReader& reader);

}  // namespace qimtool
