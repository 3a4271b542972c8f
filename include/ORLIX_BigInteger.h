/*
 * ORLIX_BigInteger.h - signed arbitrary-precision integers over GMP.
 *
 * An ORLIX_BigInteger is a handle owning one integer. Every operation that
 * produces a number returns a NEW handle, released by the caller with
 * orlix_biginteger_free; no operation changes its arguments except
 * orlix_biginteger_setbit and orlix_biginteger_clearbit. Nothing reports
 * errors beyond the result: a NULL handle or 0, also when memory runs out
 * (the library never lets an exception out).
 *
 * Byte strings are big-endian. "Two's-complement bytes" are the shortest
 * signed form: -1 is FF, -128 is 80, -129 is FF 7F, 128 is 00 80.
 *
 * A zero divisor or modulus gives NULL (GMP itself would end the process).
 */
#ifndef ORLIX_BIGINTEGER_H
#define ORLIX_BIGINTEGER_H

#include <stdint.h>

#include "ORLIX_Export.h"
#include "ORLIX_Util.h"

ORLIX_BEGIN_DECLS

typedef struct ORLIX_BigInteger_st ORLIX_BigInteger;

/* A source of random bytes for prime generation: fills length bytes of
 * buffer and returns 1; any other result is a failure. */
typedef int (*ORLIX_RandomFunc)(void *context, unsigned char *buffer, int64_t length);

/* Flags of orlix_biginteger_newprime. */
#define ORLIX_BIGINTEGER_PRIME_SAFE 0x01    /* p = 3 mod 4 and (p - 1) / 2 prime too */
#define ORLIX_BIGINTEGER_PRIME_TOP_TWO 0x02 /* the two highest bits set */
#define ORLIX_BIGINTEGER_PRIME_FAST 0x80    /* round count by size, not 64 rounds */

/* Installs GMP's memory functions (the C library's allocator, failing by an
 * internal exception that every operation catches). Called once when the
 * library is loaded; calling it again changes nothing. */
ORLIX_API void orlix_biginteger_init(void);

/* ---- construction and release (NULL when memory runs out) --------------- */

/* The integer equal to value; INT64_MIN works. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_new(int64_t value);

/* Reads length big-endian two's-complement bytes (redundant leading sign
 * bytes are allowed). Length 0 gives 0, and data may then be NULL. NULL for
 * NULL data with a non-zero length or a negative length. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_newdata(const void *data, int64_t length);

/* Reads length big-endian unsigned bytes (leading zero bytes allowed).
 * Length 0 gives 0; NULL for NULL data with a non-zero length or a negative
 * length. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_newunsigneddata(const void *data, int64_t length);

/* Parses NUL-terminated decimal text as GMP does: leading white space, an
 * optional '-', digits (white space between them is skipped). NULL for NULL
 * text or text without digits or with any other character. Cost: GMP's
 * subquadratic radix conversion (about n^1.5 for long texts), as for
 * orlix_biginteger_unsigned_todec. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_newdec(const char *text);

/* A copy of a; NULL for NULL. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_dup(const ORLIX_BigInteger *a);

/* Releases a; NULL is ignored. */
ORLIX_API void orlix_biginteger_free(ORLIX_BigInteger *a);

/* ---- inspection and conversion out -------------------------------------- */

/* -1, 0 or 1; 0 for NULL. */
ORLIX_API int32_t orlix_biginteger_getsign(const ORLIX_BigInteger *a);

/* The number of bits of the magnitude; 0 for zero and for NULL. */
ORLIX_API int64_t orlix_biginteger_getbitcount(const ORLIX_BigInteger *a);

/* Negative, 0 or positive as a is below, equal to or above b (the size of
 * a non-zero result carries no meaning). Two NULLs are equal; a lone NULL
 * sorts first. */
ORLIX_API int32_t orlix_biginteger_cmp(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b);

/* Stores a in *value and returns 1 when a's bit count is below 64; else 0
 * (so INT64_MIN, with 64 bits, is refused). 0 for NULL arguments. */
ORLIX_API int orlix_biginteger_getvalue(const ORLIX_BigInteger *a, int64_t *value);

/* A new blob (released with orlix_data_blob_free) holding the shortest
 * two's-complement bytes of a; zero is the single byte 00. NULL for NULL a
 * or when memory runs out. */
ORLIX_API ORLIX_DataBlob *orlix_biginteger_getdata(const ORLIX_BigInteger *a);

/* Writes a (>= 0) into exactly size bytes of buffer, big-endian and padded
 * with leading zero bytes. Returns 1, or 0 when a or buffer is NULL, size is
 * below 1, a is negative or needs more than size bytes. */
ORLIX_API int orlix_biginteger_unsigned_tonbuf(const ORLIX_BigInteger *a, int64_t size,
                                               unsigned char *buffer);

/* A new NUL-terminated decimal text of a (>= 0) in *text, released with
 * orlix_free, and its length in *length when length is not NULL. Returns 1,
 * or 0 (with *text = NULL when text is given) for NULL a or text, a
 * negative a, or no memory. */
