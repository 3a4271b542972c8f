// Allocation hooks, the version text, the load-time settings, data blobs and
// the binary search used by every table look-up.
#include "ORLIX_Util.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "ORLIX_BigInteger.h"
#include "core/alloc.hpp"
#include "core/memory.hpp"

namespace {

constexpr const char kModule[] = "ORLIX_Util";
constexpr const char kVersion[] = "ORLIX Utility Library 2.6,Build on 2019";
constexpr int32_t kDefaultRecursiveLevel = 200;
constexpr int32_t kMinRecursiveLevel = 8;

// The default pair: the C library's allocator.
void *my_malloc(uint64_t size, const char *, int32_t) { return std::malloc(size); }
void my_free(void *p) { std::free(p); }

ORLIX_MallocFunc g_malloc_hook = my_malloc;
ORLIX_FreeFunc g_free_hook = my_free;
// Set by the first orlix_malloc and never cleared. Atomic only so that
// concurrent first allocations are well defined; no ordering is needed.
std::atomic<int32_t> g_alloc_started{0};

int32_t g_recursive_level = kDefaultRecursiveLevel;

// The library's one load-time initialiser. It allocates nothing through the
// hooks, so an application can still install its own pair after loading.
__attribute__((constructor)) void so_load() {
  int32_t level = kDefaultRecursiveLevel;
  if (const char *text = std::getenv("ORLIX_RECURSIVE_LEVEL"); text != nullptr) {
    // No error check on purpose: a non-number reads as 0 and becomes 8.
    level = static_cast<int32_t>(std::strtol(text, nullptr, 10));
    if (level < kMinRecursiveLevel) level = kMinRecursiveLevel;
  }
  g_recursive_level = level;
  orlix_biginteger_init();
}

}  // namespace

namespace orlix {

bool allocation_started() { return g_alloc_started.load(std::memory_order_relaxed) != 0; }

void install_alloc_hooks(ORLIX_MallocFunc malloc_fn, ORLIX_FreeFunc free_fn) {
  g_malloc_hook = malloc_fn;
  g_free_hook = free_fn;
}

}  // namespace orlix

extern "C" {

void *orlix_malloc(int64_t size, const char *file, int32_t line) {
  if (size < 0) return nullptr;
  if (g_alloc_started.load(std::memory_order_relaxed) == 0)
    g_alloc_started.store(1, std::memory_order_relaxed);
  return g_malloc_hook(static_cast<uint64_t>(size), file, line);
}

void orlix_free(void *ptr) {
  if (ptr != nullptr) g_free_hook(ptr);
}

int orlix_setallocfunc(ORLIX_MallocFunc malloc_fn, ORLIX_FreeFunc free_fn) {
  if (orlix::allocation_started() || malloc_fn == nullptr || free_fn == nullptr) return 0;
  orlix::install_alloc_hooks(malloc_fn, free_fn);
  return 1;
}

ORLIX_MallocFunc orlix_getmallocfunc(void) { return g_malloc_hook; }

ORLIX_FreeFunc orlix_getfreefunc(void) { return g_free_hook; }

const char *orlix_util_version(void) { return kVersion; }

int32_t orlix_get_recursive_level(void) { return g_recursive_level; }

ORLIX_DataBlob *orlix_data_blob_new(const void *data, int64_t length) {
  if (data == nullptr || length < 0) return nullptr;
  orlix::Owned<ORLIX_DataBlob> blob(orlix::alloc_record<ORLIX_DataBlob>(kModule, __LINE__));
  if (!blob) return nullptr;
  // A zero-length blob still asks the allocator for a (zero-byte) block.
  unsigned char *bytes = orlix::alloc_bytes(length, kModule, __LINE__);
  if (bytes == nullptr) return nullptr;
  if (length > 0) std::memcpy(bytes, data, static_cast<size_t>(length));
  blob->data = bytes;
  blob->length = length;
  return blob.release();
}

void orlix_data_blob_free(ORLIX_DataBlob *blob) {
  if (blob == nullptr) return;
  orlix_free(blob->data);
  blob->data = nullptr;
  orlix_free(blob);
}

int orlix_bsearch(const void *key, const void *base, int64_t count, int64_t element_size,
                  ORLIX_CompareFunc compare, int64_t *position) {
  if (key == nullptr || base == nullptr || compare == nullptr || position == nullptr ||
      element_size <= 0)
    return 0;
  if (count <= 0) {
    *position = -1;
    return 0;
  }
  const auto *bytes = static_cast<const unsigned char *>(base);
  auto cmp = [&](int64_t i) { return compare(key, bytes + i * element_size); };
  auto answer = [&](int64_t pos, int found) {
    *position = pos;
    return found;
  };
  // Answer from a single candidate i: found, before it, or after it.
  auto settle = [&](int64_t i, int64_t pos_if_after) {
    const int c = cmp(i);
    if (c == 0) return answer(i, 1);
    return answer(c < 0 ? i : pos_if_after, 0);
  };

  int64_t lo = 0;
  int64_t hi = count - 1;
  if (count == 1) return settle(0, 1);
  for (;;) {
    const int64_t mid = lo + (hi - lo) / 2;
    const int c = cmp(mid);
    if (c > 0) {
      lo = mid + 1;
      if (lo > hi) return answer(lo, 0);
      if (lo == hi) return settle(lo, lo + 1);
    } else if (c < 0) {
      hi = mid - 1;
      if (hi < lo) return answer(mid, 0);
      if (hi == lo) return settle(hi, mid);
    } else {
      // mid matches; narrow down to the first match in [lo, mid].
      int64_t e = mid;
      while (e > lo) {
        if (cmp(e - 1) != 0) break;
        if (e - 1 == lo) {
          e = lo;
          break;
        }
        const int64_t m = lo + (e - 1 - lo) / 2;
        if (cmp(m) == 0) {
          e = m;
        } else {
          lo = m + 1;
          e = e - 1;
        }
      }
      return answer(e, 1);
    }
  }
}

}  // extern "C"
