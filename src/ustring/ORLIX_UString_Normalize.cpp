// Unicode normalization (NFD, NFC, NFKD, NFKC) over the Unicode 8.0 tables,
// the unit buffer the Unicode algorithms work in, and the code-point
// predicates of the string preparation profiles.
//
// A string that passes the quick check is returned itself, with one more
// reference. Any other string goes through one streaming pass: every code
// point is replaced by its full decomposition (the one-level tables applied
// again to what they produce, as the generator wrote it out), each run of
// combining marks is put in canonical order when the next starter arrives,
// and (NFC, NFKC) every character is offered to the last starter as soon as
// its run is ordered. The output is written
// once, into a buffer made for the text's own length; when what comes next
// might not fit, the buffer grows once to the size of the full decomposition
// of the rest. Long texts so cost neither repeated growth nor moving the
// rest of the text at every decomposition or composition.
#include "ustring/ORLIX_UString_Normalize.hpp"

#include <algorithm>
#include <cassert>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "ORLIX_Util.h"
#include "core/memory.hpp"

namespace orlix {

namespace {

constexpr const char kModule[] = "ORLIX_UString";
// Largest unit count a buffer may hold: its byte size must fit in int64_t.
constexpr int64_t kMaxUnits = INT64_MAX / 4;
// Runs of combining marks up to this length are ordered by insertion.
constexpr int64_t kInsertionSortMax = 32;

using unicode::g_CanonicalComposition_Table;
using unicode::g_CanonicalDecomposition_Table;
using unicode::g_CompatibilityDecomposition_Table;
using unicode::g_CompatibilityMapping_Pool;
using unicode::kCombiningClassMask;
using unicode::normalization_bits;
using unicode::properties;
using unicode::property_bits;
using utf16::is_high;
using utf16::is_low;
using utf16::is_surrogate;

int compare_u32(uint32_t a, uint32_t b) { return a < b ? -1 : (a > b ? 1 : 0); }

// Moves the units to a new array of `capacity` units.
bool grow(ORLIX_UString_Buffer *b, int64_t capacity) {
  if (capacity > kMaxUnits) return false;
  auto *data = orlix::alloc_array<uint16_t>(capacity, kModule, __LINE__);
  if (data == nullptr) return false;
  if (b->length > 0) std::memcpy(data, b->data, static_cast<size_t>(b->length) * 2);
  orlix_free(b->data);
  b->data = data;
  b->capacity = capacity;
  return true;
}

// Units of cp's full decomposition in the given form.
inline int64_t decomposed_units(uint32_t cp, bool compatibility) {
  const unicode::Properties &p = properties(cp);
  const int64_t n = compatibility ? p.compatibility_length : p.canonical_length;
  if (n != 0) return n;
  if (hangul::is_syllable(cp)) return hangul::is_lv(cp) ? 2 : 3;
  return cp < 0x10000 ? 1 : 2;
}

// True when a starter may still combine with something that follows it:
// the first code point of a composition pair, a leading consonant (L + V)
// or an LV syllable (LV + T, and the LV rule). `bits` are its normalization
// bits, which say so.
inline bool may_compose(uint32_t bits) { return (bits & unicode::kFirst) != 0; }

// The composite of a live Hangul starter s (a leading consonant or an LV
// syllable) and c, as compose_pair gives it, or 0.
inline uint32_t compose_hangul(uint32_t s, uint32_t c) {
  using namespace hangul;
  // Both rules computed, one chosen without branches.
  const bool l = s - LBase < LCount;
  const uint32_t lv = SBase + ((s - LBase) * VCount + (c - VBase)) * TCount;
  const bool lv_ok = l & (c - VBase < VCount);
  const uint32_t lvt = s + (c - TBase);
  const bool lvt_ok = !l & (c > TBase) & (lvt <= 0x10FFFF) & !is_surrogate(lvt);
  return (lv & -static_cast<uint32_t>(lv_ok)) | (lvt & -static_cast<uint32_t>(lvt_ok));
}

// True for the starters that compose by arithmetic, when they compose at
// all: leading consonants and Hangul syllables.
inline bool is_hangul_starter(uint32_t cp) {
  return (cp - hangul::LBase < hangul::LCount) | hangul::is_syllable(cp);
}

// The streaming normalizer: push the code points of the text in order, then
// finish. Output goes to a buffer whose room the caller reserves ahead (see
// normalize_units); every step returns false only when memory runs out.
//
// A code point with a decomposition is replaced by its full decomposition,
// taken from the pool. Marks wait in a run until the next starter (or the
// end), which is then put in canonical order - sortByCombiningClass one run
// at a time. For NFC and NFKC every character leaving the run goes on to
// composition, which works on the output itself: the last starter stays
// where it was written, and a character that combines with it rewrites it
// in place.
class Normalizer {
 public:
  Normalizer(int32_t form, ORLIX_UString_Buffer *out)
      : compatibility_(form == kNFKD || form == kNFKC),
        compose_(form == kNFC || form == kNFKC),
        decomposes_(compatibility_ ? unicode::kNfkdNo : unicode::kNfdNo),
        inert_mask_(decomposes_ | kCombiningClassMask | (compose_ ? unicode::kFirst : 0u)),
        out_(out),
        run_(kModule),
        window_(kModule) {}

