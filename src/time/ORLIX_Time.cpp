// The time value: UTC construction, accessors, comparison, differences and
// the add operations. Local arguments are converted to UTC first; the add
// operations convert their result back to the system's zone.
#include "time/ORLIX_Time.hpp"

#include <cstdint>
#include <ctime>

#include "ORLIX_Util.h"
#include "core/memory.hpp"
#include "time/ORLIX_Time_Zone.hpp"

namespace orlix::time {

namespace {

// The UTC reading of t: itself when UTC, else its conversion.
bool as_utc(const ORLIX_Time *t, Time *out) {
  if (t->utc != 0) {
    *out = *t;
    return true;
  }
  return local2utc_value(*t, out);
}

// A UTC result handed back in zone: a UTC copy for Etc/UTC, else the local
// time there.
ORLIX_Time *in_zone(const Time &utc, int32_t zone) {
  if (zone == kUtcZone) return new_record(utc);
  Time local;
  if (!utc2local_value(utc, zone, &local)) return nullptr;
  return new_record(local);
}

// The public add operations: a UTC argument is moved as it is; a local one
// goes through UTC and comes back in the system's zone.
template <class Step>
ORLIX_Time *add(const ORLIX_Time *t, Step step) {
  if (t == nullptr) return nullptr;
  Time u;
  if (t->utc != 0) {
    u = *t;
    return step(u) ? new_record(u) : nullptr;
  }
  if (!local2utc_value(*t, &u) || !step(u)) return nullptr;
  return in_zone(u, orlix_time_gettimezoneid());
}

}  // namespace

ORLIX_Time *new_record(const Time &t) {
  ORLIX_Time *r = alloc_record<ORLIX_Time>(kModule, __LINE__);
  if (r != nullptr) *r = t;
  return r;
}

int orlix_utc_time_cmp(const ORLIX_Time *a, const ORLIX_Time *b) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : (a == nullptr ? -1 : 1);
  return compare_fields(*a, *b);
}

}  // namespace orlix::time

using orlix::time::Time;
namespace ot = orlix::time;

extern "C" {

ORLIX_Time *orlix_time_newutctime(int32_t year, int32_t month, int32_t day, int32_t hour,
                                  int32_t minute, int32_t second, int64_t nanosecond) {
  Time t;
  if (!ot::make_utc(year, month, day, hour, minute, second, nanosecond, &t)) return nullptr;
  return ot::new_record(t);
}

ORLIX_Time *orlix_time_nowutctime(void) {
  const std::time_t now = std::time(nullptr);
  std::tm tm;
  if (now == static_cast<std::time_t>(-1) || gmtime_r(&now, &tm) == nullptr) return nullptr;
  return orlix_time_newutctime(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                               tm.tm_sec, 0);
}

ORLIX_Time *orlix_time_dup(const ORLIX_Time *t) {
  return t == nullptr ? nullptr : ot::new_record(*t);
}

void orlix_time_free(ORLIX_Time *t) { orlix_free(t); }

int32_t orlix_time_getyear(const ORLIX_Time *t) { return t == nullptr ? -1 : t->year; }
int32_t orlix_time_getmonth(const ORLIX_Time *t) { return t == nullptr ? -1 : t->month; }
int32_t orlix_time_getday(const ORLIX_Time *t) { return t == nullptr ? -1 : t->day; }
int32_t orlix_time_gethour(const ORLIX_Time *t) { return t == nullptr ? -1 : t->hour; }
int32_t orlix_time_getminute(const ORLIX_Time *t) { return t == nullptr ? -1 : t->minute; }
int32_t orlix_time_getsecond(const ORLIX_Time *t) { return t == nullptr ? -1 : t->second; }
int64_t orlix_time_getns(const ORLIX_Time *t) { return t == nullptr ? -1 : t->nanosecond; }

int orlix_time_isutctime(const ORLIX_Time *t) { return t != nullptr && t->utc != 0 ? 1 : 0; }

int orlix_time_isdst(const ORLIX_Time *t) {
  return t != nullptr && t->utc == 0 && t->dst != 0 ? 1 : 0;
}

int orlix_time_isleapyear(const ORLIX_Time *t) {
  return t != nullptr && ot::isLeapYear(t->year) ? 1 : 0;
}

int orlix_time_isleapsecond(const ORLIX_Time *t) {
  if (t == nullptr || t->second != 60) return 0;
  Time u;
  if (!ot::as_utc(t, &u)) return 0;
  return ot::isLeapSecond(u) ? 1 : 0;
}

int orlix_time_cmp(const ORLIX_Time *a, const ORLIX_Time *b) {
  if (a == nullptr || b == nullptr || (a->utc != 0 && b->utc != 0))
    return ot::orlix_utc_time_cmp(a, b);
  Time ua;
  Time ub;
  if (!ot::as_utc(a, &ua)) return -1;
  if (!ot::as_utc(b, &ub)) return 1;
  return ot::compare_fields(ua, ub);
}

int32_t orlix_time_diffdays(const ORLIX_Time *a, const ORLIX_Time *b) {
  if (a == nullptr) return b == nullptr ? 0 : INT32_MIN;
  if (b == nullptr) return INT32_MAX;
  Time ua;
  Time ub;
  if (!ot::as_utc(a, &ua) || !ot::as_utc(b, &ub)) return INT32_MAX;
  return ot::utc_diffdays(ua, ub);
}

int64_t orlix_time_diffseconds(const ORLIX_Time *a, const ORLIX_Time *b) {
  if (a == nullptr) return b == nullptr ? 0 : INT64_MIN;
  if (b == nullptr) return INT64_MAX;
  Time ua;
  Time ub;
  if (!ot::as_utc(a, &ua) || !ot::as_utc(b, &ub)) return INT64_MAX;
  return ot::utc_diffseconds(ua, ub);
}

int32_t orlix_time_getdayofweek(const ORLIX_Time *t) {
  Time u;
  if (t == nullptr || !ot::as_utc(t, &u)) return -1;
  return ot::utc_dayofweek(u);
}

int64_t orlix_time_gettime_t(const ORLIX_Time *t) {
  Time u;
  if (t == nullptr || !ot::as_utc(t, &u)) return INT64_MIN;
  return ot::utc_gettime_t(u);
}

ORLIX_Time *orlix_time_addyear(const ORLIX_Time *t, int32_t count) {
  return ot::add(t, [count](Time &u) { return ot::utc_addyear(u, count); });
}

ORLIX_Time *orlix_time_addmonth(const ORLIX_Time *t, int32_t count) {
  return ot::add(t, [count](Time &u) { return ot::utc_addmonth(u, count); });
}

ORLIX_Time *orlix_time_addday(const ORLIX_Time *t, int32_t count) {
  return ot::add(t, [count](Time &u) { return ot::utc_addday(u, count); });
}

ORLIX_Time *orlix_time_addhour(const ORLIX_Time *t, int32_t count) {
  return ot::add(t, [count](Time &u) { return ot::utc_addhour(u, count); });
}

ORLIX_Time *orlix_time_addminute(const ORLIX_Time *t, int32_t count) {
  return ot::add(t, [count](Time &u) { return ot::utc_addminute(u, count); });
}

ORLIX_Time *orlix_time_addsecond(const ORLIX_Time *t, int32_t count) {
  return ot::add(t, [count](Time &u) { return ot::utc_addsecond(u, count); });
}

}  // extern "C"
