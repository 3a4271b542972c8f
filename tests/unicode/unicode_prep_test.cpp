// Case folding and the two preparation profiles: the documented cases, the
// LDAP insignificant-character handling, and Python (str.casefold,
// stringprep, the nameprep of encodings.idna) as the oracle.
//
// Python's stringprep describes Unicode 3.2; the library's tables are those
// of Unicode 8.0 (case folding, normalization) and 5.0 (bidi classes,
// assignments). Where the two disagree the tables hold, and the oracle
// script applies these named differences to its own answer:
//  - Cherokee U+13A0..U+13F4: Python's table B.2 lowercases them with its
//    current case data (to U+AB70..); Unicode 8.0 case folding maps the
//    lower case to these letters and leaves them alone.
//  - U+2F868, U+2F874, U+2F91F, U+2F95F, U+2F9BF: decompositions corrected
//    in Unicode 4.0; Python's 3.2 normalization keeps the old ones.
//  - U+0CBF, U+0CC6, U+2132, U+2800..U+28FF: bidi class L in Unicode 5.0
//    (not L in 3.2), so a string with R or AL characters may not hold them;
//    nor the letters Python's newer lower case gives for U+04C0, U+10A0..
//    U+10C5, U+2132 and U+2183 (U+04CF, U+2D00..U+2D25, U+214E, U+2184),
//    which are unassigned, hence not L, in 3.2.
// The oracle also applies the library's NFKC, whose LV rule (see the
// normalization suite) shows through nameprep.
#include "oracle_scripts.hpp"
#include "unicode_test_util.hpp"
#include "ustring/ORLIX_UString_Prep.hpp"

