// The compiled time-zone database: record layouts of the tables that
// tools/gen_tz_tables.py writes into the build tree, and their counts.
#pragma once

#include <cstdint>

// kZoneNameCount, kZoneRowCount, kRuleSetCount and kRuleItemCount, written by
// the generator, which checks them against the shipped tz sources.
#include "time/tz_counts.hpp"

namespace orlix::time {

// One line of a tz Rule: a daylight-saving transition repeated every year
// from fromyear to toyear.
struct RuleItem {
  int32_t fromyear;
  int32_t toyear;   // INT32_MAX for "max"
  int32_t daytype;  // 0 fixed day, 1 last weekday, 2 weekday >= day, 3 weekday <= day
  int32_t month;    // 1..12
  int32_t day;      // -1 for daytype 1
  int32_t weekday;  // 1 = Monday .. 7 = Sunday; -1 for daytype 0
  int32_t attype;   // 0 wall clock, 1 standard time, 2 UTC
  int32_t athour;
  int32_t atminute;
  int32_t atsecond;
  int32_t save;  // seconds of daylight saving after the transition
};

struct RuleSet {
  const char *name;
  int32_t count;
  const RuleItem *items;
};

// One period of a zone's history, ending at its until moment.
struct ZoneRow {
  int32_t gmtoff;        // standard offset from UTC in seconds
  int32_t rulekind;      // 0: follows `rules`; 1: a fixed save
  const RuleSet *rules;  // nullptr for rulekind 1
  int32_t save;          // the fixed save (rulekind 1)
  int32_t untiltype;     // 0 wall clock, 1 standard time, 2 UTC
  int32_t untildaytype;  // as RuleItem::daytype
  int32_t untilyear;     // INT32_MAX: open-ended last row; INT32_MIN: skipped row
  int32_t untilmonth;
  int32_t untilday;
  int32_t untilweekday;  // for weekday rules this holds the source's until hour
  int32_t untilhour;
  int32_t untilminute;
  int32_t untilsecond;
};

// A zone or link name; its position in the table is the zone identifier.
struct ZoneName {
  const char *name;
  int32_t count;
  const ZoneRow *rows;
};

// Identifiers the code refers to by number.
constexpr int32_t kZoneEtcUtc = 414;
constexpr int32_t kZoneAsiaShanghai = 303;

extern const RuleItem g_rule_items[kRuleItemCount];
extern const RuleSet g_rulesets[kRuleSetCount];
extern const ZoneRow g_zone_rows[kZoneRowCount];
extern const ZoneName g_timezone_table[kZoneNameCount];

}  // namespace orlix::time
