// Differential tests of the UTF constructors and conversions against
// Python 3's codecs. Each test generates thousands of seeded random inputs,
// valid and deliberately broken, has one python3 process decode and
// re-encode all of them, and compares acceptance and every output form.
#include <algorithm>
#include <cstring>
#include <functional>

#include "ustring_test_util.hpp"

namespace {

using namespace orlix_test;

constexpr int kCases = 3000;

// Python's view of one input: '-' when the codec refuses it, else
// '+|code points|UTF-8|UTF-16BE|UCS-2|UTF-32BE' with '-' for an output
// form the text has no encoding in.
const char kScript[] = R"PY(
import sys
def conv(fn):
    try:
        return fn()
    except (UnicodeError, ValueError):
        return '-'
def describe(s):
    lone = any(0xD800 <= ord(c) <= 0xDFFF for c in s)
    cps = '-' if lone else ' '.join('%x' % ord(c) for c in s)
    u16 = s.encode('utf-16-be', 'surrogatepass').hex()
    bmp = '-' if any(ord(c) >= 0xD800 and not 0xE000 <= ord(c) <= 0xFFFF for c in s) else u16
    return '|'.join(['+', cps, conv(lambda: s.encode('utf-8').hex()), u16, bmp,
                     conv(lambda: s.encode('utf-32-be').hex())])
for line in open(sys.argv[1]):
    try:
        s = decode(line.rstrip('\n'))
    except (UnicodeError, ValueError, OverflowError):
        print('-')
        continue
    print(describe(s))
)PY";

// The same description built from the library's own conversions.
std::string Describe(const ORLIX_UString *s) {
  if (s == nullptr) return "-";
  std::string cps = "-", u8 = "-", u16, bmp = "-", u32 = "-";
  int64_t n = 0;
  uint64_t *q = nullptr;
  if (orlix_ustring_toutf32(s, &q, &n) == 1) {
    Buf<uint64_t> owned(q);
    Buf<wchar_t> w(orlix_ustring_towcs(s));
    EXPECT_EQ(n, s->charcount);
    EXPECT_EQ(q[n], 0u);
    EXPECT_NE(w, nullptr);
    cps.clear();
    bool above_bmp = false;
    for (int64_t i = 0; i < n; ++i) {
      char buf[16];
      std::snprintf(buf, sizeof buf, "%s%llx", i ? " " : "", static_cast<unsigned long long>(q[i]));
      cps += buf;
      above_bmp |= q[i] > 0xFFFF;
      if (w) {
        EXPECT_EQ(uint64_t(w.get()[i]), q[i]);
      }
    }
    if (w) {
      EXPECT_EQ(w.get()[n], 0);
    }
    EXPECT_EQ(s->hassurrogate, above_bmp ? 1u : 0u);
  } else {
    EXPECT_EQ(orlix_ustring_towcs(s), nullptr);
  }
  char *c = nullptr;
  if (orlix_ustring_toutf8(s, &c, &n) == 1) {
    Buf<char> owned(c);
    EXPECT_EQ(c[n], 0);
    u8 = Hex(c, size_t(n));
  }
  uint16_t *u = nullptr;
  if (orlix_ustring_toutf16(s, &u, &n) == 1) {
    Buf<uint16_t> owned(u);
    EXPECT_EQ(n, s->length);
    EXPECT_EQ(u[n], 0);
    for (int64_t i = 0; i < n; ++i) {
      const unsigned char be[2] = {static_cast<unsigned char>(u[i] >> 8),
                                   static_cast<unsigned char>(u[i])};
      u16 += Hex(be, 2);
    }
  }
  unsigned char *b = nullptr;
  if (orlix_ustring_tobmp(s, &b, &n) == 1) {
    Buf<unsigned char> owned(b);
    EXPECT_EQ(n, 2 * s->length);
    EXPECT_TRUE(b[n] == 0 && b[n + 1] == 0);
    bmp = Hex(b, size_t(n));
  }
  if (orlix_ustring_toutf32be(s, &b, &n) == 1) {
    Buf<unsigned char> owned(b);
    EXPECT_EQ(std::memcmp(b + n, "\0\0\0\0", 4), 0);
    u32 = Hex(b, size_t(n));
  }
  return "+|" + cps + "|" + u8 + "|" + u16 + "|" + bmp + "|" + u32;
}

