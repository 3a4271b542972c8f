// Helpers shared by the big-integer suites: an owning handle, values built
// and read through GMP directly (independently of the library's own
// conversions), seeded random values of every sign and many sizes, and a
// runner for Python 3 as an independent oracle.
#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ORLIX_BigInteger.h"
#include "ORLIX_Util.h"
#include "bigint/ORLIX_BigInteger_gmp.hpp"
#include "python_oracle.hpp"
#include "owned.hpp"

namespace bigint_test {

using Big = orlix_test::Big;

using Blob = orlix_test::Blob;

using Bytes = std::vector<unsigned char>;

// A handle whose value is set by GMP from hexadecimal text ("-1f", "0").
inline Big FromHex(const std::string &hex) {
  Big a(orlix_biginteger_new(0));
  if (a && mpz_set_str(a->value, hex.c_str(), 16) != 0) ADD_FAILURE() << "bad hex " << hex;
  return a;
}

// A's value as lower-case hexadecimal text written by GMP; "null" for NULL.
inline std::string HexOf(const ORLIX_BigInteger *a) {
  if (a == nullptr) return "null";
  std::string s(mpz_sizeinbase(a->value, 16) + 2, '\0');
  mpz_get_str(s.data(), 16, a->value);
  s.resize(std::char_traits<char>::length(s.c_str()));
  return s;
}

inline std::string HexBytes(const unsigned char *p, size_t n) {
  static const char digits[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) {
    s += digits[p[i] >> 4];
    s += digits[p[i] & 15];
  }
  return s;
}
inline std::string HexBytes(const Bytes &b) { return HexBytes(b.data(), b.size()); }

inline Bytes RandomBytes(std::mt19937_64 &rng, size_t n) {
  Bytes b(n);
  for (auto &c : b) c = static_cast<unsigned char>(rng());
  return b;
}

// A byte length skewed towards the short and limb-boundary cases, with some
// long ones.
inline size_t RandomLength(std::mt19937_64 &rng) {
  switch (rng() % 4) {
    case 0: return rng() % 10;
    case 1: return 8 * (1 + rng() % 8) + (rng() % 3) - 1;
    case 2: return rng() % 80;
    default: return rng() % 600;
  }
}

// Hex text of a random value of either sign: plain random magnitudes of
// many sizes, and powers of two and their neighbours, which sit on the
// edges of the two's-complement forms.
inline std::string RandomValueHex(std::mt19937_64 &rng, int max_bits = 4200) {
  const int bits = static_cast<int>(rng() % 4 == 0 ? rng() % 130 : rng() % max_bits);
  std::string hex;
  if (rng() % 3 == 0) {
    // 2^bits + delta, delta in -2..2 (bits >= 2 keeps it positive)
    Big v(orlix_biginteger_new(0));
    mpz_setbit(v->value, static_cast<mp_bitcnt_t>(bits < 2 ? 2 : bits));
    const long delta = static_cast<long>(rng() % 5) - 2;
    if (delta >= 0)
      mpz_add_ui(v->value, v->value, static_cast<unsigned long>(delta));
    else
      mpz_sub_ui(v->value, v->value, static_cast<unsigned long>(-delta));
    hex = HexOf(v.get());
  } else {
    const Bytes b = RandomBytes(rng, static_cast<size_t>(bits / 8 + 1));
    hex = HexBytes(b);
    hex.erase(0, std::min(hex.find_first_not_of('0'), hex.size() - 1));
  }
  if (hex != "0" && rng() % 2 == 0) hex = "-" + hex;
  return hex;
}

using orlix_oracle::HavePython;
using orlix_oracle::RunPython;

// Splits a line at single spaces.
inline std::vector<std::string> Fields(const std::string &line) {
  std::vector<std::string> out(1);
  for (char c : line) {
    if (c == ' ')
      out.emplace_back();
    else
      out.back() += c;
  }
  return out;
}

}  // namespace bigint_test
