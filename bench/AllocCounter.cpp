#include "AllocCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

#if defined(__GLIBC__)
#include <malloc.h>
#define QIMBENCH_BLOCK_SIZE(p) malloc_usable_size(p)
#elif defined(_WIN32)
#include <malloc.h>
#define QIMBENCH_BLOCK_SIZE(p) _msize(p)
#else
#define QIMBENCH_BLOCK_SIZE(p) std::size_t{0}
#endif

namespace {
std::atomic<std::size_t> total{0};
std::atomic<std::size_t> live{0};

void release(void* p) noexcept {
  if (p == nullptr) return;
  live.fetch_sub(QIMBENCH_BLOCK_SIZE(p), std::memory_order_relaxed);
  std::free(p);
}
}  // namespace

namespace qimbench {
std::size_t allocatedBytes() { return total.load(std::memory_order_relaxed); }
std::size_t liveBytes() { return live.load(std::memory_order_relaxed); }
}  // namespace qimbench

void* operator new(std::size_t size) {
  total.fetch_add(size, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) {
    live.fetch_add(QIMBENCH_BLOCK_SIZE(p), std::memory_order_relaxed);
    return p;
  }
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return ::operator new(size); }
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
