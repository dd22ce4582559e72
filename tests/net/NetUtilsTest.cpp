#include "qimmisc/NetUtils.h"

#include <gtest/gtest.h>

#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "TestSupport.h"
#include "qimmisc/StringUtils.h"

namespace QIM {
namespace {

// A lone surrogate has no UTF-8 form, yet the wide twins must still decide;
// its narrow twin is skipped where toUtf8 gives nothing.
const std::wstring kLone(1, static_cast<wchar_t>(0xD800));

TEST(NetUtilsTest, SchemeDetectionRemovalAndAddition) {
  // Text, its scheme, the protocol its bare word names, the text without its scheme.
  const std::tuple<std::wstring, SipAddressProtocol, SipAddressProtocol, std::wstring> rows[] = {
      {L"SIPS:Bob@PBX", Sips, Sips, L"Bob@PBX"}, {L"TEL:+1", Tel, Tel, L"+1"},
      {L"telephone", Sip, Tel, L"telephone"},    {L"sipsomething", Sip, Sips, L"sipsomething"},
      {L"SIP:x", Sip, Sip, L"x"},                {L"sipx", Sip, Sip, L"sipx"},
      {L"sip:sip:x", Sip, Sip, L"sip:x"},        {L"", Sip, Sip, L""},
      {L"tel:b\u00e9", Tel, Tel, L"b\u00e9"},    {L"sip:" + kLone, Sip, Sip, kLone},
      {L"tel:" + kLone, Tel, Tel, kLone},        {L"\u00e9tel:", Sip, Sip, L"\u00e9tel:"},
  };
  for (const auto& [text, scheme, fromWord, removed] : rows) {
    SCOPED_TRACE(toUtf8(text));
    EXPECT_EQ(getSipUrlScheme(text), scheme);
    EXPECT_EQ(getSipAddressProtocolFromString(text), fromWord);
    EXPECT_EQ(removeSipUrlScheme(text), removed);
    EXPECT_EQ(addSipUrlScheme(text, Sip), L"sip:" + removed);
    EXPECT_EQ(addSipUrlScheme(text, Tel), L"tel:" + removed);
    EXPECT_EQ(addSipUrlScheme(text, Sip, true), L"sips:" + removed);
    EXPECT_EQ(addSipUrlScheme(text, Sips, false), L"sip:" + removed);
    EXPECT_EQ(addSipUrlScheme(text, Tel, true), L"tel:" + removed);
    if (const std::string narrow = toUtf8(text); !narrow.empty()) {
      EXPECT_EQ(removeSipUrlScheme(narrow), toUtf8(removed));
      EXPECT_EQ(addSipUrlScheme(narrow, Sips), "sips:" + toUtf8(removed));
    }
  }
  const std::pair<SipAddressProtocol, const char*> names[] = {
      {Sip, "sip"}, {Sips, "sips"}, {Tel, "tel"},
      {static_cast<SipAddressProtocol>(7), "sip"}, {static_cast<SipAddressProtocol>(-1), "sip"}};
  for (const auto& [protocol, name] : names) {
    EXPECT_EQ(getStringFromSipAddressProtocol(protocol, false), name);
    EXPECT_EQ(getStringFromSipAddressProtocol(protocol, true), std::string(name) + ":");
    EXPECT_EQ(getWstringFromSipAddressProtocol(protocol, true), fromUtf8(name) + L":");
  }
  // Narrow twins work on the bytes, invalid UTF-8 included.
  EXPECT_EQ(getSipUrlScheme(std::string("sips:\xff")), Sips);
  EXPECT_EQ(getSipAddressProtocolFromString(std::string("tel\xc3")), Tel);
  EXPECT_EQ(removeSipUrlScheme(std::string("SIP:\xff\xfe")), "\xff\xfe");
  EXPECT_EQ(addSipUrlScheme(std::string("tel:\xff"), Sips), "sips:\xff");
  EXPECT_TRUE(isCallparkService(std::string("\xff;service=callpark")));
  EXPECT_EQ(getUrlProtocol(std::string("HT\xffP:x")), "ht\xffp");
  EXPECT_FALSE(isFileUrl(std::string("file:\xff")));  // wide decides: no UTF-8, no URL
}

TEST(NetUtilsTest, ExtractUserAtDomain) {
  const std::tuple<std::wstring, bool, std::wstring> rows[] = {
      {L"alice@host:5060", true, L"alice@host"}, {L"alice@host:5060", false, L"alice@host:5060"},
      // The port position (10) is not below the length to the ';' (10).
      {L"alice@host:5060;transport=udp", true, L"alice@host:5060"}, {L"@", true, L"@"},
      {L"a@host:5060;transport=udp", true, L"a@host"}, {L"", true, L""},
      {L"sip:alice@host:5060", true, L"sip:alice@host"}, {L"alice@host;a?b", false, L"alice@host"},
      {L"alice@host?subject=x", false, L"alice@host"}, {L"5550100;user=phone", true, L"5550100"},
      {L"alice;tag=1@host", false, L"alice@host"},
  };
  for (const auto& [text, stripPort, expected] : rows) {
    EXPECT_EQ(extractUserAtDomain(text, stripPort), expected) << toUtf8(text);
  }
}

TEST(NetUtilsTest, ParseAndCompareUserAndDomain) {
  const std::tuple<std::wstring, bool, std::wstring> parses[] = {
      {L"alice@pbx", true, L"alice|pbx"}, {L"alice", true, L"alice|"}, {L"", false, L"|"},
      {L"a@b@c", false, L"|"}, {L"@b", false, L"|"}, {L"a@", false, L"|"}, {L"@", false, L"|"},
  };
  for (const auto& [address, ok, userAndDomain] : parses) {
    std::wstring user = L"old", domain = L"old";
    EXPECT_EQ(parseUserAndDomain(address, user, domain), ok) << toUtf8(address);
    EXPECT_EQ(user + L"|" + domain, userAndDomain);
  }
  const std::tuple<std::wstring, std::wstring, bool> compares[] = {
      {L"alice@PBX", L"alice@pbx", true}, {L"Alice@pbx", L"alice@pbx", false},
      {L"alice", L"alice", true}, {L"alice", L"alice@pbx", false}, {L"", L"", false},
      {L"a@", L"a@", false}, {L"sip:alice@pbx", L"alice@pbx", false},
  };
  for (const auto& [a, b, equal] : compares) {
    EXPECT_EQ(equalsSipAddress(a, b), equal) << toUtf8(a) << " " << toUtf8(b);
    EXPECT_EQ(equalsSipAddress(b, a), equal);
  }
}

TEST(NetUtilsTest, NumbersAndCallpark) {
  const std::tuple<std::wstring, std::wstring, std::wstring> normalized[] = {
      {L"9 (613) 555.0100", L"9;613", L"5550100"}, {L"9 (613) 555.0100", L"613;9", L"6135550100"},
      {L"9 (613) 555.0100", L"", L"96135550100"},  {L"9 (613) 555.0100", L";9;", L"6135550100"},
      {L"+1-613-555-0100", L"+1", L"6135550100"},   {L"99", L"9;9;9", L""},
      {L"9", L"99", L"9"}, {L"9 (613)@host", L"9", L"9 (613)@host"}, {L"\u00e9 1", L"\u00e9", L"1"},
  };
  for (const auto& [number, stripPrefix, expected] : normalized) {
    EXPECT_EQ(normalizePhoneNumber(number, stripPrefix), expected) << toUtf8(number);
  }

  EXPECT_EQ(getSpecialCallparkUsername(), L"callpark");
  EXPECT_EQ(&getSpecialCallparkUsername(), &getSpecialCallparkUsername());
  // What the text is: a p(STN number), a g(lobal tel URI), a c(all-park service).
  const std::pair<std::wstring, std::string> rows[] = {
      {L"", ""}, {L"*67", ""}, {L"#1", ""}, {L"+1-613-555-0100", "p"}, {L"12+34", "p"},
      {L"alice@host", ""}, {L"sip:+1 (613) 555-0100@host;user=phone", "p"}, {L"5550100;ext=2", "p"},
      {L"\u0661\u0662", ""},  // non-ASCII digits are not dialable
      {L"1" + kLone, ""}, {L"tel:+" + kLone, ""}, {L"tel:+1*2", ""}, {L"tel:+16135550100", "pg"},
      {L"TEL:+1-613-555-0100;ext=2", "pg"}, {L"tel:6135550100", "p"}, {L"tel:+", "p"},
      {L"tel:+1", "pg"}, {L"tel:+1+2", "p"}, {L"sip:+16135550100", "p"}, {L"callpark", ""},
      {L"sip:callpark@host", "c"}, {L"sip:CallPark@host", ""}, {L"\u00e9callpark@", "c"},
      {L"sip:42@host;service=callpark", "pc"}, {L"sip:42@host;service=CALLPARK", "p"},
      {kLone + L"callpark@", "c"}, {kLone, ""},
  };
  for (const auto& [text, is] : rows) {
    SCOPED_TRACE(toUtf8(text));
    EXPECT_EQ(isPstnNumber(text, L""), is.find('p') != std::string::npos);
    EXPECT_EQ(isGlobalTelURI(text, L""), is.find('g') != std::string::npos);
    EXPECT_EQ(isCallparkService(text), is.find('c') != std::string::npos);
    if (!toUtf8(text).empty()) {
      EXPECT_EQ(isCallparkService(toUtf8(text)), is.find('c') != std::string::npos);
    }
  }
  // A prefix list that eats the whole number leaves nothing to dial.
  EXPECT_FALSE(isPstnNumber(L"9", L"9"));
}

TEST(NetUtilsTest, UrlKinds) {
  // Kind: w(eb), m(ail), s(ip), t(el), f(ile) or '-' for none.
  const std::tuple<std::wstring, std::wstring, char> rows[] = {
      {L"HTTPS://x", L"https", 'w'}, {L"http:" + kLone, L"http", 'w'}, {L"sip:a@b", L"sip", 's'},
      {L"httpx://x", L"httpx", '-'}, {L"mailto:a@b", L"mailto", 'm'}, {L"SIPS:a@b", L"sips", 's'},
      {L"tel:+1", L"tel", 't'}, {L"file:///tmp/x", L"file", 'f'}, {L"file", L"", '-'},
      {L"FILE://host/share/x", L"file", 'f'}, {L"", L"", '-'}, {L":x", L"", '-'},
      {L"\u00e9:x", L"\u00e9", '-'}, {kLone + L":x", kLone, '-'},
  };
  for (const auto& [wideUrl, wideProtocol, kind] : rows) {
    SCOPED_TRACE(toUtf8(wideUrl));
    const auto check = [kind](const auto& url, const auto& protocol) {
      EXPECT_EQ(getUrlProtocol(url), protocol);
      const bool is[] = {isWebUrl(url), isMailUrl(url), isSipUrl(url), isTelUrl(url),
                         isFileUrl(url)};
      for (int i = 0; i < 5; ++i) EXPECT_EQ(is[i], kind == "wmstf"[i]) << "wmstf"[i];
    };
    check(wideUrl, wideProtocol);
    if (!toUtf8(wideUrl).empty()) check(toUtf8(wideUrl), toUtf8(wideProtocol));
  }
}

class NetUtilsSettingsTest : public test::TracingTest {};

TEST_F(NetUtilsSettingsTest, WithoutMainSettingsNoPrefixIsCut) {
  EXPECT_EQ(normalizePhoneNumber(L"9 555"), L"9555");
  EXPECT_TRUE(isPstnNumber(L"9 555"));
  EXPECT_TRUE(sink_.contains("VelderIni instance not initialized!"));
}

TEST(NetUtilsTest, LazyConstantsSurviveARaceOnFirstUse) {
  const auto firstUse = [] { return isCallparkService(L"callpark@x") + isPstnNumber(L"+1", L""); };
  std::vector<int> results(8, 0);
  std::vector<std::thread> threads;
  for (int& result : results) threads.emplace_back([&result, firstUse] { result = firstUse(); });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(results, std::vector<int>(8, 2));
}

}  // namespace
}  // namespace QIM
