// Once the library has allocated, the tracker can no longer be switched on.
#include <gtest/gtest.h>

#include "ORLIX_Util.h"

namespace {

TEST(TrackerRefused, AfterTheFirstAllocation) {
  const ORLIX_MallocFunc malloc_hook = orlix_getmallocfunc();
  const ORLIX_FreeFunc free_hook = orlix_getfreefunc();
  EXPECT_EQ(orlix_setdebugalloc(), 0);
  EXPECT_EQ(orlix_getmallocfunc(), malloc_hook);
  EXPECT_EQ(orlix_getfreefunc(), free_hook);
  // Blocks taken before still go back through the same pair.
  void *p = orlix_malloc(16, "tracker_refused", __LINE__);
  ASSERT_NE(p, nullptr);
  orlix_free(p);
}

}  // namespace

int main(int argc, char **argv) {
  orlix_free(orlix_malloc(8, "tracker_refused", __LINE__));
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
