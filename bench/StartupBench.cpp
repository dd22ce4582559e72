// Library start-up and shut-down: the first init creates the main settings
// and reads them from an enciphered file with every key set (in a temporary
// installation folder), the last exit destroys them.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "qimmisc/EncryptionConfigurationFile.h"
#include "qimmisc/QIMMiscApi.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/VelderIni.h"

namespace {

// Every key the main settings read, each set to a value of its kind: its
// default where it has one (so nothing is rejected and no line is logged),
// a short text otherwise.
void writeEveryMainSetting(const std::wstring& path) {
  const QIM::Data::VelderIni defaults;
  QIM::EncryptionConfigurationFile file;
  for (const auto& setting : defaults.settings()) {
    file.setString(L"VELDer", QIM::fromUtf8(setting.key),
                   setting.defaultValue.empty() ? L"value" : setting.defaultValue);
  }
  file.write(path);
}

void startupInitExit(benchmark::State& state) {
  if (QIM::QIMMiscApi::refCount() != 0) {
    state.SkipWithError("the library is already started: init would not read the settings");
    return;
  }
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / "qimmisc_bench_installation";
  std::filesystem::create_directories(folder / "data");
  QIM::setInstallationPath(QIM::fromUtf8(folder.string()));
  writeEveryMainSetting(QIM::Data::getVELDerIniPath());
  for (auto _ : state) {
    QIM::QIMMiscApi::init();
    QIM::QIMMiscApi::exit();
  }
  QIM::setInstallationPath(L"");
  std::filesystem::remove_all(folder);
}
BENCHMARK(startupInitExit)->Name("Startup_init_exit/qimmisc")->Unit(benchmark::kMicrosecond);

}  // namespace
