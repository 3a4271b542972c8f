// The time value and UTC arithmetic: construction and its checks, the leap
// seconds, comparison, the differences, the weekday and the add operations.
// The C library's timegm serves as the oracle for plain calendar arithmetic;
// the leap-second cases are checked against the list of leap seconds.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "time_test_util.hpp"

namespace {

using namespace time_test;

// ---- construction ---------------------------------------------------------------

TEST(time_value, RecordLayoutAndUtcFlags) {
  // The record's field order and types are part of the interface.
  static_assert(offsetof(ORLIX_Time_st, year) == 0);
  static_assert(offsetof(ORLIX_Time_st, second) == 20);
  static_assert(offsetof(ORLIX_Time_st, nanosecond) == 24);
  static_assert(offsetof(ORLIX_Time_st, utc) == 32);
  static_assert(offsetof(ORLIX_Time_st, dst) == 36);
  static_assert(offsetof(ORLIX_Time_st, zone) == 40);
  TimePtr t = Utc(2020, 5, 17, 13, 45, 59, 999999999);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(Full(t), "2020-05-17 13:45:59.999999999 utc dst=0 zone=414");
  EXPECT_EQ(orlix_time_getns(t.get()), 999999999);
  EXPECT_EQ(orlix_time_isutctime(t.get()), 1);
  EXPECT_EQ(orlix_time_isdst(t.get()), 0);
}

TEST(time_value, ConstructionRejectsFieldsOutOfRange) {
  EXPECT_NE(Utc(1582, 1, 1), nullptr);
  EXPECT_NE(Utc(9999, 12, 31, 23, 59, 59, 999999999), nullptr);
  EXPECT_EQ(Utc(1581, 12, 31, 23, 59, 59), nullptr);
  EXPECT_EQ(Utc(10000, 1, 1), nullptr);
  EXPECT_EQ(Utc(2020, 0, 1), nullptr);
  EXPECT_EQ(Utc(2020, 13, 1), nullptr);
  EXPECT_EQ(Utc(2020, 1, 0), nullptr);
  EXPECT_EQ(Utc(2020, 4, 31), nullptr);
  EXPECT_NE(Utc(2020, 2, 29), nullptr);
  EXPECT_EQ(Utc(2021, 2, 29), nullptr);
  EXPECT_EQ(Utc(1900, 2, 29), nullptr);  // divisible by 100, not by 400
  EXPECT_NE(Utc(2000, 2, 29), nullptr);
  EXPECT_EQ(Utc(2020, 1, 1, 25), nullptr);
  EXPECT_EQ(Utc(2020, 1, 1, 0, 60), nullptr);
  EXPECT_EQ(Utc(2020, 1, 1, 0, 0, 61), nullptr);
  EXPECT_EQ(Utc(2020, 1, 1, 0, 0, 0, 1000000000), nullptr);
  // Negative fields are out of range too (the nanosecond is read unsigned).
  EXPECT_EQ(Utc(2020, 1, 1, 0, 0, 0, -1), nullptr);
  EXPECT_EQ(Utc(2020, 1, 1, -1), nullptr);
  EXPECT_EQ(Utc(2020, 1, 1, 0, -1), nullptr);
  EXPECT_EQ(Utc(2020, 1, 1, 0, 0, -1), nullptr);
}

TEST(time_value, HourTwentyFourEndsTheDay) {
  EXPECT_EQ(Clock(Utc(2020, 2, 29, 24, 0, 0)), "2020-03-01 00:00:00");
  EXPECT_EQ(Clock(Utc(2019, 12, 31, 24, 0, 0, 5)), "2020-01-01 00:00:00");
  EXPECT_EQ(Utc(2020, 2, 29, 24, 0, 1), nullptr);
  EXPECT_EQ(Utc(2020, 2, 29, 24, 1, 0), nullptr);
  EXPECT_EQ(Utc(2016, 12, 31, 24, 0, 60), nullptr);
  // The roll is not range-checked: the last day of 9999 ends in year 10000.
  TimePtr end = Utc(9999, 12, 31, 24, 0, 0);
  ASSERT_NE(end, nullptr);
  EXPECT_EQ(Clock(end), "10000-01-01 00:00:00");
  // ... a record on which every step fails its range check.
  EXPECT_EQ(TimePtr(orlix_time_addsecond(end.get(), 0)) != nullptr, true);
  EXPECT_EQ(TimePtr(orlix_time_addminute(end.get(), -1)), nullptr);
}

TEST(time_value, SecondSixtyOnlyAtTheLeapSeconds) {
  int found = 0;
  for (int32_t year = 1971; year <= 2020; ++year) {
    for (int32_t month : {6, 12}) {
      const int32_t day = month == 6 ? 30 : 31;
      TimePtr t = Utc(year, month, day, 23, 59, 60);
      bool listed = false;
      for (const LeapDate &l : kLeapDates) listed |= l.year == year && l.month == month;
      EXPECT_EQ(t != nullptr, listed) << year << "-" << month;
      if (t == nullptr) continue;
      ++found;
      EXPECT_EQ(orlix_time_isleapsecond(t.get()), 1);
      // The minute before it has none.
      EXPECT_EQ(Utc(year, month, day, 23, 58, 60), nullptr);
    }
  }
  EXPECT_EQ(found, 27);
  EXPECT_EQ(Utc(2016, 12, 30, 23, 59, 60), nullptr);
  EXPECT_EQ(Utc(2017, 12, 31, 23, 59, 60), nullptr);
  EXPECT_EQ(orlix_time_isleapsecond(Utc(2016, 12, 31, 23, 59, 59).get()), 0);
  EXPECT_EQ(orlix_time_isleapsecond(nullptr), 0);
}

TEST(time_value, NowIsTheSystemClock) {
  const int64_t before = static_cast<int64_t>(std::time(nullptr));
  TimePtr now(orlix_time_nowutctime());
  const int64_t after = static_cast<int64_t>(std::time(nullptr));
  ASSERT_NE(now, nullptr);
  EXPECT_EQ(orlix_time_getns(now.get()), 0);
  EXPECT_GE(orlix_time_gettime_t(now.get()), before);
  EXPECT_LE(orlix_time_gettime_t(now.get()), after);
}

TEST(time_value, AccessorsOfNullAndCopies) {
  EXPECT_EQ(orlix_time_getyear(nullptr), -1);
  EXPECT_EQ(orlix_time_getmonth(nullptr), -1);
  EXPECT_EQ(orlix_time_getday(nullptr), -1);
  EXPECT_EQ(orlix_time_gethour(nullptr), -1);
  EXPECT_EQ(orlix_time_getminute(nullptr), -1);
  EXPECT_EQ(orlix_time_getsecond(nullptr), -1);
  EXPECT_EQ(orlix_time_getns(nullptr), -1);
  EXPECT_EQ(orlix_time_isutctime(nullptr), 0);
  EXPECT_EQ(orlix_time_isdst(nullptr), 0);
  EXPECT_EQ(orlix_time_isleapyear(nullptr), 0);
  EXPECT_EQ(orlix_time_dup(nullptr), nullptr);
  orlix_time_free(nullptr);

  TimePtr t = Utc(2016, 12, 31, 23, 59, 60, 7);
  TimePtr copy(orlix_time_dup(t.get()));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy.get(), t.get());
  EXPECT_EQ(Full(copy), Full(t));
  EXPECT_EQ(orlix_time_isleapyear(t.get()), 1);
  EXPECT_EQ(orlix_time_isleapyear(Utc(2100, 1, 1).get()), 0);
  EXPECT_EQ(orlix_time_isleapyear(Utc(2400, 1, 1).get()), 1);
}

