// The tables written out in the sources against their listings, and the
// RFC 3454 tables against Python's stringprep.
#include <algorithm>
#include <cctype>

#include "unicode_test_util.hpp"
#include "ustring/ORLIX_UString_IDNA.hpp"
#include "ustring/ORLIX_UString_Normalize.hpp"
#include "ustring/ORLIX_UString_Prep.hpp"
#include "ustring/ORLIX_UString_Tables.hpp"

namespace {

using namespace unicode_test;
namespace u = orlix::unicode;
namespace lookup = orlix::lookup;

TEST(unicodeTables, WrittenTablesHoldTheirListings) {
  // RFC 3454 table C.8.
  const uint32_t c8[] = {0x0340, 0x0341, 0x200E, 0x200F, 0x202A, 0x202B, 0x202C, 0x202D,
                         0x202E, 0x206A, 0x206B, 0x206C, 0x206D, 0x206E, 0x206F};
  ASSERT_EQ(orlix::kChangeDisplayRows, 15);
  EXPECT_TRUE(std::equal(std::begin(c8), std::end(c8), orlix::g_ChangeDisplay_Table));

  // The LDAP mapping step: ranges mapped to nothing, then to a space.
  struct Range {
    uint32_t first, last, to;
  };
  const Range ldap[] = {
      {0x0000, 0x0008, 0},  {0x000E, 0x001F, 0},   {0x007F, 0x0084, 0},   {0x0086, 0x009F, 0},
      {0x00AD, 0x00AD, 0},  {0x034F, 0x034F, 0},   {0x06DD, 0x06DD, 0},   {0x070F, 0x070F, 0},
      {0x1806, 0x1806, 0},  {0x180B, 0x180E, 0},   {0x200B, 0x200F, 0},   {0x202A, 0x202E, 0},
      {0x2060, 0x2063, 0},  {0x206A, 0x206F, 0},   {0xFE00, 0xFE0F, 0},   {0xFEFF, 0xFEFF, 0},
      {0xFFF9, 0xFFFC, 0},  {0x1D173, 0x1D17A, 0}, {0xE0001, 0xE0001, 0}, {0xE0020, 0xE007F, 0},
      {0x0009, 0x000D, 32}, {0x0020, 0x0020, 32},  {0x0085, 0x0085, 32},  {0x00A0, 0x00A0, 32},
      {0x1680, 0x1680, 32}, {0x2000, 0x200A, 32},  {0x2028, 0x2029, 32},  {0x202F, 0x202F, 32},
      {0x205F, 0x205F, 32}, {0x3000, 0x3000, 32},
  };
  std::vector<std::pair<uint32_t, uint32_t>> expected;
  for (const Range &r : ldap)
    for (uint32_t cp = r.first; cp <= r.last; ++cp) expected.emplace_back(cp, r.to);
  std::sort(expected.begin(), expected.end());
  ASSERT_EQ(int64_t(expected.size()), orlix::kLdapStringprepMapRows);
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(orlix::g_ldapstringprepmap_Table[i].code_point, expected[i].first) << i;
    EXPECT_EQ(orlix::g_ldapstringprepmap_Table[i].replacement, expected[i].second) << i;
  }

  // STD3: the ASCII code points that are not letters, digits or hyphen.
  std::vector<uint16_t> ldh;
  for (int c = 0; c < 0x80; ++c)
    if (!std::isalnum(c) && c != '-') ldh.push_back(uint16_t(c));
  ASSERT_EQ(int64_t(ldh.size()), orlix::idna::kLdhAsciiRows);
  EXPECT_TRUE(std::equal(ldh.begin(), ldh.end(), orlix::idna::g_LDHASCII_Table));

}

// The normalizer reads derived views of the row tables: the per-code-point
// bits, the pool of full decompositions and the hash of composites. Each is
// checked here against the rows, found by binary search.
std::vector<uint32_t> FullDecomposition(uint32_t cp, bool compatibility) {
  std::vector<uint32_t> out;
  if (const auto *row = lookup::canonical(cp)) {
    for (uint32_t i = 0; i < row->count; ++i) {
      const auto more = FullDecomposition(row->mapping[i], compatibility);
      out.insert(out.end(), more.begin(), more.end());
    }
  } else if (const auto *row = lookup::compatibility(cp); row && compatibility) {
    for (uint32_t i = 0; i < row->count; ++i) {
      const auto more = FullDecomposition(u::g_CompatibilityMapping_Pool[row->offset + i], true);
      out.insert(out.end(), more.begin(), more.end());
    }
  } else if (orlix::hangul::is_syllable(cp)) {
    const uint32_t s = cp - orlix::hangul::SBase;
    out = {orlix::hangul::LBase + s / orlix::hangul::NCount,
           orlix::hangul::VBase + s % orlix::hangul::NCount / orlix::hangul::TCount};
    if (s % orlix::hangul::TCount != 0) out.push_back(orlix::hangul::TBase + s % orlix::hangul::TCount);
  } else {
    out = {cp};
  }
  return out;
}

