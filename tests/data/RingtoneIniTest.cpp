#include "qimmisc/RingtoneIni.h"

#include <gtest/gtest.h>

#include "data/DataFolder.h"
#include "qimmisc/StringUtils.h"

namespace QIM::Data {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

using RingtoneIniTest = test::DataFolderTest;

TEST_F(RingtoneIniTest, EachSectionIsOneToneUnderItsLowerCasedName) {
  const std::pair<const char*, DistinctiveTone> cases[] = {
      // Every flag away from its default.
      {"[Boss]\nringtonePath=C:\\Sounds\\boss.wav\nringtoneLoop=0\nringtoneDevice=0\n"
       "cwtPath=C:\\Sounds\\beep.wav\ncwtLoop=0\ncwtDevice=1\n",
       {false, true, L"C:\\Sounds\\beep.wav", false, false, L"C:\\Sounds\\boss.wav"}},
      {"[BOSS]\n", {true, false, L"", true, true, L""}},
      // Only the number 1 sets a flag; text that is no number gives the default.
      {"[boss]\nringtoneLoop=true\nringtoneDevice=2\ncwtDevice=yes\ncwtLoop=-1\n",
       {false, false, L"", true, false, L""}},
  };
  for (const auto& [file, expected] : cases) {
    RingtoneIni tones;
    tones.readRingtoneIniFile(writeData("Ringtone.ini", file));
    ASSERT_EQ(tones.tones().size(), 1u) << file;
    EXPECT_EQ(tones.tones()[0].first, L"boss");
    DistinctiveTone found;
    EXPECT_TRUE(tones.getTone(L"bOsS", found));
    EXPECT_EQ(found, expected) << file;
  }
}

TEST_F(RingtoneIniTest, AnUnconfiguredToneIsLoggedAndLeftAlone) {
  RingtoneIni tones;
  tones.readRingtoneIniFile(writeData("Ringtone.ini", "[boss]\nringtonePath=a.wav\n"));
  DistinctiveTone tone;
  tone.ringtonePath = L"mine.wav";
  EXPECT_FALSE(tones.getTone(L"Caf\u00e9", tone));
  EXPECT_EQ(tone.ringtonePath, L"mine.wav");
  EXPECT_THAT(sink_.linesWith("unconfigured"),
              ElementsAre(AllOf(HasSubstr("ERROR"),
                                EndsWith("RingtoneIni::getTone - attempt to retrieve unconfigured "
                                         "tone : Caf\xC3\xA9"))));
}

TEST_F(RingtoneIniTest, ALaterFileAddsAndReplacesButRemovesNothing) {
  RingtoneIni tones;
  tones.readRingtoneIniFile(writeData("a.ini", "[boss]\nringtonePath=a.wav\n[wife]\ncwtLoop=0\n"));
  tones.readRingtoneIniFile(writeData("b.ini", "[Boss]\nringtonePath=b.wav\n[kids]\n"));
  const std::wstring missing = (root_ / "data" / "none.ini").wstring();
  tones.readRingtoneIniFile(missing);
  EXPECT_THAT(sink_.linesWith("Can't load"),
              ElementsAre(EndsWith("Can't load ringtone file: " + toUtf8(missing))));
  const auto all = tones.tones();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].first, L"boss");
  EXPECT_EQ(all[0].second.ringtonePath, L"b.wav");
  EXPECT_EQ(all[1].first, L"kids");
  EXPECT_EQ(all[2].first, L"wife");
  EXPECT_FALSE(all[2].second.cwtLoop);
}

}  // namespace
}  // namespace QIM::Data
