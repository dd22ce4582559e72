// What every fuzz target shares: a property check that stops the run where
// libFuzzer (or the replay test) sees it, and silence for the library's
// ERROR lines, which rejected input writes by design.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "qimmisc/DbgMsg.h"

namespace QIM::fuzz {

/// Aborts with `what` on stderr when `condition` does not hold.
inline void check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "property violated: %s\n", what);
    std::abort();
  }
}

/// Closes the ERROR channel once per process: formatting the lines of
/// rejected input only slows the search.
inline void quietErrors() {
  static const bool quiet = [] {
    DbgMsg::toggleChannel(DbgMsg::ErrorId, false);
    return true;
  }();
  static_cast<void>(quiet);
}

/// Wide text made of arbitrary code units from pairs of bytes, lone
/// surrogates included; the same units on every platform.
inline std::wstring unitsOf(const std::string& bytes) {
  std::wstring wide;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    wide += static_cast<wchar_t>(static_cast<unsigned char>(bytes[i]) |
                                 (static_cast<unsigned char>(bytes[i + 1]) << 8));
  }
  return wide;
}

}  // namespace QIM::fuzz
