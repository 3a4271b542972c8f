// Conversions of big integers: two's-complement and unsigned bytes, decimal
// text and 64-bit values. Fixed cases pin the documented forms; the
// differential tests compare thousands of seeded random inputs with
// Python's int.from_bytes / int.to_bytes / str, run once per test.
#include <cstring>
#include <string>
#include <vector>

#include "bigint_test_util.hpp"

namespace {

using namespace bigint_test;

constexpr int kCases = 3000;

std::string SignedBytesOf(const ORLIX_BigInteger *a) {
  Blob blob(orlix_biginteger_getdata(a));
  if (!blob) return "null";
  return HexBytes(blob->data, static_cast<size_t>(blob->length));
}

Big FromBytes(const Bytes &b) {
  return Big(orlix_biginteger_newdata(b.empty() ? nullptr : b.data(), int64_t(b.size())));
}

const char kScript[] = R"PY(
import sys
sys.set_int_max_str_digits(0)

def shortest(x):
    n = (x if x >= 0 else ~x).bit_length() // 8 + 1
    return x.to_bytes(n, 'big', signed=True).hex()

def padded(x, size):
    if x < 0 or size < 1:
        return '-'
    try:
        return x.to_bytes(size, 'big').hex()
    except OverflowError:
        return '-'

for line in open(sys.argv[1]):
    kind, arg, size = line.split()
    if kind == 's':
        x = int.from_bytes(bytes.fromhex(arg[1:]), 'big', signed=True)
        print(format(x, 'x'), shortest(x))
    elif kind == 'u':
        x = int.from_bytes(bytes.fromhex(arg[1:]), 'big')
        print(format(x, 'x'), padded(x, int(size)))
    else:
        x = int(arg, 16)
        print(shortest(x), padded(x, int(size)), str(x))
)PY";

std::vector<std::string> Oracle(const std::string &input) { return RunPython(kScript, input); }

// Random byte strings with runs of 00 or FF in front, so that redundant sign
// bytes and values just across the sign boundary come up often.
Bytes RandomSignedBytes(std::mt19937_64 &rng) {
  Bytes b = RandomBytes(rng, RandomLength(rng));
  if (!b.empty() && rng() % 2 == 0) {
    const unsigned char fill = rng() % 2 ? 0xFF : 0x00;
    b.insert(b.begin(), rng() % 12, fill);
  }
  if (!b.empty() && rng() % 4 == 0) b[0] = rng() % 2 ? 0x80 : 0x7F;
  return b;
}

TEST(BigIntBytes, DocumentedSignedForms) {
  struct Case {
    Bytes in;
    const char *value;
  } const cases[] = {
      {{0x00, 0x00, 0x7F}, "7f"},
      {{0xFF, 0xFF, 0x80}, "-80"},
      {{0xFF}, "-1"},
      {{0x00, 0x80}, "80"},
      {{0x80}, "-80"},
      {{}, "0"},
      {{0xFF, 0x7F}, "-81"},
      {{0xFF, 0x00}, "-100"},
      {{0x00}, "0"},
      {{0xFF, 0xFF}, "-1"},
      {{0x00, 0x00}, "0"},
  };
  for (const auto &c : cases) EXPECT_EQ(HexOf(FromBytes(c.in).get()), c.value) << HexBytes(c.in);

  struct Out {
    const char *value;
    const char *bytes;
  } const outs[] = {{"0", "00"},
                    {"-1", "ff"},
                    {"-80", "80"},
                    {"-81", "ff7f"},
                    {"-100", "ff00"},
                    {"80", "0080"},
                    {"7f", "7f"},
                    {"ff", "00ff"},
                    {"-ff", "ff01"},
                    {"100", "0100"},
                    {"-7f", "81"},
                    {"1", "01"},
                    {"-8000", "8000"},
                    {"-8001", "ff7fff"},
                    {"10000000000000000", "010000000000000000"},
                    {"-10000000000000000", "ff0000000000000000"},
                    {"-8000000000000000", "8000000000000000"},
                    {"-8000000000000001", "ff7fffffffffffffff"}};
  for (const auto &o : outs) {
    Big a = FromHex(o.value);
    EXPECT_EQ(SignedBytesOf(a.get()), o.bytes) << o.value;
    // And back: the shortest form reads as the same value.
    Blob blob(orlix_biginteger_getdata(a.get()));
    Big back(orlix_biginteger_newdata(blob->data, blob->length));
    EXPECT_EQ(HexOf(back.get()), o.value);
  }
}

