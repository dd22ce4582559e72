#include "qimmisc/SecureBuffer.h"

#include <cstring>

#include "qimmisc/Trace.h"
#include "settings/MemoryProtection.h"

namespace QIM {

namespace {
constexpr std::size_t kCountSize = sizeof(std::uint32_t);
constexpr std::size_t kBlockSize = 8;
// The whole layout stays within 32 bits, the most Windows enciphers at once.
constexpr std::size_t kMaxPayload = 0xFFFFFFF8u - kCountSize;

bool canProtect(std::size_t size) { return size != 0 && size % kBlockSize == 0; }
}  // namespace

SecureBuffer::SecureBuffer() = default;

SecureBuffer::~SecureBuffer() { clearBuffer(); }

bool SecureBuffer::empty() const { return buffer_.empty(); }

void SecureBuffer::clearBuffer() {
  detail::wipeBytes(buffer_.data(), buffer_.size());
  buffer_.clear();
  isProtected_ = false;
}

void SecureBuffer::protectBuffer() {
  if (isProtected_ || !canProtect(buffer_.size())) return;
  isProtected_ = detail::protectMemory(buffer_.data(), buffer_.size());
}

void SecureBuffer::unProtectBuffer() {
  if (!isProtected_ || !canProtect(buffer_.size())) return;
  isProtected_ = !detail::unprotectMemory(buffer_.data(), buffer_.size());
}

void SecureBuffer::storePayload(std::span<const unsigned char> payload) {
  clearBuffer();
  if (payload.empty()) return;
  if (payload.size() > kMaxPayload) {
    QIM_ERROR("secret of " << payload.size() << " bytes is too long to keep");
    return;
  }
  buffer_.resize((kCountSize + payload.size() + kBlockSize - 1) / kBlockSize * kBlockSize);
  const auto count = static_cast<std::uint32_t>(payload.size());
  std::memcpy(buffer_.data(), &count, kCountSize);
  std::memcpy(buffer_.data() + kCountSize, payload.data(), payload.size());
  protectBuffer();
}

void SecureBuffer::readPayload(
    const std::function<void(std::span<const unsigned char>)>& reader) {
  unProtectBuffer();
  struct Reprotect {
    SecureBuffer& buffer;
    ~Reprotect() { buffer.protectBuffer(); }
  } reprotect{*this};

  std::span<const unsigned char> payload;
  if (buffer_.size() > kCountSize) {
    std::uint32_t count = 0;
    std::memcpy(&count, buffer_.data(), kCountSize);
    if (count != 0 && buffer_.size() >= std::size_t{count} + kCountSize) {
      payload = {buffer_.data() + kCountSize, count};
    }
  }
  reader(payload);
}

bool SecureBuffer::sameStoredBytes(const SecureBuffer& other) const {
  return isProtected_ == other.isProtected_ && buffer_.size() == other.buffer_.size() &&
         (buffer_.empty() ||
          std::memcmp(buffer_.data(), other.buffer_.data(), buffer_.size()) == 0);
}

}  // namespace QIM
