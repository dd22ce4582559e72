#include "qimmisc/DateUtils.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdlib>

#include "text/DateUtilsDetail.h"
#include "text/LanguageFolder.h"

namespace QIM {
namespace {

// Sets the time zone for one test; the process's own zone comes back after.
struct ScopedTimeZone {
  explicit ScopedTimeZone(const char* zone) { set(zone); }
  ~ScopedTimeZone() { set(nullptr); }
  static void set(const char* zone) {
#ifdef _WIN32
    _putenv_s("TZ", zone ? zone : "");
    _tzset();
#else
    zone ? setenv("TZ", zone, 1) : unsetenv("TZ");
    tzset();
#endif
  }
};

// Normalized local time; mktime decides the daylight-saving flag.
tm localTime(int year, int month, int day, int hour = 12, int minute = 0) {
  tm t{};
  t.tm_year = year - 1900, t.tm_mon = month - 1, t.tm_mday = day, t.tm_hour = hour, t.tm_min = minute;
  t.tm_isdst = -1;
  std::mktime(&t);
  return t;
}

TEST(Dates, AgainstTheClock) {
  const ScopedTimeZone utc("UTC0");
  const struct { int daysBefore, hour, minute; bool today, yesterday, lastWeek; } cases[] = {
      {0, 0, 0, true, false, false},  {0, 23, 59, true, false, false}, {1, 23, 59, false, true, true},
      {1, 0, 0, false, true, true},   {7, 12, 0, false, false, true},  {8, 0, 0, false, false, false},
      {-1, 0, 0, false, false, false}};
  const tm now = *getCurrentTime();
  for (const auto& c : cases) {
    const tm date = localTime(now.tm_year + 1900, now.tm_mon + 1, now.tm_mday - c.daysBefore,
                              c.hour, c.minute);
    EXPECT_EQ((std::array{isToday(&date), isYesterday(&date), isLastWeek(&date)}),
              (std::array{c.today, c.yesterday, c.lastWeek})) << c.daysBefore;
  }
  tm copy = now;
  EXPECT_LE(std::abs(std::difftime(std::mktime(&copy), std::time(nullptr))), 2.0);
}

// Central European rules: summer time from 2026-03-29 02:00, winter time from
// 2026-10-25 03:00. The limits are seconds, so a 25-hour day is more than a
// day. Each midnight keeps its date's daylight-saving flag, so a time after
// the change on the changing day has a midnight an hour off.
TEST(Dates, DaylightSavingChangesCountAsSeconds) {
#ifdef _WIN32
  GTEST_SKIP() << "the Windows C runtime applies only United States change dates to TZ";
#else
  const ScopedTimeZone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
  const struct { tm now, date; double limit; bool within; } cases[] = {
      {localTime(2026, 3, 30), localTime(2026, 3, 29, 1), 86400, true},     // 23 hours
      {localTime(2026, 10, 26), localTime(2026, 10, 25, 1), 86400, false},  // 25 hours
      {localTime(2026, 10, 26), localTime(2026, 10, 25), 86400, true},      // flag kept
      {localTime(2026, 10, 26), localTime(2026, 10, 19), 604800, false},
      {localTime(2026, 4, 2), localTime(2026, 3, 26), 604800, true}};
  for (const auto& c : cases) {
    EXPECT_EQ(detail::isWithinBefore(c.now, c.date, c.limit), c.within)
        << c.date.tm_mon + 1 << "-" << c.date.tm_mday << " " << c.date.tm_hour;
  }
#endif
}

using Weekdays = test::LanguageFolderTest;

TEST_F(Weekdays, NamesFromTheResources) {
  const std::pair<int, const wchar_t*> cases[] = {
      {0, L"Sun"}, {1, L"Mon"}, {2, L""}, {6, L"Sat"}, {7, L""}, {-1, L""}, {INT_MIN, L""}};
  for (const auto& [day, name] : cases) EXPECT_EQ(getWeekdayString(day), name) << day;
}

}  // namespace
}  // namespace QIM
