// The string value: constructor edge cases, conversions out, ownership,
// comparison, concatenation, substrings and search (the last three against
// naive models over random text with surrogate pairs).
#include <algorithm>
#include <cstring>
#include <functional>

#include "ustring_test_util.hpp"

namespace {

using namespace orlix_test;

// Fields of the record, checked together.
testing::AssertionResult Shape(const ORLIX_UString *s, int64_t length, int64_t charcount,
                               uint32_t hassurrogate) {
  if (s == nullptr) return testing::AssertionFailure() << "null string";
  if (s->length != length || s->charcount != charcount || s->hassurrogate != hassurrogate ||
      s->refcount != 1 || s->data[s->length] != 0)
    return testing::AssertionFailure()
           << "length " << s->length << " charcount " << s->charcount << " hassurrogate "
           << s->hassurrogate << " refcount " << s->refcount;
  return testing::AssertionSuccess();
}

UStr Utf8(const std::string &b) { return UStr(orlix_ustring_newutf8(b.data(), int64_t(b.size()))); }

TEST(UStringConstruct, PointerAndCountRules) {
  const char bytes[8] = {};
  const uint16_t units[2] = {};
  const uint64_t cps[2] = {};
  const auto *ub = reinterpret_cast<const unsigned char *>(bytes);
  const std::vector<std::function<ORLIX_UString *(bool, int64_t)>> ctors = {
      [&](bool p, int64_t n) { return orlix_ustring_newlength(p ? units : nullptr, n); },
      [&](bool p, int64_t n) { return orlix_ustring_newutf8(p ? bytes : nullptr, n); },
      [&](bool p, int64_t n) { return orlix_ustring_newbmp(p ? ub : nullptr, n); },
      [&](bool p, int64_t n) { return orlix_ustring_newutf32(p ? cps : nullptr, n); },
      [&](bool p, int64_t n) { return orlix_ustring_newutf32be(p ? ub : nullptr, n); },
      [&](bool p, int64_t n) { return orlix_ustring_newascii(p ? bytes : nullptr, n); },
  };
  for (size_t i = 0; i < ctors.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_TRUE(Shape(UStr(ctors[i](false, 0)).get(), 0, 0, 0));
    EXPECT_TRUE(Shape(UStr(ctors[i](true, 0)).get(), 0, 0, 0));
    EXPECT_EQ(UStr(ctors[i](false, 4)), nullptr);
    EXPECT_EQ(UStr(ctors[i](true, -1)), nullptr);
  }
  EXPECT_TRUE(Shape(UStr(orlix_ustring_new(nullptr)).get(), 0, 0, 0));
  const uint16_t stop[] = {'a', 0, 'b', 0};
  EXPECT_TRUE(Shape(UStr(orlix_ustring_new(stop)).get(), 1, 1, 0));
  EXPECT_EQ(orlix_ustring_newwcs(nullptr), nullptr);
  EXPECT_TRUE(Shape(UStr(orlix_ustring_newwcs(L"")).get(), 0, 0, 0));
  EXPECT_EQ(orlix_ustring_getcharcount(nullptr), 0);
}

TEST(UStringConstruct, Utf8RefusesEveryIllFormedSequence) {
  for (const char *bad :
       {"\xC0\x80", "\xE0\x80\x80", "\xF0\x80\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80",
        "\xF8\x88\x80\x80\x80", "\xE2\x82", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",
        "\xED\xBF\xBF", "\xF5\x80\x80\x80", "\xFF", "a\xC3", "\xC3(", "\xE2\x82\x28"})
    EXPECT_EQ(Utf8(bad), nullptr) << Hex(bad);
  UStr nul = Utf8(std::string(1, '\0'));
  ASSERT_TRUE(Shape(nul.get(), 1, 1, 0));
  EXPECT_EQ(nul->data[0], 0);
  UStr emoji = Utf8("\xF0\x9F\x98\x80");
  ASSERT_TRUE(Shape(emoji.get(), 2, 1, 1));
  EXPECT_EQ(UnitsOf(emoji.get()), (Units{0xD83D, 0xDE00}));
  // Boundaries of each sequence length, and zeros inside an ASCII run long
  // enough for word-at-a-time scanning.
  const std::string edge_bytes =
      "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  UStr edges = Utf8(edge_bytes);
  ASSERT_TRUE(Shape(edges.get(), 9, 7, 1));
  EXPECT_EQ(CodePointsOf(edges.get()),
            (CodePoints{0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0x10000, 0x10FFFF}));
  char *back = nullptr;
  int64_t n = 0;
  ASSERT_EQ(orlix_ustring_toutf8(edges.get(), &back, &n), 1);
  EXPECT_EQ(std::string(back, size_t(n)), edge_bytes);
  orlix_free(back);
  EXPECT_TRUE(Shape(Utf8(std::string("abc\0defghij\0kl", 15)).get(), 15, 15, 0));
}

// The validator shared with the JSON code accepts exactly what newutf8
// accepts and looks at nothing past its n bytes: each input is checked once
// in front of a byte that no valid text may end with, and once in a buffer
// of exact size so that AddressSanitizer sees any read past the end.
TEST(UStringConstruct, Utf8ValidatorStaysWithinItsInput) {
  for (size_t run = 0; run <= 140; ++run) {
    for (const std::string tail : {"", "\xC3\xA9", "\xE2\x82", "\xF0\x9F\x98\x80", "\x80"}) {
      const std::string text = std::string(run, 'a') + tail;
      const bool valid = Utf8(text) != nullptr;
      const auto n = int64_t(text.size());
      std::vector<unsigned char> bytes(text.begin(), text.end());
      bytes.push_back(0xC3);
      EXPECT_EQ(orlix::utf8::validate(bytes.data(), n), valid) << run << " " << Hex(tail);
      bytes.pop_back();
      bytes.shrink_to_fit();
      EXPECT_EQ(orlix::utf8::validate(bytes.data(), n), valid) << run << " " << Hex(tail);
    }
  }
}

TEST(UStringConstruct, Utf16BmpUtf32AsciiAndWide) {
  const uint16_t lone_high[] = {0xD800, 0x41}, lone_low[] = {0xDC00}, pair[] = {0xD83D, 0xDE00};
  EXPECT_EQ(orlix_ustring_newlength(lone_high, 2), nullptr);
  EXPECT_EQ(orlix_ustring_newlength(lone_high, 1), nullptr);
  EXPECT_EQ(orlix_ustring_newlength(lone_low, 1), nullptr);
  EXPECT_TRUE(Shape(UStr(orlix_ustring_newlength(pair, 2)).get(), 2, 1, 1));

  const unsigned char bmp[] = {0x00, 0x41, 0xFF, 0xFF, 0xD8, 0x00};
  EXPECT_EQ(orlix_ustring_newbmp(bmp, 3), nullptr);
  EXPECT_EQ(orlix_ustring_newbmp(bmp + 4, 2), nullptr);
  UStr b = UStr(orlix_ustring_newbmp(bmp, 4));
  ASSERT_TRUE(Shape(b.get(), 2, 2, 0));
  EXPECT_EQ(UnitsOf(b.get()), (Units{0x41, 0xFFFF}));

  const unsigned char be[] = {0, 0x10, 0xFF, 0xFF, 0, 0, 0xD8, 0, 0, 0x11, 0, 0};
  EXPECT_TRUE(Shape(UStr(orlix_ustring_newutf32be(be, 4)).get(), 2, 1, 1));
  EXPECT_EQ(orlix_ustring_newutf32be(be, 5), nullptr);
  EXPECT_EQ(orlix_ustring_newutf32be(be + 4, 4), nullptr);
  EXPECT_EQ(orlix_ustring_newutf32be(be + 8, 4), nullptr);
  // Values that would become valid if truncated to 32 or 16 bits.
  for (uint64_t bad :
       {0x100000041ull, 0xD800ull, 0xDFFFull, 0x110000ull, ~0ull, 0x1000000000000ull})
    EXPECT_EQ(orlix_ustring_newutf32(&bad, 1), nullptr) << std::hex << bad;

  EXPECT_EQ(orlix_ustring_newascii("a\x80", 2), nullptr);
  EXPECT_EQ(orlix_ustring_newascii("\xFF", 1), nullptr);
  EXPECT_TRUE(Shape(UStr(orlix_ustring_newascii("\0\x7F", 2)).get(), 2, 2, 0));

  UStr w(orlix_ustring_newwcs(L"a\U0001F600\xFFFF"));
  ASSERT_TRUE(Shape(w.get(), 4, 3, 1));
  Buf<wchar_t> back(orlix_ustring_towcs(w.get()));
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(std::wstring(back.get()), L"a\U0001F600\xFFFF");
  const wchar_t negative[] = {L'a', static_cast<wchar_t>(-1), 0};
  const wchar_t surrogate[] = {0xDC00, 0};
  EXPECT_EQ(orlix_ustring_newwcs(negative), nullptr);
  EXPECT_EQ(orlix_ustring_newwcs(surrogate), nullptr);
  EXPECT_EQ(orlix_ustring_towcs(nullptr), nullptr);
}

TEST(UStringConvert, NullArgumentsAndEmptyStrings) {
  UStr s = Utf8("x");
  char *c = nullptr;
  uint16_t *u = nullptr;
  unsigned char *b = nullptr;
  uint64_t *q = nullptr;
  int64_t n = -7;
  EXPECT_EQ(orlix_ustring_toutf8(nullptr, &c, &n), 0);
  EXPECT_EQ(orlix_ustring_toutf8(s.get(), nullptr, &n), 0);
  EXPECT_EQ(orlix_ustring_toutf16(nullptr, &u, &n), 0);
  EXPECT_EQ(orlix_ustring_toutf16(s.get(), nullptr, &n), 0);
  EXPECT_EQ(orlix_ustring_tobmp(nullptr, &b, &n), 0);
  EXPECT_EQ(orlix_ustring_tobmp(s.get(), nullptr, &n), 0);
  EXPECT_EQ(orlix_ustring_toutf32(nullptr, &q, &n), 0);
  EXPECT_EQ(orlix_ustring_toutf32(s.get(), nullptr, &n), 0);
  EXPECT_EQ(orlix_ustring_toutf32be(nullptr, &b, &n), 0);
  EXPECT_EQ(orlix_ustring_toutf32be(s.get(), nullptr, &n), 0);
  EXPECT_EQ(n, -7);

  UStr empty(orlix_ustring_new(nullptr));
  ASSERT_EQ(orlix_ustring_toutf8(empty.get(), &c, &n), 1);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(c[0], 0);
  orlix_free(c);
  ASSERT_EQ(orlix_ustring_toutf32be(empty.get(), &b, &n), 1);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(std::memcmp(b, "\0\0\0\0", 4), 0);
  orlix_free(b);
  Buf<wchar_t> w(orlix_ustring_towcs(empty.get()));
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(w.get()[0], 0);

  UStr emoji = Utf8("a\xF0\x9F\x98\x80");
  EXPECT_EQ(orlix_ustring_tobmp(emoji.get(), &b, &n), 0);
}

TEST(UStringOwnership, DupFreeAndCatShareTheValue) {
  EXPECT_EQ(orlix_ustring_dup(nullptr), nullptr);
  orlix_ustring_free(nullptr);
  EXPECT_EQ(orlix_ustring_cat(nullptr, nullptr), nullptr);

  ORLIX_UString *s = orlix_ustring_newutf8("abc", 3);
  ASSERT_EQ(orlix_ustring_dup(s), s);
  EXPECT_EQ(s->refcount, 2u);
  EXPECT_EQ(orlix_ustring_cat(nullptr, s), s);
  EXPECT_EQ(orlix_ustring_cat(s, nullptr), s);
  EXPECT_EQ(s->refcount, 4u);
  // Each reference is released on its own; under AddressSanitizer a
  // missing increment shows up as a use after free here.
  for (int i = 0; i < 3; ++i) orlix_ustring_free(s);
  EXPECT_EQ(s->refcount, 1u);
  EXPECT_EQ(orlix_ustring_getcharcount(s), 3);
  orlix_ustring_free(s);

  UStr a = Utf8("a\xF0\x9F\x98\x80"), b = Utf8(std::string("\0z", 2));
  UStr ab(orlix_ustring_cat(a.get(), b.get()));
  ASSERT_TRUE(Shape(ab.get(), 5, 4, 1));
  EXPECT_EQ(CodePointsOf(ab.get()), (CodePoints{'a', 0x1F600, 0, 'z'}));
  UStr ba(orlix_ustring_cat(b.get(), b.get()));
  EXPECT_TRUE(Shape(ba.get(), 4, 4, 0));
}

TEST(UStringCompare, NullRulesAndCodePointOrder) {
  UStr a = Utf8("abc"), b = Utf8("abd"), ab = Utf8("ab");
  EXPECT_EQ(orlix_ustring_cmp(nullptr, nullptr), 0);
  EXPECT_EQ(orlix_ustring_cmp(nullptr, a.get()), -1);
  EXPECT_EQ(orlix_ustring_cmp(a.get(), nullptr), 1);
  EXPECT_EQ(orlix_ustring_ncmp(nullptr, a.get(), 2), -1);
  EXPECT_EQ(orlix_ustring_ncmp(a.get(), nullptr, 0), 1);
  EXPECT_EQ(orlix_ustring_cmp(ab.get(), a.get()), -1);
  EXPECT_EQ(orlix_ustring_cmp(a.get(), a.get()), 0);
  UStr ffff = Utf8("\xEF\xBF\xBF"), sup = Utf8("\xF0\x90\x80\x80");
  EXPECT_EQ(orlix_ustring_cmp(ffff.get(), sup.get()), -1);
  EXPECT_EQ(orlix_ustring_cmp(sup.get(), ffff.get()), 1);

  // ncmp reaches one character past n.
  EXPECT_EQ(orlix_ustring_ncmp(a.get(), b.get(), 2), -1);
  EXPECT_EQ(orlix_ustring_ncmp(a.get(), b.get(), 1), 0);
  EXPECT_EQ(orlix_ustring_ncmp(a.get(), b.get(), 0), 0);
  EXPECT_EQ(orlix_ustring_ncmp(b.get(), a.get(), 9), 1);
  EXPECT_EQ(orlix_ustring_ncmp(ab.get(), a.get(), 2), -1);  // terminator against 'c'
  EXPECT_EQ(orlix_ustring_ncmp(ab.get(), a.get(), 1), 0);
  EXPECT_EQ(orlix_ustring_ncmp(ab.get(), a.get(), -1), -1);
  EXPECT_EQ(orlix_ustring_ncmp(a.get(), a.get(), 5), 0);
  UStr e1 = Utf8("a\xF0\x9F\x98\x80"), e2 = Utf8("a\xF0\x9F\x98\x81");
  EXPECT_EQ(orlix_ustring_ncmp(e1.get(), e2.get(), 1), -1);
  EXPECT_EQ(orlix_ustring_ncmp(e1.get(), ffff.get(), 0), 0);
}

// The requested characters, plus the high surrogate of the next character
// when that one lies above U+FFFF.
Units SubstringModel(const CodePoints &s, int64_t start, int64_t count) {
  const int64_t end = count < 0 ? int64_t(s.size()) : std::min<int64_t>(s.size(), start + count);
  Units u = ToUnits(CodePoints(s.begin() + start, s.begin() + end));
  if (end < int64_t(s.size()) && s[size_t(end)] > 0xFFFF) u.push_back(ToUnits({s[size_t(end)]})[0]);
  return u;
}

TEST(UStringSubstring, EdgesAndTheTrailingHighSurrogate) {
  UStr s = Utf8(
      "ab\xF0\x9F\x98\x80"
      "c");
  EXPECT_EQ(orlix_ustring_substring(nullptr, 0, 1), nullptr);
  EXPECT_EQ(orlix_ustring_substring(s.get(), -1, 1), nullptr);
  EXPECT_EQ(orlix_ustring_substring(s.get(), 0, 0), nullptr);
  EXPECT_EQ(orlix_ustring_substring(s.get(), 4, 1), nullptr);
  UStr all(orlix_ustring_substring(s.get(), 0, -1));
  ASSERT_TRUE(Shape(all.get(), 5, 4, 1));
  EXPECT_EQ(UnitsOf(all.get()), UnitsOf(s.get()));
  UStr tail(orlix_ustring_substring(s.get(), 2, 100));
  EXPECT_TRUE(Shape(tail.get(), 3, 2, 1));

  UStr cut(orlix_ustring_substring(s.get(), 0, 2));
  ASSERT_TRUE(Shape(cut.get(), 3, 3, 1));
  EXPECT_EQ(UnitsOf(cut.get()), (Units{'a', 'b', 0xD83D}));
  // Such a value still copies out as UTF-16 but has no other encoding.
  char *c = nullptr;
  unsigned char *b = nullptr;
  uint64_t *q = nullptr;
  uint16_t *u = nullptr;
  int64_t n = 0;
  EXPECT_EQ(orlix_ustring_toutf8(cut.get(), &c, &n), 0);
  EXPECT_EQ(orlix_ustring_toutf32(cut.get(), &q, &n), 0);
  EXPECT_EQ(orlix_ustring_toutf32be(cut.get(), &b, &n), 0);
  EXPECT_EQ(orlix_ustring_tobmp(cut.get(), &b, &n), 0);
  EXPECT_EQ(orlix_ustring_towcs(cut.get()), nullptr);
  ASSERT_EQ(orlix_ustring_toutf16(cut.get(), &u, &n), 1);
  EXPECT_EQ(n, 3);
  EXPECT_EQ(u[2], 0xD83D);
  EXPECT_EQ(u[3], 0);
  orlix_free(u);
}

TEST(UStringSubstring, RandomAgainstModel) {
  std::mt19937 rng(23);
  for (int i = 0; i < 5000; ++i) {
    CodePoints s(1 + rng() % 12);
    for (auto &c : s) c = RandomCodePoint(rng);
    UStr str = FromCodePoints(s);
    const int64_t start = rng() % s.size();
    const int64_t count = int64_t(rng() % 16) - 2;
    UStr sub(orlix_ustring_substring(str.get(), start, count));
    if (count == 0) {
      EXPECT_EQ(sub, nullptr);
      continue;
    }
    ASSERT_NE(sub, nullptr) << i;
    const Units want = SubstringModel(s, start, count);
    ASSERT_EQ(UnitsOf(sub.get()), want) << i << " start " << start << " count " << count;
    const bool any_surrogate =
        std::any_of(want.begin(), want.end(), [](uint16_t x) { return x >= 0xD800 && x < 0xE000; });
    EXPECT_EQ(sub->hassurrogate, any_surrogate ? 1u : 0u);
    // A trailing lone high surrogate counts as one character.
    EXPECT_EQ(sub->charcount, int64_t(CodePointsOf(sub.get()).size()));
  }
}

TEST(UStringFind, ArgumentRules) {
  UStr h = Utf8("abcab"), empty(orlix_ustring_new(nullptr)), ab = Utf8("ab");
  UStr longer = Utf8("abca");
  int64_t pos = 99;
  EXPECT_EQ(orlix_ustring_find(nullptr, 0, ab.get(), &pos), 0);
  EXPECT_EQ(orlix_ustring_find(h.get(), -1, ab.get(), &pos), 0);
  EXPECT_EQ(orlix_ustring_find(h.get(), 5, empty.get(), &pos), 0);
  EXPECT_EQ(orlix_ustring_find(h.get(), 0, nullptr, &pos), 0);
  EXPECT_EQ(orlix_ustring_find(h.get(), 0, ab.get(), nullptr), 0);
  EXPECT_EQ(orlix_ustring_find(empty.get(), 0, empty.get(), &pos), 0);
  EXPECT_EQ(pos, 99);
  EXPECT_EQ(orlix_ustring_find(h.get(), 3, empty.get(), &pos), 1);
  EXPECT_EQ(pos, 3);
  EXPECT_EQ(orlix_ustring_find(h.get(), 0, h.get(), &pos), 1);
  EXPECT_EQ(pos, 0);
  EXPECT_EQ(orlix_ustring_find(h.get(), 1, h.get(), &pos), 0);
  EXPECT_EQ(pos, -1);
  EXPECT_EQ(orlix_ustring_find(h.get(), 2, longer.get(), &pos), 0);
  EXPECT_EQ(pos, -1);
  EXPECT_EQ(orlix_ustring_find(h.get(), 1, ab.get(), &pos), 1);
  EXPECT_EQ(pos, 3);
}

}  // namespace
