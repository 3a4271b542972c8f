// The JSON encoder: compact and indented layouts byte for byte, string
// escapes, number formatting against the C library's "%lf", and the in-place
// sort of the top-level container.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "json/ORLIX_JSON.hpp"
#include "json_test_util.hpp"
#include "printf_number.hpp"

namespace {

using namespace json_test;

constexpr uint32_t kPretty = ORLIX_JSON_ENCODE_PRETTY;
constexpr uint32_t kSpaces = ORLIX_JSON_ENCODE_SPACES;
constexpr uint32_t kCr = ORLIX_JSON_ENCODE_CR;
constexpr uint32_t kLf = ORLIX_JSON_ENCODE_LF;
constexpr uint32_t kSort = ORLIX_JSON_ENCODE_SORT;

Tree Parse(const std::string &text) {
  Tree t = DecodeText(text);
  EXPECT_NE(t, nullptr) << text;
  return t;
}

struct Layout {
  const char *tree;
  uint32_t flags;
  const char *text;
};

TEST(json_encode, LayoutsByteForByte) {
  const Layout cases[] = {
      {"{\"a\":1,\"b\":[true,null]}", 0, "{\"a\":1,\"b\":[true,null]}"},
      {"{\"a\":1,\"b\":[true,null]}", kPretty | kLf, "{\n\t\"a\":1,\n\t\"b\":[true,null]\n}"},
      {"[1,{\"x\":2}]", kPretty | kCr | kLf, "[\r\n\t1,\r\n\t{\r\n\t\t\"x\":2\r\n\t}\r\n]"},
      {"[1,{\"x\":2}]", kPretty | kCr, "[\r\t1,\r\t{\r\t\t\"x\":2\r\t}\r]"},
      {"[1,{\"x\":2}]", kPretty, "[\t1,\t{\t\t\"x\":2\t}]"},  // indentation, no breaks
      {"[[1]]", kPretty | kLf | kSpaces | 2, "[\n  \t[\n  \t  \t1\n  \t]\n]"},
      {"[[1]]", kPretty | kLf | kSpaces, "[\n\t[\n\t\t1\n\t]\n]"},  // N = 0: tabs only
      {"[[1]]", kPretty | kLf | 2, "[\n\t[\n\t\t1\n\t]\n]"},        // N without the flag
      {"[[1]]", kSpaces | kLf | kCr | 3, "[[1]]"},                  // no PRETTY: compact
      {"[[1]]", 0x0F0EFF00u, "[[1]]"},                              // other bits are ignored
      {"[[1]]", 0x0F0EFF00u | kPretty | kLf, "[\n\t[\n\t\t1\n\t]\n]"},
      {"[]", 0, "[]"},
      {"{}", 0, "{}"},
      {"[]", kPretty | kLf, "[\n]"},
      {"{}", kPretty | kLf, "{\n}"},
      {"[[],{}]", kPretty | kLf, "[\n\t[\n\t],\n\t{\n\t}\n]"},
      // Member values stay compact at any depth; array elements indent themselves.
      {"{\"a\":{\"b\":[1,{\"c\":[]}]},\"d\":[]}", kPretty | kLf,
       "{\n\t\"a\":{\"b\":[1,{\"c\":[]}]},\n\t\"d\":[]\n}"},
      {"[[{\"a\":[1],\"b\":{}}]]", kPretty | kLf | kSpaces | 1,
       "[\n \t[\n \t \t{\n \t \t \t\"a\":[1],\n \t \t \t\"b\":{}\n \t \t}\n \t]\n]"},
      {"\"x\"", kPretty | kLf | kSpaces | 4, "\"x\""},
      {"5", kPretty | kLf, "5"},
      {"[\"a\",true,null,-1]", kPretty | kLf, "[\n\t\"a\",\n\ttrue,\n\tnull,\n\t-1\n]"},
      // Strings: quote and backslash escaped, controls as \u00XX in upper case,
      // everything else as it is.
      {"\"\\n\\\"\\\\\"", 0, "\"\\u000A\\\"\\\\\""},
      {"\"\\u00e9/\\u007f\\u0000z\"", 0, "\"\xC3\xA9/\x7F\\u0000z\""},
      {"\"\\u001b\\u001F\\u0010\\r\"", 0, "\"\\u001B\\u001F\\u0010\\u000D\""},
      {"{\"\\t\":\"\\\\\"}", 0, "{\"\\u0009\":\"\\\\\"}"}};
  for (const auto &c : cases) {
    Tree t = Parse(c.tree);
    EXPECT_EQ(EncodeTree(t.get(), c.flags), c.text) << c.tree << " flags " << std::hex << c.flags;
  }
  // The reported length excludes the NUL that ends the buffer.
  Tree t = Parse("{\"a\":1,\"b\":[true,null]}");
  char *text = nullptr;
  uint32_t length = 0;
  ASSERT_EQ(orlix_json_encode(t.get(), 0, &text, &length), 1);
  EXPECT_EQ(length, 23u);
  EXPECT_EQ(text[23], '\0');
  orlix_free(text);
  EXPECT_EQ(orlix_json_encode(nullptr, 0, &text, &length), 0);
  EXPECT_EQ(orlix_json_encode(t.get(), 0, nullptr, &length), 0);
  EXPECT_EQ(orlix_json_encode(t.get(), 0, &text, nullptr), 0);
}

TEST(json_encode, EveryControlByteAndStringWithNul) {
  std::string bytes;
  std::string expected = "\"";
  for (int c = 0; c < 0x20; ++c) {
    bytes += char(c);
    char buf[8];
    std::snprintf(buf, sizeof buf, "\\u00%02X", c);
    expected += buf;
  }
  bytes += "\x7F \xC3\xA9\xF0\x9F\x98\x80";
  expected += "\x7F \xC3\xA9\xF0\x9F\x98\x80\"";
  Tree s(orlix_json_newstring(bytes.data(), int(bytes.size())));
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(EncodeTree(s.get()), expected);
}

std::string Formatted(double v) {
  Tree n(orlix_json_newnumber(v));
  return EncodeTree(n.get()).value_or("<encode failed>");
}

TEST(json_encode, NumbersAsDocumented) {
  const std::pair<double, const char *> cases[] = {{5, "5"},
                                                   {-2147483648.0, "-2147483648"},
                                                   {2147483647.0, "2147483647"},
                                                   {2147483648.0, "2147483648"},
                                                   {0.25, "0.25"},
                                                   {1e-9, "0"},
                                                   {123456.7890123, "123456.789012"},
                                                   {1.5, "1.5"},
                                                   {0.1, "0.1"},
                                                   {3.14159265, "3.141593"},
                                                   {1e20, "100000000000000000000"},
                                                   {1e-7, "0"},
                                                   {-1e-7, "-0"},
                                                   {-0.0, "0"},
                                                   {3.0, "3"},
                                                   {-2147483648.5, "-2147483648.5"},
                                                   {0.0078125, "0.007812"},
                                                   {0.0234375, "0.023438"},
                                                   {-0.5, "-0.5"},
                                                   {0.99999951, "1"},
                                                   {HUGE_VAL, "inf"},
                                                   {-HUGE_VAL, "-inf"},
                                                   {std::nan(""), "nan"},
                                                   {-std::nan(""), "-nan"}};
  for (const auto &[v, text] : cases) EXPECT_EQ(Formatted(v), text) << v;
}

// Text whose length *length cannot hold fails (0, nothing handed out). 199
// arrays around 85,000 numbers (170 kB of input) would give 4.34 GB indented
// with 255 spaces a level; the indentation alone decides, before any output.
TEST(json_encode, OutputLongerThanALengthCanHoldFails) {
  std::string text(199, '[');
  for (int i = 0; i < 85000; ++i) text += i ? ",7" : "7";
  text += std::string(199, ']');
  Tree t = Parse(text);
  const uint32_t wide = kPretty | kSpaces | kLf | 255;
  const struct {
    uint32_t flags;
    bool fits;
  } cases[] = {{wide, false}, {wide | kCr, false}, {kPretty | kLf, true}, {0, true}};
  for (const auto &c : cases) {
    char *out = reinterpret_cast<char *>(1);
    uint32_t length = 7;
    const int ok = orlix_json_encode(t.get(), c.flags, &out, &length);
    EXPECT_EQ(ok, c.fits ? 1 : 0) << std::hex << c.flags;
    if (ok) orlix_free(out);
    else EXPECT_TRUE(out == reinterpret_cast<char *>(1) && length == 7) << "nothing handed out";
  }
}

TEST(json_encode, SortOrdersTheTopLevelInTheCallersTree) {
  Tree o = Parse("{\"b\":[3,1],\"a\":{\"d\":1,\"c\":2}}");
  EXPECT_EQ(EncodeTree(o.get(), kSort), "{\"a\":{\"d\":1,\"c\":2},\"b\":[3,1]}");
  EXPECT_EQ(EncodeTree(o.get()), "{\"a\":{\"d\":1,\"c\":2},\"b\":[3,1]}");  // stays sorted
  Tree a = Parse("[{\"x\":1},5,\"s\",[],null,true]");
  EXPECT_EQ(EncodeTree(a.get(), kSort | kPretty | kLf),
            "[\n\t\"s\",\n\t5,\n\ttrue,\n\tnull,\n\t{\n\t\t\"x\":1\n\t},\n\t[\n\t]\n]");
  Tree s = Parse("\"b\"");
  EXPECT_EQ(EncodeTree(s.get(), kSort), "\"b\"");
  // Equal names fall back to the values.
  Tree dup = Parse("{\"a\":2,\"a\":1,\"a\":[],\"a\":\"z\"}");
  EXPECT_EQ(EncodeTree(dup.get(), kSort), "{\"a\":\"z\",\"a\":1,\"a\":2,\"a\":[]}");
}

}  // namespace

