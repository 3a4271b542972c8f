// Helpers shared by the Time suites: owning handles, readable renderings of
// values, independent calendar arithmetic (timegm) and a scratch system
// root for the zone detection.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>

#include "ORLIX_Time.h"
#include "time/ORLIX_Time.hpp"
#include "time/ORLIX_Time_System.hpp"
#include "time/ORLIX_Time_Zone.hpp"
#include "owned.hpp"

namespace time_test {

using TimePtr = orlix_test::TimePtr;

inline TimePtr Utc(int32_t y, int32_t mo, int32_t d, int32_t h = 0, int32_t mi = 0, int32_t s = 0,
                   int64_t ns = 0) {
  return TimePtr(orlix_time_newutctime(y, mo, d, h, mi, s, ns));
}

// "2016-12-31 23:59:60": the date and clock fields of a value.
inline std::string Clock(const ORLIX_Time *t) {
  if (t == nullptr) return "NULL";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", orlix_time_getyear(t),
                orlix_time_getmonth(t), orlix_time_getday(t), orlix_time_gethour(t),
                orlix_time_getminute(t), orlix_time_getsecond(t));
  return buf;
}
inline std::string Clock(const TimePtr &t) { return Clock(t.get()); }

// Every field, the flags included: "2016-12-31 23:59:60.000000000 utc dst=0 zone=414".
inline std::string Full(const ORLIX_Time *t) {
  if (t == nullptr) return "NULL";
  char buf[128];
  std::snprintf(buf, sizeof buf, "%s.%09lld %s dst=%u zone=%d", Clock(t).c_str(),
                static_cast<long long>(t->nanosecond), t->utc != 0 ? "utc" : "local", t->dst,
                t->zone);
  return buf;
}
inline std::string Full(const TimePtr &t) { return Full(t.get()); }

// POSIX seconds of a UTC date and time, from the C library.
inline int64_t Posix(int32_t y, int32_t mo, int32_t d, int32_t h = 0, int32_t mi = 0,
                     int32_t s = 0) {
  std::tm tm{};
  tm.tm_year = y - 1900;
  tm.tm_mon = mo - 1;
  tm.tm_mday = d;
  tm.tm_hour = h;
  tm.tm_min = mi;
  tm.tm_sec = s;
  return static_cast<int64_t>(timegm(&tm));
}

// The UTC value of POSIX seconds t (never a leap second).
inline TimePtr FromPosix(int64_t t) {
  const std::time_t tt = static_cast<std::time_t>(t);
  std::tm g;
  gmtime_r(&tt, &g);
  return Utc(g.tm_year + 1900, g.tm_mon + 1, g.tm_mday, g.tm_hour, g.tm_min, g.tm_sec);
}

// The leap seconds, each at 23:59:60 UTC of these dates.
struct LeapDate {
  int32_t year, month, day;
};
inline constexpr LeapDate kLeapDates[] = {
    {1972, 6, 30},  {1972, 12, 31}, {1973, 12, 31}, {1974, 12, 31}, {1975, 12, 31}, {1976, 12, 31},
    {1977, 12, 31}, {1978, 12, 31}, {1979, 12, 31}, {1981, 6, 30},  {1982, 6, 30},  {1983, 6, 30},
    {1985, 6, 30},  {1987, 12, 31}, {1989, 12, 31}, {1990, 12, 31}, {1992, 6, 30},  {1993, 6, 30},
    {1994, 6, 30},  {1995, 12, 31}, {1997, 6, 30},  {1998, 12, 31}, {2005, 12, 31}, {2008, 12, 31},
    {2012, 6, 30},  {2015, 6, 30},  {2016, 12, 31}};

// Leap seconds L (as POSIX seconds of the 23:59:59 before them) with
// from <= L < to: the leap seconds inside a POSIX span.
inline int64_t LeapSecondsIn(int64_t from, int64_t to) {
  int64_t n = 0;
  for (const LeapDate &l : kLeapDates) {
    const int64_t at = Posix(l.year, l.month, l.day, 23, 59, 59);
    if (at >= from && at < to) ++n;
  }
  return n;
}

// A scratch directory standing in for the system's root while it lives:
// the zone detection reads its etc/ files, and TZ is unset.
class SystemRoot {
 public:
  SystemRoot() {
    char dir[] = "/tmp/orlix_time_root_XXXXXX";
    if (mkdtemp(dir) != nullptr) path_ = dir;
    const char *tz = std::getenv("TZ");
    if (tz != nullptr) saved_tz_ = tz, had_tz_ = true;
    unsetenv("TZ");
    EXPECT_TRUE(orlix::time::set_system_root(path_.c_str()));
  }
  ~SystemRoot() {
    orlix::time::set_system_root(nullptr);
    if (had_tz_)
      setenv("TZ", saved_tz_.c_str(), 1);
    else
      unsetenv("TZ");
    std::system(("rm -rf '" + path_ + "'").c_str());
  }
  SystemRoot(const SystemRoot &) = delete;
  SystemRoot &operator=(const SystemRoot &) = delete;

  // Writes text to root + path (e.g. "/etc/timezone"), making directories.
  void Write(const std::string &path, const std::string &text) {
    MakeParents(path);
    std::ofstream(path_ + path, std::ios::binary) << text;
  }
  void Remove(const std::string &path) { unlink((path_ + path).c_str()); }
  void Link(const std::string &path, const std::string &target) {
    MakeParents(path);
    unlink((path_ + path).c_str());
    ASSERT_EQ(symlink(target.c_str(), (path_ + path).c_str()), 0);
  }
  const std::string &path() const { return path_; }

 private:
  void MakeParents(const std::string &path) {
    for (size_t i = 1; i < path.size(); ++i)
      if (path[i] == '/') mkdir((path_ + path.substr(0, i)).c_str(), 0755);
  }
  std::string path_;
  std::string saved_tz_;
  bool had_tz_ = false;
};

// Zone identifiers the suites use by name.
inline int32_t Zone(const char *name) { return orlix::time::orlix_time_gettimezoneidbyname(name); }

}  // namespace time_test
