// The Unicode string value: validating constructors from every UTF form,
// conversions back out, comparison, concatenation, substrings and search.
#include "ustring/ORLIX_UString.hpp"

#include <cstring>
#include <cwchar>

#include "ORLIX_Util.h"
#include "core/memory.hpp"
#include "ustring/ORLIX_UString_UTF8.hpp"

namespace {

constexpr const char kModule[] = "ORLIX_UString";
constexpr uint32_t kMaxCodePoint = 0x10FFFF;

using orlix::utf16::is_high;
using orlix::utf16::is_low;
using orlix::utf16::is_surrogate;

struct StringDeleter {
  void operator()(ORLIX_UString *s) const noexcept { orlix_ustring_free(s); }
};
using OwnedString = std::unique_ptr<ORLIX_UString, StringDeleter>;

// Appends code point cp as one or two units; false for a surrogate value or
// one above U+10FFFF.
inline bool put_code_point(uint16_t *data, int64_t &n, bool &pairs, uint64_t cp) {
  if (cp < 0x10000) {
    if (is_surrogate(static_cast<uint32_t>(cp))) return false;
    data[n++] = static_cast<uint16_t>(cp);
    return true;
  }
  if (cp > kMaxCodePoint) return false;
  data[n++] = static_cast<uint16_t>(0xD800 + ((cp - 0x10000) >> 10));
  data[n++] = static_cast<uint16_t>(0xDC00 + (cp & 0x3FF));
  pairs = true;
  return true;
}

// The argument rule shared by every (pointer, count) constructor: true when
// the pair is usable; *empty is set for the empty string.
bool check_args(const void *p, int64_t count, bool *empty) {
  *empty = count == 0;
  return count >= 0 && (p != nullptr || count == 0);
}

ORLIX_UString *empty_string() { return orlix::utf16::make(0); }

// Builds a string from `count` code points delivered by next(i).
template <class Next>
ORLIX_UString *from_code_points(int64_t count, Next next) {
  if (count > (INT64_MAX - 1) / 2) return nullptr;
  OwnedString s(orlix::utf16::make(2 * count));
  if (!s) return nullptr;
  int64_t n = 0;
  bool pairs = false;
  for (int64_t i = 0; i < count; ++i)
    if (!put_code_point(s->data, n, pairs, next(i))) return nullptr;
  return orlix::utf16::finish(s.release(), n, count, pairs);
}

// Decodes the units of s into code points, handing each to emit. Fails on a
// surrogate that is not part of a pair.
template <class Emit>
bool each_code_point(const ORLIX_UString *s, Emit emit) {
  const uint16_t *d = s->data;
  for (int64_t i = 0; i < s->length; ++i) {
    uint32_t u = d[i];
    if (is_surrogate(u)) {
      if (!is_high(u) || i + 1 >= s->length || !is_low(d[i + 1])) return false;
      u = orlix::utf16::combine(u, d[++i]);
    }
    emit(u);
  }
  return true;
}

// Allocates a caller-owned output of `elements` + 1 elements of T.
template <class T>
T *alloc_out(int64_t elements) {
  if (elements > INT64_MAX / static_cast<int64_t>(sizeof(T)) - 1) return nullptr;
  return orlix::alloc_array<T>(elements + 1, kModule, __LINE__);
}

// Unit order in which surrogates rank above every other unit: comparing
// units this way gives code-point order.
inline int wcharcmp(uint16_t a, uint16_t b) {
  if (a == b) return 0;
  const bool sa = is_surrogate(a);
  const bool sb = is_surrogate(b);
  if (sa != sb) return sa ? 1 : -1;
  return a < b ? -1 : 1;
}

// Unit index where character `index` starts (walking from the start only
// when the text has pairs).
int64_t char_first_pos(const ORLIX_UString *s, int64_t index) {
  if (!s->hassurrogate) return index;
  int64_t u = 0;
  for (int64_t k = 0; k < index && u < s->length; ++k) u += is_surrogate(s->data[u]) ? 2 : 1;
  return u;
}

// Index of the last unit of character n, or the unit just past a BMP
// character n; beyond the text, the last unit.
int64_t char_last_pos(const ORLIX_UString *s, int64_t n) {
  if (n > s->charcount) return s->length - 1;
  if (!s->hassurrogate) return n;
  const int64_t u = char_first_pos(s, n);
  return u < s->length && is_surrogate(s->data[u]) ? u + 1 : u;
}

// Characters in units [from, to): a surrogate unit advances two units.
int64_t count_chars(const uint16_t *d, int64_t from, int64_t to) {
  int64_t chars = 0;
  for (int64_t u = from; u < to; u += is_surrogate(d[u]) ? 2 : 1) ++chars;
  return chars;
}

}  // namespace