namespace {

using namespace unicode_test;

std::string Fold(const CodePoints &cps, int32_t mode) {
  UStr s = Make(cps);
  UStr r(orlix_ustring_tocasefold(s.get(), mode));
  EXPECT_TRUE(r == nullptr || WellFormed(r.get()));
  return Hex(r.get());
}

std::string Ldap(int64_t type, const CodePoints &cps) {
  UStr s = Make(cps);
  UStr r(orlix_ustring_ldapi18nstringprep(type, s.get()));
  EXPECT_TRUE(r == nullptr || WellFormed(r.get()));
  return Hex(r.get());
}

CodePoints Text(const std::string &ascii) { return CodePoints(ascii.begin(), ascii.end()); }

std::string Nameprep(const CodePoints &cps, int32_t allow_unassigned) {
  UStr s = Make(cps);
  UStr r(orlix_ustring_idn_stringprep(s.get(), allow_unassigned));
  EXPECT_TRUE(r == nullptr || WellFormed(r.get()));
  return Hex(r.get());
}

TEST(unicodePrep, CaseFoldingDocumentedCases) {
  EXPECT_EQ(Fold(Text("ABC"), 1), "61 62 63");
  EXPECT_EQ(Fold({0xDF}, 1), "73 73");
  EXPECT_EQ(Fold(Text("ABC"), 0), "-");
  EXPECT_EQ(Fold(Text("ABC"), 3), "-");
  EXPECT_EQ(orlix_ustring_tocasefold(nullptr, 1), nullptr);
  // Mode 2 folds what folding produces again: U+03F9 to U+03F2 (full
  // folding), then to U+03C3 (closure).
  EXPECT_EQ(Fold({0x3F9}, 1), "3f2");
  EXPECT_EQ(Fold({0x3F9}, 2), "3c3");
  EXPECT_EQ(Fold({0x37A}, 2), "20 3b9");
  EXPECT_EQ(Fold({0x37A}, 1), "37a");
  EXPECT_EQ(Fold({0xAB70, 0x1E9E, 0x10400}, 1), "13a0 73 73 10428");
  // Always a new string, even when nothing folds.
  UStr s = Make(Text("abc"));
  UStr r(orlix_ustring_tocasefold(s.get(), 1));
  EXPECT_NE(r.get(), s.get());
  EXPECT_EQ(s->refcount, 1u);
}

TEST(unicodePrep, LdapDocumentedCases) {
  EXPECT_EQ(Ldap(0, {}), "20 20");
  EXPECT_EQ(Ldap(0, Text("   ")), "20 20");
  EXPECT_EQ(Ldap(1, Text("  Foo   Bar ")), "20 66 6f 6f 20 20 62 61 72 20");
  EXPECT_EQ(Ldap(0, Text("Foo")), "20 46 6f 6f 20");
  // Tab and no-break space are spaces; U+00AD and U+200B go.
  EXPECT_EQ(Ldap(0, {'a', 0x09, 0xA0, 'b', 0xAD, 0x200B}), "20 61 20 20 62 20");
  EXPECT_EQ(Ldap(3, Text("1  2")), "31 20 32");
  EXPECT_EQ(Ldap(3, Text(" 1 2 ")), "31 32");
  EXPECT_EQ(Ldap(3, {'1', ' ', 0x301}), "31 20 301");  // a mark keeps its space
  EXPECT_EQ(Ldap(3, {}), "");
  EXPECT_EQ(Ldap(4, Text("+1-555-0100")), "2b 31 35 35 35 30 31 30 30");
  EXPECT_EQ(Ldap(4, Text("1--2")), "31 2d 32");
  EXPECT_EQ(Ldap(4, {'A', 0x2212, 'b', 0xFF0D, 'C', ' '}), "41 62 43");
  EXPECT_EQ(Ldap(5, {'A', 0x2010, 'b'}), "61 62");
  // Long texts full of insignificant characters (each removal used to move
  // the rest of the text): the same walk, at every length.
  const auto repeat = [](const CodePoints &unit, int n) {
    CodePoints out;
    for (int i = 0; i < n; ++i) out.insert(out.end(), unit.begin(), unit.end());
    return out;
  };
  const auto but_last = [](CodePoints cps) {
    cps.pop_back();
    return cps;
  };
  const int n = 100000;
  EXPECT_EQ(Ldap(3, repeat(Text("1 "), n)), Hex(repeat(Text("1"), n)));
  EXPECT_EQ(Ldap(3, repeat(Text("1  "), n)), Hex(but_last(repeat(Text("1 "), n))));
  EXPECT_EQ(Ldap(4, repeat(Text("9 -"), n)), Hex(but_last(repeat(Text("9-"), n))));
  EXPECT_EQ(Ldap(5, repeat({'A', 0xFF0D}, n)), Hex(repeat(Text("a"), n)));
  for (int64_t type : {0, 1, 3, 4, 5}) {
    EXPECT_EQ(Ldap(type, {'a', 0xFFFD}), "-");
    EXPECT_EQ(Ldap(type, {'a', 0xE000}), "-");
    EXPECT_EQ(Ldap(type, {'a', 0xFDD0}), "-");
    EXPECT_EQ(Ldap(type, {'a', 0x1FFFF}), "-");
    EXPECT_EQ(Ldap(type, {'a', 0x0370}), "-");  // unassigned in Unicode 5.0
  }
  EXPECT_EQ(Ldap(2, Text("a")), "-");
  EXPECT_EQ(Ldap(6, Text("a")), "-");
  EXPECT_EQ(Ldap(-1, Text("a")), "-");
  EXPECT_EQ(orlix_ustring_ldapi18nstringprep(1, nullptr), nullptr);
  // Right-to-left letters drop out, with no bidi rule.
  EXPECT_EQ(Ldap(0, {'a', 0x5D0, 'b', 0x10800}), "20 61 62 20");
  EXPECT_EQ(Ldap(0, {0x5D0, 0x5D1}), "20 20");
  // Folding (types 1, 3, 5) and NFKC.
  EXPECT_EQ(Ldap(1, {0xDF, 0xFB01}), "20 73 73 66 69 20");
  EXPECT_EQ(Ldap(0, {0xDF, 0xFB01}), "20 df 66 69 20");
}

TEST(unicodePrep, NameprepDocumentedCases) {
  EXPECT_EQ(orlix_ustring_idn_stringprep(nullptr, 1), nullptr);
  EXPECT_EQ(Nameprep({'A', 0xAD, 0xDF, 0xFB01, 0x2163}, 0), "61 73 73 66 69 69 76");
  EXPECT_EQ(Nameprep(Text("a b\x01"), 0), "61 20 62 1");  // ASCII space and controls pass
  EXPECT_EQ(Nameprep({}, 0), "");
  for (uint32_t bad :
       {0xFFFDu, 0xE000u, 0xFDD0u, 0x1680u, 0x80u, 0x2FF0u, 0xE0001u, 0x200Eu, 0xF0000u, 0x10FFFEu})
    EXPECT_EQ(Nameprep({'a', bad}, 1), "-") << std::hex << bad;
  // U+0340 normalizes to U+0300 before the C.8 check; U+206A stays.
  EXPECT_EQ(Nameprep({'a', 0x340}, 1), "e0");
  // U+3000 is a C.1.2 space, but NFKC has made it U+0020 before the check.
  EXPECT_EQ(Nameprep({'a', 0x3000}, 1), "61 20");
  // Hebrew stays; mixed with Latin, or ending in a digit, it is refused.
  EXPECT_EQ(Nameprep({0x5D0, 0x5D1}, 0), "5d0 5d1");
  EXPECT_EQ(Nameprep({0x5D0, '1', 0x5D1}, 0), "5d0 31 5d1");
  EXPECT_EQ(Nameprep({0x5D0, 'a', 0x5D1}, 0), "-");
  EXPECT_EQ(Nameprep({0x5D0, 0x5D1, '1'}, 0), "-");
  EXPECT_EQ(Nameprep({'1', 0x5D0}, 0), "-");
  // Unassigned code points: refused unless allowed. U+0370 is unassigned in
  // Unicode 5.0, and Unicode 8.0 folds it to U+0371, unassigned too.
  EXPECT_EQ(Nameprep({0x370}, 0), "-");
  EXPECT_EQ(Nameprep({0x370}, 1), "371");
  EXPECT_EQ(Nameprep({0x12474}, 1), "12474");
  EXPECT_EQ(Nameprep({0x12474}, 0), "-");
  // The named differences with Unicode 3.2, as the tables have them.
  EXPECT_EQ(Nameprep({0x13A0}, 0), "13a0");
  EXPECT_EQ(Nameprep({0x2F868}, 0), "36fc");
  EXPECT_EQ(Nameprep({0x5D0, 0x2800, 0x5D1}, 0), "-");
}

// The oracle: Python's nameprep with the named differences applied, then
// either every assigned code point or random strings of one category.
const std::string kStringprepOracle = kNameprepOracle + R"PY(
hexs = lambda s: ' '.join('%x' % ord(c) for c in s)
def prep(s):
    try:
        return hexs(nameprep(s))
    except UnicodeError:
        return '-'

assigned = [c for c in range(0x110000)
            if not 0xD800 <= c <= 0xDFFF and U.category(chr(c)) != 'Cn']
if sys.argv[1] == 'each':
    for c in assigned:
        print('%x|%s|%s' % (c, hexs(b2(chr(c))), prep(chr(c))))
    sys.exit(0)

def span(a, b):
    return [c for c in range(a, b + 1) if U.category(chr(c)) != 'Cn']
latin = span(0x41, 0x5A) + span(0x61, 0x7A) + span(0xC0, 0x17F) + span(0x30, 0x39)
scripts = [latin, latin, span(0x370, 0x3FF), span(0x400, 0x4FF), span(0x300, 0x36F),
           span(0x5D0, 0x5EA), span(0x621, 0x64A), span(0x660, 0x669), span(0x5B0, 0x5C4),
           [0xAD, 0x200B, 0xFEFF, 0x20, 0xA0, 0x3000, 0x2800, 0x2132, 0xCBF, 0x13A0, 0x2F868],
           span(0xFB00, 0xFB4F), span(0xFF01, 0xFF5E), span(0x2460, 0x24FF), span(0x3300, 0x33FF),
           span(0x1100, 0x11F9), span(0xAC00, 0xAC40), span(0x4E00, 0x4E40)]
bidi = [span(0x5D0, 0x5EA), span(0x621, 0x64A), span(0x660, 0x669), span(0x30, 0x39),
        span(0x64B, 0x655), span(0x2800, 0x2810), [0xCBF, 0xCC6, 0x2132, 0x200F, 0x20],
        span(0x61, 0x7A), span(0xFB1D, 0xFB4F), span(0xFE70, 0xFEFC)]
pools = {'assigned': [assigned], 'scripts': scripts, 'bidi': bidi}[sys.argv[1]]
rng = random.Random(int(sys.argv[2]))
for _ in range(int(sys.argv[3])):
    s = ''.join(chr(rng.choice(rng.choice(pools))) for _ in range(rng.randint(1, 10)))
    print('%s|%s' % (hexs(s), prep(s)))
)PY";

