#include "fault_alloc.hpp"

#include <cstdio>
#include <cstdlib>

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
  if (should_fail()) {
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

}  // namespace

bool InstallHooks() { return orlix_setallocfunc(counting_malloc, counting_free) == 1; }

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
