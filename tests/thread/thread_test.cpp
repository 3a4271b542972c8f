// Locks, reader-writer locks, conditions, atomics and thread-local slots,
// driven from several threads. Every wait has a deadline: a thread that is
// still blocked when its deadline passes is cancelled, so that a broken lock
// fails its test instead of hanging the run.
#include <pthread.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "ORLIX_Thread.h"

namespace {

using namespace std::chrono_literals;
constexpr auto kDeadline = 10s;
// How long a thread that must stay blocked is watched before the test goes on.
constexpr auto kStillBlocked = 100ms;

// The record behind an ORLIX_RWLock handle; existing callers may rely on
// this field order.
struct RWLockLayout {
  pthread_mutex_t mutex;
  pthread_cond_t readers;
  pthread_cond_t writers;
  int32_t active_readers;
  int32_t writer_active;
  int32_t waiting_readers;
  int32_t waiting_writers;
};

struct Counts {
  int32_t active_readers;
  int32_t writer_active;
  int32_t waiting_readers;
  int32_t waiting_writers;
};

// Reads the counters under the lock's own guarding mutex, so the read is
// ordered with the lock's work. Also shows the mutex is not left held.
Counts CountsOf(ORLIX_RWLock *lock) {
  auto *rw = reinterpret_cast<RWLockLayout *>(lock);
  EXPECT_EQ(pthread_mutex_lock(&rw->mutex), 0);
  const Counts c{rw->active_readers, rw->writer_active, rw->waiting_readers, rw->waiting_writers};
  pthread_mutex_unlock(&rw->mutex);
  return c;
}

// True once pred() holds, false when the deadline passes first.
bool Eventually(const std::function<bool()> &pred) {
  const auto end = std::chrono::steady_clock::now() + kDeadline;
  while (!pred()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

// A POSIX thread running a closure, so that it can be cancelled.
class Thread {
 public:
  explicit Thread(std::function<void()> body) : body_(std::move(body)) {
    started_ = pthread_create(&id_, nullptr, &Thread::Run, this) == 0;
    EXPECT_TRUE(started_);
  }
  Thread(const Thread &) = delete;
  Thread &operator=(const Thread &) = delete;
  ~Thread() {
    if (started_ && !joined_) JoinWithin();
  }

  bool Finished() const { return finished_.load(); }

  // Joins; cancels the thread when it has not finished by the deadline.
  // True when it finished on its own.
  bool JoinWithin() {
    if (!started_ || joined_) return true;
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    ts.tv_sec += std::chrono::seconds(kDeadline).count();
    joined_ = true;
    if (pthread_timedjoin_np(id_, nullptr, &ts) == 0) return true;
    ADD_FAILURE() << "a thread was still blocked at its deadline; cancelling it";
    pthread_cancel(id_);
    pthread_join(id_, nullptr);
    return false;
  }

  // Cancels the thread and joins it; true when it ended by the cancellation.
  bool CancelAndJoin() {
    joined_ = true;
    EXPECT_EQ(pthread_cancel(id_), 0);
    void *result = nullptr;
    EXPECT_EQ(pthread_join(id_, &result), 0);
    return result == PTHREAD_CANCELED;
  }

 private:
  static void *Run(void *self) {
    auto *t = static_cast<Thread *>(self);
    t->body_();
    t->finished_.store(true);
    return nullptr;
  }

  std::function<void()> body_;
  pthread_t id_{};
  bool started_ = false;
  bool joined_ = false;
  std::atomic<bool> finished_{false};
};

// Starts a thread that calls take() and then give_back(), and checks that it
// waits: once waiting() holds, it must still be blocked kStillBlocked later.
// release() then runs here, after which the thread must finish with take()
// having returned 1.
void ExpectWaitsUntilReleased(const std::function<int()> &take,
                              const std::function<void()> &give_back,
                              const std::function<bool()> &waiting,
                              const std::function<void()> &release) {
  std::atomic<int> got{-1};
  Thread t([&] {
    got = take();
    give_back();
  });
  ASSERT_TRUE(Eventually(waiting));
  std::this_thread::sleep_for(kStillBlocked);
  EXPECT_FALSE(t.Finished()) << "the thread did not wait";
  release();
  EXPECT_TRUE(t.JoinWithin());
  EXPECT_EQ(got.load(), 1);
}

// ---- recursive locks ---------------------------------------------------------

TEST(Lock, OwnerTakesItTwiceAndMustReleaseTwice) {
  ORLIX_Lock *lock = orlix_lock_new();
  ASSERT_NE(lock, nullptr);
  ASSERT_EQ(orlix_lock_lock(lock), 1);
  ASSERT_EQ(orlix_lock_lock(lock), 1);
  EXPECT_EQ(orlix_lock_trylock(lock), 1) << "the owner may take it a third time";
  EXPECT_EQ(orlix_lock_unlock(lock), 1);

  int other = -1;
  Thread([&] { other = orlix_lock_trylock(lock); }).JoinWithin();
  EXPECT_EQ(other, 0) << "held twice by the owner";

  EXPECT_EQ(orlix_lock_unlock(lock), 1);
  Thread([&] { other = orlix_lock_trylock(lock); }).JoinWithin();
  EXPECT_EQ(other, 0) << "still held once";

  EXPECT_EQ(orlix_lock_unlock(lock), 1);
  Thread([&] {
    other = orlix_lock_trylock(lock);
    if (other == 1) orlix_lock_unlock(lock);
  }).JoinWithin();
  EXPECT_EQ(other, 1) << "released as often as taken";
  orlix_lock_free(lock);
}

TEST(Lock, BlocksAnotherThreadUntilReleased) {
  ORLIX_Lock *lock = orlix_lock_new();
  ASSERT_NE(lock, nullptr);
  ASSERT_EQ(orlix_lock_lock(lock), 1);
  ExpectWaitsUntilReleased([&] { return orlix_lock_lock(lock); },
                           [&] { orlix_lock_unlock(lock); }, [] { return true; },
                           [&] { EXPECT_EQ(orlix_lock_unlock(lock), 1); });
  orlix_lock_free(lock);
}

TEST(Lock, NullHandles) {
  EXPECT_EQ(orlix_lock_lock(nullptr), 0);
  EXPECT_EQ(orlix_lock_unlock(nullptr), 0);
  EXPECT_EQ(orlix_lock_trylock(nullptr), 0);
  orlix_lock_free(nullptr);
}

// ---- reader-writer locks --------------------------------------------------------

class RWLock : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(lock_ = orlix_rwlock_new(), nullptr); }
  void TearDown() override { orlix_rwlock_free(lock_); }
  ORLIX_RWLock *lock_ = nullptr;
};

TEST_F(RWLock, StartsWithZeroCounts) {
  const Counts c = CountsOf(lock_);
  EXPECT_EQ(c.active_readers, 0);
  EXPECT_EQ(c.writer_active, 0);
  EXPECT_EQ(c.waiting_readers, 0);
  EXPECT_EQ(c.waiting_writers, 0);
}

TEST_F(RWLock, ReadersShare) {
  ASSERT_EQ(orlix_rwlock_readerlock(lock_), 1);
  int got = -1;
  Thread t([&] { got = orlix_rwlock_readerlock(lock_); });
  EXPECT_TRUE(t.JoinWithin()) << "a second reader waited for the first";
  EXPECT_EQ(got, 1);
  EXPECT_EQ(CountsOf(lock_).active_readers, 2);
  EXPECT_EQ(orlix_rwlock_readerunlock(lock_), 1);
  EXPECT_EQ(orlix_rwlock_readerunlock(lock_), 1);
  EXPECT_EQ(CountsOf(lock_).active_readers, 0);
}

TEST_F(RWLock, WriterWaitsForEveryReader) {
  ASSERT_EQ(orlix_rwlock_readerlock(lock_), 1);
  ASSERT_EQ(orlix_rwlock_readerlock(lock_), 1);
  std::atomic<int> got{-1};
  Thread writer([&] {
    got = orlix_rwlock_writerlock(lock_);
    orlix_rwlock_writerunlock(lock_);
  });
  ASSERT_TRUE(Eventually([&] { return CountsOf(lock_).waiting_writers == 1; }));
  EXPECT_EQ(orlix_rwlock_readerunlock(lock_), 1);
  std::this_thread::sleep_for(kStillBlocked);
  EXPECT_FALSE(writer.Finished()) << "the writer got in while a reader was active";
  EXPECT_EQ(orlix_rwlock_readerunlock(lock_), 1);
  EXPECT_TRUE(writer.JoinWithin());
  EXPECT_EQ(got.load(), 1);
  const Counts c = CountsOf(lock_);
  EXPECT_EQ(c.waiting_writers, 0);
  EXPECT_EQ(c.writer_active, 0);
}

TEST_F(RWLock, ReaderWaitsForActiveWriter) {
  ASSERT_EQ(orlix_rwlock_writerlock(lock_), 1);
  EXPECT_EQ(CountsOf(lock_).writer_active, 1);
  ExpectWaitsUntilReleased([&] { return orlix_rwlock_readerlock(lock_); },
                           [&] { orlix_rwlock_readerunlock(lock_); },
                           [&] { return CountsOf(lock_).waiting_readers == 1; },
                           [&] { EXPECT_EQ(orlix_rwlock_writerunlock(lock_), 1); });
  // Kept bookkeeping: the waiting-reader count goes down only when a
  // waiting reader is cancelled.
  EXPECT_EQ(CountsOf(lock_).waiting_readers, 1);
}

TEST_F(RWLock, WriterWaitsForActiveWriter) {
  ASSERT_EQ(orlix_rwlock_writerlock(lock_), 1);
  ExpectWaitsUntilReleased([&] { return orlix_rwlock_writerlock(lock_); },
                           [&] { orlix_rwlock_writerunlock(lock_); },
                           [&] { return CountsOf(lock_).waiting_writers == 1; },
                           [&] { EXPECT_EQ(orlix_rwlock_writerunlock(lock_), 1); });
  EXPECT_EQ(CountsOf(lock_).waiting_writers, 0);
}

TEST_F(RWLock, ReaderGetsInWhileWriterWaits) {
  ASSERT_EQ(orlix_rwlock_readerlock(lock_), 1);
  std::atomic<int> wrote{-1};
  Thread writer([&] {
    wrote = orlix_rwlock_writerlock(lock_);
    orlix_rwlock_writerunlock(lock_);
  });
  ASSERT_TRUE(Eventually([&] { return CountsOf(lock_).waiting_writers == 1; }));

  int read = -1;
  Thread reader([&] { read = orlix_rwlock_readerlock(lock_); });
  EXPECT_TRUE(reader.JoinWithin()) << "a reader waited for a waiting writer";
  EXPECT_EQ(read, 1);
  EXPECT_EQ(CountsOf(lock_).active_readers, 2);
  EXPECT_FALSE(writer.Finished());

  EXPECT_EQ(orlix_rwlock_readerunlock(lock_), 1);
  EXPECT_EQ(orlix_rwlock_readerunlock(lock_), 1);
  EXPECT_TRUE(writer.JoinWithin());
  EXPECT_EQ(wrote.load(), 1);
}

// A writer on another thread takes and releases the lock without waiting.
void ExpectAnotherThreadCanWrite(ORLIX_RWLock *lock) {
  int got = -1;
  Thread([&] {
    got = orlix_rwlock_writerlock(lock);
    if (got == 1) orlix_rwlock_writerunlock(lock);
  }).JoinWithin();
  EXPECT_EQ(got, 1);
}

TEST_F(RWLock, CancelledWaitingReaderUndoesItsCount) {
  ASSERT_EQ(orlix_rwlock_writerlock(lock_), 1);
  Thread reader([&] {
    orlix_rwlock_readerlock(lock_);
    ADD_FAILURE() << "the reader got in while a writer was active";
  });
  ASSERT_TRUE(Eventually([&] { return CountsOf(lock_).waiting_readers == 1; }));
  EXPECT_TRUE(reader.CancelAndJoin());

  // CountsOf takes the guarding mutex: the cancelled waiter released it.
  const Counts c = CountsOf(lock_);
  EXPECT_EQ(c.waiting_readers, 0);
  EXPECT_EQ(c.active_readers, 0);
  EXPECT_EQ(c.writer_active, 1);

  EXPECT_EQ(orlix_rwlock_writerunlock(lock_), 1);
  ExpectAnotherThreadCanWrite(lock_);
  ASSERT_EQ(orlix_rwlock_readerlock(lock_), 1);
  EXPECT_EQ(orlix_rwlock_readerunlock(lock_), 1);
  EXPECT_EQ(CountsOf(lock_).active_readers, 0);
}

TEST_F(RWLock, CancelledWaitingWriterUndoesItsCount) {
  ASSERT_EQ(orlix_rwlock_readerlock(lock_), 1);
  Thread writer([&] {
    orlix_rwlock_writerlock(lock_);
    ADD_FAILURE() << "the writer got in while a reader was active";
  });
  ASSERT_TRUE(Eventually([&] { return CountsOf(lock_).waiting_writers == 1; }));
  EXPECT_TRUE(writer.CancelAndJoin());

  const Counts c = CountsOf(lock_);
  EXPECT_EQ(c.waiting_writers, 0);
  EXPECT_EQ(c.active_readers, 1);
  EXPECT_EQ(c.writer_active, 0);

  EXPECT_EQ(orlix_rwlock_readerunlock(lock_), 1);
  ExpectAnotherThreadCanWrite(lock_);
  EXPECT_EQ(CountsOf(lock_).writer_active, 0);
}

TEST_F(RWLock, WritersExcludeEachOtherUnderContention) {
  // Two threads each add to a plain counter under the writer lock while a
  // third reads it under the reader lock; lost updates show a broken lock.
  constexpr int kRounds = 2000;
  int64_t counter = 0;
  std::atomic<bool> bad_read{false};
  auto write = [&] {
    for (int i = 0; i < kRounds; ++i) {
      ASSERT_EQ(orlix_rwlock_writerlock(lock_), 1);
      const int64_t v = counter;
      counter = v + 1;
      ASSERT_EQ(orlix_rwlock_writerunlock(lock_), 1);
    }
  };
  Thread a(write);
  Thread b(write);
  Thread r([&] {
    for (int i = 0; i < kRounds; ++i) {
      ASSERT_EQ(orlix_rwlock_readerlock(lock_), 1);
      if (counter < 0 || counter > 2 * kRounds) bad_read = true;
      ASSERT_EQ(orlix_rwlock_readerunlock(lock_), 1);
    }
  });
  // A writer may be left waiting behind the reader count that is never
  // lowered (see ReaderWaitsForActiveWriter); a reader passing through
  // wakes it, so keep one passing until the writers are done.
  EXPECT_TRUE(Eventually([&] {
    if (orlix_rwlock_readerlock(lock_) == 1) orlix_rwlock_readerunlock(lock_);
    return a.Finished() && b.Finished() && r.Finished();
  }));
  a.JoinWithin();
  b.JoinWithin();
  r.JoinWithin();
  EXPECT_EQ(counter, 2 * kRounds);
  EXPECT_FALSE(bad_read.load());
}

TEST_F(RWLock, StaleReaderCountLeavesWaitingWriterToTheNextReader) {
  // After a reader has waited once, unlocking a writer wakes readers only;
  // a waiting writer is woken by the next reader that leaves.
  ASSERT_EQ(orlix_rwlock_writerlock(lock_), 1);
  Thread reader([&] {
    orlix_rwlock_readerlock(lock_);
    orlix_rwlock_readerunlock(lock_);
  });
  ASSERT_TRUE(Eventually([&] { return CountsOf(lock_).waiting_readers == 1; }));
  ASSERT_EQ(orlix_rwlock_writerunlock(lock_), 1);
  ASSERT_TRUE(reader.JoinWithin());

  ASSERT_EQ(orlix_rwlock_writerlock(lock_), 1);
  std::atomic<int> got{-1};
  Thread writer([&] {
    got = orlix_rwlock_writerlock(lock_);
    orlix_rwlock_writerunlock(lock_);
  });
  ASSERT_TRUE(Eventually([&] { return CountsOf(lock_).waiting_writers == 1; }));
  EXPECT_EQ(orlix_rwlock_writerunlock(lock_), 1);
  std::this_thread::sleep_for(kStillBlocked);
  EXPECT_FALSE(writer.Finished());
  ASSERT_EQ(orlix_rwlock_readerlock(lock_), 1);
  ASSERT_EQ(orlix_rwlock_readerunlock(lock_), 1);
  EXPECT_TRUE(writer.JoinWithin());
  EXPECT_EQ(got.load(), 1);
}

// ---- conditions -------------------------------------------------------------------

class Condition : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(lock_ = orlix_lock_new(), nullptr);
    ASSERT_NE(cond_ = orlix_condition_new(), nullptr);
  }
  void TearDown() override {
    orlix_condition_free(cond_);
    orlix_lock_free(lock_);
  }

  // Waits on the condition until `go` is set; counts itself as waiting
  // under the lock first, so that once the main thread holds the lock and
  // sees the count, the waiter is inside the wait.
  void Waiter(int *woken) {
    ASSERT_EQ(orlix_lock_lock(lock_), 1);
    ++waiting_;
    while (!go_) ASSERT_EQ(orlix_condition_wait(cond_, lock_), 1);
    ++*woken;
    ASSERT_EQ(orlix_lock_unlock(lock_), 1);
  }

  bool WaitersInside(int n) {
    return Eventually([&] {
      orlix_lock_lock(lock_);
      const bool all = waiting_ == n;
      orlix_lock_unlock(lock_);
      return all;
    });
  }

  ORLIX_Lock *lock_ = nullptr;
  ORLIX_Condition *cond_ = nullptr;
  int waiting_ = 0;
  bool go_ = false;
};

