// Fuzz target for the SIP address, number and URL helpers, which see
// addresses from the network and numbers the user typed.
//
// Besides "no crash, no hang": narrow and wide forms agree on every text
// that is valid UTF-8, schemes added are the schemes read back, address
// equality is symmetric and reflexive wherever the address parses, and
// cleaning a number without prefixes to cut is idempotent.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzCheck.h"
#include "qimmisc/FullSipAddress.h"
#include "qimmisc/NetUtils.h"
#include "qimmisc/StringUtils.h"

namespace {

using QIM::fuzz::check;
using QIM::fuzz::unitsOf;

void checkNarrowWideAgree(const std::string& bytes, const std::wstring& wide) {
  check(QIM::getSipUrlScheme(bytes) == QIM::getSipUrlScheme(wide), "scheme agrees");
  check(QIM::getSipAddressProtocolFromString(bytes) ==
            QIM::getSipAddressProtocolFromString(wide),
        "protocol word agrees");
  check(QIM::fromUtf8(QIM::removeSipUrlScheme(bytes)) == QIM::removeSipUrlScheme(wide),
        "scheme removal agrees");
  check(QIM::isCallparkService(bytes) == QIM::isCallparkService(wide), "call park agrees");
  check(QIM::fromUtf8(QIM::getUrlProtocol(bytes)) == QIM::getUrlProtocol(wide),
        "URL protocol agrees");
  check(QIM::isWebUrl(bytes) == QIM::isWebUrl(wide), "web URL agrees");
  check(QIM::isMailUrl(bytes) == QIM::isMailUrl(wide), "mail URL agrees");
  check(QIM::isSipUrl(bytes) == QIM::isSipUrl(wide), "SIP URL agrees");
  check(QIM::isTelUrl(bytes) == QIM::isTelUrl(wide), "tel URL agrees");
  check(QIM::isFileUrl(bytes) == QIM::isFileUrl(wide), "file URL agrees");
}

template <class S>
void checkSchemes(const S& text) {
  for (const QIM::SipAddressProtocol protocol : {QIM::Sip, QIM::Sips, QIM::Tel}) {
    const S full = QIM::addSipUrlScheme(text, protocol);
    check(QIM::getSipUrlScheme(full) == protocol, "the added scheme is read back");
    check(QIM::removeSipUrlScheme(full) == QIM::removeSipUrlScheme(text),
          "adding a scheme replaces the written one");
  }
}

void checkAddresses(const std::wstring& a, const std::wstring& b) {
  std::wstring user, domain;
  const bool parses = QIM::parseUserAndDomain(a, user, domain);
  check(QIM::equalsSipAddress(a, a) == parses, "equality is reflexive where it parses");
  check(QIM::equalsSipAddress(a, b) == QIM::equalsSipAddress(b, a), "equality is symmetric");

  const QIM::FullSipAddress first(a), second(b);
  check((first == second) == (second == first), "address value equality is symmetric");
  QIM::FullSipAddress target(second);
  target = first;
  check((target == first) == (first == first), "assignment leaves an equal address");

  const std::wstring stripped = QIM::extractUserAtDomain(a, true);
  check(stripped.size() <= QIM::extractUserAtDomain(a, false).size(), "port stripping shortens");
  check(stripped.size() <= a.size(), "extraction never grows");
}

void checkNumbers(const std::wstring& text, const std::wstring& prefixes) {
  const std::wstring clean = QIM::normalizePhoneNumber(text, L"");
  check(QIM::normalizePhoneNumber(clean, L"") == clean, "cleaning is idempotent");
  const std::wstring cut = QIM::normalizePhoneNumber(text, prefixes);
  check(cut.size() <= clean.size(), "cutting prefixes never grows");
  QIM::isPstnNumber(text, prefixes);
  if (QIM::isGlobalTelURI(text, prefixes)) check(QIM::isTelUrl(text), "a global tel URI is tel");
}

void runOne(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::wstring wide = QIM::fromUtf8(bytes);
  if (!wide.empty()) checkNarrowWideAgree(bytes, wide);
  checkSchemes(bytes);
  checkSchemes(wide);

  // A first line, when present, is the second address and the prefix list.
  const std::size_t newline = bytes.find('\n');
  const std::wstring first = QIM::fromUtf8(bytes.substr(0, newline));
  const std::wstring rest =
      newline == std::string::npos ? std::wstring() : QIM::fromUtf8(bytes.substr(newline + 1));
  checkAddresses(rest, first);
  checkNumbers(rest, first);

  const std::wstring units = unitsOf(bytes);
  checkSchemes(units);
  checkAddresses(units, wide);
  checkNumbers(units, L"9");
  QIM::isCallparkService(units);
  QIM::isFileUrl(units);
  QIM::getUrlProtocol(units);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  QIM::fuzz::quietErrors();
  runOne(data, size);
  return 0;
}
