// The big-integer record and the internals its tests reach.
#pragma once

#include <gmp.h>

#include <cstdint>

#include "ORLIX_BigInteger.h"

struct ORLIX_BigInteger_st {
  mpz_t value;
};

// Thrown by GMP's memory functions when the C library's allocator fails;
// every entry point that lets GMP allocate catches it.
class gmpexception {};

namespace orlix::bigint {

// Miller-Rabin rounds of the fast primality test for a number (or a
// requested prime size) of `bits` bits.
int fasttest_rounds(int64_t bits);

}  // namespace orlix::bigint