namespace orlix::utf16 {

ORLIX_UString *make(int64_t capacity) {
  if (capacity < 0 || capacity > INT64_MAX / 2 - 1) return nullptr;
  Owned<ORLIX_UString> s(alloc_record<ORLIX_UString>(kModule, __LINE__));
  if (!s) return nullptr;
  s->data = orlix::alloc_array<uint16_t>(capacity + 1, kModule, __LINE__);
  if (s->data == nullptr) return nullptr;
  s->data[0] = 0;
  s->length = 0;
  s->charcount = 0;
  s->hassurrogate = 0;
  s->refcount = 1;
  return s.release();
}

ORLIX_UString *finish(ORLIX_UString *s, int64_t length, int64_t charcount, bool surrogates) {
  s->data[length] = 0;
  s->length = length;
  s->charcount = charcount;
  s->hassurrogate = surrogates ? 1 : 0;
  return s;
}

}  // namespace orlix::utf16

extern "C" {

ORLIX_UString *orlix_ustring_newlength(const uint16_t *units, int64_t count) {
  bool empty = false;
  if (!check_args(units, count, &empty)) return nullptr;
  if (empty) return empty_string();
  OwnedString s(orlix::utf16::make(count));
  if (!s) return nullptr;
  int64_t chars = 0;
  bool pairs = false;
  for (int64_t i = 0; i < count; ++i, ++chars) {
    const uint16_t u = units[i];
    s->data[i] = u;
    if (!is_surrogate(u)) continue;
    if (!is_high(u) || i + 1 >= count || !is_low(units[i + 1])) return nullptr;
    ++i;
    s->data[i] = units[i];
    pairs = true;
  }
  return orlix::utf16::finish(s.release(), count, chars, pairs);
}

ORLIX_UString *orlix_ustring_new(const uint16_t *units) {
  if (units == nullptr) return empty_string();
  int64_t n = 0;
  while (units[n] != 0) ++n;
  return orlix_ustring_newlength(units, n);
}

ORLIX_UString *orlix_ustring_newutf8(const char *bytes, int64_t count) {
  bool empty = false;
  if (!check_args(bytes, count, &empty)) return nullptr;
  if (empty) return empty_string();
  // Checked before anything is allocated; decoding then trusts the bytes.
  const auto *in = reinterpret_cast<const unsigned char *>(bytes);
  if (!orlix::utf8::validate(in, count)) return nullptr;
  OwnedString s(orlix::utf16::make(count));
  if (!s) return nullptr;
  int64_t pairs = 0;
  const int64_t n = orlix::utf8::decode_valid(in, count, s->data, &pairs);
  return orlix::utf16::finish(s.release(), n, n - pairs, pairs > 0);
}

ORLIX_UString *orlix_ustring_newbmp(const unsigned char *bytes, int64_t count) {
  bool empty = false;
  if (!check_args(bytes, count, &empty)) return nullptr;
  if (empty) return empty_string();
  if (count % 2 != 0) return nullptr;
  const int64_t units = count / 2;
  OwnedString s(orlix::utf16::make(units));
  if (!s) return nullptr;
  for (int64_t i = 0; i < units; ++i) {
    const uint16_t u = static_cast<uint16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]);
    if (is_surrogate(u)) return nullptr;  // UCS-2 has no surrogates
    s->data[i] = u;
  }
  return orlix::utf16::finish(s.release(), units, units, false);
}

