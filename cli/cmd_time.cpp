// orlix time: the current time, conversion between zones, and the compiled
// zone database.
#include <cstdio>
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
    "       orlix time convert [--from ZONE] [--to ZONE] 'YYYY-MM-DD hh:mm:ss'\n"
    "       orlix time zones\n"
    "       orlix time system-zone\n"
    "Times are UTC unless a zone of the compiled database is named (\"UTC\",\n"
    "\"Europe/London\", ...). A UTC second 60 is a leap second where one was\n"
    "inserted. 'orlix time zones' lists the names with their identifiers.\n";

bool known_zone(std::string_view name) {
  for (int32_t id = 0; id < orlix_time_getzonecount(); ++id)
    if (name == orlix_time_getzonename(id)) return true;
  return false;
}

// "YYYY-MM-DD hh:mm:ss <zone>[ (DST)]" and a line feed.
std::string format(const ORLIX_Time *t) {
  char line[128];
  const char *zone = orlix_time_getzonename(orlix_time_getzoneid(t));
  std::snprintf(line, sizeof line, "%04d-%02d-%02d %02d:%02d:%02d %s%s\n", orlix_time_getyear(t),
                orlix_time_getmonth(t), orlix_time_getday(t), orlix_time_gethour(t),
                orlix_time_getminute(t), orlix_time_getsecond(t), zone != nullptr ? zone : "?",
                orlix_time_isdst(t) ? " (DST)" : "");
  return line;
}

// Parses "YYYY-MM-DD hh:mm:ss" (a 'T' may stand for the space).
bool parse_moment(std::string_view text, int32_t f[6]) {
  if (text.size() != 19) return false;
  const size_t at[6] = {0, 5, 8, 11, 14, 17};
  const size_t width[6] = {4, 2, 2, 2, 2, 2};
  for (int k = 0; k < 6; ++k) {
    int64_t v = 0;
    if (!parse_int(text.substr(at[k], width[k]), 0, 9999, &v)) return false;
    f[k] = static_cast<int32_t>(v);
  }
  return text[4] == '-' && text[7] == '-' && (text[10] == ' ' || text[10] == 'T') &&
         text[13] == ':' && text[16] == ':';
}

int show(const ORLIX_Time *t) {
  if (t == nullptr) return failure("time", "cannot read or convert the time");
  return write_output(format(t)) ? kOk : failure("time", "cannot write standard output");
}

int now(const std::vector<std::string_view> &args) {
  std::string zone;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--zone" && i + 1 < args.size()) zone = std::string(args[++i]);
    else return usage_error("time", std::string("unexpected argument ") + std::string(args[i]));
  }
  if (!zone.empty() && !known_zone(zone)) return failure("time", "unknown zone " + zone);
  TimeValue utc(orlix_time_nowutctime());
  if (zone.empty()) return show(utc.t);
  TimeValue local(orlix_time_utc2localbyzone(zone.c_str(), utc.t));
  return show(local.t);
}

int convert(const std::vector<std::string_view> &args) {
  std::string from, to;
  std::string_view moment;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--from" && i + 1 < args.size()) from = std::string(args[++i]);
    else if (args[i] == "--to" && i + 1 < args.size()) to = std::string(args[++i]);
    else if (moment.empty() && !args[i].empty() && args[i][0] != '-') moment = args[i];
    else return usage_error("time", std::string("unexpected argument ") + std::string(args[i]));
  }
  int32_t f[6];
  if (!parse_moment(moment, f)) return usage_error("time", "expects a time as 'YYYY-MM-DD hh:mm:ss'");
  for (const std::string &z : {from, to})
    if (!z.empty() && !known_zone(z)) return failure("time", "unknown zone " + z);
  TimeValue start(from.empty()
                      ? orlix_time_newutctime(f[0], f[1], f[2], f[3], f[4], f[5], 0)
                      : orlix_time_newlocaltimebyzone(from.c_str(), f[0], f[1], f[2], f[3], f[4],
                                                      f[5], 0, 0));
  if (start.t == nullptr)
    return failure("time", std::string(moment) + " is not a valid time" +
                               (from.empty() ? " in UTC" : " in " + from));
  TimeValue utc(from.empty() ? orlix_time_dup(start.t) : orlix_time_local2utc(start.t));
  if (to.empty()) return show(utc.t);
  TimeValue target(orlix_time_utc2localbyzone(to.c_str(), utc.t));
  return show(target.t);
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
