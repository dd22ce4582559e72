// Heap bytes allocated by this process so far, counted by the benchmark
// binary's replacement of the global operator new. For "bytes per queued
// action" style figures: read before and after, divide by the count.
#pragma once

#include <cstddef>

namespace qimbench {
std::size_t allocatedBytes();
/// Heap bytes obtained through operator new and not yet deleted, as the
/// allocator sized the blocks (so a figure of what stays resident, rounding
/// included). For "bytes per loaded setting": read before and after a load.
std::size_t liveBytes();
}  // namespace qimbench
