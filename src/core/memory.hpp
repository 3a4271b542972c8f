// RAII helpers over orlix_malloc/orlix_free. Library code never allocates
// through the standard containers; these keep ownership explicit instead.
#pragma once

#include <cstdint>
#include <memory>

#include "ORLIX_Util.h"

namespace orlix {

struct FreeDeleter {
  void operator()(void *p) const noexcept { orlix_free(p); }
};

// An owning pointer to a block from orlix_malloc.
template <class T>
using Owned = std::unique_ptr<T, FreeDeleter>;

// Allocates an uninitialised T (a plain record) through the hooks.
template <class T>
inline T *alloc_record(const char *module, int line) {
  return static_cast<T *>(orlix_malloc(static_cast<int64_t>(sizeof(T)), module, line));
}

// Allocates n bytes through the hooks.
inline unsigned char *alloc_bytes(int64_t n, const char *module, int line) {
  return static_cast<unsigned char *>(orlix_malloc(n, module, line));
}

// Rounds n up to a multiple of 8 (capacities of growable buffers).
// Computed unsigned so that a size near INT64_MAX wraps to a negative
// request, which orlix_malloc refuses, instead of overflowing.
constexpr int64_t round_up8(int64_t n) {
  return static_cast<int64_t>((static_cast<uint64_t>(n) + 7u) & ~uint64_t{7});
}

}  // namespace orlix
