#include "sweep.hpp"

#include <cstdio>

namespace oom {
namespace {

struct Run {
  bool completed;
  bool injected;
  int64_t allocations;
};

Run RunOnce(Scenario scenario, int64_t fail_at, bool sticky, const Options &options) {
  ArmGmp(options.gmp);
  Arm(fail_at, sticky);
  const bool completed = scenario();
  Run run{completed, FailureInjected(), CountedAllocations()};
  Disarm();
  ArmGmp(false);
  EXPECT_LE(StrandedGmpBlocks(), run.injected ? options.gmp_temporaries : 0)
      << "GMP blocks left behind";
  ReleaseStrandedGmpBlocks();
  return run;
}

// Checks what every run must leave behind. Returns false once a check failed,
// so that a broken scenario stops after its first bad run.
bool CheckAftermath(int64_t live_before, int64_t bad_frees_before) {
  EXPECT_EQ(LiveBlocks(), live_before) << "blocks still live after the scenario's cleanup:\n"
                                       << DescribeLiveBlocks();
  EXPECT_EQ(BadFrees(), bad_frees_before) << "freed a block the allocator never handed out";
  return !::testing::Test::HasFailure();
}

}  // namespace

void Sweep(const char *name, Scenario scenario, const Options &options) {
  // Blocks leaked by an earlier test have failed that test already; count
  // from here so that they are not blamed on this scenario as well.
  const int64_t live_before = LiveBlocks();
  const int64_t bad_frees_before = BadFrees();

  int64_t runs = 1;
  const Run clean = [&] {
    SCOPED_TRACE("run without injected failures");
    const Run run = RunOnce(scenario, 0, false, options);
    EXPECT_TRUE(run.completed) << name << " fails with nothing injected";
    return run;
  }();
  if (!CheckAftermath(live_before, bad_frees_before)) return;

  for (const bool sticky : {false, true}) {
    for (int64_t k = 1;; ++k) {
      SCOPED_TRACE(testing::Message()
                   << "allocation " << k << (sticky ? " and all after it" : "") << " failing");
      ASSERT_LE(k, options.max_allocations) << name << " never stops allocating";
      const Run run = RunOnce(scenario, k, sticky, options);
      ++runs;
      if (!run.injected) {
        // Past the last allocation: the scenario must behave as the clean run.
        EXPECT_TRUE(run.completed) << name << " failed with no failure injected";
        EXPECT_EQ(run.allocations, clean.allocations) << name << " is not deterministic";
        CheckAftermath(live_before, bad_frees_before);
        break;
      }
      if (!options.absorbs_failures) {
        EXPECT_FALSE(run.completed) << name << " reported success although an allocation failed";
      }
      if (!CheckAftermath(live_before, bad_frees_before)) return;
    }
  }
  std::printf("[   OOM    ] %s: %lld allocations, %lld runs\n", name,
              static_cast<long long>(clean.allocations), static_cast<long long>(runs));
}

}  // namespace oom
