// A look at the blocks WipingAllocator frees, for tests: reading a block
// after it is freed would be undefined, so the observer sees it wiped but
// not yet freed.
#pragma once

#include <cstddef>

#include "qimmisc/Export.h"

namespace QIM::detail {

/// Called with each block a WipingAllocator frees, after the wipe and
/// before the free, on the freeing thread.
using WipeObserver = void (*)(const void* block, std::size_t size);

/// Installs `observer` (null removes it) and returns the previous one.
QIMMISC_API WipeObserver setWipeObserver(WipeObserver observer);

}  // namespace QIM::detail