ORLIX_API int orlix_biginteger_unsigned_todec(const ORLIX_BigInteger *a, char **text,
                                              int64_t *length);

/* ---- arithmetic (a new handle; NULL for a NULL argument or no memory) --- */

ORLIX_API ORLIX_BigInteger *orlix_biginteger_add(const ORLIX_BigInteger *a,
                                                 const ORLIX_BigInteger *b);
ORLIX_API ORLIX_BigInteger *orlix_biginteger_sub(const ORLIX_BigInteger *a,
                                                 const ORLIX_BigInteger *b);
ORLIX_API ORLIX_BigInteger *orlix_biginteger_mul(const ORLIX_BigInteger *a,
                                                 const ORLIX_BigInteger *b);
/* -a. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_neg(const ORLIX_BigInteger *a);

/* The quotient a / b truncated toward zero; the remainder (with the sign of
 * a) goes to *remainder as a second new handle. remainder must not be NULL
 * (NULL result); on failure *remainder is set to NULL. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_div(const ORLIX_BigInteger *a,
                                                 const ORLIX_BigInteger *b,
                                                 ORLIX_BigInteger **remainder);

/* a / 2 truncated toward zero (-3 gives -1). */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_div_2(const ORLIX_BigInteger *a);

/* The modular operations reduce into 0 <= r < |m|. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_mod(const ORLIX_BigInteger *a,
                                                 const ORLIX_BigInteger *m);
ORLIX_API ORLIX_BigInteger *orlix_biginteger_addmod(const ORLIX_BigInteger *a,
                                                    const ORLIX_BigInteger *b,
                                                    const ORLIX_BigInteger *m);
ORLIX_API ORLIX_BigInteger *orlix_biginteger_submod(const ORLIX_BigInteger *a,
                                                    const ORLIX_BigInteger *b,
                                                    const ORLIX_BigInteger *m);
ORLIX_API ORLIX_BigInteger *orlix_biginteger_mulmod(const ORLIX_BigInteger *a,
                                                    const ORLIX_BigInteger *b,
                                                    const ORLIX_BigInteger *m);
/* a^2 mod m. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_sqrmod(const ORLIX_BigInteger *a,
                                                    const ORLIX_BigInteger *m);
/* base^exponent mod m. A negative exponent uses the inverse of base, and
 * gives NULL when base has none modulo m. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_expmod(const ORLIX_BigInteger *base,
                                                    const ORLIX_BigInteger *exponent,
                                                    const ORLIX_BigInteger *m);
/* The greatest common divisor and least common multiple, both >= 0. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_gcd(const ORLIX_BigInteger *a,
                                                 const ORLIX_BigInteger *b);
ORLIX_API ORLIX_BigInteger *orlix_biginteger_lcm(const ORLIX_BigInteger *a,
                                                 const ORLIX_BigInteger *b);
/* The inverse of a modulo m, in 0 <= r < |m|; NULL when none exists. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_invmod(const ORLIX_BigInteger *a,
                                                    const ORLIX_BigInteger *m);

/* ---- bits and parity ----------------------------------------------------- */

/* Bit index (0 = least significant) of a's two's-complement form, where a
 * negative number has infinitely many leading one bits. 0 for NULL a or a
 * negative index. */
ORLIX_API int orlix_biginteger_testbit(const ORLIX_BigInteger *a, int32_t index);

/* Set or clear one bit of a IN PLACE (same two's-complement view). Return
 * 1, or 0 for NULL a, a negative index or no memory (a is then unchanged). */
ORLIX_API int orlix_biginteger_setbit(ORLIX_BigInteger *a, int32_t index);
ORLIX_API int orlix_biginteger_clearbit(ORLIX_BigInteger *a, int32_t index);

/* 1 when a is even (zero included) or odd; 0 otherwise and for NULL. */
ORLIX_API int orlix_biginteger_iseven(const ORLIX_BigInteger *a);
ORLIX_API int orlix_biginteger_isodd(const ORLIX_BigInteger *a);

/* ---- primes ------------------------------------------------------------- */

/* 1 when a is probably prime (64 rounds of GMP's test; the sign is
 * ignored), else 0; 0 for NULL or no memory. */
ORLIX_API int orlix_biginteger_isprime(const ORLIX_BigInteger *a);

/* The same test with fewer rounds, chosen by a's bit count: 28 up to 255
 * bits, 16 up to 383, 10 up to 511, 7 up to 639, 6 up to 767, 5 above. */
ORLIX_API int orlix_biginteger_isprime_fasttest(const ORLIX_BigInteger *a);

/* A new random prime of exactly bits bits, drawn from random(context, ...)
 * with the ORLIX_BIGINTEGER_PRIME_* flags. Candidates are drawn until one
 * passes, without a limit. NULL when random is NULL or fails, bits is below
 * 2, no prime of the asked form exists (a safe prime of 2 bits, or with the
 * two top bits also set of 4 or 5 bits), or memory runs out. */
ORLIX_API ORLIX_BigInteger *orlix_biginteger_newprime(ORLIX_RandomFunc random, void *context,
                                                      int bits, int flags);

ORLIX_END_DECLS

#endif /* ORLIX_BIGINTEGER_H */
