// POSIX locks: a recursive mutex, a reader-preferring reader-writer lock,
// conditions, atomic counters and thread-local slots.
#include <pthread.h>

#include <cstdlib>

#include "ORLIX_Thread.h"
#include "ORLIX_Util.h"
#include "core/memory.hpp"
#include "unix/lock.hpp"

namespace {

constexpr const char kModule[] = "unix/lock";

using orlix::lock::mutex_of;
pthread_cond_t *cond_of(ORLIX_Condition *c) { return reinterpret_cast<pthread_cond_t *>(c); }

}  // namespace

struct ORLIX_RWLock_st {
  pthread_mutex_t mutex;
  pthread_cond_t readers;
  pthread_cond_t writers;
  int32_t active_readers;
  int32_t writer_active;
  int32_t waiting_readers;
  int32_t waiting_writers;
};

namespace {

// Run when a waiting thread is cancelled: the wait has re-taken the mutex.
void rwl_readcleanup(void *arg) {
  auto *rw = static_cast<ORLIX_RWLock *>(arg);
  --rw->waiting_readers;
  pthread_mutex_unlock(&rw->mutex);
}

void rwl_writecleanup(void *arg) {
  auto *rw = static_cast<ORLIX_RWLock *>(arg);
  --rw->waiting_writers;
  pthread_mutex_unlock(&rw->mutex);
}

}  // namespace

extern "C" {

// Lock blocks come from the C library, not the replaceable allocator: the
// debug tracker itself allocates under one of these locks.
ORLIX_Lock *orlix_lock_new(void) {
  auto *m = static_cast<pthread_mutex_t *>(std::malloc(sizeof(pthread_mutex_t)));
  if (m == nullptr) return nullptr;
  pthread_mutexattr_t attr;
  bool ok = pthread_mutexattr_init(&attr) == 0;
  if (ok) {
    ok = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) == 0 &&
         pthread_mutex_init(m, &attr) == 0;
    pthread_mutexattr_destroy(&attr);
  }
  if (!ok) {
    std::free(m);
    return nullptr;
  }
  return reinterpret_cast<ORLIX_Lock *>(m);
}

void orlix_lock_free(ORLIX_Lock *lock) {
  if (lock == nullptr) return;
  pthread_mutex_destroy(mutex_of(lock));
  std::free(lock);
}

int orlix_lock_lock(ORLIX_Lock *lock) {
  return lock != nullptr && pthread_mutex_lock(mutex_of(lock)) == 0 ? 1 : 0;
}

int orlix_lock_unlock(ORLIX_Lock *lock) {
  return lock != nullptr && pthread_mutex_unlock(mutex_of(lock)) == 0 ? 1 : 0;
}

int orlix_lock_trylock(ORLIX_Lock *lock) {
  return lock != nullptr && pthread_mutex_trylock(mutex_of(lock)) == 0 ? 1 : 0;
}

ORLIX_RWLock *orlix_rwlock_new(void) {
  auto *rw = static_cast<ORLIX_RWLock *>(std::malloc(sizeof(ORLIX_RWLock)));
  if (rw == nullptr) return nullptr;
  if (pthread_mutex_init(&rw->mutex, nullptr) != 0) {
    std::free(rw);
    return nullptr;
  }
  if (pthread_cond_init(&rw->readers, nullptr) != 0) {
    pthread_mutex_destroy(&rw->mutex);
    std::free(rw);
    return nullptr;
  }
  if (pthread_cond_init(&rw->writers, nullptr) != 0) {
    pthread_cond_destroy(&rw->readers);
    pthread_mutex_destroy(&rw->mutex);
    std::free(rw);
    return nullptr;
  }
  rw->active_readers = rw->writer_active = rw->waiting_readers = rw->waiting_writers = 0;
  return rw;
}

void orlix_rwlock_free(ORLIX_RWLock *lock) {
  if (lock == nullptr) return;
  pthread_cond_destroy(&lock->readers);
  pthread_cond_destroy(&lock->writers);
  pthread_mutex_destroy(&lock->mutex);
  std::free(lock);
}

int orlix_rwlock_readerlock(ORLIX_RWLock *lock) {
  if (pthread_mutex_lock(&lock->mutex) != 0) return 0;
  bool failed = false;
  if (lock->writer_active) {
    // The waiting count goes down only when a waiter is cancelled; once a
    // reader has waited, unlocking writers keep preferring readers.
    ++lock->waiting_readers;
    pthread_cleanup_push(rwl_readcleanup, lock);
    while (lock->writer_active && !failed)
      failed = pthread_cond_wait(&lock->readers, &lock->mutex) != 0;
    pthread_cleanup_pop(0);
  }
  if (!failed) ++lock->active_readers;
  pthread_mutex_unlock(&lock->mutex);
  return failed ? 0 : 1;
}