// The "%lf" text, and the encoder's trimmed number text, are produced
// without the C library; they must be the C library's byte for byte. Random bit patterns cover every exponent; the
// other draws crowd the places where the form could go wrong: values of
// map-coordinate size with many digits, exact ties at the sixth decimal
// (odd multiples of 2^-7 and the like, which round half to even), values a
// unit in the last place either side of a rounding boundary, subnormals,
// and the top of the 64-bit fast range.
TEST(json_encode, NumberTextMatchesPrintfOnMillionsOfDoubles) {
  uint64_t x = 0x2545F4914F6CDD1Du;
  const auto next = [&] {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    return x;
  };
  const auto uniform = [&] { return static_cast<double>(next() >> 11) * 0x1p-53; };
  char ours[orlix::json::kFixed6Size];
  char theirs[orlix::json::kFixed6Size];
  int mismatches = 0;
  for (int i = 0; i < 2000000 && mismatches < 10; ++i) {
    double v;
    switch (i % 7) {
      case 0: {
        const uint64_t bits = next();
        std::memcpy(&v, &bits, sizeof v);
        break;
      }
      case 1: v = (uniform() - 0.5) * 360.0; break;
      case 6: v = static_cast<double>(static_cast<int64_t>(next()) >> (next() % 64)); break;
      case 2: v = std::ldexp(static_cast<double>(next() % 100000 * 2 + 1), -7 - static_cast<int>(next() % 12)); break;
      case 3: {
        const double boundary = (static_cast<double>(next() % 20000000) + 0.5) * 1e-6;
        v = std::nextafter(boundary, (next() & 1) ? 1e300 : -1e300);
        if (next() & 1) v = boundary;
        break;
      }
      case 4: {
        const uint64_t bits = next() % 0x0010000000000000u;  // subnormals and the smallest normals
        std::memcpy(&v, &bits, sizeof v);
        break;
      }
      default: v = std::ldexp(uniform() + 0.5, 30 + static_cast<int>(next() % 16)); break;
    }
    if (next() & 1) v = -v;
    size_t n = orlix::json::format_fixed6(v, ours);
    std::snprintf(theirs, sizeof theirs, "%lf", v);
    if (n != std::strlen(ours) || std::strcmp(ours, theirs) != 0) {
      ++mismatches;
      ADD_FAILURE() << std::hexfloat << v << ": " << ours << " against " << theirs;
    }
    n = orlix::json::format_number(v, ours);
    if (std::string(ours, n) != PrintfNumber(v)) {
      ++mismatches;
      ADD_FAILURE() << std::hexfloat << v << ": " << ours << " against " << PrintfNumber(v);
    }
  }
  for (const double v : {0.0, -0.0, 0x1p-1074, 0.0000005, 0.0000015, 0.0000025, 18446744073709.551615,
                         18446744073709.55, 1.8446744073709552e13, 9007199254740993.0, 1e300, HUGE_VAL,
                         -HUGE_VAL, std::nan(""), -std::nan(""), 2147483647.0, 2147483647.5, -2147483648.0,
                         -2147483648.5, 2147483648.0, 1e-7, -1e-7, 0.5, -0.5}) {
    orlix::json::format_fixed6(v, ours);
    std::snprintf(theirs, sizeof theirs, "%lf", v);
    EXPECT_STREQ(ours, theirs) << std::hexfloat << v;
    orlix::json::format_number(v, ours);
    EXPECT_EQ(ours, PrintfNumber(v)) << std::hexfloat << v;
  }
}
