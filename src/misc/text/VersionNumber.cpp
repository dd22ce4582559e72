#include "qimmisc/VersionNumber.h"

#include <limits>

#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {

int versionChannel() {
  static const int channel = DbgMsg::getChannelByName("VERSION");
  return channel;
}

// long is 64 bits on Linux and 32 on Windows: clamping here gives both the
// saturation strtol already gives a 32-bit long.
std::int32_t toComponent(long value) {
  constexpr long kMin = std::numeric_limits<std::int32_t>::min();
  constexpr long kMax = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(value < kMin ? kMin : value > kMax ? kMax : value);
}

}  // namespace

VersionNumber::VersionNumber() : components_{0} {}

VersionNumber::VersionNumber(const std::wstring& text) { set(text); }

void VersionNumber::set(const std::wstring& text) {
  QIM_TRACE(versionChannel(), "numTxt=" << toUtf8(text));
  components_.clear();
  for (const std::wstring& piece : tokenizeString(text, std::wstring(L"."))) {
    long value = 0;
    // Text that is no number still contributes what the read left.
    static_cast<void>(stringToLong(toUtf8(piece), &value, 10));
    components_.push_back(toComponent(value));
  }
}

std::wstring VersionNumber::toString() const {
  std::wstring text;
  for (std::size_t i = 0; i < components_.size(); ++i) {
    if (i) text += L'.';
    text += std::to_wstring(components_[i]);
  }
  return text;
}

bool VersionNumber::operator==(const VersionNumber& other) const {
  return components_ == other.components_;
}

bool VersionNumber::operator!=(const VersionNumber& other) const { return !(*this == other); }

// std::vector's ordering is exactly the walk: first difference, then length.
bool VersionNumber::operator<(const VersionNumber& other) const {
  return components_ < other.components_;
}

bool VersionNumber::operator<=(const VersionNumber& other) const { return !(other < *this); }

bool VersionNumber::operator>(const VersionNumber& other) const { return other < *this; }

bool VersionNumber::operator>=(const VersionNumber& other) const { return !(*this < other); }

}  // namespace QIM
