// Linux has no same-process memory encipherment, so the process draws its own
// XChaCha20 key and nonce at random on first use and XORs the key stream over
// the bytes. One key stream for every buffer keeps the transform
// deterministic, which SecureString's equality needs; it hides secrets from
// memory dumps and scans, not from someone who can read this process's key.
#include <sodium.h>

#include <cstdint>

#include "qimmisc/SecureBuffer.h"
#include "settings/MemoryProtection.h"

namespace QIM {

namespace {

struct StreamKey {
  unsigned char key[crypto_stream_xchacha20_KEYBYTES];
  unsigned char nonce[crypto_stream_xchacha20_NONCEBYTES];
  bool ready = false;
};

// Never destroyed: buffers may be deciphered by other statics' destructors.
const StreamKey& streamKey() {
  static StreamKey* const key = [] {
    static StreamKey storage;
    if (sodium_init() < 0) return &storage;
    // Kept out of swap where the limit allows; encipherment works either way.
    sodium_mlock(&storage, sizeof storage);
    crypto_stream_xchacha20_keygen(storage.key);
    randombytes_buf(storage.nonce, sizeof storage.nonce);
    storage.ready = true;
    return &storage;
  }();
  return *key;
}

bool xorKeyStream(void* block, std::size_t size) noexcept {
  const StreamKey& key = streamKey();
  if (!key.ready || size == 0 || size % 8 != 0) return false;
  auto* bytes = static_cast<unsigned char*>(block);
  return crypto_stream_xchacha20_xor(bytes, bytes, size, key.nonce, key.key) == 0;
}

}  // namespace

void secureZeroMemory(void* pointer, std::uint32_t size) { detail::wipeBytes(pointer, size); }

namespace detail {

void wipeBytes(void* pointer, std::size_t size) noexcept {
  if (size != 0) sodium_memzero(pointer, size);
}

bool protectMemory(void* block, std::size_t size) noexcept { return xorKeyStream(block, size); }

bool unprotectMemory(void* block, std::size_t size) noexcept { return xorKeyStream(block, size); }

}  // namespace detail
}  // namespace QIM
