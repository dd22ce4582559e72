#include "NetChecks.h"

#include <ace/INET_Addr.h>

#include <algorithm>
#include <cctype>

#include "qimmisc/IpHlpForwardTable.h"
#include "qimmisc/NetUtils.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"

namespace qimtool {

bool parseDestination(const std::string& text, std::string& host, unsigned& port,
                      std::string& problem) {
  host = text;
  port = 5060;  // the client's SIP port; it only names the socket, not the route
  const auto colon = text.rfind(':');
  if (colon != std::string::npos) {
    host = text.substr(0, colon);
    const std::string digits = text.substr(colon + 1);
    const bool numeric = !digits.empty() && digits.size() <= 5 &&
                         std::all_of(digits.begin(), digits.end(),
                                     [](unsigned char c) { return std::isdigit(c) != 0; });
    if (!numeric || std::stoul(digits) > 65535) {
      problem = "port '" + digits + "' is not a number from 0 to 65535";
      return false;
    }
    port = static_cast<unsigned>(std::stoul(digits));
  }
  if (host.empty()) {
    problem = "no host in '" + text + "'";
    return false;
  }
  return true;
}

RouteAnswer findRoute(const std::string& host) {
  QIM_ENTRY("host=" << host);
  RouteAnswer answer;
  ACE_INET_Addr address;
  if (address.set(static_cast<u_short>(0), host.c_str(), 1, AF_INET) != 0) {
    answer.problem = "cannot resolve '" + host + "' to an IPv4 address";
    return answer;
  }
  answer.destination = QIM::toUtf8(QIM::ipAddrToString(htonl(address.get_ip_address())));
  const QIM::IpHlpForwardTable routes;
  const auto best = static_cast<std::uint32_t>(
      routes.getBestInterfaceFor(static_cast<int>(address.get_ip_address())));
  if (best == 0) return answer;
  const std::wstring local = QIM::ipAddrToString(best);
  answer.bestInterface = QIM::toUtf8(local);
  answer.mtu = routes.addresses().getInterfaceMtu(local);
  answer.bearerSize = routes.addresses().getMtuSizeForInterface(local);
  return answer;
}

std::string proxyHost(const std::wstring& proxy) {
  std::wstring rest = QIM::removeSipUrlScheme(proxy);
  rest = rest.substr(0, rest.find_first_of(L";?"));
  if (const auto at = rest.rfind(L'@'); at != std::wstring::npos) rest = rest.substr(at + 1);
  return QIM::toUtf8(rest);
}

std::vector<int> portsInRange(const std::vector<int>& ports, const QIM::Data::IntRange& range) {
  std::vector<int> inside;
  for (const int port : ports) {
    if (port >= range.low && port <= range.high &&
        std::find(inside.begin(), inside.end(), port) == inside.end()) {
      inside.push_back(port);
    }
  }
  return inside;
}

std::string rangeText(const QIM::Data::IntRange& range) {
  return std::to_string(range.low) + "-" + std::to_string(range.high);
}

std::string portList(const std::vector<int>& ports) {
  std::string text;
  for (const int port : ports) text += (text.empty() ? "" : ", ") + std::to_string(port);
  return text;
}

}  // namespace qimtool