ORLIX_UString *orlix_ustring_newutf32(const uint64_t *code_points, int64_t count) {
  bool empty = false;
  if (!check_args(code_points, count, &empty)) return nullptr;
  if (empty) return empty_string();
  return from_code_points(count, [&](int64_t i) { return code_points[i]; });
}

ORLIX_UString *orlix_ustring_newutf32be(const unsigned char *bytes, int64_t count) {
  bool empty = false;
  if (!check_args(bytes, count, &empty)) return nullptr;
  if (empty) return empty_string();
  if (count % 4 != 0) return nullptr;
  return from_code_points(count / 4, [&](int64_t i) {
    const unsigned char *b = bytes + 4 * i;
    return uint64_t{b[0]} << 24 | uint64_t{b[1]} << 16 | uint64_t{b[2]} << 8 | b[3];
  });
}

ORLIX_UString *orlix_ustring_newascii(const char *bytes, int64_t count) {
  bool empty = false;
  if (!check_args(bytes, count, &empty)) return nullptr;
  if (empty) return empty_string();
  OwnedString s(orlix::utf16::make(count));
  if (!s) return nullptr;
  for (int64_t i = 0; i < count; ++i) {
    if (static_cast<signed char>(bytes[i]) < 0) return nullptr;
    s->data[i] = static_cast<uint16_t>(bytes[i]);
  }
  return orlix::utf16::finish(s.release(), count, count, false);
}

ORLIX_UString *orlix_ustring_newwcs(const wchar_t *text) {
  if (text == nullptr) return nullptr;
  const auto n = static_cast<int64_t>(std::wcslen(text));
  if (n == 0) return empty_string();
  // Each wchar_t widens to a 64-bit code point; a negative one becomes a
  // huge value and is refused like any value above U+10FFFF.
  return from_code_points(n, [&](int64_t i) { return static_cast<uint64_t>(text[i]); });
}

ORLIX_UString *orlix_ustring_dup(ORLIX_UString *s) {
  if (s != nullptr) ++s->refcount;
  return s;
}

void orlix_ustring_free(ORLIX_UString *s) {
  if (s == nullptr) return;
  if (s->refcount > 1) {
    --s->refcount;
    return;
  }
  orlix_free(s->data);
  orlix_free(s);
}

int64_t orlix_ustring_getcharcount(const ORLIX_UString *s) {
  return s == nullptr ? 0 : s->charcount;
}

int orlix_ustring_toutf8(const ORLIX_UString *s, char **out, int64_t *count) {
  if (s == nullptr || out == nullptr || count == nullptr) return 0;
  if (s->length > (INT64_MAX - 1) / 3) return 0;
  orlix::Owned<char> buffer(alloc_out<char>(3 * s->length));
  *out = nullptr;
  if (!buffer) return 0;
  auto *o = reinterpret_cast<unsigned char *>(buffer.get());
  const int64_t n = orlix::utf8::encode_utf16(s->data, s->length, o);
  if (n < 0) return 0;
  o[n] = 0;
  *count = n;
  *out = buffer.release();
  return 1;
}

int orlix_ustring_toutf16(const ORLIX_UString *s, uint16_t **out, int64_t *count) {
  if (s == nullptr || out == nullptr || count == nullptr) return 0;
  auto *buffer = alloc_out<uint16_t>(s->length);
  *out = buffer;
  if (buffer == nullptr) return 0;
  std::memcpy(buffer, s->data, static_cast<size_t>(s->length + 1) * 2);
  *count = s->length;
  return 1;
}

