#include "AllocCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::size_t> total{0};
}  // namespace

namespace qimbench {
std::size_t allocatedBytes() { return total.load(std::memory_order_relaxed); }
}  // namespace qimbench

void* operator new(std::size_t size) {
  total.fetch_add(size, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return ::operator new(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

// The allocator's own count, so measuring costs nothing per allocation and
// includes what C code takes with malloc.
#if defined(__GLIBC__)
#include <malloc.h>
std::size_t qimbench::liveBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}
#else
std::size_t qimbench::liveBytes() { return 0; }
#endif
