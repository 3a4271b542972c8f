// Computes the precomputed transitions of the Time family (src/time/
// tz_steps.hpp) by running the library's own rule searches.
//
//   gen_tz_steps <output.cpp>
//
// Built at build time from src/time/ORLIX_Time_Calendar.cpp,
// src/time/ORLIX_Time_Rules.cpp and the generated zone tables.
//
// UTC side. find_row_utc and decide_utc decide by comparisons of the form
// "utc + shift < moment" (a row's until) and "moment > utc + shift" (a rule
// transition of the UTC year), each with a shift and a moment fixed by the
// tables and the year. Each such comparison changes its answer once as utc
// grows, so the outcome can only change where one of them does, or where the
// year changes. The tool lists every comparison the searches can make in the
// window, finds where each changes by bisection over the sequence of valid
// UTC seconds (leap seconds included), and evaluates the searches at each of
// those moments.
//
// Local side. localfindrule and localfindruleitem compare the local fields
// with moments fixed by the tables and the year (row bounds, and the
// instants A and B of each transition), so the outcome can only change at
// those moments, or just after one for a "<=" comparison.
//
// Finally every zone is checked against the searches at the steps, next to
// them and at pseudo-random moments; any difference fails the build.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <tuple>
#include <vector>

#include "time/ORLIX_Time.hpp"
#include "time/ORLIX_Time_Zone.hpp"
#include "time/tz_steps.hpp"

using namespace orlix::time;

