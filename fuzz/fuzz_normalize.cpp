// The normalizer against a model, the stability properties of the
// normalization forms and of case folding (the forms themselves are
// compared with Python's unicodedata over every code point and random texts
// by the unicode suites).
//
// The model is the plain algorithm over the row tables, found by binary
// search: the quick check over the No and Maybe tables (a text that passes
// is returned as it is), full decomposition by applying the one-level rows
// again, a stable sort of each run of marks, and composition that walks
// again from the starter after every composition. The normalizer reads
// derived tables (its trie, the pool of full decompositions, the
// composition hash) and streams; every form must give the model's code
// points. The quick check's vector forms must answer as its portable form.
//
// Properties: every result is a well-formed string record; NFD and NFKD are
// stable (NF(NF(x)) == NF(x)) and a text they return unchanged was already
// decomposed; NFC(NFC(x)) == NFC(x), NFC(NFD(x)) == NFC(x), and likewise for
// NFKC, on every text without an L + V pair followed by something the LV rule
// may take (an LV syllable takes any following character above U+11A7, not
// only the trailing consonants, so composing such a text again can differ);
// a text the composing quick check passes is returned itself. Case folding
// is stable too.
//
// Input: code points, each read as a selector byte and up to three more
// bytes (ASCII, marks and scripts, Hangul, the rest of the BMP, the
// supplementary planes).
#include <algorithm>
#include <cstddef>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"
#include "ustring/ORLIX_UString.hpp"
#include "ustring/ORLIX_UString_Normalize.hpp"
#include "ustring/ORLIX_UString_Tables.hpp"

