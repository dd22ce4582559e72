#include <atomic>

#include "qimmisc/SecureBuffer.h"
#include "settings/WipeObserver.h"

namespace QIM::detail {

namespace {
std::atomic<WipeObserver> wipeObserver{nullptr};
}  // namespace

void wipeFreedBlock(void* block, std::size_t size) noexcept {
  wipeBytes(block, size);
  if (const WipeObserver observer = wipeObserver.load(std::memory_order_acquire)) {
    observer(block, size);
  }
}

WipeObserver setWipeObserver(WipeObserver observer) {
  return wipeObserver.exchange(observer, std::memory_order_acq_rel);
}

}  // namespace QIM::detail
