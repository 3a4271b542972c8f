// Local time: zone look-up by name, UTC to local and back, local
// construction and the offset step. The searches themselves are in
// ORLIX_Time_Rules.cpp.
#include <cstring>

#include "ORLIX_Util.h"
#include "time/ORLIX_Time.hpp"
#include "time/ORLIX_Time_Zone.hpp"
#include "time/tz_steps.hpp"

namespace orlix::time {

namespace {

int compare_name(const void *key, const void *element) {
  return std::strcmp(static_cast<const char *>(key), static_cast<const ZoneName *>(element)->name);
}

// Moves t's wall-clock fields to those of moment, keeping the nanoseconds,
// the flags and the zone.
void set_clock(Time &t, const Time &moment) {
  t.year = moment.year;
  t.month = moment.month;
  t.day = moment.day;
  t.hour = moment.hour;
  t.minute = moment.minute;
  t.second = moment.second;
}

// Settles the dst flag of a freshly filled local time of a zone in the
// database, moving a time inside a skipped interval to its end, and drops a
// second 60 that is no leap second.
bool settle_local(Time &t) {
  const ZoneRow *row = localfindrule(g_timezone_table[t.zone], t);
  if (row == nullptr) return false;
  if (row->rulekind != 0 || row->rules == nullptr) {
    t.dst = row->save != 0 ? 1 : 0;
  } else {
    ItemPick pick;
    if (!localfindruleitem(*row->rules, t, row->gmtoff, &pick)) return false;
    const bool asked_dst = t.dst != 0;
    t.dst = 0;
    if (pick.item != nullptr && pick.item->save != 0) {
      // A..B is the wall-clock interval a spring-forward transition skips.
      t.dst = 1;
      if (compare_fields(pick.a, t) <= 0 && compare_fields(t, pick.b) <= 0) set_clock(t, pick.b);
    } else if (pick.item != nullptr && asked_dst && compare_fields(t, pick.a) == 0) {
      set_clock(t, pick.b);
    }
  }
  if (t.second == 60) {
    Time probe = t;
    probe.second = 59;
    Time u;
    if (!local2utc_value(probe, &u) || !utc_addsecond(u, 1) || !isLeapSecond(u)) t.second = 59;
  }
  return true;
}

// The index of the last of count ascending keys at or before key, searching
// forward from `from`, which is at or before key (the step in force at the
// start of key's year; a year has a few steps at most).
int32_t last_at_or_before(const int64_t *keys, int32_t count, int32_t from, int64_t key) {
  while (from + 1 < count && keys[from + 1] <= key) ++from;
  return from;
}

bool in_step_window(const Time &t) {
  return t.year >= kStepFirstYear && t.year < kStepEndYear && packable(t);
}

// The outcome of find_row_utc and decide_utc from the precomputed steps;
// false when the time lies outside them.
bool stepped_utc_offset(const Time &utc, int32_t zone, UtcOffset *out) {
  const ZoneSteps &steps = g_zone_steps[zone];
  if (steps.utc_count == 0 || !in_step_window(utc)) return false;
  const int32_t i =
      last_at_or_before(g_utc_step_keys + steps.utc_first, steps.utc_count,
                        g_utc_year_steps[steps.utc_years + utc.year - kStepFirstYear], pack(utc));
  *out = g_utc_outcomes[g_utc_step_outcomes[steps.utc_first + i]];
  return true;
}

// The outcome of local_offset_literal from the precomputed steps: 1 with
// *offset, 0 when no row is in force, -1 when the time lies outside them.
int stepped_local_offset(const Time &local, int32_t zone, int32_t *offset) {
  const ZoneSteps &steps = g_zone_steps[zone];
  if (steps.local_count == 0 || !in_step_window(local)) return -1;
  const int32_t i = last_at_or_before(
      g_local_step_keys + steps.local_first, steps.local_count,
      g_local_year_steps[steps.local_years + local.year - kStepFirstYear], local_position(local));
  const LocalStepOffsets &o = g_local_step_offsets[steps.local_first + i];
  const uint16_t which = local.dst != 0 ? o.dst_set : o.dst_clear;
  if (which == kNoLocalOffset) return 0;
  *offset = g_local_offsets[which];
  return 1;
}

}  // namespace

bool utc2local_value(const Time &utc, int32_t zone, Time *out) {
  UtcOffset d;
  if (!stepped_utc_offset(utc, zone, &d)) return utc2local_literal(utc, zone, out);
  return d.kind != UtcOffset::kNoRow && apply_utc(d, utc, zone, out);
}

bool local_offset_value(const Time &local, int32_t zone, int32_t *offset) {
  const int found = stepped_local_offset(local, zone, offset);
  return found < 0 ? local_offset_literal(local, zone, offset) : found == 1;
}

bool local2utc_value(const Time &local, Time *out) {
  if (local.utc != 0 || local.zone < 0 || local.zone >= kZoneNameCount) return false;
  int32_t offset;
  if (!local_offset_value(local, local.zone, &offset)) return false;
  *out = local;
  out->utc = 1;
  if (!utc_addsave(*out, offset)) return false;
  out->dst = 0;
  out->zone = kUtcZone;
  return true;
}

int32_t orlix_time_gettimezoneidbyname(const char *name) {
  if (name == nullptr) return -1;
  if (std::strcmp(name, "UTC") == 0) name = "Etc/UTC";
  if (std::strcmp(name, "PRC") == 0) name = "Asia/Shanghai";
  int64_t position = 0;
  // The table is in byte order, which is strcmp's order.
  if (orlix_bsearch(name, g_timezone_table, kZoneNameCount, sizeof(ZoneName), compare_name,
                    &position) != 1)
    return -1;
  return static_cast<int32_t>(position);
}

ORLIX_Time *orlix_time_utc2localbyid(const ORLIX_Time *t, int32_t zone) {
  if (t == nullptr || t->utc == 0 || zone < 0) return nullptr;
  if (zone == kUtcZone) return new_record(*t);
  if (zone >= kZoneNameCount) return nullptr;
  Time local;
  if (!utc2local_value(*t, zone, &local)) return nullptr;
  return new_record(local);
}

ORLIX_Time *orlix_time_newlocaltimebyid(int32_t zone, int32_t year, int32_t month, int32_t day,
                                        int32_t hour, int32_t minute, int32_t second,
                                        int64_t nanosecond, uint32_t dst) {
  if (zone == kUtcZone)
    return orlix_time_newutctime(year, month, day, hour, minute, second, nanosecond);
  if (!checkdate(year, month, day) || hour < 0 || hour > 24 || minute < 0 || minute > 59 ||
      second < 0 || second > 60 || static_cast<uint64_t>(nanosecond) >= 1000000000u)
    return nullptr;
  Time t{year, month, day, hour, minute, second, nanosecond, 0, dst, zone};
  if (hour == 24) {
    if (minute != 0 || second != 0) return nullptr;
    orlix_utc_time_iadd_day(t, 1);
    t.hour = 0;
  }
  if (zone == -1) return nullptr;
  // Identifiers outside the table are kept without a look-up.
  if (zone >= 0 && zone < kZoneNameCount && !settle_local(t)) return nullptr;
  return new_record(t);
}

ORLIX_Time *orlix_time_addsave(const ORLIX_Time *t, int32_t seconds) {
  if (t == nullptr) return nullptr;
  if (t->utc != 0) {
    Time u = *t;
    return utc_addsave(u, seconds) ? new_record(u) : nullptr;
  }
  if (seconds == 0) return new_record(*t);
  const int64_t n = seconds;
  const int32_t part = static_cast<int32_t>(n > 0 ? n % 60 : -(-n % 60));
  const int32_t minutes = static_cast<int32_t>(n > 0 ? n / 60 : -(-n / 60));
  ORLIX_Time *moved = orlix_time_addsecond(t, part);
  if (moved == nullptr) return nullptr;
  ORLIX_Time *result = orlix_time_addminute(moved, minutes);
  orlix_time_free(moved);
  return result;
}

}  // namespace orlix::time

