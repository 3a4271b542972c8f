// Normalization: the documented cases, the buffer operations, canonical
// ordering, the Hangul rules, and Python's unicodedata as the oracle over
// every assigned code point and over random strings.
#include <algorithm>
#include <iterator>
#include <random>
#include <sstream>

#include "oracle_scripts.hpp"
#include "unicode_test_util.hpp"
#include "ustring/ORLIX_UString_Normalize.hpp"

namespace {

using namespace unicode_test;
using orlix::ORLIX_UString_Buffer_new;

UStr Normalize(ORLIX_UString *s, int32_t form) { return UStr(orlix_ustring_normalize(s, form)); }

CodePoints Normalized(const CodePoints &cps, int32_t form) {
  UStr s = Make(cps);
  UStr r = Normalize(s.get(), form);
  EXPECT_TRUE(WellFormed(r.get()));
  return r ? CodePointsOf(r.get()) : CodePoints{0xFFFFFFFF};
}

TEST(unicodeNormalize, DocumentedCases) {
  UStr ascii = Utf8("plain ASCII text, 0-9");
  for (int32_t form = 1; form <= 4; ++form) {
    UStr r = Normalize(ascii.get(), form);
    EXPECT_EQ(r.get(), ascii.get());
    EXPECT_EQ(ascii->refcount, 2u);
  }
  EXPECT_EQ(Normalize(ascii.get(), 0), nullptr);
  EXPECT_EQ(Normalize(ascii.get(), 5), nullptr);
  EXPECT_EQ(Normalize(nullptr, ORLIX_NORMALIZE_NFC), nullptr);
  UStr empty = Make({});
  EXPECT_EQ(Normalize(empty.get(), ORLIX_NORMALIZE_NFKD).get(), empty.get());

  EXPECT_EQ(Normalized({0xC5}, ORLIX_NORMALIZE_NFD), (CodePoints{0x41, 0x30A}));
  EXPECT_EQ(Normalized({0x41, 0x30A}, ORLIX_NORMALIZE_NFC), (CodePoints{0xC5}));
  EXPECT_EQ(Normalized({0xFDFA}, ORLIX_NORMALIZE_NFKD).size(), 18u);
  EXPECT_EQ(Normalized({0xAC01}, ORLIX_NORMALIZE_NFD), (CodePoints{0x1100, 0x1161, 0x11A8}));
  EXPECT_EQ(Normalized({0x1100, 0x1161, 0x11A8}, ORLIX_NORMALIZE_NFC), (CodePoints{0xAC01}));
  EXPECT_EQ(Normalized({0x1100, 0x1161}, ORLIX_NORMALIZE_NFC), (CodePoints{0xAC00}));
  // U+0958 is excluded from composition: NFC keeps it decomposed.
  EXPECT_EQ(Normalized({0x0958}, ORLIX_NORMALIZE_NFC), (CodePoints{0x0915, 0x093C}));
  // Marks of classes 230 and 220 after one base go 220 first; equal classes
  // keep their order (U+0301 and U+0300 are both 230).
  EXPECT_EQ(Normalized({0x61, 0x301, 0x316, 0x300}, ORLIX_NORMALIZE_NFD),
            (CodePoints{0x61, 0x316, 0x301, 0x300}));
  // Supplementary code points through every step.
  EXPECT_EQ(Normalized({0x1D15E}, ORLIX_NORMALIZE_NFD), (CodePoints{0x1D157, 0x1D165}));
  EXPECT_EQ(Normalized({0x1D400, 0x1109A}, ORLIX_NORMALIZE_NFKC), (CodePoints{0x41, 0x1109A}));
  UStr one = Make({0x2126});  // OHM SIGN: one unit, charcount 1
  UStr r = Normalize(one.get(), ORLIX_NORMALIZE_NFD);
  ASSERT_TRUE(WellFormed(r.get()));
  EXPECT_EQ(CodePointsOf(r.get()), CodePoints{0x3A9});
}

TEST(unicodeNormalize, UnpairedSurrogates) {
  // Only a substring holds one: it ends in the high surrogate of the
  // character after its range.
  UStr s = Make({0x41, 0x1F600});
  UStr head(orlix_ustring_substring(s.get(), 0, 1));
  ASSERT_EQ(std::vector<uint16_t>(head->data, head->data + head->length),
            (std::vector<uint16_t>{0x41, 0xD83D}));
  for (int32_t form = 1; form <= 4; ++form) EXPECT_EQ(Normalize(head.get(), form), nullptr);
  // A text of that one unit alone skips canonical ordering and is copied.
  const uint16_t lone = 0xD83D;
  UStr copy(orlix::normalize_units(&lone, 1, ORLIX_NORMALIZE_NFC));
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->length, 1);
  EXPECT_EQ(copy->charcount, 1);
  EXPECT_EQ(copy->data[0], 0xD83D);
}