TEST(BigIntBytes, ArgumentRules) {
  EXPECT_EQ(orlix_biginteger_newdata(nullptr, 1), nullptr);
  EXPECT_EQ(orlix_biginteger_newdata("\x01", -1), nullptr);
  EXPECT_EQ(orlix_biginteger_newunsigneddata(nullptr, 2), nullptr);
  EXPECT_EQ(orlix_biginteger_newunsigneddata("\x01", -1), nullptr);
  EXPECT_EQ(HexOf(Big(orlix_biginteger_newunsigneddata(nullptr, 0)).get()), "0");
  EXPECT_EQ(orlix_biginteger_getdata(nullptr), nullptr);
}

TEST(BigIntBytes, SignedAgainstPython) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  std::mt19937_64 rng(20240611);
  std::vector<Bytes> inputs;
  std::string input;
  for (int i = 0; i < kCases; ++i) {
    inputs.push_back(RandomSignedBytes(rng));
    input += "s x" + HexBytes(inputs.back()) + " 0\n";
  }
  const auto expected = Oracle(input);
  ASSERT_EQ(expected.size(), inputs.size());
  int negatives = 0, failures = 0;
  for (size_t i = 0; i < inputs.size() && failures < 10; ++i) {
    Big a = FromBytes(inputs[i]);
    const std::string got = HexOf(a.get()) + " " + SignedBytesOf(a.get());
    negatives += orlix_biginteger_getsign(a.get()) < 0;
    if (got != expected[i]) {
      ++failures;
      ADD_FAILURE() << "bytes " << HexBytes(inputs[i]) << "\n library: " << got
                    << "\n  python: " << expected[i];
    }
  }
  EXPECT_GT(negatives, kCases / 4);
}

TEST(BigIntBytes, UnsignedAgainstPython) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  std::mt19937_64 rng(7);
  struct Case {
    Bytes bytes;
    int64_t size;
  };
  std::vector<Case> cases;
  std::string input;
  for (int i = 0; i < kCases; ++i) {
    Bytes b = RandomBytes(rng, RandomLength(rng));
    if (rng() % 3 == 0) b.insert(b.begin(), rng() % 10, 0x00);
    // Sizes around the exact fit, from too small to padded.
    const int64_t size = static_cast<int64_t>(b.size()) - 2 + static_cast<int64_t>(rng() % 6);
    cases.push_back({b, size});
    input += "u x" + HexBytes(b) + " " + std::to_string(size) + "\n";
  }
  const auto expected = Oracle(input);
  ASSERT_EQ(expected.size(), cases.size());
  int refusals = 0, failures = 0;
  for (size_t i = 0; i < cases.size() && failures < 10; ++i) {
    const Case &c = cases[i];
    Big a(orlix_biginteger_newunsigneddata(c.bytes.empty() ? nullptr : c.bytes.data(),
                                           int64_t(c.bytes.size())));
    std::string padded = "-";
    Bytes out(static_cast<size_t>(c.size > 0 ? c.size : 1) + 1, 0xEE);
    if (orlix_biginteger_unsigned_tonbuf(a.get(), c.size, out.data()) == 1) {
      padded = HexBytes(out.data(), static_cast<size_t>(c.size));
      EXPECT_EQ(out.back(), 0xEE) << "wrote past size";
    } else {
      ++refusals;
    }
    const std::string got = HexOf(a.get()) + " " + padded;
    if (got != expected[i]) {
      ++failures;
      ADD_FAILURE() << "bytes " << HexBytes(c.bytes) << " size " << c.size << "\n library: " << got
                    << "\n  python: " << expected[i];
    }
  }
  EXPECT_GT(refusals, kCases / 10);
  EXPECT_LT(refusals, kCases * 9 / 10);
}