  // Code points held back: the marks waiting for their run to be ordered.
  int64_t pending() const { return run_.size(); }

  // True when no mark waits and no starter may still compose: an inert
  // character pushed now would be written out at once and leave this state
  // as it is.
  bool settled() const { return run_.empty() && !live_; }

  // settled() && inert(bits), without branches.
  bool takes_inert(uint32_t bits) const {
    return run_.empty() & !live_ & ((bits & inert_mask_) == 0);
  }

  // True for a character that a settled normalizer writes out untouched:
  // class 0, no decomposition in this form, and (when composing) no
  // composition it could start - neither the first of a pair nor a leading
  // consonant or LV syllable, which compose by arithmetic. `bits` are its
  // normalization bits.
  bool inert(uint32_t bits) const { return (bits & inert_mask_) == 0; }

  // `bits` are the normalization bits of cp.
  [[gnu::always_inline]] bool push(uint32_t cp, uint32_t bits) {
    if (!(bits & decomposes_)) return feed(cp, bits);
    return decompose(cp);
  }

  bool finish() {
    if (!run_.empty() && !sort_run()) return false;
    out_->pos = out_->length;
    return true;
  }

  // The input from the character after the one pushed next, up to its end.
  void next_input(const uint16_t *next, const uint16_t *end) {
    next_ = next;
    end_ = end;
  }

 private:
  // Writes cp at the end of the output. The caller's reservation leaves
  // room for everything one input character and the marks held back can
  // write, so no step checks for room; pos is brought up to date by finish.
  [[gnu::always_inline]] bool put(uint32_t cp) {
    assert(out_->capacity - out_->length >= 2);
    out_->length += put_units(out_->data + out_->length, cp);
    ++out_->charcount;
    return true;
  }

  [[gnu::noinline]] bool decompose(uint32_t cp) {
    const unicode::Properties &p = properties(cp);
    const uint32_t at = compatibility_ ? p.compatibility_full : p.canonical_full;
    if (at != 0) {
      const uint32_t *d = &unicode::g_FullDecomposition_Pool[at];
      for (uint32_t i = 1; i <= d[0]; ++i)
        if (!feed(d[i], normalization_bits(d[i]), i == d[0])) return false;
      return true;
    }
    // The one decomposition without rows: a Hangul syllable. Its jamo are
    // of class 0 and in no pair row; a leading consonant may compose.
    const uint32_t s = cp - hangul::SBase;
    if (!feed(hangul::LBase + s / hangul::NCount, unicode::kFirst)) return false;
    if (!feed(hangul::VBase + s % hangul::NCount / hangul::TCount, 0)) return false;
    return s % hangul::TCount == 0 || feed(hangul::TBase + s % hangul::TCount, 0);
  }

  // `bits` are the normalization bits of cp, or as much of them as the
  // steps below read (the class and the two composition bits). `last`: cp
  // is the last code point that the input character at next_ - 1 gives.
  // A mark that makes up a run on its own - none before it, and the next
  // input character a starter that does not decompose - needs no ordering
  // and goes on at once.
  [[gnu::always_inline]] bool feed(uint32_t cp, uint32_t bits, bool last = true) {
    const uint32_t cc = bits & kCombiningClassMask;
    if (cc != 0) {
      if (run_.empty()) {
        if (last && starter_next()) return compose_ ? offer(cp, bits) : put(cp);
        first_mark_bits_ = bits;
      }
      return run_.push_back({cp, cc});
    }
    if (!run_.empty() && !sort_run()) return false;
    return compose_ ? offer_starter(cp, bits) : put(cp);
  }

  // True when the input after the character being pushed is at its end or
  // starts with a starter that does not decompose in this form.
  bool starter_next() const {
    if (next_ == end_) return true;
    const uint32_t u = *next_;
    return !is_surrogate(u) && (normalization_bits(u) & (kCombiningClassMask | decomposes_)) == 0;
  }

  [[gnu::noinline]] bool sort_run() {
    bool ok = true;
    if (run_.size() == 1) {
      const auto cp = static_cast<uint32_t>(run_[0].code_point);
      ok = compose_ ? offer(cp, first_mark_bits_) : put(cp);
    } else {
      CombiningClass_Buffer_sort(run_.data(), run_.size());
      for (int64_t i = 0; i < run_.size() && ok; ++i) {
        const auto cp = static_cast<uint32_t>(run_[i].code_point);
        ok = compose_ ? offer(cp, normalization_bits(cp)) : put(cp);
      }
    }
    run_.clear();
    return ok;
  }