// ---- comparison --------------------------------------------------------------------

TEST(time_value, CompareOrdersFieldByFieldWithNullFirst) {
  TimePtr a = Utc(2016, 12, 31, 23, 59, 59);
  TimePtr leap = Utc(2016, 12, 31, 23, 59, 60);
  TimePtr b = Utc(2017, 1, 1, 0, 0, 0);
  TimePtr a_ns = Utc(2016, 12, 31, 23, 59, 59, 1);
  EXPECT_EQ(orlix_time_cmp(a.get(), leap.get()), -1);
  EXPECT_EQ(orlix_time_cmp(leap.get(), b.get()), -1);
  EXPECT_EQ(orlix_time_cmp(b.get(), a.get()), 1);
  EXPECT_EQ(orlix_time_cmp(a.get(), a_ns.get()), -1);
  EXPECT_EQ(orlix_time_cmp(a.get(), TimePtr(orlix_time_dup(a.get())).get()), 0);
  EXPECT_EQ(orlix_time_cmp(nullptr, nullptr), 0);
  EXPECT_EQ(orlix_time_cmp(nullptr, a.get()), -1);
  EXPECT_EQ(orlix_time_cmp(a.get(), nullptr), 1);
  EXPECT_EQ(orlix::time::orlix_utc_time_cmp(nullptr, a.get()), -1);
  EXPECT_EQ(orlix::time::orlix_utc_time_cmp(b.get(), a.get()), 1);
}

