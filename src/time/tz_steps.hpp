// Precomputed transitions: for every zone, the moments inside a window of
// years at which the outcome of the rule searches changes, so that a
// conversion inside the window is a binary search instead of the linear
// searches. tools/gen_tz_steps.cpp computes them at build time by running
// the searches of ORLIX_Time_Rules.cpp themselves (and checks the result
// against them), so every answer is the same as the searches would give.
#pragma once

#include <cstdint>

#include "time/ORLIX_Time.hpp"
#include "time/ORLIX_Time_Zone.hpp"

namespace orlix::time {

// The window: moments from kStepFirstYear-01-01 00:00:00 up to, not
// including, kStepEndYear-01-01 00:00:00 (UTC for the UTC steps, wall-clock
// fields for the local steps).
constexpr int32_t kStepFirstYear = 1970;
constexpr int32_t kStepEndYear = 2038;

// A key that orders like compare_fields (nanoseconds aside) for records
// whose month..second fields lie in 0..255 and whose year is not negative.
constexpr bool packable(const Time &t) {
  return t.year >= 0 && t.year < (1 << 20) && t.month >= 0 && t.month <= 255 && t.day >= 0 &&
         t.day <= 255 && t.hour >= 0 && t.hour <= 255 && t.minute >= 0 && t.minute <= 255 &&
         t.second >= 0 && t.second <= 255;
}
constexpr int64_t pack(const Time &t) {
  return static_cast<int64_t>(t.year) << 40 | static_cast<int64_t>(t.month) << 32 |
         static_cast<int64_t>(t.day) << 24 | static_cast<int64_t>(t.hour) << 16 |
         static_cast<int64_t>(t.minute) << 8 | static_cast<int64_t>(t.second);
}
constexpr Time unpack(int64_t key) {
  return utc_fields(static_cast<int32_t>(key >> 40), static_cast<int32_t>(key >> 32 & 255),
                    static_cast<int32_t>(key >> 24 & 255), static_cast<int32_t>(key >> 16 & 255),
                    static_cast<int32_t>(key >> 8 & 255), static_cast<int32_t>(key & 255));
}

// A local time's position among the local step keys: twice its key, plus
// one when it has nanoseconds (it then lies after the whole second).
constexpr int64_t local_position(const Time &t) {
  return 2 * pack(t) + (t.nanosecond != 0 ? 1 : 0);
}

constexpr int32_t kStepYears = kStepEndYear - kStepFirstYear;

// One zone's steps: g_utc_step_keys[utc_first .. utc_first + utc_count) in
// ascending order, the first at the window's start; likewise for the local
// steps. The outcome at a moment is that of the last step at or before it.
// g_utc_year_steps[utc_years + y] is the step in force at the start of year
// kStepFirstYear + y (relative to utc_first), where a search can begin;
// likewise for the local steps.
struct ZoneSteps {
  int32_t utc_first;
  int32_t utc_count;
  int32_t utc_years;
  int32_t local_first;
  int32_t local_count;
  int32_t local_years;
};

// A local step's offsets for a clear and a set dst flag, as indices into
// g_local_offsets; kNoLocalOffset when no row is in force.
struct LocalStepOffsets {
  uint16_t dst_clear;
  uint16_t dst_set;
};
constexpr uint16_t kNoLocalOffset = 0xFFFF;

extern const ZoneSteps g_zone_steps[kZoneNameCount];
extern const uint16_t g_utc_year_steps[];
extern const uint16_t g_local_year_steps[];
extern const int64_t g_utc_step_keys[];       // pack() of the UTC moment
extern const uint16_t g_utc_step_outcomes[];  // index into g_utc_outcomes
extern const UtcOffset g_utc_outcomes[];
extern const int64_t g_local_step_keys[];  // local_position() of the moment
extern const LocalStepOffsets g_local_step_offsets[];
extern const int32_t g_local_offsets[];

}  // namespace orlix::time
