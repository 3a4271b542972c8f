// An allocation hook pair for the library that counts live blocks and can
// make a chosen allocation fail.
//
// The pair is installed with orlix_setallocfunc before the library's first
// allocation (see main.cpp). Every block carries a small header linking it
// into a list of live blocks, so a leak can be reported with the module and
// line that allocated it. The hooks keep no lock: the sweep is single
// threaded.
#pragma once

#include <cstdint>
#include <string>

namespace oom {

// Installs the counting pair. False when the library has already allocated.
bool InstallHooks();

// Blocks handed out by the hooks and not yet returned.
int64_t LiveBlocks();

// One line per live block ("module:line size"), newest first, at most `limit`.
std::string DescribeLiveBlocks(int limit = 10);

// Frees of pointers that the hooks never handed out (or already took back).
int64_t BadFrees();

// Allocation requests seen by the hooks since the process started, whether
// they succeeded or not (paused requests included).
int64_t AllocationCalls();

// Starts counting allocations from 1. Allocation number `fail_at` fails, and
// with `sticky` every later one too; 0 fails nothing.
void Arm(int64_t fail_at, bool sticky);

// Stops counting and injecting.
void Disarm();

// Allocations counted since Arm.
int64_t CountedAllocations();

// True once an injected failure has been returned since Arm.
bool FailureInjected();

// GMP's memory functions are wrapped around the library's own by
// InstallHooks. With ArmGmp(true), Arm counts and fails GMP's requests
// instead of the library's: a failing request is passed on as one the C
// library cannot meet, so that the library's own failure path runs (its
// function throws and the entry point catches). GMP blocks taken while so
// armed and never returned are "stranded": a failure inside a GMP call
// leaves that call's temporaries behind, as GMP's C code cannot release
// them while an exception passes.
void ArmGmp(bool on);
int64_t StrandedGmpBlocks();
void ReleaseStrandedGmpBlocks();

// While one of these lives, allocations are neither counted nor failed. A
// scenario uses it for set-up it does not want swept, or to show that a
// structure is still usable after a failure.
class PauseInjection {
 public:
  PauseInjection();
  ~PauseInjection();
  PauseInjection(const PauseInjection &) = delete;
  PauseInjection &operator=(const PauseInjection &) = delete;
};

}  // namespace oom
