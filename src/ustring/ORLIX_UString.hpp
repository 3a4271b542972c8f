// The Unicode string record and the UTF-16 helpers shared by the Unicode
// modules.
#pragma once

#include <cstdint>

#include "ORLIX_UString.h"

struct ORLIX_UString_st {
  uint16_t *data;         // UTF-16 units, followed by one 0 unit
  int64_t length;         // units, terminator excluded
  int64_t charcount;      // code points; a surrogate pair counts once
  uint32_t hassurrogate;  // 1 when a surrogate pair is present
  uint32_t refcount;
};

namespace orlix::utf16 {

constexpr bool is_surrogate(uint32_t u) { return u >= 0xD800 && u <= 0xDFFF; }
constexpr bool is_high(uint32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
constexpr bool is_low(uint32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }
constexpr uint32_t combine(uint32_t high, uint32_t low) {
  return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

// Decodes one well-formed UTF-8 sequence starting with a byte >= 0x80 at
// in[0], with `left` bytes available. Returns its length (2 to 4) and the code
// point, or 0 for a bad lead byte, a truncated or broken sequence, an overlong
// form, an encoded surrogate or a value above U+10FFFF.
inline int decode_utf8_multibyte(const unsigned char *in, int64_t left, uint32_t *cp) {
  const uint32_t b = in[0];
  int extra;
  uint32_t v;
  uint32_t min;
  if ((b & 0xE0) == 0xC0) {
    extra = 1, v = b & 0x1F, min = 0x80;
  } else if ((b & 0xF0) == 0xE0) {
    extra = 2, v = b & 0x0F, min = 0x800;
  } else if ((b & 0xF8) == 0xF0) {
    extra = 3, v = b & 0x07, min = 0x10000;
  } else {
    return 0;
  }
  if (extra > left - 1) return 0;
  for (int k = 1; k <= extra; ++k) {
    const uint32_t c = in[k];
    if ((c & 0xC0) != 0x80) return 0;
    v = v << 6 | (c & 0x3F);
  }
  if (v < min || v > 0x10FFFF || is_surrogate(v)) return 0;
  *cp = v;
  return extra + 1;
}

// True when n bytes are exactly well-formed UTF-8 (what
// orlix_ustring_newutf8 accepts), without building a string.
bool valid_utf8(const unsigned char *in, int64_t n);

// A string with room for `capacity` units plus the terminator, length 0 and
// one reference; nullptr when memory runs out.
ORLIX_UString *make(int64_t capacity);

// Terminates the data at `length` and returns s.
ORLIX_UString *finish(ORLIX_UString *s, int64_t length, int64_t charcount, bool surrogates);

}  // namespace orlix::utf16
