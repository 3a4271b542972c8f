// Big integers over GMP: construction from bytes, decimal text and 64-bit
// values, conversions out, arithmetic, modular arithmetic, bits, primality
// tests and prime generation.
//
// GMP's own memory comes from the C library's allocator through the
// functions installed by orlix_biginteger_init, which throw gmpexception
// instead of returning NULL. Every entry point in which GMP may allocate
// runs its GMP calls inside `guarded` or `make`, so the exception ends as a
// NULL or 0 result and never leaves the library. Handle records and the
// buffers handed to callers go through orlix_malloc.
//
// GMP does not promise a usable state after its allocator gives up: some
// functions (mpz_mul among them) record a result's new size before they
// take its memory, and releasing such a result frees a pointer GMP never
// had. So every integer this module may release after a failure is first
// grown with `reserve` to the size its result needs; the GMP calls then
// allocate only their own temporaries, which a failure can at worst leak.
#include "bigint/ORLIX_BigInteger_gmp.hpp"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include "core/memory.hpp"

static_assert(GMP_NUMB_BITS == 64 && GMP_NAIL_BITS == 0,
              "the byte conversions assume 64-bit limbs without nails");

namespace {

constexpr const char kModule[] = "ORLIX_BigInteger_gmp";
constexpr int kFullRounds = 64;

// ---- GMP's memory functions ------------------------------------------------
// These use the C library's allocator, not the library's hooks: GMP's limb
// storage is GMP's own memory.

void *mymalloc(size_t size) {
  void *p = std::malloc(size);
  if (p == nullptr) throw gmpexception{};
  return p;
}

void *myrealloc(void *p, size_t, size_t size) {
  void *q = std::realloc(p, size);
  if (q == nullptr) throw gmpexception{};
  return q;
}

void myfree(void *p, size_t) { std::free(p); }

// ---- integers and handles ----------------------------------------------------

// Runs body (which may let GMP allocate); any exception becomes `failure`.
template <class R, class Body>
R guarded(R failure, Body &&body) noexcept {
  try {
    return body();
  } catch (...) {
    return failure;
  }
}

// The limb count of |z|.
inline int64_t limbs_of(mpz_srcptr z) { return static_cast<int64_t>(mpz_size(z)); }

// Grows z to room for `limbs` limbs, keeping its value. mpz_realloc2 takes
// the new block before it changes z, so a failure leaves z intact. GMP ends
// the process beyond INT_MAX limbs; that is refused as a failure instead.
void reserve(mpz_ptr z, int64_t limbs) {
  if (limbs > INT_MAX) throw gmpexception{};
  if (limbs > z->_mp_alloc) mpz_realloc2(z, static_cast<mp_bitcnt_t>(limbs) * GMP_NUMB_BITS);
}

// A GMP integer on the stack for intermediate values, with room for
// `limbs` limbs.
class Scratch {
 public:
  explicit Scratch(int64_t limbs) {
    mpz_init(value_);
    try {
      reserve(value_, limbs);
    } catch (...) {
      mpz_clear(value_);
      throw;
    }
  }
  ~Scratch() { mpz_clear(value_); }
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;
  mpz_ptr get() { return value_; }