TEST(unicodeTables, NormalizerViewsAgreeWithTheRows) {
  std::vector<bool> first(0x110000), second(0x110000);
  for (const auto &row : u::g_CanonicalComposition_Table) {
    const bool excluded = lookup::contains(u::g_Full_Composition_Exclusion_Table, row.composite);
    if (!excluded) first[row.first] = second[row.second] = true;
    EXPECT_EQ(u::primary_composite(row.first, row.second), excluded ? 0u : row.composite)
        << std::hex << row.first << " " << row.second;
  }
  for (uint32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    const uint32_t bits = u::normalization_bits(cp);
    const auto *cc = lookup::combining_class(cp);
    ASSERT_EQ(bits & u::kCombiningClassMask, cc ? cc->combining_class : 0u) << std::hex << cp;
    const bool starts = first[cp] || cp - orlix::hangul::LBase < orlix::hangul::LCount ||
                        orlix::hangul::is_lv(cp);
    ASSERT_EQ((bits & u::kFirst) != 0, starts) << std::hex << cp;
    ASSERT_EQ((bits & u::kSecond) != 0, bool(second[cp])) << std::hex << cp;
    if (second[cp]) {
      // Not paired with a code point that does not start a pair.
      EXPECT_EQ(u::primary_composite('A' + 0x20000, cp), 0u);
    }
    const auto &p = u::properties(cp);
    for (bool compatibility : {false, true}) {
      const uint32_t at = compatibility ? p.compatibility_full : p.canonical_full;
      const auto full = FullDecomposition(cp, compatibility);
      if (at == 0) {
        ASSERT_TRUE(full == std::vector<uint32_t>{cp} || orlix::hangul::is_syllable(cp))
            << std::hex << cp;
        continue;
      }
      const uint32_t *d = &u::g_FullDecomposition_Pool[at];
      ASSERT_EQ(std::vector<uint32_t>(d + 1, d + 1 + d[0]), full) << std::hex << cp;
    }
  }
}

TEST(unicodeTables, PredicatesJoinSurrogatePairs) {
  EXPECT_EQ(orlix::getCharCombiningClass(0x0300), 230u);
  EXPECT_EQ(orlix::getCharCombiningClass(0x1172B), 9u);
  EXPECT_EQ(orlix::getCharCombiningClass('a'), 0u);
  const uint16_t mark[] = {0xD834, 0xDD65, 0};  // U+1D165, a combining mark
  const uint16_t lone[] = {0xD834, 0};
  EXPECT_EQ(orlix::iscombingmark(mark), 1);
  EXPECT_EQ(orlix::iscombingmark(lone), 0);
  const uint16_t unassigned[] = {'a', 0xD800, 0xDE59};  // U+10259: a row of the table
  EXPECT_EQ(orlix::hasUnassignedCodePoint(unassigned, 3), 1);
  const uint16_t tail[] = {'a', 0xD802, 0xDE59};  // U+10A59, the first of the ranges
  EXPECT_EQ(orlix::hasUnassignedCodePoint(tail, 3), 1);
  EXPECT_EQ(orlix::hasUnassignedCodePoint(tail, 1), 0);
  EXPECT_EQ(orlix::hasUnassignedCodePoint(tail, 0), 0);
  const uint16_t display[] = {'a', 0x206F};
  EXPECT_EQ(orlix::hasChangeDisplayCodePoint(display, 2), 1);
  EXPECT_EQ(orlix::hasChangeDisplayCodePoint(display, 1), 0);
  for (uint32_t cp : {0xE000u, 0xF8FFu, 0xF0000u, 0xFFFFDu, 0x100000u, 0x10FFFDu})
    EXPECT_EQ(orlix::isPrivateCodePoint(cp), 1) << std::hex << cp;
  for (uint32_t cp : {0xDFFFu, 0xF900u, 0xFFFFEu, 0x10FFFEu})
    EXPECT_EQ(orlix::isPrivateCodePoint(cp), 0) << std::hex << cp;
}