// Feeds `inputs` (one line each) to the script with the given decode
// function and compares its verdicts with make(i).
void Compare(const std::string &decode_def, const std::vector<std::string> &inputs,
             const std::function<UStr(size_t)> &make, bool expect_refusals = true) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  std::string input;
  for (const auto &line : inputs) input += line + "\n";
  const auto verdicts = RunPython(decode_def + kScript, input);
  ASSERT_EQ(verdicts.size(), inputs.size());
  int accepted = 0, mismatches = 0;
  for (size_t i = 0; i < inputs.size() && mismatches < 10; ++i) {
    const std::string got = Describe(make(i).get());
    accepted += got != "-";
    if (got != verdicts[i]) {
      ++mismatches;
      ADD_FAILURE() << "input " << inputs[i] << "\n library: " << got
                    << "\n  python: " << verdicts[i];
    }
  }
  // Both outcomes must be well represented for the comparison to mean much.
  EXPECT_GT(accepted, int(inputs.size()) / 5);
  if (expect_refusals) {
    EXPECT_LT(accepted, int(inputs.size()) * 4 / 5);
  }
}

std::string RandomUtf8(std::mt19937 &rng) {
  std::string s;
  for (int k = int(rng() % 8); k > 0; --k) s += Utf8Raw(RandomCodePoint(rng));
  std::string bad;
  const uint32_t small = rng() % 0x10000;
  switch (rng() % 12) {
    case 0: s.resize(rng() % (s.size() + 1)); break;  // often cuts a sequence
    case 1: bad = {char(0xC0 | (small & 0x7F) >> 6), char(0x80 | (small & 0x3F))}; break;
    case 2:
      bad = {char(0xE0), char(0x80 | (small & 0x7FF) >> 6), char(0x80 | (small & 0x3F))};
      break;
    case 3: bad = Utf8Raw(small | 0x10000), bad[0] = char(0xF0), bad[1] &= char(0x8F); break;
    case 4: bad = Utf8Raw(0xD800 + rng() % 0x800); break;
    case 5: bad = Utf8Raw(0x110000 + rng() % 0xEFFFF); break;
    case 6: bad = std::string(1 + rng() % 2, char(0x80 + rng() % 0x40)); break;
    case 7: bad = {char(0xF8 + rng() % 8), char(0x88), char(0x80), char(0x80), char(0x80)}; break;
    case 8:
      if (!s.empty()) s[rng() % s.size()] = char(rng());
      break;
    default: break;  // left well-formed
  }
  s.insert(rng() % (s.size() + 1), bad);
  return s;
}

// UTF-8 texts against Python's decoder. The validator shared with the JSON
// code must agree with the constructor, and a well-formed input must convert
// back to exactly the same bytes.
void CompareUtf8(const std::vector<std::string> &bytes, const std::vector<std::string> &lines) {
  Compare("def decode(l): return bytes.fromhex(l).decode('utf-8')\n", lines, [&](size_t i) {
    UStr s(orlix_ustring_newutf8(bytes[i].data(), int64_t(bytes[i].size())));
    const std::vector<unsigned char> exact(bytes[i].begin(), bytes[i].end());
    EXPECT_EQ(orlix::utf8::validate(exact.data(), int64_t(exact.size())), s != nullptr)
        << Hex(bytes[i]);
    char *out = nullptr;
    int64_t n = 0;
    if (s && orlix_ustring_toutf8(s.get(), &out, &n) == 1) {
      EXPECT_EQ(std::string(out, size_t(n)), bytes[i]);
      orlix_free(out);
    }
    return s;
  });
}

// kCases texts from make(rng), with their hex lines for the script.
void Generate(std::mt19937 &rng, std::string (*make)(std::mt19937 &),
              std::vector<std::string> *bytes, std::vector<std::string> *lines) {
  for (int i = 0; i < kCases; ++i)
    bytes->push_back(make(rng)), lines->push_back(Hex(bytes->back()));
}

