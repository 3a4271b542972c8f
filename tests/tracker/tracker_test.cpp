// The debug allocation tracker, switched on by this program's own main before
// anything allocates through the library. Reports are checked byte for
// byte; the pieces a test does not control (running totals, bad frees
// remembered by earlier tests in the same process) are read from a report
// taken at the start of the test.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ORLIX_Util.h"
#include "core/debug_alloc.hpp"
#include "report.hpp"

namespace {

using tracker::Baseline;
using tracker::CorruptSection;
using tracker::Header;
using tracker::Pointer;

std::atomic<int> g_sleeps{0};

unsigned FakeSleep(unsigned) {
  ++g_sleeps;
  return 0;
}

Baseline Start() {
  const Baseline b = tracker::ParseBaseline(tracker::ReadReport());
  EXPECT_GE(b.alloc_count, 0) << "no report could be read";
  EXPECT_FALSE(b.has_leaks) << "an earlier test left a live block";
  return b;
}

std::string Dump(const unsigned char *p, size_t n) {
  std::string s = "\t\t";
  char buf[4];
  for (size_t i = 0; i < n; ++i) {
    std::snprintf(buf, sizeof buf, "%02X ", p[i]);
    s += buf;
  }
  return s + "\n";
}

std::string Entry(const void *p, long long seq, const char *module, int line, long long size) {
  char buf[256];
  std::snprintf(buf, sizeof buf, "\t%p(%lld):%s(%d)\t%lldbytes\n", p, seq, module, line, size);
  return buf;
}

TEST(Tracker, LeaksAreListedNewestFirstWithTheirBytes) {
  const Baseline b = Start();
  const int line_a = __LINE__ + 1;
  auto *a = static_cast<unsigned char *>(orlix_malloc(5, "tracker_test", line_a));
  const int line_z = __LINE__ + 1;
  void *z = orlix_malloc(0, "tracker/zero", line_z);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(z, nullptr);
  for (int i = 0; i < 5; ++i) a[i] = static_cast<unsigned char>(0x01 + i * 0x3F);

  const std::string expected = Header(b.alloc_count + 2, b.alloc_bytes + 5, std::max(b.peak, 5LL),
                                      b.free_count, b.free_bytes) +
                               "Memory leap: 5 bytes\n" +
                               Entry(z, b.alloc_count + 1, "tracker/zero", line_z, 0) + "\t\t\n" +
                               Entry(a, b.alloc_count, "tracker_test", line_a, 5) +
                               "\t\t01 40 7F BE FD \n" + "\n" + CorruptSection("", b);
  EXPECT_EQ(tracker::ReadReport(), expected);

  orlix_free(a);
  orlix_free(z);
  EXPECT_EQ(tracker::ReadReport(),
            Header(b.alloc_count + 2, b.alloc_bytes + 5, std::max(b.peak, 5LL), b.free_count + 2,
                   b.free_bytes + 5) +
                CorruptSection("", b));
}

TEST(Tracker, LargeLeakShowsOnlyItsFirst1024Bytes) {
  const Baseline b = Start();
  const int line = __LINE__ + 1;
  auto *p = static_cast<unsigned char *>(orlix_malloc(3000, "tracker_test", line));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 3000; ++i) p[i] = static_cast<unsigned char>(i * 7);
  const std::string expected = Header(b.alloc_count + 1, b.alloc_bytes + 3000,
                                      std::max(b.peak, 3000LL), b.free_count, b.free_bytes) +
                               "Memory leap: 3000 bytes\n" +
                               Entry(p, b.alloc_count, "tracker_test", line, 3000) + Dump(p, 1024) +
                               "\n" + CorruptSection("", b);
  EXPECT_EQ(tracker::ReadReport(), expected);
  orlix_free(p);
}

TEST(Tracker, OverrunIsReportedAndItsFreeRemembered) {
  const Baseline b = Start();
  const int line = __LINE__ + 1;
  auto *p = static_cast<unsigned char *>(orlix_malloc(4, "tracker/overrun", line));
  ASSERT_NE(p, nullptr);
  std::memset(p, 0xAB, 4);
  const unsigned char saved = p[4];
  p[4] = 0x00;  // one byte past the end

  char entry[256];
  std::snprintf(entry, sizeof entry, "\t%p(%lld):tracker/overrun(%d)----corrupt(bad tail)\n",
                static_cast<void *>(p), b.alloc_count, line);
  const std::string header = Header(b.alloc_count + 1, b.alloc_bytes + 4, std::max(b.peak, 4LL),
                                    b.free_count, b.free_bytes);
  const std::string leaks = std::string("Memory leap: 4 bytes\n") + entry + "\n";
  EXPECT_EQ(tracker::ReadReport(), header + leaks + CorruptSection("", b));

  orlix_free(p);
  const std::string bad = "\t" + Pointer(p) + "(bad tail)\n";
  EXPECT_EQ(tracker::ReadReport(), header + leaks + CorruptSection(bad, b));
  // The damaged block was left alone: still there, not zeroed.
  EXPECT_EQ(p[0], 0xAB);
  EXPECT_EQ(p[3], 0xAB);

  // Repaired, it frees normally.
  p[4] = saved;
  orlix_free(p);
  EXPECT_EQ(tracker::ReadReport(),
            Header(b.alloc_count + 1, b.alloc_bytes + 4, std::max(b.peak, 4LL), b.free_count + 1,
                   b.free_bytes + 4) +
                CorruptSection(bad, b));
}

