// Helpers shared by the benchmark programs.
//
// Every operation is registered twice under one operation name: as
// "<operation>/ours" and as "<operation>/<peer>", <peer> naming the library
// compared against. scripts/run-bench.sh pairs the two by that name and
// prints the ratio of their throughputs, so a new program only has to follow
// the naming (register_pair does) and report bytes processed.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace orlix_bench {

constexpr int64_t kMiB = int64_t{1} << 20;

// Deterministic bytes spread over all 256 values (xorshift64), so that
// table-driven and branchy code both see a realistic mix.
inline std::vector<unsigned char> pseudo_random_bytes(int64_t n,
                                                      uint64_t seed = 0x9E3779B97F4A7C15u) {
  std::vector<unsigned char> out(static_cast<size_t>(n));
  uint64_t x = seed;
  for (auto &b : out) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    b = static_cast<unsigned char>(x >> 32);
  }
  return out;
}

// "16B", "4KiB", "1MiB": sizes as they appear in operation names.
inline std::string size_name(int64_t n) {
  if (n >= kMiB && n % kMiB == 0) return std::to_string(n / kMiB) + "MiB";
  if (n >= 1024 && n % 1024 == 0) return std::to_string(n / 1024) + "KiB";
  return std::to_string(n) + "B";
}

// Registers both sides of one operation. Each callable takes a
// benchmark::State& and runs the timed loop.
template <class Ours, class Peer>
void register_pair(const std::string &operation, const std::string &peer, Ours &&ours,
                   Peer &&theirs) {
  benchmark::RegisterBenchmark((operation + "/ours").c_str(), std::forward<Ours>(ours));
  benchmark::RegisterBenchmark((operation + "/" + peer).c_str(), std::forward<Peer>(theirs));
}

// Ends a benchmark: reports throughput, or fails it when any call of the
// timed loop did not do its full work (a fast wrong answer is no result).
inline void finish(benchmark::State &state, bool ok, int64_t bytes_per_iteration) {
  if (!ok) {
    state.SkipWithError("a call failed or returned a short count");
    return;
  }
  state.SetBytesProcessed(state.iterations() * bytes_per_iteration);
}

// Records a peer's version in the JSON context, where the table picks it up.
inline void note_peer(const std::string &peer, const std::string &version) {
  benchmark::AddCustomContext("peer:" + peer, version);
}

// The usual benchmark main, plus the build type in the JSON context.
inline int run(int argc, char **argv) {
#ifdef ORLIX_BENCH_BUILD_TYPE
  benchmark::AddCustomContext("orlix_build_type", ORLIX_BENCH_BUILD_TYPE);
#endif
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace orlix_bench
