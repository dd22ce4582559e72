// Settings files for the loading benchmarks, generated once per run into the
// temporary folder so every side reads the same bytes from a warm page cache.
#pragma once

#include <cstddef>
#include <string>

namespace qimbench {

/// A generated settings file on disk.
struct SettingsFile {
  std::string path;  ///< narrow (UTF-8) path, as the peers take it
  std::size_t keys = 0;
  std::size_t bytes = 0;
};

/// A main settings file: one section "VELDer" of 300 keys shaped like the
/// client's (camel-case names, ports, flags, timers, URLs, folder names).
const SettingsFile& mainSettingsFile();

/// A settings file of about 1 MB: a few hundred sections of a hundred keys
/// each, values of varied length.
const SettingsFile& largeSettingsFile();

}  // namespace qimbench