TEST(UStringOracle, Utf8AgainstPythonCodec) {
  std::mt19937 rng(101);
  std::vector<std::string> bytes, lines;
  Generate(rng, RandomUtf8, &bytes, &lines);
  CompareUtf8(bytes, lines);
}

// Texts long enough for the block-at-a-time paths (16 and 64 bytes): runs
// of characters of one encoded length and of mixed ones, and in most texts
// one defect of RandomUtf8's kinds at a random offset, so that defects land
// at every position relative to a block and to the characters around them.
std::string LongUtf8(std::mt19937 &rng) {
  std::string s;
  const size_t target = 40 + rng() % 400;
  static const uint32_t first[] = {0x20, 0x80, 0x800, 0xE000, 0x10000};
  static const uint32_t span[] = {0x5F, 0x780, 0xD800 - 0x800, 0x2000, 0x100000};
  while (s.size() < target) {
    // A run of one encoded length (ASCII runs long enough to fill the
    // decoder's 64-byte blocks), or a stretch of anything.
    const unsigned kind = rng() % 6;
    for (int k = int(rng() % (kind == 0 ? 160 : 24)); k > 0; --k)
      s += Utf8Raw(kind < 5 ? first[kind] + rng() % span[kind] : RandomCodePoint(rng));
  }
  if (rng() % 4 != 0) {
    const std::string defect = RandomUtf8(rng);
    s.insert(rng() % (s.size() + 1), defect);
  }
  return s;
}

TEST(UStringOracle, LongUtf8AgainstPythonCodec) {
  std::mt19937 rng(111);
  std::vector<std::string> bytes, lines;
  Generate(rng, LongUtf8, &bytes, &lines);
  // One corrupted byte at every offset of one long text, for each of the
  // byte values that matter to a decoder.
  std::string base;
  while (base.size() < 200) base += Utf8Raw(RandomCodePoint(rng));
  for (size_t at = 0; at < base.size(); ++at) {
    for (unsigned char b : {0x41, 0x80, 0xA0, 0xC1, 0xC3, 0xE0, 0xED, 0xF0, 0xF4, 0xF8}) {
      std::string t = base;
      t[at] = char(b);
      bytes.push_back(t), lines.push_back(Hex(t));
    }
    bytes.push_back(base.substr(0, at)), lines.push_back(Hex(bytes.back()));
  }
  CompareUtf8(bytes, lines);
  // The same texts through the portable forms that other processors use.
  const bool was = orlix::utf8::use_vector_forms(false);
  CompareUtf8(bytes, lines);
  orlix::utf8::use_vector_forms(was);
}

TEST(UStringOracle, AsciiAgainstPythonCodec) {
  std::mt19937 rng(102);
  std::vector<std::string> bytes, lines;
  for (int i = 0; i < kCases; ++i) {
    std::string s(rng() % 12, '\0');
    for (auto &c : s) c = char(rng() % 10 == 0 ? 0x80 + rng() % 0x80 : rng() % 0x80);
    bytes.push_back(s), lines.push_back(Hex(s));
  }
  Compare("def decode(l): return bytes.fromhex(l).decode('ascii')\n", lines, [&](size_t i) {
    return UStr(orlix_ustring_newascii(bytes[i].data(), int64_t(bytes[i].size())));
  });
}

uint16_t RandomUnit(std::mt19937 &rng) {
  switch (rng() % 6) {
    case 0: return uint16_t(rng() % 0x80);
    case 1: return uint16_t(0xD800 + rng() % 0x400);
    case 2: return uint16_t(0xDC00 + rng() % 0x400);
    case 3: return uint16_t(0xFFFF - rng() % 2);
    default: return uint16_t(0xE000 + rng() % 0x2000 - (rng() % 2) * 0x9000);
  }
}

std::string BigEndian(const Units &u) {
  std::string s;
  for (uint16_t x : u) s += char(x >> 8), s += char(x);
  return s;
}

// Short unit sequences: pairs, BMP units and edge units in any order.
Units ShortUnits(std::mt19937 &rng) {
  Units u;
  for (int k = int(rng() % 7); k > 0; --k) {
    if (rng() % 3 == 0) {
      u.push_back(uint16_t(0xD800 + rng() % 0x400)), u.push_back(uint16_t(0xDC00 + rng() % 0x400));
    } else if (rng() % 2 != 0) {
      u.push_back(uint16_t(rng() % 0xD800));
    } else {
      u.push_back(RandomUnit(rng));
    }
  }
  return u;
}

