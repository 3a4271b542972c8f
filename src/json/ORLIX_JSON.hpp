// The JSON node and the internal operations shared by the value model, the
// decoder and the encoder.
#pragma once

#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ORLIX_ArrayList.h"
#include "ORLIX_JSON.h"
#include "core/memory.hpp"

struct ORLIX_JSON_st {
  uint32_t type;
  union {
    int32_t boolean;  // 0 or 1
    double number;
    char *string;  // length bytes and a NUL, stored in the node's own block
    ORLIX_ArrayList *list;
  } value;
  int32_t length;  // string length in bytes
};

namespace orlix::json {

inline constexpr char kModule[] = "ORLIX_JSON";

// One object member. The name node and its bytes live in the item's block.
struct ObjectItem {
  ORLIX_JSON *name;
  ORLIX_JSON *value;
};

// A string node over bytes already known to be valid UTF-8.
ORLIX_JSON *new_string_unchecked(const char *bytes, int32_t length);

// A member named by bytes known to be valid UTF-8, adopting value; nullptr
// when memory runs out (value is then left to the caller).
ObjectItem *new_item(const char *name, int32_t length, ORLIX_JSON *value);

// Releases a member: its value, then its block.
void free_item(void *item);

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
  int members(const ObjectItem *a, const ObjectItem *b);

 private:
  struct Frame {
    const ORLIX_JSON *a;
    const ORLIX_JSON *b;
    int32_t next;  // the entry to compare next
    int32_t count;
  };
  SmallBuffer<Frame, 16> stack_;
};

// Orders two list slots holding members or values, for qsort_r with a
// prepared Comparer as its argument.
int compare_item_slots(const void *a, const void *b, void *comparer);
int compare_value_slots(const void *a, const void *b, void *comparer);

// The first index in [k, n) holding a quote, a backslash or a control byte
// below 0x20 (n when there is none). Sets *high when a byte of 0x80 or above
// lies before it. Both the decoder and the encoder stop at exactly these
// bytes.
inline int64_t scan_plain(const unsigned char *s, int64_t k, int64_t n, bool *high) {
  unsigned seen = 0;
#if defined(__SSE2__)
  const __m128i quote = _mm_set1_epi8('"');
  const __m128i backslash = _mm_set1_epi8('\\');
  const __m128i controls = _mm_set1_epi8(0x1F);
  const __m128i zero = _mm_setzero_si128();
  while (k + 16 <= n) {
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
#endif
  while (k < n && s[k] != '"' && s[k] != '\\' && s[k] >= 0x20) seen |= s[k++] & 0x80u;
  *high = *high || seen != 0;
  return k;
}

// The text "%lf" gives for v in the C locale: the exact binary value
// rounded half to even at six digits after the point, "inf", "-inf", "nan"
// or "-nan"; NUL-terminated in out (kFixed6Size bytes). Returns its length.
inline constexpr size_t kFixed6Size = 400;
size_t format_fixed6(double v, char *out);

}  // namespace orlix::json