namespace {

using fuzz::Make;
using fuzz::Str;

using Text = std::vector<uint32_t>;
namespace h = orlix::hangul;

uint32_t NextCodePoint(fuzz::Reader &in) {
  const uint8_t s = in.u8();
  if (s < 0x60) return s;
  if (s < 0xA0) return 0x60 + in.u16() % 0x1FA0;
  if (s < 0xC0) {
    const uint8_t v = in.u8();
    if (v < 0xC0) return 0x1100 + v;  // conjoining jamo
    return h::SBase + in.u16() % h::SCount;
  }
  if (s < 0xF0) {
    const uint32_t cp = 0x2000 + in.u16() % 0xE000;
    return orlix::utf16::is_surrogate(cp) ? cp + 0x800 : cp;
  }
  const uint32_t high = in.u8() % 0x11;
  return high == 0 ? 0x10000 + in.u16() : (high << 16 | in.u16());
}

Text Decode(const ORLIX_UString *s) {
  Text out;
  for (int64_t i = 0; i < s->length; ++i) {
    uint32_t u = s->data[i];
    if (orlix::utf16::is_high(u) && i + 1 < s->length) u = orlix::utf16::combine(u, s->data[++i]);
    out.push_back(u);
  }
  return out;
}

uint32_t Class(uint32_t cp) {
  const auto *row = orlix::lookup::combining_class(cp);
  return row ? row->combining_class : 0;
}

// An L + V pair followed by something the LV rule may take: a character
// above U+11A7 that is no trailing consonant, or a mark that lets a later
// character through.
bool LvRuleMayApply(const Text &d) {
  for (size_t i = 0; i + 2 < d.size(); ++i) {
    if (d[i] < h::LBase || d[i] >= h::LBase + h::LCount) continue;
    if (d[i + 1] < h::VBase || d[i + 1] >= h::VBase + h::VCount) continue;
    const uint32_t c = d[i + 2];
    if (c > h::TBase + h::TCount - 1 || Class(c) != 0) return true;
  }
  return false;
}

// ---- the model ---------------------------------------------------------------------

namespace u = orlix::unicode;

bool PassesQuickCheck(const Text &x, int32_t form) {
  uint32_t last = 0;
  for (uint32_t cp : x) {
    const uint32_t cc = Class(cp);
    if (cc != 0 && cc < last) return false;
    bool no = false;
    switch (form) {
      case ORLIX_NORMALIZE_NFD: no = orlix::lookup::contains(u::g_NFD_Quick_Check_No_Table, cp); break;
      case ORLIX_NORMALIZE_NFKD: no = orlix::lookup::contains(u::g_NFKD_Quick_Check_No_Table, cp); break;
      case ORLIX_NORMALIZE_NFC:
        no = orlix::lookup::contains(u::g_NFC_Quick_Check_No_Table, cp) ||
             orlix::lookup::contains(u::g_NFC_Quick_Check_Maybe_Table, cp);
        break;
      default:
        no = orlix::lookup::contains(u::g_NFKC_Quick_Check_No_Table, cp) ||
             orlix::lookup::contains(u::g_NFKC_Quick_Check_Maybe_Table, cp);
    }
    if (no) return false;
    last = cc;
  }
  return true;
}

void Decompose(uint32_t cp, bool compatibility, Text &out) {
  if (const auto *row = orlix::lookup::canonical(cp)) {
    for (uint32_t i = 0; i < row->count; ++i) Decompose(row->mapping[i], compatibility, out);
  } else if (const auto *row = orlix::lookup::compatibility(cp); row && compatibility) {
    for (uint32_t i = 0; i < row->count; ++i)
      Decompose(u::g_CompatibilityMapping_Pool[row->offset + i], true, out);
  } else if (h::is_syllable(cp)) {
    const uint32_t s = cp - h::SBase;
    out.push_back(h::LBase + s / h::NCount);
    out.push_back(h::VBase + s % h::NCount / h::TCount);
    if (s % h::TCount != 0) out.push_back(h::TBase + s % h::TCount);
  } else {
    out.push_back(cp);
  }
}

uint32_t Compose(uint32_t s, uint32_t c) {
  if (const auto *row = orlix::lookup::composition(s, c)) {
    const bool excluded =
        orlix::lookup::contains(u::g_Full_Composition_Exclusion_Table, row->composite);
    return excluded ? 0 : row->composite;
  }
  if (s >= h::LBase && s < h::LBase + h::LCount && c >= h::VBase && c < h::VBase + h::VCount)
    return h::SBase + ((s - h::LBase) * h::VCount + (c - h::VBase)) * h::TCount;
  if (h::is_lv(s) && c > h::TBase) {
    const uint32_t composite = s + (c - h::TBase);
    if (composite <= 0x10FFFF && !orlix::utf16::is_surrogate(composite)) return composite;
  }
  return 0;
}

Text Model(const Text &x, int32_t form) {
  if (PassesQuickCheck(x, form)) return x;
  const bool compatibility = form == ORLIX_NORMALIZE_NFKD || form == ORLIX_NORMALIZE_NFKC;
  Text d;
  for (uint32_t cp : x) Decompose(cp, compatibility, d);
  for (size_t i = 0; i < d.size();) {
    size_t j = i;
    while (j < d.size() && Class(d[j]) != 0) ++j;
    std::stable_sort(d.begin() + static_cast<std::ptrdiff_t>(i),
                     d.begin() + static_cast<std::ptrdiff_t>(j),
                     [](uint32_t a, uint32_t b) { return Class(a) < Class(b); });
    i = j + 1;
  }
  if (form == ORLIX_NORMALIZE_NFD || form == ORLIX_NORMALIZE_NFKD) return d;
  size_t s = 0;
  while (s < d.size() && Class(d[s]) != 0) ++s;
  uint32_t last = 0;
  for (size_t i = s + 1; i < d.size();) {
    const uint32_t cc = Class(d[i]);
    if (cc > last || last == 0) {
      if (const uint32_t composite = Compose(d[s], d[i])) {
        d[s] = composite;
        d.erase(d.begin() + static_cast<std::ptrdiff_t>(i));
        i = s + 1;
        last = 0;
        continue;
      }
    }
    if (cc == 0) s = i;
    last = cc;
    ++i;
  }
  return d;
}

// ---- checks ------------------------------------------------------------------------

void CheckRecord(const ORLIX_UString *s) {
  FUZZ_CHECK(s != nullptr);
  FUZZ_CHECK(s->data[s->length] == 0);
  const Text t = Decode(s);
  FUZZ_CHECK(s->charcount == static_cast<int64_t>(t.size()));
  const bool pairs = std::any_of(t.begin(), t.end(), [](uint32_t c) { return c > 0xFFFF; });
  FUZZ_CHECK(s->hassurrogate == (pairs ? 1u : 0u));
  for (uint32_t c : t) FUZZ_CHECK(!orlix::utf16::is_surrogate(c));
}

Text Normalize(ORLIX_UString *s, int32_t form, bool *same = nullptr) {
  Str r(orlix_ustring_normalize(s, form));
  CheckRecord(r.s);
  if (same) *same = r.s == s;
  return Decode(r.s);
}

void CheckAgainstModel(const Text &x) {
  Str s(Make(x));
  FUZZ_CHECK(s.s != nullptr);
  for (int32_t form = ORLIX_NORMALIZE_NFD; form <= ORLIX_NORMALIZE_NFKC; ++form) {
    FUZZ_CHECK(Normalize(s.s, form) == Model(x, form), "form %d differs from the model", form);
    const bool was = orlix::use_quick_check_vector_forms(false);
    const auto portable = orlix::quick_check(s.s->data, s.s->length, form);
    orlix::use_quick_check_vector_forms(true);
    const auto vector = orlix::quick_check(s.s->data, s.s->length, form);
    orlix::use_quick_check_vector_forms(was);
    FUZZ_CHECK(portable == vector, "the quick check's forms differ in form %d", form);
  }
}

void CheckForms(const Text &x) {
  Str s(Make(x));
  FUZZ_CHECK(s.s != nullptr);
  for (bool compatibility : {false, true}) {
    const int32_t decomposing = compatibility ? ORLIX_NORMALIZE_NFKD : ORLIX_NORMALIZE_NFD;
    const int32_t composing = compatibility ? ORLIX_NORMALIZE_NFKC : ORLIX_NORMALIZE_NFC;
    bool same = false;
    const Text d = Normalize(s.s, decomposing, &same);
    FUZZ_CHECK(!same || d == x);
    Str ds(Make(d));
    FUZZ_CHECK(Normalize(ds.s, decomposing) == d, "form %d is not stable", decomposing);
    const bool lv = LvRuleMayApply(d);

    const Text c = Normalize(s.s, composing, &same);
    if (same) FUZZ_CHECK(c == x);
    Str cs(Make(c));
    const Text cc = Normalize(cs.s, composing);
    const Text dc = Normalize(ds.s, composing);
    if (!lv) {
      FUZZ_CHECK(cc == c, "form %d is not stable", composing);
      FUZZ_CHECK(dc == c, "form %d of the decomposition differs", composing);
    }
  }
}

void CheckFolding(const Text &x) {
  Str s(Make(x));
  for (int32_t mode = 1; mode <= 2; ++mode) {
    Str f(orlix_ustring_tocasefold(s.s, mode));
    CheckRecord(f.s);
    FUZZ_CHECK(f.s != s.s);
    Str again(orlix_ustring_tocasefold(f.s, mode));
    FUZZ_CHECK(Decode(again.s) == Decode(f.s), "folding mode %d is not stable", mode);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  Text x;
  while (!in.empty() && x.size() < 256) x.push_back(NextCodePoint(in));
  CheckAgainstModel(x);
  CheckForms(x);
  CheckFolding(x);
  return 0;
}
