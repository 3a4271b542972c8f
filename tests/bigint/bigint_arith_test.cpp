// Arithmetic, modular arithmetic, bits and parity of big integers. The
// differential test runs every operation on thousands of seeded random
// operands of both signs and many sizes, and compares each result with
// Python's integers (one python3 process for the whole batch). Operands are
// made and results read through GMP directly, not through the library's
// own conversions.
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bigint_test_util.hpp"

// A request the allocator cannot meet must come back as NULL under
// AddressSanitizer too, as it does from the C library.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }

namespace {

using namespace bigint_test;

constexpr int kCases = 3000;

// For each line "a b m e i" (hex values, decimal bit index) one line of
// results, '-' where the operation has no result.
const char kScript[] = R"PY(
import math, sys

def h(x):
    return format(x, 'x')

def tdiv(a, b):
    q = abs(a) // abs(b)
    if (a < 0) != (b < 0):
        q = -q
    return q, a - q * b

def modpow(a, e, m):
    try:
        return h(pow(a, e, m))
    except ValueError:
        return '-'

for line in open(sys.argv[1]):
    f = line.split()
    a, b, m, e = (int(t, 16) for t in f[:4])
    i = int(f[4])
    M = abs(m)
    q, r = tdiv(a, b)
    half = -(-a >> 1) if a < 0 else a >> 1
    print(' '.join([
        h(a + b), h(a - b), h(a * b), h(-a), h(q), h(r), h(half),
        h(a % M), h((a + b) % M), h((a - b) % M), h((a * b) % M), h(a * a % M),
        modpow(a, e, M), h(math.gcd(a, b)), h(math.lcm(a, b)), modpow(a, -1, M),
        str((a > b) - (a < b)), str((a >> i) & 1), h(a | (1 << i)), h(a & ~(1 << i)),
        str(int(a % 2 == 0)), str(a & 1)]))
)PY";

const char *const kNames[] = {"add",    "sub",      "mul",    "neg",    "div q",  "div r",
                              "div_2",  "mod",      "addmod", "submod", "mulmod", "sqrmod",
                              "expmod", "gcd",      "lcm",    "invmod", "cmp",    "testbit",
                              "setbit", "clearbit", "iseven", "isodd"};

std::string Take(ORLIX_BigInteger *r) {
  Big owned(r);
  return r == nullptr ? "-" : HexOf(r);
}

std::string Sign(int32_t c) { return c < 0 ? "-1" : c > 0 ? "1" : "0"; }

std::vector<std::string> Library(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b,
                                 const ORLIX_BigInteger *m, const ORLIX_BigInteger *e, int32_t i) {
  std::vector<std::string> out;
  out.push_back(Take(orlix_biginteger_add(a, b)));
  out.push_back(Take(orlix_biginteger_sub(a, b)));
  out.push_back(Take(orlix_biginteger_mul(a, b)));
  out.push_back(Take(orlix_biginteger_neg(a)));
  ORLIX_BigInteger *r = nullptr;
  out.push_back(Take(orlix_biginteger_div(a, b, &r)));
  out.push_back(Take(r));
  out.push_back(Take(orlix_biginteger_div_2(a)));
  out.push_back(Take(orlix_biginteger_mod(a, m)));
  out.push_back(Take(orlix_biginteger_addmod(a, b, m)));
  out.push_back(Take(orlix_biginteger_submod(a, b, m)));
  out.push_back(Take(orlix_biginteger_mulmod(a, b, m)));
  out.push_back(Take(orlix_biginteger_sqrmod(a, m)));
  out.push_back(Take(orlix_biginteger_expmod(a, e, m)));
  out.push_back(Take(orlix_biginteger_gcd(a, b)));
  out.push_back(Take(orlix_biginteger_lcm(a, b)));
  out.push_back(Take(orlix_biginteger_invmod(a, m)));
  out.push_back(Sign(orlix_biginteger_cmp(a, b)));
  out.push_back(std::to_string(orlix_biginteger_testbit(a, i)));
  Big set(orlix_biginteger_dup(a));
  EXPECT_EQ(orlix_biginteger_setbit(set.get(), i), 1);
  out.push_back(HexOf(set.get()));
  Big cleared(orlix_biginteger_dup(a));
  EXPECT_EQ(orlix_biginteger_clearbit(cleared.get(), i), 1);
  out.push_back(HexOf(cleared.get()));
  out.push_back(std::to_string(orlix_biginteger_iseven(a)));
  out.push_back(std::to_string(orlix_biginteger_isodd(a)));
  return out;
}

// A non-zero operand; moduli also avoid +-1, where GMP and Python disagree
// about inverses modulo 1.
std::string NonZero(std::mt19937_64 &rng, int max_bits, bool modulus) {
  for (;;) {
    std::string v = RandomValueHex(rng, max_bits);
    if (v != "0" && (!modulus || (v != "1" && v != "-1"))) return v;
  }
}

