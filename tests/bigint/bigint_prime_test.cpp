// Primality tests and prime generation. Small numbers are checked against
// trial division, large ones against known primes and composites; generated
// primes are checked for their exact size and forced bits, and replayed
// from the recorded random bytes to show that the first acceptable
// candidate is the one returned. GMP's own test (called directly, with its
// own round count) is the oracle for large candidates.
#include <string>
#include <vector>

#include "bigint_test_util.hpp"

namespace {

using namespace bigint_test;

bool SmallPrime(uint64_t v) {
  if (v < 2) return false;
  for (uint64_t d = 2; d * d <= v; ++d)
    if (v % d == 0) return false;
  return true;
}

bool OraclePrime(mpz_srcptr z) { return mpz_probab_prime_p(z, 50) != 0; }

// A deterministic random source that records every buffer it hands out.
struct Recorder {
  uint64_t state;
  std::vector<Bytes> draws;
  int fail_after = -1;  // the call with this index (from 0) fails
  int failure_result = 0;
};

int RecordingRandom(void *context, unsigned char *buffer, int64_t length) {
  auto *r = static_cast<Recorder *>(context);
  if (r->fail_after == static_cast<int>(r->draws.size())) return r->failure_result;
  for (int64_t i = 0; i < length; ++i) {
    r->state ^= r->state << 13;
    r->state ^= r->state >> 7;
    r->state ^= r->state << 17;
    buffer[i] = static_cast<unsigned char>(r->state >> 24);
  }
  r->draws.emplace_back(buffer, buffer + length);
  return 1;
}

// The candidate a draw should become, built arithmetically: the draw's
// value modulo 2^bits with the top bit, the second bit if asked, and the
// low bits forced.
Big ExpectedCandidate(const Bytes &draw, int bits, int flags) {
  Big c(orlix_biginteger_new(0));
  mpz_import(c->value, draw.size(), 1, 1, 1, 0, draw.data());
  mpz_fdiv_r_2exp(c->value, c->value, static_cast<mp_bitcnt_t>(bits));
  mpz_setbit(c->value, static_cast<mp_bitcnt_t>(bits - 1));
  if (flags & ORLIX_BIGINTEGER_PRIME_TOP_TWO)
    mpz_setbit(c->value, static_cast<mp_bitcnt_t>(bits - 2));
  mpz_setbit(c->value, 0);
  if (flags & ORLIX_BIGINTEGER_PRIME_SAFE) mpz_setbit(c->value, 1);
  return c;
}

bool Acceptable(mpz_srcptr p, int flags) {
  if (!OraclePrime(p)) return false;
  if (!(flags & ORLIX_BIGINTEGER_PRIME_SAFE)) return true;
  mpz_t q;
  mpz_init(q);
  mpz_fdiv_q_2exp(q, p, 1);
  const bool ok = OraclePrime(q);
  mpz_clear(q);
  return ok;
}

// Generates one prime and checks it: exact size, forced bits, primality
// (and that of (p - 1) / 2 for a safe prime), and that it is the first
// acceptable candidate among the recorded draws.
void CheckGenerated(int bits, int flags, uint64_t seed) {
  SCOPED_TRACE(testing::Message() << "bits " << bits << " flags " << flags << " seed " << seed);
  Recorder rec{seed | 1, {}};
  Big p(orlix_biginteger_newprime(RecordingRandom, &rec, bits, flags));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(orlix_biginteger_getbitcount(p.get()), bits);
  if (flags & ORLIX_BIGINTEGER_PRIME_TOP_TWO) {
    EXPECT_EQ(mpz_tstbit(p->value, bits - 2), 1);
  }
  if (flags & ORLIX_BIGINTEGER_PRIME_SAFE) {
    EXPECT_EQ(mpz_fdiv_ui(p->value, 4), 3u);
  }
  EXPECT_TRUE(Acceptable(p->value, flags));

  ASSERT_FALSE(rec.draws.empty());
  for (const Bytes &draw : rec.draws) EXPECT_EQ(draw.size(), size_t(bits + 7) / 8);
  for (size_t k = 0; k + 1 < rec.draws.size(); ++k) {
    Big c = ExpectedCandidate(rec.draws[k], bits, flags);
    EXPECT_FALSE(Acceptable(c->value, flags))
        << "draw " << k << " was acceptable: " << HexOf(c.get());
  }
  Big last = ExpectedCandidate(rec.draws.back(), bits, flags);
  EXPECT_EQ(HexOf(last.get()), HexOf(p.get()));
}

TEST(BigIntPrime, SmallNumbersAgainstTrialDivision) {
  for (int64_t n = -3000; n <= 3000; ++n) {
    Big a(orlix_biginteger_new(n));
    const int want = SmallPrime(static_cast<uint64_t>(n < 0 ? -n : n));
    ASSERT_EQ(orlix_biginteger_isprime(a.get()), want) << n;
    ASSERT_EQ(orlix_biginteger_isprime_fasttest(a.get()), want) << n;
  }
  EXPECT_EQ(orlix_biginteger_isprime(nullptr), 0);
  EXPECT_EQ(orlix_biginteger_isprime_fasttest(nullptr), 0);
}

TEST(BigIntPrime, KnownLargePrimesAndComposites) {
  Big m127 = FromHex(std::string("7") + std::string(31, 'f'));    // 2^127 - 1
  Big m521 = FromHex(std::string("1") + std::string(130, 'f'));   // 2^521 - 1
  Big m607 = FromHex(std::string("7f") + std::string(150, 'f'));  // 2^607 - 1
  Big p25519 = FromHex("7" + std::string(61, 'f') + "ed");        // 2^255 - 19
  for (const Big *p : {&m127, &m521, &m607, &p25519}) {
    EXPECT_EQ(orlix_biginteger_isprime(p->get()), 1) << HexOf(p->get());
    EXPECT_EQ(orlix_biginteger_isprime_fasttest(p->get()), 1) << HexOf(p->get());
  }
  Big m61 = FromHex("1fffffffffffffff");  // 2^61 - 1
  Big product(orlix_biginteger_mul(m127.get(), m61.get()));
  Big all_ones = FromHex(std::string(64, 'f'));  // 2^256 - 1
  std::vector<Big> composites;
  composites.push_back(std::move(product));
  composites.push_back(std::move(all_ones));
  // Carmichael numbers and strong pseudoprimes to many small bases.
  for (const char *dec : {"561", "41041", "825265", "3215031751", "3825123056546413051",
                          "318665857834031151167461", "3317044064679887385961981"})
    composites.emplace_back(orlix_biginteger_newdec(dec));
  // The product of two 400-bit primes found by GMP.
  {
    Big p = FromHex("1" + std::string(100, '0')), q = FromHex("1" + std::string(99, '0') + "7");
    mpz_nextprime(p->value, p->value);
    mpz_nextprime(q->value, q->value);
    composites.emplace_back(orlix_biginteger_mul(p.get(), q.get()));
  }
  for (const Big &c : composites) {
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(orlix_biginteger_isprime(c.get()), 0) << HexOf(c.get());
    EXPECT_EQ(orlix_biginteger_isprime_fasttest(c.get()), 0) << HexOf(c.get());
  }
}

TEST(BigIntPrime, FastTestRoundsBySize) {
  // The documented summary of the size table, written as ranges.
  auto expected = [](int64_t bits) {
    if (bits < 256) return 28;
    if (bits < 384) return 16;
    if (bits < 512) return 10;
    if (bits < 640) return 7;
    if (bits < 768) return 6;
    return 5;
  };
  for (int64_t bits = 0; bits <= 1100; ++bits)
    ASSERT_EQ(orlix::bigint::fasttest_rounds(bits), expected(bits)) << bits;
  EXPECT_EQ(orlix::bigint::fasttest_rounds(200), 28);
  EXPECT_EQ(orlix::bigint::fasttest_rounds(256), 16);
  EXPECT_EQ(orlix::bigint::fasttest_rounds(2048), 5);
}

TEST(BigIntNewPrime, SmallSizesEveryFormOrNull) {
  const int flag_sets[] = {0, 1, 2, 3, 0x80, 0x81, 0x82, 0x83};
  for (int bits = 2; bits <= 14; ++bits) {
    for (int flags : flag_sets) {
      // Whether any number of that form qualifies, by brute force.
      bool exists = false;
      for (uint64_t v = uint64_t{1} << (bits - 1); v < uint64_t{1} << bits && !exists; ++v) {
        if ((flags & 2) && !(v >> (bits - 2) & 1)) continue;
        if (!(v & 1) || ((flags & 1) && (v & 3) != 3)) continue;
        exists = SmallPrime(v) && (!(flags & 1) || SmallPrime(v >> 1));
      }
      if (exists) {
        for (uint64_t seed = 1; seed <= 5; ++seed) CheckGenerated(bits, flags, seed * 7919);
      } else {
        Recorder rec{1, {}};
        EXPECT_EQ(orlix_biginteger_newprime(RecordingRandom, &rec, bits, flags), nullptr)
            << "bits " << bits << " flags " << flags;
        EXPECT_TRUE(rec.draws.empty());
      }
    }
  }
}

TEST(BigIntNewPrime, LargerSizesAndFlags) {
  struct Case {
    int bits, flags;
  } const cases[] = {{64, 0},     {64, 0x03},   {65, 0x02},   {127, 0x80}, {128, 0x82},
                     {129, 0x82}, {200, 0x81},  {256, 0x80},  {256, 0x83}, {512, 0x82},
                     {512, 0x81}, {1024, 0x80}, {1024, 0x82}, {255, 0x00}};
  uint64_t seed = 11;
  for (const Case &c : cases) CheckGenerated(c.bits, c.flags, seed += 0x9E3779B97F4A7C15u);
}

TEST(BigIntNewPrime, DocumentedForms) {
  Recorder rec{42, {}};
  for (int i = 0; i < 40; ++i) {
    Big p(orlix_biginteger_newprime(RecordingRandom, &rec, 9, ORLIX_BIGINTEGER_PRIME_TOP_TWO));
    ASSERT_NE(p, nullptr);
    int64_t v = 0;
    ASSERT_EQ(orlix_biginteger_getvalue(p.get(), &v), 1);
    EXPECT_GE(v, 384);
    EXPECT_LT(v, 512);
    Big s(orlix_biginteger_newprime(RecordingRandom, &rec, 9 + i, ORLIX_BIGINTEGER_PRIME_SAFE));
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(mpz_fdiv_ui(s->value, 4), 3u);
  }
}

TEST(BigIntNewPrime, FailuresGiveNull) {
  Recorder rec{3, {}};
  EXPECT_EQ(orlix_biginteger_newprime(RecordingRandom, &rec, 1, 0), nullptr);
  EXPECT_EQ(orlix_biginteger_newprime(RecordingRandom, &rec, 0, 0), nullptr);
  EXPECT_EQ(orlix_biginteger_newprime(RecordingRandom, &rec, -5, 0), nullptr);
  EXPECT_TRUE(rec.draws.empty());
  EXPECT_EQ(orlix_biginteger_newprime(nullptr, &rec, 64, 0), nullptr);

  // The first failing call ends the search at once, whatever it returned.
  for (int result : {0, 2, -1}) {
    for (int fail_after : {0, 3}) {
      // A safe prime of 512 bits: no chance of success within three draws.
      Recorder failing{5, {}, fail_after, result};
      EXPECT_EQ(orlix_biginteger_newprime(RecordingRandom, &failing, 512, 0x81), nullptr);
      EXPECT_LE(failing.draws.size(), size_t(fail_after));
    }
  }
}

}  // namespace
