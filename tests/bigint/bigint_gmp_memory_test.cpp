// GMP's memory functions: installed when the library is loaded, failing by
// exception, and caught by every operation. The sweep wraps the installed
// functions so that the k-th GMP allocation of an operation fails through
// the library's own failure path (a request the C library cannot satisfy),
// for k = 1, 2, ... until the operation no longer reaches an injected
// failure, and checks each time: a failure result, no exception, unchanged
// operands, and no GMP block left behind - except the temporaries of the
// GMP call that the failure interrupted (the primality test's heap integers
// and random state, the scratch space of large multiplications): GMP's code
// is C and cannot release them while an exception passes. Their number is
// bounded, and the sweep releases them itself.
#include <cstring>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bigint_test_util.hpp"

// A request the allocator cannot meet must come back as NULL under
// AddressSanitizer too, as it does from the C library.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }

namespace {

using namespace bigint_test;

constexpr size_t kImpossible = SIZE_MAX / 2;

using AllocFn = void *(*)(size_t);
using ReallocFn = void *(*)(void *, size_t, size_t);
using FreeFn = void (*)(void *, size_t);

TEST(BigIntGmpMemory, InstalledAtLoadAndThrowing) {
  AllocFn alloc = nullptr;
  ReallocFn realloc_fn = nullptr;
  FreeFn free_fn = nullptr;
  mp_get_memory_functions(&alloc, &realloc_fn, &free_fn);
  EXPECT_THROW(alloc(kImpossible), gmpexception);
  void *p = alloc(16);
  ASSERT_NE(p, nullptr);
  std::memset(p, 0xAB, 16);
  EXPECT_THROW(realloc_fn(p, 16, kImpossible), gmpexception);
  // A failed growth leaves the block as it was.
  EXPECT_EQ(static_cast<unsigned char *>(p)[15], 0xAB);
  p = realloc_fn(p, 16, 4096);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(static_cast<unsigned char *>(p)[15], 0xAB);
  free_fn(p, 4096);

  // Calling the initialiser again keeps the same functions.
  orlix_biginteger_init();
  AllocFn again = nullptr;
  mp_get_memory_functions(&again, nullptr, nullptr);
  EXPECT_EQ(again, alloc);
}

// ---- the injecting wrapper ---------------------------------------------------

struct Injector {
  AllocFn alloc = nullptr;
  ReallocFn realloc_fn = nullptr;
  FreeFn free_fn = nullptr;
  bool armed = false;
  int64_t fail_at = 0;
  bool sticky = false;
  int64_t count = 0;
  bool injected = false;
  // Blocks taken while armed and not yet returned. After a run nothing may
  // be left but the temporaries of a GMP call that a failure interrupted.
  std::set<void *> born;

  // True when this request is to fail.
  bool Fails() {
    if (!armed) return false;
    ++count;
    if (count == fail_at || (sticky && count > fail_at)) {
      injected = true;
      return true;
    }
    return false;
  }
};
Injector g_inject;

// Suspends injection and counting for the test's own GMP calls.
class Unarmed {
 public:
  Unarmed() : was_(g_inject.armed) { g_inject.armed = false; }
  ~Unarmed() { g_inject.armed = was_; }

 private:
  bool was_;
};

void *InjectAlloc(size_t n) {
  // The library's function throws for a request it cannot meet.
  if (g_inject.Fails()) return g_inject.alloc(kImpossible);
  void *p = g_inject.alloc(n);
  if (g_inject.armed) g_inject.born.insert(p);
  return p;
}

void *InjectRealloc(void *p, size_t old_size, size_t n) {
  if (g_inject.Fails()) return g_inject.realloc_fn(p, old_size, kImpossible);
  void *q = g_inject.realloc_fn(p, old_size, n);
  // A block that existed before the run (an operand grown in place) stays
  // its owner's; only blocks born in the run are followed.
  if (g_inject.born.erase(p) != 0) g_inject.born.insert(q);
  return q;
}

void InjectFree(void *p, size_t n) {
  g_inject.born.erase(p);
  g_inject.free_fn(p, n);
}

class BigIntGmpFaults : public testing::Test {
 protected:
  void SetUp() override {
    mp_get_memory_functions(&g_inject.alloc, &g_inject.realloc_fn, &g_inject.free_fn);
    mp_set_memory_functions(InjectAlloc, InjectRealloc, InjectFree);
  }
  void TearDown() override {
    mp_set_memory_functions(g_inject.alloc, g_inject.realloc_fn, g_inject.free_fn);
  }

  // An operation under test: the hex of its result, or nullopt for its
  // failure result (NULL or 0).
  using Operation = std::function<std::optional<std::string>()>;

