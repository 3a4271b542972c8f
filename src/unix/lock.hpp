// The representation of ORLIX_Lock, shared with the debug tracker so that
// its hot path can take and release the lock without the exported wrappers.
#pragma once

#include <pthread.h>

#include "ORLIX_Thread.h"

namespace orlix::lock {

// An ORLIX_Lock is a recursive pthread mutex in a block of its own.
inline pthread_mutex_t *mutex_of(ORLIX_Lock *lock) {
  return reinterpret_cast<pthread_mutex_t *>(lock);
}

}  // namespace orlix::lock
