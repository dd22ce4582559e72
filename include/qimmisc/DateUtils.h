// Calendar checks for labelling dates in lists (call history, messages).
// Dates are broken-down local times.
#pragma once

#include <ctime>
#include <string>

#include "qimmisc/Export.h"

namespace QIM {

/// The current wall-clock time, whole seconds, as local time. Points at the
/// runtime's own static `tm`, overwritten by the next conversion on this
/// thread: copy it to keep it.
QIMMISC_API tm* getCurrentTime();

/// Whether `date` has today's year, month and day of month.
QIMMISC_API bool isToday(const tm* date);

/// Whether today's midnight is more than 0 and at most 86400 seconds after
/// `date`'s midnight. The seconds are counted as they are, so across a
/// daylight-saving change (a 23- or 25-hour day) the answer follows them.
QIMMISC_API bool isYesterday(const tm* date);

/// The same with 604800 seconds: true for yesterday too, false for today
/// and the future.
QIMMISC_API bool isLastWeek(const tm* date);

/// The localized name of weekday `day` (0 Sunday to 6 Saturday) from the
/// resources manager (keys "SUNDAY" to "SATURDAY"); empty for other values.
QIMMISC_API std::wstring getWeekdayString(int day);

}  // namespace QIM