// Values of both signs through getdata, unsigned_tonbuf, unsigned_todec and
// newdec, against Python's to_bytes and str.
TEST(BigIntConvertOut, ValuesAgainstPython) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  std::mt19937_64 rng(99);
  std::vector<std::string> values;
  std::vector<int64_t> sizes;
  std::string input;
  for (int i = 0; i < kCases; ++i) {
    values.push_back(RandomValueHex(rng));
    const int64_t digits = static_cast<int64_t>(values.back().size());
    sizes.push_back(digits / 2 - 1 + static_cast<int64_t>(rng() % 4));
    input += "v " + values.back() + " " + std::to_string(sizes.back()) + "\n";
  }
  const auto expected = Oracle(input);
  ASSERT_EQ(expected.size(), values.size());
  int failures = 0;
  for (size_t i = 0; i < values.size() && failures < 10; ++i) {
    Big a = FromHex(values[i]);
    const auto want = Fields(expected[i]);
    ASSERT_EQ(want.size(), 3u);
    std::string padded = "-";
    Bytes out(static_cast<size_t>(sizes[i] > 0 ? sizes[i] : 1));
    if (orlix_biginteger_unsigned_tonbuf(a.get(), sizes[i], out.data()) == 1)
      padded = HexBytes(out.data(), static_cast<size_t>(sizes[i]));

    char *text = nullptr;
    int64_t length = -1;
    const bool nonnegative = want[2][0] != '-';
    EXPECT_EQ(orlix_biginteger_unsigned_todec(a.get(), &text, &length), nonnegative ? 1 : 0);
    if (nonnegative && text != nullptr) {
      EXPECT_EQ(text, want[2]);
      EXPECT_EQ(length, int64_t(want[2].size()));
    } else {
      EXPECT_EQ(text, nullptr);
    }
    orlix_free(text);

    // Decimal text in, with leading zeros for good measure.
    std::string dec = want[2];
    dec.insert(nonnegative ? 0 : 1, std::string(rng() % 3, '0'));
    Big parsed(orlix_biginteger_newdec(dec.c_str()));
    EXPECT_EQ(HexOf(parsed.get()), values[i]) << dec;

    const std::string got = SignedBytesOf(a.get()) + " " + padded;
    if (got != want[0] + " " + want[1]) {
      ++failures;
      ADD_FAILURE() << "value " << values[i] << " size " << sizes[i] << "\n library: " << got
                    << "\n  python: " << want[0] << " " << want[1];
    }
  }
}

TEST(BigIntConvertOut, UnsignedBufferRules) {
  unsigned char buf[4] = {9, 9, 9, 9};
  Big v256(orlix_biginteger_new(256));
  ASSERT_EQ(orlix_biginteger_unsigned_tonbuf(v256.get(), 4, buf), 1);
  EXPECT_EQ(HexBytes(buf, 4), "00000100");
  EXPECT_EQ(orlix_biginteger_unsigned_tonbuf(v256.get(), 1, buf), 0);
  EXPECT_EQ(orlix_biginteger_unsigned_tonbuf(v256.get(), 0, buf), 0);
  EXPECT_EQ(orlix_biginteger_unsigned_tonbuf(v256.get(), 4, nullptr), 0);
  EXPECT_EQ(orlix_biginteger_unsigned_tonbuf(nullptr, 4, buf), 0);
  Big minus_one(orlix_biginteger_new(-1));
  EXPECT_EQ(orlix_biginteger_unsigned_tonbuf(minus_one.get(), 4, buf), 0);
  Big zero(orlix_biginteger_new(0));
  std::memset(buf, 9, sizeof buf);
  ASSERT_EQ(orlix_biginteger_unsigned_tonbuf(zero.get(), 3, buf), 1);
  EXPECT_EQ(HexBytes(buf, 4), "00000009");
}

TEST(BigIntDecimal, TextRules) {
  char *text = reinterpret_cast<char *>(1);
  int64_t length = -1;
  Big minus_five(orlix_biginteger_new(-5));
  EXPECT_EQ(orlix_biginteger_unsigned_todec(minus_five.get(), &text, &length), 0);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(orlix_biginteger_unsigned_todec(nullptr, &text, &length), 0);
  EXPECT_EQ(orlix_biginteger_unsigned_todec(minus_five.get(), nullptr, &length), 0);
  Big zero(orlix_biginteger_new(0));
  ASSERT_EQ(orlix_biginteger_unsigned_todec(zero.get(), &text, &length), 1);
  EXPECT_STREQ(text, "0");
  EXPECT_EQ(length, 1);
  orlix_free(text);
  ASSERT_EQ(orlix_biginteger_unsigned_todec(zero.get(), &text, nullptr), 1);
  orlix_free(text);

  // GMP's reading of decimal text: leading and inner white space is skipped,
  // one leading '-', nothing else.
  struct Case {
    const char *text;
    const char *hex;  // nullptr: refused
  } const cases[] = {
      {"0", "0"},
      {"-0", "0"},
      {"  42", "2a"},
      {"1 2", "c"},
      {"12 ", "c"},
      {"\t-7", "-7"},
      {"007", "7"},
      {"", nullptr},
      {"-", nullptr},
      {"+5", nullptr},
      {"- 5", nullptr},
      {"12a", nullptr},
      {"0x10", nullptr},
      {" ", nullptr},
      {"1_000", nullptr},
      {"--1", nullptr},
      {"99999999999999999999", "56bc75e2d630fffff"},
  };
  for (const auto &c : cases) {
    Big a(orlix_biginteger_newdec(c.text));
    EXPECT_EQ(HexOf(a.get()), c.hex ? c.hex : "null") << '"' << c.text << '"';
  }
  EXPECT_EQ(orlix_biginteger_newdec(nullptr), nullptr);
}

