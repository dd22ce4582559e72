// Dotted IPv4 text to the 32-bit value the IP tables hold.
#pragma once

#include <ace/OS_NS_arpa_inet.h>

#include <cstdint>
#include <string>

#include "qimmisc/StringUtils.h"

namespace QIM::net {

/// Parses `text` (UTF-8 of the wide text, the forms inet_aton takes) into
/// `address`, network byte order. False for text that is no address.
inline bool parseIpv4(const std::wstring& text, std::uint32_t& address) {
  const std::string utf8 = toUtf8(text);
  if (utf8.empty()) return false;
  in_addr parsed{};
  if (ACE_OS::inet_aton(utf8.c_str(), &parsed) == 0) return false;
  address = parsed.s_addr;
  return true;
}

}  // namespace QIM::net