  // Canonical composition, one character at a time. The starter is the last
  // character of class 0; while it may still combine (live_), starter_at_
  // is where it stands in the output, and the characters written after it
  // are those that did not combine with it. `last_` is the class of the
  // last of those, 0 right after the starter and after every composition.
  // A character is offered to the starter when nothing blocks it: last_ = 0
  // or its class is above last_.
  [[gnu::always_inline]] bool offer(uint32_t cp, uint32_t bits) {
    const uint32_t cc = bits & kCombiningClassMask;
    // Computed without branches: which way they go depends on the text.
    const bool unblocked = (last_ == 0) | (cc > last_);
    const bool candidate = hangul_ | ((bits & unicode::kSecond) != 0);
    if (live_ & unblocked & candidate) {
      const uint32_t composite =
          hangul_ ? compose_hangul(starter_, cp) : unicode::primary_composite(starter_, cp);
      if (composite != 0) return combine(composite);
    }
    if (cc == 0) return start(cp, bits);
    last_ = cc;
    return put(cp);
  }

  // A starter: only a mark written after the live starter blocks it.
  [[gnu::always_inline]] bool offer_starter(uint32_t cp, uint32_t bits) {
    const bool candidate = hangul_ | ((bits & unicode::kSecond) != 0);
    if (live_ & (last_ == 0) & candidate) {
      const uint32_t composite =
          hangul_ ? compose_hangul(starter_, cp) : unicode::primary_composite(starter_, cp);
      if (composite != 0) return combine(composite);
    }
    return start(cp, bits);
  }

  // The starter's fields are set whether or not it may compose (they are
  // read only while it may): fewer branches on the text.
  [[gnu::always_inline]] bool start(uint32_t cp, uint32_t bits) {
    live_ = may_compose(bits);
    starter_at_ = out_->length;
    starter_ = cp;
    starter_bits_ = bits;
    hangul_ = is_hangul_starter(cp);
    last_ = 0;
    return put(cp);
  }

  void become(uint32_t composite) {
    starter_ = composite;
    starter_bits_ = normalization_bits(composite);
    hangul_ = is_hangul_starter(composite);
    live_ = may_compose(starter_bits_);
  }

  // The starter combined with a character that was not written: the
  // composite takes the starter's place. When characters that did not
  // combine stand after it, the walk goes on right after the new starter:
  // they are offered to it again.
  [[gnu::always_inline]] bool combine(uint32_t composite) {
    const int64_t tail_at = starter_at_ + (starter_ < 0x10000 ? 1 : 2);
    last_ = 0;
    if (tail_at == out_->length) {
      become(composite);
      out_->length = starter_at_ + put_units(out_->data + starter_at_, composite);
      return true;
    }
    return rewalk(composite, tail_at);
  }

  [[gnu::noinline]] bool rewalk(uint32_t composite, int64_t tail_at) {
    window_.clear();
    const uint16_t *d = out_->data;
    for (int64_t i = tail_at; i < out_->length;) {
      int width = 1;
      if (!window_.push_back(code_point_at(d, out_->length, i, &width))) return false;
      i += width;
    }
    const int64_t written = window_.size();
    become(composite);
    int64_t j = 0;
    while (j < window_.size()) {
      const uint32_t cp = window_[j];
      const uint32_t bits = normalization_bits(cp);
      const uint32_t cc = bits & kCombiningClassMask;
      if (live_ && (last_ == 0 || cc > last_)) {
        if (const uint32_t c = compose_pair(starter_, starter_bits_, cp, bits)) {
          become(c);
          std::memmove(&window_[j], &window_[j] + 1,
                       static_cast<size_t>(window_.size() - j - 1) * sizeof(uint32_t));
          window_.pop_back();
          last_ = 0;
          j = 0;
          continue;
        }
      }
      last_ = cc;
      ++j;
    }
    uint16_t *out = out_->data + starter_at_;
    out += put_units(out, starter_);
    for (int64_t k = 0; k < window_.size(); ++k) out += put_units(out, window_[k]);
    out_->length = out - out_->data;
    out_->charcount -= written - window_.size();
    return true;
  }

