// Heap bytes allocated by this process so far, counted by the benchmark
// binary's replacement of the global operator new. For "bytes per queued
// action" style figures: read before and after, divide by the count.
#pragma once

#include <cstddef>

namespace qimbench {
std::size_t allocatedBytes();
}  // namespace qimbench
