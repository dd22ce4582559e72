// Loading settings files: ours (BufferConfigurationFile) against inih and
// SimpleIni, each loading the same file from a warm page cache into its own
// structures, built and destroyed once per iteration. The counter
// "bytes_per_setting" is the heap that stays live after a load, divided by
// the number of keys.
#include <benchmark/benchmark.h>
#include <ini.h>

// CSimpleIniA keeps UTF-8 as bytes; the wide-character conversions it would
// otherwise compile need a library the benchmark has no use for. Debian's
// header compiles its template bodies only where SI_IMPLEMENTATION is set.
#define SI_NO_CONVERSION
#define SI_IMPLEMENTATION
#include <SimpleIni.h>

#include <map>
#include <memory>
#include <string>

#include "AllocCounter.h"
#include "SettingsBenchFiles.h"
#include "qimmisc/BufferConfigurationFile.h"
#include "qimmisc/StringUtils.h"

namespace {

using qimbench::SettingsFile;

// inih hands each entry to a callback; storing it is the caller's work.
using InihSections = std::map<std::string, std::map<std::string, std::string>>;

int storeInihEntry(void* user, const char* section, const char* key, const char* value) {
  (*static_cast<InihSections*>(user))[section][key] = value;
  return 1;
}

struct OursLoader {
  const SettingsFile& file;
  std::wstring path = QIM::fromUtf8(file.path);
  std::unique_ptr<QIM::BufferConfigurationFile> operator()() const {
    auto loaded = std::make_unique<QIM::BufferConfigurationFile>();
    loaded->loadConfigurationFile(path);
    return loaded;
  }
  static std::size_t keys(QIM::BufferConfigurationFile& loaded) {
    std::size_t count = 0;
    for (const std::wstring& name : loaded.getSections()) count += loaded.getSection(name).size();
    return count;
  }
};

struct InihLoader {
  const SettingsFile& file;
  std::unique_ptr<InihSections> operator()() const {
    auto loaded = std::make_unique<InihSections>();
    ini_parse(file.path.c_str(), storeInihEntry, loaded.get());
    return loaded;
  }
  static std::size_t keys(const InihSections& loaded) {
    std::size_t count = 0;
    for (const auto& section : loaded) count += section.second.size();
    return count;
  }
};

struct SimpleIniLoader {
  const SettingsFile& file;
  std::unique_ptr<CSimpleIniA> operator()() const {
    auto loaded = std::make_unique<CSimpleIniA>(/*isUtf8=*/true);
    loaded->LoadFile(file.path.c_str());
    return loaded;
  }
  static std::size_t keys(const CSimpleIniA& loaded) {
    CSimpleIniA::TNamesDepend sections;
    loaded.GetAllSections(sections);
    std::size_t count = 0;
    for (const auto& section : sections) {
      count += static_cast<std::size_t>(loaded.GetSectionSize(section.pItem));
    }
    return count;
  }
};

// Checks that `load` reads every key, times it, and then measures, once,
// what one loaded object keeps on the heap.
template <class Loader, const SettingsFile& (*File)()>
void loadSettings(benchmark::State& state) {
  const SettingsFile& file = File();
  const Loader load{file};
  if (Loader::keys(*load()) != file.keys) {
    state.SkipWithError("the file did not load whole");
    return;
  }
  for (auto _ : state) {
    auto loaded = load();
    benchmark::DoNotOptimize(loaded.get());
  }
  const std::size_t before = qimbench::liveBytes();
  auto kept = load();
  const std::size_t after = qimbench::liveBytes();
  state.counters["bytes_per_setting"] =
      static_cast<double>(after - before) / static_cast<double>(file.keys);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.bytes));
}

using qimbench::largeSettingsFile;
using qimbench::mainSettingsFile;
BENCHMARK_TEMPLATE(loadSettings, OursLoader, mainSettingsFile)
    ->Name("Settings_load_300_keys/qimmisc")->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(loadSettings, InihLoader, mainSettingsFile)
    ->Name("Settings_load_300_keys/inih")->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(loadSettings, SimpleIniLoader, mainSettingsFile)
    ->Name("Settings_load_300_keys/simpleini")->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(loadSettings, OursLoader, largeSettingsFile)
    ->Name("Settings_load_1MB/qimmisc")->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(loadSettings, InihLoader, largeSettingsFile)
    ->Name("Settings_load_1MB/inih")->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(loadSettings, SimpleIniLoader, largeSettingsFile)
    ->Name("Settings_load_1MB/simpleini")->Unit(benchmark::kMillisecond);

}  // namespace