  const bool compatibility_;
  const bool compose_;
  const uint32_t decomposes_;  // the quick-check No bit: a decomposition exists
  const uint32_t inert_mask_;  // bits that keep a character from being inert
  ORLIX_UString_Buffer *out_;
  const uint16_t *next_ = nullptr;
  const uint16_t *end_ = nullptr;
  SmallBuffer<CombiningClassEntry, 32> run_;
  uint32_t first_mark_bits_ = 0;
  SmallBuffer<uint32_t, 32> window_;  // the characters after a starter, while they are offered again
  bool live_ = false;
  bool hangul_ = false;  // the starter composes by the Hangul arithmetic (not by pair rows)
  int64_t starter_at_ = 0;
  uint32_t starter_ = 0;
  uint32_t starter_bits_ = 0;
  uint32_t last_ = 0;
};

// Makes room in b for what is held back plus the full decomposition of the
// units from i on: an upper bound of the rest of the output.
bool reserve_rest(ORLIX_UString_Buffer *b, const uint16_t *units, int64_t i, int64_t n,
                  int64_t pending, bool compatibility) {
  // Every unit at least stays; only what decomposes adds to that.
  int64_t need = b->length + 2 * pending + 32 + (n - i);
  const uint32_t decomposes = compatibility ? unicode::kNfkdNo : unicode::kNfdNo;
  while (i < n) {
    if (units[i] < unicode::kQuickCheckInertBelow) {
      ++i;
      continue;
    }
    int width = 1;
    const uint32_t cp = code_point_at(units, n, i, &width);
    if (normalization_bits(cp) & decomposes) need += decomposed_units(cp, compatibility) - width;
    i += width;
  }
  return need <= b->capacity || grow(b, need);
}

}  // namespace

// ---- the buffer ---------------------------------------------------------------

ORLIX_UString_Buffer *ORLIX_UString_Buffer_new(int64_t n) {
  if (n < 0 || n > kMaxUnits - 16) return nullptr;
  Owned<ORLIX_UString_Buffer> b(alloc_record<ORLIX_UString_Buffer>(kModule, __LINE__));
  if (!b) return nullptr;
  const int64_t capacity = n / 8 * 8 + 16;
  b->data = orlix::alloc_array<uint16_t>(capacity, kModule, __LINE__);
  if (b->data == nullptr) return nullptr;
  b->length = 0;
  b->capacity = capacity;
  b->pos = 0;
  b->charcount = 0;
  return b.release();
}

void ORLIX_UString_Buffer_free(ORLIX_UString_Buffer *buffer) {
  if (buffer == nullptr) return;
  orlix_free(buffer->data);
  orlix_free(buffer);
}

int ORLIX_UString_Buffer_append(ORLIX_UString_Buffer *b, uint32_t cp) {
  if (b->capacity - b->length < 4 && !grow(b, round_up8(b->capacity + 1024) + 16)) return 0;
  b->pos += put_units(b->data + b->pos, cp);
  b->length = b->pos;
  ++b->charcount;
  b->data[b->length] = 0;
  return 1;
}

int ORLIX_UString_Buffer_appendwchars(ORLIX_UString_Buffer *b, const uint16_t *units, int64_t n) {
  if (n < 0 || n > kMaxUnits - b->capacity - 1024) return 0;
  if (b->capacity - b->length < n && !grow(b, b->capacity + round_up8(n + 1024))) return 0;
  if (n > 0) std::memcpy(b->data + b->pos, units, static_cast<size_t>(n) * 2);
  b->pos += n;
  b->length = b->pos;
  return 1;
}

int ORLIX_UString_Buffer_Decomposition(ORLIX_UString_Buffer *b, const uint32_t *cps, int64_t n) {
  if (n < 0 || n > kMaxUnits / 4) return 0;
  int64_t removed = is_surrogate(b->data[b->pos]) ? 2 : 1;
  if (removed > b->length - b->pos) removed = b->length - b->pos;
  if (b->capacity - b->length + removed < 2 * n && !grow(b, b->capacity + round_up8(2 * n + 1024)))
    return 0;
  int64_t inserted = 0;
  for (int64_t i = 0; i < n; ++i) inserted += cps[i] < 0x10000 ? 1 : 2;
  const int64_t tail = b->length - b->pos - removed;
  std::memmove(b->data + b->pos + inserted, b->data + b->pos + removed,
               static_cast<size_t>(tail) * 2);
  uint16_t *out = b->data + b->pos;
  for (int64_t i = 0; i < n; ++i) out += put_units(out, cps[i]);
  b->length += inserted - removed;
  if (b->length < b->capacity) b->data[b->length] = 0;
  return 1;
}

void ORLIX_UString_Buffer_Composition(ORLIX_UString_Buffer *b, uint32_t composite, int64_t index,
                                      int64_t units) {
  uint16_t *d = b->data;
  // The removed character first: it stands after the starter.
  std::memmove(d + index, d + index + units, static_cast<size_t>(b->length - index - units) * 2);
  b->length -= units;
  const int64_t old_units = is_surrogate(d[b->pos]) && b->pos + 1 < b->length ? 2 : 1;
  const int64_t new_units = composite < 0x10000 ? 1 : 2;
  if (new_units != old_units) {
    std::memmove(d + b->pos + new_units, d + b->pos + old_units,
                 static_cast<size_t>(b->length - b->pos - old_units) * 2);
    b->length += new_units - old_units;
  }
  put_units(d + b->pos, composite);
  if (b->length < b->capacity) d[b->length] = 0;
  --b->charcount;
}

ORLIX_UString *ORLIX_UString_Buffer_detach(ORLIX_UString_Buffer *b) {
  auto *s = alloc_record<ORLIX_UString>(kModule, __LINE__);
  if (s == nullptr) return nullptr;
  if (b->length < b->capacity) b->data[b->length] = 0;
  s->data = b->data;
  s->length = b->length;
  s->charcount = b->charcount;
  s->hassurrogate = b->charcount != b->length ? 1 : 0;
  s->refcount = 1;
  b->data = nullptr;
  b->length = b->capacity = b->pos = b->charcount = 0;
  return s;
}

// ---- normalization ------------------------------------------------------------

void CombiningClass_Buffer_sort(CombiningClassEntry *run, int64_t n) {
  if (n == 2) {
    if (run[0].combining_class > run[1].combining_class) {
      const CombiningClassEntry t = run[0];
      run[0] = run[1];
      run[1] = t;
    }
    return;
  }
  // Short runs, the only ones real text has, by insertion.
  if (n <= kInsertionSortMax) {
    for (int64_t i = 1; i < n; ++i) {
      const CombiningClassEntry e = run[i];
      int64_t j = i;
      for (; j > 0 && run[j - 1].combining_class > e.combining_class; --j) run[j] = run[j - 1];
      run[j] = e;
    }
    return;
  }
  // Long runs would make insertion quadratic. A stable order by class is the
  // order by (class, position), whose keys are all distinct, so an unstable
  // in-place sort of those keys gives the same result without extra memory:
  // the key is packed into the code point field (21 bits of code point,
  // the position above them, the class on top) and unpacked afterwards.
  for (int64_t i = 0; i < n; ++i)
    run[i].code_point |= static_cast<uint64_t>(run[i].combining_class) << 56 |
                         static_cast<uint64_t>(i) << 21;
  std::sort(run, run + n, [](const CombiningClassEntry &a, const CombiningClassEntry &b) {
    return a.code_point < b.code_point;
  });
  for (int64_t i = 0; i < n; ++i) run[i].code_point &= 0x1FFFFF;
}

uint32_t compose_pair(uint32_t s, uint32_t s_bits, uint32_t c, uint32_t c_bits) {
  if (c < unicode::kFirstCompositionSecond) return 0;
  // A pair row decides: found, its composite (0 when excluded). The hash
  // holds the rows that are not excluded, and no first of a pair composes
  // by the Hangul arithmetic, so a pair that is not in it falls through.
  if ((s_bits & unicode::kFirst) && (c_bits & unicode::kSecond)) {
    if (const uint32_t composite = unicode::primary_composite(s, c)) return composite;
  }
  using namespace hangul;
  if (s - LBase < LCount && c - VBase < VCount)
    return SBase + ((s - LBase) * VCount + (c - VBase)) * TCount;
  // An LV syllable takes any character above TBase, not only the trailing
  // consonants: this is how strings have always been composed here. A sum
  // that is no Unicode scalar value cannot be stored and is not formed.
  if (is_lv(s) && c > TBase) {
    const uint32_t composite = s + (c - TBase);
    if (composite <= 0x10FFFF && !is_surrogate(composite)) return composite;
  }
  return 0;
}

uint32_t compose_pair(uint32_t s, uint32_t c) {
  return compose_pair(s, normalization_bits(s), c, normalization_bits(c));
}

namespace {

// Blocks of 16 units that the quick check passes without looking each unit
// up: every unit below the form's first code point with a class or a
// quick-check row, in the CJK ideographs, or (composing forms) in the Hangul
// syllables. A skipper returns where the run of such blocks from i ends.
struct QuickCheckRanges {
  uint16_t below;  // units below this one pass
  uint16_t first[2];
  uint16_t count[2];  // units in [first, first + count) pass
};

QuickCheckRanges quick_check_ranges(int32_t form) {
  const auto below = static_cast<uint16_t>(unicode::kQuickCheckYesBelow[form - 1]);
  const auto ideographs = static_cast<uint16_t>(unicode::kQuickCheckIdeographsFirst);
  const auto ideograph_count =
      static_cast<uint16_t>(unicode::kQuickCheckIdeographsEnd - unicode::kQuickCheckIdeographsFirst);
  if (form == kNFC || form == kNFKC)
    return {below, {ideographs, hangul::SBase}, {ideograph_count, hangul::SCount}};
  return {below, {ideographs, ideographs}, {ideograph_count, ideograph_count}};
}

using Skipper = int64_t (*)(const uint16_t *u, int64_t i, int64_t n, const QuickCheckRanges &r);

// The portable form: blocks of ASCII, four units to a 64-bit word.
int64_t skip_portable(const uint16_t *u, int64_t i, int64_t n, const QuickCheckRanges &) {
  for (; i + 16 <= n; i += 16) {
    uint64_t w[4];
    std::memcpy(w, u + i, sizeof w);
    if (((w[0] | w[1] | w[2] | w[3]) & 0xFF80FF80FF80FF80ull) != 0) break;
  }
  return i;
}

#if defined(__x86_64__)
#define ORLIX_NORMALIZE_VECTOR 1

// A unit x is in [first, first + count) when (x - first) saturating-minus
// (count - 1) is 0, all in unsigned 16-bit lanes.
int64_t skip_sse2(const uint16_t *u, int64_t i, int64_t n, const QuickCheckRanges &r) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i below = _mm_set1_epi16(static_cast<int16_t>(r.below - 1));
  const __m128i first0 = _mm_set1_epi16(static_cast<int16_t>(r.first[0]));
  const __m128i last0 = _mm_set1_epi16(static_cast<int16_t>(r.count[0] - 1));
  const __m128i first1 = _mm_set1_epi16(static_cast<int16_t>(r.first[1]));
  const __m128i last1 = _mm_set1_epi16(static_cast<int16_t>(r.count[1] - 1));
  auto passes = [&](__m128i x) {
    __m128i t = _mm_cmpeq_epi16(_mm_subs_epu16(x, below), zero);
    t = _mm_or_si128(t, _mm_cmpeq_epi16(_mm_subs_epu16(_mm_sub_epi16(x, first0), last0), zero));
    return _mm_or_si128(t, _mm_cmpeq_epi16(_mm_subs_epu16(_mm_sub_epi16(x, first1), last1), zero));
  };
  for (; i + 16 <= n; i += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(u + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(u + i + 8));
    if (_mm_movemask_epi8(_mm_and_si128(passes(a), passes(b))) != 0xFFFF) break;
  }
  return i;
}

__attribute__((target("avx2"))) int64_t skip_avx2(const uint16_t *u, int64_t i, int64_t n,
                                                    const QuickCheckRanges &r) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i below = _mm256_set1_epi16(static_cast<int16_t>(r.below - 1));
  const __m256i first0 = _mm256_set1_epi16(static_cast<int16_t>(r.first[0]));
  const __m256i last0 = _mm256_set1_epi16(static_cast<int16_t>(r.count[0] - 1));
  const __m256i first1 = _mm256_set1_epi16(static_cast<int16_t>(r.first[1]));
  const __m256i last1 = _mm256_set1_epi16(static_cast<int16_t>(r.count[1] - 1));
  for (; i + 16 <= n; i += 16) {
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(u + i));
    __m256i t = _mm256_cmpeq_epi16(_mm256_subs_epu16(x, below), zero);
    t = _mm256_or_si256(
        t, _mm256_cmpeq_epi16(_mm256_subs_epu16(_mm256_sub_epi16(x, first0), last0), zero));
    t = _mm256_or_si256(
        t, _mm256_cmpeq_epi16(_mm256_subs_epu16(_mm256_sub_epi16(x, first1), last1), zero));
    if (_mm256_movemask_epi8(t) != -1) break;
  }
  return i;
}

