// Zone rules and local time: the row and rule searches over the compiled
// database (ORLIX_Time_Rules.cpp, allocation-free) and the library-internal
// entry points built on them (ORLIX_Time_Zone.cpp).
#pragma once

#include <cstdint>

#include "time/ORLIX_Time.hpp"
#include "time/tz_data.hpp"

namespace orlix::time {

// ---- dated moments --------------------------------------------------------------

// The day of month of a weekday rule in year/month (daytype 1: last such
// weekday; 2: first on or after day; 3: last on or before day), or -1 when
// there is none or the month's last day is outside 1582..9999. The weekday of
// the month's last day comes from weekday_of, negative before 1970, and a
// weekday field that holds an hour (zone rows) is used as it is: either can
// give a day past the month's end, which is returned unchanged.
int32_t getday(int32_t daytype, int32_t year, int32_t month, int32_t day, int32_t weekday);

// The item's transition in year, at its at-time as written (no offset
// applied); false when its day does not exist in that year.
bool dated_transition(const RuleItem &item, int32_t year, Time *out);

// The save of the item in force just before moment (that of
// localfindruleitemwithoutdts; 0 when there is none).
int32_t save_before(const RuleSet &set, const RuleItem &item, const Time &moment);

// A row's until moment as written; false for a row without one that can be
// compared (daytype above 3, or no such day).
bool row_until(const ZoneRow &row, Time *out);

// Among the set's items other than `self`, the one whose transition is the
// latest at or before moment (field by field, at-times as written; the
// earlier item on a tie); nullptr when there is none.
const RuleItem *localfindruleitemwithoutdts(const RuleSet &set, const RuleItem &self,
                                            const Time &moment);

// ---- UTC to local -------------------------------------------------------------------

// How a zone row turns a UTC time into wall-clock time.
struct UtcOffset {
  enum Kind : int32_t {
    kFixed = 0,   // rulekind 1: offset = gmtoff + the row's save
    kItem = 1,    // a rule item is in force: offset = gmtoff + its save
    kNoItem = 2,  // no item yet: offset = gmtoff, standard time
    kNoRow = 3,   // no row in force (precomputed steps only): no result
  };
  int32_t offset;
  int32_t save;
  int32_t kind;
};

// The row of zone in force at utc; nullptr when none, or when the offset
// step needed to compare it fails at the ends of the year range.
const ZoneRow *find_row_utc(const ZoneName &zone, const Time &utc);

// The offset decision of utc2localclock for row at utc; false when a needed
// offset step fails.
bool decide_utc(const ZoneRow &row, const Time &utc, UtcOffset *out);

// Applies a decision to utc: the offset step, the removal of the leap
// seconds it appears to cross, and the local flags (utc 0, dst, zone).
bool apply_utc(const UtcOffset &d, const Time &utc, int32_t zone, Time *out);

// decide_utc and apply_utc in one.
bool utc2localclock(const ZoneRow &row, const Time &utc, int32_t zone, Time *out);

// ---- local to UTC -------------------------------------------------------------------

// What localfindrule compares a local time with for one row.
enum class Bound {
  kSkip,       // the row has no comparable until
  kBefore,     // the row is in force while local < moment
  kAtOrBefore  // ... while local <= moment
};
// The row's until as a wall-clock bound; false when an offset step fails.
bool row_local_until(const ZoneRow &row, Bound *kind, Time *moment);

// The row of zone in force at a local time (fields compared as plain
// values); nullptr when none or a step fails.
const ZoneRow *localfindrule(const ZoneName &zone, const Time &local);

// The winning item of localfindruleitem with its transition read in the old
// (a) and the new (b) wall clock; item is nullptr when none is in force.
struct ItemPick {
  const RuleItem *item;
  Time a;
  Time b;
};

// This year's transition of item as the two local instants of
// localfindruleitem: A in the clock before it (the at-time, plus the save of
// the item in force before it for standard-time items, plus gmtoff as well
// for UTC items) and B = A + (the item's save - that earlier save).
enum class Dated { kNone, kOk, kFailed };
Dated local_transition(const RuleSet &set, const RuleItem &item, int32_t year, int32_t gmtoff,
                       Time *a, Time *b);

// The item of set in force at a local time; false when a step fails.
bool localfindruleitem(const RuleSet &set, const Time &local, int32_t gmtoff, ItemPick *out);

// ---- whole conversions on values (zone 0..581, not 414) -----------------------------

// The rule-by-rule conversions, exactly as the searches above define them.
bool utc2local_literal(const Time &utc, int32_t zone, Time *out);
// The offset local2utc applies to a local time of zone (minus gmtoff minus
// the save in force); false when no row is found or a step fails.
bool local_offset_literal(const Time &local, int32_t zone, int32_t *offset);

// The same conversions through the precomputed transitions where they
// cover the time, else as above. Results are identical.
bool utc2local_value(const Time &utc, int32_t zone, Time *out);
bool local_offset_value(const Time &local, int32_t zone, int32_t *offset);

// local2utc on a value: t must be local with a zone of 0..581.
bool local2utc_value(const Time &local, Time *out);

// ---- library-internal entry points (not exported) --------------------------------

// The zone identifier of name: "UTC" is read as "Etc/UTC" (414) and "PRC" as
// "Asia/Shanghai" (303); exact, case-sensitive match; -1 when unknown or NULL.
int32_t orlix_time_gettimezoneidbyname(const char *name);

// t (UTC) as a local time of zone; zone 414 gives a UTC copy. NULL for NULL,
// a local argument, a zone outside 0..581 or on failure.
ORLIX_Time *orlix_time_utc2localbyid(const ORLIX_Time *t, int32_t zone);

// A local time of zone from its fields (see orlix_time_newlocaltime). Zone
// 414 gives a UTC value, -1 gives NULL, and any other identifier outside
// 0..581 gives the record as filled, without a zone look-up.
ORLIX_Time *orlix_time_newlocaltimebyid(int32_t zone, int32_t year, int32_t month, int32_t day,
                                        int32_t hour, int32_t minute, int32_t second,
                                        int64_t nanosecond, uint32_t dst);

// t moved by seconds: seconds % 60 with orlix_time_addsecond, then whole
// minutes with orlix_time_addminute (UTC arithmetic for a UTC value, the
// local dispatchers for a local one). NULL for NULL or on failure.
ORLIX_Time *orlix_time_addsave(const ORLIX_Time *t, int32_t seconds);

// The system's zone (ORLIX_Time_System.cpp); never negative, 414 by default.
int32_t orlix_time_gettimezoneid();

}  // namespace orlix::time
