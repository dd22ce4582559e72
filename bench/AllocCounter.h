// Heap bytes allocated by this process so far, counted by the benchmark
// binary's replacement of the global operator new. For "bytes per queued
// action" style figures: read before and after, divide by the count.
#pragma once

#include <cstddef>

namespace qimbench {
std::size_t allocatedBytes();
/// Heap bytes in use now (malloc and operator new alike), as the allocator
/// sized the blocks, rounding and headers included; 0 where the C library
/// cannot tell. For "bytes per loaded setting": read before and after a load.
std::size_t liveBytes();
}  // namespace qimbench
