// The key of the enciphered settings files, as the cipher uses it.
#pragma once

#include <cstdint>

#include "qimmisc/Export.h"

namespace QIM::detail {

/// Fills `words` with the key words k0..k3.
void settingsKeyWords(std::uint32_t words[4]);

/// True when the library was built with the development key (no private key
/// was supplied); tests of the committed enciphered samples need it.
QIMMISC_API bool settingsKeyIsDevelopment();

}  // namespace QIM::detail
