#include "qimmisc/DateUtils.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <ostream>
#include <string>

#include "qimmisc/ResourcesManager.h"
#include "text/DateUtilsDetail.h"
#include "text/LanguageFolder.h"

namespace QIM {
namespace {

// Sets the time zone for one test and restores the previous one.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) {
    if (const char* old = std::getenv("TZ")) saved_ = old;
    set(zone);
  }
  ~ScopedTimeZone() { set(saved_ ? saved_->c_str() : nullptr); }

 private:
  static void set(const char* zone) {
#ifdef _WIN32
    _putenv_s("TZ", zone ? zone : "");
    _tzset();
#else
    zone ? setenv("TZ", zone, 1) : unsetenv("TZ");
    tzset();
#endif
  }
  std::optional<std::string> saved_;
};

// A normalized local time, daylight-saving flag as mktime decides it.
tm localTime(int year, int month, int day, int hour = 12, int minute = 0) {
  tm t{};
  t.tm_year = year - 1900;
  t.tm_mon = month - 1;
  t.tm_mday = day;
  t.tm_hour = hour;
  t.tm_min = minute;
  t.tm_isdst = -1;
  std::mktime(&t);
  return t;
}

tm daysBeforeNow(int days, int hour, int minute) {
  const tm now = *getCurrentTime();
  return localTime(now.tm_year + 1900, now.tm_mon + 1, now.tm_mday - days, hour, minute);
}

struct ClockCase {
  const char* name;
  int daysBefore;
  int hour, minute;
  bool today, yesterday, lastWeek;
};
void PrintTo(const ClockCase& c, std::ostream* os) { *os << c.name; }

class AgainstTheClock : public ::testing::TestWithParam<ClockCase> {
 protected:
  ScopedTimeZone utc_{"UTC0"};
};

TEST_P(AgainstTheClock, Classifies) {
  const ClockCase& c = GetParam();
  const tm date = daysBeforeNow(c.daysBefore, c.hour, c.minute);
  EXPECT_EQ(isToday(&date), c.today);
  EXPECT_EQ(isYesterday(&date), c.yesterday);
  EXPECT_EQ(isLastWeek(&date), c.lastWeek);
}

const ClockCase kClockCases[] = {
    {"EarlierToday", 0, 0, 0, true, false, false},
    {"LaterToday", 0, 23, 59, true, false, false},
    {"YesterdayLate", 1, 23, 59, false, true, true},
    {"YesterdayEarly", 1, 0, 0, false, true, true},
    {"TwoDaysAgo", 2, 12, 0, false, false, true},
    {"SevenDaysAgo", 7, 12, 0, false, false, true},
    {"EightDaysAgo", 8, 0, 0, false, false, false},
    {"Tomorrow", -1, 0, 0, false, false, false},
    {"LastYear", 365, 12, 0, false, false, false},
};

INSTANTIATE_TEST_SUITE_P(Dates, AgainstTheClock, ::testing::ValuesIn(kClockCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Dates, CurrentTimeIsTheClock) {
  const std::time_t before = std::time(nullptr);
  tm now = *getCurrentTime();
  const std::time_t seen = std::mktime(&now);
  EXPECT_GE(seen, before);
  EXPECT_LE(seen, std::time(nullptr));
}

struct DstCase {
  const char* name;
  tm now, date;
  double limit;
  bool within;
};

// Central European rules: summer time from 2026-03-29 02:00, winter time
// from 2026-10-25 03:00. The limits are seconds, so a 25-hour day is more
// than a day. Midnight keeps each date's own daylight-saving flag: a date
// after the change on the changing day has a midnight an hour off.
const DstCase kDstCases[] = {
    {"SpringDayIs23Hours", localTime(2026, 3, 30), localTime(2026, 3, 29, 1), 86400, true},
    {"AutumnDayIs25Hours", localTime(2026, 10, 26), localTime(2026, 10, 25, 1), 86400, false},
    {"AutumnAfternoonKeepsItsFlag", localTime(2026, 10, 26), localTime(2026, 10, 25), 86400,
     true},
    {"AutumnWeekTooLong", localTime(2026, 10, 26), localTime(2026, 10, 19), 604800, false},
    {"SpringWeekShort", localTime(2026, 4, 2), localTime(2026, 3, 26), 604800, true},
    {"SpringEightDays", localTime(2026, 4, 3), localTime(2026, 3, 26), 604800, false},
    {"PlainDay", localTime(2026, 6, 2, 0, 1), localTime(2026, 6, 1, 23, 59), 86400, true},
};

TEST(Dates, DaylightSavingChangesCountAsSeconds) {
#ifdef _WIN32
  GTEST_SKIP() << "the Windows C runtime applies only United States change dates to TZ";
#else
  const ScopedTimeZone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
  for (const DstCase& c : kDstCases) {
    // Rebuilt under the zone: the table was made before it was set.
    const tm now = localTime(c.now.tm_year + 1900, c.now.tm_mon + 1, c.now.tm_mday,
                             c.now.tm_hour, c.now.tm_min);
    const tm date = localTime(c.date.tm_year + 1900, c.date.tm_mon + 1, c.date.tm_mday,
                              c.date.tm_hour, c.date.tm_min);
    EXPECT_EQ(detail::isWithinBefore(now, date, c.limit), c.within) << c.name;
  }
#endif
}

class Weekdays : public test::LanguageFolderTest {};

TEST_F(Weekdays, NamesFromTheResources) {
  writeLanguage("en",
                "SUNDAY=Sun\nMONDAY=Mon\nTUESDAY=Tue\nWEDNESDAY=Wed\nTHURSDAY=Thu\n"
                "FRIDAY=Fri\nSATURDAY=Sat\n");
  const struct {
    int day;
    const wchar_t* name;
  } cases[] = {{0, L"Sun"}, {1, L"Mon"}, {2, L"Tue"}, {3, L"Wed"}, {4, L"Thu"}, {5, L"Fri"},
               {6, L"Sat"}, {7, L""},    {-1, L""},   {INT_MAX, L""}, {INT_MIN, L""}};
  for (const auto& c : cases) EXPECT_EQ(getWeekdayString(c.day), c.name) << c.day;
}

}  // namespace
}  // namespace QIM