TEST(time_value, CompareConvertsLocalOperands) {
  const int32_t tokyo = Zone("Asia/Tokyo");
  TimePtr utc = Utc(2020, 6, 1, 3, 0, 0);
  TimePtr local(orlix::time::orlix_time_utc2localbyid(utc.get(), tokyo));
  ASSERT_NE(local, nullptr);
  EXPECT_EQ(Clock(local), "2020-06-01 12:00:00");
  EXPECT_EQ(orlix_time_cmp(local.get(), utc.get()), 0);
  EXPECT_EQ(orlix_time_cmp(utc.get(), local.get()), 0);
  EXPECT_EQ(orlix_time_cmp(local.get(), Utc(2020, 6, 1, 3, 0, 1).get()), -1);
  // A local time that cannot be converted (its zone is outside the table).
  TimePtr stray(orlix::time::orlix_time_newlocaltimebyid(1000, 2020, 6, 1, 0, 0, 0, 0, 0));
  ASSERT_NE(stray, nullptr);
  EXPECT_EQ(orlix_time_cmp(stray.get(), utc.get()), -1);
  EXPECT_EQ(orlix_time_cmp(utc.get(), stray.get()), 1);
  EXPECT_EQ(orlix_time_cmp(stray.get(), stray.get()), -1);
}

// ---- differences -------------------------------------------------------------------

TEST(time_value, DiffDaysCountsCalendarDates) {
  EXPECT_EQ(orlix_time_diffdays(Utc(2020, 1, 2, 0, 1).get(), Utc(2020, 1, 1, 23, 59).get()), 1);
  EXPECT_EQ(orlix_time_diffdays(Utc(2020, 1, 1, 23, 59).get(), Utc(2020, 1, 2, 0, 1).get()), -1);
  EXPECT_EQ(orlix_time_diffdays(Utc(2020, 1, 1, 23).get(), Utc(2020, 1, 1, 1).get()), 0);
  EXPECT_EQ(orlix_time_diffdays(Utc(2021, 3, 1).get(), Utc(2020, 2, 28).get()), 367);
  EXPECT_EQ(orlix_time_diffdays(Utc(9999, 12, 31).get(), Utc(1582, 1, 1).get()), 3074610);
  EXPECT_EQ(orlix_time_diffdays(nullptr, nullptr), 0);
  EXPECT_EQ(orlix_time_diffdays(nullptr, Utc(2020, 1, 1).get()), INT32_MIN);
  EXPECT_EQ(orlix_time_diffdays(Utc(2020, 1, 1).get(), nullptr), INT32_MAX);
  TimePtr stray(orlix::time::orlix_time_newlocaltimebyid(1000, 2020, 6, 1, 0, 0, 0, 0, 0));
  EXPECT_EQ(orlix_time_diffdays(stray.get(), Utc(2020, 1, 1).get()), INT32_MAX);
  EXPECT_EQ(orlix_time_diffdays(Utc(2020, 1, 1).get(), stray.get()), INT32_MAX);

  std::mt19937 rng(7);
  std::uniform_int_distribution<int64_t> instant(Posix(1583, 1, 1), Posix(9999, 12, 31));
  for (int i = 0; i < 2000; ++i) {
    const int64_t a = instant(rng);
    const int64_t b = instant(rng);
    const int64_t days = (a - a % 86400 + (a % 86400 < 0 ? -86400 : 0) -
                          (b - b % 86400 + (b % 86400 < 0 ? -86400 : 0))) /
                         86400;
    EXPECT_EQ(orlix_time_diffdays(FromPosix(a).get(), FromPosix(b).get()), days) << a << " " << b;
  }
}