TEST_F(Condition, SignalWakesAWaiter) {
  int woken = 0;
  Thread t([&] { Waiter(&woken); });
  ASSERT_TRUE(WaitersInside(1));
  ASSERT_EQ(orlix_lock_lock(lock_), 1);
  go_ = true;
  EXPECT_EQ(orlix_condition_signal(cond_), 1);
  ASSERT_EQ(orlix_lock_unlock(lock_), 1);
  EXPECT_TRUE(t.JoinWithin());
  EXPECT_EQ(woken, 1);
}

TEST_F(Condition, BroadcastWakesEveryWaiter) {
  int woken = 0;
  Thread a([&] { Waiter(&woken); });
  Thread b([&] { Waiter(&woken); });
  Thread c([&] { Waiter(&woken); });
  ASSERT_TRUE(WaitersInside(3));
  ASSERT_EQ(orlix_lock_lock(lock_), 1);
  go_ = true;
  EXPECT_EQ(orlix_condition_broadcast(cond_), 1);
  ASSERT_EQ(orlix_lock_unlock(lock_), 1);
  EXPECT_TRUE(a.JoinWithin());
  EXPECT_TRUE(b.JoinWithin());
  EXPECT_TRUE(c.JoinWithin());
  EXPECT_EQ(woken, 3);
}

