// Two's-complement bytes in and out: orlix_biginteger_newdata must read any
// byte string as the value GMP computes for it (the unsigned value, less
// 2^(8n) when the top bit is set), orlix_biginteger_getdata must give back
// its shortest form (the input without redundant sign bytes), every bit of
// the input must read back through orlix_biginteger_testbit, and the
// negated value must round-trip as well.
#include <gmp.h>

#include <vector>

#include "ORLIX_BigInteger.h"
#include "ORLIX_Util.h"
#include "bigint/ORLIX_BigInteger_gmp.hpp"
#include "fuzz_util.hpp"

namespace {

// The input without redundant leading sign bytes; "00" for no bytes.
std::vector<uint8_t> Shortest(const uint8_t *data, size_t size) {
  if (size == 0) return {0x00};
  size_t start = 0;
  while (size - start > 1) {
    const uint8_t b0 = data[start], b1 = data[start + 1];
    const bool redundant = (b0 == 0x00 && !(b1 & 0x80)) || (b0 == 0xFF && (b1 & 0x80));
    if (!redundant) break;
    ++start;
  }
  return std::vector<uint8_t>(data + start, data + size);
}

// Bit i of the two's-complement input, sign-extended beyond its length.
int InputBit(const uint8_t *data, size_t size, size_t i) {
  if (size == 0) return 0;
  if (i >= 8 * size) return data[0] >> 7;
  return (data[size - 1 - i / 8] >> (i % 8)) & 1;
}

ORLIX_DataBlob *CheckedGetdata(const ORLIX_BigInteger *a) {
  ORLIX_DataBlob *blob = orlix_biginteger_getdata(a);
  FUZZ_CHECK(blob != nullptr && blob->length >= 1);
  return blob;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  ORLIX_BigInteger *a = orlix_biginteger_newdata(size ? data : nullptr, int64_t(size));
  FUZZ_CHECK(a != nullptr);

  // The value, as GMP computes it from the bytes.
  mpz_t want;
  mpz_init(want);
  if (size > 0) {
    mpz_import(want, size, 1, 1, 1, 0, data);
    if (data[0] & 0x80) {
      mpz_t power;
      mpz_init(power);
      mpz_setbit(power, 8 * size);
      mpz_sub(want, want, power);
      mpz_clear(power);
    }
  }
  FUZZ_CHECK(mpz_cmp(a->value, want) == 0, "newdata read the wrong value");
  mpz_clear(want);

  const std::vector<uint8_t> shortest = Shortest(data, size);
  ORLIX_DataBlob *blob = CheckedGetdata(a);
  FUZZ_CHECK(size_t(blob->length) == shortest.size() &&
                 fuzz::SameBytes(blob->data, shortest.data(), shortest.size()),
             "getdata is not the shortest form (%lld bytes, expected %zu)",
             static_cast<long long>(blob->length), shortest.size());
  orlix_data_blob_free(blob);

  const size_t bits = 8 * size + 16;
  for (size_t i = 0; i < bits && i < 2048; ++i)
    FUZZ_CHECK(orlix_biginteger_testbit(a, int32_t(i)) == InputBit(data, size, i), "bit %zu", i);
  const int top = size ? data[0] >> 7 : 0;
  FUZZ_CHECK(orlix_biginteger_getsign(a) == (top ? -1 : mpz_sgn(a->value)));

  // The negation round-trips through its own shortest form.
  ORLIX_BigInteger *n = orlix_biginteger_neg(a);
  FUZZ_CHECK(n != nullptr);
  blob = CheckedGetdata(n);
  FUZZ_CHECK(blob->length <= int64_t(shortest.size()) + 1);
  ORLIX_BigInteger *back = orlix_biginteger_newdata(blob->data, blob->length);
  FUZZ_CHECK(back != nullptr && orlix_biginteger_cmp(back, n) == 0);
  ORLIX_DataBlob *again = CheckedGetdata(back);
  FUZZ_CHECK(again->length == blob->length &&
             fuzz::SameBytes(again->data, blob->data, size_t(blob->length)));
  orlix_data_blob_free(again);
  orlix_data_blob_free(blob);
  orlix_biginteger_free(back);
  orlix_biginteger_free(n);
  orlix_biginteger_free(a);
  return 0;
}
