// Internals of the Unicode normalizer shared with case folding, the string
// preparation profiles and IDNA: the growable unit buffer the algorithms work
// in, the code-point predicates of the preparation profiles, and the table
// look-ups by binary search that define what every faster path must answer.
//
// Names: the buffer operations, the predicates and the comparators keep their
// established names (ORLIX_UString_Buffer_*, getCharCombiningClass,
// iscombingmark, combiningClassCmp, ...), mixed as those are; everything else
// here is snake_case.
#pragma once

#include <cstdint>
#include <memory>

#include "ORLIX_UString.h"
#include "ustring/ORLIX_UString.hpp"
#include "ustring/ORLIX_UString_Tables.hpp"

// A growable array of UTF-16 units with the position of the algorithm
// working on it. Never handed to callers.
struct ORLIX_UString_Buffer {
  uint16_t *data;     // UTF-16 units
  int64_t length;     // units in use
  int64_t capacity;   // units allocated
  int64_t pos;        // unit index the working algorithm is at
  int64_t charcount;  // code points, kept by the operations that change it
};

namespace orlix {

// ---- the buffer ---------------------------------------------------------------

// A buffer with room for (n rounded down to a multiple of 8) + 16 units and
// nothing in it; nullptr when memory runs out (nothing is left allocated).
ORLIX_UString_Buffer *ORLIX_UString_Buffer_new(int64_t n);

// Frees the unit array (if the buffer still owns one) and the record.
void ORLIX_UString_Buffer_free(ORLIX_UString_Buffer *buffer);

// Writes cp at pos as one or two units; pos and length become the new end,
// charcount grows by one and a 0 unit follows the text. Grows the array by
// about 1,024 units when fewer than 4 are free. 0 when growing fails (the
// buffer is then unchanged), else 1.
int ORLIX_UString_Buffer_append(ORLIX_UString_Buffer *buffer, uint32_t cp);

// Copies n units to pos; pos and length become pos + n. Grows the array by
// n + 1,024 units when fewer than n are free. charcount is left alone. 0 when
// growing fails, else 1.
int ORLIX_UString_Buffer_appendwchars(ORLIX_UString_Buffer *buffer, const uint16_t *units,
                                      int64_t n);

// Replaces the character at pos (two units when the unit there is a
// surrogate) by the n code points, moving the rest of the text, and leaves
// pos on the first inserted unit. Grows the array by 2n + 1,024 units when
// fewer than 2n units beyond the replaced character are free. 0 only when
// growing fails.
int ORLIX_UString_Buffer_Decomposition(ORLIX_UString_Buffer *buffer, const uint32_t *cps,
                                       int64_t n);

// Replaces the starter at pos by `composite` and removes the character of
// `units` units at unit index `index` (after pos), closing the gaps;
// charcount drops by one.
void ORLIX_UString_Buffer_Composition(ORLIX_UString_Buffer *buffer, uint32_t composite,
                                      int64_t index, int64_t units);

// A new string that takes over the unit array (the terminator is written
// when there is room for it); the buffer is left without an array and is
// still to be freed. nullptr when the record cannot be allocated (the buffer
// keeps its array then).
ORLIX_UString *ORLIX_UString_Buffer_detach(ORLIX_UString_Buffer *buffer);

// Appends cp at the end of a buffer whose pos is its end, as
// ORLIX_UString_Buffer_append does; false when growing fails.
inline bool buffer_put(ORLIX_UString_Buffer *b, uint32_t cp) {
  if (b->capacity - b->length >= 4) {
    if (cp < 0x10000) {
      b->data[b->length++] = static_cast<uint16_t>(cp);
    } else {
      b->data[b->length++] = static_cast<uint16_t>(0xD800 + ((cp - 0x10000) >> 10));
      b->data[b->length++] = static_cast<uint16_t>(0xDC00 + (cp & 0x3FF));
    }
    b->pos = b->length;
    ++b->charcount;
    return true;
  }
  return ORLIX_UString_Buffer_append(b, cp) == 1;
}

struct BufferDeleter {
  void operator()(ORLIX_UString_Buffer *b) const noexcept { ORLIX_UString_Buffer_free(b); }
};
using OwnedBuffer = std::unique_ptr<ORLIX_UString_Buffer, BufferDeleter>;

struct StringDeleter {
  void operator()(ORLIX_UString *s) const noexcept { orlix_ustring_free(s); }
};
using OwnedString = std::unique_ptr<ORLIX_UString, StringDeleter>;

// Detaches the buffer into a string; the record is freed either way, the
// array too when the string record cannot be allocated (nullptr then).
inline ORLIX_UString *detach(OwnedBuffer buffer) {
  return ORLIX_UString_Buffer_detach(buffer.get());
}

// ---- Hangul syllables ---------------------------------------------------------

namespace hangul {
inline constexpr uint32_t SBase = 0xAC00;
inline constexpr uint32_t LBase = 0x1100;
inline constexpr uint32_t VBase = 0x1161;
inline constexpr uint32_t TBase = 0x11A7;
inline constexpr uint32_t LCount = 19;
inline constexpr uint32_t VCount = 21;
inline constexpr uint32_t TCount = 28;
inline constexpr uint32_t NCount = VCount * TCount;  // 588
inline constexpr uint32_t SCount = LCount * NCount;  // 11172

constexpr bool is_syllable(uint32_t cp) { return cp - SBase < SCount; }
constexpr bool is_lv(uint32_t cp) { return cp - SBase < SCount && (cp - SBase) % TCount == 0; }
}  // namespace hangul

// ---- normalization ------------------------------------------------------------

enum NormalizationForm : int32_t { kNFD = 1, kNFC = 2, kNFKD = 3, kNFKC = 4 };

enum class QuickCheck { kYes, kMaybe, kNo };

// The quick check of a form over n units: kYes when no code point is a No
// or a Maybe of the form and the marks are in canonical order; else kNo (an
// unpaired surrogate included) or kMaybe, whichever comes first - the text
// has to be normalized either way, so the rest is not looked at.
QuickCheck quick_check(const uint16_t *units, int64_t n, int32_t form);

// Switches the quick check's vector forms (SSE2 or AVX2, whichever the
// processor has; they pass blocks of ASCII, of units below the form's first
// interesting code point, of CJK ideographs and, composing, of Hangul
// syllables) on, or off for the portable form (blocks of ASCII), returning
// whether they were in use. Meant for tests; not thread safe.
bool use_quick_check_vector_forms(bool on);

// Decomposition, canonical ordering and (NFC, NFKC) composition of n units
// into a new string, without a quick check first. nullptr on an unpaired
// surrogate (unless it is the only unit) or when memory runs out.
ORLIX_UString *normalize_units(const uint16_t *units, int64_t n, int32_t form);

// One run entry of canonical ordering.
struct CombiningClassEntry {
  uint64_t code_point;
  uint32_t combining_class;
};

// Stable sort of n entries by class, ascending: insertion for short runs,
// O(n log n) without extra memory for long ones (n below 2^35).
void CombiningClass_Buffer_sort(CombiningClassEntry *run, int64_t n);

// The composite of the starter s and the character c, or 0: a canonical
// pair that is not excluded, or the Hangul arithmetic (L + V, and an LV
// syllable + any character above U+11A7, whose sum must still be a Unicode
// scalar value). The second form takes the normalization bits of both.
uint32_t compose_pair(uint32_t s, uint32_t c);
uint32_t compose_pair(uint32_t s, uint32_t s_bits, uint32_t c, uint32_t c_bits);

// ---- code-point predicates ------------------------------------------------------

// The canonical combining class, 0 when the table has no row.
uint32_t getCharCombiningClass(uint32_t cp);

// 1 when any code point of the n units is unassigned in Unicode 5.0 (the
// table or the predicate's ranges); 0 otherwise and for n < 1.
int hasUnassignedCodePoint(const uint16_t *units, int64_t n);

// 1 when any code point of the n units changes display properties or is
// deprecated (RFC 3454 table C.8).
int hasChangeDisplayCodePoint(const uint16_t *units, int64_t n);

// 1 when the first code point of the units is a combining mark (general
// category Mn, Mc or Me in Unicode 5.0). The units must be terminated.
int iscombingmark(const uint16_t *units);

// 1 for the private-use code points.
int isPrivateCodePoint(uint32_t cp);

// Non-characters: U+FDD0..U+FDEF and every code point ending in FFFE or FFFF.
constexpr bool is_noncharacter(uint32_t cp) {
  return (cp >= 0xFDD0 && cp <= 0xFDEF) || (cp & 0xFFFE) == 0xFFFE;
}

inline constexpr int64_t kChangeDisplayRows = 15;
extern const uint32_t g_ChangeDisplay_Table[kChangeDisplayRows];

// True when cp is in g_ChangeDisplay_Table.
bool is_change_display(uint32_t cp);

// ---- table look-ups by binary search -----------------------------------------------

// Comparators for orlix_bsearch: the key points to a uint32_t code point
// (CanonicalCompositionCmp: to two, first and second).
int combiningClassCmp(const void *key, const void *row);
int CanonicalDecompositionCmp(const void *key, const void *row);
int CompatibilityDecompositionCmp(const void *key, const void *row);
int CanonicalCompositionCmp(const void *key, const void *row);
int codepointCmp(const void *key, const void *row);

namespace lookup {

// The row for cp, or nullptr.
const unicode::CombiningClassRow *combining_class(uint32_t cp);
const unicode::CanonicalDecompositionRow *canonical(uint32_t cp);
const unicode::CompatibilityDecompositionRow *compatibility(uint32_t cp);
const unicode::CanonicalCompositionRow *composition(uint32_t first, uint32_t second);

// True when cp is one of the count sorted code points.
bool contains(const uint32_t *table, int64_t count, uint32_t cp);

template <int64_t N>
bool contains(const uint32_t (&table)[N], uint32_t cp) {
  return contains(table, N, cp);
}

// The unassigned-code-point predicate: the table or the ranges.
bool unassigned(uint32_t cp);

}  // namespace lookup

// ---- walking units ------------------------------------------------------------------

// The code point at units[i] (a pair joined when complete; an unpaired
// surrogate is returned as its unit) and the number of units it takes.
inline uint32_t code_point_at(const uint16_t *units, int64_t n, int64_t i, int *width) {
  const uint32_t u = units[i];
  if (utf16::is_high(u) && i + 1 < n && utf16::is_low(units[i + 1])) {
    *width = 2;
    return utf16::combine(u, units[i + 1]);
  }
  *width = 1;
  return u;
}

// Writes cp as UTF-16 at out; returns the number of units (1 or 2).
inline int put_units(uint16_t *out, uint32_t cp) {
  if (cp < 0x10000) {
    out[0] = static_cast<uint16_t>(cp);
    return 1;
  }
  out[0] = static_cast<uint16_t>(0xD800 + ((cp - 0x10000) >> 10));
  out[1] = static_cast<uint16_t>(0xDC00 + (cp & 0x3FF));
  return 2;
}

// Units and code points of n units (an unpaired surrogate counts as one).
int64_t count_code_points(const uint16_t *units, int64_t n);

}  // namespace orlix