TEST(time_value, DiffSecondsCountsLeapSeconds) {
  TimePtr before = Utc(2016, 12, 31, 23, 59, 59);
  TimePtr leap = Utc(2016, 12, 31, 23, 59, 60);
  TimePtr after = Utc(2017, 1, 1, 0, 0, 0);
  EXPECT_EQ(orlix_time_diffseconds(after.get(), before.get()), 2);
  EXPECT_EQ(orlix_time_diffseconds(before.get(), after.get()), -2);
  EXPECT_EQ(orlix_time_diffseconds(after.get(), leap.get()), 1);
  // A leap second at either end counts as well (both ends are included).
  EXPECT_EQ(orlix_time_diffseconds(leap.get(), before.get()), 2);
  EXPECT_EQ(orlix_time_diffseconds(leap.get(), leap.get()), 0);
  // ... at every leap second of the list, each on its own date.
  for (const LeapDate &l : kLeapDates)
    EXPECT_EQ(orlix_time_diffseconds(Utc(l.year, l.month, l.day, 23, 59, 60).get(),
                                     Utc(l.year, l.month, l.day, 23, 59, 59).get()),
              2)
        << l.year << "-" << l.month;
  EXPECT_EQ(orlix_time_diffseconds(Utc(2020, 1, 1, 0, 0, 0, 900).get(), Utc(2020, 1, 1).get()), 0);
  EXPECT_EQ(orlix_time_diffseconds(nullptr, nullptr), 0);
  EXPECT_EQ(orlix_time_diffseconds(nullptr, after.get()), INT64_MIN);
  EXPECT_EQ(orlix_time_diffseconds(after.get(), nullptr), INT64_MAX);

  std::mt19937 rng(11);
  std::uniform_int_distribution<int64_t> instant(Posix(1960, 1, 1), Posix(2030, 1, 1));
  for (int i = 0; i < 2000; ++i) {
    const int64_t a = instant(rng);
    const int64_t b = instant(rng);
    const int64_t leaps = a >= b ? LeapSecondsIn(b, a) : -LeapSecondsIn(a, b);
    EXPECT_EQ(orlix_time_diffseconds(FromPosix(a).get(), FromPosix(b).get()), a - b + leaps)
        << a << " " << b;
  }
}

TEST(time_value, TimeTIsPosix) {
  EXPECT_EQ(orlix_time_gettime_t(Utc(1970, 1, 1).get()), 0);
  EXPECT_EQ(orlix_time_gettime_t(Utc(2017, 1, 1).get()), 1483228800);
  EXPECT_EQ(orlix_time_gettime_t(Utc(1969, 12, 31, 23, 59, 59).get()), -1);
  // A leap second reads as the second after it.
  EXPECT_EQ(orlix_time_gettime_t(Utc(2016, 12, 31, 23, 59, 60).get()), 1483228800);
  EXPECT_EQ(orlix_time_gettime_t(nullptr), INT64_MIN);
  TimePtr stray(orlix::time::orlix_time_newlocaltimebyid(1000, 2020, 6, 1, 0, 0, 0, 0, 0));
  EXPECT_EQ(orlix_time_gettime_t(stray.get()), INT64_MIN);

  std::mt19937 rng(3);
  std::uniform_int_distribution<int64_t> instant(Posix(1582, 1, 1), Posix(9999, 12, 31));
  for (int i = 0; i < 5000; ++i) {
    const int64_t t = instant(rng);
    EXPECT_EQ(orlix_time_gettime_t(FromPosix(t).get()), t);
  }
  for (const LeapDate &l : kLeapDates) {
    const int64_t t = Posix(l.year, l.month, l.day, 23, 59, 59);
    for (int64_t d : {-1, 0, 1}) EXPECT_EQ(orlix_time_gettime_t(FromPosix(t + d).get()), t + d);
  }
}