Skipper vector_skipper() {
  __builtin_cpu_init();  // may run before the CPU model is read otherwise
  return __builtin_cpu_supports("avx2") ? skip_avx2 : skip_sse2;
}
#endif

// The skipper in use: chosen once from the processor; tests switch it.
Skipper &skipper() {
#if defined(ORLIX_NORMALIZE_VECTOR)
  static Skipper chosen = vector_skipper();
#else
  static Skipper chosen = skip_portable;
#endif
  return chosen;
}

}  // namespace

bool use_quick_check_vector_forms(bool on) {
#if defined(ORLIX_NORMALIZE_VECTOR)
  const bool was = skipper() != skip_portable;
  skipper() = on ? vector_skipper() : skip_portable;
  return was;
#else
  (void)on;
  return false;
#endif
}

QuickCheck quick_check(const uint16_t *u, int64_t n, int32_t form) {
  uint32_t no = 0;
  uint32_t maybe = 0;
  switch (form) {
    case kNFD: no = unicode::kNfdNo; break;
    case kNFC: no = unicode::kNfcNo, maybe = unicode::kNfcMaybe; break;
    case kNFKD: no = unicode::kNfkdNo; break;
    case kNFKC: no = unicode::kNfkcNo, maybe = unicode::kNfkcMaybe; break;
    default: return QuickCheck::kNo;
  }
  const QuickCheckRanges ranges = quick_check_ranges(form);
  const Skipper skip = skipper();
  uint32_t last = 0;
  int64_t i = 0;
  while (i < n) {
    // Sixteen units at a time: blocks of starters that pass the check by
    // their range alone are skipped (their last unit has class 0). Other
    // text goes through the trie in steps of sixteen units, without
    // branching on which kind of character comes next.
    // (A test of the block's first unit before the call, to save calls on
    // mixed text, costs more in mispredicted branches than it saves.)
    if (i + 16 <= n) {
      const int64_t end = skip(u, i, n, ranges);
      if (end != i) {
        i = end;
        last = 0;
        continue;
      }
    }
    for (const int64_t end = i + 16 < n ? i + 16 : n; i < end;) {
      uint32_t cp = u[i++];
      if (is_surrogate(cp)) {
        if (!is_high(cp) || i >= n || !is_low(u[i])) return QuickCheck::kNo;  // unpaired
        cp = utf16::combine(cp, u[i++]);
      }
      const uint32_t bits = normalization_bits(cp);
      const uint32_t cc = bits & kCombiningClassMask;
      const bool out_of_order = (cc != 0) & (cc < last);
      if (out_of_order | ((bits & (no | maybe)) != 0))
        return out_of_order || (bits & no) ? QuickCheck::kNo : QuickCheck::kMaybe;
      last = cc;
    }
  }
  return QuickCheck::kYes;
}

