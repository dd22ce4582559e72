#include "settings/Tea.h"

namespace QIM::detail {
namespace {

constexpr std::uint32_t kDelta = 0x9E3779B9u;
constexpr std::uint32_t kDecipherSum = 0xC6EF3720u;  // kDelta * 32
constexpr int kCycles = 32;

// Byte by byte, so alignment and host order never matter; compilers turn
// these into one load and a byte swap.
std::uint32_t loadBig(const unsigned char* p) {
  return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
         std::uint32_t{p[3]};
}

void storeBig(unsigned char* p, std::uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 24);
  p[1] = static_cast<unsigned char>(v >> 16);
  p[2] = static_cast<unsigned char>(v >> 8);
  p[3] = static_cast<unsigned char>(v);
}

long blockCount(long length) { return length <= 0 ? 0 : ((length - 1) / 8) + 1; }

}  // namespace

void teaEncipher(unsigned char* data, long length, const std::uint32_t key[4]) {
  const std::uint32_t k0 = key[0], k1 = key[1], k2 = key[2], k3 = key[3];
  for (long block = blockCount(length); block > 0; --block, data += 8) {
    std::uint32_t y = loadBig(data);
    std::uint32_t z = loadBig(data + 4);
    std::uint32_t sum = 0;
    for (int i = 0; i < kCycles; ++i) {
      sum += kDelta;
      y += ((z << 4) + k0) ^ (z + sum) ^ ((z >> 5) + k1);
      z += ((y << 4) + k2) ^ (y + sum) ^ ((y >> 5) + k3);
    }
    storeBig(data, y);
    storeBig(data + 4, z);
  }
}

void teaDecipher(unsigned char* data, long length, const std::uint32_t key[4]) {
  const std::uint32_t k0 = key[0], k1 = key[1], k2 = key[2], k3 = key[3];
  for (long block = blockCount(length); block > 0; --block, data += 8) {
    std::uint32_t y = loadBig(data);
    std::uint32_t z = loadBig(data + 4);
    std::uint32_t sum = kDecipherSum;
    for (int i = 0; i < kCycles; ++i) {
      z -= ((y << 4) + k2) ^ (y + sum) ^ ((y >> 5) + k3);
      y -= ((z << 4) + k0) ^ (z + sum) ^ ((z >> 5) + k1);
      sum -= kDelta;
    }
    storeBig(data, y);
    storeBig(data + 4, z);
  }
}

}  // namespace QIM::detail