TEST_F(Condition, WaitReleasesTheLockWhileWaiting) {
  int woken = 0;
  Thread t([&] { Waiter(&woken); });
  ASSERT_TRUE(WaitersInside(1));
  int other = -1;
  Thread([&] {
    other = orlix_lock_trylock(lock_);
    if (other == 1) orlix_lock_unlock(lock_);
  }).JoinWithin();
  EXPECT_EQ(other, 1);
  ASSERT_EQ(orlix_lock_lock(lock_), 1);
  go_ = true;
  orlix_condition_signal(cond_);
  orlix_lock_unlock(lock_);
  EXPECT_TRUE(t.JoinWithin());
}

TEST_F(Condition, NullArgumentsFailWithoutWaiting) {
  ASSERT_EQ(orlix_lock_lock(lock_), 1);
  EXPECT_EQ(orlix_condition_wait(cond_, nullptr), 0);
  EXPECT_EQ(orlix_condition_wait(nullptr, lock_), 0);
  ASSERT_EQ(orlix_lock_unlock(lock_), 1);
  EXPECT_EQ(orlix_condition_signal(nullptr), 0);
  EXPECT_EQ(orlix_condition_broadcast(nullptr), 0);
  orlix_condition_free(nullptr);
}

TEST_F(Condition, SignalWithoutWaitersIsHarmless) {
  EXPECT_EQ(orlix_condition_signal(cond_), 1);
  EXPECT_EQ(orlix_condition_broadcast(cond_), 1);
}

