// orlix time: the current time, conversion between zones, and the compiled
// zone database.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli.hpp"

namespace cli {
namespace {

struct TimeValue {
  ORLIX_Time *t = nullptr;
  explicit TimeValue(ORLIX_Time *p) : t(p) {}
  ~TimeValue() { orlix_time_free(t); }
  TimeValue(const TimeValue &) = delete;
  TimeValue &operator=(const TimeValue &) = delete;
};

constexpr const char kTimeUsage[] =
    "usage: orlix time now [--zone NAME]\n"
    "       orlix time convert [--from ZONE] [--to ZONE] TIME\n"
    "       orlix time zones\n"
    "       orlix time system-zone\n"
    "Times are written as 'YYYY-MM-DD hh:mm:ss+hh:mm ZONE', with ' (DST)' in\n"
    "summer time. 'now' gives the time in the zone that --zone or else TZ names\n"
    "(UTC when neither does). TIME is ISO 8601, 'YYYY-MM-DD hh:mm:ss' or\n"
    "'YYYY-MM-DDThh:mm:ss', read in the --from zone (UTC by default) or, when it\n"
    "ends with Z or a UTC offset (+hh:mm, +hhmm, +hh), at that offset. Zones\n"
    "are those of the compiled database (\"UTC\", \"Europe/London\", ...; see\n"
    "'orlix time zones'). A UTC second 60 is a leap second where one was inserted.\n";

bool known_zone(std::string_view name) {
  for (int32_t id = 0; id < orlix_time_getzonecount(); ++id)
    if (name == orlix_time_getzonename(id)) return true;
  return false;
}

// Days since 1970-01-01 of a date of the proleptic Gregorian calendar.
int64_t days_from_civil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

// The date of a day count from 1970-01-01.
void civil_from_days(int64_t z, int32_t *y, int32_t *m, int32_t *d) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  *d = static_cast<int32_t>(doy - (153 * mp + 2) / 5 + 1);
  *m = static_cast<int32_t>(mp < 10 ? mp + 3 : mp - 9);
  *y = static_cast<int32_t>(yoe + era * 400 + (*m <= 2));
}

int32_t days_in_month(int32_t y, int32_t m) {
  static constexpr int32_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  return m == 2 && leap ? 29 : kDays[m - 1];
}

// Seconds of a wall-clock reading since 1970-01-01 00:00:00 of the same
// clock, leap seconds not counted (a second 60 counts as the next one).
int64_t wall_seconds(const ORLIX_Time *t) {
  return days_from_civil(orlix_time_getyear(t), orlix_time_getmonth(t), orlix_time_getday(t)) *
             86400 +
         orlix_time_gethour(t) * 3600 + orlix_time_getminute(t) * 60 + orlix_time_getsecond(t);
}

// "YYYY-MM-DD hh:mm:ss+hh:mm <zone>[ (DST)]" and a line feed, for the local
// reading t of the UTC time utc. The offset is the difference of the two
// readings (+hh:mm:ss for the old local mean times that have seconds).
std::string format(const ORLIX_Time *t, const ORLIX_Time *utc) {
  const int64_t offset = wall_seconds(t) - wall_seconds(utc);
  const int64_t magnitude = offset < 0 ? -offset : offset;
  char zone_offset[16];
  std::snprintf(zone_offset, sizeof zone_offset, "%c%02d:%02d", offset < 0 ? '-' : '+',
                static_cast<int>(magnitude / 3600), static_cast<int>(magnitude / 60 % 60));
  if (magnitude % 60 != 0)
    std::snprintf(zone_offset + 6, sizeof zone_offset - 6, ":%02d",
                  static_cast<int>(magnitude % 60));
  char line[160];
  const char *zone = orlix_time_getzonename(orlix_time_getzoneid(t));
  std::snprintf(line, sizeof line, "%04d-%02d-%02d %02d:%02d:%02d%s %s%s\n", orlix_time_getyear(t),
                orlix_time_getmonth(t), orlix_time_getday(t), orlix_time_gethour(t),
                orlix_time_getminute(t), orlix_time_getsecond(t), zone_offset,
                zone != nullptr ? zone : "?", orlix_time_isdst(t) ? " (DST)" : "");
  return line;
}

// An ISO 8601 time: the six fields and, when it names one, the UTC offset
// in minutes.
struct Moment {
  int32_t f[6];
  bool has_offset = false;
  int32_t offset = 0;
};

// Parses "YYYY-MM-DD hh:mm:ss" (a 'T' may stand for the space), optionally
// followed by Z or an offset +hh:mm, +hhmm or +hh (or with -).
bool parse_moment(std::string_view text, Moment *m) {
  if (text.size() < 19) return false;
  const size_t at[6] = {0, 5, 8, 11, 14, 17};
  const size_t width[6] = {4, 2, 2, 2, 2, 2};
  for (int k = 0; k < 6; ++k) {
    int64_t v = 0;
    const std::string_view digits = text.substr(at[k], width[k]);
    if (digits[0] == '-' || !parse_int(digits, 0, 9999, &v)) return false;
    m->f[k] = static_cast<int32_t>(v);
  }
  const char sep = text[10];
  if (text[4] != '-' || text[7] != '-' || (sep != ' ' && sep != 'T' && sep != 't') ||
      text[13] != ':' || text[16] != ':')
    return false;
  std::string_view zone = text.substr(19);
  if (zone.empty()) return true;
  m->has_offset = true;
  if (zone == "Z" || zone == "z") return true;
  if (zone[0] != '+' && zone[0] != '-') return false;
  const int sign = zone[0] == '-' ? -1 : 1;
  std::string digits(zone.substr(1));
  if (digits.size() == 5 && digits[2] == ':') digits.erase(2, 1);
  if (digits.size() != 2 && digits.size() != 4) return false;
  for (const char c : digits)
    if (c < '0' || c > '9') return false;
  const int32_t hours = (digits[0] - '0') * 10 + (digits[1] - '0');
  const int32_t minutes = digits.size() == 4 ? (digits[2] - '0') * 10 + (digits[3] - '0') : 0;
  if (hours > 23 || minutes > 59) return false;
  m->offset = sign * (hours * 60 + minutes);
  return true;
}

// The UTC time of a moment that carries its offset, or nullptr when the
// reading is not a date and time of the calendar (or no such UTC time
// exists, as a second 60 that was no leap second).
ORLIX_Time *utc_of(const Moment &m) {
  const int32_t *f = m.f;
  if (f[1] < 1 || f[1] > 12 || f[2] < 1 || f[2] > days_in_month(f[0], f[1]) || f[3] > 23 ||
      f[4] > 59 || f[5] > 60)
    return nullptr;
  // Shift the minutes; the second (60 for a leap second) stays as it is.
  const int64_t minutes = days_from_civil(f[0], f[1], f[2]) * 1440 + f[3] * 60 + f[4] - m.offset;
  const int64_t days = minutes >= 0 ? minutes / 1440 : (minutes - 1439) / 1440;
  const int64_t in_day = minutes - days * 1440;
  int32_t y, mo, d;
  civil_from_days(days, &y, &mo, &d);
  return orlix_time_newutctime(y, mo, d, static_cast<int32_t>(in_day / 60),
                               static_cast<int32_t>(in_day % 60), f[5], 0);
}

int show(const ORLIX_Time *t, const ORLIX_Time *utc) {
  if (t == nullptr || utc == nullptr) return failure("time", "cannot read or convert the time");
  return write_output(format(t, utc)) ? kOk : failure("time", "cannot write standard output");
}

// The zone that TZ names, as date reads it: unset, empty or a UTC name
// give UTC (""), a leading ':' and a path into a zoneinfo directory are
// dropped. false when TZ names something the compiled database lacks (a
// POSIX rule string, say): better refused than shown in another zone.
bool zone_from_tz(std::string *zone) {
  const char *tz = std::getenv("TZ");
  std::string name = tz != nullptr ? tz : "";
  if (!name.empty() && name[0] == ':') name.erase(0, 1);
  if (const size_t at = name.rfind("zoneinfo/"); at != std::string::npos) name.erase(0, at + 9);
  if (name.rfind("posix/", 0) == 0) name.erase(0, 6);
  for (const char *utc : {"", "UTC0", "GMT0", "UTC+0", "UTC-0", "GMT+0", "GMT-0"}) {
    if (name == utc) {
      zone->clear();
      return true;
    }
  }
  *zone = name;
  return known_zone(name);
}

int now(const std::vector<std::string_view> &args) {
  std::string zone;
  bool named = false;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--zone" && i + 1 < args.size()) {
      zone = std::string(args[++i]);
      named = true;
    } else {
      return usage_error("time", std::string("unexpected argument ") + std::string(args[i]));
    }
  }
  if (named && !known_zone(zone)) return failure("time", "unknown zone " + zone);
  if (!named && !zone_from_tz(&zone))
    return failure(
        "time", "TZ=" + std::string(std::getenv("TZ")) + " names no zone of the compiled database");
  TimeValue utc(orlix_time_nowutctime());
  if (zone.empty()) return show(utc.t, utc.t);
  TimeValue local(orlix_time_utc2localbyzone(zone.c_str(), utc.t));
  return show(local.t, utc.t);
}