namespace {

[[noreturn]] void fail(const char *what, const char *zone) {
  std::fprintf(stderr, "gen_tz_steps: %s (zone %s)\n", what, zone);
  std::exit(1);
}

// ---- valid UTC seconds as a sequence of integers ----------------------------

int64_t leap_index(int j) {
  const Time &l = g_leapseconds[j];
  return day_number(l.year, l.month, l.day) * 86400 + 86400 + j;
}

int64_t index_of(const Time &t) {
  int64_t n = day_number(t.year, t.month, t.day) * 86400 + t.hour * 3600 + t.minute * 60 + t.second;
  for (const Time &l : g_leapseconds)
    if (compare_fields(l, t) < 0) ++n;
  return n;
}

Time from_index(int64_t i) {
  int64_t k = 0;
  for (int j = 0; j < kLeapSecondCount; ++j) {
    const int64_t lj = leap_index(j);
    if (i < lj) break;
    if (i == lj) {
      Time t = g_leapseconds[j];
      t.zone = kUtcZone;
      return t;
    }
    k = j + 1;
  }
  const int64_t p = i - k;
  int64_t days = p / 86400;
  int64_t sod = p % 86400;
  if (sod < 0) {
    sod += 86400;
    --days;
  }
  // Civil date of a day count (proleptic Gregorian).
  const int64_t z = days + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  const int32_t month = static_cast<int32_t>(mp < 10 ? mp + 3 : mp - 9);
  const int32_t year = static_cast<int32_t>(yoe + era * 400 + (month <= 2));
  const int32_t day = static_cast<int32_t>(doy - (153 * mp + 2) / 5 + 1);
  return utc_fields(year, month, day, static_cast<int32_t>(sod / 3600),
                    static_cast<int32_t>(sod / 60 % 60), static_cast<int32_t>(sod % 60));
}

int64_t year_start_index(int32_t year) { return index_of(utc_fields(year, 1, 1, 0, 0, 0)); }

// The first index of [lo, hi) where pred, true at lo, turns false; -1 when it
// does not change inside the range.
template <class Pred>
int64_t first_false(int64_t lo, int64_t hi, Pred pred) {
  if (lo >= hi || !pred(lo) || pred(hi - 1)) return -1;
  while (hi - lo > 1) {
    const int64_t mid = lo + (hi - lo) / 2;
    if (pred(mid))
      lo = mid;
    else
      hi = mid;
  }
  return hi;
}

constexpr int32_t kNoShift = INT32_MIN;

bool shifted(const Time &utc, int32_t shift, Time *out) {
  *out = utc;
  return shift == kNoShift || utc_addsave(*out, shift);
}

// ---- outcomes ------------------------------------------------------------------

UtcOffset utc_outcome(const ZoneName &zone, const Time &utc) {
  const ZoneRow *row = find_row_utc(zone, utc);
  if (row == nullptr) return UtcOffset{0, 0, UtcOffset::kNoRow};
  UtcOffset d;
  if (!decide_utc(*row, utc, &d)) fail("a rule search failed inside the window", zone.name);
  return d;
}

bool same(const UtcOffset &a, const UtcOffset &b) {
  return a.offset == b.offset && a.save == b.save && a.kind == b.kind;
}

// The offset local2utc applies, or INT32_MIN when there is none.
int32_t local_outcome(int32_t id, int64_t position, bool dst) {
  Time t = unpack(position >> 1);
  t.nanosecond = position & 1;
  t.utc = 0;
  t.dst = dst ? 1 : 0;
  t.zone = id;
  int32_t offset;
  return local_offset_literal(t, id, &offset) ? offset : INT32_MIN;
}

// The rule sets a zone can consult, each with the gmtoff of a row using it.
std::set<std::pair<const RuleSet *, int32_t>> rule_readings(const ZoneName &zone) {
  std::set<std::pair<const RuleSet *, int32_t>> out;
  for (int32_t k = 0; k < zone.count; ++k)
    if (zone.rows[k].rulekind == 0 && zone.rows[k].rules != nullptr)
      out.insert({zone.rows[k].rules, zone.rows[k].gmtoff});
  return out;
}

int64_t checked_pack(const Time &t, const char *zone) {
  if (!packable(t)) fail("a moment has fields that do not pack", zone);
  return pack(t);
}

// ---- the steps of one zone -------------------------------------------------------

struct Steps {
  std::vector<std::pair<int64_t, UtcOffset>> utc;            // key, outcome
  std::vector<std::tuple<int64_t, int32_t, int32_t>> local;  // position, offsets
};

std::vector<int64_t> utc_candidates(const ZoneName &zone) {
  const int64_t lo = year_start_index(kStepFirstYear);
  const int64_t hi = year_start_index(kStepEndYear);
  std::vector<int64_t> out{lo};
  for (int32_t k = 0; k < zone.count; ++k) {
    const ZoneRow &row = zone.rows[k];
    Time until;
    if (row.untilyear == INT32_MIN || row.untilyear == INT32_MAX || !row_until(row, &until))
      continue;
    int32_t shift = row.gmtoff;
    if (row.untiltype == 2)
      shift = kNoShift;
    else if (row.rulekind == 1 && row.untiltype == 0)
      shift = row.save;
    const int64_t flip = first_false(lo, hi, [&](int64_t i) {
      Time x;
      return shifted(from_index(i), shift, &x) && compare_fields(x, until) < 0;
    });
    if (flip >= 0) out.push_back(flip);
  }
  const auto readings = rule_readings(zone);
  for (int32_t year = kStepFirstYear; year < kStepEndYear; ++year) {
    const int64_t ylo = year_start_index(year);
    const int64_t yhi = year_start_index(year + 1);
    out.push_back(ylo);
    for (const auto &[set, gmtoff] : readings) {
      for (int32_t i = 0; i < set->count; ++i) {
        const RuleItem &item = set->items[i];
        Time moment;
        if (item.fromyear > year || year > item.toyear || !dated_transition(item, year, &moment))
          continue;
        int32_t shift = kNoShift;
        if (item.attype == 1)
          shift = gmtoff;
        else if (item.attype == 0)
          shift = gmtoff + save_before(*set, item, moment);
        const int64_t flip = first_false(ylo, yhi, [&](int64_t j) {
          Time x;
          return !shifted(from_index(j), shift, &x) || compare_fields(moment, x) > 0;
        });
        if (flip >= 0) out.push_back(flip);
      }
    }
  }
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

std::vector<int64_t> local_candidates(const ZoneName &zone) {
  const int64_t lo = 2 * pack(utc_fields(kStepFirstYear, 1, 1, 0, 0, 0));
  const int64_t hi = 2 * pack(utc_fields(kStepEndYear, 1, 1, 0, 0, 0));
  std::vector<int64_t> out{lo};
  auto add = [&](int64_t p) {
    if (p >= lo && p < hi) out.push_back(p);
  };
  for (int32_t k = 0; k < zone.count; ++k) {
    const ZoneRow &row = zone.rows[k];
    if (row.untilyear == INT32_MIN || row.untilyear == INT32_MAX) continue;
    Bound kind;
    Time moment;
    if (!row_local_until(row, &kind, &moment)) continue;
    if (kind == Bound::kSkip) continue;
    const int64_t p = 2 * checked_pack(moment, zone.name);
    add(kind == Bound::kBefore ? p : p + 1);
  }
  const auto readings = rule_readings(zone);
  for (int32_t year = kStepFirstYear; year < kStepEndYear; ++year) {
    add(2 * pack(utc_fields(year, 1, 1, 0, 0, 0)));
    for (const auto &[set, gmtoff] : readings) {
      for (int32_t i = 0; i < set->count; ++i) {
        const RuleItem &item = set->items[i];
        if (item.fromyear > year || year > item.toyear) continue;
        Time a;
        Time b;
        if (local_transition(*set, item, year, gmtoff, &a, &b) != Dated::kOk) continue;
        add(2 * checked_pack(a, zone.name));
        add(2 * checked_pack(b, zone.name));
      }
    }
  }
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

Steps zone_steps(int32_t id) {
  const ZoneName &zone = g_timezone_table[id];
  Steps steps;
  for (int64_t i : utc_candidates(zone)) {
    const Time utc = from_index(i);
    const UtcOffset d = utc_outcome(zone, utc);
    if (steps.utc.empty() || !same(steps.utc.back().second, d))
      steps.utc.emplace_back(pack(utc), d);
  }
  for (int64_t p : local_candidates(zone)) {
    const int32_t clear = local_outcome(id, p, false);
    const int32_t set = local_outcome(id, p, true);
    if (steps.local.empty() || std::get<1>(steps.local.back()) != clear ||
        std::get<2>(steps.local.back()) != set)
      steps.local.emplace_back(p, clear, set);
  }
  return steps;
}

// ---- self-check --------------------------------------------------------------------

template <class T, class Key>
const T &at_or_before(const std::vector<T> &v, int64_t key, Key key_of) {
  auto it = std::upper_bound(v.begin(), v.end(), key,
                             [&](int64_t k, const T &e) { return k < key_of(e); });
  return *(it - 1);
}

void check_zone(int32_t id, const Steps &steps) {
  const ZoneName &zone = g_timezone_table[id];
  const int64_t lo = year_start_index(kStepFirstYear);
  const int64_t hi = year_start_index(kStepEndYear);
  auto check_utc = [&](int64_t i) {
    if (i < lo || i >= hi) return;
    const Time utc = from_index(i);
    const auto &step = at_or_before(steps.utc, pack(utc), [](const auto &e) { return e.first; });
    if (!same(step.second, utc_outcome(zone, utc))) fail("a UTC step disagrees", zone.name);
  };
  auto check_local = [&](int64_t p) {
    if (p < std::get<0>(steps.local.front())) return;
    if (p >= 2 * pack(utc_fields(kStepEndYear, 1, 1, 0, 0, 0))) return;
    const auto &step = at_or_before(steps.local, p, [](const auto &e) { return std::get<0>(e); });
    if (std::get<1>(step) != local_outcome(id, p, false) ||
        std::get<2>(step) != local_outcome(id, p, true))
      fail("a local step disagrees", zone.name);
  };
  for (const auto &[key, outcome] : steps.utc) {
    const int64_t i = index_of(unpack(key));
    for (int64_t d : {-2, -1, 0, 1}) check_utc(i + d);
  }
  for (const auto &step : steps.local) {
    const int64_t p = std::get<0>(step);
    for (int64_t d : {-3, -2, -1, 0, 1, 2}) check_local(p + d);
  }
  uint64_t x = 0x9E3779B97F4A7C15u ^ static_cast<uint64_t>(id);
  for (int n = 0; n < 4000; ++n) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    const int64_t i = lo + static_cast<int64_t>(x % static_cast<uint64_t>(hi - lo));
    check_utc(i);
    // A valid wall-clock reading near that moment, with and without
    // nanoseconds.
    const Time t = from_index(i);
    Time local;
    if (t.second != 60 && utc2local_literal(t, id, &local) && packable(local))
      for (int64_t d : {0, 1}) check_local(2 * pack(local) + d);
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen_tz_steps <output.cpp>\n");
    return 2;
  }
  std::vector<ZoneSteps> index(kZoneNameCount);
  std::vector<int64_t> utc_keys;
  std::vector<uint16_t> utc_outcome_ids;
  std::vector<UtcOffset> outcomes;
  std::vector<int64_t> local_keys;
  std::vector<LocalStepOffsets> local_ids;
  std::vector<int32_t> offsets;
  std::vector<uint16_t> utc_years;
  std::vector<uint16_t> local_years;
  std::map<const ZoneRow *, int32_t> done;  // zones share rows with their links

  auto outcome_id = [&](const UtcOffset &d) {
    for (size_t i = 0; i < outcomes.size(); ++i)
      if (same(outcomes[i], d)) return static_cast<uint16_t>(i);
    outcomes.push_back(d);
    return static_cast<uint16_t>(outcomes.size() - 1);
  };
  auto offset_id = [&](int32_t offset) {
    if (offset == INT32_MIN) return kNoLocalOffset;
    auto it = std::find(offsets.begin(), offsets.end(), offset);
    if (it != offsets.end()) return static_cast<uint16_t>(it - offsets.begin());
    offsets.push_back(offset);
    return static_cast<uint16_t>(offsets.size() - 1);
  };

  for (int32_t id = 0; id < kZoneNameCount; ++id) {
    const ZoneName &zone = g_timezone_table[id];
    auto seen = done.find(zone.rows);
    if (seen != done.end()) {
      index[id] = index[seen->second];
      continue;
    }
    done[zone.rows] = id;
    const Steps steps = zone_steps(id);
    check_zone(id, steps);
    if (steps.utc.size() >= 0xFFFF || steps.local.size() >= 0xFFFF)
      fail("too many steps", zone.name);
    index[id] = ZoneSteps{
        static_cast<int32_t>(utc_keys.size()),    static_cast<int32_t>(steps.utc.size()),
        static_cast<int32_t>(utc_years.size()),   static_cast<int32_t>(local_keys.size()),
        static_cast<int32_t>(steps.local.size()), static_cast<int32_t>(local_years.size())};
    // Where a search for a moment of each year can start.
    for (int32_t year = kStepFirstYear; year < kStepEndYear; ++year) {
      const int64_t start = pack(utc_fields(year, 1, 1, 0, 0, 0));
      size_t i = 0;
      while (i + 1 < steps.utc.size() && steps.utc[i + 1].first <= start) ++i;
      utc_years.push_back(static_cast<uint16_t>(i));
      size_t j = 0;
      while (j + 1 < steps.local.size() && std::get<0>(steps.local[j + 1]) <= 2 * start) ++j;
      local_years.push_back(static_cast<uint16_t>(j));
    }
    for (const auto &[key, outcome] : steps.utc) {
      utc_keys.push_back(key);
      utc_outcome_ids.push_back(outcome_id(outcome));
    }
    for (const auto &[position, clear, set] : steps.local) {
      local_keys.push_back(position);
      local_ids.push_back(LocalStepOffsets{offset_id(clear), offset_id(set)});
    }
  }
  if (outcomes.size() >= 0xFFFF || offsets.size() >= kNoLocalOffset)
    fail("too many distinct outcomes", "-");

  std::FILE *out = std::fopen(argv[1], "w");
  if (out == nullptr) fail("cannot write the output", "-");
  std::fprintf(out,
               "// Generated by tools/gen_tz_steps.cpp from the zone tables; do not edit.\n"
               "#include \"time/tz_steps.hpp\"\n\nnamespace orlix::time {\n\n");
  std::fprintf(out, "const UtcOffset g_utc_outcomes[] = {\n");
  for (const UtcOffset &d : outcomes)
    std::fprintf(out, "    {%d, %d, %d},\n", d.offset, d.save, d.kind);
  std::fprintf(out, "};\n\nconst int32_t g_local_offsets[] = {\n");
  for (int32_t o : offsets) std::fprintf(out, "    %d,\n", o);
  std::fprintf(out, "};\n\nconst uint16_t g_utc_year_steps[] = {\n");
  for (uint16_t y : utc_years) std::fprintf(out, "    %u,\n", y);
  std::fprintf(out, "};\n\nconst uint16_t g_local_year_steps[] = {\n");
  for (uint16_t y : local_years) std::fprintf(out, "    %u,\n", y);
  std::fprintf(out, "};\n\nconst int64_t g_utc_step_keys[] = {\n");
  for (int64_t k : utc_keys) std::fprintf(out, "    %" PRId64 ",\n", k);
  std::fprintf(out, "};\n\nconst uint16_t g_utc_step_outcomes[] = {\n");
  for (uint16_t o : utc_outcome_ids) std::fprintf(out, "    %u,\n", o);
  std::fprintf(out, "};\n\nconst int64_t g_local_step_keys[] = {\n");
  for (int64_t k : local_keys) std::fprintf(out, "    %" PRId64 ",\n", k);
  std::fprintf(out, "};\n\nconst LocalStepOffsets g_local_step_offsets[] = {\n");
  for (const LocalStepOffsets &o : local_ids)
    std::fprintf(out, "    {%u, %u},\n", o.dst_clear, o.dst_set);
  std::fprintf(out, "};\n\nconst ZoneSteps g_zone_steps[kZoneNameCount] = {\n");
  for (int32_t id = 0; id < kZoneNameCount; ++id)
    std::fprintf(out, "    {%d, %d, %d, %d, %d, %d},  // %s\n", index[id].utc_first,
                 index[id].utc_count, index[id].utc_years, index[id].local_first,
                 index[id].local_count, index[id].local_years, g_timezone_table[id].name);
  std::fprintf(out, "};\n\n}  // namespace orlix::time\n");
  if (std::fclose(out) != 0) fail("cannot write the output", "-");
  std::fprintf(stderr, "gen_tz_steps: %zu UTC steps, %zu local steps\n", utc_keys.size(),
               local_keys.size());
  return 0;
}
