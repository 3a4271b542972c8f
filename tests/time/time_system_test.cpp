// System zone detection, run against files under a scratch root (the
// machine's own /etc is never read): the order of the sources, the parsing
// of each file, TZ, the fallback, and that nothing is cached.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "time_test_util.hpp"

namespace {

using namespace time_test;
using orlix::time::getidfromfileTZ;
using orlix::time::orlix_time_gettimezoneid;

constexpr int32_t kUtc = 414;
constexpr int32_t kShanghai = 303;
constexpr int32_t kNewYork = 167;

TEST(time_system, NothingAnswersGivesUtc) {
  SystemRoot root;
  EXPECT_EQ(orlix_time_gettimezoneid(), kUtc);
  setenv("TZ", ":Asia/Tokyo", 1);  // the leading colon is not removed
  EXPECT_EQ(orlix_time_gettimezoneid(), kUtc);
  setenv("TZ", "Asia/Tokyo", 1);
  EXPECT_EQ(orlix_time_gettimezoneid(), Zone("Asia/Tokyo"));
  setenv("TZ", "PRC", 1);
  EXPECT_EQ(orlix_time_gettimezoneid(), kShanghai);
  setenv("TZ", "", 1);
  EXPECT_EQ(orlix_time_gettimezoneid(), kUtc);
}

TEST(time_system, EtcTimezone) {
  SystemRoot root;
  root.Write("/etc/timezone", "Asia/Shanghai\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kShanghai);
  root.Write("/etc/timezone", "\"Asia/Shanghai\"\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kShanghai);
  root.Write("/etc/timezone", "PRC");
  EXPECT_EQ(orlix_time_gettimezoneid(), kShanghai);
  root.Write("/etc/timezone", "# the zone\n#\nEurope/London\r\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), 441);
  // Only the first line that is not a comment counts.
  root.Write("/etc/timezone", "Nowhere/City\nEurope/London\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kUtc);
  // A quote that is not closed, blanks around the name, an empty file or
  // only comments: no answer here.
  for (const char *text : {"\"Asia/Shanghai\n", "Asia/Shanghai \n", " Asia/Shanghai\n", "",
                           "# only a comment\n", "\n"}) {
    root.Write("/etc/timezone", text);
    EXPECT_EQ(orlix_time_gettimezoneid(), kUtc) << text;
  }
  // A line of more than 255 characters is read in pieces; the first counts.
  root.Write("/etc/timezone", std::string(300, 'x') + "\nAsia/Shanghai\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kUtc);
}

TEST(time_system, TzFilesReadTheFirstTzLine) {
  SystemRoot root;
  const std::string file = root.path() + "/tzfile";
  auto read = [&](const std::string &text) {
    root.Write("/tzfile", text);
    return getidfromfileTZ(file.c_str());
  };
  EXPECT_EQ(getidfromfileTZ(file.c_str()), -1);  // no file
  EXPECT_EQ(read("TZ=Asia/Shanghai\n"), kShanghai);
  EXPECT_EQ(read("TZ = \t\"Asia/Shanghai\"\r\n"), kShanghai);
  EXPECT_EQ(read("# TZ=Europe/London\nLANG=C\nTZX=Europe/London\nTZ=PRC\n"), kShanghai);
  // The first TZ line decides, even when it names nothing.
  EXPECT_EQ(read("TZ=\"Asia/Shanghai\nTZ=Europe/London\n"), -1);
  EXPECT_EQ(read("TZ=Nowhere/City\nTZ=Europe/London\n"), -1);
  EXPECT_EQ(read("TZ=\nTZ=Europe/London\n"), -1);
  EXPECT_EQ(read("TZ=  \n"), -1);
  // Lines too short to be a candidate, or without "=", are passed over.
  EXPECT_EQ(read("TZ\nTZ Europe\nTZ=Europe/London\n"), 441);
  EXPECT_EQ(read("LANG=C\n"), -1);
  EXPECT_EQ(read(""), -1);
}

TEST(time_system, SysconfigClock) {
  SystemRoot root;
  root.Write("/etc/sysconfig/clock", "ZONE = \"America/New_York\"\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kNewYork);
  root.Write("/etc/sysconfig/clock", "# ZONE=Europe/London\nUTC=true\nTIMEZONE=\"PRC\"\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kShanghai);
  root.Write("/etc/sysconfig/clock", "ZONE=\tEurope/London\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), 441);
  root.Write("/etc/sysconfig/clock", "ZONES=Europe/London\nZONE=America/New_York\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kNewYork);
  // A missing closing quote, or an unknown zone, ends this source without
  // an answer: the search goes on to /etc/default/init and TZ.
  root.Write("/etc/sysconfig/clock", "ZONE=\"America/New_York\nZONE=Europe/London\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kUtc);
  root.Write("/etc/sysconfig/clock", "ZONE=Nowhere/City\n");
  root.Write("/etc/default/init", "TZ=Asia/Tokyo\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), Zone("Asia/Tokyo"));
  root.Remove("/etc/default/init");
  setenv("TZ", "Europe/Paris", 1);
  EXPECT_EQ(orlix_time_gettimezoneid(), Zone("Europe/Paris"));
}

TEST(time_system, SourcesInOrder) {
  SystemRoot root;
  setenv("TZ", "Europe/Paris", 1);
  root.Write("/etc/default/init", "TZ=Asia/Tokyo\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), Zone("Asia/Tokyo"));
  root.Write("/etc/sysconfig/clock", "ZONE=Europe/London\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), 441);
  root.Write("/etc/TIMEZONE", "TZ=America/New_York\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kNewYork);
  root.Write("/etc/timezone", "Asia/Shanghai\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kShanghai);
  // Every call reads the files again.
  root.Remove("/etc/timezone");
  EXPECT_EQ(orlix_time_gettimezoneid(), kNewYork);
  root.Remove("/etc/TIMEZONE");
  root.Remove("/etc/sysconfig/clock");
  root.Remove("/etc/default/init");
  EXPECT_EQ(orlix_time_gettimezoneid(), Zone("Europe/Paris"));
}

TEST(time_system, LocaltimeLinkIsNeverFollowed) {
  // The status call follows links, so /etc/localtime never reports one and
  // gives no answer, whatever it points to.
  SystemRoot root;
  root.Write("/usr/share/zoneinfo/Asia/Tokyo", "not read");
  root.Link("/etc/localtime", root.path() + "/usr/share/zoneinfo/Asia/Tokyo");
  EXPECT_EQ(orlix_time_gettimezoneid(), kUtc);
  root.Link("/etc/localtime", "/usr/share/zoneinfo/Asia/Tokyo");
  EXPECT_EQ(orlix_time_gettimezoneid(), kUtc);
  root.Write("/etc/timezone", "PRC\n");
  EXPECT_EQ(orlix_time_gettimezoneid(), kShanghai);
}

TEST(time_system, SystemZoneOperations) {
  SystemRoot root;
  root.Write("/etc/timezone", "Asia/Tokyo\n");
  const int32_t tokyo = Zone("Asia/Tokyo");
  TimePtr utc = Utc(2020, 1, 1, 0, 0, 0);
  TimePtr local(orlix_time_utc2local(utc.get()));
  EXPECT_EQ(Full(local), "2020-01-01 09:00:00.000000000 local dst=0 zone=" + std::to_string(tokyo));
  TimePtr built(orlix_time_newlocaltime(2020, 1, 1, 9, 0, 0, 0, 0));
  EXPECT_EQ(Full(built), Full(local));
  TimePtr now(orlix_time_nowlocaltime());
  ASSERT_NE(now, nullptr);
  EXPECT_EQ(now->zone, tokyo);
  EXPECT_EQ(orlix_time_utc2local(nullptr), nullptr);
  EXPECT_EQ(orlix_time_utc2local(local.get()), nullptr);
  // In UTC the system-zone operations answer in UTC.
  root.Write("/etc/timezone", "Etc/UTC\n");
  EXPECT_EQ(orlix_time_isutctime(TimePtr(orlix_time_utc2local(utc.get())).get()), 1);
  EXPECT_EQ(orlix_time_isutctime(TimePtr(orlix_time_newlocaltime(2020, 1, 1, 0, 0, 0, 0, 0)).get()),
            1);
  EXPECT_EQ(orlix_time_isutctime(TimePtr(orlix_time_nowlocaltime()).get()), 1);
}

TEST(time_system, RootTooLongIsRefused) {
  // The root is kept in PATH_MAX bytes, its NUL included.
  EXPECT_FALSE(orlix::time::set_system_root(std::string(5000, 'r').c_str()));
  EXPECT_FALSE(orlix::time::set_system_root(std::string(PATH_MAX, 'r').c_str()));
  EXPECT_TRUE(orlix::time::set_system_root(std::string(PATH_MAX - 1, 'r').c_str()));
  EXPECT_TRUE(orlix::time::set_system_root(nullptr));
}

}  // namespace
