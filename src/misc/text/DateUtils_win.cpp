#include <windows.h>

#include "text/DateUtilsDetail.h"

namespace QIM::detail {

namespace {
// 100-nanosecond intervals from 1601-01-01 to 1970-01-01.
constexpr std::int64_t kUnixEpochAsFileTime = 116444736000000000LL;
}  // namespace

std::int64_t currentUnixSeconds() {
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  const std::int64_t ticks =
      (static_cast<std::int64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
  return (ticks - kUnixEpochAsFileTime) / 10000000;
}

}  // namespace QIM::detail
