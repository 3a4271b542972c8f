// Case folding and the two string preparation profiles: the LDAP profile of
// RFC 4518 with its matching types, and nameprep (RFC 3491), on which IDNA
// builds.
#include "ustring/ORLIX_UString_Prep.hpp"

#include <algorithm>
#include <cstring>

#include "ORLIX_Util.h"
#include "core/memory.hpp"

namespace orlix {

namespace {

using unicode::CaseFoldingRow;
using unicode::properties;
using unicode::property_bits;
using unicode::SingleMapRow;
using utf16::is_surrogate;

// ---- the LDAP mapping table ----------------------------------------------------

struct MapRange {
  uint32_t first;
  uint32_t last;
  uint32_t replacement;
};

// RFC 4518 section 2.2, as the profile lists it: code points mapped to
// nothing, then those mapped to a space.
constexpr MapRange kLdapMapRanges[] = {
    {0x0000, 0x0008, 0},    {0x000E, 0x001F, 0},    {0x007F, 0x0084, 0},    {0x0086, 0x009F, 0},
    {0x00AD, 0x00AD, 0},    {0x034F, 0x034F, 0},    {0x06DD, 0x06DD, 0},    {0x070F, 0x070F, 0},
    {0x1806, 0x1806, 0},    {0x180B, 0x180E, 0},    {0x200B, 0x200F, 0},    {0x202A, 0x202E, 0},
    {0x2060, 0x2063, 0},    {0x206A, 0x206F, 0},    {0xFE00, 0xFE0F, 0},    {0xFEFF, 0xFEFF, 0},
    {0xFFF9, 0xFFFC, 0},    {0x1D173, 0x1D17A, 0},  {0xE0001, 0xE0001, 0},  {0xE0020, 0xE007F, 0},
    {0x0009, 0x000D, 0x20}, {0x0020, 0x0020, 0x20}, {0x0085, 0x0085, 0x20}, {0x00A0, 0x00A0, 0x20},
    {0x1680, 0x1680, 0x20}, {0x2000, 0x200A, 0x20}, {0x2028, 0x2029, 0x20}, {0x202F, 0x202F, 0x20},
    {0x205F, 0x205F, 0x20}, {0x3000, 0x3000, 0x20},
};

struct LdapMap {
  SingleMapRow rows[kLdapStringprepMapRows];
};

constexpr int64_t range_rows() {
  int64_t n = 0;
  for (const MapRange &r : kLdapMapRanges) n += r.last - r.first + 1;
  return n;
}
static_assert(range_rows() == kLdapStringprepMapRows);

constexpr LdapMap expand_ldap_map() {
  LdapMap map{};
  int64_t n = 0;
  for (const MapRange &r : kLdapMapRanges)
    for (uint32_t cp = r.first; cp <= r.last; ++cp) map.rows[n++] = {cp, r.replacement};
  std::sort(map.rows, map.rows + n, [](const SingleMapRow &a, const SingleMapRow &b) {
    return a.code_point < b.code_point;
  });
  return map;
}

constexpr LdapMap kLdapMap = expand_ldap_map();

int compare_u32(uint32_t a, uint32_t b) { return a < b ? -1 : (a > b ? 1 : 0); }

// ---- case folding -----------------------------------------------------------------

// The folding row of cp in the given mode, or nullptr.
inline const CaseFoldingRow *folding_row(uint32_t cp, int32_t mode) {
  const unicode::Properties &p = properties(cp);
  if (p.bits & unicode::kFolds) return &unicode::g_FullCaseFolding_Table[p.folding - 1];
  if (mode == 2 && (p.bits & unicode::kClosureFolds))
    return &unicode::g_FC_NFKC_ClosureCaseFolding_Table[p.folding - 1];
  return nullptr;
}

// Units of the complete folding of cp.
int64_t folded_units(uint32_t cp, int32_t mode) {
  const CaseFoldingRow *row = folding_row(cp, mode);
  if (row == nullptr) return cp < 0x10000 ? 1 : 2;
  int64_t n = 0;
  for (uint32_t i = 0; i < row->count; ++i) n += folded_units(row->mapping[i], mode);
  return n;
}

// Appends the complete folding of cp: what a mapping produces is looked up
// again, until nothing folds any more.
bool fold_into(ORLIX_UString_Buffer *b, uint32_t cp, int32_t mode) {
  const CaseFoldingRow *row = folding_row(cp, mode);
  if (row == nullptr) return buffer_put(b, cp);
  for (uint32_t i = 0; i < row->count; ++i)
    if (!fold_into(b, row->mapping[i], mode)) return false;
  return true;
}

inline bool dropped(uint32_t cp, bool drop_map_to_nothing) {
  return drop_map_to_nothing && (property_bits(cp) & unicode::kMapToNothing);
}

// ---- prohibited code points -----------------------------------------------------------

// What both profiles refuse beyond their own tables: private use and
// non-characters.
inline bool private_or_noncharacter(uint32_t cp) {
  return isPrivateCodePoint(cp) || is_noncharacter(cp);
}

// nameprep's checks on the normalized text (RFC 3491 section 5, the bidi
// rule of RFC 3454 section 6, and the unassigned code points).
bool nameprep_accepts(const ORLIX_UString *s, bool allow_unassigned) {
  const uint16_t *d = s->data;
  const int64_t n = s->length;
  uint32_t all = 0;
  uint32_t first = 0;
  uint32_t last = 0;
  bool left_to_right = false;
  for (int64_t i = 0; i < n;) {
    int width = 1;
    const uint32_t cp = code_point_at(d, n, i, &width);
    if (is_surrogate(cp)) return false;  // C.5
    const uint32_t bits = property_bits(cp);
    if (bits & (unicode::kNonAsciiSpace | unicode::kNonAsciiControl)) return false;  // C.1.2, C.2.2
    if (private_or_noncharacter(cp)) return false;                                   // C.3, C.4
    if (cp >= 0xFFF9 && cp <= 0xFFFD) return false;                                  // C.6
    if (cp >= 0x2FF0 && cp <= 0x2FFB) return false;                                  // C.7
    if (cp == 0xE0001 || (cp >= 0xE0020 && cp <= 0xE007F)) return false;             // C.9
    if (is_change_display(cp)) return false;                                         // C.8
    if (i == 0) first = bits;
    last = bits;
    all |= bits;
    left_to_right |= (bits & unicode::kNonL) == 0;
    i += width;
  }
  if ((all & unicode::kRandAl) &&
      (!(first & unicode::kRandAl) || !(last & unicode::kRandAl) || left_to_right))
    return false;
  return allow_unassigned || !(all & unicode::kUnassigned);
}

// ---- the LDAP profile ---------------------------------------------------------------

// Step 5 of the LDAP profile: unassigned, C.8, private use, non-characters
// and U+FFFD.
bool ldap_prohibited(const ORLIX_UString *s) {
  if (hasUnassignedCodePoint(s->data, s->length)) return true;
  if (hasChangeDisplayCodePoint(s->data, s->length)) return true;
  for (int64_t i = 0; i < s->length;) {
    int width = 1;
    const uint32_t cp = code_point_at(s->data, s->length, i, &width);
    if (private_or_noncharacter(cp) || cp == 0xFFFD) return true;
    i += width;
  }
  return false;
}

// Deletes every R and AL code point from s, which the caller owns alone.
void drop_right_to_left(ORLIX_UString *s) {
  uint16_t *d = s->data;
  const int64_t n = s->length;
  int64_t w = 0;
  int64_t chars = 0;
  bool pairs = false;
  for (int64_t i = 0; i < n;) {
    int width = 1;
    const uint32_t cp = code_point_at(d, n, i, &width);
    if (!(property_bits(cp) & unicode::kRandAl)) {
      for (int k = 0; k < width; ++k) d[w++] = d[i + k];
      ++chars;
      pairs |= width == 2;
    }
    i += width;
  }
  d[w] = 0;
  s->length = w;
  s->charcount = chars;
  s->hassurrogate = pairs ? 1 : 0;
}

// Types 0 and 1: " " + the words separated by exactly two spaces + " ", or
// exactly two spaces when there are no words.
ORLIX_UString *space_words(const ORLIX_UString *s) {
  const uint16_t *d = s->data;
  int64_t begin = 0;
  int64_t end = s->length;
  while (begin < end && d[begin] == 0x20) ++begin;
  while (end > begin && d[end - 1] == 0x20) --end;
  OwnedBuffer b(ORLIX_UString_Buffer_new(2 * (end - begin) + 2 + 32));
  if (!b) return nullptr;
  const uint16_t two_spaces[2] = {0x20, 0x20};
  if (begin == end) {
    if (!ORLIX_UString_Buffer_appendwchars(b.get(), two_spaces, 2)) return nullptr;
  } else {
    uint16_t *out = b->data;
    int64_t n = 0;
    out[n++] = 0x20;
    for (int64_t i = begin; i < end; ++i) {
      if (d[i] != 0x20) {
        out[n++] = d[i];
      } else if (d[i - 1] != 0x20) {
        out[n++] = 0x20;
        out[n++] = 0x20;
      }
    }
    out[n++] = 0x20;
    b->length = b->pos = n;
  }
  b->charcount = count_code_points(b->data, b->length);
  return detach(std::move(b));
}

// Types 3, 4 and 5: deletes, walking the units, every insignificant unit
// that no combining mark follows. After a deletion the walk still moves on,
// so the unit that slid into place is not looked at (of two spaces in a
// row only the first goes); callers have always seen it work this way.
// Finally an insignificant unit in the last place goes too.
//
// One pass: the text is always d[0, w) (units kept or passed over) followed
// by d[r, n) (units not yet reached), and the walk stands at w.
template <class Insignificant>
void drop_insignificant(ORLIX_UString *s, Insignificant insignificant) {
  uint16_t *d = s->data;
  const int64_t n = s->length;
  int64_t w = 0;
  int64_t r = 0;
  while (r < n - 1) {  // the walk's index is below the text's length - 1
    if (insignificant(d[r]) && !iscombingmark(d + r + 1)) {
      ++r;  // deleted; the next unit takes its place and is passed over
    }
    d[w++] = d[r++];
  }
  while (r < n) d[w++] = d[r++];
  if (w > 0 && insignificant(d[w - 1])) --w;
  d[w] = 0;
  s->charcount -= n - w;
  s->length = w;
}

}  // namespace

const unicode::SingleMapRow *const g_ldapstringprepmap_Table = kLdapMap.rows;

int SingleMapCmp(const void *key, const void *row) {
  return compare_u32(*static_cast<const uint32_t *>(key),
                     static_cast<const SingleMapRow *>(row)->code_point);
}

int CaseFoldingCmp(const void *key, const void *row) {
  return compare_u32(*static_cast<const uint32_t *>(key),
                     static_cast<const CaseFoldingRow *>(row)->code_point);
}

bool isprefixhyphens_space(uint16_t unit) {
  switch (unit) {
    case 0x0020:
    case 0x002D:
    case 0x058A:
    case 0x2010:
    case 0x2011:
    case 0x2212:
    case 0xFE63:
    case 0xFF0D: return true;
    default: return false;
  }
}

ORLIX_UString *fold_units(const uint16_t *units, int64_t n, int32_t mode,
                          bool drop_map_to_nothing) {
  int64_t total = 0;
  for (int64_t i = 0; i < n;) {
    int width = 1;
    const uint32_t cp = code_point_at(units, n, i, &width);
    if (!dropped(cp, drop_map_to_nothing)) total += folded_units(cp, mode);
    i += width;
  }
  OwnedBuffer b(ORLIX_UString_Buffer_new((total > n ? total : n) + 32));
  if (!b) return nullptr;
  for (int64_t i = 0; i < n;) {
    int width = 1;
    const uint32_t cp = code_point_at(units, n, i, &width);
    if (!dropped(cp, drop_map_to_nothing) && !fold_into(b.get(), cp, mode)) return nullptr;
    i += width;
  }
  return detach(std::move(b));
}

ORLIX_UString *nameprep_units(const uint16_t *units, int64_t n, bool allow_unassigned) {
  // The profile works on a well-formed copy of the text.
  for (int64_t i = 0; i < n;) {
    int width = 1;
    if (is_surrogate(code_point_at(units, n, i, &width))) return nullptr;
    i += width;
  }
  // B.1 goes first, then everything left is folded with the B.2 rows; no
  // folding produces a B.1 code point, so one pass does both.
  OwnedString folded(fold_units(units, n, 2, true));
  if (!folded) return nullptr;
  OwnedString prepared(orlix_ustring_normalize(folded.get(), kNFKC));
  folded.reset();
  if (!prepared || !nameprep_accepts(prepared.get(), allow_unassigned)) return nullptr;
  return prepared.release();
}

namespace lookup {

const unicode::CaseFoldingRow *full_folding(uint32_t cp) {
  int64_t position = 0;
  if (orlix_bsearch(&cp, unicode::g_FullCaseFolding_Table, unicode::kFullCaseFoldingRows,
                    sizeof(CaseFoldingRow), CaseFoldingCmp, &position) != 1)
    return nullptr;
  return &unicode::g_FullCaseFolding_Table[position];
}

const unicode::CaseFoldingRow *closure_folding(uint32_t cp) {
  int64_t position = 0;
  if (orlix_bsearch(&cp, unicode::g_FC_NFKC_ClosureCaseFolding_Table,
                    unicode::kClosureCaseFoldingRows, sizeof(CaseFoldingRow), CaseFoldingCmp,
                    &position) != 1)
    return nullptr;
  return &unicode::g_FC_NFKC_ClosureCaseFolding_Table[position];
}

const unicode::SingleMapRow *ldap_map(uint32_t cp) {
  int64_t position = 0;
  if (orlix_bsearch(&cp, g_ldapstringprepmap_Table, kLdapStringprepMapRows, sizeof(SingleMapRow),
                    SingleMapCmp, &position) != 1)
    return nullptr;
  return &g_ldapstringprepmap_Table[position];
}

}  // namespace lookup

}  // namespace orlix

