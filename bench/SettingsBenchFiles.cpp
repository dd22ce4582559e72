#include "SettingsBenchFiles.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

namespace qimbench {

namespace {

// Key names are built from the vocabulary of the client's own settings so
// their lengths and spellings resemble the real file.
const char* const kVerbs[] = {"allow", "enable", "use", "ignore", "max", "default",
                              "xcap", "presence", "sip", "srtp", "profile", "vm"};
const char* const kNouns[] = {"Transport", "RefreshTimer", "ListName", "Port", "Expiry",
                              "WindowLimit", "Path", "RetryInterval", "Command",
                              "SessionTimeout", "Publish", "Filename", "MasterKey",
                              "CallLogSize", "Suggestion", "Rules", "Tree", "AUID",
                              "Delay", "Controls", "URI", "Range", "Subscribe", "Name",
                              "Version"};

std::string valueFor(std::mt19937& random, std::size_t index) {
  switch (index % 6) {
    case 0: return std::to_string(random() % 2);                 // a flag
    case 1: return std::to_string(1024 + random() % 64000);      // a port or timer
    case 2: return "https://services.example.com/client/" + std::to_string(random() % 1000);
    case 3: return "org.openmobilealliance.pres-rules.system";
    case 4: return std::to_string(random() % 100) + "," + std::to_string(100 + random() % 100);
    default: return "comm_ggee_list_" + std::to_string(random() % 100000);
  }
}

std::string keyFor(std::size_t index) {
  constexpr std::size_t verbs = sizeof kVerbs / sizeof *kVerbs;
  constexpr std::size_t nouns = sizeof kNouns / sizeof *kNouns;
  std::string key = std::string(kVerbs[index % verbs]) + kNouns[(index / verbs) % nouns];
  if (index >= verbs * nouns) key += std::to_string(index / (verbs * nouns));
  return key;
}

SettingsFile writeFile(const std::string& name, const std::string& text, std::size_t keys) {
  const std::filesystem::path path = std::filesystem::temp_directory_path() / name;
  std::ofstream(path, std::ios::binary) << text;
  return {path.string(), keys, text.size()};
}

}  // namespace

const SettingsFile& mainSettingsFile() {
  static const SettingsFile file = [] {
    constexpr std::size_t kKeys = 300;
    std::mt19937 random(7);
    std::ostringstream text;
    text << "[VELDer]\n";
    for (std::size_t i = 0; i < kKeys; ++i) text << keyFor(i) << '=' << valueFor(random, i) << '\n';
    return writeFile("qimmisc_bench_main_settings.ini", text.str(), kKeys);
  }();
  return file;
}

const SettingsFile& largeSettingsFile() {
  static const SettingsFile file = [] {
    constexpr std::size_t kTargetBytes = 1 << 20;
    constexpr std::size_t kKeysPerSection = 100;
    std::mt19937 random(11);
    std::ostringstream text;
    std::size_t keys = 0;
    for (std::size_t section = 0; static_cast<std::size_t>(text.tellp()) < kTargetBytes; ++section) {
      text << "[Profile" << section << "]\n";
      for (std::size_t i = 0; i < kKeysPerSection; ++i, ++keys) {
        text << keyFor(i) << '=' << valueFor(random, i + section) << '\n';
      }
    }
    return writeFile("qimmisc_bench_large_settings.ini", text.str(), keys);
  }();
  return file;
}

}  // namespace qimbench
