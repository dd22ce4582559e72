#include "qimmisc/NetUtils.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/StringUtils.h"

namespace QIM {
namespace {

// One wide text and the narrow text the twins see for it; a lone surrogate
// has no UTF-8 form, so its narrow column holds what the rule should see.
const std::wstring kLoneSurrogate(1, static_cast<wchar_t>(0xD800));

TEST(NetUtilsTest, SchemeOfText) {
  const struct {
    std::wstring text;
    SipAddressProtocol scheme, fromWord;
  } rows[] = {
      {L"sips:bob@pbx", Sips, Sips},  {L"SIPS:Bob@PBX", Sips, Sips},
      {L"TEL:+123", Tel, Tel},        {L"telephone", Sip, Tel},
      {L"sipsomething", Sip, Sips},   {L"sip:alice@pbx", Sip, Sip},
      {L"sips", Sip, Sips},           {L"", Sip, Sip},
      {L"tel:\u00e9", Tel, Tel},      {L"tel:" + kLoneSurrogate, Tel, Tel},
      {L"\u00e9tel:", Sip, Sip},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(getSipUrlScheme(row.text), row.scheme) << toUtf8(row.text);
    EXPECT_EQ(getSipAddressProtocolFromString(row.text), row.fromWord) << toUtf8(row.text);
  }
}

TEST(NetUtilsTest, NarrowSchemeRulesWorkOnTheBytes) {
  EXPECT_EQ(getSipUrlScheme(std::string("sips:\xff")), Sips);
  EXPECT_EQ(getSipAddressProtocolFromString(std::string("tel\xc3")), Tel);
  EXPECT_EQ(removeSipUrlScheme(std::string("SIP:\xff\xfe")), "\xff\xfe");
  EXPECT_EQ(addSipUrlScheme(std::string("tel:\xff"), Sips), "sips:\xff");
  EXPECT_TRUE(isCallparkService(std::string("\xff;service=callpark")));
  EXPECT_EQ(getUrlProtocol(std::string("HT\xffP:x")), "ht\xffp");
  EXPECT_FALSE(isFileUrl(std::string("file:\xff")));  // wide decides: no UTF-8, no URL
}

TEST(NetUtilsTest, ProtocolAsText) {
  const struct {
    SipAddressProtocol protocol;
    const char* bare;
    const char* colon;
  } rows[] = {{Sip, "sip", "sip:"},
              {Sips, "sips", "sips:"},
              {Tel, "tel", "tel:"},
              {static_cast<SipAddressProtocol>(7), "sip", "sip:"},
              {static_cast<SipAddressProtocol>(-1), "sip", "sip:"}};
  for (const auto& row : rows) {
    EXPECT_EQ(getStringFromSipAddressProtocol(row.protocol, false), row.bare);
    EXPECT_EQ(getStringFromSipAddressProtocol(row.protocol, true), row.colon);
    EXPECT_EQ(getWstringFromSipAddressProtocol(row.protocol, true), fromUtf8(row.colon));
  }
}

TEST(NetUtilsTest, RemoveAndAddScheme) {
  const struct {
    std::wstring text, removed, asSip, asTel, secure, insecureSips;
  } rows[] = {
      {L"SIP:x", L"x", L"sip:x", L"tel:x", L"sips:x", L"sip:x"},
      {L"sipx", L"sipx", L"sip:sipx", L"tel:sipx", L"sips:sipx", L"sip:sipx"},
      {L"sip:sip:x", L"sip:x", L"sip:sip:x", L"tel:sip:x", L"sips:sip:x", L"sip:sip:x"},
      {L"SiPs:Bob", L"Bob", L"sip:Bob", L"tel:Bob", L"sips:Bob", L"sip:Bob"},
      {L"tel:+1", L"+1", L"sip:+1", L"tel:+1", L"sips:+1", L"sip:+1"},
      {L"", L"", L"sip:", L"tel:", L"sips:", L"sip:"},
      {L"sip:b\u00e9", L"b\u00e9", L"sip:b\u00e9", L"tel:b\u00e9", L"sips:b\u00e9", L"sip:b\u00e9"},
      {L"sip:" + kLoneSurrogate, kLoneSurrogate, L"sip:" + kLoneSurrogate,
       L"tel:" + kLoneSurrogate, L"sips:" + kLoneSurrogate, L"sip:" + kLoneSurrogate},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(toUtf8(row.removed));
    EXPECT_EQ(removeSipUrlScheme(row.text), row.removed);
    EXPECT_EQ(addSipUrlScheme(row.text, Sip), row.asSip);
    EXPECT_EQ(addSipUrlScheme(row.text, Tel), row.asTel);
    EXPECT_EQ(addSipUrlScheme(row.text, Sip, true), row.secure);
    EXPECT_EQ(addSipUrlScheme(row.text, Sips, false), row.insecureSips);
    EXPECT_EQ(addSipUrlScheme(row.text, Tel, true), row.asTel);
    const std::string narrow = toUtf8(row.text);
    if (!narrow.empty()) {
      EXPECT_EQ(removeSipUrlScheme(narrow), toUtf8(row.removed));
      EXPECT_EQ(addSipUrlScheme(narrow, Sips, false), toUtf8(row.insecureSips));
    }
  }
}

TEST(NetUtilsTest, ExtractUserAtDomain) {
  const struct {
    std::wstring text;
    bool stripPort;
    std::wstring expected;
  } rows[] = {
      {L"alice@host:5060", true, L"alice@host"},
      {L"alice@host:5060", false, L"alice@host:5060"},
      // The port position (10) is not below the length to the ';' (10).
      {L"alice@host:5060;transport=udp", true, L"alice@host:5060"},
      {L"a@host:5060;transport=udp", true, L"a@host"},
      {L"sip:alice@host;transport=tcp", false, L"sip:alice@host"},
      {L"sip:alice@host:5060", true, L"sip:alice@host"},
      {L"alice@host?subject=x", false, L"alice@host"},
      {L"alice@host;a?b", false, L"alice@host"},
      {L"5550100;user=phone", true, L"5550100"},
      {L"alice;tag=1@host", false, L"alice@host"},
      {L"", true, L""},
      {L"@", true, L"@"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(extractUserAtDomain(row.text, row.stripPort), row.expected) << toUtf8(row.text);
  }
}

TEST(NetUtilsTest, ParseUserAndDomain) {
  const struct {
    std::wstring address;
    bool ok;
    std::wstring user, domain;
  } rows[] = {
      {L"alice@pbx", true, L"alice", L"pbx"}, {L"alice", true, L"alice", L""},
      {L"", false, L"", L""},                 {L"a@b@c", false, L"", L""},
      {L"@b", false, L"", L""},               {L"a@", false, L"", L""},
      {L"@", false, L"", L""},
  };
  for (const auto& row : rows) {
    std::wstring user = L"old", domain = L"old";
    EXPECT_EQ(parseUserAndDomain(row.address, user, domain), row.ok) << toUtf8(row.address);
    EXPECT_EQ(user, row.user);
    EXPECT_EQ(domain, row.domain);
  }
}

TEST(NetUtilsTest, EqualsSipAddress) {
  const struct {
    std::wstring a, b;
    bool equal;
  } rows[] = {
      {L"alice@PBX", L"alice@pbx", true}, {L"Alice@pbx", L"alice@pbx", false},
      {L"alice", L"alice", true},         {L"alice", L"alice@pbx", false},
      {L"", L"", false},                  {L"a@", L"a@", false},
      {L"sip:alice@pbx", L"alice@pbx", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(equalsSipAddress(row.a, row.b), row.equal) << toUtf8(row.a) << " " << toUtf8(row.b);
    EXPECT_EQ(equalsSipAddress(row.b, row.a), row.equal);
  }
}

TEST(NetUtilsTest, NormalizePhoneNumber) {
  const struct {
    std::wstring number, stripPrefix, expected;
  } rows[] = {
      {L"9 (613) 555.0100", L"9;613", L"5550100"},
      {L"9 (613) 555.0100", L"613;9", L"6135550100"},
      {L"9 (613) 555.0100", L"", L"96135550100"},
      {L"9 (613) 555.0100", L";9;", L"6135550100"},
      {L"+1-613-555-0100", L"+1", L"6135550100"},
      {L"99", L"9;9;9", L"", },
      {L"9", L"99", L"9"},
      {L"9 (613)@host", L"9", L"9 (613)@host"},
      {L"\u00e9 1", L"\u00e9", L"1"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(normalizePhoneNumber(row.number, row.stripPrefix), row.expected)
        << toUtf8(row.number) << " / " << toUtf8(row.stripPrefix);
  }
}

TEST(NetUtilsTest, PstnNumbers) {
  const struct {
    std::wstring text;
    bool pstn;
  } rows[] = {
      {L"", false},
      {L"*67", false},
      {L"#1", false},
      {L"+1-613-555-0100", true},
      {L"12+34", true},
      {L"sip:+1 (613) 555-0100@host;user=phone", true},
      {L"alice@host", false},
      {L"tel:5550100", true},
      {L"5550100;ext=2", true},
      {L"\u0661\u0662", false},  // non-ASCII digits are not dialable
      {L"1" + kLoneSurrogate, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(isPstnNumber(row.text, L""), row.pstn) << toUtf8(row.text);
  }
  // A prefix list that eats the whole number leaves nothing to dial.
  EXPECT_FALSE(isPstnNumber(L"9", L"9"));
}

TEST(NetUtilsTest, Callpark) {
  EXPECT_EQ(getSpecialCallparkUsername(), L"callpark");
  EXPECT_EQ(&getSpecialCallparkUsername(), &getSpecialCallparkUsername());
  const struct {
    std::wstring text;
    bool callpark;
  } rows[] = {
      {L"sip:callpark@host", true},  {L"sip:CallPark@host", false},
      {L"sip:42@host;service=callpark", true}, {L"sip:42@host;service=CALLPARK", false},
      {L"callpark", false},          {L"", false},
      {L"\u00e9callpark@", true},    {kLoneSurrogate + L"callpark@", true},
      {kLoneSurrogate, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(isCallparkService(row.text), row.callpark) << toUtf8(row.text);
    const std::string narrow = toUtf8(row.text);
    if (!narrow.empty()) {
      EXPECT_EQ(isCallparkService(narrow), row.callpark);
    }
  }
}

TEST(NetUtilsTest, UrlKinds) {
  const struct {
    std::wstring url, protocol;
    bool web, mail, sip, tel, file;
  } rows[] = {
      {L"http://x", L"http", true, false, false, false, false},
      {L"HTTPS://x", L"https", true, false, false, false, false},
      {L"httpx://x", L"httpx", false, false, false, false, false},
      {L"mailto:a@b", L"mailto", false, true, false, false, false},
      {L"SIPS:a@b", L"sips", false, false, true, false, false},
      {L"sip:a@b", L"sip", false, false, true, false, false},
      {L"tel:+1", L"tel", false, false, false, true, false},
      {L"file:///tmp/x", L"file", false, false, false, false, true},
      {L"FILE://host/share/x", L"file", false, false, false, false, true},
      {L"file", L"", false, false, false, false, false},
      {L"", L"", false, false, false, false, false},
      {L":x", L"", false, false, false, false, false},
      {L"\u00e9:x", L"\u00e9", false, false, false, false, false},
      {L"http:" + kLoneSurrogate, L"http", true, false, false, false, false},
      {kLoneSurrogate + L":x", kLoneSurrogate, false, false, false, false, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(toUtf8(row.url));
    EXPECT_EQ(getUrlProtocol(row.url), row.protocol);
    EXPECT_EQ(isWebUrl(row.url), row.web);
    EXPECT_EQ(isMailUrl(row.url), row.mail);
    EXPECT_EQ(isSipUrl(row.url), row.sip);
    EXPECT_EQ(isTelUrl(row.url), row.tel);
    EXPECT_EQ(isFileUrl(row.url), row.file);
    const std::string narrow = toUtf8(row.url);
    if (!narrow.empty()) {
      EXPECT_EQ(getUrlProtocol(narrow), toUtf8(row.protocol));
      EXPECT_EQ(isWebUrl(narrow), row.web);
      EXPECT_EQ(isMailUrl(narrow), row.mail);
      EXPECT_EQ(isSipUrl(narrow), row.sip);
      EXPECT_EQ(isTelUrl(narrow), row.tel);
      EXPECT_EQ(isFileUrl(narrow), row.file);
    }
  }
}

TEST(NetUtilsTest, GlobalTelUris) {
  const struct {
    std::wstring uri;
    bool global;
  } rows[] = {
      {L"tel:+16135550100", true},   {L"TEL:+1-613-555-0100;ext=2", true},
      {L"tel:+1 (613) 555.0100", true}, {L"tel:6135550100", false},
      {L"tel:+", false},             {L"tel:+1", true},
      {L"tel:++1", false},           {L"tel:+1+2", false},
      {L"tel:+1*2", false},          {L"sip:+16135550100", false},
      {L"", false},                  {L"tel:+" + kLoneSurrogate, false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(isGlobalTelURI(row.uri, L""), row.global) << toUtf8(row.uri);
  }
}

class NetUtilsSettingsTest : public test::TracingTest {};

TEST_F(NetUtilsSettingsTest, WithoutMainSettingsNoPrefixIsCut) {
  EXPECT_EQ(normalizePhoneNumber(L"9 555"), L"9555");
  EXPECT_TRUE(isPstnNumber(L"9 555"));
  EXPECT_TRUE(sink_.contains("VelderIni instance not initialized!"));
}

TEST(NetUtilsTest, LazyConstantsSurviveARaceOnFirstUse) {
  std::vector<std::thread> threads;
  std::vector<int> results(8, 0);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&results, i] {
      results[i] = isCallparkService(L"callpark@x") + isPstnNumber(L"+1", L"");
    });
  }
  for (auto& thread : threads) thread.join();
  for (const int result : results) EXPECT_EQ(result, 2);
}

}  // namespace
}  // namespace QIM
