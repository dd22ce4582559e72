// What the date checks are built from, open to the tests so they can fix
// "now" (the public checks read the clock).
#pragma once

#include <cstdint>
#include <ctime>

#include "qimmisc/Export.h"

namespace QIM::detail {

/// Seconds since 1970-01-01 UTC, whole seconds, from the platform clock.
QIMMISC_API std::int64_t currentUnixSeconds();

/// Whether `now`'s midnight is more than 0 and at most `limit` seconds after
/// `date`'s midnight (both reset to midnight keeping their other fields, and
/// converted with mktime).
QIMMISC_API bool isWithinBefore(const tm& now, const tm& date, double limit);

}  // namespace QIM::detail