// Mode 2 and nameprep of every code point assigned in Unicode 3.2, and mode
// 1 of every one assigned in Unicode 8.0 against str.casefold.
TEST(unicodePrep, EveryAssignedCodePointMatchesPython) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  const auto lines = RunPython(kStringprepOracle, "each");
  ASSERT_GT(lines.size(), 230000u);
  int failures = 0;
  for (const auto &line : lines) {
    const auto f = Split(line, '|');
    const CodePoints cp = ParseHex(f[0]);
    const std::string fold = Fold(cp, 2);
    const std::string prep = Nameprep(cp, 0);
    if ((fold != f[1] || prep != f[2] || Nameprep(cp, 1) != prep) && failures++ < 10)
      ADD_FAILURE() << "U+" << f[0] << ": folding " << fold << " (Python " << f[1] << "), nameprep "
                    << prep << " (Python " << f[2] << ")";
  }

  const auto folds = RunPython(R"PY(
import sys
first = None
for line in open(sys.argv[1]):
    f = line.split(';')
    cp = int(f[0], 16)
    if f[1].endswith('First>'):
        first = cp
        continue
    for c in range(first if f[1].endswith('Last>') else cp, cp + 1):
        if not 0xD800 <= c <= 0xDFFF:
            print('%x|%s' % (c, ' '.join('%x' % ord(x) for x in chr(c).casefold())))
)PY",
                               DataFile("unicode/UnicodeData-8.0.0.txt"));
  ASSERT_GT(folds.size(), 250000u);
  for (const auto &line : folds) {
    const auto f = Split(line, '|');
    if (Fold(ParseHex(f[0]), 1) != f[1] && failures++ < 20)
      ADD_FAILURE() << "U+" << f[0] << " folds to " << Fold(ParseHex(f[0]), 1) << ", Python "
                    << f[1];
  }
}