TEST(unicodeNormalize, HangulLvRuleTakesAnyCharacterAboveTBase) {
  // U+1161 is a Maybe for NFC, so these go through composition.
  EXPECT_EQ(Normalized({0x1100, 0x1161, 0x4E2D}, ORLIX_NORMALIZE_NFC),
            (CodePoints{0xAC00 + 0x4E2D - 0x11A7}));
  // U+11C3 is no trailing consonant, yet it lands on the next LV syllable,
  // which then takes the trailing consonant after it.
  EXPECT_EQ(Normalized({0x1100, 0x1161, 0x11C3, 0x11A8}, ORLIX_NORMALIZE_NFC),
            (CodePoints{0xAC1C + 1}));
  // Below U+11A8 nothing combines with an LV syllable.
  EXPECT_EQ(Normalized({0x1100, 0x1161, 0x1100, 0x1161}, ORLIX_NORMALIZE_NFC),
            (CodePoints{0xAC00, 0xAC00}));
  // A sum that is a surrogate or above U+10FFFF is not formed.
  EXPECT_EQ(Normalized({0x1112, 0x1175, 0x11A7 + 0xD800 - 0xD788}, ORLIX_NORMALIZE_NFC),
            (CodePoints{0xD788, 0x121F}));
  EXPECT_EQ(Normalized({0x1112, 0x1175, 0x10FFFD}, ORLIX_NORMALIZE_NFKC),
            (CodePoints{0xD788, 0x10FFFD}));
  // Text that passes the quick check is not recomposed at all.
  UStr ok = Make({0xAC00, 0x4E2D});
  EXPECT_EQ(Normalize(ok.get(), ORLIX_NORMALIZE_NFC).get(), ok.get());
}

TEST(unicodeNormalize, BufferOperations) {
  orlix::OwnedBuffer b(ORLIX_UString_Buffer_new(0));
  ASSERT_TRUE(b);
  EXPECT_EQ(b->capacity, 16);
  EXPECT_EQ(orlix::OwnedBuffer(ORLIX_UString_Buffer_new(47))->capacity, 40 + 16);
  EXPECT_EQ(ORLIX_UString_Buffer_new(-1), nullptr);

  // append grows by about 1,024 units once fewer than 4 are free.
  for (int i = 0; i < 13; ++i) ASSERT_EQ(orlix::ORLIX_UString_Buffer_append(b.get(), 'a' + i), 1);
  EXPECT_EQ(b->capacity, 16);
  ASSERT_EQ(orlix::ORLIX_UString_Buffer_append(b.get(), 0x1F600), 1);
  EXPECT_EQ(b->capacity, 16 + 1024 + 16);
  EXPECT_EQ(b->length, 15);
  EXPECT_EQ(b->pos, 15);
  EXPECT_EQ(b->charcount, 14);
  EXPECT_EQ(b->data[15], 0);

  // appendwchars grows by n + 1,024 and leaves charcount alone.
  std::vector<uint16_t> units(2000, 'x');
  ASSERT_EQ(orlix::ORLIX_UString_Buffer_appendwchars(b.get(), units.data(), 2000), 1);
  EXPECT_EQ(b->capacity, 1056 + 3024);
  EXPECT_EQ(b->length, 2015);
  EXPECT_EQ(b->charcount, 14);

  // Decomposition in the middle: the rest moves, pos stays on the first
  // inserted unit.
  orlix::OwnedBuffer d(ORLIX_UString_Buffer_new(0));
  const uint16_t text[] = {'a', 0xD83D, 0xDE00, 'b'};
  ASSERT_EQ(orlix::ORLIX_UString_Buffer_appendwchars(d.get(), text, 4), 1);
  d->pos = 1;
  const uint32_t cps[] = {0x41, 0x10000, 0x42};
  ASSERT_EQ(orlix::ORLIX_UString_Buffer_Decomposition(d.get(), cps, 3), 1);
  EXPECT_EQ(std::vector<uint16_t>(d->data, d->data + d->length),
            (std::vector<uint16_t>{'a', 0x41, 0xD800, 0xDC00, 0x42, 'b'}));
  EXPECT_EQ(d->pos, 1);
  // Not enough room for 2n units beyond the replaced one: 2n + 1,024 more.
  std::vector<uint32_t> many(10, 0x43);
  const int64_t before = d->capacity;
  ASSERT_EQ(orlix::ORLIX_UString_Buffer_Decomposition(d.get(), many.data(), 10), 1);
  EXPECT_EQ(d->capacity, before + 1048);
  EXPECT_EQ(d->length, 15);

  // Composition: the starter becomes the composite, the character at the
  // index goes, charcount drops by one.
  orlix::OwnedBuffer c(ORLIX_UString_Buffer_new(8));
  const uint16_t seq[] = {'x', 'A', 0x0327, 0x0301, 'y'};
  ASSERT_EQ(orlix::ORLIX_UString_Buffer_appendwchars(c.get(), seq, 5), 1);
  c->charcount = 5;
  c->pos = 1;
  orlix::ORLIX_UString_Buffer_Composition(c.get(), 0xC1, 3, 1);
  EXPECT_EQ(std::vector<uint16_t>(c->data, c->data + c->length),
            (std::vector<uint16_t>{'x', 0xC1, 0x0327, 'y'}));
  EXPECT_EQ(c->charcount, 4);
  orlix::ORLIX_UString_Buffer_Composition(c.get(), 0x1D15E, 2, 1);  // 1 unit becomes 2
  EXPECT_EQ(std::vector<uint16_t>(c->data, c->data + c->length),
            (std::vector<uint16_t>{'x', 0xD834, 0xDD5E, 'y'}));

  // detach hands the array over; the flag follows charcount against length.
  UStr s(orlix::ORLIX_UString_Buffer_detach(c.get()));
  ASSERT_TRUE(s);
  EXPECT_EQ(c->data, nullptr);
  EXPECT_EQ(s->length, 4);
  EXPECT_EQ(s->charcount, 3);
  EXPECT_EQ(s->hassurrogate, 1u);
  EXPECT_EQ(s->refcount, 1u);
  EXPECT_EQ(s->data[4], 0);
}

