// The debug allocation tracker: guard words around every block, a list of
// live blocks with where they were allocated, counters, a record of bad
// frees, and a report. All of its own records come from the C library, never
// through the hooks it installs, and one lock serialises all of its work.
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ORLIX_Thread.h"
#include "ORLIX_Util.h"
#include "core/alloc.hpp"
#include "core/debug_alloc.hpp"
#include "unix/lock.hpp"

namespace {

// Block layout: head guard at 0, the node pointer at 16, the caller's data
// at 32, the tail guard right after the data.
constexpr uint32_t kHeadGuard = 0xADDEADDEu;
constexpr uint32_t kTailGuard = 0xDDDDDDDDu;
constexpr int64_t kNodeOffset = 16;
constexpr int64_t kDataOffset = 32;
constexpr int64_t kOverhead = 36;
constexpr uint64_t kMaxSize = 0x7FFFFFFFFFFFFFDBull;
constexpr unsigned kStallSeconds = 3600;
constexpr int64_t kDumpBytes = 1024;
constexpr uint64_t kBuckets = 257;

struct Node {
  unsigned char *block;
  int64_t size;
  const char *module;  // interned
  int32_t line;
  int64_t sequence;  // tracked allocations before this one
  Node *next;
  Node *prev;
};

struct Stats {
  Node *live;  // newest first
  int64_t alloc_count;
  int64_t free_count;
  int64_t bytes_allocated;
  int64_t bytes_freed;
  int64_t peak;
  int64_t live_bytes;
};

struct BadFree {
  void *pointer;
  uint32_t reason;
  BadFree *next;
  BadFree *prev;
};

struct Interned {
  uint64_t hash;
  char *text;
  Interned *next;
};

ORLIX_Lock *g_lock = nullptr;
Stats *g_stats = nullptr;
BadFree *g_bad_frees = nullptr;
int32_t g_free_failures = 0;  // kept for the report; nothing raises it
int64_t g_stall = -1;
Interned *g_string_table[kBuckets];
Node *g_spare_nodes = nullptr;  // released nodes, kept for reuse (under the lock)
orlix::debug::SleepFunction g_sleep = ::sleep;

// The tracker lock, taken on every allocation and free.
bool lock_tracker() { return pthread_mutex_lock(orlix::lock::mutex_of(g_lock)) == 0; }
void unlock_tracker() { pthread_mutex_unlock(orlix::lock::mutex_of(g_lock)); }

const char *reason_text(uint32_t reason) {
  switch (reason) {
    case 1: return "bad head";
    case 2: return "node field is null";
    case 3: return "node mismatch";
    case 4: return "bad size";
    case 5: return "filename is null";
    case 6: return "bad block number";
    case 7: return "bad tail";
    default: return "unknown error";
  }
}

uint32_t load32(const unsigned char *p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

void store32(unsigned char *p, uint32_t v) { std::memcpy(p, &v, 4); }

Node *node_of(const unsigned char *data) {
  Node *n;
  std::memcpy(&n, data - kDataOffset + kNodeOffset, sizeof n);
  return n;
}

// Module names are stored once each; the copies live as long as the process.
const char *getStringPtr(const char *text) {
  if (text == nullptr) text = "";
  uint64_t h = 0;
  const size_t n = std::strlen(text);
  for (size_t i = 0; i < n; ++i) h = h * 31 + static_cast<uint64_t>(static_cast<int8_t>(text[i]));
  Interned **bucket = &g_string_table[h % kBuckets];
  for (Interned *e = *bucket; e != nullptr; e = e->next)
    if (e->hash == h && std::strcmp(e->text, text) == 0) return e->text;
  auto *e = static_cast<Interned *>(std::malloc(sizeof(Interned)));
  if (e == nullptr) return nullptr;
  e->text = static_cast<char *>(std::malloc(n + 1));
  if (e->text == nullptr) {
    std::free(e);
    return nullptr;
  }
  std::memcpy(e->text, text, n + 1);
  e->hash = h;
  e->next = *bucket;
  *bucket = e;
  return e->text;
}

// 1 when the block at data is intact; else 0 with the first failed check's
// reason in *reason.
int isdebugmem(const unsigned char *data, uint32_t *reason) {
  const unsigned char *block = data - kDataOffset;
  const auto fail = [&](uint32_t r) {
    *reason = r;
    return 0;
  };
  if (load32(block) != kHeadGuard) return fail(1);
  const Node *node = node_of(data);
  if (node == nullptr) return fail(2);
  if (node->block != block) return fail(3);
  if (node->size < 0) return fail(4);
  if (node->module == nullptr) return fail(5);
  if (node->sequence < 0) return fail(6);
  if (load32(data + node->size) != kTailGuard) return fail(7);
  return 1;
}

// A node from the spare list, or a new one from the C library. Nodes of
// freed blocks are kept for the next allocation instead of being released:
// it spares a C-library allocation and release per tracked pair.
Node *take_node() {
  Node *node = g_spare_nodes;
  if (node == nullptr) return static_cast<Node *>(std::malloc(sizeof(Node)));
  g_spare_nodes = node->next;
  return node;
}

void give_back_node(Node *node) {
  node->next = g_spare_nodes;
  g_spare_nodes = node;
}

// True when a and b hold the same text. Module names are short, and an
// inline loop beats a call into the C library for them.
inline bool same_text(const char *a, const char *b) {
  for (; *a == *b; ++a, ++b)
    if (*a == '\0') return true;
  return false;
}

// Module names are nearly always the same literal again and again; the
// last one looked up is tried first (its text too, in case the caller's
// buffer at that address has changed since).
const char *intern(const char *module) {
  static const char *last_text = nullptr;
  static const char *last_copy = nullptr;
  if (module == last_text && last_copy != nullptr && same_text(module, last_copy))
    return last_copy;
  const char *copy = getStringPtr(module);
  if (copy != nullptr) {
    last_text = module;
    last_copy = copy;
  }
  return copy;
}

void *debug_malloc(uint64_t size, const char *module, int32_t line) {
  if (size > kMaxSize || module == nullptr) return nullptr;
  auto *block = static_cast<unsigned char *>(std::malloc(size + kOverhead));
  if (block == nullptr) return nullptr;
  if (!lock_tracker()) {
    std::free(block);
    return nullptr;
  }
  unsigned char *data = block + kDataOffset;
  store32(block, kHeadGuard);
  store32(data + size, kTailGuard);
  Node *node = take_node();
  const char *name = node != nullptr ? intern(module) : nullptr;
  if (name == nullptr) {
    if (node != nullptr) give_back_node(node);
    std::free(block);
    unlock_tracker();
    return nullptr;
  }
  node->block = block;
  node->size = static_cast<int64_t>(size);
  node->module = name;
  node->line = line;
  node->sequence = g_stats->alloc_count++;
  std::memcpy(block + kNodeOffset, &node, sizeof node);
  // The chosen allocation stalls with the lock held, so that every other
  // thread's allocation waits too while a debugger is attached.
  if (g_stall >= 1 && g_stall == node->sequence) g_sleep(kStallSeconds);
  g_stats->bytes_allocated += node->size;
  g_stats->live_bytes += node->size;
  if (g_stats->live_bytes > g_stats->peak) g_stats->peak = g_stats->live_bytes;
  node->prev = nullptr;
  node->next = g_stats->live;
  if (node->next != nullptr) node->next->prev = node;
  g_stats->live = node;
  unlock_tracker();
  return data;
}

void debug_free(void *pointer) {
  if (pointer == nullptr) return;
  if (!lock_tracker()) return;
  auto *data = static_cast<unsigned char *>(pointer);
  uint32_t reason = 0;
  if (isdebugmem(data, &reason)) {
    Node *node = node_of(data);
    if (node->prev != nullptr) node->prev->next = node->next;
    else g_stats->live = node->next;
    if (node->next != nullptr) node->next->prev = node->prev;
    ++g_stats->free_count;
    g_stats->bytes_freed += node->size;
    g_stats->live_bytes -= node->size;
    std::memset(node->block, 0, static_cast<size_t>(node->size + kOverhead));
    std::free(node->block);
    give_back_node(node);
  } else if (auto *bad = static_cast<BadFree *>(std::malloc(sizeof(BadFree))); bad != nullptr) {
    // A damaged or foreign block is left alone and remembered.
    *bad = BadFree{pointer, reason, g_bad_frees, nullptr};
    if (g_bad_frees != nullptr) g_bad_frees->prev = bad;
    g_bad_frees = bad;
  }
  unlock_tracker();
}

void write_report(FILE *f) {
  const Stats &s = *g_stats;
  std::fprintf(f, "Memory alloc count: %lld,amount: %lld bytes,peak value: %lld bytes\n",
               static_cast<long long>(s.alloc_count), static_cast<long long>(s.bytes_allocated),
               static_cast<long long>(s.peak));
  std::fprintf(f, "Memory free count: %lld,amount: %lld bytes\n",
               static_cast<long long>(s.free_count), static_cast<long long>(s.bytes_freed));
  if (g_free_failures > 0) std::fprintf(f, "Memory free failure:%d\n\n", g_free_failures);
  if (s.live != nullptr) {
    std::fprintf(f, "Memory leap: %lld bytes\n", static_cast<long long>(s.live_bytes));
    for (const Node *n = s.live; n != nullptr; n = n->next) {
      const unsigned char *data = n->block + kDataOffset;
      uint32_t reason = 0;
      if (isdebugmem(data, &reason)) {
        std::fprintf(f, "\t%p(%lld):%s(%d)\t%ldbytes\n", static_cast<const void *>(data),
                     static_cast<long long>(n->sequence), n->module, n->line,
                     static_cast<long>(n->size));
        std::fputs("\t\t", f);
        const int64_t shown = n->size < kDumpBytes ? n->size : kDumpBytes;
        for (int64_t i = 0; i < shown; ++i) std::fprintf(f, "%02X ", data[i]);
        std::fputc('\n', f);
      } else {
        std::fprintf(f, "\t%p(%lld):%s(%d)----corrupt(%s)\n", static_cast<const void *>(data),
                     static_cast<long long>(n->sequence),
                     n->module != nullptr ? n->module : "NULL", n->line, reason_text(reason));
      }
    }
    std::fputc('\n', f);
  }
  if (g_bad_frees != nullptr) {
    std::fputs("Memory corrupt:\n", f);
    for (const BadFree *b = g_bad_frees; b != nullptr; b = b->next)
      std::fprintf(f, "\t%p(%s)\n", b->pointer, reason_text(b->reason));
    std::fputc('\n', f);
  }
}

}  // namespace

namespace orlix::debug {

SleepFunction set_sleep_function(SleepFunction fn) {
  const SleepFunction previous = g_sleep;
  g_sleep = fn != nullptr ? fn : ::sleep;
  return previous;
}

}  // namespace orlix::debug

extern "C" {

int orlix_setdebugalloc(void) {
  if (orlix::allocation_started()) return 0;
  const char *stall = std::getenv("ORLIX_DEBUG_MEMORY_NUMBER");
  g_stall = stall != nullptr ? std::strtoll(stall, nullptr, 10) : -1;
  ORLIX_Lock *lock = orlix_lock_new();
  if (lock == nullptr) return 0;
  if (orlix_lock_lock(lock) != 1) {
    orlix_lock_free(lock);
    return 0;
  }
  g_free_failures = 0;
  auto *stats = static_cast<Stats *>(std::calloc(1, sizeof(Stats)));
  if (stats == nullptr) {
    orlix_lock_unlock(lock);
    orlix_lock_free(lock);
    return 0;
  }
  g_lock = lock;
  g_stats = stats;
  orlix::install_alloc_hooks(debug_malloc, debug_free);
  g_bad_frees = nullptr;
  orlix_lock_unlock(lock);
  return 1;
}

int orlix_printdebugalloc(const char *path) {
  if (g_stats == nullptr || path == nullptr) return 0;
  if (orlix_lock_lock(g_lock) != 1) return 0;
  FILE *f = std::fopen(path, "w");
  if (f == nullptr) {
    orlix_lock_unlock(g_lock);
    return 0;
  }
  write_report(f);
  std::fclose(f);
  return orlix_lock_unlock(g_lock);
}

}  // extern "C"
