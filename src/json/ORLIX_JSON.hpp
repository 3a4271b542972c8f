// The JSON node and the internal operations shared by the value model, the
// decoder and the encoder.
#pragma once

#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ORLIX_JSON.h"
#include "core/memory.hpp"

// A node is 16 bytes; an object or array node is the first part of a
// Container. A decoded tree is carved out of a few large blocks (an Arena):
// its nodes carry kCarved and are never released one by one, while nodes
// added to it later come from blocks of their own. Its root carries
// kArenaRoot and releases the blocks with the tree.
struct ORLIX_JSON_st {
  uint8_t type;
  uint8_t flags;
  uint16_t reserved;
  int32_t length;  // a string's length in bytes; a container's entry count
  union {
    int32_t boolean;  // 0 or 1
    double number;
    char *string;   // length bytes and a NUL, in the node's own block
    void *entries;  // ORLIX_JSON *[] for an array, Member[] for an object
  } value;
};

namespace orlix::json {

inline constexpr char kModule[] = "ORLIX_JSON";

inline constexpr uint8_t kCarved = 1;         // inside an arena block
inline constexpr uint8_t kArenaRoot = 2;      // the first node of its arena
inline constexpr uint8_t kEntriesCarved = 4;  // a container's entries are in an arena block
// A carved container whose entries are all carved scalars and which nothing
// has changed since it was decoded: releasing it need not look at them.
inline constexpr uint8_t kCarvedLeaves = 8;
// On an arena's root: some container of the tree was changed since it was
// decoded, so that the tree may hold blocks of its own. Without it,
// releasing the tree is releasing the arena.
inline constexpr uint8_t kTreeChanged = 16;

// A carved container's entries stay in the arena until the first change
// that needs room (kEntriesCarved); meanwhile they number exactly its
// length, and the container remembers the tree's root instead of a
// capacity, so that the change can mark the root with kTreeChanged.
struct Container {
  ORLIX_JSON node;
  union {
    int32_t capacity;   // entries the entry block holds (not kEntriesCarved)
    ORLIX_JSON *root;   // the root of the decoded tree (kEntriesCarved)
    int64_t base;       // while the decoder fills it: its first entry on the entry stack
  };
};

// Notes that a container is about to change (any add, update or delete).
inline void touch(ORLIX_JSON *container) {
  container->flags &= static_cast<uint8_t>(~kCarvedLeaves);
  if ((container->flags & kEntriesCarved) != 0)
    reinterpret_cast<Container *>(container)->root->flags |= kTreeChanged;
}

// One object member: its name (a string node) and its value.
struct Member {
  ORLIX_JSON *name;
  ORLIX_JSON *value;
};

inline bool is_container(const ORLIX_JSON *node) {
  return node->type == ORLIX_JSON_OBJECT || node->type == ORLIX_JSON_ARRAY;
}
inline ORLIX_JSON **elements(const ORLIX_JSON *array) {
  return static_cast<ORLIX_JSON **>(array->value.entries);
}
inline Member *members(const ORLIX_JSON *object) {
  return static_cast<Member *>(object->value.entries);
}

// A string node over bytes already known to be valid UTF-8.
ORLIX_JSON *new_string_unchecked(const char *bytes, int32_t length);

// Releases a node and everything below it that is not carved out of an
// arena; an arena's root releases the arena as well.
void release(ORLIX_JSON *node);

// Large blocks from orlix_malloc, carved into the nodes of one decoded tree.
// The first node carved becomes the tree's root, and the root owns the
// blocks once adopt() is called; until then the arena frees them itself.
class Arena {
 public:
  // length: the length of the text being decoded, which sizes the first
  // block; *position: how much of it has been read, so that a later block
  // can be sized for the rest at the rate the text has needed so far.
  Arena(int64_t length, const int64_t *position);
  ~Arena();
  Arena(const Arena &) = delete;
  Arena &operator=(const Arena &) = delete;
  // size bytes, 8-aligned; nullptr when memory runs out.
  void *carve(int64_t size) {
    size = (size + 7) & ~int64_t{7};
    if (size <= end_ - next_) {
      void *p = next_;
      next_ += size;
      return p;
    }
    return carve_slow(size);
  }
  // Hands the blocks to the root (the first node carved), marking it.
  void adopt(ORLIX_JSON *root);

  struct Block;

