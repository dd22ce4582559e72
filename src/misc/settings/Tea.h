// TEA, the Tiny Encryption Algorithm (Wheeler and Needham): 32 cycles over
// 8-byte blocks in electronic-codebook mode, each block two big-endian words.
#pragma once

#include <cstdint>

#include "qimmisc/Export.h"

namespace QIM::detail {

/// Enciphers ((length - 1) / 8) + 1 blocks of `data` in place, that is
/// `length` rounded up to whole blocks: the caller provides that many bytes.
/// Nothing happens for a length of 0 or less.
QIMMISC_API void teaEncipher(unsigned char* data, long length, const std::uint32_t key[4]);

/// Undoes teaEncipher, on the same terms.
QIMMISC_API void teaDecipher(unsigned char* data, long length, const std::uint32_t key[4]);

}  // namespace QIM::detail
