// Bulk UTF-8 <-> UTF-16 transcoding behind the string constructors and
// conversions. Each routine has a portable form and an SSSE3 form; the
// choice is made once, from what the processor reports.
#pragma once

#include <cstdint>

namespace orlix::utf8 {

// True when in[0..n) is exactly well-formed UTF-8: no overlong form, encoded
// surrogate, value above U+10FFFF, stray continuation byte or truncated
// sequence.
bool validate(const unsigned char *in, int64_t n);

// Decodes n bytes that validate() accepted into UTF-16 units at out, which
// has room for n + 1 units. Returns the units written and sets *pairs to the
// number of surrogate pairs among them.
int64_t decode_valid(const unsigned char *in, int64_t n, uint16_t *out, int64_t *pairs);

// Encodes `length` units (followed in memory by a 0 unit) as UTF-8 at out,
// which has room for 3 x length + 1 bytes. Returns the bytes written, or -1
// when a surrogate is not part of a high-low pair.
int64_t encode_utf16(const uint16_t *units, int64_t length, unsigned char *out);

// Switches the forms that need SSSE3 on (when the processor has them) or
// off, returning whether they were in use. Meant for tests; not thread safe.
bool use_vector_forms(bool on);

}  // namespace orlix::utf8