// ---- atomics --------------------------------------------------------------------

TEST(Atomic, IncDecSetGet) {
  volatile int32_t v = 0;
  orlix_atomic_inc(&v);
  orlix_atomic_inc(&v);
  EXPECT_EQ(orlix_atomic_get(&v), 2);
  orlix_atomic_dec(&v);
  EXPECT_EQ(orlix_atomic_get(&v), 1);
  orlix_atomic_set(&v, -7);
  EXPECT_EQ(orlix_atomic_get(&v), -7);
  orlix_atomic_set(&v, INT32_MAX);
  orlix_atomic_inc(&v);
  EXPECT_EQ(orlix_atomic_get(&v), INT32_MIN) << "wraps like a two's complement add";
  // A null pointer is ignored (a crash here fails the suite).
  orlix_atomic_inc(nullptr);
  orlix_atomic_dec(nullptr);
  orlix_atomic_set(nullptr, 1);
  EXPECT_EQ(orlix_atomic_get(nullptr), 0);
  EXPECT_EQ(orlix_atomic_dec_and_test(nullptr), 0);
}

TEST(Atomic, DecAndTest) {
  volatile int32_t v = 1;
  EXPECT_EQ(orlix_atomic_dec_and_test(&v), 1);
  EXPECT_EQ(v, 0);
  v = 2;
  EXPECT_EQ(orlix_atomic_dec_and_test(&v), 0);
  EXPECT_EQ(v, 1);
  v = 0;
  EXPECT_EQ(orlix_atomic_dec_and_test(&v), 0);
  EXPECT_EQ(v, -1);
}