TEST(time_value, DayOfWeekKeepsTheTruncatingRemainderBefore1970) {
  EXPECT_EQ(orlix_time_getdayofweek(Utc(1970, 1, 1).get()), 4);
  EXPECT_EQ(orlix_time_getdayofweek(Utc(2016, 12, 31).get()), 6);
  EXPECT_EQ(orlix_time_getdayofweek(Utc(1969, 12, 31).get()), 3);
  EXPECT_EQ(orlix_time_getdayofweek(nullptr), -1);
  // From 1970 on: 1 = Monday .. 7 = Sunday, as the C library says. Before,
  // Sundays still give 7 and the other days their weekday minus 7, except the
  // four days just before the epoch.
  for (int64_t t = Posix(1960, 1, 1); t < Posix(1980, 1, 1); t += 86400 + 3607) {
    const std::time_t tt = static_cast<std::time_t>(t);
    std::tm g;
    gmtime_r(&tt, &g);
    const int weekday = g.tm_wday == 0 ? 7 : g.tm_wday;
    int expected = weekday;
    if (t < Posix(1969, 12, 28) && weekday != 7) expected = weekday - 7;
    EXPECT_EQ(orlix_time_getdayofweek(FromPosix(t).get()), expected) << t;
  }
}

// ---- add operations ------------------------------------------------------------------

TEST(time_value, AddYearAndMonthKeepTheDate) {
  EXPECT_EQ(Clock(TimePtr(orlix_time_addyear(Utc(2020, 2, 29, 1).get(), 1))),
            "2021-03-01 01:00:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addyear(Utc(2020, 2, 29, 1).get(), 4))),
            "2024-02-29 01:00:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addyear(Utc(2020, 2, 29).get(), -1))), "2019-03-01 00:00:00");
  EXPECT_EQ(TimePtr(orlix_time_addyear(Utc(9999, 1, 1).get(), 1)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addyear(Utc(1582, 1, 1).get(), -1)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addyear(Utc(2020, 1, 1).get(), INT32_MAX)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addyear(Utc(2020, 1, 1).get(), INT32_MIN)), nullptr);

  EXPECT_EQ(Clock(TimePtr(orlix_time_addmonth(Utc(2020, 1, 31).get(), 1))), "2020-02-29 00:00:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addmonth(Utc(2021, 1, 31).get(), 1))), "2021-02-28 00:00:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addmonth(Utc(2020, 12, 15).get(), 1))), "2021-01-15 00:00:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addmonth(Utc(2020, 1, 15).get(), -1))), "2019-12-15 00:00:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addmonth(Utc(2020, 5, 31).get(), -13))),
            "2019-04-30 00:00:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addmonth(Utc(2020, 5, 31).get(), 24))), "2022-05-31 00:00:00");
  // Two years back, landing on January.
  EXPECT_EQ(Clock(TimePtr(orlix_time_addmonth(Utc(2020, 2, 15).get(), -25))), "2018-01-15 00:00:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addmonth(Utc(2020, 5, 31).get(), 0))), "2020-05-31 00:00:00");
  EXPECT_EQ(TimePtr(orlix_time_addmonth(Utc(9999, 12, 1).get(), 1)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addmonth(Utc(2020, 1, 1).get(), INT32_MIN)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addmonth(nullptr, 1)), nullptr);

  // Second 60 survives only where the result is a leap second itself.
  EXPECT_EQ(Clock(TimePtr(orlix_time_addyear(Utc(1972, 6, 30, 23, 59, 60).get(), 9))),
            "1981-06-30 23:59:60");
  EXPECT_EQ(TimePtr(orlix_time_addyear(Utc(2016, 12, 31, 23, 59, 60).get(), 1)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addmonth(Utc(1972, 6, 30, 23, 59, 60).get(), 6)), nullptr);
  EXPECT_EQ(Clock(TimePtr(orlix_time_addmonth(Utc(1981, 6, 30, 23, 59, 60).get(), 12))),
            "1982-06-30 23:59:60");
}

