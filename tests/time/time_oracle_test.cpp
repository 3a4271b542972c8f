// The library's zones against the C library's: the same tz sources are
// compiled with zic into a scratch directory, and for every one of the 582
// names, at instants from 1972 to 2037 (every fifth day or so, next to every
// leap second, and around every transition), orlix_time_utc2localbyid is compared with localtime_r
// under TZ=<dir>/<name>, and orlix_time_local2utc of localtime_r's reading
// (its dst flag telling a repeated hour apart) must give the instant back.
//
// Where the library differs, the difference must be one of these, each
// checked, counted and reported:
//
//  * Table conventions. The compiled table keeps three readings of the
//    sources on purpose: a negative offset such as "-3:30" has the sign on its
//    hours only (stored as -2:30; St. John's, Caracas, Monrovia, ...); a zone
//    row whose until is a weekday rule ("lastSun 2:00") keeps the until hour
//    in the weekday field and 0 as the hour; and the UTC search compares a
//    rule-following row's wall-clock until with utc + gmtoff (the save left
//    out) and a fixed-save row's with utc + save (gmtoff left out). A second
//    copy of the sources with these readings written out in zic's terms is
//    compiled as well, and the library must agree with it exactly (for
//    local2utc, whose row search reads wall-clock untils as zic does, the
//    copy has only the first two).
//  * Leap seconds. The offset step moves by whole minutes and then takes out
//    the leap seconds between the two readings as if it had counted them, so
//    within a day of a leap second a reading may be one second off.
//  * Row changes. Where a rule transition falls within an hour or two of the
//    moment a zone row ends, zic merges the two changes (it reads the
//    transition on the old row's clock, or lets the new row begin with it),
//    while the library reads each rule transition on the clock of the row
//    its own search puts in force: by UTC for utc2local, by the wall-clock
//    reading for local2utc, which takes a reading before the old row's until
//    as the old row's even where the new row has already repeated it. The
//    answers can differ within two hours on either side of the row change.
//  * Repeated readings (local to UTC). Where a wall-clock reading occurs
//    twice and the dst flag is the same both times, the library may return
//    the other instant; the test checks it reads the same.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ORLIX_Util.h"
#include "time/tz_data.hpp"
#include "time_test_util.hpp"