TEST(Atomic, ConcurrentIncrementsAndDecrementsAreNotLost) {
  constexpr int kPerThread = 200000;
  volatile int32_t v = 0;
  {
    Thread a([&] {
      for (int i = 0; i < kPerThread; ++i) orlix_atomic_inc(&v);
    });
    Thread b([&] {
      for (int i = 0; i < kPerThread; ++i) orlix_atomic_inc(&v);
    });
    EXPECT_TRUE(a.JoinWithin());
    EXPECT_TRUE(b.JoinWithin());
  }
  EXPECT_EQ(orlix_atomic_get(&v), 2 * kPerThread);
  {
    Thread a([&] {
      for (int i = 0; i < kPerThread; ++i) orlix_atomic_dec(&v);
    });
    Thread b([&] {
      for (int i = 0; i < kPerThread; ++i) orlix_atomic_inc(&v);
    });
    EXPECT_TRUE(a.JoinWithin());
    EXPECT_TRUE(b.JoinWithin());
  }
  EXPECT_EQ(orlix_atomic_get(&v), 2 * kPerThread);
}

TEST(Atomic, ExactlyOneThreadSeesTheCountReachZero) {
  // The reference-count pattern: many releases, one of them the last.
  constexpr int kPerThread = 50000;
  volatile int32_t v = 2 * kPerThread;
  std::atomic<int> zero_hits{0};
  auto release = [&] {
    for (int i = 0; i < kPerThread; ++i)
      if (orlix_atomic_dec_and_test(&v)) ++zero_hits;
  };
  Thread a(release);
  Thread b(release);
  EXPECT_TRUE(a.JoinWithin());
  EXPECT_TRUE(b.JoinWithin());
  EXPECT_EQ(zero_hits.load(), 1);
  EXPECT_EQ(orlix_atomic_get(&v), 0);
}

