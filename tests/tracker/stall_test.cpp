// ORLIX_DEBUG_MEMORY_NUMBER, read when the tracker is switched on, picks the
// allocation (counting from 0) that stalls. Built once per value under test;
// ORLIX_STALL_NUMBER is the value and ORLIX_STALLED_ALLOCATION the
// allocation expected to stall (-1 for none).
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "ORLIX_Util.h"
#include "core/debug_alloc.hpp"

namespace {

std::vector<unsigned> g_sleeps;
long long g_allocations_before_sleep = -1;
long long g_allocations = 0;

unsigned FakeSleep(unsigned seconds) {
  g_sleeps.push_back(seconds);
  g_allocations_before_sleep = g_allocations;
  return 0;
}

TEST(TrackerStall, OnlyTheChosenAllocationStalls) {
  std::vector<void *> blocks;
  for (int i = 0; i < 6; ++i) {
    blocks.push_back(orlix_malloc(8, "tracker_stall", __LINE__));
    ASSERT_NE(blocks.back(), nullptr);
    ++g_allocations;
  }
  for (void *p : blocks) orlix_free(p);
  if (ORLIX_STALLED_ALLOCATION < 0) {
    EXPECT_TRUE(g_sleeps.empty());
  } else {
    ASSERT_EQ(g_sleeps.size(), 1u);
    EXPECT_EQ(g_sleeps[0], 3600u);
    EXPECT_EQ(g_allocations_before_sleep, ORLIX_STALLED_ALLOCATION);
  }
}

}  // namespace

int main(int argc, char **argv) {
  setenv("ORLIX_DEBUG_MEMORY_NUMBER", ORLIX_STALL_NUMBER, 1);
  orlix::debug::set_sleep_function(&FakeSleep);
  if (orlix_setdebugalloc() != 1) {
    std::fprintf(stderr, "the debug allocation tracker could not be switched on\n");
    return 1;
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