// The quick check's vector forms pass whole blocks of units by their range;
// the portable form looks every unit up. Each probe - the code points at
// the ranges' edges, marks, decomposable characters, surrogates - stands
// at every position of texts made of each range, in every form.
TEST(unicodeNormalize, QuickCheckVectorFormsAgreeWithPortable) {
  const uint16_t fill[] = {'a', 0xE9, 0x2FF, 0x3400, 0x9FFF, 0xAC00, 0xD7A3};
  const std::vector<uint16_t> probes[] = {
      {0x300}, {0xC0}, {0xBF}, {0xA0}, {0x9F}, {0x33FF}, {0xA000}, {0xABFF}, {0xD7A4},
      {0xF900}, {0x1100}, {0x1161}, {0xD834, 0xDD65}, {0xD800}, {0xDC00}, {0x0301, 0x0300}};
  const bool was = orlix::use_quick_check_vector_forms(true);
  for (int32_t form = 1; form <= 4; ++form) {
    for (uint16_t f : fill) {
      for (const auto &probe : probes) {
        for (size_t at = 0; at <= 48; ++at) {
          std::vector<uint16_t> text(50, f);
          std::copy(probe.begin(), probe.end(), text.begin() + at);
          orlix::use_quick_check_vector_forms(true);
          const auto vector = orlix::quick_check(text.data(), int64_t(text.size()), form);
          orlix::use_quick_check_vector_forms(false);
          const auto portable = orlix::quick_check(text.data(), int64_t(text.size()), form);
          ASSERT_EQ(vector, portable) << form << " " << std::hex << f << " " << probe[0] << " at "
                                      << std::dec << at;
        }
      }
      std::vector<uint16_t> plain(50, f);
      orlix::use_quick_check_vector_forms(true);
      const auto vector = orlix::quick_check(plain.data(), 50, form);
      orlix::use_quick_check_vector_forms(false);
      EXPECT_EQ(vector, orlix::quick_check(plain.data(), 50, form)) << form << std::hex << f;
    }
  }
  orlix::use_quick_check_vector_forms(was);
}