TEST(BigIntArithmetic, EveryOperationAgainstPython) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  std::mt19937_64 rng(31337);
  struct Case {
    std::string a, b, m, e;
    int32_t i;
  };
  std::vector<Case> cases;
  std::string input;
  for (int n = 0; n < kCases; ++n) {
    Case c;
    c.a = RandomValueHex(rng);
    // Now and then operands that share factors or coincide, so that gcd,
    // lcm, invmod and cmp see more than coprime strangers.
    switch (rng() % 8) {
      case 0: c.b = c.a; break;
      case 1: c.b = c.a[0] == '-' ? c.a.substr(1) : "-" + c.a; break;
      default: c.b = NonZero(rng, 4200, false);
    }
    if (c.b == "0") c.b = "1";
    c.m = NonZero(rng, 1200, true);
    c.e = RandomValueHex(rng, 300);
    const int64_t bits = int64_t(c.a.size()) * 4;
    c.i = static_cast<int32_t>(rng() % 16 == 0 ? rng() % 20000 : rng() % (bits + 80));
    cases.push_back(c);
    input += c.a + " " + c.b + " " + c.m + " " + c.e + " " + std::to_string(c.i) + "\n";
  }
  const auto expected = RunPython(kScript, input);
  ASSERT_EQ(expected.size(), cases.size());

  int failures = 0, inverses = 0, negative_exponents = 0;
  for (size_t n = 0; n < cases.size() && failures < 10; ++n) {
    const Case &c = cases[n];
    Big a = FromHex(c.a), b = FromHex(c.b), m = FromHex(c.m), e = FromHex(c.e);
    const auto got = Library(a.get(), b.get(), m.get(), e.get(), c.i);
    const auto want = Fields(expected[n]);
    ASSERT_EQ(want.size(), got.size());
    for (size_t k = 0; k < got.size(); ++k) {
      if (got[k] == want[k]) continue;
      ++failures;
      ADD_FAILURE() << kNames[k] << " of a=" << c.a << " b=" << c.b << " m=" << c.m << " e=" << c.e
                    << " i=" << c.i << "\n library: " << got[k] << "\n  python: " << want[k];
    }
    inverses += want[15] != "-";
    negative_exponents += c.e[0] == '-' && want[12] != "-";
    // No operation may touch its operands.
    EXPECT_EQ(HexOf(a.get()), c.a);
    EXPECT_EQ(HexOf(b.get()), c.b);
    EXPECT_EQ(HexOf(m.get()), c.m);
    EXPECT_EQ(HexOf(e.get()), c.e);
  }
  // Both outcomes of the partial operations must be well represented.
  EXPECT_GT(inverses, kCases / 4);
  EXPECT_LT(inverses, kCases * 9 / 10);
  EXPECT_GT(negative_exponents, kCases / 10);
}

TEST(BigIntArithmetic, DocumentedExamples) {
  EXPECT_EQ(Take(orlix_biginteger_mod(FromHex("-7").get(), FromHex("3").get())), "2");
  ORLIX_BigInteger *rem = nullptr;
  EXPECT_EQ(Take(orlix_biginteger_div(FromHex("-7").get(), FromHex("2").get(), &rem)), "-3");
  EXPECT_EQ(Take(rem), "-1");
  EXPECT_EQ(Take(orlix_biginteger_div_2(FromHex("-3").get())), "-1");
  EXPECT_EQ(Take(orlix_biginteger_div_2(FromHex("3").get())), "1");
  EXPECT_EQ(Take(orlix_biginteger_mod(FromHex("7").get(), FromHex("-3").get())), "1");
  EXPECT_EQ(Take(orlix_biginteger_invmod(FromHex("3").get(), FromHex("7").get())), "5");
  EXPECT_EQ(Take(orlix_biginteger_invmod(FromHex("6").get(), FromHex("9").get())), "-");
  EXPECT_EQ(Take(orlix_biginteger_invmod(FromHex("0").get(), FromHex("9").get())), "-");
  // A negative exponent without an inverse is refused rather than reaching
  // GMP's division by zero.
  EXPECT_EQ(
      Take(orlix_biginteger_expmod(FromHex("6").get(), FromHex("-1").get(), FromHex("9").get())),
      "-");
  EXPECT_EQ(
      Take(orlix_biginteger_expmod(FromHex("3").get(), FromHex("-2").get(), FromHex("7").get())),
      "4");
  EXPECT_EQ(
      Take(orlix_biginteger_expmod(FromHex("0").get(), FromHex("0").get(), FromHex("7").get())),
      "1");
  EXPECT_EQ(Take(orlix_biginteger_gcd(FromHex("0").get(), FromHex("0").get())), "0");
  EXPECT_EQ(Take(orlix_biginteger_lcm(FromHex("0").get(), FromHex("-4").get())), "0");
}

