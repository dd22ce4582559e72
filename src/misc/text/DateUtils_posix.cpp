#include <time.h>

#include "text/DateUtilsDetail.h"

namespace QIM::detail {

std::int64_t currentUnixSeconds() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec;
}

}  // namespace QIM::detail
