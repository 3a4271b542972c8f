// Internals of IDNA shared with the tests: the Punycode codec and the STD3
// table.
#pragma once

#include <cstdint>

#include "core/memory.hpp"
#include "ustring/ORLIX_UString_Normalize.hpp"

namespace orlix::idna {

// The ASCII code points that are not letters, digits or hyphen, sorted.
inline constexpr int64_t kLdhAsciiRows = 65;
extern const uint16_t *const g_LDHASCII_Table;

// Comparator for orlix_bsearch over g_LDHASCII_Table; the key points to a
// uint16_t unit.
int asciiCmp(const void *key, const void *row);

// Appends the Punycode form (RFC 3492 section 6.3) of n code points to b:
// the basic code points, a hyphen when there was at least one, then the
// digits. False when memory runs out.
bool punycode_encode(const uint32_t *cps, int64_t n, ORLIX_UString_Buffer *b);

// Decodes n units of Punycode (RFC 3492 section 6.2) into *out. The last
// hyphen separates the basic code points from the digits. False for a
// character that is neither basic before the hyphen nor a digit after it,
// for digits that end in the middle of a number, and for a code point
// above U+10FFFF.
bool punycode_decode(const uint16_t *in, int64_t n, SmallBuffer<uint32_t, 64> *out);

}  // namespace orlix::idna