namespace {

using namespace time_test;
using orlix::time::g_timezone_table;
using orlix::time::kZoneNameCount;

const char *const kSourceFiles[] = {"africa",   "antarctica",   "asia",         "australasia",
                                    "europe",   "northamerica", "southamerica", "etcetera",
                                    "backward", "pacificnew"};

constexpr int64_t kFrom = 63072000;  // 1972-01-01 00:00:00 UTC
constexpr int64_t kTo = 2145916800;  // 2038-01-01 00:00:00 UTC

// ---- the sources with the table's readings written out --------------------------

std::vector<std::string> Split(const std::string &line) {
  std::istringstream in(line.substr(0, line.find('#')));
  return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// Seconds of "[-]h[:mm[:ss]]" with the sign on the hours only, as the table
// stores it.
int64_t StoredAmount(const std::string &text) {
  const bool negative = text[0] == '-';
  int h = 0, m = 0, s = 0;
  std::sscanf(text.c_str() + (negative ? 1 : 0), "%d:%d:%d", &h, &m, &s);
  return (negative ? -h : h) * 3600 + m * 60 + s;
}

std::string Amount(int64_t seconds) {
  char buf[32];
  const int64_t a = seconds < 0 ? -seconds : seconds;
  std::snprintf(buf, sizeof buf, "%s%lld:%02lld:%02lld", seconds < 0 ? "-" : "",
                static_cast<long long>(a / 3600), static_cast<long long>(a / 60 % 60),
                static_cast<long long>(a % 60));
  return buf;
}

int MonthOf(const std::string &name) {
  static const char *const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (int i = 0; i < 12; ++i)
    if (name.compare(0, 3, kMonths[i]) == 0) return i + 1;
  return 0;
}

int MonthLength(int y, int m) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = y % 400 == 0 || (y % 4 == 0 && y % 100 != 0);
  return m == 2 && leap ? 29 : kDays[m - 1];
}

// The day a weekday rule picks when the weekday field holds `weekday` (an
// hour, for zone rows): the last such weekday counted from the month's last
// day, with the day of week of dates before 1970 taken as the truncating
// remainder of the day count, as the table's reader does.
int RuleDay(int kind, int y, int m, int day, int weekday) {
  const int last = MonthLength(y, m);
  const int64_t days = Posix(y, m, last) / 86400;
  int w = static_cast<int>((days + 4) % 7);
  if (w == 0) w = 7;
  int l = w < weekday ? last - w + weekday - 7 : last - (w - weekday);
  if (kind == 2) {
    while (day <= l - 7) l -= 7;
  } else if (kind == 3) {
    while (day < l) l -= 7;
  }
  return l;
}

// A zone line's fields after the name (GMTOFF RULES FORMAT [UNTIL...]) as the
// table reads them. utc_side adds the UTC search's reading of wall-clock
// untils.
std::vector<std::string> ReadAsTheTable(std::vector<std::string> f, bool utc_side) {
  f[0] = Amount(StoredAmount(f[0]));
  if (f.size() <= 3) return f;
  const bool fixed = f[1] == "-" || isdigit(static_cast<unsigned char>(f[1][0])) || f[1][0] == '-';
  const int64_t save = f[1] == "-" || !fixed ? 0 : StoredAmount(f[1]);
  const int y = std::stoi(f[3]);
  const int m = f.size() > 4 ? MonthOf(f[4]) : 1;
  int d = 1, h = 0, mi = 0, s = 0;
  char suffix = 'w';
  if (f.size() > 6) {
    std::string at = f[6];
    if (isalpha(static_cast<unsigned char>(at.back()))) {
      suffix = static_cast<char>(tolower(at.back()));
      at.pop_back();
    }
    std::sscanf(at.c_str(), "%d:%d:%d", &h, &mi, &s);
    if (suffix == 'g' || suffix == 'z') suffix = 'u';
  }
  if (f.size() > 5) {
    const std::string &on = f[5];
    if (isdigit(static_cast<unsigned char>(on[0]))) {
      d = std::stoi(on);
    } else {
      // The until hour stands in the weekday field; the time is 0:00.
      int kind = 1, from = 0;
      if (on.find(">=") != std::string::npos)
        kind = 2, from = std::stoi(on.substr(on.find('=') + 1));
      if (on.find("<=") != std::string::npos)
        kind = 3, from = std::stoi(on.substr(on.find('=') + 1));
      d = RuleDay(kind, y, m, from, h);
      h = 0;
    }
  }
  int64_t until =
      Posix(y, m, 1) + (d > MonthLength(y, m) ? MonthLength(y, m) * 86400
                                              : (d - 1) * 86400 + h * 3600 + mi * 60 + s);
  if (utc_side && suffix == 'w') {
    if (fixed) {
      until -= save;
      suffix = 'u';
    } else {
      suffix = 's';
    }
  }
  const std::time_t tt = static_cast<std::time_t>(until);
  std::tm g;
  gmtime_r(&tt, &g);
  static const char *const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  char buf[64];
  std::snprintf(buf, sizeof buf, "%d:%02d:%02d%c", g.tm_hour, g.tm_min, g.tm_sec, suffix);
  f.resize(3);
  f.insert(f.end(),
           {std::to_string(g.tm_year + 1900), kMonths[g.tm_mon], std::to_string(g.tm_mday), buf});
  return f;
}

std::string Join(const std::vector<std::string> &f, size_t from) {
  std::string out;
  for (size_t i = from; i < f.size(); ++i) out += (i > from ? "\t" : "") + f[i];
  return out;
}

// Writes the sources with the table's readings into dir.
void WriteReadings(const std::string &dir, bool utc_side) {
  for (const char *name : kSourceFiles) {
    std::ifstream in(std::string(ORLIX_TZDATA_DIR) + "/" + name);
    std::ofstream out(dir + "/" + name);
    std::string line;
    bool continuing = false;
    while (std::getline(in, line)) {
      const std::vector<std::string> f = Split(line);
      if (f.empty()) continue;
      if (f[0] == "Zone") {
        const std::vector<std::string> rest(f.begin() + 2, f.end());
        out << "Zone\t" << f[1] << "\t" << Join(ReadAsTheTable(rest, utc_side), 0) << "\n";
        continuing = rest.size() > 3;
      } else if (f[0] == "Rule" || f[0] == "Link") {
        out << Join(f, 0) << "\n";
        continuing = false;
      } else if (continuing) {
        out << "\t\t\t" << Join(ReadAsTheTable(f, utc_side), 0) << "\n";
        continuing = f.size() > 3;
      }
    }
  }
}

bool Compile(const std::string &sources, const std::string &out) {
  std::string command = std::string("'") + ORLIX_ZIC + "' -d '" + out + "'";
  for (const char *name : kSourceFiles) command += " '" + sources + "/" + name + "'";
  return std::system((command + " 2>/dev/null").c_str()) == 0;
}

// ---- TZif transitions -----------------------------------------------------------

std::vector<int64_t> Transitions(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  const std::vector<unsigned char> d((std::istreambuf_iterator<char>(f)), {});
  auto be32 = [&](size_t o) {
    return static_cast<int64_t>(static_cast<int32_t>(static_cast<uint32_t>(d[o]) << 24 |
                                                     d[o + 1] << 16 | d[o + 2] << 8 | d[o + 3]));
  };
  std::vector<int64_t> out;
  if (d.size() < 44 || d[0] != 'T' || d[4] < '2') return out;
  const int64_t counts[] = {be32(20), be32(24), be32(28), be32(32), be32(36), be32(40)};
  const size_t v2 =
      44 + counts[3] * 5 + counts[4] * 6 + counts[5] + counts[2] * 8 + counts[1] + counts[0];
  if (d.size() < v2 + 44) return out;
  const int64_t n = be32(v2 + 32);
  for (int64_t i = 0; i < n && v2 + 44 + 8 * i + 8 <= d.size(); ++i) {
    int64_t v = 0;
    for (int k = 0; k < 8; ++k) v = v << 8 | d[v2 + 44 + 8 * i + k];
    out.push_back(v);
  }
  return out;
}

// ---- the comparison -----------------------------------------------------------------

struct Reading {
  std::tm fields;
  int64_t offset;
  bool dst;
};

Reading Read(int64_t t) {
  const std::time_t tt = static_cast<std::time_t>(t);
  Reading r;
  localtime_r(&tt, &r.fields);
  r.offset = r.fields.tm_gmtoff;
  r.dst = r.fields.tm_isdst > 0;
  return r;
}

bool SameClock(const std::tm &a, const std::tm &b) {
  return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
         a.tm_hour == b.tm_hour && a.tm_min == b.tm_min && a.tm_sec == b.tm_sec;
}

void UseZone(const std::string &dir, const char *name) {
  setenv("TZ", (dir + "/" + name).c_str(), 1);
  tzset();
}

// The local record of a reading, in zone.
TimePtr LocalOf(const Reading &r, int32_t zone) {
  auto *t = static_cast<ORLIX_Time *>(orlix_malloc(sizeof(ORLIX_Time), "time_oracle", __LINE__));
  *t = orlix::time::Time{r.fields.tm_year + 1900,
                         r.fields.tm_mon + 1,
                         r.fields.tm_mday,
                         r.fields.tm_hour,
                         r.fields.tm_min,
                         r.fields.tm_sec,
                         0,
                         0,
                         r.dst ? 1u : 0u,
                         zone};
  return TimePtr(t);
}

int64_t PosixOf(const TimePtr &utc) { return utc ? orlix_time_gettime_t(utc.get()) : INT64_MIN; }

// The library's offset (its reading minus the instant, in seconds of the
// fields) and dst flag.
bool LibraryReading(int64_t t, int32_t zone, int64_t *offset, bool *dst) {
  TimePtr local(orlix::time::orlix_time_utc2localbyid(FromPosix(t).get(), zone));
  if (local == nullptr) return false;
  *offset =
      Posix(local->year, local->month, local->day, local->hour, local->minute, local->second) - t;
  *dst = orlix_time_isdst(local.get()) == 1;
  return true;
}

// The instants where the library's UTC row search moves on to a later row
// (the search never moves back): found between samples two days apart by
// bisection on the row's position.
std::vector<int64_t> RowChanges(int32_t zone) {
  const orlix::time::ZoneName &z = g_timezone_table[zone];
  auto row_at = [&z](int64_t t) {
    const orlix::time::ZoneRow *row = orlix::time::find_row_utc(z, *FromPosix(t));
    return row == nullptr ? -1 : static_cast<int64_t>(row - z.rows);
  };
  std::vector<int64_t> out;
  int64_t prev_t = kFrom;
  int64_t prev = row_at(kFrom);
  for (int64_t t = kFrom + 2 * 86400; t <= kTo; t += 2 * 86400) {
    const int64_t row = row_at(t);
    for (int64_t k = prev; k < row; ++k) {
      int64_t lo = prev_t, hi = t;  // row_at(lo) <= k < row_at(hi)
      while (hi - lo > 1) {
        const int64_t mid = (lo + hi) / 2;
        (row_at(mid) <= k ? lo : hi) = mid;
      }
      if (out.empty() || out.back() != hi) out.push_back(hi);
    }
    prev_t = t;
    prev = row;
  }
  return out;
}

enum Category { kAgree, kConventions, kLeapSecond, kRowChange, kRepeated, kUnexplained, kCount };
const char *const kCategoryNames[] = {"agree",      "table conventions", "leap second",
                                      "row change", "repeated reading",  "unexplained"};

class time_oracle : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    char dir[] = "/tmp/orlix_time_oracle_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    root_ = dir;
    for (const char *sub : {"/sources-utc", "/sources-local"})
      ASSERT_EQ(mkdir((root_ + sub).c_str(), 0755), 0);
    WriteReadings(root_ + "/sources-utc", true);
    WriteReadings(root_ + "/sources-local", false);
    ASSERT_TRUE(Compile(ORLIX_TZDATA_DIR, root_ + "/plain")) << "zic failed on the tz sources";
    ASSERT_TRUE(Compile(root_ + "/sources-utc", root_ + "/utc"));
    ASSERT_TRUE(Compile(root_ + "/sources-local", root_ + "/local"));
  }
  static void TearDownTestSuite() {
    if (!root_.empty()) std::system(("rm -rf '" + root_ + "'").c_str());
    unsetenv("TZ");
    tzset();
  }
  static std::string root_;
};
std::string time_oracle::root_;

