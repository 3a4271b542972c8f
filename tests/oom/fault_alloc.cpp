#include "fault_alloc.hpp"

#include <gmp.h>

#include <cstdio>
#include <cstdlib>
#include <set>

#include "ORLIX_Util.h"

namespace oom {
namespace {

constexpr uint64_t kLiveMagic = 0x4c495645424c4b31ull;  // "LIVEBLK1"
constexpr uint64_t kDeadMagic = 0x444541444245454full;

// Sits in front of every block; 48 bytes keep the caller's data aligned as
// malloc's own blocks are.
struct alignas(16) Header {
  uint64_t magic;
  uint64_t size;
  const char *file;
  int32_t line;
  Header *prev;
  Header *next;
};
static_assert(sizeof(Header) % 16 == 0);

struct State {
  Header *newest = nullptr;
  int64_t live = 0;
  int64_t bad_frees = 0;
  int64_t calls = 0;
  bool armed = false;
  int64_t counted = 0;
  int64_t fail_at = 0;
  bool sticky = false;
  bool injected = false;
  int paused = 0;
  bool gmp = false;  // count GMP's requests instead of the library's
};

State g;

// Decides whether this request is the one (or one of those) to fail.
bool should_fail() {
  if (!g.armed || g.paused > 0) return false;
  ++g.counted;
  if (g.fail_at == 0) return false;
  return g.counted == g.fail_at || (g.sticky && g.counted > g.fail_at);
}

void *counting_malloc(uint64_t size, const char *file, int32_t line) {
  ++g.calls;
  if (!g.gmp && should_fail()) {
    g.injected = true;
    return nullptr;
  }
  if (size > UINT64_MAX - sizeof(Header)) return nullptr;
  auto *h = static_cast<Header *>(std::malloc(sizeof(Header) + size));
  if (h == nullptr) return nullptr;
  *h = Header{kLiveMagic, size, file, line, nullptr, g.newest};
  if (g.newest != nullptr) g.newest->prev = h;
  g.newest = h;
  ++g.live;
  return h + 1;
}

void counting_free(void *p) {
  Header *h = static_cast<Header *>(p) - 1;
  if (h->magic != kLiveMagic) {
    // Not ours, or freed twice: count it and leave the memory alone.
    ++g.bad_frees;
    return;
  }
  h->magic = kDeadMagic;
  if (h->prev != nullptr) h->prev->next = h->next;
  if (h->next != nullptr) h->next->prev = h->prev;
  if (g.newest == h) g.newest = h->next;
  --g.live;
  std::free(h);
}

struct GmpFunctions {
  void *(*alloc)(size_t) = nullptr;
  void *(*realloc)(void *, size_t, size_t) = nullptr;
  void (*free)(void *, size_t) = nullptr;
  std::set<void *> born;  // taken while armed for GMP, not yet returned
};

GmpFunctions gmp;
constexpr size_t kImpossible = SIZE_MAX / 2;

bool gmp_counted() { return g.gmp && g.armed && g.paused == 0; }

void *gmp_alloc(size_t n) {
  if (g.gmp && should_fail()) {
    g.injected = true;
    return gmp.alloc(kImpossible);
  }
  void *p = gmp.alloc(n);
  if (gmp_counted()) gmp.born.insert(p);
  return p;
}

void *gmp_realloc(void *p, size_t old_size, size_t n) {
  if (g.gmp && should_fail()) {
    g.injected = true;
    return gmp.realloc(p, old_size, kImpossible);
  }
  void *q = gmp.realloc(p, old_size, n);
  // A block from before the run (an operand grown in place) stays its
  // owner's; only blocks born in the run are followed.
  if (gmp.born.erase(p) != 0) gmp.born.insert(q);
  return q;
}

void gmp_free(void *p, size_t n) {
  gmp.born.erase(p);
  gmp.free(p, n);
}

}  // namespace

bool InstallHooks() {
  if (orlix_setallocfunc(counting_malloc, counting_free) != 1) return false;
  // The library installed its GMP functions when it was loaded.
  mp_get_memory_functions(&gmp.alloc, &gmp.realloc, &gmp.free);
  mp_set_memory_functions(gmp_alloc, gmp_realloc, gmp_free);
  return true;
}

void ArmGmp(bool on) { g.gmp = on; }

int64_t StrandedGmpBlocks() { return static_cast<int64_t>(gmp.born.size()); }

void ReleaseStrandedGmpBlocks() {
  for (void *p : gmp.born) gmp.free(p, 0);
  gmp.born.clear();
}

int64_t LiveBlocks() { return g.live; }

std::string DescribeLiveBlocks(int limit) {
  std::string out;
  int shown = 0;
  for (const Header *h = g.newest; h != nullptr; h = h->next) {
    if (shown++ == limit) {
      out += "  ...\n";
      break;
    }
    char line[160];
    std::snprintf(line, sizeof line, "  %s:%d %llu bytes\n", h->file != nullptr ? h->file : "?",
                  h->line, static_cast<unsigned long long>(h->size));
    out += line;
  }
  return out;
}

int64_t BadFrees() { return g.bad_frees; }

int64_t AllocationCalls() { return g.calls; }

void Arm(int64_t fail_at, bool sticky) {
  g.armed = true;
  g.counted = 0;
  g.fail_at = fail_at;
  g.sticky = sticky;
  g.injected = false;
}

void Disarm() {
  g.armed = false;
  g.fail_at = 0;
}

int64_t CountedAllocations() { return g.counted; }

bool FailureInjected() { return g.injected; }

PauseInjection::PauseInjection() { ++g.paused; }

PauseInjection::~PauseInjection() { --g.paused; }

}  // namespace oom
