// Time values: construction, zone conversion and arithmetic, each result a
// new record from the library's allocator. The system zone is read from a
// scratch root (etc/timezone naming Europe/London), never from the machine.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "ORLIX_Time.h"
#include "scenario_util.hpp"
#include "sweep.hpp"
#include "time/ORLIX_Time_System.hpp"
#include "time/ORLIX_Time_Zone.hpp"
#include "owned.hpp"

namespace {

using Time = orlix_test::TimePtr;

// The scratch root, made on first use and removed at exit.
class ScratchRoot {
 public:
  ScratchRoot() {
    char dir[] = "/tmp/orlix_oom_time_XXXXXX";
    if (mkdtemp(dir) == nullptr) return;
    path_ = dir;
    mkdir((path_ + "/etc").c_str(), 0755);
    if (std::FILE *f = std::fopen((path_ + "/etc/timezone").c_str(), "w")) {
      std::fputs("Europe/London\n", f);
      std::fclose(f);
    }
  }
  ~ScratchRoot() {
    orlix::time::set_system_root(nullptr);
    if (!path_.empty()) std::system(("rm -rf '" + path_ + "'").c_str());
  }
  void Use() const { orlix::time::set_system_root(path_.c_str()); }

 private:
  std::string path_;
};

void UseScratchRoot() {
  static const ScratchRoot root;
  root.Use();
}

std::string Clock(const ORLIX_Time *t) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", orlix_time_getyear(t),
                orlix_time_getmonth(t), orlix_time_getday(t), orlix_time_gethour(t),
                orlix_time_getminute(t), orlix_time_getsecond(t));
  return buf;
}

}  // namespace

// Every constructor, each failing on its record.
ORLIX_OOM_SCENARIO(Time, Construct) {
  UseScratchRoot();
  Time utc(orlix_time_newutctime(2016, 12, 31, 23, 59, 60, 5));
  if (!utc) return false;
  Time copy(orlix_time_dup(utc.get()));
  if (!copy) return false;
  Time now(orlix_time_nowutctime());
  if (!now) return false;
  Time skipped(orlix_time_newlocaltimebyzone("America/New_York", 2020, 3, 8, 2, 30, 0, 0, 0));
  if (!skipped) return false;
  Time system(orlix_time_newlocaltime(2020, 7, 1, 12, 0, 0, 0, 1));
  if (!system) return false;
  Time local_now(orlix_time_nowlocaltime());
  if (!local_now) return false;
  EXPECT_EQ(orlix_time_cmp(copy.get(), utc.get()), 0);
  EXPECT_EQ(Clock(skipped.get()), "2020-03-08 03:00:00");
  EXPECT_EQ(orlix_time_isdst(system.get()), 1);
  // A second 60 that is no leap second is refused without a leak.
  EXPECT_EQ(orlix_time_newutctime(2017, 12, 31, 23, 59, 60, 0), nullptr);
  return true;
}

// UTC to local and back, by name, identifier and the system's zone.
ORLIX_OOM_SCENARIO(Time, Convert) {
  UseScratchRoot();
  Time utc(orlix_time_newutctime(2016, 12, 31, 23, 59, 60, 0));
  if (!utc) return false;
  Time shanghai(orlix_time_utc2localbyzone("PRC", utc.get()));
  if (!shanghai) return false;
  Time london(orlix_time_utc2local(utc.get()));
  if (!london) return false;
  Time new_york(orlix::time::orlix_time_utc2localbyid(utc.get(), 167));
  if (!new_york) return false;
  Time back(orlix_time_local2utc(shanghai.get()));
  if (!back) return false;
  Time same(orlix::time::orlix_time_utc2localbyid(utc.get(), 414));
  if (!same) return false;
  EXPECT_EQ(Clock(shanghai.get()), "2017-01-01 07:59:60");
  EXPECT_EQ(Clock(back.get()), "2016-12-31 23:59:60");
  EXPECT_EQ(orlix_time_cmp(new_york.get(), shanghai.get()), 0);
  EXPECT_EQ(orlix_time_isleapsecond(shanghai.get()), 1);
  EXPECT_EQ(orlix_time_diffseconds(shanghai.get(), london.get()), 0);
  return true;
}

// The add operations on UTC values and on local ones (which go through UTC
// and come back in the system's zone), and the offset step.
ORLIX_OOM_SCENARIO(Time, Arithmetic) {
  UseScratchRoot();
  Time utc(orlix_time_newutctime(2016, 12, 31, 23, 59, 59, 0));
  if (!utc) return false;
  Time local(orlix_time_newlocaltimebyzone("Asia/Tokyo", 2020, 1, 31, 9, 0, 0, 0, 0));
  if (!local) return false;
  for (const ORLIX_Time *t : {utc.get(), local.get()}) {
    Time year(orlix_time_addyear(t, 1));
    if (!year) return false;
    Time month(orlix_time_addmonth(t, 1));
    if (!month) return false;
    Time day(orlix_time_addday(t, -1));
    if (!day) return false;
    Time hour(orlix_time_addhour(t, 25));
    if (!hour) return false;
    Time minute(orlix_time_addminute(t, -61));
    if (!minute) return false;
    Time second(orlix_time_addsecond(t, 1));
    if (!second) return false;
    Time save(orlix::time::orlix_time_addsave(t, -3601));
    if (!save) return false;
  }
  Time leap(orlix_time_addsecond(utc.get(), 1));
  if (!leap) return false;
  EXPECT_EQ(Clock(leap.get()), "2016-12-31 23:59:60");
  Time in_london(orlix_time_addmonth(local.get(), 1));
  if (!in_london) return false;
  EXPECT_EQ(Clock(in_london.get()), "2020-02-29 00:00:00");
  return true;
}
