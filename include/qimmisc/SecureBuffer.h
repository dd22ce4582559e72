// Secrets in process memory: strings that wipe every buffer they free, and
// buffers that keep a secret enciphered while it is not being read.
//
//   SelfCleanString password = ...;          // zeroed when freed
//   SecureString kept(password);             // enciphered at rest
//   SelfCleanString again = kept.get();      // deciphered copy, enciphered again
//
// Encipherment is for this process only: on Windows the system's
// same-process memory encipherment ("SystemFunction040"/"SystemFunction041"
// of "Advapi32.dll"); on Linux XChaCha20 under a key and a nonce drawn at
// random once per process (libsodium). Both are deterministic within the
// process, so two enciphered copies of one secret hold the same bytes. When
// encipherment is unavailable the bytes stay plain, silently.
//
// Stored layout of a SecureBuffer: a 32-bit byte count in native (little-
// endian) order, the payload bytes, then zero bytes up to the next multiple
// of 8 of the whole. A wide payload is stored as sizeof(wchar_t) bytes per
// character: 2 on Windows, 4 on Linux, where wchar_t holds UTF-32. The
// layout never leaves the process that wrote it (its encipherment is
// per-process), so no reader depends on the width, and every wchar_t value,
// valid Unicode or not, comes back unchanged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qimmisc/Export.h"

namespace QIM {

/// Sets `size` bytes at `pointer` to zero in a way the compiler cannot drop
/// as a dead store (SecureZeroMemory on Windows, sodium_memzero on Linux).
QIMMISC_API void secureZeroMemory(void* pointer, std::uint32_t size);

namespace detail {
/// secureZeroMemory for any size; `pointer` may be null when `size` is 0.
QIMMISC_API void wipeBytes(void* pointer, std::size_t size) noexcept;
/// Wipes a block a WipingAllocator is about to free.
QIMMISC_API void wipeFreedBlock(void* block, std::size_t size) noexcept;
}  // namespace detail

/// A std::allocator that zeroes every block before freeing it, so a
/// container that reallocates (a string growing, a copy replacing a longer
/// value) never leaves its old contents behind in free memory.
template <class T>
class WipingAllocator {
 public:
  using value_type = T;

  WipingAllocator() noexcept = default;
  template <class U>
  WipingAllocator(const WipingAllocator<U>&) noexcept {}  // NOLINT: rebinding

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* block, std::size_t count) noexcept {
    detail::wipeFreedBlock(block, count * sizeof(T));
    std::allocator<T>().deallocate(block, count);
  }
};

template <class T, class U>
bool operator==(const WipingAllocator<T>&, const WipingAllocator<U>&) noexcept {
  return true;
}

/// A string whose every buffer is zeroed before it is freed: heap blocks
/// through WipingAllocator, and on destruction the string's own inline
/// (small-string) storage as well, including what a short value left there
/// before the string moved to the heap. Results of the base class's
/// operations (operator+, substr) are plain basic_strings of the same
/// allocator: their heap blocks are wiped, their inline storage is not, so
/// keep secrets in BasicSelfCleanString variables.
template <class CharT>
class BasicSelfCleanString
    : public std::basic_string<CharT, std::char_traits<CharT>, WipingAllocator<CharT>> {
  using Base = std::basic_string<CharT, std::char_traits<CharT>, WipingAllocator<CharT>>;

 public:
  using Base::Base;
  BasicSelfCleanString() noexcept = default;
  BasicSelfCleanString(const BasicSelfCleanString&) = default;
  BasicSelfCleanString(BasicSelfCleanString&& other) noexcept : Base(std::move(other)) {}
  BasicSelfCleanString(const Base& other) : Base(other) {}  // NOLINT: a string is one
  BasicSelfCleanString(Base&& other) noexcept : Base(std::move(other)) {}  // NOLINT
  BasicSelfCleanString& operator=(const BasicSelfCleanString&) = default;
  BasicSelfCleanString& operator=(BasicSelfCleanString&& other) noexcept {
    Base::operator=(std::move(other));
    return *this;
  }
  using Base::operator=;

  ~BasicSelfCleanString() {
    wipeStorage();
    // Moving the value out hands any heap block to `released`, whose
    // allocator wipes and frees it, and puts this object back on its inline
    // storage, which may still hold what a shorter value left there.
    Base released(std::move(static_cast<Base&>(*this)));
    wipeStorage();
  }

 private:
  void wipeStorage() noexcept {
    detail::wipeBytes(this->data(), (this->capacity() + 1) * sizeof(CharT));
  }
};

