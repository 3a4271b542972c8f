// The sweep's own main: the counting allocator must be in place before the
// library allocates anything, and the hooks cannot be changed afterwards.
#include <cstdio>

#include <gtest/gtest.h>

#include "fault_alloc.hpp"

// GMP's failures are injected as requests the allocator cannot meet, which
// must come back as NULL under AddressSanitizer too, as from the C library.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }

int main(int argc, char **argv) {
  if (!oom::InstallHooks()) {
    std::fprintf(stderr, "the library allocated before the test hooks could be installed\n");
    return 1;
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
