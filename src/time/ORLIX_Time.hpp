// The time record and the UTC calendar layer shared by the Time modules.
//
// Everything here works on plain records held by value (on the stack); the
// exported functions in ORLIX_Time.cpp and ORLIX_Time_Zone.cpp copy results
// into heap records only at the end. The in-place steps never validate the
// fields they start from: rule and until moments of the zone tables may carry
// a day past the month's end or hour 24, which compare field by field like
// the moment just after the month or day.
#pragma once

#include <cstdint>

#include "ORLIX_Time.h"

struct ORLIX_Time_st {
  int32_t year;        // Gregorian year, 1582..9999
  int32_t month;       // 1..12
  int32_t day;         // 1..days of the month
  int32_t hour;        // 0..23
  int32_t minute;      // 0..59
  int32_t second;      // 0..59, or 60 at a leap second
  int64_t nanosecond;  // 0..999,999,999
  uint32_t utc;        // 1: the fields are UTC; 0: local wall-clock time
  uint32_t dst;        // local times: 1 when a non-zero save was in force
  int32_t zone;        // row of the zone-name table; 414 for UTC values
};

namespace orlix::time {

using Time = ORLIX_Time_st;

constexpr char kModule[] = "ORLIX_Time";
constexpr int32_t kMinYear = 1582;
constexpr int32_t kMaxYear = 9999;
constexpr int32_t kUtcZone = 414;
constexpr int32_t kLeapSecondCount = 27;

extern const int32_t g_mdays[2][12];
extern const Time g_leapseconds[kLeapSecondCount];

constexpr bool year_in_range(int64_t year) { return year >= kMinYear && year <= kMaxYear; }

// ---- calendar ----------------------------------------------------------------

bool isLeapYear(int32_t year);
// Days of the month (month 1..12).
int32_t month_length(int32_t year, int32_t month);
bool checkdate(int32_t year, int32_t month, int32_t day);
// Days from 1970-01-01 to the date; linear in day, so a day past the month's
// end counts on into the next month.
int64_t day_number(int32_t year, int32_t month, int32_t day);
// 1 = Monday .. 7 = Sunday from 1970 on; the truncating remainder before it
// (see orlix_time_getdayofweek).
int32_t weekday_of(int32_t year, int32_t month, int32_t day);

// A UTC record with the given fields, unchecked.
constexpr Time utc_fields(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                          int32_t second) {
  return Time{year, month, day, hour, minute, second, 0, 1, 0, kUtcZone};
}

// The checks and the hour-24 roll of orlix_time_newutctime, into *out.
bool make_utc(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
              int32_t second, int64_t nanosecond, Time *out);

// ---- comparison and leap seconds ------------------------------------------

// Field by field, year down to nanosecond; the flags are ignored.
int compare_fields(const Time &a, const Time &b);
bool isLeapSecond(const Time &t);
// Leap seconds L with a < L < b. This and the next keep their established
// names (and conventions, strict and inclusive), near-twins as they are.
int32_t leapsecondCount(const Time &a, const Time &b);
// Leap seconds L with b <= L <= a.
int32_t leapsecondcound(const Time &a, const Time &b);

// ---- in-place steps (no range check unless stated) ------------------------

void orlix_utc_time_iadd_day(Time &t, int64_t count);
void orlix_utc_time_isub_day(Time &t, int64_t count);
// Both return true when the year afterwards lies in 1582..9999.
bool orlix_utc_time_iaddhour(Time &t, int64_t count);
bool orlix_utc_time_iaddminute(Time &t, int64_t count);
bool orlix_utc_time_iadd_second(Time &t, int64_t count);
bool orlix_utc_time_isub_second(Time &t, int64_t count);

// ---- UTC operations on a value (false: the result would be NULL) ----------

bool utc_addyear(Time &t, int32_t count);
bool utc_addmonth(Time &t, int32_t count);
bool utc_addday(Time &t, int32_t count);
bool utc_addhour(Time &t, int32_t count);
bool utc_addminute(Time &t, int32_t count);
bool utc_addsecond(Time &t, int32_t count);
// Seconds count % 60 with utc_addsecond, then whole minutes with
// utc_addminute (the offset step of the zone conversions).
bool utc_addsave(Time &t, int32_t count);

// Calendar days from earlier's date to later's.
int32_t orlix_time_idiffdays(const Time &later, const Time &earlier);
int32_t utc_diffdays(const Time &a, const Time &b);
int64_t utc_diffseconds(const Time &a, const Time &b);
int64_t utc_gettime_t(const Time &t);
int32_t utc_dayofweek(const Time &t);

// ---- heap records -----------------------------------------------------------

// A heap copy of t, or nullptr when memory runs out.
ORLIX_Time *new_record(const Time &t);

// Compares two values field by field as UTC; NULL sorts first.
int orlix_utc_time_cmp(const ORLIX_Time *a, const ORLIX_Time *b);

}  // namespace orlix::time