/// A narrow string zeroed before it is freed.
using SelfCleanString = BasicSelfCleanString<char>;
/// A wide string zeroed before it is freed.
using SelfCleanWString = BasicSelfCleanString<wchar_t>;

/// The stored bytes of a secret and whether they are enciphered. Only the
/// string classes below build one; copies are enciphered copies.
class QIMMISC_API SecureBuffer {
 public:
  /// True when the buffer holds no bytes.
  bool empty() const;

 protected:
  using Bytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

  SecureBuffer();
  SecureBuffer(const SecureBuffer&) = default;
  SecureBuffer(SecureBuffer&&) noexcept = default;
  SecureBuffer& operator=(const SecureBuffer&) = default;
  SecureBuffer& operator=(SecureBuffer&&) noexcept = default;
  ~SecureBuffer();

  /// Zeroes every byte, empties the buffer and clears the flag.
  void clearBuffer();
  /// Enciphers the bytes in place unless they already are; the flag is set
  /// only when that succeeded.
  void protectBuffer();
  /// Deciphers the bytes in place if they are enciphered; the flag is
  /// cleared only when that succeeded.
  void unProtectBuffer();

  /// Replaces the content with the layout holding `payload`, then protects
  /// it. An empty payload leaves the buffer empty; so does one too long for
  /// the 32-bit count, with an ERROR line.
  void storePayload(std::span<const unsigned char> payload);
  /// Deciphers, hands `reader` the payload (empty when the stored count is 0
  /// or claims more bytes than the buffer holds), then protects again, also
  /// when `reader` throws.
  void readPayload(const std::function<void(std::span<const unsigned char>)>& reader);
  /// Equal flags and equal bytes as stored.
  bool sameStoredBytes(const SecureBuffer& other) const;

  Bytes buffer_;
  bool isProtected_ = false;
};

/// A secret kept enciphered in memory: SecureString (narrow) and
/// SecureWString (wide, sizeof(wchar_t) bytes per character).
template <class CharT>
class BasicSecureString : public SecureBuffer {
 public:
  using Value = BasicSelfCleanString<CharT>;

  BasicSecureString() = default;
  explicit BasicSecureString(const Value& value) { set(value); }

  /// Replaces the secret with `value` (an empty value empties the buffer).
  void set(const Value& value) {
    storePayload({reinterpret_cast<const unsigned char*>(value.data()),
                  value.size() * sizeof(CharT)});
  }

  /// A deciphered copy of the secret; empty when the buffer holds none or
  /// its count is damaged.
  Value get() {
    Value value;
    readPayload([&value](std::span<const unsigned char> payload) {
      if (payload.size() < sizeof(CharT)) return;
      value.resize(payload.size() / sizeof(CharT));
      std::memcpy(value.data(), payload.data(), value.size() * sizeof(CharT));
    });
    return value;
  }

  /// Equal when both are enciphered or both plain and hold the same bytes,
  /// so an enciphered and a plain copy of one secret differ.
  bool operator==(const BasicSecureString& other) const { return sameStoredBytes(other); }
};

/// A narrow secret kept enciphered in memory.
using SecureString = BasicSecureString<char>;
/// A wide secret kept enciphered in memory.
using SecureWString = BasicSecureString<wchar_t>;

/// The stored bytes of a SecureString set from `plain` (count, payload,
/// padding, enciphered when that succeeded), as a byte string; empty for
/// empty input. Only this process can decipher them.
QIMMISC_API std::string encryptString(const std::string& plain);

/// The secret of bytes made by encryptString in this process; empty when
/// their length is not a multiple of 8 or their count is damaged.
QIMMISC_API SelfCleanString decryptString(const std::string& bytes);

}  // namespace QIM
