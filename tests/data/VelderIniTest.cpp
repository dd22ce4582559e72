#include "qimmisc/VelderIni.h"

#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <memory>
#include <sstream>

#include "TestSupport.h"
#include "qimmisc/BufferConfigurationFile.h"
#include "qimmisc/StringUtils.h"

namespace QIM::Data {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::HasSubstr;

std::vector<std::string> words(const std::string& text) {
  std::istringstream in(text);
  return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// Every key of the section "VELDer", in the order the client reads them.
const std::vector<std::string> kKeyOrder = words(R"(
proxy domainName TLSPort TCPPort UDPPort TCPKeepAliveInterval RTPportRange mmPinLengthRange
CollabPortRange allowAdvancedUser useTextPlainIM enableCallerPreferences allowForwardFromMobile
proxyRegExpireTime minReRegisterTime allowApplicationSharing localDTMF local2833DTMF autoAnswer
sipAutoAnswer maxSipMessagesLogged allowMultiplePCC support100rel sendSupportReplaces
logUnistimPackets isNickNameFirstLast useWindowsUsername FTVideoLogs PreemptUnansweredSessions
allowClearPrivateData jnlpASUWebPath maxSDPSessionId stripNtEndPointUriParam vmPhoneNumber
vmPlayCommand vmDelCommand vmPrevCommand vmNextCommand vmCallCommand vmReplyCommand
vmUserDef1Name vmUserDef1Command vmUserDef2Name vmUserDef2Command allowMoreProxies
allowFullProxyEdits apiServerPort allow3GPPmode sipResendConfig defaultFireTimer
sipThrottleParams sipDelayParams resubscribeSpeedupDelta profileDefaultProfileName
profileBasePath profileAppName profileDataPath profileImagesPath profileLogsPath
profileCachePath profileGreetingsPath profileMessagesPath profileTextChatPath
profileIncomingPath profileWhiteboardPath supportLogPath allowedLogsAge allowedArchiveLogsAge
allowInsessionMenu audioAGC audioNoMicBoost useTavishPCCua uaVersion iddLevel helpURL sohelpURL
personalAgentURL routesURL useCompactHeaderNames sipTransport showVideoTestInConfigWizard
showAudioTestInConfigWizard showConnectionPageInConfigWizard useLocalDirectory
usePAISesmHandleRefer useLDAPGab useLDAPIni useLDAPProv allowGAB forceAuthOnly
expandedAuthHeader disableInitialPing rportInVia disablePresenceNotesManagement usePublish
otpPublish enablePBXOnly useUpdate allowRFC3264Hold sdpLessInvites inviteOkSdpAsAnswer
allowPreferredId maxBadPings keepPinging MWISubscribe allowReconnectionAttempt
sessionWindowLimit useSingleBuzzCwt allowSRTP allowRTP srtpCryptoSuites srtpMasterKeyLifetime
srtpMKILength srtpKeyDerivationRate srtpRekeyInterval useSrtpNatForEtherset srtpMasterKeyAndSalt
enableVoIP fixedVoIPDN mobileDN mobileVoIPDN CPUTimeout lowSpeedPtime ignoreRegSubscribeFailures
importPriorityList outlookPluginToolBarControls outlookPluginContextMenuControls
outlookPluginPCCMainMenuControls useSIPSURI allowTLSTransport allowTCPTransport
allowUDPTransport onReconnectSendSubscribe defaultCRLTimer allowMultiPresence
allowDirAdHocPresence enableUnavailableDND ignoreGenericDevices mcdPublishCMServiceId
mcdEnableDirection CSTAMaxSessionRetry pbxPublishCMServiceId voipPublishCMServiceId stripPrefix
activePublishExpiry otpPublishExpiry ignorePartyIDIndicationForMultiMedia
enableContextFaxPagerMenu tr87uri tr87uriPCCoST CSTAPingInterval allowRFC4028ForCalls
allowRFC4028ForCollab SessionExpirationTime MinimalSessionExpirationTime disableCredentialCache
sendConnectedPartyIDUpdate maxSmsWindowNum maxSmsAllowedCharNum allowQuickDial
enableSubscriptionReuse usePAssertedIdentity isTypingRefreshTimeout
servicePackageEarlyResubscribeTime useParkListWindow friendsCheckBoxState keepCallsMinimized
useSmartCard useDashesInCallID plusPrefixReplacement restrictVideoSDP useSIPCallInfo
suppressRecoveredLogMsg addProxyToServiceRoute outlookPluginControlsToHide
IPChangeReConnectDelay idleTimerMaxDelay separateSessionWindows enableRFC5168
pictureFastUpdateInterval retryAfter allowIncomingCallsWithoutSP allowLoginWithoutSP
adhocDelayTime enablePresenceEnhancements emailToSIPMapping xcapRetryTimeInterval
xcapTimeoutRetryAttempts A2MasterList xcapRequestCredentials newPresenceAlgorithm
enableConditionalNotification rlsSubscriptionURI xcapRootURI xcapResourceListsAUID
xcapResourceListsTree xcapResourceListsFilename xcapPermanentPresenceAUID
xcapPermanentPresenceTree xcapPermanentPresenceFilename xcapPresenceListName
removeOldRequestsDefaultValue removeOldRequestsMinimumValue removeOldRequestsMaximumValue
xcapAdminRulesAUID xcapAdminRulesTree xcapAdminRulesFilename xcapDomainRulesAUID
xcapDomainRulesTree xcapDomainRulesFilename xcapAllowedListName xcapBlockedListName
xcapPendingListName xcapResourceListNodeSelectorRoot xcapFavoritesListName checkAdminRules
checkDomainRules onDemandPresenceRequest onDemandPresenceExpiry onDemandPresenceWaitingTime
onDemandPresenceWindowLimit presenceRefreshTimer xcapSuppressNotificationTime
ignoreUAProfileFailure presenceChangeNotifyWindowLimit ignoreOutlookOutbox
forbidASUForStandardUsers sipAddressIsUnique T1OfSipMessage T2OfSipMessage
maxTransmissionsOfSipMessage TCPTLSChannelTimeout T1OfUDPFailover T2OfUDPFailover
maxTransmissionsOfUDPFailover enablePlusSignUsage startStreamingWith180 startUCDStreamingWith180
enableLineDisplayEnhancement srvRecForProxyOrDomain enableDNSSRV informPresenceServiceDisabled
navigationTimer ignoreCallClickTimer dialpadSuggestionTimer soDialpadSuggestionTimer
soCollabParamsFromPrefs enableFunctionKeys defFunctionKey1 defFunctionKey2 defFunctionKey3
defFunctionKey4 defFunctionKey5 defFunctionKey6 defFunctionKey7 defFunctionKey8
accentInsensitiveSearch enableGlobalSearch DClickFrmDevice notifyPresenceChange
activateAllFieldsSearch disableAllGABSearchFieldFilter enableTEGUIRenovations
showMeetmeListOnConfHosting meetMeNumbersCount allowedIncomingCallLogSize
allowedOutgoingCallLogSize presencePersistenceRetryAttempts presencePersistenceRetryInterval
announceTransferREFERDelay logFileSize allowASU jnlpFile jnlpPath useLocation haveConfigWiz
defaultDockedView enableIM enablePlugin enableCollaboration enableChat defaultLanguage
proxyAutoReg defaultConnectionSpeed servicePackageExpiryTimes hideMainWindow
hideDownloadConfirmWindow noSystrayIcon noSplashScreen noSplashScreenCopyright
noLoginWindowAtStartup allowCaptureLogsAutomatically allowUSBToControlMakeCallWnd
allowUSBToControlMainWnd allowedUSBAdapters disableRingAlertforHeadset enableJabraUnMuteOnUnhold
clientProgId clientStartCommand mlppNetworkDomain mlppPrecedenceDomain mlppMaxPriorityLevel
)");

// The written defaults ("key=value", as settings() gives them).
const std::vector<std::string> kDefaults = words(R"(
TLSPort=5061 UDPPort=5060 useTextPlainIM=0 useLDAPGab=0 useLDAPIni=1 useLDAPProv=0
TCPKeepAliveInterval=15000 proxyRegExpireTime=86200 minReRegisterTime=30 allowClearPrivateData=0
localDTMF=0 allowMultiplePCC=0 support100rel=0 sendSupportReplaces=1 autoAnswer=0
maxSipMessagesLogged=1000 stripNtEndPointUriParam=0 haveConfigWiz=1 defaultDockedView=0
enableIM=1 allowMoreProxies=1 allowFullProxyEdits=1 apiServerPort=50982 useWindowsUsername=1
announceTransferREFERDelay=600 allowedLogsAge=10 allowedArchiveLogsAge=30 audioAGC=1
audioNoMicBoost=0 useTavishPCCua=0 useUpdate=0 sdpLessInvites=0 inviteOkSdpAsAnswer=1
allowPreferredId=1 isTypingRefreshTimeout=120 restrictVideoSDP=0 separateSessionWindows=0
enableRFC5168=0 pictureFastUpdateInterval=0 maxBadPings=10 keepPinging=0
allowReconnectionAttempt=0 allowTLSTransport=0 allowUDPTransport=1 defaultCRLTimer=10
sessionWindowLimit=25 useSingleBuzzCwt=1 mlppMaxPriorityLevel=0 srtpMKILength=0
srtpKeyDerivationRate=0 srtpRekeyInterval=0 useSrtpNatForEtherset=0 ignoreRegSubscribeFailures=0
enableVoIP=0 CPUTimeout=120 otpPublishExpiry=600 enableSubscriptionReuse=0
enableContextFaxPagerMenu=0 maxSmsWindowNum=10 maxSmsAllowedCharNum=1521
SessionExpirationTime=1800 MinimalSessionExpirationTime=256
servicePackageEarlyResubscribeTime=900 useParkListWindow=0 friendsCheckBoxState=1
keepCallsMinimized=0 useDashesInCallID=1 useSIPCallInfo=0 addProxyToServiceRoute=1 retryAfter=30
allowIncomingCallsWithoutSP=0 allowLoginWithoutSP=1 adhocDelayTime=2
enablePresenceEnhancements=0 emailToSIPMapping=0 IPChangeReConnectDelay=0 idleTimerMaxDelay=600
xcapRetryTimeInterval=10 xcapTimeoutRetryAttempts=1 A2MasterList=0 xcapRequestCredentials=0
newPresenceAlgorithm=0 enableConditionalNotification=0 removeOldRequestsDefaultValue=60
removeOldRequestsMinimumValue=7 removeOldRequestsMaximumValue=180
xcapSuppressNotificationTime=120 presencePersistenceRetryAttempts=0
presencePersistenceRetryInterval=90 onDemandPresenceExpiry=5 onDemandPresenceWaitingTime=10
onDemandPresenceWindowLimit=25 presenceRefreshTimer=10 presenceChangeNotifyWindowLimit=25
ignoreOutlookOutbox=0 forbidASUForStandardUsers=0 srvRecForProxyOrDomain=1 enableDNSSRV=0
sipAddressIsUnique=0 T1OfSipMessage=0 T2OfSipMessage=0 TCPTLSChannelTimeout=0 T1OfUDPFailover=0
T2OfUDPFailover=0 startStreamingWith180=0 enableLineDisplayEnhancement=0
startUCDStreamingWith180=0 enablePlusSignUsage=0 navigationTimer=500 ignoreCallClickTimer=1000
dialpadSuggestionTimer=1500 soCollabParamsFromPrefs=0 enableFunctionKeys=1
allowedIncomingCallLogSize=128 allowedOutgoingCallLogSize=128 TCPPort=5060
defaultConnectionSpeed=2
outlookPluginToolBarControls=111111111111111 outlookPluginPCCMainMenuControls=11111111111
sipThrottleParams=SUBSCRIBE:5 mlppPrecedenceDomain=000000 tr87uri=pbxcommunicator
tr87uriPCCoST=tr87devicecontrolclient
rlsSubscriptionURI=[sip:user@domain];pres-list=comm_ggee_rls
xcapResourceListsAUID=resource-lists xcapResourceListsTree=users xcapResourceListsFilename=index
xcapPermanentPresenceAUID=pidf-manipulation xcapPermanentPresenceTree=users
xcapPermanentPresenceFilename=perm-presence xcapPresenceListName=comm_ggee_rls
xcapAdminRulesAUID=org.openmobilealliance.pres-rules.system xcapAdminRulesTree=users
xcapAdminRulesFilename=pres-rules xcapDomainRulesAUID=org.openmobilealliance.pres-rules.system
xcapDomainRulesTree=global xcapDomainRulesFilename=pres-rules xcapAllowedListName=comm_ggee
xcapBlockedListName=comm_ggee_blockedcontacts xcapPendingListName=comm_ggee_pendingcontacts
xcapResourceListNodeSelectorRoot=resource-lists xcapFavoritesListName=comm_ggee_favourites
outlookPluginContextMenuControls=11111111111
RTPportRange=50000,50089 mmPinLengthRange=1,20 CollabPortRange=50090,50100
srtpCryptoSuites=AES_CM_128_HMAC_SHA1_80,AES_CM_128_HMAC_SHA1_32)");

// A settings file filled in memory that records the keys read from it.
class RecordingFile : public BufferConfigurationFile {
 public:
  explicit RecordingFile(const std::map<std::wstring, std::wstring>& values = {}) {
    for (const auto& [key, value] : values) setString(L"VELDer", key, value);
  }
  std::vector<std::string> asked;

  int getInt(const std::wstring& section, const std::wstring& key, int def) override {
    record(section, key);
    inGetInt_ = true;  // in case it reads through getString
    const int value = BufferConfigurationFile::getInt(section, key, def);
    inGetInt_ = false;
    return value;
  }
  std::wstring getString(const std::wstring& section, const std::wstring& key,
                         std::wstring def) override {
    if (!inGetInt_) record(section, key);
    return BufferConfigurationFile::getString(section, key, std::move(def));
  }

 private:
  void record(const std::wstring& section, const std::wstring& key) {
    EXPECT_EQ(section, L"VELDer");
    asked.push_back(toUtf8(key));
  }
  bool inGetInt_ = false;
};

class VelderIniTest : public test::TracingTest {
 protected:
  // Reads `values` into a fresh object (a secure build's rules or not).
  VelderIni& read(std::map<std::wstring, std::wstring> values, bool secure = false) {
    ini_ = std::make_unique<VelderIni>(secure);
    RecordingFile file(values);
    ini_->readFrom(file);
    asked_ = file.asked;
    return *ini_;
  }
  std::unique_ptr<VelderIni> ini_;
  std::vector<std::string> asked_;
};

std::vector<std::string> keysOf(const std::vector<VelderIni::SettingValue>& settings) {
  std::vector<std::string> keys;
  for (const auto& setting : settings) keys.push_back(setting.key);
  return keys;
}

TEST_F(VelderIniTest, ReadsEveryKeyOnceInOrderAndListsEachSetting) {
  read({});
  EXPECT_THAT(asked_, ElementsAreArray(kKeyOrder));
  EXPECT_THAT(keysOf(ini_->settings()), ElementsAreArray(kKeyOrder));
  // A secure build leaves the plain SIP ports and the API server port unread.
  std::vector<std::string> secureOrder;
  for (const auto& key : kKeyOrder) {
    if (key != "TCPPort" && key != "UDPPort" && key != "apiServerPort") secureOrder.push_back(key);
  }
  read({}, true);
  EXPECT_THAT(asked_, ElementsAreArray(secureOrder));
}

TEST_F(VelderIniTest, AnEmptyFileGivesTheWrittenDefaults) {
  std::map<std::string, VelderIni::SettingValue> byKey;
  for (const auto& setting : read({}).settings()) byKey[setting.key] = setting;
  for (const auto& pair : kDefaults) {
    const auto eq = pair.find('=');
    const auto& setting = byKey[pair.substr(0, eq)];
    EXPECT_EQ(toUtf8(setting.defaultValue), pair.substr(eq + 1)) << pair;
    EXPECT_EQ(toUtf8(setting.value), pair.substr(eq + 1)) << pair;
  }
  EXPECT_TRUE(ini_->readMessages().empty());
}

struct FlagCase {
  const wchar_t* key;
  const wchar_t* text;
  bool (VelderIni::*accessor)() const;
  bool expected;
};

TEST_F(VelderIniTest, FlagsAreSetOnlyByTheNumberOne) {
  const FlagCase cases[] = {
      {L"useTextPlainIM", L"1", &VelderIni::getUseTextPlainIM, true},
      {L"useTextPlainIM", L"true", &VelderIni::getUseTextPlainIM, false},
      {L"useTextPlainIM", L"2", &VelderIni::getUseTextPlainIM, false},
      {L"useLDAPIni", L"0", &VelderIni::getUseLDAPIni, false},
      {L"useLDAPIni", L"-1", &VelderIni::getUseLDAPIni, false},
      {L"useLDAPIni", L"yes", &VelderIni::getUseLDAPIni, true},  // no number: default on
      {L"allowGAB", L"0", &VelderIni::allowGAB, false},
      {L"MWISubscribe", L"1", &VelderIni::MWISubscribe, true},
      {L"disableInitialPing", L"1", &VelderIni::disableInitialPing, true},
      {L"forceAuthOnly", L"1", &VelderIni::forceAuthOnly, true},
      {L"audioNoMicBoost", L"1", &VelderIni::canSetMicBoost, false},
      {L"audioNoMicBoost", L"0", &VelderIni::canSetMicBoost, true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ((read({{c.key, c.text}}).*c.accessor)(), c.expected)
        << toUtf8(c.key) << "=" << toUtf8(c.text);
  }
  EXPECT_TRUE(read({}).canSetMicBoost());
}

struct IntCase {
  bool secure;
  const wchar_t* key;
  const wchar_t* text;
  int (VelderIni::*accessor)() const;
  int expected;
  const char* message;  // the one logged line, or nullptr
};

TEST_F(VelderIniTest, PortsCountsAndDelaysAreCheckedAsRead) {
  const IntCase cases[] = {
      {false, L"TCPPort", L"5070", &VelderIni::getTCPPort, 5070, nullptr},
      {true, L"TCPPort", L"5070", &VelderIni::getTCPPort, 0, nullptr},
      {true, L"UDPPort", L"5070", &VelderIni::getUDPPort, 0, nullptr},
      {true, L"TLSPort", L"5071", &VelderIni::getTLSPort, 5071, nullptr},
      {true, L"apiServerPort", L"2000", &VelderIni::getAPIServerPort, 50982, nullptr},
      {false, L"apiServerPort", L"2000", &VelderIni::getAPIServerPort, 2000, nullptr},
      {false, L"apiServerPort", L"0", &VelderIni::getAPIServerPort, 0, nullptr},
      {false, L"apiServerPort", L"1023", &VelderIni::getAPIServerPort, 50982,
       "Invalid server port for Client API: 1023"},
      {false, L"apiServerPort", L"-8", &VelderIni::getAPIServerPort, 50982,
       "Invalid server port for Client API: -8"},
      {false, L"apiServerPort", L"65536", &VelderIni::getAPIServerPort, 50982,
       "Invalid server port for Client API: 65536"},
      {false, L"maxBadPings", L"1", &VelderIni::getMaxBadPings, 1, nullptr},
      {false, L"maxBadPings", L"0", &VelderIni::getMaxBadPings, 10,
       "Invalid maxBadPings setting: 0"},
      {false, L"IPChangeReConnectDelay", L"301000", &VelderIni::getIPChangeReConnectDelay,
       301000, nullptr},
      {false, L"IPChangeReConnectDelay", L"400000", &VelderIni::getIPChangeReConnectDelay,
       301000,
       "VELDer flag IPChangeReConnectDelay should be up to 301000 msecs, so 301000 is used "
       "instead"},
      {false, L"IPChangeReConnectDelay", L"-5", &VelderIni::getIPChangeReConnectDelay, 0,
       "VELDer flag IPChangeReConnectDelay could not be negative, so 0 is used instead"},
      {false, L"A2MasterList", L"3", &VelderIni::getA2MasterList, 3, nullptr},
      {false, L"adhocDelayTime", L"7", &VelderIni::getAdhocDelayTime, 7, nullptr},
      {false, L"activePublishExpiry", L"99", &VelderIni::getActivePublishExpiry, 99, nullptr},
  };
  for (const auto& c : cases) {
    sink_.clear();
    const VelderIni& ini = read({{c.key, c.text}}, c.secure);
    SCOPED_TRACE(toUtf8(c.key) + "=" + toUtf8(c.text) + (c.secure ? " (secure)" : ""));
    EXPECT_EQ((ini.*c.accessor)(), c.expected);
    if (!c.message) {
      EXPECT_TRUE(ini.readMessages().empty());
      continue;
    }
    const std::string line = c.message;
    EXPECT_THAT(ini.readMessages(), ElementsAre(line));
    EXPECT_THAT(sink_.linesWith(line), ElementsAre(AllOf(HasSubstr("ERROR"), EndsWith(line))));
  }
}

struct RangeCase {
  const wchar_t* key;
  const wchar_t* text;
  IntRange (VelderIni::*accessor)() const;
  IntRange expected;
  const char* message;
};

TEST_F(VelderIniTest, RangesNeedTwoNumbersRising) {
  const RangeCase cases[] = {
      {L"RTPportRange", L"40000,40099", &VelderIni::getRTPportRange, {40000, 40099}, nullptr},
      {L"RTPportRange", L" 40000 , 40099", &VelderIni::getRTPportRange, {40000, 40099}, nullptr},
      {L"RTPportRange", L"60000,50000", &VelderIni::getRTPportRange, {50000, 50089},
       "Invalid RTP Port Range defined: 60000,50000 -- Range set to: 50000,50089"},
      {L"RTPportRange", L"5,5", &VelderIni::getRTPportRange, {50000, 50089},
       "Invalid RTP Port Range defined: 5,5 -- Range set to: 50000,50089"},
      {L"mmPinLengthRange", L"4", &VelderIni::getMmPinLengthRange, {1, 20},
       "Invalid MeetMe PIN Length Range defined: 4 -- Range set to: 1,20"},
      {L"mmPinLengthRange", L",8", &VelderIni::getMmPinLengthRange, {1, 20},
       "Invalid MeetMe PIN Length Range defined: ,8 -- Range set to: 1,20"},
      {L"mmPinLengthRange", L"4,8,9", &VelderIni::getMmPinLengthRange, {1, 20},
       "Invalid MeetMe PIN Length Range defined: 4,8,9 -- Range set to: 1,20"},
      {L"CollabPortRange", L"a,b", &VelderIni::getCollabPortRange, {50090, 50100},
       "Invalid Collaboration Port Range defined: a,b -- Range set to: 50090,50100"},
      {L"CollabPortRange", L"1,99999999999", &VelderIni::getCollabPortRange, {50090, 50100},
       "Invalid Collaboration Port Range defined: 1,99999999999 -- Range set to: 50090,50100"},
  };
  for (const auto& c : cases) {
    sink_.clear();
    const VelderIni& ini = read({{c.key, c.text}});
    SCOPED_TRACE(toUtf8(c.key) + "=" + toUtf8(c.text));
    EXPECT_EQ((ini.*c.accessor)(), c.expected);
    if (c.message) {
      EXPECT_THAT(ini.readMessages(), ElementsAre(c.message));
      EXPECT_THAT(sink_.linesWith("Range set to"), ElementsAre(EndsWith(c.message)));
    } else {
      EXPECT_TRUE(ini.readMessages().empty());
    }
  }
  EXPECT_EQ(read({{L"RTPportRange", L"40000,40099"}}).getPortsAboveRTPRange(),
            (IntRange{40100, 40110}));
  EXPECT_EQ(read({}).getPortsAboveRTPRange(), (IntRange{50090, 50100}));
}

TEST_F(VelderIniTest, ListsSplitAtTheirDelimiterAndSrtpSuitesNeverEmpty) {
  const std::vector<std::wstring> suites = {L"AES_CM_128_HMAC_SHA1_80", L"AES_CM_128_HMAC_SHA1_32"};
  EXPECT_EQ(read({}).getSrtpCryptoSuites(), suites);
  EXPECT_EQ(read({{L"srtpCryptoSuites", L" , ,"}}).getSrtpCryptoSuites(), suites);
  EXPECT_EQ(read({{L"srtpCryptoSuites", L"AES_256_CM_HMAC_SHA1_80"}}).getSrtpCryptoSuites(),
            std::vector<std::wstring>{L"AES_256_CM_HMAC_SHA1_80"});
  const VelderIni& ini = read({{L"allowedUSBAdapters", L"Acme, Inc. Link; Other ;"},
                              {L"outlookPluginControlsToHide", L"3,, 7"}});
  EXPECT_EQ(ini.getAllowedUSBAdapters(),
            (std::vector<std::wstring>{L"Acme, Inc. Link", L"Other"}));
  EXPECT_EQ(ini.getOutlookPluginControlsToHide(), (std::vector<std::wstring>{L"3", L"7"}));
  std::map<std::string, std::wstring> text;
  for (const auto& setting : ini.settings()) text[setting.key] = setting.value;
  EXPECT_EQ(text["allowedUSBAdapters"], L"Acme, Inc. Link;Other");
  EXPECT_EQ(text["srtpCryptoSuites"], L"AES_CM_128_HMAC_SHA1_80,AES_CM_128_HMAC_SHA1_32");
}

TEST_F(VelderIniTest, ComputedSettings) {
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
}

TEST_F(VelderIniTest, ARereadStartsFromTheDefaults) {
  VelderIni& ini = read({{L"TLSPort", L"6000"}, {L"maxBadPings", L"-1"}});
  ASSERT_EQ(ini.getTLSPort(), 6000);
  ASSERT_EQ(ini.readMessages().size(), 1u);
  RecordingFile empty;
  ini.readFrom(empty);
  EXPECT_EQ(ini.getTLSPort(), 5061);
  EXPECT_TRUE(ini.readMessages().empty());
}

}  // namespace
}  // namespace QIM::Data
