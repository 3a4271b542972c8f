// The debug allocation tracker against the default allocation hooks: one
// orlix_malloc of 64 to 4096 bytes followed at once by its orlix_free.
//
// The tracker can only be switched on before the library's first allocation
// and then stays on, so the two sides cannot share a process. This source is
// built twice: with ORLIX_BENCH_TRACKER=1 (bench_tracker) it switches the
// tracker on first thing in main and registers "alloc_free/ours"; without it
// (bench_tracker_default) it keeps the default hooks and registers
// "alloc_free/default". scripts/run-bench.sh pairs the two across programs.
// The ratio ours/default is the tracker's slowdown inverted: 0.33 or more
// means the tracker costs at most three times the default hooks.
#include <cstdint>
#include <cstdio>
#include <vector>

#include "ORLIX_Util.h"
#include "bench_common.hpp"

#ifndef ORLIX_BENCH_TRACKER
#define ORLIX_BENCH_TRACKER 0
#endif

namespace {

constexpr int kBlocks = 256;
constexpr int64_t kMinSize = 64;
constexpr int64_t kMaxSize = 4096;

// kBlocks sizes spread over [kMinSize, kMaxSize], the same in both programs.
const std::vector<int64_t> &sizes() {
  static const std::vector<int64_t> table = [] {
    const auto bytes = orlix_bench::pseudo_random_bytes(2 * kBlocks);
    std::vector<int64_t> t;
    for (int i = 0; i < kBlocks; ++i) {
      const int64_t r = bytes[2 * i] | (int64_t{bytes[2 * i + 1]} << 8);
      t.push_back(kMinSize + r % (kMaxSize - kMinSize + 1));
    }
    return t;
  }();
  return table;
}

int64_t total_size() {
  int64_t total = 0;
  for (int64_t n : sizes()) total += n;
  return total;
}

// Each iteration allocates and at once releases one block of each size in
// the table, writing its first and last byte so the block is really used.
// Throughput counts the bytes allocated.
void alloc_free(benchmark::State &state) {
  const std::vector<int64_t> &table = sizes();
  bool ok = true;
  for (auto _ : state) {
    for (int64_t n : table) {
      auto *p = static_cast<unsigned char *>(orlix_malloc(n, "bench", __LINE__));
      if (p == nullptr) {
        ok = false;
        continue;
      }
      p[0] = 1;
      p[n - 1] = 2;
      benchmark::DoNotOptimize(p);
      orlix_free(p);
    }
  }
  orlix_bench::finish(state, ok, total_size());
}

}  // namespace

int main(int argc, char **argv) {
#if ORLIX_BENCH_TRACKER
  if (orlix_setdebugalloc() != 1) {
    std::fprintf(stderr, "bench_tracker: the tracker could not be switched on\n");
    return 1;
  }
  benchmark::RegisterBenchmark("alloc_free/ours", alloc_free);
#else
  orlix_bench::note_peer("default", "default allocation hooks, in bench_tracker_default");
  benchmark::RegisterBenchmark("alloc_free/default", alloc_free);
#endif
  return orlix_bench::run(argc, argv);
}
