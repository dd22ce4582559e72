// TEA throughput on a 1 MB buffer: the library's routine against the
// algorithm as its authors published it (two 32-bit words per block, 32
// cycles), wrapped in the same big-endian block walk the settings file uses.
// The library's routine is internal; it is exported for its own tests and
// reached here through the library's source folder.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "settings/Tea.h"

namespace {

constexpr std::size_t kBufferBytes = 1 << 20;
const std::uint32_t kKey[4] = {0x01234567, 0x89ABCDEF, 0xFEDCBA98, 0x76543210};

// The published reference routines, with fixed-width words.
void referenceEncipher(const std::uint32_t v[2], std::uint32_t w[2], const std::uint32_t k[4]) {
  std::uint32_t y = v[0], z = v[1], sum = 0, delta = 0x9E3779B9, n = 32;
  while (n-- > 0) {
    sum += delta;
    y += ((z << 4) + k[0]) ^ (z + sum) ^ ((z >> 5) + k[1]);
    z += ((y << 4) + k[2]) ^ (y + sum) ^ ((y >> 5) + k[3]);
  }
  w[0] = y;
  w[1] = z;
}

void referenceDecipher(const std::uint32_t v[2], std::uint32_t w[2], const std::uint32_t k[4]) {
  std::uint32_t y = v[0], z = v[1], sum = 0xC6EF3720, delta = 0x9E3779B9, n = 32;
  while (n-- > 0) {
    z -= ((y << 4) + k[2]) ^ (y + sum) ^ ((y >> 5) + k[3]);
    y -= ((z << 4) + k[0]) ^ (z + sum) ^ ((z >> 5) + k[1]);
    sum -= delta;
  }
  w[0] = y;
  w[1] = z;
}

std::uint32_t loadBigEndian(const unsigned char* p) {
  return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

void storeBigEndian(std::uint32_t word, unsigned char* p) {
  p[0] = static_cast<unsigned char>(word >> 24);
  p[1] = static_cast<unsigned char>(word >> 16);
  p[2] = static_cast<unsigned char>(word >> 8);
  p[3] = static_cast<unsigned char>(word);
}

// ECB over whole 8-byte blocks, each block's words read and written back
// big-endian in place.
template <void (*Routine)(const std::uint32_t*, std::uint32_t*, const std::uint32_t*)>
void referenceBlocks(unsigned char* data, std::size_t bytes) {
  for (std::size_t at = 0; at + 8 <= bytes; at += 8) {
    std::uint32_t block[2] = {loadBigEndian(data + at), loadBigEndian(data + at + 4)};
    Routine(block, block, kKey);
    storeBigEndian(block[0], data + at);
    storeBigEndian(block[1], data + at + 4);
  }
}

std::vector<unsigned char> makeBuffer() {
  std::vector<unsigned char> buffer(kBufferBytes);
  for (std::size_t i = 0; i < buffer.size(); ++i) buffer[i] = static_cast<unsigned char>(i * 131);
  return buffer;
}

void qimmiscEncipher(unsigned char* data, std::size_t bytes) {
  QIM::detail::teaEncipher(data, static_cast<long>(bytes), kKey);
}

void qimmiscDecipher(unsigned char* data, std::size_t bytes) {
  QIM::detail::teaDecipher(data, static_cast<long>(bytes), kKey);
}

using Transform = void (*)(unsigned char*, std::size_t);

// `sameAs` is the other side of the pair: a comparison only means something
// when both compute the same bytes, so that is checked first.
void teaThroughput(benchmark::State& state, Transform transform, Transform sameAs) {
  std::vector<unsigned char> buffer = makeBuffer();
  std::vector<unsigned char> expected = buffer;
  transform(buffer.data(), 64);
  sameAs(expected.data(), 64);
  if (buffer != expected) {
    state.SkipWithError("the library's routine and the reference disagree");
    return;
  }
  for (auto _ : state) {
    transform(buffer.data(), buffer.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * buffer.size()));
}

const Transform encipherReference = referenceBlocks<referenceEncipher>;
const Transform decipherReference = referenceBlocks<referenceDecipher>;
BENCHMARK_CAPTURE(teaThroughput, encipherQimmisc, qimmiscEncipher, encipherReference)
    ->Name("Tea_encipher_1MB/qimmisc")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(teaThroughput, encipherReference, encipherReference, qimmiscEncipher)
    ->Name("Tea_encipher_1MB/reference")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(teaThroughput, decipherQimmisc, qimmiscDecipher, decipherReference)
    ->Name("Tea_decipher_1MB/qimmisc")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(teaThroughput, decipherReference, decipherReference, qimmiscDecipher)
    ->Name("Tea_decipher_1MB/reference")->Unit(benchmark::kMicrosecond);

}  // namespace
