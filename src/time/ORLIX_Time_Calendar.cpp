// The UTC calendar layer: month and leap-second tables, day steps, the
// leap-second-aware seconds arithmetic and the differences, all on records
// held by value. Nothing here allocates.
#include "time/ORLIX_Time.hpp"

namespace orlix::time {

const int32_t g_mdays[2][12] = {
    {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31},
    {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31},
};

namespace {

constexpr Time leap(int32_t year, int32_t month, int32_t day) {
  return Time{year, month, day, 23, 59, 60, 0, 1, 0, 0};
}

// The epoch as a UTC value.
constexpr Time kEpoch = utc_fields(1970, 1, 1, 0, 0, 0);

}  // namespace

// The 27 positive leap seconds from 1972 to 2016, each at 23:59:60 UTC, in
// ascending order. The list is fixed; there is no run-time update.
const Time g_leapseconds[kLeapSecondCount] = {
    leap(1972, 6, 30),  leap(1972, 12, 31), leap(1973, 12, 31), leap(1974, 12, 31),
    leap(1975, 12, 31), leap(1976, 12, 31), leap(1977, 12, 31), leap(1978, 12, 31),
    leap(1979, 12, 31), leap(1981, 6, 30),  leap(1982, 6, 30),  leap(1983, 6, 30),
    leap(1985, 6, 30),  leap(1987, 12, 31), leap(1989, 12, 31), leap(1990, 12, 31),
    leap(1992, 6, 30),  leap(1993, 6, 30),  leap(1994, 6, 30),  leap(1995, 12, 31),
    leap(1997, 6, 30),  leap(1998, 12, 31), leap(2005, 12, 31), leap(2008, 12, 31),
    leap(2012, 6, 30),  leap(2015, 6, 30),  leap(2016, 12, 31),
};

namespace {

// Days from 1970-01-01 to the first of the month (proleptic Gregorian).
int64_t month_start(int64_t year, int32_t month) {
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const int64_t yoe = year - era * 400;
  const int64_t doy = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

// Sets the date fields to day number n.
void set_date(Time &t, int64_t n) {
  n += 719468;
  const int64_t era = (n >= 0 ? n : n - 146096) / 146097;
  const int64_t doe = n - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  const int32_t month = static_cast<int32_t>(mp < 10 ? mp + 3 : mp - 9);
  t.year = static_cast<int32_t>(yoe + era * 400 + (month <= 2));
  t.month = month;
  t.day = static_cast<int32_t>(doy - (153 * mp + 2) / 5 + 1);
}

// Normalises a date whose day field has left the month, as walking month
// by month from the first of the month would.
void normalise_date(Time &t, int64_t day) { set_date(t, month_start(t.year, t.month) + day - 1); }

int cmp(int64_t a, int64_t b) { return a < b ? -1 : (a > b ? 1 : 0); }

int64_t seconds_of_day(const Time &t) { return t.hour * 3600 + t.minute * 60 + t.second; }

}  // namespace

// ---- calendar ----------------------------------------------------------------

bool isLeapYear(int32_t year) { return year % 400 == 0 || (year % 4 == 0 && year % 100 != 0); }

int32_t month_length(int32_t year, int32_t month) {
  // Records never hold another month; the clamp only keeps the index safe.
  if (month < 1 || month > 12) month = 1;
  return g_mdays[isLeapYear(year) ? 1 : 0][month - 1];
}

bool checkdate(int32_t year, int32_t month, int32_t day) {
  static const int32_t kCommon[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (!year_in_range(year) || month < 1 || month > 12 || day < 1) return false;
  if (month == 2) return day <= (isLeapYear(year) ? 29 : 28);
  return day <= kCommon[month - 1];
}

int64_t day_number(int32_t year, int32_t month, int32_t day) {
  return month_start(year, month) + day - 1;
}

int32_t weekday_of(int32_t year, int32_t month, int32_t day) {
  // C's remainder truncates toward zero, so days before 1970 that are not a
  // whole number of weeks from a Sunday come out negative. Kept as it is.
  const int32_t r = static_cast<int32_t>((day_number(year, month, day) + 4) % 7);
  return r == 0 ? 7 : r;
}

bool make_utc(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
              int32_t second, int64_t nanosecond, Time *out) {
  if (!checkdate(year, month, day) || hour < 0 || hour > 24 || minute < 0 || minute > 59 ||
      second < 0 || second > 60 || static_cast<uint64_t>(nanosecond) >= 1000000000u)
    return false;
  Time t{year, month, day, hour, minute, second, nanosecond, 1, 0, kUtcZone};
  if (hour == 24) {
    // Only the end of a day; the roll is not range-checked (9999-12-31
    // 24:00 becomes a record in year 10000).
    if (minute != 0 || second != 0) return false;
    orlix_utc_time_iadd_day(t, 1);
    t.hour = 0;
  }
  if (second == 60 && !isLeapSecond(t)) return false;
  *out = t;
  return true;
}

// ---- comparison and leap seconds ------------------------------------------

int compare_fields(const Time &a, const Time &b) {
  if (a.year != b.year) return cmp(a.year, b.year);
  if (a.month != b.month) return cmp(a.month, b.month);
  if (a.day != b.day) return cmp(a.day, b.day);
  if (a.hour != b.hour) return cmp(a.hour, b.hour);
  if (a.minute != b.minute) return cmp(a.minute, b.minute);
  if (a.second != b.second) return cmp(a.second, b.second);
  return cmp(a.nanosecond, b.nanosecond);
}

bool isLeapSecond(const Time &t) {
  // Every row is 23:59:60 on June 30 or December 31.
  if (t.second != 60 || t.minute != 59 || t.hour != 23) return false;
  if (!((t.month == 6 && t.day == 30) || (t.month == 12 && t.day == 31))) return false;
  for (const Time &row : g_leapseconds)
    if (row.year == t.year && row.month == t.month) return true;
  return false;
}

namespace {

// The first row of a year not before `year` (the rows are in ascending
// order).
int32_t first_leap_row(int32_t year) {
  int32_t lo = 0;
  int32_t hi = kLeapSecondCount;
  while (lo < hi) {
    const int32_t mid = (lo + hi) / 2;
    if (g_leapseconds[mid].year < year)
      lo = mid + 1;
    else
      hi = mid;
  }
  return lo;
}

}  // namespace

// Only the rows whose year lies between the two values' years can count.
int32_t leapsecondCount(const Time &a, const Time &b) {
  int32_t n = 0;
  for (int32_t i = first_leap_row(a.year); i < kLeapSecondCount; ++i) {
    const Time &row = g_leapseconds[i];
    if (row.year > b.year) break;
    if (compare_fields(a, row) < 0 && compare_fields(row, b) < 0) ++n;
  }
  return n;
}

int32_t leapsecondcound(const Time &a, const Time &b) {
  int32_t n = 0;
  for (int32_t i = first_leap_row(b.year); i < kLeapSecondCount; ++i) {
    const Time &row = g_leapseconds[i];
    if (row.year > a.year) break;
    if (compare_fields(b, row) <= 0 && compare_fields(row, a) <= 0) ++n;
  }
  return n;
}

// ---- in-place steps -----------------------------------------------------------

// Adding rolls over only past the month's end and subtracting only below
// day 1, so a day field already past the end (a table moment such as the
// 43rd) stays as it is when a subtraction does not reach day 0.
void orlix_utc_time_iadd_day(Time &t, int64_t count) {
  if (count < 1) return;
  const int64_t day = t.day + count;
  if (day <= month_length(t.year, t.month))
    t.day = static_cast<int32_t>(day);
  else
    normalise_date(t, day);
}

void orlix_utc_time_isub_day(Time &t, int64_t count) {
  if (count < 1) return;
  const int64_t day = t.day - count;
  if (day >= 1)
    t.day = static_cast<int32_t>(day);
  else
    normalise_date(t, day);
}

bool orlix_utc_time_iaddhour(Time &t, int64_t count) {
  if (count >= 1) {
    orlix_utc_time_iadd_day(t, count / 24);
    t.hour += static_cast<int32_t>(count % 24);
    if (t.hour > 23) {
      t.hour -= 24;
      orlix_utc_time_iadd_day(t, 1);
    }
  } else {
    const int64_t n = -count;
    orlix_utc_time_isub_day(t, n / 24);
    t.hour -= static_cast<int32_t>(n % 24);
    if (t.hour < 0) {
      t.hour += 24;
      orlix_utc_time_isub_day(t, 1);
    }
  }
  return year_in_range(t.year);
}

bool orlix_utc_time_iaddminute(Time &t, int64_t count) {
  // For less than a day the hour and minute steps below come down to moving
  // the minute of the day, with at most one day carried or borrowed; take
  // that shortcut when the fields are ordinary. (From a year in range the
  // steps' own year checks can only fail where the last one does.)
  if (count > -1440 && count < 1440 && t.hour >= 0 && t.hour <= 23 && t.minute >= 0 &&
      t.minute <= 59 && year_in_range(t.year)) {
    int64_t m = t.hour * 60 + t.minute + count;
    if (m < 0) {
      m += 1440;
      orlix_utc_time_isub_day(t, 1);
    } else if (m >= 1440) {
      m -= 1440;
      orlix_utc_time_iadd_day(t, 1);
    }
    t.hour = static_cast<int32_t>(m / 60);
    t.minute = static_cast<int32_t>(m % 60);
    return year_in_range(t.year);
  }
  bool ok;
  if (count >= 1) {
    ok = orlix_utc_time_iaddhour(t, count / 60);
    t.minute += static_cast<int32_t>(count % 60);
    if (t.minute > 59) {
      t.minute -= 60;
      ok = orlix_utc_time_iaddhour(t, 1) && ok;
    }
  } else {
    const int64_t n = -count;
    ok = orlix_utc_time_iaddhour(t, -(n / 60));
    t.minute -= static_cast<int32_t>(n % 60);
    if (t.minute < 0) {
      t.minute += 60;
      ok = orlix_utc_time_iaddhour(t, -1) && ok;
    }
  }
  return ok && year_in_range(t.year);
}

bool orlix_utc_time_iadd_second(Time &t, int64_t count) {
  for (int64_t i = 0; i < count; ++i) {
    ++t.second;
    if (t.second >= 60 && !isLeapSecond(t)) {
      t.second = 0;
      if (!orlix_utc_time_iaddminute(t, 1)) return false;
    }
  }
  return true;
}

bool orlix_utc_time_isub_second(Time &t, int64_t count) {
  for (int64_t i = 0; i < count; ++i) {
    if (t.second != 0) {
      --t.second;
      continue;
    }
    if (!orlix_utc_time_iaddminute(t, -1)) return false;
    t.second = 60;
    if (!isLeapSecond(t)) t.second = 59;
  }
  return true;
}

// ---- UTC operations on a value ----------------------------------------------

namespace {

// Second 60 survives a year or month step only on a leap second itself.
int32_t kept_second(const Time &t) { return t.second == 60 && !isLeapSecond(t) ? 59 : t.second; }

}  // namespace

bool utc_addyear(Time &t, int32_t count) {
  const int64_t year = static_cast<int64_t>(t.year) + count;
  if (!year_in_range(year)) return false;
  int32_t month = t.month;
  int32_t day = t.day;
  if (isLeapYear(t.year) && !isLeapYear(static_cast<int32_t>(year)) && month == 2 && day == 29) {
    month = 3;
    day = 1;
  }
  return make_utc(static_cast<int32_t>(year), month, day, t.hour, t.minute, kept_second(t),
                  t.nanosecond, &t);
}

bool utc_addmonth(Time &t, int32_t count) {
  int64_t year = t.year;
  int64_t month = t.month;
  if (count >= 1) {
    year += count / 12;
    month += count % 12;
    if (month > 12) {
      month -= 12;
      year += 1;
    }
  } else {
    const int64_t n = -static_cast<int64_t>(count);
    year -= n / 12;
    month -= n % 12;
    if (month < 1) {
      month += 12;
      year -= 1;
    }
  }
  if (!year_in_range(year)) return false;
  const int32_t y = static_cast<int32_t>(year);
  const int32_t m = static_cast<int32_t>(month);
  const int32_t last = month_length(y, m);
  return make_utc(y, m, t.day > last ? last : t.day, t.hour, t.minute, kept_second(t), t.nanosecond,
                  &t);
}

bool utc_addday(Time &t, int32_t count) {
  if (count < 1)
    orlix_utc_time_isub_day(t, -static_cast<int64_t>(count));
  else
    orlix_utc_time_iadd_day(t, count);
  if (!year_in_range(t.year)) return false;
  t.second = kept_second(t);
  return true;
}

bool utc_addhour(Time &t, int32_t count) {
  if (!orlix_utc_time_iaddhour(t, count)) return false;
  t.second = kept_second(t);
  return true;
}

// No 60 -> 59 correction here, unlike days and hours.
bool utc_addminute(Time &t, int32_t count) { return orlix_utc_time_iaddminute(t, count); }

bool utc_addsecond(Time &t, int32_t count) {
  if (count == 0) return true;
  const bool forward = count > 0;
  int64_t left = forward ? count : -static_cast<int64_t>(count);
  if (isLeapSecond(t)) {
    // Leave the leap second first, so that the minute steps below start from
    // an ordinary second.
    if (!(forward ? orlix_utc_time_iadd_second(t, 1) : orlix_utc_time_isub_second(t, 1)))
      return false;
    if (--left == 0) return year_in_range(t.year);
  }
  const Time start = t;
  const int64_t minutes = left / 60;
  if (!orlix_utc_time_iaddminute(t, forward ? minutes : -minutes)) return false;
  // Each minute was taken as 60 seconds; every leap second strictly inside
  // the span moved over costs one second more.
  const int64_t r = left % 60;
  bool ok;
  if (forward) {
    const int64_t c = leapsecondCount(start, t);
    ok = r - c > 0 ? orlix_utc_time_iadd_second(t, r - c) : orlix_utc_time_isub_second(t, c - r);
  } else {
    const int64_t c = leapsecondCount(t, start);
    ok = r - c >= 1 ? orlix_utc_time_isub_second(t, r - c) : orlix_utc_time_iadd_second(t, c - r);
  }
  return ok && year_in_range(t.year);
}

bool utc_addsave(Time &t, int32_t count) {
  if (count == 0) return true;
  const int64_t n = count;
  if (n > 0)
    return utc_addsecond(t, static_cast<int32_t>(n % 60)) &&
           utc_addminute(t, static_cast<int32_t>(n / 60));
  return utc_addsecond(t, static_cast<int32_t>(-(-n % 60))) &&
         utc_addminute(t, static_cast<int32_t>(-(-n / 60)));
}

// ---- differences ---------------------------------------------------------------

int32_t orlix_time_idiffdays(const Time &later, const Time &earlier) {
  return static_cast<int32_t>(day_number(later.year, later.month, later.day) -
                              day_number(earlier.year, earlier.month, earlier.day));
}

int32_t utc_diffdays(const Time &a, const Time &b) {
  const int c = compare_fields(a, b);
  if (c == 0) return 0;
  return c > 0 ? orlix_time_idiffdays(a, b) : -orlix_time_idiffdays(b, a);
}

int64_t utc_diffseconds(const Time &a, const Time &b) {
  const int c = compare_fields(a, b);
  if (c == 0) return 0;
  const Time &later = c > 0 ? a : b;
  const Time &earlier = c > 0 ? b : a;
  int64_t seconds = static_cast<int64_t>(orlix_time_idiffdays(later, earlier)) * 86400 -
                    seconds_of_day(earlier) + seconds_of_day(later);
  seconds += leapsecondcound(later, earlier);
  return c > 0 ? seconds : -seconds;
}

int64_t utc_gettime_t(const Time &t) {
  int64_t d = utc_diffseconds(t, kEpoch);
  if (d > 0) d -= leapsecondcound(t, kEpoch);
  return d;
}

int32_t utc_dayofweek(const Time &t) {
  const int32_t r = (utc_diffdays(t, kEpoch) + 4) % 7;
  return r == 0 ? 7 : r;
}

}  // namespace orlix::time
