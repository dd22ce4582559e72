#include "qimmisc/DateUtils.h"

#include "qimmisc/ResourcesManager.h"
#include "text/DateUtilsDetail.h"

namespace QIM {

namespace {

constexpr double kDaySeconds = 86400;
constexpr double kWeekSeconds = 604800;

// The date, weekday, day of year and daylight-saving flag stay as they are.
tm getResetedToMidnight(const tm& date) {
  tm midnight = date;
  midnight.tm_sec = 0;
  midnight.tm_min = 0;
  midnight.tm_hour = 0;
  return midnight;
}

}  // namespace

namespace detail {

bool isWithinBefore(const tm& now, const tm& date, double limit) {
  tm today = getResetedToMidnight(now);
  tm day = getResetedToMidnight(date);
  const double seconds = std::difftime(std::mktime(&today), std::mktime(&day));
  return seconds > 0 && seconds <= limit;
}

}  // namespace detail

tm* getCurrentTime() {
  const std::time_t now = static_cast<std::time_t>(detail::currentUnixSeconds());
  return std::localtime(&now);
}

bool isToday(const tm* date) {
  const tm* now = getCurrentTime();
  return now != nullptr && date != nullptr && date->tm_year == now->tm_year &&
         date->tm_mon == now->tm_mon && date->tm_mday == now->tm_mday;
}

bool isYesterday(const tm* date) {
  const tm* now = getCurrentTime();
  return now != nullptr && date != nullptr && detail::isWithinBefore(*now, *date, kDaySeconds);
}

bool isLastWeek(const tm* date) {
  const tm* now = getCurrentTime();
  return now != nullptr && date != nullptr && detail::isWithinBefore(*now, *date, kWeekSeconds);
}

std::wstring getWeekdayString(int day) {
  static const wchar_t* const kKeys[] = {L"SUNDAY",   L"MONDAY", L"TUESDAY", L"WEDNESDAY",
                                         L"THURSDAY", L"FRIDAY", L"SATURDAY"};
  if (day < 0 || day > 6) return {};
  return ResourcesManager::instance().getString(kKeys[day]);
}

}  // namespace QIM