ORLIX_UString *normalize_units(const uint16_t *units, int64_t n, int32_t form) {
  if (form < kNFD || form > kNFKC || n < 0 || (units == nullptr && n != 0)) return nullptr;
  const bool compatibility = form == kNFKD || form == kNFKC;
  // A text that is a single unit is copied as it is, even a lone surrogate
  // (its canonical ordering, where surrogates are checked, is skipped).
  if (n == 1 && is_surrogate(units[0])) {
    OwnedBuffer b(ORLIX_UString_Buffer_new(n + 32));
    if (!b || !ORLIX_UString_Buffer_appendwchars(b.get(), units, n)) return nullptr;
    b->charcount = 1;
    return detach(std::move(b));
  }
  // The buffer starts with room for the text as it is; before each code
  // point, when what it and everything held back could write might not fit,
  // room is made once for the full decomposition of the rest.
  OwnedBuffer b(ORLIX_UString_Buffer_new(n + 32));
  if (!b) return nullptr;
  Normalizer normalizer(form, b.get());
  for (int64_t i = 0; i < n;) {
    uint32_t cp = units[i];
    int width = 1;
    if (is_surrogate(cp)) {
      cp = code_point_at(units, n, i, &width);
      if (is_surrogate(cp)) return nullptr;  // unpaired
    }
    uint32_t bits = normalization_bits(cp);
    // Inert characters (text in most scripts is made of little else) are
    // copied as they are while nothing is held back, as far as the buffer
    // has room.
    if (normalizer.takes_inert(bits)) {
      uint16_t *out = b->data;
      int64_t length = b->length;
      const int64_t room_end = b->capacity - 4;
      const int64_t first = length;
      int64_t surrogates = 0;
      // Leaves on the first character that is not inert, or that finds no
      // room: the way below takes it.
      while (length < room_end) {
        out[length] = units[i];
        if (width == 2) out[length + 1] = units[i + 1], ++surrogates;
        length += width;
        i += width;
        if (i >= n) break;
        cp = units[i];
        width = 1;
        if (is_surrogate(cp)) {
          cp = code_point_at(units, n, i, &width);
          if (is_surrogate(cp)) return nullptr;  // unpaired
        }
        bits = normalization_bits(cp);
        if (!normalizer.inert(bits)) break;
      }
      b->charcount += length - first - surrogates;
      b->length = b->pos = length;
      if (i >= n) break;
    }
    if (b->capacity - b->length < unicode::kMaxDecompositionUnits + 4 + 2 * normalizer.pending() &&
        !reserve_rest(b.get(), units, i, n, normalizer.pending(), compatibility))
      return nullptr;
    i += width;
    normalizer.next_input(units + i, units + n);
    if (!normalizer.push(cp, bits)) return nullptr;  // no memory
  }
  if (!normalizer.finish()) return nullptr;
  return detach(std::move(b));
}

