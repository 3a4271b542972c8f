// Zone conversions: ours against glibc's localtime_r and mktime, with TZ set
// to the same zone, in nine zones (kZones). glibc reads the zones
// from the tz sources the library is built from, compiled with zic into a
// temporary directory at start-up, so that both sides use the same data
// (the system's zoneinfo may be of another release). Each iteration
// converts the same 10^6 instants spread over 1972..2037 (every 2082 seconds
// or so, so that every hour of the day and both sides of every transition
// are visited). Throughput is reported as conversions per second in the
// "bytes" field that scripts/run-bench.sh reads: one byte is one conversion.
// Before timing, main checks that both sides give the same answers.
#include <gnu/libc-version.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "ORLIX_Time.h"
#include "bench_common.hpp"
#include "time/ORLIX_Time_Zone.hpp"

namespace {

constexpr int64_t kInstants = 1000000;
constexpr int64_t kFirst = 63072000;  // 1972-01-01 00:00:00 UTC
constexpr int64_t kStep = 2082;       // 10^6 steps reach 2037-12-31

struct Zone {
  const char *name;
  int32_t id;  // looked up at start
};
// Northern and southern daylight saving, half-hour and large offsets, zones
// that dropped or changed their rules over the years.
Zone kZones[] = {{"America/New_York", -1},   {"America/Los_Angeles", -1},
                 {"America/Sao_Paulo", -1},  {"Europe/London", -1},
                 {"Europe/Berlin", -1},      {"Asia/Shanghai", -1},
                 {"Asia/Kolkata", -1},       {"Australia/Sydney", -1},
                 {"Pacific/Auckland", -1}};

const std::vector<std::time_t> &instants() {
  static const std::vector<std::time_t> v = [] {
    std::vector<std::time_t> out(kInstants);
    for (int64_t i = 0; i < kInstants; ++i)
      out[static_cast<size_t>(i)] = kFirst + i * kStep + (i * 7919) % kStep;
    return out;
  }();
  return v;
}

ORLIX_Time *utc_of(std::time_t t) {
  std::tm g;
  gmtime_r(&t, &g);
  return orlix_time_newutctime(g.tm_year + 1900, g.tm_mon + 1, g.tm_mday, g.tm_hour, g.tm_min,
                               g.tm_sec, 0);
}

struct Inputs {
  std::vector<ORLIX_Time *> utc;    // ours: the instants as UTC values
  std::vector<ORLIX_Time *> local;  // ours: their local times in the zone
  std::vector<std::tm> tm;          // glibc: localtime_r of each instant
};

// The directory zic compiled the zones into.
std::string &zone_dir() {
  static std::string dir;
  return dir;
}

bool compile_zones() {
  char dir[] = "/tmp/orlix_bench_time_XXXXXX";
  if (mkdtemp(dir) == nullptr) return false;
  zone_dir() = dir;
  std::string command = "zic -d '" + zone_dir() + "'";
  for (const char *file : {"africa", "antarctica", "asia", "australasia", "europe", "northamerica",
                           "southamerica", "etcetera", "backward"})
    command += std::string(" '") + ORLIX_TZDATA_DIR + "/" + file + "'";
  return std::system(command.c_str()) == 0;
}

void remove_zones() {
  if (!zone_dir().empty()) std::system(("rm -rf '" + zone_dir() + "'").c_str());
}

void use_zone(const char *name) {
  setenv("TZ", (zone_dir() + "/" + name).c_str(), 1);
  tzset();
}

// Inputs for both sides, built once per zone outside the timing.
const Inputs &inputs(const Zone &zone) {
  static Inputs cache[std::size(kZones)];
  Inputs &in = cache[&zone - kZones];
  if (!in.utc.empty()) return in;
  use_zone(zone.name);
  for (std::time_t t : instants()) {
    ORLIX_Time *u = utc_of(t);
    in.utc.push_back(u);
    in.local.push_back(orlix::time::orlix_time_utc2localbyid(u, zone.id));
    std::tm l;
    localtime_r(&t, &l);
    in.tm.push_back(l);
  }
  return in;
}

// ---- UTC to local -----------------------------------------------------------------
// Ours: orlix_time_utc2localbyid on a UTC value, a new record per call,
// released at once. glibc: localtime_r into a caller's struct tm.

void utc2local_ours(benchmark::State &state, const Zone &zone) {
  const Inputs &in = inputs(zone);
  bool ok = true;
  for (auto _ : state) {
    int64_t hours = 0;
    for (ORLIX_Time *u : in.utc) {
      ORLIX_Time *l = orlix::time::orlix_time_utc2localbyid(u, zone.id);
      ok &= l != nullptr;
      hours += orlix_time_gethour(l);
      orlix_time_free(l);
    }
    benchmark::DoNotOptimize(hours);
  }
  orlix_bench::finish(state, ok, kInstants);
}

void utc2local_glibc(benchmark::State &state, const Zone &zone) {
  inputs(zone);
  use_zone(zone.name);
  for (auto _ : state) {
    int64_t hours = 0;
    for (std::time_t t : instants()) {
      std::tm l;
      localtime_r(&t, &l);
      hours += l.tm_hour;
    }
    benchmark::DoNotOptimize(hours);
  }
  orlix_bench::finish(state, true, kInstants);
}

// ---- local to UTC -----------------------------------------------------------------
// Ours: orlix_time_local2utc on a local value whose dst flag tells the two
// readings of a repeated hour apart, a new record per call, released at
// once. glibc: mktime on a copy of the struct tm, tm_isdst set likewise.

void local2utc_ours(benchmark::State &state, const Zone &zone) {
  const Inputs &in = inputs(zone);
  bool ok = true;
  for (auto _ : state) {
    int64_t hours = 0;
    for (ORLIX_Time *l : in.local) {
      ORLIX_Time *u = orlix_time_local2utc(l);
      ok &= u != nullptr;
      hours += orlix_time_gethour(u);
      orlix_time_free(u);
    }
    benchmark::DoNotOptimize(hours);
  }
  orlix_bench::finish(state, ok, kInstants);
}

void local2utc_glibc(benchmark::State &state, const Zone &zone) {
  const Inputs &in = inputs(zone);
  use_zone(zone.name);
  bool ok = true;
  for (auto _ : state) {
    int64_t sum = 0;
    for (const std::tm &l : in.tm) {
      std::tm copy = l;
      const std::time_t t = mktime(&copy);
      ok &= t != static_cast<std::time_t>(-1);
      sum += t;
    }
    benchmark::DoNotOptimize(sum);
  }
  orlix_bench::finish(state, ok, kInstants);
}

// ---- agreement ---------------------------------------------------------------

// Within a day after a leap second our reading may be one second off the
// POSIX one (the library takes out a leap second that its offset step did
// not count); everywhere else the two sides must agree exactly.
bool near_leap_second(std::time_t t) {
  std::tm g;
  gmtime_r(&t, &g);
  const bool after_june = g.tm_mon == 6 && g.tm_mday == 1;
  const bool after_december = g.tm_mon == 0 && g.tm_mday == 1;
  const bool before = (g.tm_mon == 5 && g.tm_mday == 30) || (g.tm_mon == 11 && g.tm_mday == 31);
  return g.tm_year + 1900 <= 2017 && (after_june || after_december || before);
}

bool sides_agree() {
  bool ok = true;
  for (const Zone &zone : kZones) {
    const Inputs &in = inputs(zone);
    int64_t differ = 0;
    for (size_t i = 0; i < in.utc.size(); ++i) {
      const ORLIX_Time *l = in.local[i];
      const std::tm &g = in.tm[i];
      const bool same =
          l != nullptr && orlix_time_getyear(l) == g.tm_year + 1900 &&
          orlix_time_getmonth(l) == g.tm_mon + 1 && orlix_time_getday(l) == g.tm_mday &&
          orlix_time_gethour(l) == g.tm_hour && orlix_time_getminute(l) == g.tm_min &&
          orlix_time_getsecond(l) == g.tm_sec && orlix_time_isdst(l) == (g.tm_isdst > 0 ? 1 : 0);
      ORLIX_Time *back = orlix_time_local2utc(l);
      const bool round_trip = back != nullptr && orlix_time_gettime_t(back) == instants()[i];
      orlix_time_free(back);
      if (!same || !round_trip) {
        ++differ;
        if (!near_leap_second(instants()[i])) {
          std::fprintf(stderr, "bench_time: %s differs from glibc at %lld\n", zone.name,
                       static_cast<long long>(instants()[i]));
          ok = false;
        }
      }
    }
    if (ok)
      std::fprintf(stderr, "bench_time: %s: %lld readings next to leap seconds differ\n", zone.name,
                   static_cast<long long>(differ));
  }
  return ok;
}

}  // namespace

