// Big integers: every handle and every buffer handed out comes from the
// library's allocator, and GMP's limbs from GMP's memory functions; each
// scenario is swept over both.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "ORLIX_BigInteger.h"
#include "ORLIX_Util.h"
#include "scenario_util.hpp"
#include "sweep.hpp"
#include "owned.hpp"

namespace {

using Big = orlix_test::Big;

using Blob = orlix_test::Blob;

int64_t ValueOf(const ORLIX_BigInteger *a) {
  int64_t v = 0;
  EXPECT_EQ(orlix_biginteger_getvalue(a, &v), 1);
  return v;
}

int CountingRandom(void *context, unsigned char *buffer, int64_t length) {
  auto *state = static_cast<uint64_t *>(context);
  for (int64_t i = 0; i < length; ++i) {
    *state = *state * 6364136223846793005u + 1442695040888963407u;
    buffer[i] = static_cast<unsigned char>(*state >> 56);
  }
  return 1;
}

}  // namespace

// Every constructor, each failing on its handle record.
ORLIX_OOM_GMP_SCENARIO(Construct, 0) {
  Big a(orlix_biginteger_new(-1234567));
  if (!a) return false;
  const unsigned char bytes[] = {0xFF, 0xFE, 0x00, 0x01, 0x80};
  Big b(orlix_biginteger_newdata(bytes, sizeof bytes));
  if (!b) return false;
  Big c(orlix_biginteger_newunsigneddata(bytes, sizeof bytes));
  if (!c) return false;
  Big d(orlix_biginteger_newdec("-98765432109876543210"));
  if (!d) return false;
  Big e(orlix_biginteger_dup(d.get()));
  if (!e) return false;
  EXPECT_EQ(ValueOf(a.get()), -1234567);
  EXPECT_EQ(ValueOf(b.get()), -0x1FFFE80);
  EXPECT_EQ(ValueOf(c.get()), 0xFFFE000180);
  EXPECT_EQ(orlix_biginteger_cmp(d.get(), e.get()), 0);
  return true;
}

// Every arithmetic operation, each making one new handle (div two).
ORLIX_OOM_GMP_SCENARIO(Arithmetic, 0) {
  Big a(orlix_biginteger_newdec("-123456789012345678901234567890"));
  if (!a) return false;
  Big b(orlix_biginteger_newdec("9876543210987"));
  if (!b) return false;
  Big m(orlix_biginteger_newdec("1000000007"));
  if (!m) return false;

  Big sum(orlix_biginteger_add(a.get(), b.get()));
  if (!sum) return false;
  Big back(orlix_biginteger_sub(sum.get(), b.get()));
  if (!back) return false;
  EXPECT_EQ(orlix_biginteger_cmp(back.get(), a.get()), 0);

  ORLIX_BigInteger *rest = nullptr;
  Big q(orlix_biginteger_div(a.get(), b.get(), &rest));
  Big r(rest);
  if (!q) {
    EXPECT_EQ(rest, nullptr);
    return false;
  }
  Big qb(orlix_biginteger_mul(q.get(), b.get()));
  if (!qb) return false;
  Big whole(orlix_biginteger_add(qb.get(), r.get()));
  if (!whole) return false;
  EXPECT_EQ(orlix_biginteger_cmp(whole.get(), a.get()), 0);

  Big neg(orlix_biginteger_neg(a.get()));
  if (!neg) return false;
  Big half(orlix_biginteger_div_2(neg.get()));
  if (!half) return false;
  Big mod(orlix_biginteger_mod(a.get(), m.get()));
  if (!mod) return false;
  Big addmod(orlix_biginteger_addmod(a.get(), b.get(), m.get()));
  if (!addmod) return false;
  Big submod(orlix_biginteger_submod(a.get(), b.get(), m.get()));
  if (!submod) return false;
  Big mulmod(orlix_biginteger_mulmod(a.get(), b.get(), m.get()));
  if (!mulmod) return false;
  Big sqrmod(orlix_biginteger_sqrmod(a.get(), m.get()));
  if (!sqrmod) return false;
  Big expmod(orlix_biginteger_expmod(b.get(), m.get(), m.get()));
  if (!expmod) return false;
  Big gcd(orlix_biginteger_gcd(a.get(), b.get()));
  if (!gcd) return false;
  Big lcm(orlix_biginteger_lcm(a.get(), b.get()));
  if (!lcm) return false;
  Big inverse(orlix_biginteger_invmod(b.get(), m.get()));
  if (!inverse) return false;

  // Fermat: b^m = b (mod m) for the prime m; b * b^-1 = 1 (mod m).
  Big b_mod(orlix_biginteger_mod(b.get(), m.get()));
  if (!b_mod) return false;
  EXPECT_EQ(orlix_biginteger_cmp(expmod.get(), b_mod.get()), 0);
  Big one(orlix_biginteger_mulmod(b.get(), inverse.get(), m.get()));
  if (!one) return false;
  EXPECT_EQ(ValueOf(one.get()), 1);
  EXPECT_EQ(orlix_biginteger_getsign(mod.get()), 1);
  return true;
}