int convert(const std::vector<std::string_view> &args) {
  std::string from, to;
  std::string_view text;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--from" && i + 1 < args.size()) from = std::string(args[++i]);
    else if (args[i] == "--to" && i + 1 < args.size()) to = std::string(args[++i]);
    else if (text.empty() && !args[i].empty() && args[i][0] != '-')
      text = args[i];
    else return usage_error("time", std::string("unexpected argument ") + std::string(args[i]));
  }
  Moment m;
  if (!parse_moment(text, &m))
    return usage_error("time",
                       "expects a time as 'YYYY-MM-DD hh:mm:ss' or ISO 8601 "
                       "'YYYY-MM-DDThh:mm:ss[Z|+hh:mm]'");
  if (m.has_offset && !from.empty())
    return usage_error("time", "--from and a time with its own UTC offset exclude each other");
  for (const std::string &z : {from, to})
    if (!z.empty() && !known_zone(z)) return failure("time", "unknown zone " + z);
  const int32_t *f = m.f;
  TimeValue start(m.has_offset   ? utc_of(m)
                  : from.empty() ? orlix_time_newutctime(f[0], f[1], f[2], f[3], f[4], f[5], 0)
                                 : orlix_time_newlocaltimebyzone(from.c_str(), f[0], f[1], f[2],
                                                                 f[3], f[4], f[5], 0, 0));
  if (start.t == nullptr)
    return failure("time", std::string(text) + " is not a valid time" +
                               (m.has_offset   ? ""
                                : from.empty() ? " in UTC"
                                               : " in " + from));
  TimeValue utc(from.empty() ? orlix_time_dup(start.t) : orlix_time_local2utc(start.t));
  if (to.empty()) return show(utc.t, utc.t);
  TimeValue target(orlix_time_utc2localbyzone(to.c_str(), utc.t));
  return show(target.t, utc.t);
}

int run_time(std::vector<std::string_view> args) {
  for (const std::string_view a : args)
    if (is_help(a)) return std::fputs(kTimeUsage, stdout), kOk;
  if (args.empty()) return usage_error("time", "expects now, convert, zones or system-zone");
  const std::string_view what = args[0];
  args.erase(args.begin());
  if (what == "now") return now(args);
  if (what == "convert") return convert(args);
  if (what == "zones" || what == "system-zone") {
    if (!args.empty()) return usage_error("time", std::string(what) + " takes no arguments");
    std::string out;
    if (what == "system-zone") {
      out = std::string(orlix_time_getzonename(orlix_time_getsystemzoneid())) + "\n";
    } else {
      char line[96];
      for (int32_t id = 0; id < orlix_time_getzonecount(); ++id) {
        std::snprintf(line, sizeof line, "%3d %s\n", id, orlix_time_getzonename(id));
        out += line;
      }
    }
    return write_output(out) ? kOk : failure("time", "cannot write standard output");
  }
  return usage_error("time", "expects now, convert, zones or system-zone");
}

}  // namespace

int time_command(std::vector<std::string_view> a) { return run_time(std::move(a)); }

}  // namespace cli