TEST(Tracker, ForeignFreesAreRememberedWithTheirReasonAndLeftAlone) {
  const Baseline b = Start();
  // Pointers into the middle of a zeroed buffer: the tracker reads the 32
  // bytes before each (and what they point to), all inside the buffer.
  std::vector<unsigned char> buffer(4096, 0);
  unsigned char *zeros = buffer.data() + 1024;
  unsigned char *no_node = buffer.data() + 2048;
  unsigned char *other_node = buffer.data() + 3072;
  const uint32_t head_guard = 0xADDEADDEu;
  std::memcpy(no_node - 32, &head_guard, 4);

  // A header copied from a real block: its node describes another block.
  auto *real = static_cast<unsigned char *>(orlix_malloc(8, "tracker_test", __LINE__));
  ASSERT_NE(real, nullptr);
  std::memcpy(other_node - 32, real - 32, 32);

  const std::vector<unsigned char> before = buffer;
  orlix_free(zeros);
  orlix_free(no_node);
  orlix_free(other_node);
  EXPECT_EQ(buffer, before) << "a foreign block was written to";
  orlix_free(real);

  const std::string bad = "\t" + Pointer(other_node) + "(node mismatch)\n" + "\t" +
                          Pointer(no_node) + "(node field is null)\n" + "\t" + Pointer(zeros) +
                          "(bad head)\n";
  EXPECT_EQ(tracker::ReadReport(),
            Header(b.alloc_count + 1, b.alloc_bytes + 8, std::max(b.peak, 8LL), b.free_count + 1,
                   b.free_bytes + 8) +
                CorruptSection(bad, b));
}

TEST(Tracker, ModuleNamesAreCopied) {
  const Baseline b = Start();
  // The same text at different addresses, and a buffer changed after use:
  // the report shows the text as it was at allocation time.
  char first[] = "tracker/module";
  char second[] = "tracker/module";
  std::string changing = "tracker/changing";
  auto *p = static_cast<unsigned char *>(orlix_malloc(1, first, 10));
  auto *q = static_cast<unsigned char *>(orlix_malloc(1, second, 20));
  auto *r = static_cast<unsigned char *>(orlix_malloc(1, changing.c_str(), 30));
  ASSERT_TRUE(p != nullptr && q != nullptr && r != nullptr);
  *p = 1;
  *q = 2;
  *r = 3;
  std::memset(first, 'x', sizeof first - 1);
  std::memset(second, 'y', sizeof second - 1);
  changing.assign("zzzz");

  const std::string expected =
      Header(b.alloc_count + 3, b.alloc_bytes + 3, std::max(b.peak, 3LL), b.free_count,
             b.free_bytes) +
      "Memory leap: 3 bytes\n" + Entry(r, b.alloc_count + 2, "tracker/changing", 30, 1) +
      "\t\t03 \n" + Entry(q, b.alloc_count + 1, "tracker/module", 20, 1) + "\t\t02 \n" +
      Entry(p, b.alloc_count, "tracker/module", 10, 1) + "\t\t01 \n" + "\n" + CorruptSection("", b);
  EXPECT_EQ(tracker::ReadReport(), expected);
  orlix_free(p);
  orlix_free(q);
  orlix_free(r);
}

uint64_t Bucket(const std::string &s) {
  uint64_t h = 0;
  for (char c : s) h = h * 31 + static_cast<uint64_t>(static_cast<int8_t>(c));
  return h % 257;
}