// The conversions that hand out buffers: a blob (record, then bytes) and a
// decimal text.
ORLIX_OOM_GMP_SCENARIO(ConvertOut, 0) {
  Big a(orlix_biginteger_newdec("-340282366920938463463374607431768211457"));  // -(2^128 + 1)
  if (!a) return false;
  Blob blob(orlix_biginteger_getdata(a.get()));
  if (!blob) return false;
  EXPECT_EQ(blob->length, 17);
  EXPECT_EQ(blob->data[0], 0xFE);
  EXPECT_EQ(blob->data[16], 0xFF);

  Big n(orlix_biginteger_neg(a.get()));
  if (!n) return false;
  char *text = nullptr;
  int64_t length = 0;
  if (orlix_biginteger_unsigned_todec(n.get(), &text, &length) != 1) {
    EXPECT_EQ(text, nullptr);
    return false;
  }
  EXPECT_STREQ(text, "340282366920938463463374607431768211457");
  EXPECT_EQ(length, 39);
  orlix_free(text);
  unsigned char buffer[20];
  EXPECT_EQ(orlix_biginteger_unsigned_tonbuf(n.get(), sizeof buffer, buffer), 1);
  return true;
}

// Prime generation makes a handle per candidate and releases every
// rejected one; a failure at any of them ends the search. GMP's primality
// test holds at most two heap integers and its random state.
ORLIX_OOM_GMP_SCENARIO(NewPrime, 3) {
  uint64_t state = 2024;
  Big p(orlix_biginteger_newprime(CountingRandom, &state, 64,
                                  ORLIX_BIGINTEGER_PRIME_TOP_TWO | ORLIX_BIGINTEGER_PRIME_FAST));
  if (!p) return false;
  EXPECT_EQ(orlix_biginteger_getbitcount(p.get()), 64);
  return orlix_biginteger_isprime(p.get()) == 1;  // 0 also when memory runs out
}

// Operands large enough that GMP takes its temporaries from the heap too, so
// that failures strike inside the algorithms and not only where the result
// is sized; those temporaries are stranded by a failure.
ORLIX_OOM_GMP_SCENARIO(LargeOperands, 16) {
  const auto bytes = oom::Pattern(60000);
  Big x(orlix_biginteger_newunsigneddata(bytes.data(), int64_t(bytes.size())));
  if (!x) return false;
  Big y(orlix_biginteger_newdata(bytes.data(), 41000));
  if (!y) return false;
  Big m(orlix_biginteger_newunsigneddata(bytes.data(), 256));
  if (!m) return false;
  Big product(orlix_biginteger_mul(x.get(), y.get()));
  if (!product) return false;
  ORLIX_BigInteger *rest = nullptr;
  Big quotient(orlix_biginteger_div(product.get(), y.get(), &rest));
  Big r(rest);
  if (!quotient) return false;
  EXPECT_EQ(orlix_biginteger_cmp(quotient.get(), x.get()), 0);
  EXPECT_EQ(orlix_biginteger_getsign(r.get()), 0);
  Big gcd(orlix_biginteger_gcd(x.get(), y.get()));
  if (!gcd) return false;
  Big mulmod(orlix_biginteger_mulmod(x.get(), y.get(), m.get()));
  if (!mulmod) return false;
  char *text = nullptr;  // GMP's conversion takes temporaries of its own
  if (orlix_biginteger_unsigned_todec(m.get(), &text, nullptr) != 1) return false;
  orlix_free(text);
  Big prime(orlix_biginteger_newdec("40234967541156120656123962919"));
  if (!prime) return false;
  const int is_prime = orlix_biginteger_isprime(prime.get());
  if (is_prime == 0) return false;
  EXPECT_EQ(is_prime, 1);
  return true;
}
