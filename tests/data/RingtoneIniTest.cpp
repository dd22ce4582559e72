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

DistinctiveTone tone(bool cwtLoop, bool cwtDevice, const wchar_t* cwtPath, bool ringtoneLoop,
                     bool ringtoneDevice, const wchar_t* ringtonePath) {
  return {cwtLoop, cwtDevice, cwtPath, ringtoneLoop, ringtoneDevice, ringtonePath};
}

TEST_F(RingtoneIniTest, EachSectionIsOneToneUnderItsLowerCasedName) {
  struct Case {
    const char* file;
    DistinctiveTone expected;
  };
  const Case cases[] = {
      {"[Boss]\nringtonePath=C:\\Sounds\\boss.wav\nringtoneLoop=1\nringtoneDevice=1\n"
       "cwtPath=C:\\Sounds\\beep.wav\ncwtLoop=0\ncwtDevice=0\n",
       tone(false, false, L"C:\\Sounds\\beep.wav", true, true, L"C:\\Sounds\\boss.wav")},
      {"[BOSS]\n", DistinctiveTone()},
      {"[boss]\nringtoneLoop=true\nringtoneDevice=2\ncwtDevice=yes\ncwtLoop=-1\n",
       tone(false, false, L"", true, false, L"")},
      {"[Boss]\ncwtDevice=1\nringtoneLoop=0\nringtoneDevice=0\n",
       tone(true, true, L"", false, false, L"")},
  };
  EXPECT_EQ(DistinctiveTone(), tone(true, false, L"", true, true, L""));
  for (const auto& c : cases) {
    RingtoneIni tones;
    tones.readRingtoneIniFile(writeData("Ringtone.ini", c.file));
    ASSERT_EQ(tones.tones().size(), 1u) << c.file;
    EXPECT_EQ(tones.tones()[0].first, L"boss");
    DistinctiveTone found;
    EXPECT_TRUE(tones.getTone(L"bOsS", found));
    EXPECT_EQ(found, c.expected) << c.file;
  }
}

TEST_F(RingtoneIniTest, AnUnconfiguredToneIsLoggedAndLeftAlone) {
  RingtoneIni tones;
  tones.readRingtoneIniFile(writeData("Ringtone.ini", "[boss]\nringtonePath=a.wav\n"));
  DistinctiveTone untouched;
  untouched.ringtonePath = L"mine.wav";
  DistinctiveTone tone = untouched;
  EXPECT_FALSE(tones.getTone(L"Caf\u00e9", tone));
  EXPECT_EQ(tone, untouched);
  EXPECT_THAT(sink_.linesWith("unconfigured"),
              ElementsAre(AllOf(HasSubstr("ERROR"),
                                EndsWith("RingtoneIni::getTone - attempt to retrieve unconfigured "
                                         "tone : Caf\xC3\xA9"))));
}

TEST_F(RingtoneIniTest, ASecondFileAddsAndReplacesButRemovesNothing) {
  RingtoneIni tones;
  tones.readRingtoneIniFile(writeData("a.ini", "[boss]\nringtonePath=a.wav\n[wife]\ncwtLoop=0\n"));
  tones.readRingtoneIniFile(writeData("b.ini", "[Boss]\nringtonePath=b.wav\n[kids]\n"));
  const auto all = tones.tones();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].first, L"boss");
  EXPECT_EQ(all[0].second.ringtonePath, L"b.wav");
  EXPECT_EQ(all[1].first, L"kids");
  EXPECT_EQ(all[2].first, L"wife");
  EXPECT_FALSE(all[2].second.cwtLoop);
}

TEST_F(RingtoneIniTest, AMissingFileIsLoggedAndKeepsTheTones) {
  RingtoneIni tones;
  tones.readRingtoneIniFile(writeData("Ringtone.ini", "[boss]\n"));
  const std::wstring missing = (root_ / "data" / "none.ini").wstring();
  tones.readRingtoneIniFile(missing);
  EXPECT_THAT(sink_.linesWith("Can't load"),
              ElementsAre(EndsWith("Can't load ringtone file: " + toUtf8(missing))));
  EXPECT_EQ(tones.tones().size(), 1u);
}

}  // namespace
}  // namespace QIM::Data
