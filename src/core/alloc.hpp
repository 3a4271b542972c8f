// Internal access to the allocation hooks' state, for the debug tracker.
#pragma once

#include "ORLIX_Util.h"

namespace orlix {

// True once orlix_malloc has been called: the hooks are fixed from then on.
bool allocation_started();

// Installs a hook pair without the started check (the caller has done it).
void install_alloc_hooks(ORLIX_MallocFunc malloc_fn, ORLIX_FreeFunc free_fn);

}  // namespace orlix
