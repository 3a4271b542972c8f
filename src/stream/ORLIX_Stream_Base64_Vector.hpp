// Vector forms of the base64 codec's inner loops: runs of whole groups are
// decoded and encoded 16 or 32 characters at a time with SSSE3 or AVX2. The
// scalar code around them handles everything else (whitespace, padding,
// invalid characters, line breaks, the tails), so each form only has to be
// exact on the runs it accepts. The choice is made once, from the CPU.
#pragma once

#include <cstdint>

namespace orlix::base64 {

// Decodes a run from the start of in[0..n): 16-character blocks that hold
// only alphabet digits and the whitespace ws_mode allows (ORLIX_BASE64_WS_*),
// stopping before the first block that holds anything else (or a partial
// block at the end). Writes 3 bytes per 4 digits at out and sets *written.
// Returns where the run ends: right after the last digit of the last
// whole group it decoded, whitespace before that included, so that decoding
// goes on there with no group open (0 when nothing was decoded). out must
// have room for 3/4 of n plus 32 bytes.
int64_t decode_run(const unsigned char *in, int64_t n, unsigned char *out, bool url, int ws_mode,
                   int64_t *written);

// Encodes the first of `groups` 3-byte groups of in as 4 characters each at
// out, in the standard or URL alphabet, and returns how many it encoded
// (0 without a vector form; a few are left when the loads would pass
// `readable`, the bytes that may be read from in): the caller encodes the
// rest. Writes only the characters of the groups it encodes.
int64_t encode_groups(const unsigned char *in, int64_t groups, int64_t readable, char *out,
                      bool url);

// Encodes up to `lines` whole lines of line_groups groups each (a multiple
// of 8), each followed by the eol_length characters of eol, and returns how
// many lines it wrote (0 without the AVX2 form; fewer when the loads would
// pass `readable`): the caller writes the rest.
int64_t encode_lines(const unsigned char *in, int64_t lines, int64_t line_groups, int64_t readable,
                     char *out, bool url, const char *eol, int eol_length);

// Switches the vector forms on (when the processor has them) or off,
// returning whether they were in use. Meant for tests; not thread safe.
bool use_vector_forms(bool on);

}  // namespace orlix::base64
