#include "settings/SettingsKey.h"

#include "SettingsKeyBytes.h"

namespace QIM::detail {

void settingsKeyWords(std::uint32_t words[4]) {
  for (int i = 0; i < 4; ++i) {
    const unsigned char* b = kSettingsKeyBytes + 4 * i;
    words[i] = (std::uint32_t{b[0]} << 24) | (std::uint32_t{b[1]} << 16) |
               (std::uint32_t{b[2]} << 8) | std::uint32_t{b[3]};
  }
}

bool settingsKeyIsDevelopment() { return kSettingsKeyIsDevelopment; }

}  // namespace QIM::detail
