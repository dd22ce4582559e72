// Same-process encipherment of memory, the platform half of SecureBuffer.
// Both calls work in place on whole 8-byte blocks, keep the length, and are
// deterministic within the process; they report false (bytes untouched)
// when the platform cannot encipher.
#pragma once

#include <cstddef>

namespace QIM::detail {

/// Enciphers `size` bytes (a non-zero multiple of 8) at `block` in place.
bool protectMemory(void* block, std::size_t size) noexcept;

/// Undoes protectMemory on the same bytes.
bool unprotectMemory(void* block, std::size_t size) noexcept;

}  // namespace QIM::detail