// Random strings: scripts, marks, compatibility forms and the characters
// of the named differences; right-to-left letters with digits, marks and
// left-to-right characters; and any assigned characters at all.
void CompareNameprep(const char *category, int count, bool balanced) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  const auto lines =
      RunPython(kStringprepOracle, std::string(category) + " 11 " + std::to_string(count));
  ASSERT_EQ(lines.size(), size_t(count));
  int accepted = 0;
  int failures = 0;
  for (const auto &line : lines) {
    const auto f = Split(line, '|');
    const CodePoints cps = ParseHex(f[0]);
    const std::string got = Nameprep(cps, 0);
    accepted += got != "-";
    if ((got != f[1] || Nameprep(cps, 1) != got) && failures++ < 10)
      ADD_FAILURE() << f[0] << ": " << got << ", Python " << f[1];
  }
  // Both outcomes must be well represented for the comparison to mean much.
  if (balanced) {
    EXPECT_GT(accepted, count / 10);
    EXPECT_LT(accepted, count - count / 10);
  }
}

TEST(unicodePrep, RandomScriptStringsMatchPythonNameprep) {
  CompareNameprep("scripts", 4000, true);
}
TEST(unicodePrep, RandomBidiStringsMatchPythonNameprep) { CompareNameprep("bidi", 4000, true); }
TEST(unicodePrep, RandomAssignedStringsMatchPythonNameprep) {
  CompareNameprep("assigned", 3000, false);
}

}  // namespace