TEST(unicodeNormalize, CanonicalOrderingIsAStableSort) {
  std::mt19937 rng(7);
  for (int round = 0; round < 220; ++round) {
    // Short runs, and long ones past the insertion-sort threshold.
    const size_t n = round < 200 ? rng() % 40 : 1000 + rng() % 100000;
    std::vector<orlix::CombiningClassEntry> run(n);
    for (size_t i = 0; i < run.size(); ++i)
      run[i] = {0x300 + i % 0x10000, uint32_t(rng() % (round % 2 ? 4 : 255)) + 1};
    auto expected = run;
    std::stable_sort(expected.begin(), expected.end(), [](const auto &a, const auto &b) {
      return a.combining_class < b.combining_class;
    });
    orlix::CombiningClass_Buffer_sort(run.data(), int64_t(run.size()));
    for (size_t i = 0; i < run.size(); ++i) {
      ASSERT_EQ(run[i].code_point, expected[i].code_point) << n << " at " << i;
      ASSERT_EQ(run[i].combining_class, expected[i].combining_class);
    }
  }
}

// Long runs of marks in the worst orders for canonical ordering (classes
// descending, interleaved, equal), against Python's unicodedata.
TEST(unicodeNormalize, LongMarkRunsMatchPython) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  const struct {
    CodePoints head;
    CodePoints unit;
  } cases[] = {
      {{'a'}, {0x301, 0x316, 0x327, 0x5B0, 0x334}},  // classes 230 220 202 10 1
      {{}, {0xF73, 0xF75}},                          // decompose to 129 130, 129 132
      {{'e'}, {0x301, 0x316, 0x300}},                // equal classes keep their order
      {{0x1100, 0x1161}, {0x11A8, 0x334}},           // Hangul, then a mark run
  };
  std::string input;
  for (const auto &c : cases) {
    CodePoints cps = c.head;
    for (int i = 0; i < 2000; ++i) cps.insert(cps.end(), c.unit.begin(), c.unit.end());
    input += Hex(cps) + "\n";
  }
  const auto lines = orlix_oracle::RunPython(R"PY(
import sys, unicodedata as ud
for line in open(sys.argv[1]):
    s = ''.join(chr(int(w, 16)) for w in line.split())
    print('|'.join(' '.join('%x' % ord(c) for c in ud.normalize(f, s))
                   for f in ('NFD', 'NFC', 'NFKD', 'NFKC')))
)PY",
                               input);
  ASSERT_EQ(lines.size(), std::size(cases));
  std::istringstream in(input);
  for (const auto &line : lines) {
    std::string text;
    std::getline(in, text);
    UStr s = Make(ParseHex(text));
    const auto want = Split(line, '|');
    ASSERT_EQ(want.size(), 4u);
    for (int32_t form = 1; form <= 4; ++form)
      EXPECT_TRUE(Hex(Normalize(s.get(), form).get()) == want[form - 1])
          << text.substr(0, 40) << "... form " << form;
  }
}

// Every code point assigned in Unicode 8.0 on its own, in the four forms.
TEST(unicodeNormalize, EveryAssignedCodePointMatchesPython) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  const auto lines = RunPython(R"PY(
import sys, unicodedata as ud
first = None
for line in open(sys.argv[1]):
    f = line.split(';')
    cp = int(f[0], 16)
    if f[1].endswith('First>'):
        first = cp
        continue
    for c in range(first if f[1].endswith('Last>') else cp, cp + 1):
        if 0xD800 <= c <= 0xDFFF:
            continue
        print('%x|' % c + '|'.join(' '.join('%x' % ord(x) for x in ud.normalize(form, chr(c)))
                                   for form in ('NFD', 'NFC', 'NFKD', 'NFKC')))
)PY",
                               DataFile("unicode/UnicodeData-8.0.0.txt"));
  ASSERT_GT(lines.size(), 250000u);
  int failures = 0;
  for (const auto &line : lines) {
    const auto f = Split(line, '|');
    UStr s = Make(ParseHex(f[0]));
    for (int32_t form = 1; form <= 4 && failures < 10; ++form) {
      UStr r = Normalize(s.get(), form);
      if (Hex(r.get()) != f[form]) {
        ++failures;
        ADD_FAILURE() << "U+" << f[0] << " form " << form << ": " << Hex(r.get()) << ", Python "
                      << f[form];
      }
    }
  }
}

