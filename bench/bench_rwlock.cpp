// Reader locking: two threads taking and releasing the read side of one
// shared lock, ours (orlix_rwlock_readerlock/readerunlock) against glibc's
// pthread_rwlock_rdlock/unlock. Throughput counts lock/unlock pairs of both
// threads together over wall-clock time.
#include <pthread.h>

#include <cstdio>

#include "ORLIX_Thread.h"
#include "bench_common.hpp"

namespace {

ORLIX_RWLock *our_lock = nullptr;
pthread_rwlock_t peer_lock = PTHREAD_RWLOCK_INITIALIZER;

void read_lock_ours(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    ok &= orlix_rwlock_readerlock(our_lock) == 1;
    ok &= orlix_rwlock_readerunlock(our_lock) == 1;
  }
  if (!ok) state.SkipWithError("a lock or unlock call failed");
  state.SetItemsProcessed(state.iterations());
}

void read_lock_pthread(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    ok &= pthread_rwlock_rdlock(&peer_lock) == 0;
    ok &= pthread_rwlock_unlock(&peer_lock) == 0;
  }
  if (!ok) state.SkipWithError("a lock or unlock call failed");
  state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char **argv) {
  our_lock = orlix_rwlock_new();
  if (our_lock == nullptr) {
    std::fprintf(stderr, "bench_rwlock: orlix_rwlock_new failed\n");
    return 1;
  }
  orlix_bench::note_peer("pthread", "glibc pthread_rwlock_t");
  benchmark::RegisterBenchmark("rwlock_read/ours", read_lock_ours)->Threads(2)->UseRealTime();
  benchmark::RegisterBenchmark("rwlock_read/pthread", read_lock_pthread)->Threads(2)->UseRealTime();
  const int status = orlix_bench::run(argc, argv);
  orlix_rwlock_free(our_lock);
  return status;
}