TEST(Tracker, NamesSharingABucketStayApart) {
  const Baseline b = Start();
  // Find a second name that lands in the same interning bucket as the first.
  const std::string one = "tracker/b0";
  std::string two;
  for (int i = 1; i < 100000 && two.empty(); ++i) {
    const std::string candidate = "tracker/b" + std::to_string(i);
    if (Bucket(candidate) == Bucket(one)) two = candidate;
  }
  ASSERT_FALSE(two.empty());
  auto *p = static_cast<unsigned char *>(orlix_malloc(1, one.c_str(), 1));
  auto *q = static_cast<unsigned char *>(orlix_malloc(1, two.c_str(), 2));
  auto *r = static_cast<unsigned char *>(orlix_malloc(1, one.c_str(), 3));
  ASSERT_TRUE(p != nullptr && q != nullptr && r != nullptr);
  *p = *q = *r = 0xEE;
  const std::string expected =
      Header(b.alloc_count + 3, b.alloc_bytes + 3, std::max(b.peak, 3LL), b.free_count,
             b.free_bytes) +
      "Memory leap: 3 bytes\n" + Entry(r, b.alloc_count + 2, one.c_str(), 3, 1) + "\t\tEE \n" +
      Entry(q, b.alloc_count + 1, two.c_str(), 2, 1) + "\t\tEE \n" +
      Entry(p, b.alloc_count, one.c_str(), 1, 1) + "\t\tEE \n" + "\n" + CorruptSection("", b);
  EXPECT_EQ(tracker::ReadReport(), expected);
  orlix_free(q);  // from the middle of the list
  orlix_free(r);  // the head
  orlix_free(p);  // the last
  EXPECT_FALSE(tracker::ParseBaseline(tracker::ReadReport()).has_leaks);
}

TEST(Tracker, CountsAmountsAndPeak) {
  const Baseline b = Start();
  // Live bytes start at 0 here; a peak above any earlier one shows the rise.
  const long long big = b.peak + 100;
  void *x = orlix_malloc(big, "tracker_test", __LINE__);
  void *y = orlix_malloc(200, "tracker_test", __LINE__);
  ASSERT_TRUE(x != nullptr && y != nullptr);
  orlix_free(x);
  void *z = orlix_malloc(50, "tracker_test", __LINE__);
  ASSERT_NE(z, nullptr);
  orlix_free(y);
  orlix_free(z);
  EXPECT_EQ(tracker::ReadReport(), Header(b.alloc_count + 3, b.alloc_bytes + big + 250, big + 200,
                                          b.free_count + 3, b.free_bytes + big + 250) +
                                       CorruptSection("", b));
}

TEST(Tracker, RefusesOversizedRequestsAndNegativeSizes) {
  const Baseline b = Start();
  EXPECT_EQ(orlix_malloc(-1, "tracker_test", __LINE__), nullptr);
  EXPECT_EQ(orlix_malloc(INT64_MAX, "tracker_test", __LINE__), nullptr);
  EXPECT_EQ(orlix_malloc(0x7FFFFFFFFFFFFFDCll, "tracker_test", __LINE__), nullptr);
  EXPECT_EQ(orlix_malloc(8, nullptr, __LINE__), nullptr);
  EXPECT_EQ(tracker::ReadReport(),
            Header(b.alloc_count, b.alloc_bytes, b.peak, b.free_count, b.free_bytes) +
                CorruptSection("", b));
}

TEST(Tracker, ConcurrentAllocationsAreAllCounted) {
  const Baseline b = Start();
  constexpr int kPerThread = 2000;
  auto work = [] {
    for (int i = 0; i < kPerThread; ++i) {
      auto *p = static_cast<unsigned char *>(orlix_malloc(16, "tracker/threads", __LINE__));
      if (p == nullptr) continue;
      std::memset(p, i & 0xFF, 16);
      orlix_free(p);
    }
  };
  std::thread t1(work);
  std::thread t2(work);
  t1.join();
  t2.join();
  const Baseline after = tracker::ParseBaseline(tracker::ReadReport());
  EXPECT_EQ(after.alloc_count, b.alloc_count + 2 * kPerThread);
  EXPECT_EQ(after.free_count, b.free_count + 2 * kPerThread);
  EXPECT_EQ(after.free_bytes, b.free_bytes + 2 * 16 * kPerThread);
  EXPECT_FALSE(after.has_leaks);
  EXPECT_EQ(after.bad_free_lines, b.bad_free_lines);
}

TEST(Tracker, SecondInstallIsRefused) {
  void *p = orlix_malloc(1, "tracker_test", __LINE__);
  const ORLIX_MallocFunc hook = orlix_getmallocfunc();
  EXPECT_EQ(orlix_setdebugalloc(), 0);
  EXPECT_EQ(orlix_getmallocfunc(), hook);
  orlix_free(p);
}

TEST(Tracker, ReportToAnUnopenablePathFails) {
  const std::string path =
      (std::filesystem::temp_directory_path() / "orlix-no-such-dir" / "sub" / "report").string();
  EXPECT_EQ(orlix_printdebugalloc(path.c_str()), 0);
}

TEST(Tracker, NoStallWithoutTheVariable) {
  for (int i = 0; i < 10; ++i) orlix_free(orlix_malloc(1, "tracker_test", __LINE__));
  EXPECT_EQ(g_sleeps.load(), 0);
}

}  // namespace

int main(int argc, char **argv) {
  // The tracker must be on before the library's first allocation.
  unsetenv("ORLIX_DEBUG_MEMORY_NUMBER");
  orlix::debug::set_sleep_function(&FakeSleep);
  if (orlix_setdebugalloc() != 1) {
    std::fprintf(stderr, "the debug allocation tracker could not be switched on\n");
    return 1;
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