TEST_F(time_oracle, EveryZoneAgainstZicFrom1972To2037) {
  int64_t utc_counts[kCount] = {};
  int64_t local_counts[kCount] = {};
  int64_t reported = 0;
  std::vector<int64_t> leap_at;  // the POSIX second before each leap second
  for (const LeapDate &l : kLeapDates) leap_at.push_back(Posix(l.year, l.month, l.day, 23, 59, 59));
  for (int32_t zone = 0; zone < kZoneNameCount; ++zone) {
    const char *name = g_timezone_table[zone].name;
    std::vector<int64_t> instants;
    for (int64_t t = kFrom; t < kTo; t += 5 * 86400) instants.push_back(t + (t / 7919) % 86400);
    for (const char *variant : {"/plain/", "/utc/", "/local/"})
      for (int64_t tr : Transitions(root_ + variant + name))
        for (int64_t d : {-3601, -3600, -61, -1, 0, 1, 3599, 7199})
          if (tr + d >= kFrom && tr + d < kTo) instants.push_back(tr + d);
    for (int64_t at : leap_at)
      for (int64_t d : {-50400, -28800, -3600, 1, 3600, 18000, 36000}) instants.push_back(at + d);
    std::sort(instants.begin(), instants.end());
    instants.erase(std::unique(instants.begin(), instants.end()), instants.end());
    const size_t n = instants.size();

    std::vector<Reading> plain(n), utc_side(n), local_side(n);
    UseZone(root_ + "/plain", name);
    for (size_t i = 0; i < n; ++i) plain[i] = Read(instants[i]);
    UseZone(root_ + "/utc", name);
    for (size_t i = 0; i < n; ++i) utc_side[i] = Read(instants[i]);
    UseZone(root_ + "/local", name);
    for (size_t i = 0; i < n; ++i) local_side[i] = Read(instants[i]);
    const std::vector<int64_t> changes = RowChanges(zone);
    auto near_change = [&changes](int64_t t) {
      return std::any_of(changes.begin(), changes.end(),
                         [t](int64_t ch) { return t >= ch - 2 * 3600 && t < ch + 2 * 3600; });
    };

    for (size_t i = 0; i < n; ++i) {
      const int64_t t = instants[i];
      const bool near_leap = std::any_of(leap_at.begin(), leap_at.end(), [t](int64_t at) {
        return at >= t - 86400 && at < t + 86400;
      });

      // UTC to local.
      int64_t offset = 0;
      bool dst = false;
      Category c = kUnexplained;
      if (!LibraryReading(t, zone, &offset, &dst)) {
        c = kUnexplained;
      } else if (offset == plain[i].offset && dst == plain[i].dst) {
        c = kAgree;
      } else if (offset == utc_side[i].offset && dst == utc_side[i].dst) {
        c = kConventions;
      } else if (near_leap && std::abs(offset - utc_side[i].offset) == 1 &&
                 dst == utc_side[i].dst) {
        c = kLeapSecond;
      } else if (near_change(t)) {
        c = kRowChange;
      }
      ++utc_counts[c];
      if (c == kUnexplained && reported++ < 40)
        ADD_FAILURE() << name << " at " << t << ": library offset " << offset << " dst " << dst
                      << ", zic " << plain[i].offset << " dst " << plain[i].dst;

      // Local to UTC, from zic's reading.
      c = kUnexplained;
      const int64_t back = PosixOf(TimePtr(orlix_time_local2utc(LocalOf(plain[i], zone).get())));
      if (back == t) {
        c = kAgree;
      } else {
        const int64_t from_local =
            PosixOf(TimePtr(orlix_time_local2utc(LocalOf(local_side[i], zone).get())));
        if (from_local == t) {
          c = kConventions;
        } else if (from_local != INT64_MIN &&
                   SameClock(Read(from_local).fields, local_side[i].fields)) {
          c = kRepeated;
        } else if (near_leap && std::abs(from_local - t) == 1) {
          c = kLeapSecond;
        } else if (near_change(t)) {
          c = kRowChange;
        }
      }
      ++local_counts[c];
      if (c == kUnexplained && reported++ < 40)
        ADD_FAILURE() << name << " at " << t << ": local2utc of zic's reading gives " << back;
    }
  }
  std::string summary = "orlix_time_utc2localbyid against zic:";
  for (int c = 0; c < kCount; ++c)
    summary += std::string(" ") + kCategoryNames[c] + " " + std::to_string(utc_counts[c]) + ";";
  summary += "\norlix_time_local2utc against zic:";
  for (int c = 0; c < kCount; ++c)
    summary += std::string(" ") + kCategoryNames[c] + " " + std::to_string(local_counts[c]) + ";";
  std::printf("%s\n", summary.c_str());
  RecordProperty("summary", summary);
  EXPECT_EQ(utc_counts[kUnexplained], 0);
  EXPECT_EQ(local_counts[kUnexplained], 0);
  // Most readings agree outright.
  EXPECT_GT(utc_counts[kAgree],
            50 * (utc_counts[kConventions] + utc_counts[kLeapSecond] + utc_counts[kRowChange]));
  EXPECT_GT(local_counts[kAgree], 50 * (local_counts[kConventions] + local_counts[kLeapSecond] +
                                        local_counts[kRepeated]));
}

}  // namespace
