// Big integers: ours against GMP called directly (modular exponentiation)
// and OpenSSL's BIGNUM (byte conversions, prime generation). Each pair does
// the same work on both sides; the comment above each pair says how. Before
// timing, main checks that both sides give the same answers.
#include <gmp.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ORLIX_BigInteger.h"
#include "ORLIX_Util.h"
#include "bench_common.hpp"

namespace {

constexpr int64_t kBytes = 256;  // 2048 bits

// A 256-byte value with its top bit clear, so that its shortest
// two's-complement form (ours) and its unsigned form (OpenSSL's) are the
// same 256 bytes.
std::vector<unsigned char> positive_bytes(uint64_t seed) {
  std::vector<unsigned char> b = orlix_bench::pseudo_random_bytes(kBytes, seed);
  b[0] = static_cast<unsigned char>((b[0] & 0x7F) | 0x40);
  return b;
}

struct Operands {
  std::vector<unsigned char> base = positive_bytes(1), exponent = positive_bytes(2),
                             modulus = positive_bytes(3);
  Operands() { modulus.back() |= 1; }  // odd, as cryptographic moduli are
};

const Operands &operands() {
  static const Operands o;
  return o;
}

ORLIX_BigInteger *ours_from(const std::vector<unsigned char> &b) {
  return orlix_biginteger_newdata(b.data(), static_cast<int64_t>(b.size()));
}

void mpz_from(mpz_t z, const std::vector<unsigned char> &b) {
  mpz_init(z);
  mpz_import(z, b.size(), 1, 1, 1, 0, b.data());
}

// ---- modular exponentiation ------------------------------------------------
// 2048-bit base, exponent and odd modulus. Each iteration computes one
// power into a new result and releases it: orlix_biginteger_expmod and
// orlix_biginteger_free on our side, mpz_init, mpz_powm and mpz_clear on
// GMP's. The difference is our handle around GMP's integer.

void expmod_ours(benchmark::State &state) {
  ORLIX_BigInteger *b = ours_from(operands().base);
  ORLIX_BigInteger *e = ours_from(operands().exponent);
  ORLIX_BigInteger *m = ours_from(operands().modulus);
  bool ok = b && e && m;
  for (auto _ : state) {
    ORLIX_BigInteger *r = orlix_biginteger_expmod(b, e, m);
    ok &= r != nullptr;
    benchmark::DoNotOptimize(r);
    orlix_biginteger_free(r);
  }
  orlix_biginteger_free(b);
  orlix_biginteger_free(e);
  orlix_biginteger_free(m);
  orlix_bench::finish(state, ok, kBytes);
}

void expmod_gmp(benchmark::State &state) {
  mpz_t b, e, m;
  mpz_from(b, operands().base);
  mpz_from(e, operands().exponent);
  mpz_from(m, operands().modulus);
  for (auto _ : state) {
    mpz_t r;
    mpz_init(r);
    mpz_powm(r, b, e, m);
    benchmark::DoNotOptimize(r->_mp_d);
    mpz_clear(r);
  }
  mpz_clear(b);
  mpz_clear(e);
  mpz_clear(m);
  orlix_bench::finish(state, true, kBytes);
}

// ---- bytes in and out ------------------------------------------------------
// In: each iteration reads the 256 bytes into a new integer and releases it
// (orlix_biginteger_newdata / BN_bin2bn). Out: each iteration writes one
// integer's 256 bytes into a newly allocated block, checks the length and
// releases the block. orlix_biginteger_getdata allocates its blob (record
// and bytes) inside the call; BN_bn2bin writes into the caller's buffer, so
// its side mallocs the 256 bytes per iteration (our default allocation hook
// is malloc too).

void newdata_ours(benchmark::State &state) {
  const std::vector<unsigned char> &in = operands().base;
  bool ok = true;
  for (auto _ : state) {
    ORLIX_BigInteger *a = orlix_biginteger_newdata(in.data(), kBytes);
    ok &= a != nullptr;
    benchmark::DoNotOptimize(a);
    orlix_biginteger_free(a);
  }
  orlix_bench::finish(state, ok, kBytes);
}

void newdata_openssl(benchmark::State &state) {
  const std::vector<unsigned char> &in = operands().base;
  bool ok = true;
  for (auto _ : state) {
    BIGNUM *a = BN_bin2bn(in.data(), static_cast<int>(kBytes), nullptr);
    ok &= a != nullptr;
    benchmark::DoNotOptimize(a);
    BN_free(a);
  }
  orlix_bench::finish(state, ok, kBytes);
}

void getdata_ours(benchmark::State &state) {
  ORLIX_BigInteger *a = ours_from(operands().base);
  bool ok = a != nullptr;
  for (auto _ : state) {
    ORLIX_DataBlob *blob = orlix_biginteger_getdata(a);
    ok &= blob != nullptr && blob->length == kBytes;
    benchmark::DoNotOptimize(blob);
    orlix_data_blob_free(blob);
  }
  orlix_biginteger_free(a);
  orlix_bench::finish(state, ok, kBytes);
}

void getdata_openssl(benchmark::State &state) {
  BIGNUM *a = BN_bin2bn(operands().base.data(), static_cast<int>(kBytes), nullptr);
  bool ok = a != nullptr;
  for (auto _ : state) {
    auto *out = static_cast<unsigned char *>(std::malloc(kBytes));
    ok &= out != nullptr && BN_bn2bin(a, out) == kBytes;
    benchmark::DoNotOptimize(out);
    std::free(out);
  }
  BN_free(a);
  orlix_bench::finish(state, ok, kBytes);
}

// ---- prime generation --------------------------------------------------------
// Each iteration makes a batch of random primes of exactly `bits` bits,
// releasing each. Both sides draw from OpenSSL's random generator: ours
// through a random function calling RAND_bytes, with the table-driven round
// count (flag 0x80); OpenSSL's BN_generate_prime_ex with its defaults (no
// safe prime, no callback; see below). The time per prime varies widely
// with the luck of the draw, hence the batches. Throughput counts bits / 8
// bytes per prime.

int openssl_random(void *, unsigned char *buffer, int64_t length) {
  return RAND_bytes(buffer, static_cast<int>(length)) == 1 ? 1 : 0;
}

void newprime_ours(benchmark::State &state, int bits, int batch) {
  bool ok = true;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) {
      ORLIX_BigInteger *p =
          orlix_biginteger_newprime(openssl_random, nullptr, bits, ORLIX_BIGINTEGER_PRIME_FAST);
      ok &= p != nullptr && orlix_biginteger_getbitcount(p) == bits;
      orlix_biginteger_free(p);
    }
  }
  orlix_bench::finish(state, ok, int64_t{bits} / 8 * batch);
}