 private:
  void *carve_slow(int64_t size);
  Block *first_ = nullptr;
  Block *last_ = nullptr;
  char *next_ = nullptr;
  char *end_ = nullptr;
  int64_t next_size_;
  int64_t length_;
  const int64_t *position_;
  int64_t carved_ = 0;  // bytes in the blocks taken before the current one
};

// The total order on values used to sort a container (negative, zero,
// positive): type codes first, then scalar values, then containers by entry
// count and entry by entry in stored order (members by name, then value).
// Depth costs no C stack: the walk keeps its own stack, which prepare()
// sizes for a tree so that comparing values inside it never allocates.
class Comparer {
 public:
  Comparer() : stack_(kModule) {}
  // Makes room to compare any two values inside tree; false when memory
  // runs out.
  bool prepare(const ORLIX_JSON *tree);
  int values(const ORLIX_JSON *a, const ORLIX_JSON *b);
  int members(const Member *a, const Member *b);

 private:
  struct Frame {
    const ORLIX_JSON *a;
    const ORLIX_JSON *b;
    int32_t next;  // the entry to compare next
    int32_t count;
  };
  SmallBuffer<Frame, 16> stack_;
};

// Orders two members, or two element slots, for qsort_r with a prepared
// Comparer as its argument.
int compare_member_slots(const void *a, const void *b, void *comparer);
int compare_value_slots(const void *a, const void *b, void *comparer);

// The forms of the byte scans below: portable loops, or 16 (SSE2) or 32
// (AVX2) bytes at a time. The best form the processor has is chosen once;
// tests and fuzz targets switch to the portable one to compare.
enum class Form : uint8_t { kPortable, kSse2, kAvx2 };
extern Form g_form;

// Switches the vector forms on (the best the processor has) or off,
// returning whether they were in use. Meant for tests; not thread safe.
bool use_vector_forms(bool on);

int64_t scan_plain_avx2(const unsigned char *s, int64_t k, int64_t n, bool *high);

// The first index in [k, n) holding a quote, a backslash or a control byte
// below 0x20 (n when there is none). Sets *high when a byte of 0x80 or above
// lies before it. Both the decoder and the encoder stop at exactly these
// bytes.
inline int64_t scan_plain(const unsigned char *s, int64_t k, int64_t n, bool *high) {
  unsigned seen = 0;
#if defined(__SSE2__)
  if (g_form != Form::kPortable) {
    const __m128i quote = _mm_set1_epi8('"');
    const __m128i backslash = _mm_set1_epi8('\\');
    const __m128i controls = _mm_set1_epi8(0x1F);
    const __m128i zero = _mm_setzero_si128();
    // Most runs end within 16 bytes; only a longer one goes on 32 bytes a
    // step where the processor can.
    for (bool first = true; k + 16 <= n; first = false) {
      if (!first && g_form == Form::kAvx2 && n - k >= 64) {
        *high = *high || seen != 0;
        return scan_plain_avx2(s, k, n, high);
      }
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + k));
      const __m128i stop = _mm_or_si128(
          _mm_or_si128(_mm_cmpeq_epi8(v, quote), _mm_cmpeq_epi8(v, backslash)),
          _mm_cmpeq_epi8(_mm_subs_epu8(v, controls), zero));
      const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(stop));
      const unsigned top = static_cast<unsigned>(_mm_movemask_epi8(v));
      if (mask != 0) {
        seen |= top & ((1u << __builtin_ctz(mask)) - 1);
        k += __builtin_ctz(mask);
        *high = *high || seen != 0;
        return k;
      }
      seen |= top;
      k += 16;
    }
  }
#endif
  while (k < n && s[k] != '"' && s[k] != '\\' && s[k] >= 0x20) seen |= s[k++] & 0x80u;
  *high = *high || seen != 0;
  return k;
}

// The value of eight ASCII digits loaded as one word (the first digit in
// the lowest byte, and the most significant).
inline uint64_t eight_digits(uint64_t v) {
  v = (v & 0x0F0F0F0F0F0F0F0Fu) * 2561 >> 8;              // pairs of digits
  v = (v & 0x00FF00FF00FF00FFu) * 6553601 >> 16;          // groups of four
  return (v & 0x0000FFFF0000FFFFu) * 42949672960001u >> 32;  // all eight
}

// The text "%lf" gives for v in the C locale: the exact binary value
// rounded half to even at six digits after the point, "inf", "-inf", "nan"
// or "-nan"; NUL-terminated in out (kFixed6Size bytes). Returns its length.
inline constexpr size_t kFixed6Size = 400;
size_t format_fixed6(double v, char *out);

// The encoder's text for a number: "%d" for an integral value in 32-bit
// range, otherwise the "%lf" text without trailing zeros after the point
// (nor the point when only zeros follow it). Same buffer and result as
// format_fixed6.
size_t format_number(double v, char *out);

// The same text at p when it comes from the exact integer form (p has room
// for 32 bytes): returns its end, or nullptr when v needs format_number.
char *put_number_fast(char *p, double v);

}  // namespace orlix::json