TEST(Atomic, ConcurrentSetsLeaveOneOfTheWrittenValues) {
  volatile int32_t v = 0;
  Thread a([&] {
    for (int i = 0; i < 10000; ++i) orlix_atomic_set(&v, 0x11111111);
  });
  Thread b([&] {
    for (int i = 0; i < 10000; ++i) orlix_atomic_set(&v, 0x22222222);
  });
  EXPECT_TRUE(a.JoinWithin());
  EXPECT_TRUE(b.JoinWithin());
  const int32_t got = orlix_atomic_get(&v);
  EXPECT_TRUE(got == 0x11111111 || got == 0x22222222) << got;
}

// ---- thread-local slots -----------------------------------------------------------

std::atomic<int> g_destroyed{0};
std::atomic<void *> g_destroyed_value{nullptr};

void CountDestruction(void *value) {
  g_destroyed_value = value;
  ++g_destroyed;
}

TEST(Tls, ValuesArePerThread) {
  ORLIX_TlsKey key;
  ASSERT_EQ(orlix_tls_alloc(&key, nullptr), 1);
  EXPECT_EQ(orlix_tls_getvalue(key), nullptr);
  int mine = 0;
  int theirs = 0;
  ASSERT_EQ(orlix_tls_setvalue(key, &mine), 1);
  void *seen_before = &mine;
  void *seen_after = nullptr;
  Thread([&] {
    seen_before = orlix_tls_getvalue(key);
    EXPECT_EQ(orlix_tls_setvalue(key, &theirs), 1);
    seen_after = orlix_tls_getvalue(key);
  }).JoinWithin();
  EXPECT_EQ(seen_before, nullptr) << "a new thread starts unset";
  EXPECT_EQ(seen_after, &theirs);
  EXPECT_EQ(orlix_tls_getvalue(key), &mine);
  EXPECT_EQ(orlix_tls_free(key), 1);
}