// Long unit sequences for the eight-units-at-a-time encoder: runs of one
// length class (ASCII, two-byte, three-byte) with pairs and, in most
// sequences, one lone or misordered surrogate somewhere.
Units LongUnits(std::mt19937 &rng) {
  Units u;
  const size_t target = 16 + rng() % 200;
  while (u.size() < target) {
    const int run = int(rng() % 24);
    const int kind = int(rng() % 5);
    for (int k = 0; k < run; ++k) {
      switch (kind) {
        case 0: u.push_back(uint16_t(rng() % 0x80)); break;
        case 1: u.push_back(uint16_t(0x80 + rng() % 0x780)); break;
        case 2: u.push_back(uint16_t(0x800 + rng() % (0xD800 - 0x800))); break;
        case 3: u.push_back(uint16_t(0xE000 + rng() % 0x2000)); break;
        default:
          u.push_back(uint16_t(0xD800 + rng() % 0x400));
          u.push_back(uint16_t(0xDC00 + rng() % 0x400));
      }
    }
  }
  if (rng() % 3 != 0) u.insert(u.begin() + long(rng() % (u.size() + 1)), RandomUnit(rng));
  return u;
}

// kCases unit sequences from make(rng) against Python's UTF-16 decoder; an
// accepted sequence keeps its units.
void CompareUtf16(uint32_t seed, Units (*make)(std::mt19937 &)) {
  std::mt19937 rng(seed);
  std::vector<Units> inputs;
  std::vector<std::string> lines;
  for (int i = 0; i < kCases; ++i)
    inputs.push_back(make(rng)), lines.push_back(Hex(BigEndian(inputs.back())));
  Compare("def decode(l): return bytes.fromhex(l).decode('utf-16-be')\n", lines, [&](size_t i) {
    UStr s = FromUnits(inputs[i]);
    if (s) {
      EXPECT_EQ(UnitsOf(s.get()), inputs[i]);
    }
    return s;
  });
}

TEST(UStringOracle, Utf16UnitsAgainstPythonCodec) { CompareUtf16(103, ShortUnits); }

TEST(UStringOracle, LongUtf16AgainstPythonCodec) {
  CompareUtf16(112, LongUnits);
  const bool was = orlix::utf8::use_vector_forms(false);
  CompareUtf16(112, LongUnits);
  orlix::utf8::use_vector_forms(was);
}

TEST(UStringOracle, Ucs2AgainstPythonCodec) {
  std::mt19937 rng(104);
  std::vector<std::string> bytes, lines;
  for (int i = 0; i < kCases; ++i) {
    Units u(rng() % 6);
    for (auto &x : u) x = rng() % 5 == 0 ? RandomUnit(rng) : uint16_t(rng() % 0xD800);
    std::string b = BigEndian(u);
    if (rng() % 8 == 0) b += char(rng());
    bytes.push_back(b), lines.push_back(Hex(b));
  }
  const char decode[] =
      "def decode(l):\n"
      "    s = bytes.fromhex(l).decode('utf-16-be', 'surrogatepass')\n"
      "    if any(0xD800 <= ord(c) for c in s if not 0xE000 <= ord(c) <= 0xFFFF):\n"
      "        raise ValueError('no UCS-2 form')\n"
      "    return s\n";
  Compare(decode, lines, [&](size_t i) {
    return UStr(orlix_ustring_newbmp(reinterpret_cast<const unsigned char *>(bytes[i].data()),
                                     int64_t(bytes[i].size())));
  });
}

uint64_t RandomValue(std::mt19937_64 &rng, std::mt19937 &small) {
  switch (rng() % 9) {
    case 0: return 0xD800 + rng() % 0x800;
    case 1: return 0x110000 + rng() % 0x100;
    case 2: return 0xFFFFFFFFu - rng() % 2;
    case 3: return rng() & 0xFFFFFFFFu;
    case 4: return (uint64_t{1} << 32) + RandomCodePoint(small);  // valid if narrowed
    case 5: return rng();
    default: return RandomCodePoint(small);
  }
}