TEST(BigIntArithmetic, NullArgumentsGiveNull) {
  Big x = FromHex("5");
  const ORLIX_BigInteger *n = nullptr;
  const std::vector<
      std::function<ORLIX_BigInteger *(const ORLIX_BigInteger *, const ORLIX_BigInteger *)>>
      two = {orlix_biginteger_add,    orlix_biginteger_sub,   orlix_biginteger_mul,
             orlix_biginteger_mod,    orlix_biginteger_gcd,   orlix_biginteger_lcm,
             orlix_biginteger_invmod, orlix_biginteger_sqrmod};
  for (const auto &op : two) {
    EXPECT_EQ(op(n, x.get()), nullptr);
    EXPECT_EQ(op(x.get(), n), nullptr);
  }
  const std::vector<std::function<ORLIX_BigInteger *(
      const ORLIX_BigInteger *, const ORLIX_BigInteger *, const ORLIX_BigInteger *)>>
      three = {orlix_biginteger_addmod, orlix_biginteger_submod, orlix_biginteger_mulmod,
               orlix_biginteger_expmod};
  for (const auto &op : three) {
    EXPECT_EQ(op(n, x.get(), x.get()), nullptr);
    EXPECT_EQ(op(x.get(), n, x.get()), nullptr);
    EXPECT_EQ(op(x.get(), x.get(), n), nullptr);
  }
  EXPECT_EQ(orlix_biginteger_neg(nullptr), nullptr);
  EXPECT_EQ(orlix_biginteger_div_2(nullptr), nullptr);
  ORLIX_BigInteger *rem = x.get();
  EXPECT_EQ(orlix_biginteger_div(x.get(), n, &rem), nullptr);
  EXPECT_EQ(rem, nullptr);
  EXPECT_EQ(orlix_biginteger_div(x.get(), x.get(), nullptr), nullptr);
}

TEST(BigIntBits, ParityIndexRulesAndInPlaceChanges) {
  Big zero = FromHex("0");
  EXPECT_EQ(orlix_biginteger_iseven(zero.get()), 1);
  EXPECT_EQ(orlix_biginteger_isodd(zero.get()), 0);
  EXPECT_EQ(orlix_biginteger_iseven(nullptr), 0);
  EXPECT_EQ(orlix_biginteger_isodd(nullptr), 0);
  EXPECT_EQ(orlix_biginteger_isodd(FromHex("-3").get()), 1);
  EXPECT_EQ(orlix_biginteger_iseven(FromHex("-4").get()), 1);

  // Two's-complement view: -4 is ...11100.
  Big v = FromHex("-4");
  EXPECT_EQ(orlix_biginteger_testbit(v.get(), 0), 0);
  EXPECT_EQ(orlix_biginteger_testbit(v.get(), 2), 1);
  EXPECT_EQ(orlix_biginteger_testbit(v.get(), 1000), 1);
  EXPECT_EQ(orlix_biginteger_testbit(v.get(), -1), 0);
  EXPECT_EQ(orlix_biginteger_testbit(nullptr, 0), 0);
  EXPECT_EQ(orlix_biginteger_setbit(v.get(), 0), 1);  // ...11101 = -3
  EXPECT_EQ(HexOf(v.get()), "-3");
  EXPECT_EQ(orlix_biginteger_clearbit(v.get(), 64), 1);  // clears a sign bit: -3 - 2^64
  EXPECT_EQ(HexOf(v.get()), "-10000000000000003");
  EXPECT_EQ(orlix_biginteger_setbit(v.get(), -1), 0);
  EXPECT_EQ(orlix_biginteger_clearbit(v.get(), -1), 0);
  EXPECT_EQ(HexOf(v.get()), "-10000000000000003");
  EXPECT_EQ(orlix_biginteger_setbit(nullptr, 1), 0);
  EXPECT_EQ(orlix_biginteger_clearbit(nullptr, 1), 0);
  Big w = FromHex("0");
  EXPECT_EQ(orlix_biginteger_setbit(w.get(), 200), 1);
  EXPECT_EQ(orlix_biginteger_getbitcount(w.get()), 201);
  EXPECT_EQ(orlix_biginteger_clearbit(w.get(), 200), 1);
  EXPECT_EQ(orlix_biginteger_getsign(w.get()), 0);
}

// GMP's memory functions are the library's from load on and fail by
// exception (the allocation-failure sweep fails them inside every operation).
TEST(BigIntGmpMemory, InstalledAtLoadAndThrowing) {
  void *(*alloc)(size_t) = nullptr;
  void *(*realloc_fn)(void *, size_t, size_t) = nullptr;
  void (*free_fn)(void *, size_t) = nullptr;
  mp_get_memory_functions(&alloc, &realloc_fn, &free_fn);
  EXPECT_THROW(alloc(SIZE_MAX / 2), gmpexception);
  void *p = alloc(16);
  ASSERT_NE(p, nullptr);
  std::memset(p, 0xAB, 16);
  EXPECT_THROW(realloc_fn(p, 16, SIZE_MAX / 2), gmpexception);
  // A failed growth leaves the block as it was.
  EXPECT_EQ(static_cast<unsigned char *>(p)[15], 0xAB);
  p = realloc_fn(p, 16, 4096);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(static_cast<unsigned char *>(p)[15], 0xAB);
  free_fn(p, 4096);

  // Calling the initialiser again keeps the same functions.
  orlix_biginteger_init();
  void *(*again)(size_t) = nullptr;
  mp_get_memory_functions(&again, nullptr, nullptr);
  EXPECT_EQ(again, alloc);
}

}  // namespace
