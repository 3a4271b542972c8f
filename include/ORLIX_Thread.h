/*
 * ORLIX_Thread.h - locks, conditions, atomic counters, thread-local slots
 * and shared-object loading.
 *
 * Thin wrappers over POSIX threads and the dynamic loader. Operations that
 * can fail return 1 on success and 0 on failure; nothing is reported to an
 * error context.
 */
#ifndef ORLIX_THREAD_H
#define ORLIX_THREAD_H

#include <pthread.h>
#include <stdint.h>

#include "ORLIX_Export.h"
#include "ORLIX_UString.h"

ORLIX_BEGIN_DECLS

/* A recursive mutex: its owner may take it again. */
typedef struct ORLIX_Lock_st ORLIX_Lock;
/* A reader-writer lock that prefers readers: readers wait only for an
 * active writer, never for waiting ones; a writer waits for every reader.
 * Once a reader has had to wait, unlocking writers wake readers rather than
 * a waiting writer, which then waits for the next reader to come and go:
 * kept as existing callers know it. */
typedef struct ORLIX_RWLock_st ORLIX_RWLock;
/* A condition variable, used with an ORLIX_Lock. */
typedef struct ORLIX_Condition_st ORLIX_Condition;
/* A thread-local slot. */
typedef pthread_key_t ORLIX_TlsKey;
/* A loaded shared object. */
typedef struct ORLIX_Dso_st ORLIX_Dso;

/* ---- recursive locks ------------------------------------------------------ */

/* A new lock, or NULL. Release with orlix_lock_free. */
ORLIX_API ORLIX_Lock *orlix_lock_new(void);
/* Destroys and releases a lock; NULL is ignored. */
ORLIX_API void orlix_lock_free(ORLIX_Lock *lock);
/* 1 when the lock was taken (again, by its owner); 0 for NULL or an error. */
ORLIX_API int orlix_lock_lock(ORLIX_Lock *lock);
ORLIX_API int orlix_lock_unlock(ORLIX_Lock *lock);
/* 1 when taken at once; 0 when another thread holds it, for NULL or on an
 * error. */
ORLIX_API int orlix_lock_trylock(ORLIX_Lock *lock);

/* ---- reader-writer locks ---------------------------------------------------- */

/* A new reader-writer lock, or NULL. HAZARD: the four lock and unlock
 * operations below do not test their handle; NULL crashes the process
 * (unlike every other operation of this header). Waiting operations are safe under thread
 * cancellation: a cancelled waiter undoes its waiting count. */
ORLIX_API ORLIX_RWLock *orlix_rwlock_new(void);
ORLIX_API void orlix_rwlock_free(ORLIX_RWLock *lock);
ORLIX_API int orlix_rwlock_readerlock(ORLIX_RWLock *lock);
ORLIX_API int orlix_rwlock_readerunlock(ORLIX_RWLock *lock);
ORLIX_API int orlix_rwlock_writerlock(ORLIX_RWLock *lock);
ORLIX_API int orlix_rwlock_writerunlock(ORLIX_RWLock *lock);

/* ---- conditions ------------------------------------------------------------- */

/* A new condition, or NULL. Release with orlix_condition_free. */
ORLIX_API ORLIX_Condition *orlix_condition_new(void);
ORLIX_API void orlix_condition_free(ORLIX_Condition *condition);
/* Waits on the condition with lock held (taken once); 0 when either is NULL
 * or on an error. */
ORLIX_API int orlix_condition_wait(ORLIX_Condition *condition, ORLIX_Lock *lock);
ORLIX_API int orlix_condition_signal(ORLIX_Condition *condition);
ORLIX_API int orlix_condition_broadcast(ORLIX_Condition *condition);

/* ---- atomic counters (sequentially consistent) --------------------------------- */
/* A NULL pointer is ignored: nothing is touched, get and dec_and_test give 0. */

ORLIX_API void orlix_atomic_inc(volatile int32_t *value);
ORLIX_API void orlix_atomic_dec(volatile int32_t *value);
ORLIX_API void orlix_atomic_set(volatile int32_t *value, int32_t to);
ORLIX_API int32_t orlix_atomic_get(volatile int32_t *value);
/* Decrements; 1 when the value was 1 before (it is now 0), else 0. */
ORLIX_API int orlix_atomic_dec_and_test(volatile int32_t *value);

/* ---- thread-local slots ----------------------------------------------------------- */

/* Creates a slot; destructor (may be NULL) runs at thread exit on a
 * non-NULL value. 1 when created. */
ORLIX_API int orlix_tls_alloc(ORLIX_TlsKey *key, void (*destructor)(void *));
ORLIX_API int orlix_tls_setvalue(ORLIX_TlsKey key, void *value);
/* The calling thread's value; NULL when unset. */
ORLIX_API void *orlix_tls_getvalue(ORLIX_TlsKey key);
/* Deletes a slot; 1 when deleted. */
ORLIX_API int orlix_tls_free(ORLIX_TlsKey key);

/* ---- shared objects ---------------------------------------------------------------- */

/* Loads a shared object by name, converted to the locale's charset (UTF-8
 * when the locale names none), binding every symbol at once. When the name
 * as given fails, it is tried exactly once more with ".so" appended. NULL
 * when both fail. Close with orlix_dso_free. */
ORLIX_API ORLIX_Dso *orlix_dso_load(const ORLIX_UString *name);
/* The address of a symbol, or NULL (also for a NULL argument). */
ORLIX_API void *orlix_dso_getfunction(ORLIX_Dso *dso, const char *symbol);
/* Closes a shared object; NULL is ignored. */
ORLIX_API void orlix_dso_free(ORLIX_Dso *dso);

ORLIX_END_DECLS

#endif /* ORLIX_THREAD_H */