  // Runs op with the k-th GMP allocation failing (alone, then with all
  // later ones), for every k that the operation reaches. `strandable` is
  // the number of blocks a failed run may leave behind: temporaries of the
  // GMP call the failure interrupted, which nothing refers to any more and
  // which the sweep releases itself.
  void Sweep(const char *name, const std::vector<const ORLIX_BigInteger *> &operands,
             const Operation &op, size_t strandable = 0) {
    SCOPED_TRACE(name);
    std::vector<std::string> before;
    for (const auto *x : operands) before.push_back(HexOf(x));
    const std::optional<std::string> clean = op();
    ASSERT_TRUE(clean.has_value()) << "fails with nothing injected";
    int64_t reached = 0;
    for (const bool sticky : {false, true}) {
      for (int64_t k = 1;; ++k) {
        ASSERT_LT(k, 10000) << "never stops allocating";
        g_inject.count = 0;
        g_inject.injected = false;
        g_inject.fail_at = k;
        g_inject.sticky = sticky;
        g_inject.armed = true;
        const std::optional<std::string> got = op();
        g_inject.armed = false;
        const size_t left = g_inject.born.size();
        EXPECT_LE(left, g_inject.injected ? strandable : 0)
            << "GMP blocks left at allocation " << k;
        for (void *p : g_inject.born) g_inject.free_fn(p, 0);
        g_inject.born.clear();
        for (size_t i = 0; i < operands.size(); ++i)
          EXPECT_EQ(HexOf(operands[i]), before[i]) << "operand " << i << " changed";
        if (!g_inject.injected) {
          EXPECT_EQ(got, clean);
          break;
        }
        EXPECT_FALSE(got.has_value()) << "allocation " << k << (sticky ? "+" : "")
                                      << " failed but the operation reported success";
        reached = std::max(reached, k);
        if (testing::Test::HasFailure()) return;
      }
    }
    RecordProperty(std::string(name) + "_allocations", std::to_string(reached));
  }
};

// GMP's primality test holds at most two heap integers and its random
// state at any time.
constexpr size_t kPrimalityTemporaries = 3;

std::optional<std::string> Result(ORLIX_BigInteger *r) {
  Unarmed unarmed;
  Big owned(r);
  if (r == nullptr) return std::nullopt;
  return HexOf(r);
}

std::optional<std::string> Truth(int r) {
  if (r == 0) return std::nullopt;
  return std::to_string(r);
}

int CountingRandom(void *context, unsigned char *buffer, int64_t length) {
  auto *state = static_cast<uint64_t *>(context);
  for (int64_t i = 0; i < length; ++i) {
    *state = *state * 6364136223846793005u + 1442695040888963407u;
    buffer[i] = static_cast<unsigned char>(*state >> 56);
  }
  return 1;
}

TEST_F(BigIntGmpFaults, EveryAllocatingOperationFailsCleanly) {
  std::mt19937_64 rng(4242);
  // Operands of a few limbs and of a few thousand bits, made while nothing
  // is armed.
  Big a = FromHex("-" + HexBytes(RandomBytes(rng, 300)));
  Big b = FromHex(HexBytes(RandomBytes(rng, 200)));
  Big m = FromHex("c" + HexBytes(RandomBytes(rng, 256)) + "5");
  Big e = FromHex(HexBytes(RandomBytes(rng, 256)));
  Big prime = FromHex("820195c8e67781b6f112a627");  // its test allocates
  Big three = FromHex("3");
  Big minus_two = FromHex("-2");
  const Bytes raw = RandomBytes(rng, 300);
  std::string decimal(400, '7');
  decimal[0] = '-';

  using V = std::vector<const ORLIX_BigInteger *>;
  const ORLIX_BigInteger *A = a.get(), *B = b.get(), *M = m.get(), *E = e.get();

  Sweep("new", {}, [] { return Result(orlix_biginteger_new(INT64_MIN)); });
  Sweep("newdata", {}, [&] { return Result(orlix_biginteger_newdata(raw.data(), 300)); });
  Sweep("newunsigneddata", {},
        [&] { return Result(orlix_biginteger_newunsigneddata(raw.data(), 300)); });
  Sweep("newdec", {}, [&] { return Result(orlix_biginteger_newdec(decimal.c_str())); });
  Sweep("dup", V{A}, [&] { return Result(orlix_biginteger_dup(A)); });
  Sweep("unsigned_todec", V{B}, [&]() -> std::optional<std::string> {
    char *text = nullptr;
    if (orlix_biginteger_unsigned_todec(B, &text, nullptr) != 1) return std::nullopt;
    std::string s = text;
    orlix_free(text);
    return s;
  });
  Sweep("getdata", V{A}, [&]() -> std::optional<std::string> {
    Blob blob(orlix_biginteger_getdata(A));
    if (!blob) return std::nullopt;
    return HexBytes(blob->data, size_t(blob->length));
  });
  Sweep("add", V{A, B}, [&] { return Result(orlix_biginteger_add(A, B)); });
  Sweep("sub", V{A, B}, [&] { return Result(orlix_biginteger_sub(A, B)); });
  Sweep("mul", V{A, B}, [&] { return Result(orlix_biginteger_mul(A, B)); });
  Sweep("neg", V{A}, [&] { return Result(orlix_biginteger_neg(A)); });
  Sweep("div", V{A, B}, [&]() -> std::optional<std::string> {
    ORLIX_BigInteger *r = nullptr;
    auto q = Result(orlix_biginteger_div(A, B, &r));
    auto rest = Result(r);
    if (q.has_value() != rest.has_value()) ADD_FAILURE() << "quotient without remainder";
    if (!q || !rest) return std::nullopt;
    return *q + " " + *rest;
  });
  Sweep("div_2", V{A}, [&] { return Result(orlix_biginteger_div_2(A)); });
  Sweep("mod", V{A, M}, [&] { return Result(orlix_biginteger_mod(A, M)); });
  Sweep("addmod", V{A, B, M}, [&] { return Result(orlix_biginteger_addmod(A, B, M)); });
  Sweep("submod", V{A, B, M}, [&] { return Result(orlix_biginteger_submod(A, B, M)); });
  Sweep("mulmod", V{A, B, M}, [&] { return Result(orlix_biginteger_mulmod(A, B, M)); });
  Sweep("sqrmod", V{A, M}, [&] { return Result(orlix_biginteger_sqrmod(A, M)); });
  Sweep("expmod", V{B, E, M}, [&] { return Result(orlix_biginteger_expmod(B, E, M)); });
  Sweep("expmod negative", V{three.get(), minus_two.get(), M},
        [&] { return Result(orlix_biginteger_expmod(three.get(), minus_two.get(), M)); });
  Sweep("gcd", V{A, B}, [&] { return Result(orlix_biginteger_gcd(A, B)); });
  Sweep("lcm", V{A, B}, [&] { return Result(orlix_biginteger_lcm(A, B)); });
  Sweep("invmod", V{three.get(), M},
        [&] { return Result(orlix_biginteger_invmod(three.get(), M)); });
  Sweep(
      "isprime", V{prime.get()}, [&] { return Truth(orlix_biginteger_isprime(prime.get())); },
      kPrimalityTemporaries);
  Sweep(
      "isprime_fasttest", V{prime.get()},
      [&] { return Truth(orlix_biginteger_isprime_fasttest(prime.get())); }, kPrimalityTemporaries);
  Sweep(
      "newprime", {},
      [&] {
        uint64_t state = 99;
        return Result(orlix_biginteger_newprime(CountingRandom, &state, 64, 0x83));
      },
      kPrimalityTemporaries);

  // Operands large enough that GMP takes its temporaries from the heap
  // too, so that failures strike inside the algorithms and not only where
  // the result is sized. Those temporaries are stranded by a failure.
  Big x = FromHex(HexBytes(RandomBytes(rng, 60000)));
  Big y = FromHex("-" + HexBytes(RandomBytes(rng, 41000)));
  std::string big_decimal(60000, '3');
  const ORLIX_BigInteger *X = x.get(), *Y = y.get();
  constexpr size_t kTemporaries = 16;
  Sweep(
      "mul large", V{X, Y}, [&] { return Result(orlix_biginteger_mul(X, Y)); }, kTemporaries);
  Sweep(
      "div large", V{X, Y},
      [&]() -> std::optional<std::string> {
        ORLIX_BigInteger *r = nullptr;
        auto q = Result(orlix_biginteger_div(X, Y, &r));
        auto rest = Result(r);
        if (!q || !rest) return std::nullopt;
        return *q + " " + *rest;
      },
      kTemporaries);
  Sweep(
      "gcd large", V{X, Y}, [&] { return Result(orlix_biginteger_gcd(X, Y)); }, kTemporaries);
  Sweep(
      "mulmod large", V{X, Y, M}, [&] { return Result(orlix_biginteger_mulmod(X, Y, M)); },
      kTemporaries);
  Sweep(
      "invmod large", V{M, X}, [&] { return Result(orlix_biginteger_invmod(M, X)); }, kTemporaries);
  Sweep(
      "newdec large", {}, [&] { return Result(orlix_biginteger_newdec(big_decimal.c_str())); },
      kTemporaries);
  Sweep(
      "unsigned_todec large", V{X},
      [&]() -> std::optional<std::string> {
        char *text = nullptr;
        if (orlix_biginteger_unsigned_todec(X, &text, nullptr) != 1) return std::nullopt;
        std::string s = text;
        orlix_free(text);
        return s;
      },
      kTemporaries);

  // In place: a failed change leaves the number as it was.
  for (const int32_t index : {3, 700, 5000}) {
    for (const char *start : {"1234567890abcdef1234567890abcdef", "-1234567890abcdef"}) {
      Big x = FromHex(start);
      // Runs change on x; on success the new value is noted and x restored
      // for the next run, on failure x must be as it was.
      auto in_place = [&](int (*change)(ORLIX_BigInteger *, int32_t)) {
        return [&x, index, change]() -> std::optional<std::string> {
          const std::string old = [&] {
            Unarmed unarmed;
            return HexOf(x.get());
          }();
          const int r = change(x.get(), index);
          Unarmed unarmed;
          if (r != 1) {
            EXPECT_EQ(HexOf(x.get()), old);
            return std::nullopt;
          }
          std::string now = HexOf(x.get());
          EXPECT_EQ(mpz_set_str(x->value, old.c_str(), 16), 0);
          return now;
        };
      };
      Sweep("setbit", V{}, in_place(orlix_biginteger_setbit));
      Sweep("clearbit", V{}, in_place(orlix_biginteger_clearbit));
    }
  }
}

}  // namespace