// Random strings of characters assigned in Unicode 8.0. Python gives the
// standard forms; for NFC and NFKC it also composes its own decomposition
// again with the library's rule that an LV syllable takes any following
// character above U+11A7. Where that rule changes the result, the change
// is expected, not skipped - and it is expected only where the library did
// not return its argument (a text that passes the quick check is not
// recomposed).
const std::string kRandomScript = kComposeModel + R"PY(
import random, sys, unicodedata as ud
path, category, seed, count = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
assigned, decomposable, marks = [], [], []
first = None
for line in open(path):
    f = line.split(';')
    cp = int(f[0], 16)
    if f[1].endswith('First>'):
        first = cp
        continue
    if f[1].endswith('Last>'):
        if not 0xD800 <= first <= 0xDFFF and first < 0xF0000:
            assigned.extend(range(first, cp + 1))
        continue
    assigned.append(cp)
    if f[5]:
        decomposable.append(cp)
    if f[3] != '0':
        marks.append(cp)
hangul = list(range(0x1100, 0x1113)) + list(range(0x1161, 0x1176)) + list(range(0x11A7, 0x11C3)) \
    + list(range(0xAC00, 0xAC00 + 11172, 97)) + [0x11C3, 0x11FF, 0x3131]
letters = [ord(c) for c in 'aAeEiIoOuUnNcCsSzZ<=>']
pools = {'assigned': [assigned],
         'marks': [letters, marks, marks, decomposable, assigned],
         'hangul': [hangul, hangul, marks, assigned, decomposable]}[category]

compose, _ = make_composer(ud, decomposable)

hexs = lambda s: ' '.join('%x' % c for c in s)
rng = random.Random(seed)
for _ in range(count):
    s = [rng.choice(rng.choice(pools)) for _ in range(rng.randint(1, 12))]
    text = ''.join(map(chr, s))
    out = [hexs(s)]
    for d, c in (('NFD', 'NFC'), ('NFKD', 'NFKC')):
        decomposed = [ord(x) for x in ud.normalize(d, text)]
        standard = [ord(x) for x in ud.normalize(c, text)]
        assert compose(decomposed, False) == standard, (hexs(s), c)
        out += [hexs(decomposed), hexs(standard), hexs(compose(decomposed, True))]
    print('|'.join(out))
)PY";

void CompareRandom(const char *category, int count, bool expect_lv_rule) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  const auto lines =
      RunPython(kRandomScript, DataFile("unicode/UnicodeData-8.0.0.txt") + " " + category + " " +
                                   std::to_string(count) + " " + std::to_string(count));
  ASSERT_EQ(lines.size(), size_t(count));
  int failures = 0;
  int lv_rule_results = 0;
  for (const auto &line : lines) {
    const auto f = Split(line, '|');
    ASSERT_EQ(f.size(), 7u);
    UStr s = Make(ParseHex(f[0]));
    // Columns per form: NFD | NFC standard | NFC with the LV rule, and the
    // same for NFKD and NFKC.
    const struct {
      int32_t form;
      const std::string &standard;
      const std::string &with_rule;
    } checks[] = {{ORLIX_NORMALIZE_NFD, f[1], f[1]},
                  {ORLIX_NORMALIZE_NFC, f[2], f[3]},
                  {ORLIX_NORMALIZE_NFKD, f[4], f[4]},
                  {ORLIX_NORMALIZE_NFKC, f[5], f[6]}};
    for (const auto &c : checks) {
      UStr r = Normalize(s.get(), c.form);
      EXPECT_TRUE(WellFormed(r.get()));
      const std::string got = Hex(r.get());
      const bool same_object = r.get() == s.get();
      // The quick check may only pass what is already normalized.
      const std::string &expected = same_object ? f[0] : c.with_rule;
      if (same_object && c.standard != f[0]) {
        ADD_FAILURE() << "quick check passed " << f[0] << " for form " << c.form;
      } else if (got != expected && failures++ < 10) {
        ADD_FAILURE() << f[0] << " form " << c.form << ": " << got << ", expected " << expected
                      << " (standard " << c.standard << ")";
      }
      lv_rule_results += !same_object && c.with_rule != c.standard;
    }
  }
  if (expect_lv_rule) {
    EXPECT_GT(lv_rule_results, 0);
  }
  std::printf("%s: %d results differ from the standard forms by the LV rule alone\n", category,
              lv_rule_results);
}

TEST(unicodeNormalize, RandomAssignedStringsMatchPython) { CompareRandom("assigned", 3000, false); }
TEST(unicodeNormalize, RandomMarkSequencesMatchPython) { CompareRandom("marks", 3000, false); }
TEST(unicodeNormalize, RandomHangulMatchesPythonWithTheLvRule) {
  CompareRandom("hangul", 3000, true);
}

}  // namespace