extern "C" {

ORLIX_UString *orlix_ustring_tocasefold(const ORLIX_UString *s, int32_t mode) {
  if (s == nullptr || (mode != 1 && mode != 2)) return nullptr;
  return orlix::fold_units(s->data, s->length, mode, false);
}

ORLIX_UString *orlix_ustring_ldapi18nstringprep(int64_t type, const ORLIX_UString *s) {
  using namespace orlix;
  if ((type != 0 && type != 1 && type != 3 && type != 4 && type != 5) || s == nullptr)
    return nullptr;

  // Map.
  OwnedBuffer mapped(ORLIX_UString_Buffer_new(s->length + 32));
  if (!mapped) return nullptr;
  for (int64_t i = 0; i < s->length;) {
    int width = 1;
    const uint32_t cp = code_point_at(s->data, s->length, i, &width);
    i += width;
    const SingleMapRow *row = (cp > 0x20 && cp < 0x7F) ? nullptr : lookup::ldap_map(cp);
    if (row != nullptr && row->replacement == 0) continue;
    if (!ORLIX_UString_Buffer_append(mapped.get(), row != nullptr ? row->replacement : cp))
      return nullptr;
  }
  OwnedString text(detach(std::move(mapped)));
  if (!text) return nullptr;

  // Fold, normalize.
  if (type == 1 || type == 3 || type == 5) {
    text.reset(orlix_ustring_tocasefold(text.get(), 2));
    if (!text) return nullptr;
  }
  OwnedString prepared(orlix_ustring_normalize(text.get(), kNFKC));
  text.reset();  // `prepared` now holds the only reference, whichever string it is
  if (!prepared || ldap_prohibited(prepared.get())) return nullptr;

  // Right-to-left letters simply drop out; no bidi rule applies here.
  drop_right_to_left(prepared.get());

  if (type == 0 || type == 1) return space_words(prepared.get());
  if (prepared->length == 0) return prepared.release();
  if (type == 3)
    drop_insignificant(prepared.get(), [](uint16_t u) { return u == 0x20; });
  else
    drop_insignificant(prepared.get(), isprefixhyphens_space);
  return prepared.release();
}

ORLIX_UString *orlix_ustring_idn_stringprep(const ORLIX_UString *s, int32_t allowunassigned) {
  if (s == nullptr) return nullptr;
  return orlix::nameprep_units(s->data, s->length, allowunassigned != 0);
}

}  // extern "C"
