// Unsigned bytes in and out: orlix_biginteger_newunsigneddata must read any
// byte string as the value GMP's mpz_import gives, and
// orlix_biginteger_unsigned_tonbuf must write it back into any buffer of at
// least its significant length (zero-padded in front) and refuse a shorter
// one without writing.
//
// Input: [extra padding] [bytes...]
#include <gmp.h>

#include <vector>

#include "ORLIX_BigInteger.h"
#include "ORLIX_Util.h"
#include "bigint/ORLIX_BigInteger_gmp.hpp"
#include "fuzz_util.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  const size_t padding = in.u8() % 24;
  const uint8_t *bytes = in.rest();
  const size_t length = in.remaining();

  ORLIX_BigInteger *a = orlix_biginteger_newunsigneddata(length ? bytes : nullptr, int64_t(length));
  FUZZ_CHECK(a != nullptr);
  mpz_t want;
  mpz_init(want);
  if (length > 0) mpz_import(want, length, 1, 1, 1, 0, bytes);
  FUZZ_CHECK(mpz_cmp(a->value, want) == 0, "newunsigneddata read the wrong value");
  mpz_clear(want);

  size_t zeros = 0;
  while (zeros < length && bytes[zeros] == 0) ++zeros;
  const size_t need = length - zeros;
  int64_t bitcount = 0;
  if (need > 0) bitcount = int64_t(8 * need) - __builtin_clz(bytes[zeros]) + 24;
  FUZZ_CHECK(orlix_biginteger_getbitcount(a) == bitcount);

  const size_t size_out = need + padding;
  std::vector<uint8_t> out(size_out + 1, 0xA5);
  const int r = orlix_biginteger_unsigned_tonbuf(a, int64_t(size_out), out.data());
  if (size_out == 0) {
    FUZZ_CHECK(r == 0);
  } else {
    FUZZ_CHECK(r == 1);
    for (size_t i = 0; i < padding; ++i) FUZZ_CHECK(out[i] == 0, "padding byte %zu", i);
    FUZZ_CHECK(fuzz::SameBytes(out.data() + padding, bytes + zeros, need));
    FUZZ_CHECK(out[size_out] == 0xA5, "wrote past the buffer");
  }
  if (need > 0) {
    std::vector<uint8_t> small(need, 0xA5);
    FUZZ_CHECK(orlix_biginteger_unsigned_tonbuf(a, int64_t(need - 1), small.data()) == 0);
    for (uint8_t b : small) FUZZ_CHECK(b == 0xA5, "a refused call wrote");
  }
  // The input's own length fits too.
  if (length > 0) {
    std::vector<uint8_t> same(length);
    FUZZ_CHECK(orlix_biginteger_unsigned_tonbuf(a, int64_t(length), same.data()) == 1);
    FUZZ_CHECK(fuzz::SameBytes(same.data(), bytes, length));
  }
  orlix_biginteger_free(a);
  return 0;
}
