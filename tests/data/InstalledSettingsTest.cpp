// The settings files below the installation folder, and the process-wide
// settings objects that QIMMiscApi::init makes and exit destroys.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "data/DataFolder.h"
#include "qimmisc/QIMMiscApi.h"
#include "qimmisc/RingtoneIni.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/VelderIni.h"

namespace QIM::Data {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

using InstalledSettingsTest = test::DataFolderTest;

TEST_F(InstalledSettingsTest, FilesAreNamedBelowTheInstallationFolder) {
  const std::wstring data = getInstallationPath() + L"data" + kPathSeparator;
  EXPECT_EQ(getVELDerIniPath(), data + L"VELDer.dat");
  EXPECT_EQ(getRingtoneIniPath(), data + L"Ringtone.ini");
}

TEST_F(InstalledSettingsTest, InstancesLiveFromTheFirstInitToTheLastExit) {
  const auto noInstances = [this] {
    sink_.clear();
    EXPECT_EQ(VelderIni::instance(), nullptr);
    EXPECT_EQ(RingtoneIni::instance(), nullptr);
    const auto notInitialized = [](const std::string& type) {
      return HasSubstr("Assertion failed: \"theInstance.get()\" : " + type +
                       " instance not initialized!  OS ERROR: ");
    };
    EXPECT_THAT(sink_.linesWith("Assertion failed"),
                ElementsAre(notInitialized("VelderIni"), notInitialized("RingtoneIni")));
  };
  noInstances();
  QIMMiscApi::init();
  QIMMiscApi::init();
  VelderIni* const settings = VelderIni::instance();
  RingtoneIni* const tones = RingtoneIni::instance();
  ASSERT_TRUE(settings && tones);
  QIMMiscApi::exit();
  EXPECT_EQ(VelderIni::instance(), settings);
  EXPECT_EQ(RingtoneIni::instance(), tones);
  QIMMiscApi::exit();
  noInstances();
}

TEST_F(InstalledSettingsTest, InitReadsTheInstalledFileForEveryThread) {
  writeEnciphered("VELDer.dat",
                  "[VELDer]\nproxy=sip.example.com\nTLSPort=6061\nRTPportRange=60000,50000\n");
  QIMMiscApi::init();
  EXPECT_TRUE(VelderIni::instance()->fileFound());
  EXPECT_THAT(
      VelderIni::instance()->readMessages(),
      ElementsAre("Invalid RTP Port Range defined: 60000,50000 -- Range set to: 50000,50089"));
  std::vector<std::thread> readers;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    readers.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        const VelderIni& settings = *VelderIni::instance();
        wrong += settings.getProxy() != L"sip.example.com" || settings.getTLSPort() != 6061;
      }
    });
  }
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(wrong, 0);
  QIMMiscApi::exit();
}

TEST_F(InstalledSettingsTest, AMissingOrDamagedFileLeavesEveryDefault) {
  VelderIni settings;
  const std::string text = "[VELDer]\nenableIM=0\nmaxBadPings=0\n";
  settings.readVelderIniFile(writeEnciphered("other.dat", text));
  ASSERT_FALSE(settings.getEnableIM());
  ASSERT_EQ(settings.readMessages().size(), 1u);
  settings.readVelderIniFile(getVELDerIniPath());
  EXPECT_FALSE(settings.fileFound());
  EXPECT_THAT(sink_.linesWith(R"(Throwing FileNotFoundException("File not found"))"), SizeIs(1));
  for (const auto& setting : settings.settings()) {
    EXPECT_EQ(setting.value, setting.defaultValue) << setting.key;
  }
  EXPECT_TRUE(settings.readMessages().empty());
  settings.readVelderIniFile(writeEnciphered("other.dat", text));
  settings.readVelderIniFile(writeData("damaged.dat", "xx\x7f"));  // more padding than text
  EXPECT_TRUE(settings.fileFound());
  EXPECT_TRUE(settings.fileDamaged());
  EXPECT_TRUE(settings.getEnableIM());
}

}  // namespace
}  // namespace QIM::Data
