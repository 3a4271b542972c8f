// The sweep's own main: the counting allocator must be in place before the
// library allocates anything, and the hooks cannot be changed afterwards.
#include <cstdio>

#include <gtest/gtest.h>

#include "fault_alloc.hpp"

int main(int argc, char **argv) {
  if (!oom::InstallHooks()) {
    std::fprintf(stderr, "the library allocated before the test hooks could be installed\n");
    return 1;
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
