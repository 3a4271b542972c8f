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

// A string with room for `capacity` units plus the terminator, length 0 and
// one reference; nullptr when memory runs out.
ORLIX_UString *make(int64_t capacity);

// Terminates the data at `length` and returns s.
ORLIX_UString *finish(ORLIX_UString *s, int64_t length, int64_t charcount, bool surrogates);

}  // namespace orlix::utf16