TEST(time_value, AddDayAndHourFollowTheCalendar) {
  EXPECT_EQ(Clock(TimePtr(orlix_time_addday(Utc(2016, 12, 31, 23, 59, 60).get(), 1))),
            "2017-01-01 23:59:59");
  EXPECT_EQ(Utc(2016, 12, 30, 23, 59, 60), nullptr);
  EXPECT_EQ(Clock(TimePtr(orlix_time_addday(Utc(2016, 12, 30, 23, 59, 59).get(), 1))),
            "2016-12-31 23:59:59");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addhour(Utc(2016, 12, 31, 23, 59, 60).get(), 24))),
            "2017-01-01 23:59:59");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addhour(Utc(2016, 12, 31, 23, 59, 60).get(), 0))),
            "2016-12-31 23:59:60");
  EXPECT_EQ(TimePtr(orlix_time_addday(Utc(9999, 12, 31).get(), 1)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addday(Utc(1582, 1, 1).get(), -1)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addday(Utc(2020, 1, 1).get(), INT32_MIN)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addday(Utc(2020, 1, 1).get(), INT32_MAX)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addhour(Utc(2020, 1, 1).get(), INT32_MIN)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addhour(Utc(9999, 12, 31, 23).get(), 1)), nullptr);

  std::mt19937 rng(5);
  std::uniform_int_distribution<int64_t> instant(Posix(1583, 1, 1), Posix(9998, 1, 1));
  std::uniform_int_distribution<int32_t> days(-300000, 300000);
  std::uniform_int_distribution<int32_t> hours(-3000000, 3000000);
  for (int i = 0; i < 3000; ++i) {
    const int64_t t = instant(rng);
    const int32_t d = days(rng);
    const int32_t h = hours(rng);
    TimePtr base = FromPosix(t);
    TimePtr by_day(orlix_time_addday(base.get(), d));
    TimePtr by_hour(orlix_time_addhour(base.get(), h));
    const int64_t day_target = t + int64_t{d} * 86400;
    const int64_t hour_target = t + int64_t{h} * 3600;
    if (day_target >= Posix(1582, 1, 1) && day_target < Posix(10000, 1, 1))
      EXPECT_EQ(Clock(by_day), Clock(FromPosix(day_target))) << t << " + " << d << " days";
    else
      EXPECT_EQ(by_day, nullptr);
    if (hour_target >= Posix(1582, 1, 1) && hour_target < Posix(10000, 1, 1))
      EXPECT_EQ(Clock(by_hour), Clock(FromPosix(hour_target))) << t << " + " << h << " hours";
    else
      EXPECT_EQ(by_hour, nullptr);
  }
}

TEST(time_value, AddMinuteKeepsSecondSixty) {
  // Unlike days and hours, minutes leave a second 60 as it is, even where
  // the new minute has no leap second.
  TimePtr moved(orlix_time_addminute(Utc(2016, 12, 31, 23, 59, 60).get(), 1));
  EXPECT_EQ(Full(moved), "2017-01-01 00:00:60.000000000 utc dst=0 zone=414");
  EXPECT_EQ(orlix_time_isleapsecond(moved.get()), 0);
  EXPECT_EQ(Clock(TimePtr(orlix_time_addminute(Utc(2020, 3, 1).get(), -1))), "2020-02-29 23:59:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addminute(Utc(2020, 3, 1).get(), 1441))),
            "2020-03-02 00:01:00");
  EXPECT_EQ(TimePtr(orlix_time_addminute(Utc(2020, 3, 1).get(), INT32_MIN)), nullptr);
  EXPECT_EQ(Clock(TimePtr(orlix_time_addminute(Utc(2020, 3, 1).get(), INT32_MAX))),
            "6103-03-25 02:07:00");
}

TEST(time_value, AddSecondCountsLeapSeconds) {
  TimePtr before = Utc(2016, 12, 31, 23, 59, 59);
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsecond(before.get(), 1))), "2016-12-31 23:59:60");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsecond(before.get(), 2))), "2017-01-01 00:00:00");
  TimePtr leap = Utc(2016, 12, 31, 23, 59, 60);
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsecond(leap.get(), 1))), "2017-01-01 00:00:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsecond(leap.get(), -1))), "2016-12-31 23:59:59");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsecond(leap.get(), 0))), "2016-12-31 23:59:60");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsecond(Utc(2017, 1, 1).get(), -1))), "2016-12-31 23:59:60");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsecond(Utc(2016, 12, 31, 23, 58).get(), 120))),
            "2016-12-31 23:59:60");
  EXPECT_EQ(TimePtr(orlix_time_addsecond(Utc(9999, 12, 31, 23, 59, 59).get(), 1)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addsecond(Utc(1582, 1, 1).get(), -1)), nullptr);
  EXPECT_EQ(TimePtr(orlix_time_addsecond(nullptr, 1)), nullptr);

}