int orlix_rwlock_readerunlock(ORLIX_RWLock *lock) {
  if (pthread_mutex_lock(&lock->mutex) != 0) return 0;
  bool ok = true;
  if (--lock->active_readers == 0 && lock->waiting_writers > 0)
    ok = pthread_cond_signal(&lock->writers) == 0;
  pthread_mutex_unlock(&lock->mutex);
  return ok ? 1 : 0;
}

int orlix_rwlock_writerlock(ORLIX_RWLock *lock) {
  if (pthread_mutex_lock(&lock->mutex) != 0) return 0;
  bool failed = false;
  if (lock->writer_active || lock->active_readers > 0) {
    ++lock->waiting_writers;
    pthread_cleanup_push(rwl_writecleanup, lock);
    while ((lock->writer_active || lock->active_readers > 0) && !failed)
      failed = pthread_cond_wait(&lock->writers, &lock->mutex) != 0;
    pthread_cleanup_pop(0);
    --lock->waiting_writers;
  }
  if (!failed) lock->writer_active = 1;
  pthread_mutex_unlock(&lock->mutex);
  return failed ? 0 : 1;
}

int orlix_rwlock_writerunlock(ORLIX_RWLock *lock) {
  if (pthread_mutex_lock(&lock->mutex) != 0) return 0;
  lock->writer_active = 0;
  bool ok = true;
  if (lock->waiting_readers > 0)
    ok = pthread_cond_broadcast(&lock->readers) == 0;
  else if (lock->waiting_writers > 0)
    ok = pthread_cond_signal(&lock->writers) == 0;
  pthread_mutex_unlock(&lock->mutex);
  return ok ? 1 : 0;
}

ORLIX_Condition *orlix_condition_new(void) {
  auto *c = orlix::alloc_record<pthread_cond_t>(kModule, __LINE__);
  if (c == nullptr) return nullptr;
  if (pthread_cond_init(c, nullptr) != 0) {
    orlix_free(c);
    return nullptr;
  }
  return reinterpret_cast<ORLIX_Condition *>(c);
}

void orlix_condition_free(ORLIX_Condition *condition) {
  if (condition == nullptr) return;
  pthread_cond_destroy(cond_of(condition));
  orlix_free(condition);
}

int orlix_condition_wait(ORLIX_Condition *condition, ORLIX_Lock *lock) {
  if (condition == nullptr || lock == nullptr) return 0;
  return pthread_cond_wait(cond_of(condition), mutex_of(lock)) == 0 ? 1 : 0;
}

int orlix_condition_signal(ORLIX_Condition *condition) {
  return condition != nullptr && pthread_cond_signal(cond_of(condition)) == 0 ? 1 : 0;
}

int orlix_condition_broadcast(ORLIX_Condition *condition) {
  return condition != nullptr && pthread_cond_broadcast(cond_of(condition)) == 0 ? 1 : 0;
}

// Like every other operation of this module, the atomics ignore a null
// pointer (get and dec_and_test then give 0).
void orlix_atomic_inc(volatile int32_t *value) {
  if (value != nullptr) __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}

void orlix_atomic_dec(volatile int32_t *value) {
  if (value != nullptr) __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}

void orlix_atomic_set(volatile int32_t *value, int32_t to) {
  if (value != nullptr) __atomic_exchange_n(value, to, __ATOMIC_SEQ_CST);
}

// An aligned 32-bit load is atomic on this platform; the relaxed atomic load
// compiles to the same instruction and tells the compiler so.
int32_t orlix_atomic_get(volatile int32_t *value) {
  return value != nullptr ? __atomic_load_n(value, __ATOMIC_RELAXED) : 0;
}

int orlix_atomic_dec_and_test(volatile int32_t *value) {
  return value != nullptr && __atomic_fetch_sub(value, 1, __ATOMIC_SEQ_CST) == 1 ? 1 : 0;
}

int orlix_tls_alloc(ORLIX_TlsKey *key, void (*destructor)(void *)) {
  return key != nullptr && pthread_key_create(key, destructor) == 0 ? 1 : 0;
}

int orlix_tls_setvalue(ORLIX_TlsKey key, void *value) {
  return pthread_setspecific(key, value) == 0 ? 1 : 0;
}

void *orlix_tls_getvalue(ORLIX_TlsKey key) { return pthread_getspecific(key); }

int orlix_tls_free(ORLIX_TlsKey key) { return pthread_key_delete(key) == 0 ? 1 : 0; }

}  // extern "C"