int main(int argc, char **argv) {
  for (Zone &zone : kZones) {
    zone.id = orlix::time::orlix_time_gettimezoneidbyname(zone.name);
    if (zone.id < 0) {
      std::fprintf(stderr, "bench_time: no zone %s\n", zone.name);
      return 1;
    }
  }
  if (!compile_zones()) {
    std::fprintf(stderr, "bench_time: zic could not compile the tz sources\n");
    remove_zones();
    return 1;
  }
  if (!sides_agree()) {
    remove_zones();
    return 1;
  }
  orlix_bench::note_peer("glibc", gnu_get_libc_version());
  for (const Zone &zone : kZones) {
    std::string name = zone.name;
    std::replace(name.begin(), name.end(), '/', '_');
    orlix_bench::register_pair(
        "utc2local/" + name, "glibc", [&zone](benchmark::State &s) { utc2local_ours(s, zone); },
        [&zone](benchmark::State &s) { utc2local_glibc(s, zone); });
    orlix_bench::register_pair(
        "local2utc/" + name, "glibc", [&zone](benchmark::State &s) { local2utc_ours(s, zone); },
        [&zone](benchmark::State &s) { local2utc_glibc(s, zone); });
  }
  const int status = orlix_bench::run(argc, argv);
  remove_zones();
  return status;
}