 private:
  mpz_t value_;
};

struct BigDeleter {
  void operator()(ORLIX_BigInteger *a) const noexcept { orlix_biginteger_free(a); }
};
using OwnedBig = std::unique_ptr<ORLIX_BigInteger, BigDeleter>;

// A new handle holding 0, or nullptr when memory runs out.
ORLIX_BigInteger *newbn() noexcept {
  auto *a = orlix::alloc_record<ORLIX_BigInteger>(kModule, __LINE__);
  if (a == nullptr) return nullptr;
  try {
    mpz_init(a->value);  // allocates nothing since GMP 6.2; older ones may throw
  } catch (...) {
    orlix_free(a);
    return nullptr;
  }
  return a;
}

// A new handle with room for `limbs` limbs, filled by fill(mpz_ptr), which
// returns false to refuse the input. nullptr on refusal or when memory runs
// out.
template <class Fill>
ORLIX_BigInteger *make(int64_t limbs, Fill &&fill) noexcept {
  OwnedBig r(newbn());
  if (!r) return nullptr;
  const bool done = guarded(false, [&] {
    reserve(r->value, limbs);
    return fill(r->value);
  });
  if (!done) return nullptr;
  return r.release();
}

// ---- bytes and limbs ---------------------------------------------------------

// The value of n (1..8) big-endian bytes.
inline uint64_t load_be(const unsigned char *p, int64_t n) {
  if (n == 8) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return __builtin_bswap64(v);
  }
  uint64_t v = 0;
  for (int64_t i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

// Writes the low n (1..8) bytes of v big-endian.
inline void store_be(unsigned char *p, uint64_t v, int64_t n) {
  if (n == 8) {
    v = __builtin_bswap64(v);
    std::memcpy(p, &v, 8);
    return;
  }
  for (int64_t i = n - 1; i >= 0; --i, v >>= 8) p[i] = static_cast<unsigned char>(v);
}

constexpr int64_t limbs_for_bytes(int64_t n) { return (n + 7) / 8; }

// Loads n (>= 1) big-endian bytes into z, which has room for them. With
// `negative`, the bytes are a two's-complement value whose top bit is set;
// z becomes that negative number, its magnitude computed limb by limb as
// NOT(bytes) + 1 over the sign-extended limbs. This is the value the
// hexadecimal route gives (the unsigned value minus 2^(8n)) without the text.
void load_bytes(mpz_ptr z, const unsigned char *p, int64_t n, bool negative) {
  const int64_t limbs = limbs_for_bytes(n);
  mp_limb_t *w = mpz_limbs_write(z, limbs);
  uint64_t carry = 1;
  for (int64_t i = 0; i < limbs; ++i) {
    const int64_t end = n - 8 * i;
    const int64_t take = end < 8 ? end : 8;
    uint64_t v = load_be(p + end - take, take);
    if (negative) {
      if (take < 8) v |= ~uint64_t{0} << (8 * take);
      v = ~v + carry;
      carry = carry != 0 && v == 0;
    }
    w[i] = v;
  }
  // Normalises: leading zero limbs (from zero bytes) are dropped.
  mpz_limbs_finish(z, negative ? -limbs : limbs);
}

// Writes the low k bytes of z's magnitude, or with `negative` of its two's
// complement 2^(8k) - |z|, big-endian into out.
void store_bytes(mpz_srcptr z, unsigned char *out, int64_t k, bool negative) {
  const mp_limb_t *r = mpz_limbs_read(z);
  const int64_t limbs = limbs_of(z);
  uint64_t carry = 1;
  for (int64_t i = 0; 8 * i < k; ++i) {
    uint64_t v = i < limbs ? r[i] : 0;
    if (negative) {
      v = ~v + carry;
      carry = carry != 0 && v == 0;
    }
    const int64_t end = k - 8 * i;
    const int64_t take = end < 8 ? end : 8;
    store_be(out + end - take, v, take);
  }
}

int64_t bit_count(mpz_srcptr z) {
  return mpz_sgn(z) == 0 ? 0 : static_cast<int64_t>(mpz_sizeinbase(z, 2));
}

// The length of the shortest two's-complement form of z: one sign bit more
// than the magnitude needs, except for -2^k, whose top bit is its sign.
int64_t signed_length(mpz_srcptr z) {
  const int64_t bits = bit_count(z);
  if (mpz_sgn(z) < 0 && static_cast<int64_t>(mpz_scan1(z, 0)) == bits - 1) return (bits + 7) / 8;
  return bits / 8 + 1;
}

// ---- operations --------------------------------------------------------------

// GMP ends the process on a division by zero; a zero divisor or modulus is
// refused (NULL) before it gets there.
bool is_zero(const ORLIX_BigInteger *x) { return mpz_sgn(x->value) == 0; }

template <class T>
constexpr T max_of(T a, T b) {
  return a > b ? a : b;
}

// A new handle for op(result, a, b); `limbs` is the room the result needs.
template <class Op>
ORLIX_BigInteger *binary(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b, Op op,
                         int64_t (*limbs)(mpz_srcptr, mpz_srcptr)) {
  if (a == nullptr || b == nullptr) return nullptr;
  return make(limbs(a->value, b->value), [&](mpz_ptr r) {
    op(r, a->value, b->value);
    return true;
  });
}

int64_t sum_room(mpz_srcptr a, mpz_srcptr b) { return max_of(limbs_of(a), limbs_of(b)) + 1; }
int64_t product_room(mpz_srcptr a, mpz_srcptr b) { return limbs_of(a) + limbs_of(b) + 1; }

// A new handle for (op(a, b)) mod m. The reduction adds |m| to a negative
// remainder, so the result needs a limb more than m.
template <class Op>
ORLIX_BigInteger *modular(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b,
                          const ORLIX_BigInteger *m, Op op,
                          int64_t (*limbs)(mpz_srcptr, mpz_srcptr)) {
  if (a == nullptr || b == nullptr || m == nullptr || is_zero(m)) return nullptr;
  const int64_t room = max_of(limbs(a->value, b->value), limbs_of(m->value) + 1);
  return make(room, [&](mpz_ptr r) {
    op(r, a->value, b->value);
    mpz_mod(r, r, m->value);
    return true;
  });
}

// ---- primes ------------------------------------------------------------------

struct SizeRounds {
  int64_t bits;
  int rounds;
};
constexpr SizeRounds sizes[] = {{128, 28}, {256, 16}, {384, 10}, {512, 7},
                                {640, 6},  {768, 5},  {896, 4},  {1024, 4}};
constexpr int kBelowTable = 28;
constexpr int kAboveTable = 5;
constexpr int kMinRounds = 5;

// mpz_probab_prime_p: 1 for (probably) prime, 0 for composite, -1 when GMP
// ran out of memory.
int probably_prime(mpz_srcptr z, int rounds) noexcept {
  return guarded(-1, [&] { return mpz_probab_prime_p(z, rounds) != 0 ? 1 : 0; });
}

// Trial division for the tiny numbers of the impossible-form check.
bool small_prime(unsigned v) {
  if (v < 2) return false;
  for (unsigned d = 2; d * d <= v; ++d)
    if (v % d == 0) return false;
  return true;
}

// Whether any number of `bits` (<= 8) bits with the forced bits has the
// asked property. Only tiny sizes can fail (a safe prime of 2 bits; with
// the two top bits forced as well, of 4 or 5 bits): the search would then
// never end, so it is refused up front.
bool form_has_prime(int bits, unsigned forced, bool safe) {
  for (unsigned v = 1u << (bits - 1); v < 1u << bits; ++v)
    if ((v & forced) == forced && small_prime(v) && (!safe || small_prime(v >> 1))) return true;
  return false;
}

struct CFree {
  void operator()(unsigned char *p) const noexcept { std::free(p); }
};

}  // namespace

namespace orlix::bigint {

int fasttest_rounds(int64_t bits) {
  int rounds = kAboveTable;
  for (size_t i = 0; i < std::size(sizes); ++i) {
    if (bits == sizes[i].bits) {
      rounds = sizes[i].rounds;
      break;
    }
    if (bits < sizes[i].bits) {
      rounds = i == 0 ? kBelowTable : sizes[i - 1].rounds;
      break;
    }
  }
  return rounds < kMinRounds ? kMinRounds : rounds;
}

}  // namespace orlix::bigint

extern "C" {

void orlix_biginteger_init(void) { mp_set_memory_functions(mymalloc, myrealloc, myfree); }

// ---- construction and release ------------------------------------------------

ORLIX_BigInteger *orlix_biginteger_new(int64_t value) {
  return make(1, [&](mpz_ptr r) {
    mpz_set_si(r, value);  // long is 64 bits here; LONG_MIN is handled
    return true;
  });
}

ORLIX_BigInteger *orlix_biginteger_newdata(const void *data, int64_t length) {
  if (length < 0 || (data == nullptr && length != 0)) return nullptr;
  const auto *p = static_cast<const unsigned char *>(data);
  int64_t n = length;
  // Redundant sign bytes: 00 before a byte below 80, FF before one from 80.
  while (n > 1 && ((p[0] == 0x00 && p[1] < 0x80) || (p[0] == 0xFF && p[1] >= 0x80))) ++p, --n;
  return make(limbs_for_bytes(n), [&](mpz_ptr r) {
    if (n > 0) load_bytes(r, p, n, p[0] >= 0x80);
    return true;
  });
}

ORLIX_BigInteger *orlix_biginteger_newunsigneddata(const void *data, int64_t length) {
  if (length < 0 || (data == nullptr && length != 0)) return nullptr;
  const auto *p = static_cast<const unsigned char *>(data);
  int64_t n = length;
  while (n > 0 && p[0] == 0) ++p, --n;
  return make(limbs_for_bytes(n), [&](mpz_ptr r) {
    if (n > 0) load_bytes(r, p, n, false);
    return true;
  });
}

ORLIX_BigInteger *orlix_biginteger_newdec(const char *text) {
  if (text == nullptr) return nullptr;
  // A decimal digit carries less than 4 bits; white space only overcounts.
  const auto length = static_cast<int64_t>(std::strlen(text));
  return make(length / 16 + 2, [&](mpz_ptr r) { return mpz_set_str(r, text, 10) == 0; });
}

ORLIX_BigInteger *orlix_biginteger_dup(const ORLIX_BigInteger *a) {
  if (a == nullptr) return nullptr;
  return make(limbs_of(a->value), [&](mpz_ptr r) {
    mpz_set(r, a->value);
    return true;
  });
}

void orlix_biginteger_free(ORLIX_BigInteger *a) {
  if (a == nullptr) return;
  mpz_clear(a->value);
  orlix_free(a);
}

// ---- inspection and conversion out --------------------------------------------

int32_t orlix_biginteger_getsign(const ORLIX_BigInteger *a) {
  return a == nullptr ? 0 : mpz_sgn(a->value);
}

int64_t orlix_biginteger_getbitcount(const ORLIX_BigInteger *a) {
  return a == nullptr ? 0 : bit_count(a->value);
}

int32_t orlix_biginteger_cmp(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b) {
  if (a == nullptr) return b == nullptr ? 0 : -1;
  if (b == nullptr) return 1;
  return mpz_cmp(a->value, b->value);
}

int orlix_biginteger_getvalue(const ORLIX_BigInteger *a, int64_t *value) {
  if (a == nullptr || value == nullptr) return 0;
  if (bit_count(a->value) >= 64) return 0;
  const auto magnitude = static_cast<int64_t>(mpz_getlimbn(a->value, 0));
  *value = mpz_sgn(a->value) < 0 ? -magnitude : magnitude;
  return 1;
}

ORLIX_DataBlob *orlix_biginteger_getdata(const ORLIX_BigInteger *a) {
  if (a == nullptr) return nullptr;
  const int64_t k = signed_length(a->value);
  orlix::Owned<ORLIX_DataBlob> blob(orlix::alloc_record<ORLIX_DataBlob>(kModule, __LINE__));
  if (!blob) return nullptr;
  blob->data = orlix::alloc_bytes(k, kModule, __LINE__);
  if (blob->data == nullptr) return nullptr;
  blob->length = k;
  store_bytes(a->value, blob->data, k, mpz_sgn(a->value) < 0);
  return blob.release();
}

int orlix_biginteger_unsigned_tonbuf(const ORLIX_BigInteger *a, int64_t size,
                                     unsigned char *buffer) {
  if (a == nullptr || buffer == nullptr || size < 1 || mpz_sgn(a->value) < 0) return 0;
  const int64_t need = (bit_count(a->value) + 7) / 8;
  if (need > size) return 0;
  std::memset(buffer, 0, static_cast<size_t>(size - need));
  store_bytes(a->value, buffer + (size - need), need, false);
  return 1;
}

int orlix_biginteger_unsigned_todec(const ORLIX_BigInteger *a, char **text, int64_t *length) {
  if (text != nullptr) *text = nullptr;
  if (a == nullptr || text == nullptr || mpz_sgn(a->value) < 0) return 0;
  const auto digits = static_cast<int64_t>(mpz_sizeinbase(a->value, 10));
  orlix::Owned<char> out(orlix::alloc_array<char>(2 * digits + 10, kModule, __LINE__));
  if (!out) return 0;
  // GMP writes into our buffer; only its own temporaries can fail.
  if (!guarded(false, [&] { return mpz_get_str(out.get(), 10, a->value) != nullptr; })) return 0;
  if (length != nullptr) *length = static_cast<int64_t>(std::strlen(out.get()));
  *text = out.release();
  return 1;
}

// ---- arithmetic ------------------------------------------------------------------

ORLIX_BigInteger *orlix_biginteger_add(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b) {
  return binary(a, b, mpz_add, sum_room);
}

ORLIX_BigInteger *orlix_biginteger_sub(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b) {
  return binary(a, b, mpz_sub, sum_room);
}

ORLIX_BigInteger *orlix_biginteger_mul(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b) {
  return binary(a, b, mpz_mul, product_room);
}

ORLIX_BigInteger *orlix_biginteger_neg(const ORLIX_BigInteger *a) {
  if (a == nullptr) return nullptr;
  return make(limbs_of(a->value), [&](mpz_ptr r) {
    mpz_neg(r, a->value);
    return true;
  });
}

ORLIX_BigInteger *orlix_biginteger_div(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b,
                                       ORLIX_BigInteger **remainder) {
  if (remainder != nullptr) *remainder = nullptr;
  if (a == nullptr || b == nullptr || remainder == nullptr || is_zero(b)) return nullptr;
  OwnedBig q(newbn());
  OwnedBig r(newbn());
  if (!q || !r) return nullptr;
  const bool done = guarded(false, [&] {
    // The quotient has at most |a| limbs, the remainder at most the fewer
    // of |a| and |b| (one more is kept as slack on both).
    reserve(q->value, limbs_of(a->value) + 1);
    reserve(r->value, max_of(limbs_of(a->value), limbs_of(b->value)) + 1);
    mpz_tdiv_qr(q->value, r->value, a->value, b->value);
    return true;
  });
  if (!done) return nullptr;
  *remainder = r.release();
  return q.release();
}

ORLIX_BigInteger *orlix_biginteger_div_2(const ORLIX_BigInteger *a) {
  if (a == nullptr) return nullptr;
  return make(limbs_of(a->value), [&](mpz_ptr r) {
    mpz_tdiv_q_2exp(r, a->value, 1);
    return true;
  });
}

ORLIX_BigInteger *orlix_biginteger_mod(const ORLIX_BigInteger *a, const ORLIX_BigInteger *m) {
  if (m != nullptr && is_zero(m)) return nullptr;
  return binary(a, m, mpz_mod, sum_room);
}

ORLIX_BigInteger *orlix_biginteger_addmod(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b,
                                          const ORLIX_BigInteger *m) {
  return modular(a, b, m, mpz_add, sum_room);
}

ORLIX_BigInteger *orlix_biginteger_submod(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b,
                                          const ORLIX_BigInteger *m) {
  return modular(a, b, m, mpz_sub, sum_room);
}

ORLIX_BigInteger *orlix_biginteger_mulmod(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b,
                                          const ORLIX_BigInteger *m) {
  return modular(a, b, m, mpz_mul, product_room);
}

ORLIX_BigInteger *orlix_biginteger_sqrmod(const ORLIX_BigInteger *a, const ORLIX_BigInteger *m) {
  if (a == nullptr || m == nullptr || is_zero(m)) return nullptr;
  return make(limbs_of(m->value) + 1, [&](mpz_ptr r) {
    mpz_powm_ui(r, a->value, 2, m->value);
    return true;
  });
}

ORLIX_BigInteger *orlix_biginteger_expmod(const ORLIX_BigInteger *base,
                                          const ORLIX_BigInteger *exponent,
                                          const ORLIX_BigInteger *m) {
  if (base == nullptr || exponent == nullptr || m == nullptr || is_zero(m)) return nullptr;
  const int64_t room = limbs_of(m->value) + 1;
  return make(room, [&](mpz_ptr r) {
    // For a negative exponent GMP inverts the base first and divides by
    // zero (ending the process) when there is no inverse: refuse that here.
    if (mpz_sgn(exponent->value) < 0) {
      Scratch inverse(room);
      if (mpz_invert(inverse.get(), base->value, m->value) == 0) return false;
    }
    mpz_powm(r, base->value, exponent->value, m->value);
    return true;
  });
}

ORLIX_BigInteger *orlix_biginteger_gcd(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b) {
  return binary(a, b, mpz_gcd, sum_room);
}

ORLIX_BigInteger *orlix_biginteger_lcm(const ORLIX_BigInteger *a, const ORLIX_BigInteger *b) {
  return binary(a, b, mpz_lcm, product_room);
}

ORLIX_BigInteger *orlix_biginteger_invmod(const ORLIX_BigInteger *a, const ORLIX_BigInteger *m) {
  if (a == nullptr || m == nullptr || is_zero(m)) return nullptr;
  return make(limbs_of(m->value) + 1,
              [&](mpz_ptr r) { return mpz_invert(r, a->value, m->value) != 0; });
}

// ---- bits and parity ---------------------------------------------------------------

int orlix_biginteger_testbit(const ORLIX_BigInteger *a, int32_t index) {
  if (a == nullptr || index < 0) return 0;
  return mpz_tstbit(a->value, static_cast<mp_bitcnt_t>(index));
}

int orlix_biginteger_setbit(ORLIX_BigInteger *a, int32_t index) {
  if (a == nullptr || index < 0) return 0;
  return guarded(0, [&] {
    // Room for the bit (and a carry) first, so that a failure leaves a as
    // it was and mpz_setbit itself has nothing to allocate.
    reserve(a->value, max_of(limbs_of(a->value), int64_t{index} / GMP_NUMB_BITS + 1) + 1);
    mpz_setbit(a->value, static_cast<mp_bitcnt_t>(index));
    return 1;
  });
}

int orlix_biginteger_clearbit(ORLIX_BigInteger *a, int32_t index) {
  if (a == nullptr || index < 0) return 0;
  return guarded(0, [&] {
    reserve(a->value, max_of(limbs_of(a->value), int64_t{index} / GMP_NUMB_BITS + 1) + 1);
    mpz_clrbit(a->value, static_cast<mp_bitcnt_t>(index));
    return 1;
  });
}

int orlix_biginteger_iseven(const ORLIX_BigInteger *a) {
  if (a == nullptr) return 0;
  return mpz_sgn(a->value) == 0 || mpz_tstbit(a->value, 0) == 0;
}

int orlix_biginteger_isodd(const ORLIX_BigInteger *a) {
  if (a == nullptr) return 0;
  return mpz_tstbit(a->value, 0);
}

// ---- primes ------------------------------------------------------------------------

int orlix_biginteger_isprime(const ORLIX_BigInteger *a) {
  if (a == nullptr) return 0;
  return probably_prime(a->value, kFullRounds) == 1;
}

int orlix_biginteger_isprime_fasttest(const ORLIX_BigInteger *a) {
  if (a == nullptr) return 0;
  const int rounds = orlix::bigint::fasttest_rounds(bit_count(a->value));
  return probably_prime(a->value, rounds) == 1;
}

ORLIX_BigInteger *orlix_biginteger_newprime(ORLIX_RandomFunc random, void *context, int bits,
                                            int flags) {
  if (random == nullptr || bits < 2) return nullptr;
  const bool safe = (flags & ORLIX_BIGINTEGER_PRIME_SAFE) != 0;
  const bool top_two = (flags & ORLIX_BIGINTEGER_PRIME_TOP_TWO) != 0;
  const bool fast = (flags & ORLIX_BIGINTEGER_PRIME_FAST) != 0;

  const int64_t size = (int64_t{bits} + 7) / 8;
  const unsigned top_mask = bits % 8 == 0 ? 0xFFu : 0xFFu >> (8 - bits % 8);
  const unsigned top_bit = 1u << ((bits - 1) % 8);
  // The second-highest bit: 0x80 >> ((9 - bits) mod 8), in the second byte
  // when the highest bit is alone in the first.
  const unsigned second_bit = 0x80u >> (((9 - bits) % 8 + 8) % 8);
  const int64_t second_index = bits % 8 == 1 ? 1 : 0;
  const unsigned low_bits = safe ? 3u : 1u;

  if (bits <= 8) {
    const unsigned forced = (1u << (bits - 1)) | (top_two ? 1u << (bits - 2) : 0u) | low_bits;
    if (!form_has_prime(bits, forced, safe)) return nullptr;
  }

  // The candidate buffer comes from the C library's malloc, not the hooks.
  std::unique_ptr<unsigned char, CFree> buffer(
      static_cast<unsigned char *>(std::malloc(static_cast<size_t>(size))));
  if (!buffer) return nullptr;
  unsigned char *b = buffer.get();
  // Every candidate has exactly `bits` bits, so the fast test's round count
  // (keyed by the candidate's bit count) and the safe-prime check's (keyed
  // by the requested size) are the same.
  const int rounds = fast ? orlix::bigint::fasttest_rounds(bits) : kFullRounds;

  for (;;) {
    if (random(context, b, size) != 1) return nullptr;
    b[0] = static_cast<unsigned char>((b[0] & top_mask) | top_bit);
    if (top_two) b[second_index] = static_cast<unsigned char>(b[second_index] | second_bit);
    b[size - 1] = static_cast<unsigned char>(b[size - 1] | low_bits);

    OwnedBig candidate(orlix_biginteger_newunsigneddata(b, size));
    if (!candidate) return nullptr;
    const int prime = probably_prime(candidate->value, rounds);
    if (prime < 0) return nullptr;
    if (prime == 0) continue;
    if (!safe) return candidate.release();

    const int half_prime = guarded(-1, [&] {
      Scratch half(limbs_of(candidate->value));
      mpz_tdiv_q_2exp(half.get(), candidate->value, 1);
      return probably_prime(half.get(), rounds);
    });
    if (half_prime < 0) return nullptr;
    if (half_prime == 1) return candidate.release();
  }
}

}  // extern "C"
