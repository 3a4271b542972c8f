// The constant Unicode tables of normalization, case folding and string
// preparation. tools/gen_unicode_tables.py writes their contents into the
// build tree from the files in data/; the row counts are fixed here, so a
// table of another size does not compile.
//
// Two views of the same data:
//  - the row tables, sorted by code point and searched with orlix_bsearch;
//  - derived from those rows by the generator, what the hot loops read: a
//    two-stage property trie with one record per code point that answers
//    their questions (class, quick-check membership, which row holds a
//    mapping) in one look-up, the normalizer's smaller trie of the same
//    bits, a pool of full decompositions and a hash of the composites. The
//    unit tests compare the normalizer's views with the rows over every
//    code point.
#pragma once

#include <cstddef>
#include <cstdint>

// The row counts (kCombiningClassRows, ...), written by the generator, which
// checks them against the shipped data.
#include "ustring/ORLIX_UString_TableRows.hpp"

namespace orlix::unicode {

struct CombiningClassRow {
  uint32_t code_point;
  uint32_t combining_class;
};

struct CanonicalDecompositionRow {
  uint32_t code_point;
  uint32_t mapping[2];
  uint32_t count;  // 1 or 2
};

// The mapping is `count` code points of g_CompatibilityMapping_Pool from
// `offset` on.
struct CompatibilityDecompositionRow {
  uint32_t code_point;
  uint16_t offset;
  uint16_t count;  // 1 to 18
};

struct CanonicalCompositionRow {
  uint32_t first;
  uint32_t second;
  uint32_t composite;
};

struct CaseFoldingRow {
  uint32_t code_point;
  uint32_t mapping[4];
  uint32_t count;  // 1 to 4
};

struct SingleMapRow {
  uint32_t code_point;
  uint32_t replacement;  // 0: mapped to nothing
};

// Unicode 8.0 normalization data.
extern const CombiningClassRow g_CombiningClass_Table[kCombiningClassRows];
extern const CanonicalDecompositionRow g_CanonicalDecomposition_Table[kCanonicalDecompositionRows];
extern const CompatibilityDecompositionRow
    g_CompatibilityDecomposition_Table[kCompatibilityDecompositionRows];
extern const uint32_t g_CompatibilityMapping_Pool[];
// Every canonical pair mapping, exclusions included, sorted by (first, second).
extern const CanonicalCompositionRow g_CanonicalComposition_Table[kCanonicalCompositionRows];
// Full_Composition_Exclusion as of Unicode 5.0.
extern const uint32_t g_Full_Composition_Exclusion_Table[kFullCompositionExclusionRows];
extern const uint32_t g_NFD_Quick_Check_No_Table[kNfdQuickCheckNoRows];
extern const uint32_t g_NFKD_Quick_Check_No_Table[kNfkdQuickCheckNoRows];
extern const uint32_t g_NFC_Quick_Check_No_Table[kNfcQuickCheckNoRows];
extern const uint32_t g_NFC_Quick_Check_Maybe_Table[kNfcQuickCheckMaybeRows];
extern const uint32_t g_NFKC_Quick_Check_No_Table[kNfkcQuickCheckNoRows];
extern const uint32_t g_NFKC_Quick_Check_Maybe_Table[kNfkcQuickCheckMaybeRows];

// Unicode 8.0 case folding: status C and F, and the FC_NFKC_Closure rows.
extern const CaseFoldingRow g_FullCaseFolding_Table[kFullCaseFoldingRows];
extern const CaseFoldingRow g_FC_NFKC_ClosureCaseFolding_Table[kClosureCaseFoldingRows];

// Unicode 5.0 data of the string preparation profiles.
extern const uint32_t g_unassignedCodePoint_Table[kUnassignedCodePointRows];
extern const uint32_t g_CombiningMarks_Table[kCombiningMarksRows];
extern const uint32_t g_BidiChar_Table[kBidiCharRows];  // bidi class R or AL
extern const uint32_t g_NonL_Table[kNonLRows];          // bidi class other than L

// RFC 3454 tables B.1, C.1.2 and C.2.2.
extern const uint32_t g_CommonMaptoNothing_Table[kCommonMaptoNothingRows];
extern const uint32_t g_NonASCIISpace_Table[kNonAsciiSpaceRows];
extern const uint32_t g_NonASCIIControl_Table[kNonAsciiControlRows];

// ---- the property trie ------------------------------------------------------

// Property bits. The low byte is the canonical combining class.
inline constexpr uint32_t kCombiningClassMask = 0xFF;
inline constexpr uint32_t kNfdNo = 1u << 8;
inline constexpr uint32_t kNfkdNo = 1u << 9;
inline constexpr uint32_t kNfcNo = 1u << 10;
inline constexpr uint32_t kNfcMaybe = 1u << 11;
inline constexpr uint32_t kNfkcNo = 1u << 12;
inline constexpr uint32_t kNfkcMaybe = 1u << 13;
inline constexpr uint32_t kCanonical = 1u << 14;      // a canonical decomposition row
inline constexpr uint32_t kCompatibility = 1u << 15;  // a compatibility decomposition row
inline constexpr uint32_t kCompositionFirst = 1u << 16;
inline constexpr uint32_t kCompositionSecond = 1u << 17;
inline constexpr uint32_t kCompositionExcluded = 1u << 18;
inline constexpr uint32_t kFolds = 1u << 19;         // a full case folding row
inline constexpr uint32_t kClosureFolds = 1u << 20;  // an FC_NFKC_Closure row
inline constexpr uint32_t kMapToNothing = 1u << 21;  // B.1
inline constexpr uint32_t kNonAsciiSpace = 1u << 22;
inline constexpr uint32_t kNonAsciiControl = 1u << 23;
inline constexpr uint32_t kRandAl = 1u << 24;
inline constexpr uint32_t kNonL = 1u << 25;
inline constexpr uint32_t kUnassigned = 1u << 26;  // the whole predicate, ranges included
inline constexpr uint32_t kMark = 1u << 27;

// Row indices are the index + 1, 0 meaning no row.
struct Properties {
  uint32_t bits;
  uint16_t decomposition;        // canonical or compatibility row, as the bits say
  uint16_t folding;              // full folding row, else closure row
  uint16_t composition;          // first composition row with this first code point
  uint8_t canonical_length;      // units of the full canonical decomposition
  uint8_t compatibility_length;  // units of the full compatibility decomposition
  // Offsets in g_FullDecomposition_Pool of the full decompositions (0: none
  // in that form; Hangul syllables have none there either).
  uint16_t canonical_full;
  uint16_t compatibility_full;
};

// The full decompositions: at each offset a count, then that many code
// points, already decomposed as far as they go and not yet ordered.
extern const uint32_t g_FullDecomposition_Pool[];


inline constexpr int kPropertyBlockShift = 7;
// Below this code point every code point passes every quick check and
// decomposes to itself.
inline constexpr uint32_t kQuickCheckInertBelow = 0xA0;
// Per form (NFD, NFC, NFKD, NFKC): below this code point every code point is
// a starter that passes the form's quick check.
inline constexpr uint32_t kQuickCheckYesBelow[4] = {0xC0, 0x300, 0xA0, 0xA0};
// The CJK ideographs from extension A to the end of the unified block:
// starters that pass every form's quick check. (The Hangul syllables pass
// the composing forms' checks.)
inline constexpr uint32_t kQuickCheckIdeographsFirst = 0x3400;
inline constexpr uint32_t kQuickCheckIdeographsEnd = 0xA000;
// No code point below this one is the second of a composition pair.
inline constexpr uint32_t kFirstCompositionSecond = 0x300;
// The most units a full decomposition takes (U+FDFA's 18).
inline constexpr int64_t kMaxDecompositionUnits = 18;

extern const Properties g_PropertyValues[];
extern const uint16_t g_PropertyStage1[];
extern const uint16_t g_PropertyStage2[];

// The record of cp; values above U+10FFFF read as U+10FFFF's (which has none
// of the properties).
inline const Properties &properties(uint32_t cp) {
  if (cp > 0x10FFFF) cp = 0x10FFFF;
  const uint32_t block = g_PropertyStage1[cp >> kPropertyBlockShift];
  return g_PropertyValues[g_PropertyStage2[block + (cp & ((1u << kPropertyBlockShift) - 1))]];
}

inline uint32_t property_bits(uint32_t cp) { return properties(cp).bits; }

// The normalizer's hot loops read a smaller trie of their own: 16 bits per
// code point, the combining class and the quick-check bits as in the
// property bits (kQuickCheckMask), then whether the code point is a starter
// that may take a following character (the first of a composition pair
// whose composite is not excluded, a leading consonant or an LV syllable)
// and whether it is the second of such a pair.
inline constexpr int kNormalizationBlockShift = 7;
inline constexpr uint32_t kQuickCheckMask = 0x3FFF;
inline constexpr uint32_t kFirst = 1u << 14;   // first of a primary pair, L jamo, LV syllables
inline constexpr uint32_t kSecond = 1u << 15;  // second of a primary pair
extern const uint8_t g_NormalizationStage1[];
extern const uint16_t g_NormalizationStage2[];

// The 16 normalization bits of cp, for cp up to U+10FFFF.
inline uint32_t normalization_bits(uint32_t cp) {
  const uint32_t block = g_NormalizationStage1[cp >> kNormalizationBlockShift];
  return g_NormalizationStage2[block << kNormalizationBlockShift |
                               (cp & ((1u << kNormalizationBlockShift) - 1))];
}

// The composites of the composition pairs, excluded ones left out, by hash:
// each slot holds (first << 21 | second) << 21 | composite, or 0. A pair
// lies at most kCompositionHashMaxProbes slots above the top
// kCompositionHashBits bits of (first << 21 | second) times the multiplier.
inline constexpr int kCompositionHashBits = 12;
inline constexpr uint64_t kCompositionHashMultiplier = 0x5678E4727FD3D577u;
inline constexpr int kCompositionHashMaxProbes = 3;
extern const uint64_t g_CompositionHash[size_t{1} << kCompositionHashBits];

// The composite of a composition pair whose composite is not excluded, or 0.
inline uint32_t primary_composite(uint32_t first, uint32_t second) {
  constexpr uint32_t kMask = (1u << kCompositionHashBits) - 1;
  const uint64_t key = uint64_t{first} << 21 | second;
  const auto h = static_cast<uint32_t>((key * kCompositionHashMultiplier) >> (64 - kCompositionHashBits));
  for (uint32_t i = 0; i < kCompositionHashMaxProbes; ++i) {
    const uint64_t slot = g_CompositionHash[(h + i) & kMask];
    if (slot >> 21 == key) return static_cast<uint32_t>(slot & 0x1FFFFF);
    if (slot == 0) break;
  }
  return 0;
}

}  // namespace orlix::unicode
