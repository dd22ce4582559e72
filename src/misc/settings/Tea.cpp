#include "settings/Tea.h"

#include <type_traits>

namespace QIM::detail {
namespace {

constexpr std::uint32_t kDelta = 0x9E3779B9u;
constexpr std::uint32_t kDecipherSum = 0xC6EF3720u;  // kDelta * 32
constexpr int kCycles = 32;
// Blocks taken together: their cycles are independent, so the processor
// (or the compiler's vector code) overlaps them.
constexpr long kLanes = 4;

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

// Lanes blocks at `data` in either direction: y and z of
// each block are loaded, passed to `cycles`, and stored back.
template <long Lanes, class Cycles>
void cipherBlocks(unsigned char* data, Cycles cycles) {
  std::uint32_t y[Lanes];
  std::uint32_t z[Lanes];
  for (long l = 0; l < Lanes; ++l) {
    y[l] = loadBig(data + 8 * l);
    z[l] = loadBig(data + 8 * l + 4);
  }
  cycles(y, z);
  for (long l = 0; l < Lanes; ++l) {
    storeBig(data + 8 * l, y[l]);
    storeBig(data + 8 * l + 4, z[l]);
  }
}

// Runs `run` over ((length - 1) / 8) + 1 blocks, kLanes at a time while
// that many are left.
template <class Run>
void forEachBlock(unsigned char* data, long length, Run run) {
  long blocks = length <= 0 ? 0 : ((length - 1) / 8) + 1;
  for (; blocks >= kLanes; blocks -= kLanes, data += 8 * kLanes) {
    run(std::integral_constant<long, kLanes>(), data);
  }
  for (; blocks > 0; --blocks, data += 8) run(std::integral_constant<long, 1>(), data);
}

}  // namespace

void teaEncipher(unsigned char* data, long length, const std::uint32_t key[4]) {
  const std::uint32_t k0 = key[0], k1 = key[1], k2 = key[2], k3 = key[3];
  forEachBlock(data, length, [=](auto lanes, unsigned char* at) {
    constexpr long n = decltype(lanes)::value;
    cipherBlocks<n>(at, [=](std::uint32_t* y, std::uint32_t* z) {
      std::uint32_t sum = 0;
      for (int i = 0; i < kCycles; ++i) {
        sum += kDelta;
        for (long l = 0; l < n; ++l) y[l] += ((z[l] << 4) + k0) ^ (z[l] + sum) ^ ((z[l] >> 5) + k1);
        for (long l = 0; l < n; ++l) z[l] += ((y[l] << 4) + k2) ^ (y[l] + sum) ^ ((y[l] >> 5) + k3);
      }
    });
  });
}

void teaDecipher(unsigned char* data, long length, const std::uint32_t key[4]) {
  const std::uint32_t k0 = key[0], k1 = key[1], k2 = key[2], k3 = key[3];
  forEachBlock(data, length, [=](auto lanes, unsigned char* at) {
    constexpr long n = decltype(lanes)::value;
    cipherBlocks<n>(at, [=](std::uint32_t* y, std::uint32_t* z) {
      std::uint32_t sum = kDecipherSum;
      for (int i = 0; i < kCycles; ++i) {
        for (long l = 0; l < n; ++l) z[l] -= ((y[l] << 4) + k2) ^ (y[l] + sum) ^ ((y[l] >> 5) + k3);
        for (long l = 0; l < n; ++l) y[l] -= ((z[l] << 4) + k0) ^ (z[l] + sum) ^ ((z[l] >> 5) + k1);
        sum -= kDelta;
      }
    });
  });
}

}  // namespace QIM::detail
