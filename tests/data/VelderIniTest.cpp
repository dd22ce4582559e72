#include "qimmisc/VelderIni.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>

#include "TestSupport.h"
#include "qimmisc/BufferConfigurationFile.h"
#include "qimmisc/StringUtils.h"

namespace QIM::Data {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// Every key, in the order of the table the library is built from.
const std::vector<std::string> kTableKeys = {
#define QIM_VELDERINI_SETTING(kind, accessor, key, def, extra) #key,
#include "qimmisc/VelderIniKeys.def"
#undef QIM_VELDERINI_SETTING
};

// A settings file filled in memory that records the keys read from it. Its
// getInt reads through getString, so each read is recorded once.
class RecordingFile : public BufferConfigurationFile {
 public:
  explicit RecordingFile(const std::map<std::wstring, std::wstring>& values) {
    for (const auto& [key, value] : values) setString(L"VELDer", key, value);
  }
  std::wstring getString(const std::wstring& section, const std::wstring& key,
                         std::wstring def) override {
    EXPECT_EQ(section, L"VELDer");
    asked.push_back(toUtf8(key));
    return BufferConfigurationFile::getString(section, key, std::move(def));
  }
  std::vector<std::string> asked;
};

class VelderIniTest : public test::TracingTest {
 protected:
  // Reads `values` into a fresh object (a secure build's rules or not).
  VelderIni& read(const std::map<std::wstring, std::wstring>& values, bool secure = false) {
    ini_ = std::make_unique<VelderIni>(secure);
    RecordingFile file(values);
    ini_->readFrom(file);
    asked_ = file.asked;
    return *ini_;
  }
  // settings() by key.
  std::map<std::string, VelderIni::SettingValue> byKey() const {
    std::map<std::string, VelderIni::SettingValue> all;
    for (const auto& setting : ini_->settings()) all[setting.key] = setting;
    return all;
  }
  std::unique_ptr<VelderIni> ini_;
  std::vector<std::string> asked_;
};

TEST_F(VelderIniTest, AnEmptyFileReadsEveryKeyOnceInOrderAndGivesTheDefaults) {
  EXPECT_EQ(std::set<std::string>(kTableKeys.begin(), kTableKeys.end()).size(),
            kTableKeys.size());
  read({});
  EXPECT_THAT(asked_, ElementsAreArray(kTableKeys));
  std::vector<std::string> listed;
  for (const auto& setting : ini_->settings()) {
    listed.push_back(setting.key);
    EXPECT_EQ(setting.value, setting.defaultValue) << setting.key;
  }
  EXPECT_THAT(listed, ElementsAreArray(kTableKeys));
  EXPECT_THAT(ini_->readMessages(), IsEmpty());
  const std::pair<const char*, const wchar_t*> defaults[] = {
      {"TLSPort", L"5061"}, {"TCPPort", L"5060"}, {"UDPPort", L"5060"}, {"maxBadPings", L"10"},
      {"IPChangeReConnectDelay", L"0"}, {"defaultConnectionSpeed", L"2"},
      {"apiServerPort", L"50982"}, {"useLDAPIni", L"1"}, {"audioNoMicBoost", L"0"},
      {"rlsSubscriptionURI", L"[sip:user@domain];pres-list=comm_ggee_rls"},
      {"xcapDomainRulesTree", L"global"}, {"sipThrottleParams", L"SUBSCRIBE:5"},
      {"RTPportRange", L"50000,50089"}, {"mmPinLengthRange", L"1,20"},
      {"CollabPortRange", L"50090,50100"},
      {"srtpCryptoSuites", L"AES_CM_128_HMAC_SHA1_80,AES_CM_128_HMAC_SHA1_32"}};
  auto all = byKey();
  for (const auto& [key, text] : defaults) EXPECT_EQ(all[key].defaultValue, text) << key;
  // A secure build has no plain SIP ports and leaves them and the API
  // server port unread.
  read({}, true);
  all = byKey();
  EXPECT_EQ(all["TCPPort"].defaultValue, L"0");
  EXPECT_EQ(all["UDPPort"].value, L"0");
  std::vector<std::string> secureOrder;
  for (const auto& key : kTableKeys) {
    if (key != "TCPPort" && key != "UDPPort" && key != "apiServerPort") secureOrder.push_back(key);
  }
  EXPECT_THAT(asked_, ElementsAreArray(secureOrder));
}

TEST_F(VelderIniTest, EachValueIsCheckedAsRead) {
  struct Case {
    const wchar_t* key;
    const wchar_t* text;
    const wchar_t* expected;         // as settings() shows it
    const char* message = nullptr;   // the one logged line
    bool secure = false;
  };
  const wchar_t* const kSuites = L"AES_CM_128_HMAC_SHA1_80,AES_CM_128_HMAC_SHA1_32";
  const char* const kTooLong =
      "VELDer flag IPChangeReConnectDelay should be up to 301000 msecs, so 301000 is used instead";
  const Case cases[] = {
      // Only the number 1 sets a flag; text that is no number gives the default.
      {L"useTextPlainIM", L"1", L"1"},
      {L"useTextPlainIM", L"true", L"0"},
      {L"useTextPlainIM", L"2", L"0"},
      {L"useLDAPIni", L"yes", L"1"},
      {L"TCPPort", L"5070", L"5070"},
      {L"TCPPort", L"5070", L"0", nullptr, true},
      {L"UDPPort", L"5070", L"0", nullptr, true},
      {L"TLSPort", L"5071", L"5071", nullptr, true},
      {L"apiServerPort", L"2000", L"50982", nullptr, true},
      {L"apiServerPort", L"2000", L"2000"},
      {L"apiServerPort", L"0", L"0"},
      {L"apiServerPort", L"1023", L"50982", "Invalid server port for Client API: 1023"},
      {L"apiServerPort", L"-8", L"50982", "Invalid server port for Client API: -8"},
      {L"apiServerPort", L"65536", L"50982", "Invalid server port for Client API: 65536"},
      {L"maxBadPings", L"1", L"1"},
      {L"maxBadPings", L"0", L"10", "Invalid maxBadPings setting: 0"},
      {L"IPChangeReConnectDelay", L"301000", L"301000"},
      {L"IPChangeReConnectDelay", L"301001", L"301000", kTooLong},
      {L"IPChangeReConnectDelay", L"400000", L"301000", kTooLong},
      {L"IPChangeReConnectDelay", L"-5", L"0",
       "VELDer flag IPChangeReConnectDelay could not be negative, so 0 is used instead"},
      // Ranges need exactly two whole numbers, rising.
      {L"RTPportRange", L" 40000 , 40099", L"40000,40099"},
      {L"RTPportRange", L"60000,50000", L"50000,50089",
       "Invalid RTP Port Range defined: 60000,50000 -- Range set to: 50000,50089"},
      {L"RTPportRange", L"5,5", L"50000,50089",
       "Invalid RTP Port Range defined: 5,5 -- Range set to: 50000,50089"},
      {L"mmPinLengthRange", L"4,8,9", L"1,20",
       "Invalid MeetMe PIN Length Range defined: 4,8,9 -- Range set to: 1,20"},
      {L"CollabPortRange", L"a,b", L"50090,50100",
       "Invalid Collaboration Port Range defined: a,b -- Range set to: 50090,50100"},
      {L"CollabPortRange", L"1,99999999999", L"50090,50100",
       "Invalid Collaboration Port Range defined: 1,99999999999 -- Range set to: 50090,50100"},
      // Lists split at their delimiter; an empty list keeps the default items.
      {L"srtpCryptoSuites", L"", kSuites},
      {L"allowedUSBAdapters", L"Acme, Inc. Link; Other ;", L"Acme, Inc. Link;Other"},
      {L"outlookPluginControlsToHide", L"3,, 7", L"3,7"},
  };
  for (const auto& c : cases) {
    sink_.clear();
    read({{c.key, c.text}}, c.secure);
    SCOPED_TRACE(toUtf8(c.key) + "=" + toUtf8(c.text) + (c.secure ? " (secure)" : ""));
    EXPECT_EQ(byKey()[toUtf8(c.key)].value, c.expected);
    if (!c.message) {
      EXPECT_THAT(ini_->readMessages(), IsEmpty());
      continue;
    }
    const std::string line = c.message;
    EXPECT_THAT(ini_->readMessages(), ElementsAre(line));
    EXPECT_THAT(sink_.linesWith(line), ElementsAre(AllOf(HasSubstr("ERROR"), EndsWith(line))));
  }
}

TEST_F(VelderIniTest, ComputedAndInvertedSettings) {
  const VelderIni& ini = read({{L"sipResendConfig", L"INVITE:2, BYE : 0,REGISTER,:3,ACK:-1,X:y"}});
  EXPECT_EQ(ini.getSipResendConfig(),
            (std::vector<SipResendEntry>{{L"INVITE", 2}, {L"BYE", 0}}));
  EXPECT_EQ(ini.getSipResendConfigText(), L"INVITE:2, BYE : 0,REGISTER,:3,ACK:-1,X:y");
  EXPECT_THAT(ini.readMessages(),
              ElementsAre("Invalid sipResendConfig entry: REGISTER",
                          "Invalid sipResendConfig entry: :3",
                          "Invalid sipResendConfig entry: ACK:-1",
                          "Invalid sipResendConfig entry: X:y"));
  const std::pair<const wchar_t*, int> counts[] = {{L"-4", 1}, {L"0", 1}, {L"5", 5}, {L"99", 10}};
  for (const auto& [text, normalized] : counts) {
    EXPECT_EQ(read({{L"meetMeNumbersCount", text}}).meetMeNumbersCountNormalized(), normalized);
  }
  EXPECT_TRUE(read({{L"RTPportRange", L"40000,40099"}}).canSetMicBoost());
  EXPECT_EQ(ini_->getPortsAboveRTPRange(), (IntRange{40100, 40110}));
  EXPECT_FALSE(read({{L"audioNoMicBoost", L"1"}}).canSetMicBoost());  // the opposite of its key
}

}  // namespace
}  // namespace QIM::Data