using orlix::time::Time;
namespace ot = orlix::time;

extern "C" {

ORLIX_Time *orlix_time_utc2local(const ORLIX_Time *t) {
  return ot::orlix_time_utc2localbyid(t, ot::orlix_time_gettimezoneid());
}

ORLIX_Time *orlix_time_utc2localbyzone(const char *zone, const ORLIX_Time *t) {
  const int32_t id = ot::orlix_time_gettimezoneidbyname(zone);
  return id < 0 ? nullptr : ot::orlix_time_utc2localbyid(t, id);
}

ORLIX_Time *orlix_time_local2utc(const ORLIX_Time *t) {
  Time u;
  if (t == nullptr || !ot::local2utc_value(*t, &u)) return nullptr;
  return ot::new_record(u);
}

ORLIX_Time *orlix_time_newlocaltime(int32_t year, int32_t month, int32_t day, int32_t hour,
                                    int32_t minute, int32_t second, int64_t nanosecond,
                                    uint32_t dst) {
  return ot::orlix_time_newlocaltimebyid(ot::orlix_time_gettimezoneid(), year, month, day, hour,
                                         minute, second, nanosecond, dst);
}

ORLIX_Time *orlix_time_newlocaltimebyzone(const char *zone, int32_t year, int32_t month,
                                          int32_t day, int32_t hour, int32_t minute, int32_t second,
                                          int64_t nanosecond, uint32_t dst) {
  return ot::orlix_time_newlocaltimebyid(ot::orlix_time_gettimezoneidbyname(zone), year, month, day,
                                         hour, minute, second, nanosecond, dst);
}

ORLIX_Time *orlix_time_nowlocaltime(void) {
  ORLIX_Time *now = orlix_time_nowutctime();
  ORLIX_Time *local = orlix_time_utc2local(now);
  orlix_time_free(now);
  return local;
}

}  // extern "C"
