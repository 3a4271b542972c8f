// The allocation-failure sweep.
//
// A scenario is a function that does a piece of work with the library,
// releases everything it made, and returns true when the work completed or
// false when it saw a failure (a NULL handle, a 0 result) and gave up. The
// sweep runs it once with nothing injected, then again with allocation 1, 2,
// ... failing - first only that allocation, then that one and every later
// one - until a run no longer reaches the failing allocation. Each run must
// leave no live block, must not free foreign pointers, and must report
// failure whenever an injected failure reached it.
//
// A new scenario is one function in a *_scenarios.cpp file of this
// directory (the build picks such files up by name):
//
//   ORLIX_OOM_SCENARIO(Json, EncodeTree) {
//     ORLIX_JSON *tree = ...;
//     if (tree == nullptr) return false;
//     ...
//     return true;
//   }
//
// Scenarios check their own invariants with EXPECT_*; the sweep adds which
// run failed to every message.
#pragma once

#include <cstdint>

#include <gtest/gtest.h>

#include "fault_alloc.hpp"

namespace oom {

using Scenario = bool (*)();

struct Options {
  // The scenario may complete although an allocation failed: a step whose
  // failure the library deliberately ignores (an optional pre-sizing, say).
  // The scenario must then check its results itself.
  bool absorbs_failures = false;
  // Safety stop for a scenario whose allocation count never settles.
  int64_t max_allocations = 100000;
  // Fail GMP's allocations instead of the library's (see ArmGmp), allowing
  // this many GMP blocks to be stranded by a failed run.
  bool gmp = false;
  int64_t gmp_temporaries = 0;
};

// Runs the sweep described above for one scenario.
void Sweep(const char *name, Scenario scenario, const Options &options = {});

}  // namespace oom

// Defines a scenario and the test that sweeps it. Optional trailing
// arguments initialise oom::Options, e.g. `.absorbs_failures = true`.
#define ORLIX_OOM_SCENARIO(suite, name, ...)                                                    \
  static bool OomScenario_##suite##_##name();                                                   \
  TEST(Oom##suite, name) {                                                                      \
    ::oom::Sweep(#suite "." #name, &OomScenario_##suite##_##name, ::oom::Options{__VA_ARGS__}); \
  }                                                                                             \
  static bool OomScenario_##suite##_##name()

// A big-integer scenario swept twice: failing the library's allocations,
// then GMP's, with up to `temporaries` GMP blocks stranded by a failure.
#define ORLIX_OOM_GMP_SCENARIO(name, temporaries)                                      \
  static bool OomScenario_BigInt_##name();                                             \
  TEST(OomBigInt, name) { ::oom::Sweep("BigInt." #name, &OomScenario_BigInt_##name); } \
  TEST(OomBigInt, name##InGmp) {                                                       \
    ::oom::Sweep("BigInt." #name " in GMP", &OomScenario_BigInt_##name,                \
                 ::oom::Options{.gmp = true, .gmp_temporaries = (temporaries)});       \
  }                                                                                    \
  static bool OomScenario_BigInt_##name()
