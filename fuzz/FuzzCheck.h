// What every fuzz target shares: a property check that stops the run where
// libFuzzer (or the replay test) sees it, and silence for the library's
// ERROR lines, which rejected input writes by design.
#pragma once

#include <cstdio>
#include <cstdlib>

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

}  // namespace QIM::fuzz