// ---- code-point predicates ------------------------------------------------------

const uint32_t g_ChangeDisplay_Table[kChangeDisplayRows] = {
    0x0340, 0x0341, 0x200E, 0x200F, 0x202A, 0x202B, 0x202C, 0x202D,
    0x202E, 0x206A, 0x206B, 0x206C, 0x206D, 0x206E, 0x206F,
};

uint32_t getCharCombiningClass(uint32_t cp) { return property_bits(cp) & kCombiningClassMask; }

int hasUnassignedCodePoint(const uint16_t *units, int64_t n) {
  for (int64_t i = 0; i < n;) {
    int width = 1;
    if (property_bits(code_point_at(units, n, i, &width)) & unicode::kUnassigned) return 1;
    i += width;
  }
  return 0;
}

bool is_change_display(uint32_t cp) {
  return cp >= g_ChangeDisplay_Table[0] && cp <= g_ChangeDisplay_Table[kChangeDisplayRows - 1] &&
         lookup::contains(g_ChangeDisplay_Table, cp);
}

int hasChangeDisplayCodePoint(const uint16_t *units, int64_t n) {
  for (int64_t i = 0; i < n;) {
    int width = 1;
    if (is_change_display(code_point_at(units, n, i, &width))) return 1;
    i += width;
  }
  return 0;
}