// The R and AL characters are exactly the ranges the family documents.
TEST(unicodeTables, BidiTableIsTheDocumentedRangeList) {
  const std::pair<uint32_t, uint32_t> ranges[] = {
      {0x05BE, 0x05BE},   {0x05C0, 0x05C0},   {0x05C3, 0x05C3},   {0x05C6, 0x05C6},
      {0x05D0, 0x05EA},   {0x05F0, 0x05F4},   {0x0600, 0x0603},   {0x060B, 0x060B},
      {0x060D, 0x060D},   {0x061B, 0x061B},   {0x061E, 0x061F},   {0x0621, 0x063A},
      {0x0640, 0x064A},   {0x066D, 0x066F},   {0x0671, 0x06D5},   {0x06DD, 0x06DD},
      {0x06E5, 0x06E6},   {0x06EE, 0x06EF},   {0x06FA, 0x070D},   {0x0710, 0x0710},
      {0x0712, 0x072F},   {0x074D, 0x076D},   {0x0780, 0x07A5},   {0x07B1, 0x07B1},
      {0x07C0, 0x07EA},   {0x07F4, 0x07F5},   {0x07FA, 0x07FA},   {0x200F, 0x200F},
      {0xFB1D, 0xFB1D},   {0xFB1F, 0xFB28},   {0xFB2A, 0xFB36},   {0xFB38, 0xFB3C},
      {0xFB3E, 0xFB3E},   {0xFB40, 0xFB41},   {0xFB43, 0xFB44},   {0xFB46, 0xFBB1},
      {0xFBD3, 0xFD3D},   {0xFD50, 0xFD8F},   {0xFD92, 0xFDC7},   {0xFDF0, 0xFDFC},
      {0xFE70, 0xFE74},   {0xFE76, 0xFEFC},   {0x10800, 0x10805}, {0x10808, 0x10808},
      {0x1080A, 0x10835}, {0x10837, 0x10838}, {0x1083C, 0x1083C}, {0x1083F, 0x1083F},
      {0x10900, 0x10919}, {0x10A00, 0x10A00}, {0x10A10, 0x10A13}, {0x10A15, 0x10A17},
      {0x10A19, 0x10A33}, {0x10A40, 0x10A47}, {0x10A50, 0x10A58},
  };
  std::vector<uint32_t> listed;
  for (const auto &r : ranges)
    for (uint32_t cp = r.first; cp <= r.second; ++cp) listed.push_back(cp);
  EXPECT_EQ(listed,
            std::vector<uint32_t>(std::begin(u::g_BidiChar_Table), std::end(u::g_BidiChar_Table)));
}

// B.1, C.1.2, C.2.2 and C.8 against Python's stringprep over every code
// point.
TEST(unicodeTables, RfcTablesMatchPythonStringprep) {
  if (!HavePython()) GTEST_SKIP() << "python3 is not available";
  const auto lines = RunPython(R"PY(
import stringprep
for name, test in (('b1', stringprep.in_table_b1), ('c12', stringprep.in_table_c12),
                   ('c22', stringprep.in_table_c22), ('c8', stringprep.in_table_c8)):
    print(name + ':' + ' '.join('%x' % c for c in range(0x110000)
                                if not 0xD800 <= c <= 0xDFFF and test(chr(c))))
)PY");
  ASSERT_EQ(lines.size(), 4u);
  const auto list = [](const uint32_t *t, int64_t n) { return CodePoints(t, t + n); };
  EXPECT_EQ(ParseHex(lines[0].substr(3)),
            list(u::g_CommonMaptoNothing_Table, u::kCommonMaptoNothingRows));
  EXPECT_EQ(ParseHex(lines[1].substr(4)), list(u::g_NonASCIISpace_Table, u::kNonAsciiSpaceRows));
  EXPECT_EQ(ParseHex(lines[2].substr(4)),
            list(u::g_NonASCIIControl_Table, u::kNonAsciiControlRows));
  EXPECT_EQ(ParseHex(lines[3].substr(3)),
            list(orlix::g_ChangeDisplay_Table, orlix::kChangeDisplayRows));
}

}  // namespace