// BN_generate_prime_ex is deprecated in OpenSSL 3 and is now BN_CTX_new,
// BN_generate_prime_ex2 and BN_CTX_free; that is what each prime costs here.
void newprime_openssl(benchmark::State &state, int bits, int batch) {
  bool ok = true;
  for (auto _ : state) {
    for (int i = 0; i < batch; ++i) {
      BIGNUM *p = BN_new();
      BN_CTX *ctx = BN_CTX_new();
      ok &= p != nullptr && ctx != nullptr &&
            BN_generate_prime_ex2(p, bits, 0, nullptr, nullptr, nullptr, ctx) == 1 &&
            BN_num_bits(p) == bits;
      BN_CTX_free(ctx);
      BN_free(p);
    }
  }
  orlix_bench::finish(state, ok, int64_t{bits} / 8 * batch);
}

// ---- agreement ---------------------------------------------------------------

bool sides_agree() {
  const Operands &o = operands();
  ORLIX_BigInteger *b = ours_from(o.base), *e = ours_from(o.exponent), *m = ours_from(o.modulus);
  ORLIX_BigInteger *r = orlix_biginteger_expmod(b, e, m);
  mpz_t gb, ge, gm, gr;
  mpz_from(gb, o.base);
  mpz_from(ge, o.exponent);
  mpz_from(gm, o.modulus);
  mpz_init(gr);
  mpz_powm(gr, gb, ge, gm);
  unsigned char ours[kBytes], theirs[kBytes];
  bool ok = r != nullptr && orlix_biginteger_unsigned_tonbuf(r, kBytes, ours) == 1;
  std::memset(theirs, 0, sizeof theirs);
  size_t count = 0;
  mpz_export(theirs + kBytes - (mpz_sizeinbase(gr, 2) + 7) / 8, &count, 1, 1, 1, 0, gr);
  ok = ok && std::memcmp(ours, theirs, kBytes) == 0;
  if (!ok) std::fprintf(stderr, "bench_bigint: expmod differs from mpz_powm\n");
  mpz_clear(gb);
  mpz_clear(ge);
  mpz_clear(gm);
  mpz_clear(gr);

  ORLIX_DataBlob *blob = orlix_biginteger_getdata(b);
  BIGNUM *bn = BN_bin2bn(o.base.data(), static_cast<int>(kBytes), nullptr);
  unsigned char out[kBytes];
  const bool bytes_ok = blob != nullptr && blob->length == kBytes && bn != nullptr &&
                        BN_bn2bin(bn, out) == kBytes && std::memcmp(blob->data, out, kBytes) == 0 &&
                        std::memcmp(out, o.base.data(), kBytes) == 0;
  if (!bytes_ok) std::fprintf(stderr, "bench_bigint: byte conversions differ\n");
  orlix_data_blob_free(blob);
  BN_free(bn);
  orlix_biginteger_free(b);
  orlix_biginteger_free(e);
  orlix_biginteger_free(m);
  orlix_biginteger_free(r);
  return ok && bytes_ok;
}

}  // namespace

int main(int argc, char **argv) {
  if (!sides_agree()) return 1;
  orlix_bench::note_peer("OpenSSL", OpenSSL_version(OPENSSL_VERSION_STRING));
  orlix_bench::note_peer("GMP", gmp_version);

  using orlix_bench::register_pair;
  register_pair("bigint_expmod/2048bit", "GMP", expmod_ours, expmod_gmp);
  register_pair("bigint_newdata/256B", "OpenSSL", newdata_ours, newdata_openssl);
  register_pair("bigint_getdata/256B", "OpenSSL", getdata_ours, getdata_openssl);
  for (const auto &[bits, batch] : {std::pair{1024, 16}, std::pair{2048, 8}}) {
    register_pair(
        "bigint_newprime/" + std::to_string(bits) + "bit", "OpenSSL",
        [bits = bits, batch = batch](benchmark::State &s) { newprime_ours(s, bits, batch); },
        [bits = bits, batch = batch](benchmark::State &s) { newprime_openssl(s, bits, batch); });
  }
  return orlix_bench::run(argc, argv);
}
