// The scheme, address, number and URL helpers. The rules look only at ASCII
// characters, so each is written once over the string type; the wide forms
// of narrow-decided rules convert first and keep the template only for
// text that UTF-8 cannot carry.
#include "qimmisc/NetUtils.h"

#include <algorithm>

#include "net/NetUtilsPlatform.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"
#include "qimmisc/VelderIni.h"

namespace QIM {
namespace {

// Narrow and wide literals of one ASCII text, for the templates.
template <class S>
S ascii(const char* text) {
  return S(text, text + std::char_traits<char>::length(text));
}

// toUtf8 with a verdict: false when the text holds what UTF-8 cannot carry.
bool narrowed(const std::wstring& text, std::string& utf8) {
  utf8 = toUtf8(text);
  return !utf8.empty() || text.empty();
}

template <class S>
SipAddressProtocol schemeOf(const S& text) {
  if (stringStartsWithIgnoreCase(text, ascii<S>("sips:"))) return Sips;
  if (stringStartsWithIgnoreCase(text, ascii<S>("tel:"))) return Tel;
  return Sip;
}

template <class S>
SipAddressProtocol protocolOfWord(const S& text) {
  if (stringStartsWithIgnoreCase(text, ascii<S>("sips"))) return Sips;
  if (stringStartsWithIgnoreCase(text, ascii<S>("tel"))) return Tel;
  return Sip;
}

template <class S>
S withoutScheme(const S& text) {
  if (stringStartsWithIgnoreCase(text, ascii<S>("sip:")) ||
      stringStartsWithIgnoreCase(text, ascii<S>("tel:"))) {
    return text.substr(4);
  }
  if (stringStartsWithIgnoreCase(text, ascii<S>("sips:"))) return text.substr(5);
  return text;
}

const char* schemeName(SipAddressProtocol protocol, bool withColon) {
  switch (protocol) {
    case Sips: return withColon ? "sips:" : "sips";
    case Tel: return withColon ? "tel:" : "tel";
    default: return withColon ? "sip:" : "sip";
  }
}

template <class S>
S withScheme(const S& bare, SipAddressProtocol protocol) {
  return ascii<S>(schemeName(protocol, true)) + bare;
}

SipAddressProtocol secureChoice(SipAddressProtocol protocol, bool secure) {
  if (protocol == Tel) return Tel;
  return secure ? Sips : Sip;
}

template <class S>
S protocolOf(const S& url) {
  const auto colon = url.find(':');
  if (colon == S::npos) return S();
  S protocol = url.substr(0, colon);
  lowercase(protocol);
  return protocol;
}

std::string asText(const std::wstring& text, const std::string&) { return toUtf8(text); }
std::wstring asText(const std::wstring& text, const std::wstring&) { return text; }

template <class S>
bool callparkIn(const S& text) {
  static const S service = ascii<S>(";service=callpark");
  static const S userAt = asText(getSpecialCallparkUsername(), S()) + ascii<S>("@");
  return text.find(service) != S::npos || text.find(userAt) != S::npos;
}

// The wide form of a URL predicate: the narrow form on the UTF-8 text, or
// the protocol test on the wide text's own protocol when it cannot convert.
bool wideUrlTest(const std::wstring& url, bool (*narrowForm)(const std::string&),
                 bool (*protocolTest)(const std::string&)) {
  std::string utf8;
  if (narrowed(url, utf8)) return narrowForm(utf8);
  return protocolTest(toUtf8(protocolOf(url)));
}

bool webProtocol(const std::string& p) { return p == "http" || p == "https"; }
bool mailProtocol(const std::string& p) { return p == "mailto"; }
bool sipProtocol(const std::string& p) { return p == "sip" || p == "sips"; }
bool telProtocol(const std::string& p) { return p == "tel"; }

std::wstring configuredStripPrefix() {
  const Data::VelderIni* settings = Data::VelderIni::instance();
  return settings ? settings->getStripPrefix() : std::wstring();
}

std::wstring normalizeWith(const std::wstring& number, const std::wstring& stripPrefix) {
  if (number.find(L'@') != std::wstring::npos) return number;
  std::wstring cleaned = number;
  for (const wchar_t separator : {L' ', L'-', L'(', L')', L'.'}) {
    cleaned.erase(std::remove(cleaned.begin(), cleaned.end(), separator), cleaned.end());
  }
  for (const std::wstring& prefix : tokenizeString(stripPrefix, L";")) {
    if (cleaned.size() >= prefix.size() && cleaned.compare(0, prefix.size(), prefix) == 0) {
      cleaned.erase(0, prefix.size());
    }
  }
  return cleaned;
}

// The user part as the PSTN test sees it: the text before the first '@'.
std::wstring userPartOf(const std::wstring& text) { return text.substr(0, text.find(L'@')); }

const std::wstring& pstnCharacters() {
  static const std::wstring characters = L"+1234567890";
  return characters;
}

bool pstnWith(const std::wstring& text, const std::wstring& stripPrefix) {
  const std::wstring user = userPartOf(extractUserAtDomain(text, false));
  const std::wstring number = removeSipUrlScheme(normalizePhoneNumber(user, stripPrefix));
  return !number.empty() && number.find_first_not_of(pstnCharacters()) == std::wstring::npos;
}

bool globalTelWith(const std::wstring& uri, const std::wstring& stripPrefix) {
  if (uri.empty() || getSipUrlScheme(uri) != Tel) return false;
  const std::wstring bare = removeSipUrlScheme(uri);
  const std::wstring number = bare.substr(0, bare.find(L';'));
  if (number.size() < 2 || number[0] != L'+') return false;
  const std::wstring rest = number.substr(1);
  return rest.find(L'+') == std::wstring::npos &&
         pstnWith(normalizePhoneNumber(rest, stripPrefix), stripPrefix);
}

}  // namespace

SipAddressProtocol getSipUrlScheme(const std::string& text) {
  QIM_ENTRY();
  return schemeOf(text);
}

SipAddressProtocol getSipUrlScheme(const std::wstring& text) {
  QIM_ENTRY();
  std::string utf8;
  return narrowed(text, utf8) ? getSipUrlScheme(utf8) : schemeOf(text);
}

SipAddressProtocol getSipAddressProtocolFromString(const std::string& text) {
  QIM_ENTRY();
  return protocolOfWord(text);
}

SipAddressProtocol getSipAddressProtocolFromString(const std::wstring& text) {
  QIM_ENTRY();
  std::string utf8;
  return narrowed(text, utf8) ? getSipAddressProtocolFromString(utf8) : protocolOfWord(text);
}

std::string getStringFromSipAddressProtocol(SipAddressProtocol protocol, bool withColon) {
  QIM_ENTRY();
  return schemeName(protocol, withColon);
}

std::wstring getWstringFromSipAddressProtocol(SipAddressProtocol protocol, bool withColon) {
  QIM_ENTRY();
  return ascii<std::wstring>(schemeName(protocol, withColon));
}

std::string removeSipUrlScheme(const std::string& text) {
  QIM_ENTRY();
  return withoutScheme(text);
}

std::wstring removeSipUrlScheme(const std::wstring& text) {
  QIM_ENTRY();
  std::string utf8;
  // Cutting an ASCII prefix keeps UTF-8 valid, so the way back cannot fail.
  return narrowed(text, utf8) ? fromUtf8(removeSipUrlScheme(utf8)) : withoutScheme(text);
}

std::string addSipUrlScheme(const std::string& text, SipAddressProtocol protocol) {
  QIM_ENTRY();
  return withScheme(removeSipUrlScheme(text), protocol);
}

std::wstring addSipUrlScheme(const std::wstring& text, SipAddressProtocol protocol) {
  QIM_ENTRY();
  return withScheme(removeSipUrlScheme(text), protocol);
}

std::string addSipUrlScheme(const std::string& text, SipAddressProtocol protocol, bool secure) {
  QIM_ENTRY();
  return addSipUrlScheme(text, secureChoice(protocol, secure));
}

std::wstring addSipUrlScheme(const std::wstring& text, SipAddressProtocol protocol,
                             bool secure) {
  QIM_ENTRY();
  return addSipUrlScheme(text, secureChoice(protocol, secure));
}

std::wstring extractUserAtDomain(const std::wstring& text, bool stripPort) {
  QIM_ENTRY();
  const auto npos = std::wstring::npos;
  const std::size_t userEnd = text.find_first_of(L";@");
  const std::size_t at = text.find(L'@');
  if (at == npos) return text.substr(0, userEnd);

  std::size_t end = text.find(L';', at);
  if (end == npos) end = text.find(L'?', at);
  // Without either, the count stays "not found", above any length.
  std::size_t count = end == npos ? npos : end - at;
  if (stripPort) {
    const std::size_t colon = text.find(L':', at);
    // An absolute position against a length counted from the '@': with a
    // long user part and parameters the port stays. Callers rely on it.
    if (colon != npos && colon < count) count = colon - at;
  }
  return text.substr(0, userEnd) + text.substr(at, count);
}

bool parseUserAndDomain(const std::wstring& address, std::wstring& user, std::wstring& domain) {
  QIM_ENTRY();
  user.clear();
  domain.clear();
  if (address.empty()) return false;
  if (address.find(L'@') == std::wstring::npos) {
    user = address;
    return true;
  }
  const std::vector<std::wstring> parts = tokenizeString(address, L"@");
  if (parts.size() != 2 || parts[0].empty() || parts[1].empty()) return false;
  user = parts[0];
  domain = parts[1];
  return true;
}

bool equalsSipAddress(std::wstring a, std::wstring b) {
  QIM_ENTRY();
  std::wstring userA, domainA, userB, domainB;
  if (!parseUserAndDomain(a, userA, domainA) || !parseUserAndDomain(b, userB, domainB)) {
    return false;
  }
  return userA == userB && equalsIgnoreCase(domainA, domainB);
}

std::wstring normalizePhoneNumber(const std::wstring& number) {
  QIM_ENTRY();
  return normalizeWith(number, configuredStripPrefix());
}

std::wstring normalizePhoneNumber(const std::wstring& number, const std::wstring& stripPrefix) {
  QIM_ENTRY();
  return normalizeWith(number, stripPrefix);
}

bool isPstnNumber(const std::wstring& text) {
  QIM_ENTRY();
  return pstnWith(text, configuredStripPrefix());
}

bool isPstnNumber(const std::wstring& text, const std::wstring& stripPrefix) {
  QIM_ENTRY();
  return pstnWith(text, stripPrefix);
}

const std::wstring& getSpecialCallparkUsername() {
  QIM_ENTRY();
  static const std::wstring name = L"callpark";
  return name;
}

bool isCallparkService(const std::string& text) {
  QIM_ENTRY();
  return callparkIn(text);
}

bool isCallparkService(const std::wstring& text) {
  QIM_ENTRY();
  std::string utf8;
  return narrowed(text, utf8) ? isCallparkService(utf8) : callparkIn(text);
}

std::string getUrlProtocol(const std::string& url) {
  QIM_ENTRY();
  return protocolOf(url);
}

std::wstring getUrlProtocol(const std::wstring& url) {
  QIM_ENTRY();
  std::string utf8;
  // The part before an ASCII ':' of valid UTF-8 is valid UTF-8.
  return narrowed(url, utf8) ? fromUtf8(getUrlProtocol(utf8)) : protocolOf(url);
}

bool isWebUrl(const std::string& url) {
  QIM_ENTRY();
  return webProtocol(getUrlProtocol(url));
}

bool isWebUrl(const std::wstring& url) {
  QIM_ENTRY();
  return wideUrlTest(url, [](const std::string& u) { return isWebUrl(u); }, webProtocol);
}

bool isMailUrl(const std::string& url) {
  QIM_ENTRY();
  return mailProtocol(getUrlProtocol(url));
}

bool isMailUrl(const std::wstring& url) {
  QIM_ENTRY();
  return wideUrlTest(url, [](const std::string& u) { return isMailUrl(u); }, mailProtocol);
}

bool isSipUrl(const std::string& url) {
  QIM_ENTRY();
  return sipProtocol(getUrlProtocol(url));
}

bool isSipUrl(const std::wstring& url) {
  QIM_ENTRY();
  return wideUrlTest(url, [](const std::string& u) { return isSipUrl(u); }, sipProtocol);
}

bool isTelUrl(const std::string& url) {
  QIM_ENTRY();
  return telProtocol(getUrlProtocol(url));
}

bool isTelUrl(const std::wstring& url) {
  QIM_ENTRY();
  return wideUrlTest(url, [](const std::string& u) { return isTelUrl(u); }, telProtocol);
}

bool isFileUrl(const std::string& url) {
  QIM_ENTRY();
  return isFileUrl(fromUtf8(url));
}

bool isFileUrl(const std::wstring& url) {
  QIM_ENTRY();
  return net::isFileUrlPlatform(url);
}

bool isGlobalTelURI(const std::wstring& uri) {
  QIM_ENTRY();
  return globalTelWith(uri, configuredStripPrefix());
}

bool isGlobalTelURI(const std::wstring& uri, const std::wstring& stripPrefix) {
  QIM_ENTRY();
  return globalTelWith(uri, stripPrefix);
}

}  // namespace QIM
