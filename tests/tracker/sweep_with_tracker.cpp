// The allocation-sweep scenarios run once each, without injected failures,
// with the debug allocation tracker as the library's allocator. After every
// scenario the tracker's report must show no live block and no bad free:
// the guard words catch overruns and frees of foreign or damaged blocks that
// the counting hooks of the sweep cannot see.
//
// This file stands in for the sweep's own harness (sweep.cpp and
// fault_alloc.cpp): the same interface, with nothing counted or injected.
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "ORLIX_Util.h"
#include "fault_alloc.hpp"
#include "report.hpp"
#include "sweep.hpp"

namespace oom {

// Nothing is injected, so the harness's counters have nothing to say; the
// tracker's report takes their place.
bool InstallHooks() { return false; }
int64_t LiveBlocks() { return 0; }
std::string DescribeLiveBlocks(int) { return {}; }
int64_t BadFrees() { return 0; }
int64_t AllocationCalls() { return 0; }
void Arm(int64_t, bool) {}
void Disarm() {}
int64_t CountedAllocations() { return 0; }
bool FailureInjected() { return false; }
PauseInjection::PauseInjection() = default;
PauseInjection::~PauseInjection() = default;

void Sweep(const char *name, Scenario scenario, const Options &) {
  EXPECT_TRUE(scenario()) << name << " fails with the tracker as allocator";
  const std::string report = tracker::ReadReport();
  ASSERT_FALSE(report.empty()) << "no tracker report";
  EXPECT_EQ(report.find("Memory leap"), std::string::npos) << name << " left blocks:\n" << report;
  EXPECT_EQ(report.find("Memory corrupt"), std::string::npos)
      << name << " damaged or wrongly freed a block:\n"
      << report;
}

}  // namespace oom

int main(int argc, char **argv) {
  if (orlix_setdebugalloc() != 1) {
    std::fprintf(stderr, "the debug allocation tracker could not be switched on\n");
    return 1;
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
