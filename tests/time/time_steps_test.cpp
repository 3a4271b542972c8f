// The precomputed transitions give exactly what the rule searches give: for
// every zone, at every step and next to it and at the window's edges, both
// dst flags and with and without nanoseconds (fuzz_time samples the times
// in between).
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "time/tz_steps.hpp"
#include "time_test_util.hpp"

namespace {

using namespace time_test;
using namespace orlix::time;

std::string Fields(const Time &t) { return Full(&t); }

void ExpectSameUtc(const Time &utc, int32_t zone) {
  Time fast{};
  Time slow{};
  const bool a = utc2local_value(utc, zone, &fast);
  const bool b = utc2local_literal(utc, zone, &slow);
  ASSERT_EQ(a, b) << g_timezone_table[zone].name << " " << Fields(utc);
  if (a) {
    ASSERT_EQ(Fields(fast), Fields(slow)) << g_timezone_table[zone].name << " " << Fields(utc);
  }
}

void ExpectSameLocal(Time local, int32_t zone) {
  local.utc = 0;
  local.zone = zone;
  for (uint32_t dst : {0u, 1u}) {
    for (int64_t ns : {0, 1}) {
      local.dst = dst;
      local.nanosecond = ns;
      int32_t fast = 0;
      int32_t slow = 0;
      const bool a = local_offset_value(local, zone, &fast);
      const bool b = local_offset_literal(local, zone, &slow);
      ASSERT_EQ(a, b) << g_timezone_table[zone].name << " " << Fields(local);
      if (a) {
        ASSERT_EQ(fast, slow) << g_timezone_table[zone].name << " " << Fields(local);
      }
    }
  }
}

// Moves t by seconds as plain POSIX arithmetic (no leap seconds).
Time Shift(const Time &t, int64_t seconds) {
  TimePtr p = FromPosix(
      Posix(t.year, t.month, t.day, t.hour, t.minute, t.second == 60 ? 59 : t.second) + seconds);
  return *p;
}

TEST(time_steps, SameAsTheRuleSearches) {
  std::set<const ZoneRow *> seen;
  for (int32_t zone = 0; zone < kZoneNameCount; ++zone) {
    if (zone == kUtcZone || !seen.insert(g_timezone_table[zone].rows).second) continue;
    const ZoneSteps &steps = g_zone_steps[zone];
    ASSERT_GT(steps.utc_count, 0);
    ASSERT_GT(steps.local_count, 0);
    for (int32_t i = 0; i < steps.utc_count; ++i) {
      const Time at = unpack(g_utc_step_keys[steps.utc_first + i]);
      for (int64_t d : {-61, -2, -1, 0, 1, 2}) ExpectSameUtc(Shift(at, d), zone);
    }
    for (int32_t i = 0; i < steps.local_count; ++i) {
      const Time at = unpack(g_local_step_keys[steps.local_first + i] >> 1);
      if (!checkdate(at.year, at.month, at.day) || at.hour > 23 || at.minute > 59) continue;
      for (int64_t d : {-2, -1, 0, 1}) ExpectSameLocal(Shift(at, d), zone);
    }
    // The window's edges.
    for (int32_t year : {kStepFirstYear, kStepEndYear}) {
      const Time edge = utc_fields(year, 1, 1, 0, 0, 0);
      for (int64_t d : {-1, 0, 1}) {
        ExpectSameUtc(Shift(edge, d), zone);
        ExpectSameLocal(Shift(edge, d), zone);
      }
    }
    if (HasFatalFailure()) return;
  }
}

TEST(time_steps, LeapSecondsInEveryZone) {
  // The steps only choose the offset; the leap-second handling after it is
  // shared. Still, every leap second and its neighbours in every zone.
  std::set<const ZoneRow *> seen;
  for (int32_t zone = 0; zone < kZoneNameCount; ++zone) {
    if (zone == kUtcZone || !seen.insert(g_timezone_table[zone].rows).second) continue;
    for (const Time &leap : g_leapseconds) {
      Time utc = leap;
      utc.zone = kUtcZone;
      ExpectSameUtc(utc, zone);
      Time local;
      if (utc2local_literal(utc, zone, &local)) ExpectSameLocal(local, zone);
      for (int64_t d : {-3600, -1, 1, 3600}) ExpectSameUtc(Shift(utc, d), zone);
    }
    if (HasFatalFailure()) return;
  }
}

}  // namespace
