// SIP addressing and number classification: URI schemes, user and domain
// parts, address comparison, dialled-number clean-up, PSTN and call-park
// detection, and URL kind predicates: stateless text handling that never
// throws on bad input or reports an error. The local-address helpers at the
// end read the host's address table (IpHlpAddrTable).
//
// Every function opens an ENTRY scope named after itself.
//
// Narrow text is UTF-8. Where a narrow form "decides", it works on the bytes
// as given (invalid UTF-8 included: the rules only look at ASCII characters)
// and the wide form converts with toUtf8 and calls it; should the wide text
// not convert (a lone surrogate), toUtf8 writes its ERROR line and the wide
// form applies the same rule to the wide text itself, so nothing is lost.
// Where the wide form decides, the narrow form converts with fromUtf8:
// invalid UTF-8 then gives what the empty text gives (false for the
// predicates).
//
// normalizePhoneNumber, isPstnNumber and isGlobalTelURI cut the dialling
// prefixes listed in the main settings (getStripPrefix()). Before the
// library's init, or after its last exit, there are no main settings: the
// VelderIni assertion line is written and no prefix is cut. Each also has a
// form that takes the ';'-separated prefix list explicitly.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qimmisc/Export.h"

namespace QIM {

/// The scheme of a SIP address. Any value other than Sips and Tel is taken
/// as Sip wherever a protocol becomes text.
enum SipAddressProtocol : std::int32_t { Sip = 0, Sips = 1, Tel = 2 };

// ---- Schemes ----------------------------------------------------------------

/// Sips for a text beginning "sips:" ignoring case, Tel for "tel:", else Sip.
/// Narrow decides.
QIMMISC_API SipAddressProtocol getSipUrlScheme(const std::string& text);
QIMMISC_API SipAddressProtocol getSipUrlScheme(const std::wstring& text);

/// The same prefix test on a bare word: "sips..." gives Sips, "tel..." Tel
/// (so "telephone" is Tel), anything else Sip. Narrow decides.
QIMMISC_API SipAddressProtocol getSipAddressProtocolFromString(const std::string& text);
QIMMISC_API SipAddressProtocol getSipAddressProtocolFromString(const std::wstring& text);

/// "sip", "sips" or "tel", with ":" appended when `withColon`.
QIMMISC_API std::string getStringFromSipAddressProtocol(SipAddressProtocol protocol,
                                                        bool withColon);
QIMMISC_API std::wstring getWstringFromSipAddressProtocol(SipAddressProtocol protocol,
                                                          bool withColon);

/// The text without one leading "sip:", "sips:" or "tel:" (any case); the
/// rest keeps its case. Narrow decides.
QIMMISC_API std::string removeSipUrlScheme(const std::string& text);
QIMMISC_API std::wstring removeSipUrlScheme(const std::wstring& text);

/// removeSipUrlScheme(text) behind the lower-case prefix of `protocol`.
QIMMISC_API std::string addSipUrlScheme(const std::string& text, SipAddressProtocol protocol);
QIMMISC_API std::wstring addSipUrlScheme(const std::wstring& text, SipAddressProtocol protocol);

/// Tel stays "tel:"; any other protocol becomes "sips:" when `secure`, else
/// "sip:" (a Sips protocol with `secure` false gives "sip:").
QIMMISC_API std::string addSipUrlScheme(const std::string& text, SipAddressProtocol protocol,
                                        bool secure);
QIMMISC_API std::wstring addSipUrlScheme(const std::wstring& text, SipAddressProtocol protocol,
                                         bool secure);

// ---- Address parts ------------------------------------------------------------

/// User and domain without parameters: the text up to the first ';' or '@',
/// then from the first '@' up to the next ';' (else '?', else the end).
/// With `stripPort`, a ':' after the '@' ends the domain only when its
/// absolute position is below that domain length, so a long user part with
/// parameters keeps its port. No scheme is removed.
QIMMISC_API std::wstring extractUserAtDomain(const std::wstring& text, bool stripPort);

/// Splits at '@': no '@' gives the whole text as user and an empty domain;
/// false for an empty text or unless exactly two non-empty parts.
QIMMISC_API bool parseUserAndDomain(const std::wstring& address, std::wstring& user,
                                    std::wstring& domain);

/// Both parse, users equal exactly, domains equal ignoring case. Strips
/// no scheme, port or parameter.
QIMMISC_API bool equalsSipAddress(std::wstring a, std::wstring b);

// ---- Numbers ------------------------------------------------------------------

/// A text with '@' unchanged; otherwise without " ", "-", "(", ")" and ".",
/// then every prefix of the main settings' strip list that the number begins
/// with is cut, in list order.
QIMMISC_API std::wstring normalizePhoneNumber(const std::wstring& number);
/// The same with the ';'-separated prefix list given.
QIMMISC_API std::wstring normalizePhoneNumber(const std::wstring& number,
                                              const std::wstring& stripPrefix);

/// True when the user part, normalized and without scheme, is non-empty and
/// made only of '+' and digits.
QIMMISC_API bool isPstnNumber(const std::wstring& text);
QIMMISC_API bool isPstnNumber(const std::wstring& text, const std::wstring& stripPrefix);

/// The user name of the call-park service, "callpark".
QIMMISC_API const std::wstring& getSpecialCallparkUsername();

/// Contains ";service=callpark" or "callpark@" (case-sensitive). Narrow
/// decides.
QIMMISC_API bool isCallparkService(const std::string& text);
QIMMISC_API bool isCallparkService(const std::wstring& text);

// ---- URLs -----------------------------------------------------------------------

/// The text before the first ':', lower-cased; empty without a ':'. Narrow
/// decides.
QIMMISC_API std::string getUrlProtocol(const std::string& url);
QIMMISC_API std::wstring getUrlProtocol(const std::wstring& url);

/// Protocol "http" or "https". Narrow decides.
QIMMISC_API bool isWebUrl(const std::string& url);
QIMMISC_API bool isWebUrl(const std::wstring& url);
/// Protocol "mailto". Narrow decides.
QIMMISC_API bool isMailUrl(const std::string& url);
QIMMISC_API bool isMailUrl(const std::wstring& url);
/// Protocol "sip" or "sips". Narrow decides.
QIMMISC_API bool isSipUrl(const std::string& url);
QIMMISC_API bool isSipUrl(const std::wstring& url);
/// Protocol "tel". Narrow decides.
QIMMISC_API bool isTelUrl(const std::string& url);
QIMMISC_API bool isTelUrl(const std::wstring& url);

/// A "file:" URL. Wide decides: the shell's UrlIsW on Windows; elsewhere a
/// "file:" prefix ignoring case, which is the same test for text without
/// embedded NUL characters.
QIMMISC_API bool isFileUrl(const std::string& url);
QIMMISC_API bool isFileUrl(const std::wstring& url);

/// A "tel:" URI whose number (before any ';') is '+' followed by a PSTN
/// number holding no further '+'. Visual separators (" -().") inside the
/// number are allowed, being removed by normalizePhoneNumber.
QIMMISC_API bool isGlobalTelURI(const std::wstring& uri);
QIMMISC_API bool isGlobalTelURI(const std::wstring& uri, const std::wstring& stripPrefix);

// ---- Local addresses ----------------------------------------------------------

/// Dotted text ("10.1.2.3") of an IPv4 address held as the IP tables hold
/// it: in network byte order.
QIMMISC_API std::wstring ipAddrToString(std::uint32_t address);

/// Whether `address`, dotted IPv4 text, belongs to one of this host's
/// interfaces now (a fresh address table). False for empty or other text.
QIMMISC_API bool isLocalAddressValid(const std::wstring& address);

/// This host's IPv4 addresses, dotted, in address-table order, loopback
/// included; 0.0.0.0 rows are left out.
QIMMISC_API std::vector<std::wstring> getLocalAddresses();

}  // namespace QIM
