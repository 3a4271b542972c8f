/*
 * ORLIX_BitSet.h - growable bit strings in the layout of a DER BIT STRING.
 *
 * Bit i lives in byte i / 8 under the mask 0x80 >> (i % 8): bit 0 is the most
 * significant bit of byte 0. A set has a bit count; bits at and above it read
 * as unset. No function reports to an error context.
 */
#ifndef ORLIX_BITSET_H
#define ORLIX_BITSET_H

#include <stdint.h>

#include "ORLIX_Export.h"
#include "ORLIX_Util.h"

ORLIX_BEGIN_DECLS

typedef struct ORLIX_BitSet_st ORLIX_BitSet;

/* A new set with bit count 0 (and room for 32 bits); NULL without memory. */
ORLIX_API ORLIX_BitSet *orlix_bitset_empty(void);

/*
 * A set holding a copy of length bytes and length * 8 - unused_bits bits; the
 * unused low bits of the last byte are cleared in the copy. NULL when bytes is
 * NULL, unused_bits >= 8, unused_bits > 0 with length 0, length is
 * 0x0FFFFFFFFFFFFFFF or more, or memory runs out.
 */
ORLIX_API ORLIX_BitSet *orlix_bitset_new(uint32_t unused_bits, const unsigned char *bytes,
                                         uint64_t length);

/* Releases a set; NULL is ignored. */
ORLIX_API void orlix_bitset_free(ORLIX_BitSet *set);

/* The set's bytes as a new blob (ceil(bits / 8) bytes) with the unused-bit
 * count in *unused_bits: the inverse of orlix_bitset_new. NULL when either
 * argument is NULL or memory runs out. */
ORLIX_API ORLIX_DataBlob *orlix_bitset_getdata(const ORLIX_BitSet *set, uint32_t *unused_bits);

/* Sets bit index, growing the set as needed. Returns 0 for a NULL set, a
 * negative index or no memory (the set is then unchanged), else 1. */
ORLIX_API int orlix_bitset_set(ORLIX_BitSet *set, int64_t index);

/* Clears bit index. Clearing the last bit shrinks the bit count to just past
 * the highest bit still set. Returns 0 for a NULL set or negative index. */
ORLIX_API int orlix_bitset_clear(ORLIX_BitSet *set, int64_t index);

/* 1 when bit index is set; 0 when unset, beyond the bit count, negative or
 * for a NULL set. */
ORLIX_API int orlix_bitset_isset(const ORLIX_BitSet *set, int64_t index);

/* A copy just large enough for the set's bits; NULL for NULL or no memory. */
ORLIX_API ORLIX_BitSet *orlix_bitset_dup(const ORLIX_BitSet *set);

/* The bit count; -1 for NULL. */
ORLIX_API int64_t orlix_bitset_getbitcount(const ORLIX_BitSet *set);

ORLIX_END_DECLS

#endif /* ORLIX_BITSET_H */
