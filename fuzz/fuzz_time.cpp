// Time values from random fields: construction must accept exactly the valid
// fields; an add followed by the opposite add must give the value back
// wherever no clamping or leap second is involved; UTC to local and back in
// a random zone must give the instant back where no transition or leap
// second is near; and the precomputed transitions must answer as the rule
// searches do, for UTC and for local times.
#include <memory>

#include "ORLIX_Time.h"
#include "fuzz_util.hpp"
#include "time/ORLIX_Time.hpp"
#include "time/ORLIX_Time_Zone.hpp"

namespace {

namespace ot = orlix::time;
using ot::Time;

struct TimeDeleter {
  void operator()(ORLIX_Time *t) const { orlix_time_free(t); }
};
using TimePtr = std::unique_ptr<ORLIX_Time, TimeDeleter>;

int32_t Any32(fuzz::Reader &in) {
  const uint32_t lo = in.u16();
  return static_cast<int32_t>(lo | static_cast<uint32_t>(in.u16()) << 16);
}

// Mostly a value in [lo, hi] (a little past the valid range on both sides),
// sometimes any 32-bit value.
int32_t Field(fuzz::Reader &in, int32_t lo, int32_t hi) {
  if (in.u8() < 240) return lo + static_cast<int32_t>(in.u16() % (hi - lo + 1));
  return Any32(in);
}

struct Fields {
  int32_t year, month, day, hour, minute, second;
  int64_t ns;
};

Fields ReadFields(fuzz::Reader &in) {
  const uint8_t mode = in.u8();
  Fields f;
  if (mode < 40) {
    // Next to a leap second.
    const Time &l = ot::g_leapseconds[in.u8() % ot::kLeapSecondCount];
    f = Fields{l.year, l.month, l.day, 23, 59, 60 - static_cast<int32_t>(in.u8() % 3), 0};
  } else {
    f.year = Field(in, 1570, 10010);
    f.month = Field(in, -1, 14);
    f.day = Field(in, -1, 33);
    f.hour = Field(in, -1, 25);
    f.minute = Field(in, -1, 61);
    f.second = Field(in, -1, 61);
  }
  const uint8_t ns = in.u8();
  f.ns = ns < 128 ? 0 : ns < 240 ? static_cast<int64_t>(Any32(in)) % 1000000000 : Any32(in);
  return f;
}

bool ValidFields(const Fields &f) {
  if (!ot::checkdate(f.year, f.month, f.day) || f.minute < 0 || f.minute > 59 || f.second < 0 ||
      f.second > 60 || f.ns < 0 || f.ns >= 1000000000 || f.hour < 0 || f.hour > 24)
    return false;
  if (f.hour == 24) return f.minute == 0 && f.second == 0;
  return f.second < 60 ||
         ot::isLeapSecond(ot::utc_fields(f.year, f.month, f.day, f.hour, f.minute, f.second));
}

// A record as the library makes them: fields in range, flags consistent.
void CheckRecord(const ORLIX_Time *t) {
  FUZZ_CHECK(t->month >= 1 && t->month <= 12 && t->day >= 1 &&
             t->day <= ot::month_length(t->year, t->month));
  FUZZ_CHECK(t->hour >= 0 && t->hour <= 23 && t->minute >= 0 && t->minute <= 59);
  FUZZ_CHECK(t->second >= 0 && t->second <= 60 && t->nanosecond >= 0 && t->nanosecond < 1000000000);
  if (t->utc != 0) FUZZ_CHECK(t->dst == 0 && t->zone == ot::kUtcZone);
}

using AddFn = ORLIX_Time *(*)(const ORLIX_Time *, int32_t);
constexpr AddFn kAdd[] = {orlix_time_addyear, orlix_time_addmonth,  orlix_time_addday,
                          orlix_time_addhour, orlix_time_addminute, orlix_time_addsecond};

// Whether undoing an add by `unit` must give the value back: no day clamped
// by the year or month steps, no second 60 corrected, no leap second passed.
bool Reversible(int unit, const ORLIX_Time *t, const ORLIX_Time *r, int32_t n) {
  if (t->second == 60 || r->second == 60) return false;
  switch (unit) {
    case 0: return !(t->month == 2 && t->day == 29);
    case 1: return t->day <= 28;
    case 5: return orlix_time_gettime_t(r) - orlix_time_gettime_t(t) == n;
    default: return true;
  }
}

void CheckAdds(const ORLIX_Time *t, fuzz::Reader &in) {
  const int unit = in.u8() % 6;
  const uint8_t mode = in.u8();
  int32_t n;
  if (mode < 128)
    n = static_cast<int8_t>(in.u8());
  else if (mode < 240)
    n = static_cast<int16_t>(in.u16()) * 37;
  else
    n = Any32(in);
  TimePtr r(kAdd[unit](t, n));
  if (r == nullptr || n == INT32_MIN) return;
  CheckRecord(r.get());
  FUZZ_CHECK(r->nanosecond == t->nanosecond && r->utc == t->utc);
  if (unit == 2 && r->second == t->second)
    FUZZ_CHECK(orlix_time_diffdays(r.get(), t) == n, "addday %d", n);
  if (!Reversible(unit, t, r.get(), n)) return;
  if (unit == 5) FUZZ_CHECK(orlix_time_diffseconds(r.get(), t) == n, "addsecond %d", n);
  TimePtr back(kAdd[unit](r.get(), -n));
  FUZZ_CHECK(back != nullptr && orlix_time_cmp(back.get(), t) == 0,
             "unit %d, %d: %04d-%02d-%02d %02d:%02d:%02d", unit, n, t->year, t->month, t->day,
             t->hour, t->minute, t->second);
}

// The reading of utc in zone as an offset in seconds of the fields, or false.
bool Offset(const Time &utc, int32_t zone, int64_t *offset, uint32_t *dst) {
  Time local;
  if (!ot::utc2local_value(utc, zone, &local)) return false;
  *offset = (ot::day_number(local.year, local.month, local.day) -
             ot::day_number(utc.year, utc.month, utc.day)) *
                86400 +
            (local.hour - utc.hour) * 3600 + (local.minute - utc.minute) * 60 + local.second -
            utc.second;
  *dst = local.dst;
  return true;
}

void CheckZones(const ORLIX_Time *t, fuzz::Reader &in) {
  const int32_t zone = in.u16() % ot::kZoneNameCount;
  // The precomputed transitions against the searches.
  Time fast;
  Time slow;
  if (zone != ot::kUtcZone) {
    const bool a = ot::utc2local_value(*t, zone, &fast);
    const bool b = ot::utc2local_literal(*t, zone, &slow);
    FUZZ_CHECK(a == b && (!a || ot::compare_fields(fast, slow) == 0) &&
               (!a || fast.dst == slow.dst));
  }
  TimePtr local(orlix::time::orlix_time_utc2localbyid(t, zone));
  if (local == nullptr) return;
  CheckRecord(local.get());
  if (zone == ot::kUtcZone) {
    FUZZ_CHECK(orlix_time_cmp(local.get(), t) == 0 && local->utc == 1);
    return;
  }
  FUZZ_CHECK(local->utc == 0 && local->zone == zone && local->nanosecond == t->nanosecond);
  for (uint32_t dst : {0u, 1u}) {
    Time probe = *local;
    probe.dst = dst;
    int32_t a = 0;
    int32_t b = 0;
    const bool fa = ot::local_offset_value(probe, zone, &a);
    const bool fb = ot::local_offset_literal(probe, zone, &b);
    FUZZ_CHECK(fa == fb && (!fa || a == b));
  }
  TimePtr back(orlix_time_local2utc(local.get()));
  // Away from transitions and leap seconds the reading is unambiguous.
  int64_t offset, before, after;
  uint32_t dst, dst_before, dst_after;
  Time early = *t;
  Time late = *t;
  if (t->second == 60 || !ot::utc_addday(early, -2) || !ot::utc_addday(late, 2) ||
      !Offset(*t, zone, &offset, &dst) || !Offset(early, zone, &before, &dst_before) ||
      !Offset(late, zone, &after, &dst_after))
    return;
  if (before != offset || after != offset || dst_before != dst || dst_after != dst) return;
  if (ot::leapsecondCount(early, late) != 0) return;
  FUZZ_CHECK(back != nullptr && orlix_time_cmp(back.get(), t) == 0, "zone %d", zone);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  const Fields f = ReadFields(in);
  TimePtr t(orlix_time_newutctime(f.year, f.month, f.day, f.hour, f.minute, f.second, f.ns));
  FUZZ_CHECK((t != nullptr) == ValidFields(f), "%d-%d-%d %d:%d:%d.%lld", f.year, f.month, f.day,
             f.hour, f.minute, f.second, static_cast<long long>(f.ns));
  if (t != nullptr && t->year <= ot::kMaxYear) {
    CheckRecord(t.get());
    FUZZ_CHECK(t->utc == 1 && t->dst == 0 && t->zone == ot::kUtcZone);
    while (!in.empty()) {
      if (in.u8() % 2 == 0)
        CheckAdds(t.get(), in);
      else
        CheckZones(t.get(), in);
    }
  }

  // Local construction in a random zone, both flags, and back to UTC.
  fuzz::Reader again(data, size);
  const int32_t zone = static_cast<int32_t>(again.u16() % (ot::kZoneNameCount + 2)) - 1;
  const Fields g = ReadFields(again);
  TimePtr local(orlix::time::orlix_time_newlocaltimebyid(zone, g.year, g.month, g.day, g.hour,
                                                         g.minute, g.second, g.ns, again.u8()));
  if (local != nullptr && local->year <= ot::kMaxYear) {
    CheckRecord(local.get());
    TimePtr utc(orlix_time_local2utc(local.get()));
    if (utc != nullptr) CheckRecord(utc.get());
  }
  return 0;
}