TEST(Tls, DestructorRunsAtThreadExitOnSetValues) {
  ORLIX_TlsKey key;
  ASSERT_EQ(orlix_tls_alloc(&key, &CountDestruction), 1);
  g_destroyed = 0;
  g_destroyed_value = nullptr;
  int value = 0;
  Thread([&] { EXPECT_EQ(orlix_tls_setvalue(key, &value), 1); }).JoinWithin();
  EXPECT_EQ(g_destroyed.load(), 1);
  EXPECT_EQ(g_destroyed_value.load(), &value);

  Thread([&] {}).JoinWithin();
  EXPECT_EQ(g_destroyed.load(), 1) << "ran for a thread that never set a value";

  Thread([&] {
    orlix_tls_setvalue(key, &value);
    orlix_tls_setvalue(key, nullptr);
  }).JoinWithin();
  EXPECT_EQ(g_destroyed.load(), 1) << "ran on a value set back to NULL";
  EXPECT_EQ(orlix_tls_free(key), 1);
}

TEST(Tls, NullKeyPointerAndDeletedKey) {
  EXPECT_EQ(orlix_tls_alloc(nullptr, nullptr), 0);
  ORLIX_TlsKey key;
  ASSERT_EQ(orlix_tls_alloc(&key, nullptr), 1);
  EXPECT_EQ(orlix_tls_free(key), 1);
}

}  // namespace
