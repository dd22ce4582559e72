// The SIP address value. Comparison ignores the written scheme and the
// domain's letter case; assignment keeps the target's spelling when the two
// already compare equal.
#include "qimmisc/FullSipAddress.h"

#include <ostream>

#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {

FullSipAddress::FullSipAddress() : protocol(Sip) { QIM_ENTRY(); }

FullSipAddress::FullSipAddress(const std::wstring& text, SipAddressProtocol proto)
    : address(text), protocol(proto) {
  QIM_ENTRY();
}

FullSipAddress::FullSipAddress(const std::string& text, SipAddressProtocol proto)
    : address(fromUtf8(text)), protocol(proto) {
  QIM_ENTRY();
}

FullSipAddress::FullSipAddress(const std::wstring& text)
    : address(text), protocol(getSipUrlScheme(text)) {
  QIM_ENTRY();
}

FullSipAddress::FullSipAddress(const std::string& text)
    : address(fromUtf8(text)), protocol(getSipUrlScheme(text)) {
  QIM_ENTRY();
}

FullSipAddress::FullSipAddress(const FullSipAddress& other)
    : address(other.address), protocol(other.protocol) {
  QIM_ENTRY();
}

FullSipAddress& FullSipAddress::operator=(const FullSipAddress& other) {
  QIM_ENTRY();
  // Equal addresses keep the target's own spelling, e.g. its domain's case.
  if (*this == other) return *this;
  address = other.address;
  protocol = other.protocol;
  return *this;
}

bool FullSipAddress::operator==(const FullSipAddress& other) const {
  QIM_ENTRY();
  return equalsSipAddress(removeSipUrlScheme(address), removeSipUrlScheme(other.address)) &&
         protocol == other.protocol;
}

bool FullSipAddress::operator!=(const FullSipAddress& other) const {
  QIM_ENTRY();
  return !(*this == other);
}

bool FullSipAddress::isValid() const {
  QIM_ENTRY();
  return !address.empty();
}

std::wstring FullSipAddress::getFullSipAddress() const {
  QIM_ENTRY();
  return addSipUrlScheme(address, protocol);
}

std::wostream& operator<<(std::wostream& out, const FullSipAddress& address) {
  QIM_ENTRY();
  return out << address.getFullSipAddress();
}

std::ostream& operator<<(std::ostream& out, const FullSipAddress& address) {
  QIM_ENTRY();
  return out << toUtf8(address.getFullSipAddress());
}

}  // namespace QIM
