// A flame graph drawn from the calling-context tree of a CallTracker, as one
// self-contained SVG file: no script, no font or style from elsewhere.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "CallTracker.h"

namespace qimtool {

/// Draws every call path of `calls` (kept with paths on) as a box as wide as
/// its time, callers below their callees; each box's <title> holds its
/// function, calls and microseconds. `title` heads the picture.
void drawFlameGraph(std::ostream& out, const CallTracker& calls, const std::string& title);

/// Appends `text` to `out` escaped for XML character data and attribute
/// values; bytes that are not valid UTF-8, and control characters XML does not
/// allow, become '?'.
void appendXml(std::string& out, std::string_view text);

}  // namespace qimtool
