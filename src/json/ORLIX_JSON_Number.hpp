// Exact conversion of the decoder's number texts whose significant digits
// fit 64 bits, without the C library. Every result is the double nearest to
// the decimal value (ties to even), the one strtod gives; what cannot be
// decided exactly here is left to the caller's general conversion. Only the
// decoder includes this, so that the conversion is inlined there.
#pragma once

#include <cstdint>
#include <cstring>

namespace orlix::json {

namespace number_detail {

using u128 = unsigned __int128;

inline constexpr uint64_t pow10_u64(int k) {
  uint64_t p = 1;
  for (int i = 0; i < k; ++i) p *= 10;
  return p;
}

inline constexpr uint64_t pow5_u64(int k) {
  uint64_t p = 1;
  for (int i = 0; i < k; ++i) p *= 5;
  return p;
}

inline constexpr int bit_length(uint64_t v) {
  int n = 0;
  while (v != 0) {
    v >>= 1;
    ++n;
  }
  return n;
}

// For 5^k (k = 1..27, below 2^63): P = floor(2^E / 5^k) with E = 127 + the
// bit length of 5^k, which puts P in [2^127, 2^128). Found by long division
// of 2^E, one quotient bit at a time.
inline constexpr int kMaxDivisorPower = 27;
struct Reciprocal {
  u128 p;
  int e;
};
struct ReciprocalTable {
  Reciprocal r[kMaxDivisorPower + 1];
  constexpr ReciprocalTable() : r() {
    for (int k = 1; k <= kMaxDivisorPower; ++k) {
      const uint64_t d = pow5_u64(k);
      const int e = 127 + bit_length(d);
      u128 rest = 0;
      u128 q = 0;
      for (int bit = e; bit >= 0; --bit) {
        rest = rest * 2 + (bit == e ? 1 : 0);
        if (rest >= d) {
          rest -= d;
          if (bit < 128) q |= static_cast<u128>(1) << bit;
        }
      }
      r[k] = Reciprocal{q, e};
    }
  }
};
inline constexpr ReciprocalTable kReciprocals;

inline constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

inline double from_bits(uint64_t bits) {
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

// m * 2^exponent as a double when it is a normal one (m below 2^53, at or
// above 2^52), else false.
inline bool normal_double(uint64_t mantissa, int exponent, double *out) {
  if (mantissa == (uint64_t{1} << 53)) {
    mantissa >>= 1;
    ++exponent;
  }
  const int biased = exponent + 52 + 1023;
  if (biased <= 0 || biased >= 0x7FF) return false;
  *out = from_bits(static_cast<uint64_t>(biased) << 52 | (mantissa & ((uint64_t{1} << 52) - 1)));
  return true;
}

// The whole-product form of divide_by_power_of_ten below, for m' = mn and
// c, k as there.
__attribute__((noinline)) inline bool divide_by_whole_product(uint64_t mn, int k, int c, double *out) {
  const Reciprocal &r = kReciprocals.r[k];
  const u128 hi = static_cast<u128>(mn) * static_cast<uint64_t>(r.p >> 64);
  const u128 lo = static_cast<u128>(mn) * static_cast<uint64_t>(r.p);
  const u128 mid = (lo >> 64) + static_cast<uint64_t>(hi);
  const uint64_t top = static_cast<uint64_t>(hi >> 64) + static_cast<uint64_t>(mid >> 64);
  const u128 upper = static_cast<u128>(top) << 64 | static_cast<uint64_t>(mid);  // X >> 64
  const int below = (top >> 63) != 0 ? 74 : 73;  // bits of upper under the top 54
  const u128 under = upper & ((static_cast<u128>(1) << below) - 1);
  if (under + 2 > (static_cast<u128>(1) << below)) return false;
  const auto top54 = static_cast<uint64_t>(upper >> below);
  return normal_double((top54 >> 1) + (top54 & 1), below + 64 + 1 - r.e - k - c, out);
}

// m / 10^k for k = 1..27, m != 0, as below; false when undecided.
//
// m / 10^k = (m' / 5^k) * 2^(-k-c) with m' = m * 2^c in [2^63, 2^64).
// T = m' * 2^E / 5^k = X + err with X = m' * P and 0 < err < 2^64 (P is
// 2^E / 5^k rounded down by less than 1, and 5^k never divides 2^E). X has
// 191 or 192 bits; its top 54 are T's top 54 and every bit below them in T
// is nonzero in sum unless the bits of X under the top 54 come within 2^64
// of carrying into them.
//
// Most often the top 54 bits and that test are settled by the high half of
// P alone: X >> 128 is the top word of m' * (P >> 64), plus a carry of at
// most one from the rest. Only when that word's bits under the top 54 are
// all ones, or one short of it, does the whole product decide.
__attribute__((always_inline)) inline bool divide_by_power_of_ten(uint64_t m, int k, double *out) {
  const int c = __builtin_clzll(m);
  const uint64_t mn = m << c;
  const Reciprocal &r = kReciprocals.r[k];
  const auto top_guess =
      static_cast<uint64_t>(static_cast<u128>(mn) * static_cast<uint64_t>(r.p >> 64) >> 64);
  const int under_top = (top_guess >> 63) != 0 ? 10 : 9;  // bits of the top word under the top 54
  const uint64_t under_mask = (uint64_t{1} << under_top) - 1;
  if ((top_guess & under_mask) >= under_mask - 1) return divide_by_whole_product(mn, k, c, out);
  const uint64_t top54 = top_guess >> under_top;
  // The bits under the top 54 are nonzero: a set round bit means above the
  // halfway point.
  return normal_double((top54 >> 1) + (top54 & 1), under_top + 128 + 1 - r.e - k - c, out);
}

}  // namespace number_detail

// The double nearest to m * 10^q (ties to even), negated when negative, in
// *out; false when the value is not decided here (then nothing is stored):
// the caller converts the text the general way.
__attribute__((always_inline)) inline bool exact_decimal(uint64_t m, int32_t q, bool negative,
                                                         double *out) {
  using namespace number_detail;
  double v;
  if (m == 0) {
    v = 0.0;
  } else if (q == 0) {
    v = static_cast<double>(m);  // rounds to nearest, ties to even
  } else if (q > 0) {
    if (q > 19) return false;
    // m * 10^q is below 2^128 and exact; converting an integer to a double
    // rounds to nearest, ties to even.
    v = static_cast<double>(static_cast<u128>(m) * pow10_u64(q));
  } else if (q >= -kMaxDivisorPower) {
    // The product with a reciprocal settles nearly every value in a few
    // steps. What it leaves (chiefly decimals that are exact in binary, such
    // as 0.5) goes to one division when both operands are exact doubles.
    if (!divide_by_power_of_ten(m, -q, &v)) {
      if (q < -22 || m > (uint64_t{1} << 53)) return false;
      v = static_cast<double>(m) / kExactPowers[-q];
    }
  } else {
    return false;
  }
  *out = negative ? -v : v;
  return true;
}

}  // namespace orlix::json