int orlix_ustring_tobmp(const ORLIX_UString *s, unsigned char **out, int64_t *count) {
  if (s == nullptr || out == nullptr || count == nullptr) return 0;
  *out = nullptr;
  if (s->hassurrogate) return 0;  // text above U+FFFF has no UCS-2 form
  if (s->length > INT64_MAX / 2 - 2) return 0;
  auto *buffer = orlix::alloc_bytes(2 * s->length + 2, kModule, __LINE__);
  if (buffer == nullptr) return 0;
  for (int64_t i = 0; i < s->length; ++i) {
    buffer[2 * i] = static_cast<unsigned char>(s->data[i] >> 8);
    buffer[2 * i + 1] = static_cast<unsigned char>(s->data[i]);
  }
  buffer[2 * s->length] = buffer[2 * s->length + 1] = 0;
  *out = buffer;
  *count = 2 * s->length;
  return 1;
}

int orlix_ustring_toutf32(const ORLIX_UString *s, uint64_t **out, int64_t *count) {
  if (s == nullptr || out == nullptr || count == nullptr) return 0;
  orlix::Owned<uint64_t> buffer(alloc_out<uint64_t>(s->charcount));
  *out = nullptr;
  if (!buffer) return 0;
  int64_t n = 0;
  uint64_t *o = buffer.get();
  const int64_t room = s->charcount;
  bool fits = true;
  if (!each_code_point(s, [&](uint32_t cp) {
        if (n < room) o[n++] = cp;
        else fits = false;
      }) ||
      !fits)
    return 0;
  o[n] = 0;
  *count = n;
  *out = buffer.release();
  return 1;
}

int orlix_ustring_toutf32be(const ORLIX_UString *s, unsigned char **out, int64_t *count) {
  if (s == nullptr || out == nullptr || count == nullptr) return 0;
  if (s->charcount > INT64_MAX / 4 - 1) return 0;
  orlix::Owned<unsigned char> buffer(orlix::alloc_bytes(4 * s->charcount + 4, kModule, __LINE__));
  *out = nullptr;
  if (!buffer) return 0;
  unsigned char *o = buffer.get();
  int64_t n = 0;
  const int64_t room = s->charcount;
  bool fits = true;
  if (!each_code_point(s, [&](uint32_t cp) {
        if (n >= room) {
          fits = false;
          return;
        }
        unsigned char *b = o + 4 * n++;
        b[0] = static_cast<unsigned char>(cp >> 24);
        b[1] = static_cast<unsigned char>(cp >> 16);
        b[2] = static_cast<unsigned char>(cp >> 8);
        b[3] = static_cast<unsigned char>(cp);
      }) ||
      !fits)
    return 0;
  std::memset(o + 4 * n, 0, 4);
  *count = 4 * n;
  *out = buffer.release();
  return 1;
}

wchar_t *orlix_ustring_towcs(const ORLIX_UString *s) {
  uint64_t *cps = nullptr;
  int64_t n = 0;
  if (orlix_ustring_toutf32(s, &cps, &n) != 1) return nullptr;
  orlix::Owned<uint64_t> owned(cps);
  auto *w = alloc_out<wchar_t>(n);
  if (w == nullptr) return nullptr;
  for (int64_t i = 0; i < n; ++i) w[i] = static_cast<wchar_t>(cps[i]);
  w[n] = 0;
  return w;
}

int orlix_ustring_cmp(const ORLIX_UString *a, const ORLIX_UString *b) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : (a == nullptr ? -1 : 1);
  if (a == b) return 0;
  const int64_t n = a->length < b->length ? a->length : b->length;
  for (int64_t i = 0; i < n; ++i)
    if (const int c = wcharcmp(a->data[i], b->data[i]); c != 0) return c;
  return a->length < b->length ? -1 : (a->length > b->length ? 1 : 0);
}

int orlix_ustring_ncmp(const ORLIX_UString *a, const ORLIX_UString *b, int64_t n) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : (a == nullptr ? -1 : 1);
  if (n == 0) return 0;
  if (n < 0) return orlix_ustring_cmp(a, b);
  if (a == b) return 0;
  // Each end index names the last unit compared. It reaches one character
  // past n (the terminator when n equals a string's length), as callers of
  // this function have always seen it.
  const int64_t ea = char_last_pos(a, n);
  const int64_t eb = char_last_pos(b, n);
  const int64_t last = ea < eb ? ea : eb;
  for (int64_t i = 0; i <= last; ++i)
    if (const int c = wcharcmp(a->data[i], b->data[i]); c != 0) return c;
  return ea < eb ? -1 : (ea > eb ? 1 : 0);
}

