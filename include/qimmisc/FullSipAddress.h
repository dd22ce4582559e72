// A SIP address value: the address text as given plus the protocol whose
// scheme is shown to the outside.
#pragma once

#include <iosfwd>
#include <string>

#include "qimmisc/Export.h"
#include "qimmisc/NetUtils.h"

namespace QIM {

/// An address and its protocol. No invariant is enforced: `protocol` and a
/// scheme written inside `address` may disagree, and `protocol` wins.
struct QIMMISC_API FullSipAddress {
  /// Empty address, Sip.
  FullSipAddress();
  /// Both stored as given.
  FullSipAddress(const std::wstring& text, SipAddressProtocol proto);
  /// fromUtf8(text) (empty for invalid UTF-8) and the protocol.
  FullSipAddress(const std::string& text, SipAddressProtocol proto);
  /// The text as given; the protocol is getSipUrlScheme(text).
  explicit FullSipAddress(const std::wstring& text);
  /// fromUtf8(text) (empty for invalid UTF-8); the protocol its scheme.
  explicit FullSipAddress(const std::string& text);
  FullSipAddress(const FullSipAddress& other);

  /// Does nothing when `other` compares equal, so the target keeps its own
  /// spelling (e.g. the letter case of its domain); otherwise copies both.
  FullSipAddress& operator=(const FullSipAddress& other);

  /// Schemes stripped, equalsSipAddress on the rest and the same protocol.
  bool operator==(const FullSipAddress& other) const;
  bool operator!=(const FullSipAddress& other) const;

  /// Whether the address is non-empty; no syntax check.
  bool isValid() const;
  /// The address behind the scheme of `protocol`, any written scheme removed.
  std::wstring getFullSipAddress() const;

  std::wstring address;
  SipAddressProtocol protocol;
};

/// Writes getFullSipAddress(); a narrow stream receives it as UTF-8.
QIMMISC_API std::wostream& operator<<(std::wostream& out, const FullSipAddress& address);
QIMMISC_API std::ostream& operator<<(std::ostream& out, const FullSipAddress& address);

}  // namespace QIM