TEST(UStringOracle, Utf32BigEndianBytesAgainstPythonCodec) {
  std::mt19937_64 rng(105);
  std::mt19937 small(105);
  std::vector<std::string> bytes, lines;
  for (int i = 0; i < kCases; ++i) {
    std::string b;
    for (int k = int(rng() % 5); k > 0; --k) {
      const auto v =
          static_cast<uint32_t>(rng() % 3 ? RandomCodePoint(small) : RandomValue(rng, small));
      b += char(v >> 24), b += char(v >> 16), b += char(v >> 8), b += char(v);
    }
    if (rng() % 10 == 0) b.resize(b.size() + 1 + rng() % 3, 'x');
    bytes.push_back(b), lines.push_back(Hex(b));
  }
  Compare("def decode(l): return bytes.fromhex(l).decode('utf-32-be')\n", lines, [&](size_t i) {
    return UStr(orlix_ustring_newutf32be(reinterpret_cast<const unsigned char *>(bytes[i].data()),
                                         int64_t(bytes[i].size())));
  });
}

TEST(UStringOracle, CodePointArraysAndWideStringsAgainstPythonCodec) {
  std::mt19937_64 rng(106);
  std::mt19937 small(106);
  std::vector<std::vector<uint64_t>> inputs;
  std::vector<std::string> lines;
  for (int i = 0; i < kCases; ++i) {
    std::vector<uint64_t> v(rng() % 6);
    std::string line;
    for (auto &x : v) {
      x = rng() % 3 ? RandomCodePoint(small) : RandomValue(rng, small);
      char buf[24];
      std::snprintf(buf, sizeof buf, "%s%llx", line.empty() ? "" : " ", (unsigned long long)x);
      line += buf;
    }
    inputs.push_back(v), lines.push_back(line);
  }
  const char decode[] =
      "def decode(l):\n"
      "    return b''.join(int(x, 16).to_bytes(4, 'big') for x in l.split()).decode('utf-32-be')\n";
  Compare(decode, lines, [&](size_t i) {
    const auto &v = inputs[i];
    UStr s(orlix_ustring_newutf32(v.empty() ? nullptr : v.data(), int64_t(v.size())));
    // The same values as wide characters, where they fit one and hold no
    // terminator, must get the same answer.
    if (std::all_of(v.begin(), v.end(), [](uint64_t x) { return x != 0 && x <= 0xFFFFFFFFu; })) {
      std::wstring w;
      for (uint64_t x : v) w += static_cast<wchar_t>(x);
      UStr ws(orlix_ustring_newwcs(w.c_str()));
      EXPECT_EQ(Describe(ws.get()), Describe(s.get()));
    }
    return s;
  });
}

// Substrings may end in a lone high surrogate; every output form other than
// UTF-16 must then be refused, as Python refuses to encode the same text.
TEST(UStringOracle, SubstringOutputsAgainstPythonCodec) {
  std::mt19937 rng(107);
  std::vector<UStr> subs;
  std::vector<std::string> lines;
  while (subs.size() < size_t(kCases)) {
    CodePoints cps(1 + rng() % 8);
    for (auto &c : cps) c = rng() % 2 ? 0x10000 + rng() % 0x100000 : RandomCodePoint(rng);
    UStr s = FromCodePoints(cps);
    UStr sub(orlix_ustring_substring(s.get(), rng() % cps.size(), 1 + rng() % 4));
    ASSERT_NE(sub, nullptr);
    lines.push_back(Hex(BigEndian(UnitsOf(sub.get()))));
    subs.push_back(std::move(sub));
  }
  Compare(
      "def decode(l): return bytes.fromhex(l).decode('utf-16-be', 'surrogatepass')\n", lines,
      [&](size_t i) { return UStr(orlix_ustring_dup(subs[i].get())); }, false);
  const auto lone = std::count_if(subs.begin(), subs.end(), [](const UStr &s) {
    return s->data[s->length - 1] >= 0xD800 && s->data[s->length - 1] < 0xDC00;
  });
  EXPECT_GT(lone, kCases / 10);
}

}  // namespace
