// The pause of a short busy-wait: tells the CPU that the loop waits for
// another core, which saves power and lets a sibling hyper-thread run.
#pragma once

#if defined(__x86_64__) || defined(__i386__) || defined(_M_X64) || defined(_M_IX86)
#include <immintrin.h>
#endif

namespace QIM::detail {

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__) || defined(_M_X64) || defined(_M_IX86)
  _mm_pause();
#endif
}

}  // namespace QIM::detail