ORLIX_UString *orlix_ustring_cat(ORLIX_UString *a, ORLIX_UString *b) {
  if (a == nullptr) return orlix_ustring_dup(b);
  if (b == nullptr) return orlix_ustring_dup(a);
  ORLIX_UString *s = orlix::utf16::make(a->length + b->length);
  if (s == nullptr) return nullptr;
  std::memcpy(s->data, a->data, static_cast<size_t>(a->length) * 2);
  std::memcpy(s->data + a->length, b->data, static_cast<size_t>(b->length) * 2);
  return orlix::utf16::finish(s, a->length + b->length, a->charcount + b->charcount,
                              a->hassurrogate || b->hassurrogate);
}

ORLIX_UString *orlix_ustring_substring(const ORLIX_UString *s, int64_t start, int64_t count) {
  if (s == nullptr || start < 0 || count == 0 || start >= s->charcount) return nullptr;
  if (count < 0) count = s->length;  // never fewer units than characters left
  const int64_t left = s->charcount - start;
  const int64_t first = char_first_pos(s, start);
  // When the character after the range lies above U+FFFF, the end takes in
  // its high surrogate: existing callers see that lone unit, so it stays.
  int64_t end = char_last_pos(s, start + (left < count ? left : count));
  if (end > s->length) end = s->length;
  const int64_t units = end > first ? end - first : 0;
  ORLIX_UString *sub = orlix::utf16::make(units);
  if (sub == nullptr) return nullptr;
  std::memcpy(sub->data, s->data + first, static_cast<size_t>(units) * 2);
  bool pairs = false;
  if (s->hassurrogate)
    for (int64_t i = 0; i < units && !pairs; ++i) pairs = is_surrogate(sub->data[i]);
  return orlix::utf16::finish(sub, units, count_chars(sub->data, 0, units), pairs);
}

int orlix_ustring_find(const ORLIX_UString *haystack, int64_t start, const ORLIX_UString *needle,
                       int64_t *position) {
  const ORLIX_UString *h = haystack;
  if (h == nullptr || start < 0 || start >= h->charcount || needle == nullptr ||
      position == nullptr)
    return 0;
  if (needle->charcount == 0) {
    *position = start;
    return 1;
  }
  *position = -1;
  if (needle == h) {
    if (start != 0) return 0;
    *position = 0;
    return 1;
  }
  if (needle->charcount > h->charcount - start) return 0;

  // Knuth-Morris-Pratt over UTF-16 units, with the optimised failure table:
  // where the unit after a border equals the unit after the prefix, the entry
  // takes the inner border's value, so a mismatch never retries a unit that
  // is known to mismatch.
  const uint16_t *p = needle->data;
  const int64_t m = needle->length;
  orlix::Owned<int64_t> table_owner(orlix::alloc_array<int64_t>(m + 1, kModule, __LINE__));
  if (!table_owner) return 0;
  int64_t *next = table_owner.get();
  next[0] = -1;
  for (int64_t i = 0, k = -1; i < m;) {
    if (k == -1 || p[i] == p[k]) {
      ++i;
      ++k;
      next[i] = (i < m && p[i] == p[k]) ? next[k] : k;
    } else {
      k = next[k];
    }
  }

  const int64_t from = char_first_pos(h, start);
  const uint16_t *t = h->data;
  for (int64_t i = from, j = 0; i < h->length;) {
    if (j == -1 || t[i] == p[j]) {
      ++i;
      ++j;
      if (j == m) {
        *position = start + count_chars(t, from, i - m);
        return 1;
      }
    } else {
      j = next[j];
    }
  }
  return 0;
}

}  // extern "C"