TEST(BigIntValue, Int64RoundTripAndRange) {
  std::mt19937_64 rng(5);
  std::vector<int64_t> values = {0,
                                 1,
                                 -1,
                                 127,
                                 -128,
                                 128,
                                 -129,
                                 INT64_MAX,
                                 -INT64_MAX,
                                 INT64_MAX - 1,
                                 int64_t{1} << 62,
                                 -(int64_t{1} << 62)};
  for (int i = 0; i < 2000; ++i) values.push_back(static_cast<int64_t>(rng()) >> (rng() % 64));
  for (int64_t v : values) {
    Big a(orlix_biginteger_new(v));
    EXPECT_EQ(
        HexOf(a.get()), (v < 0 ? "-" : "") + [&] {
          char buf[32];
          std::snprintf(buf, sizeof buf, "%llx",
                        static_cast<unsigned long long>(v < 0 ? 0 - static_cast<uint64_t>(v) : v));
          return std::string(buf);
        }());
    int64_t back = 12345;
    ASSERT_EQ(orlix_biginteger_getvalue(a.get(), &back), 1) << v;
    EXPECT_EQ(back, v);
  }

  // The bit count must be below 64: INT64_MIN fits but is refused.
  Big min(orlix_biginteger_new(INT64_MIN));
  EXPECT_EQ(HexOf(min.get()), "-8000000000000000");
  EXPECT_EQ(orlix_biginteger_getbitcount(min.get()), 64);
  int64_t out = 77;
  EXPECT_EQ(orlix_biginteger_getvalue(min.get(), &out), 0);
  EXPECT_EQ(orlix_biginteger_getvalue(FromHex("8000000000000000").get(), &out), 0);
  EXPECT_EQ(orlix_biginteger_getvalue(FromHex("-10000000000000000").get(), &out), 0);
  EXPECT_EQ(out, 77);
  EXPECT_EQ(orlix_biginteger_getvalue(nullptr, &out), 0);
  EXPECT_EQ(orlix_biginteger_getvalue(min.get(), nullptr), 0);
}

TEST(BigIntInspect, SignBitCountCompareAndNulls) {
  EXPECT_EQ(orlix_biginteger_getsign(nullptr), 0);
  EXPECT_EQ(orlix_biginteger_getbitcount(nullptr), 0);
  EXPECT_EQ(orlix_biginteger_getsign(FromHex("-5").get()), -1);
  EXPECT_EQ(static_cast<uint32_t>(orlix_biginteger_getsign(FromHex("-5").get())), 0xFFFFFFFFu);
  EXPECT_EQ(orlix_biginteger_getsign(FromHex("0").get()), 0);
  EXPECT_EQ(orlix_biginteger_getsign(FromHex("5").get()), 1);
  EXPECT_EQ(orlix_biginteger_getbitcount(FromHex("0").get()), 0);
  EXPECT_EQ(orlix_biginteger_getbitcount(FromHex("-80").get()), 8);
  EXPECT_EQ(orlix_biginteger_getbitcount(FromHex("1" + std::string(100, '0')).get()), 401);

  Big one = FromHex("1");
  EXPECT_EQ(orlix_biginteger_cmp(nullptr, nullptr), 0);
  EXPECT_EQ(orlix_biginteger_cmp(nullptr, one.get()), -1);
  EXPECT_EQ(orlix_biginteger_cmp(one.get(), nullptr), 1);
  EXPECT_EQ(orlix_biginteger_cmp(one.get(), FromHex("1").get()), 0);
  EXPECT_LT(orlix_biginteger_cmp(FromHex("-ffffffffffffffffff").get(), one.get()), 0);
  EXPECT_GT(orlix_biginteger_cmp(one.get(), FromHex("-2").get()), 0);

  Big copy(orlix_biginteger_dup(one.get()));
  EXPECT_NE(copy.get(), one.get());
  EXPECT_EQ(orlix_biginteger_cmp(copy.get(), one.get()), 0);
  EXPECT_EQ(orlix_biginteger_dup(nullptr), nullptr);
  orlix_biginteger_free(nullptr);
}

}  // namespace