int iscombingmark(const uint16_t *units) {
  uint32_t cp = units[0];
  if (is_high(cp) && is_low(units[1])) cp = utf16::combine(cp, units[1]);
  return (property_bits(cp) & unicode::kMark) ? 1 : 0;
}

int isPrivateCodePoint(uint32_t cp) {
  return (cp >= 0xE000 && cp <= 0xF8FF) || (cp >= 0xF0000 && cp <= 0xFFFFD) ||
         (cp >= 0x100000 && cp <= 0x10FFFD);
}

int64_t count_code_points(const uint16_t *units, int64_t n) {
  int64_t count = 0;
  for (int64_t i = 0; i < n; ++count) {
    int width = 1;
    code_point_at(units, n, i, &width);
    i += width;
  }
  return count;
}

// ---- table look-ups by binary search -----------------------------------------------

int combiningClassCmp(const void *key, const void *row) {
  return compare_u32(*static_cast<const uint32_t *>(key),
                     static_cast<const unicode::CombiningClassRow *>(row)->code_point);
}

int CanonicalDecompositionCmp(const void *key, const void *row) {
  return compare_u32(*static_cast<const uint32_t *>(key),
                     static_cast<const unicode::CanonicalDecompositionRow *>(row)->code_point);
}

int CompatibilityDecompositionCmp(const void *key, const void *row) {
  return compare_u32(*static_cast<const uint32_t *>(key),
                     static_cast<const unicode::CompatibilityDecompositionRow *>(row)->code_point);
}

int CanonicalCompositionCmp(const void *key, const void *row) {
  const auto *k = static_cast<const uint32_t *>(key);
  const auto *r = static_cast<const unicode::CanonicalCompositionRow *>(row);
  const int c = compare_u32(k[0], r->first);
  return c != 0 ? c : compare_u32(k[1], r->second);
}

int codepointCmp(const void *key, const void *row) {
  return compare_u32(*static_cast<const uint32_t *>(key), *static_cast<const uint32_t *>(row));
}

namespace lookup {

namespace {
template <class Row>
const Row *find(const Row *table, int64_t count, const void *key, ORLIX_CompareFunc compare) {
  int64_t position = 0;
  if (orlix_bsearch(key, table, count, sizeof(Row), compare, &position) != 1) return nullptr;
  return table + position;
}
}  // namespace

const unicode::CombiningClassRow *combining_class(uint32_t cp) {
  return find(unicode::g_CombiningClass_Table, unicode::kCombiningClassRows, &cp,
              combiningClassCmp);
}

const unicode::CanonicalDecompositionRow *canonical(uint32_t cp) {
  return find(g_CanonicalDecomposition_Table, unicode::kCanonicalDecompositionRows, &cp,
              CanonicalDecompositionCmp);
}

const unicode::CompatibilityDecompositionRow *compatibility(uint32_t cp) {
  return find(g_CompatibilityDecomposition_Table, unicode::kCompatibilityDecompositionRows, &cp,
              CompatibilityDecompositionCmp);
}

const unicode::CanonicalCompositionRow *composition(uint32_t first, uint32_t second) {
  const uint32_t key[2] = {first, second};
  return find(g_CanonicalComposition_Table, unicode::kCanonicalCompositionRows, key,
              CanonicalCompositionCmp);
}

bool contains(const uint32_t *table, int64_t count, uint32_t cp) {
  return find(table, count, &cp, codepointCmp) != nullptr;
}

bool unassigned(uint32_t cp) {
  if (contains(unicode::g_unassignedCodePoint_Table, cp)) return true;
  if ((cp >= 0x10A59 && cp <= 0x11FFF) || (cp >= 0x12474 && cp <= 0x1CFFF) ||
      (cp >= 0x1D800 && cp <= 0x1FFFD) || (cp >= 0x2A6D7 && cp <= 0x2F7FF) ||
      (cp >= 0xE01F0 && cp <= 0xEFFFD))
    return true;
  return cp >= 0x30000 && cp <= 0xDFFFD && (cp & 0xFFFF) < 0xFFFE;
}

}  // namespace lookup

}  // namespace orlix

extern "C" ORLIX_UString *orlix_ustring_normalize(ORLIX_UString *s, int32_t form) {
  if (s == nullptr || form < orlix::kNFD || form > orlix::kNFKC) return nullptr;
  if (s->charcount == 0 || s->length == 0) return orlix_ustring_dup(s);
  if (orlix::quick_check(s->data, s->length, form) == orlix::QuickCheck::kYes)
    return orlix_ustring_dup(s);
  return orlix::normalize_units(s->data, s->length, form);
}