TEST(time_value, LeapCountsAndStepsOnTableMoments) {
  using namespace orlix::time;
  const Time leap = utc_fields(2016, 12, 31, 23, 59, 60);
  const Time before = utc_fields(2016, 12, 31, 23, 59, 59);
  const Time after = utc_fields(2017, 1, 1, 0, 0, 0);
  // Strict at both ends for the seconds arithmetic, inclusive for the
  // differences.
  EXPECT_EQ(leapsecondCount(before, after), 1);
  EXPECT_EQ(leapsecondCount(leap, after), 0);
  EXPECT_EQ(leapsecondCount(before, leap), 0);
  EXPECT_EQ(leapsecondcound(leap, leap), 1);
  EXPECT_EQ(leapsecondcound(after, before), 1);
  EXPECT_EQ(leapsecondCount(utc_fields(1972, 1, 1, 0, 0, 0), after), 27);
  EXPECT_EQ(leapsecondcound(utc_fields(2020, 1, 1, 0, 0, 0), utc_fields(1960, 1, 1, 0, 0, 0)), 27);
  // Table moments may have a day past the month's end: adding days rolls it
  // over into the next month, subtracting leaves it unless it reaches day 0.
  Time t = utc_fields(1992, 9, 43, 0, 0, 0);
  orlix_utc_time_isub_day(t, 1);
  EXPECT_EQ(Full(&t), "1992-09-42 00:00:00.000000000 utc dst=0 zone=414");
  orlix_utc_time_iadd_day(t, 1);
  EXPECT_EQ(Full(&t), "1992-10-13 00:00:00.000000000 utc dst=0 zone=414");
  // ... and hour 24 stays until an hour step carries it.
  Time h = utc_fields(2020, 3, 7, 24, 0, 0);
  EXPECT_TRUE(orlix_utc_time_iaddminute(h, 0));
  EXPECT_EQ(h.hour, 24);
  EXPECT_TRUE(orlix_utc_time_iaddminute(h, 60));
  EXPECT_EQ(Full(&h), "2020-03-08 01:00:00.000000000 utc dst=0 zone=414");
}

TEST(time_value, AddSaveMovesSecondsThenMinutes) {
  using orlix::time::orlix_time_addsave;
  TimePtr t = Utc(2020, 1, 1, 0, 0, 30);
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsave(t.get(), 0))), "2020-01-01 00:00:30");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsave(t.get(), 3600 + 45))), "2020-01-01 01:01:15");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsave(t.get(), -(3600 + 45)))), "2019-12-31 22:59:45");
  // The seconds part crosses a leap second; the minutes then keep the 60.
  TimePtr near = Utc(2016, 12, 31, 23, 59, 59);
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsave(near.get(), 61))), "2017-01-01 00:00:60");
  EXPECT_EQ(TimePtr(orlix_time_addsave(nullptr, 1)), nullptr);
}

TEST(time_value, AddToALocalTimeAnswersInTheSystemZone) {
  SystemRoot root;
  root.Write("/etc/timezone", "Asia/Tokyo\n");
  const int32_t new_york = Zone("America/New_York");
  TimePtr local(orlix::time::orlix_time_newlocaltimebyid(new_york, 2020, 7, 1, 8, 0, 0, 0, 1));
  ASSERT_NE(local, nullptr);
  // 08:00 EDT is 12:00 UTC; one hour later is 22:00 in Tokyo.
  TimePtr later(orlix_time_addhour(local.get(), 1));
  EXPECT_EQ(Full(later),
            "2020-07-01 22:00:00.000000000 local dst=0 zone=" + std::to_string(Zone("Asia/Tokyo")));
  EXPECT_EQ(Clock(TimePtr(orlix_time_addday(local.get(), 1))), "2020-07-02 21:00:00");
  EXPECT_EQ(Clock(TimePtr(orlix_time_addsecond(local.get(), -1))), "2020-07-01 20:59:59");
  EXPECT_EQ(Clock(TimePtr(orlix::time::orlix_time_addsave(local.get(), 3600 + 45))),
            "2020-07-01 22:00:45");
  // With the system in UTC the result stays UTC.
  root.Write("/etc/timezone", "UTC\n");
  EXPECT_EQ(Full(TimePtr(orlix_time_addminute(local.get(), 30))),
            "2020-07-01 12:30:00.000000000 utc dst=0 zone=414");
  // A local time outside the table cannot be converted.
  TimePtr stray(orlix::time::orlix_time_newlocaltimebyid(1000, 2020, 6, 1, 0, 0, 0, 0, 0));
  EXPECT_EQ(TimePtr(orlix_time_addday(stray.get(), 1)), nullptr);
}

}  // namespace
