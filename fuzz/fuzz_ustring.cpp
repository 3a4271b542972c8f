// Unicode string values: the first byte picks a constructor (UTF-8, UTF-16
// units, UCS-2 big-endian, UTF-32 big-endian, 64-bit code points, ASCII), the
// next two are parameters, the rest is the text. Each constructor must accept
// exactly what a strict validator written here accepts; an accepted string
// must give its input back through the matching conversion and the expected
// code points through every other one. find is checked against a naive
// search over UTF-16 units and cmp against the code-point order of two
// strings cut from the text.
#include <algorithm>
#include <string>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"

namespace {

using CodePoints = std::vector<uint32_t>;
using Units = std::vector<uint16_t>;

bool IsSurrogate(uint64_t v) { return v >= 0xD800 && v <= 0xDFFF; }
bool IsScalar(uint64_t v) { return v <= 0x10FFFF && !IsSurrogate(v); }

// Well-formed UTF-8 only (the table of well-formed byte sequences).
bool DecodeUtf8(const uint8_t *p, size_t n, CodePoints *out) {
  size_t i = 0;
  while (i < n) {
    const uint8_t b = p[i];
    if (b < 0x80) {
      out->push_back(b);
      ++i;
      continue;
    }
    size_t len;
    uint32_t v;
    uint8_t lo = 0x80, hi = 0xBF;  // range of the second byte
    if (b >= 0xC2 && b <= 0xDF) {
      len = 2;
      v = b & 0x1F;
    } else if (b >= 0xE0 && b <= 0xEF) {
      len = 3;
      v = b & 0x0F;
      if (b == 0xE0) lo = 0xA0;
      if (b == 0xED) hi = 0x9F;
    } else if (b >= 0xF0 && b <= 0xF4) {
      len = 4;
      v = b & 0x07;
      if (b == 0xF0) lo = 0x90;
      if (b == 0xF4) hi = 0x8F;
    } else {
      return false;
    }
    if (n - i < len) return false;
    if (p[i + 1] < lo || p[i + 1] > hi) return false;
    for (size_t k = 1; k < len; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) return false;
      v = v << 6 | (p[i + k] & 0x3F);
    }
    out->push_back(v);
    i += len;
  }
  return true;
}

bool DecodeUtf16(const Units &u, CodePoints *out) {
  for (size_t i = 0; i < u.size(); ++i) {
    const uint16_t w = u[i];
    if (w >= 0xDC00 && w <= 0xDFFF) return false;
    if (w >= 0xD800 && w <= 0xDBFF) {
      if (i + 1 >= u.size() || u[i + 1] < 0xDC00 || u[i + 1] > 0xDFFF) return false;
      out->push_back(0x10000 + ((uint32_t(w) - 0xD800) << 10) + (u[i + 1] - 0xDC00));
      ++i;
      continue;
    }
    out->push_back(w);
  }
  return true;
}

Units EncodeUtf16(const CodePoints &cps) {
  Units u;
  for (uint32_t c : cps) {
    if (c < 0x10000) {
      u.push_back(static_cast<uint16_t>(c));
    } else {
      u.push_back(static_cast<uint16_t>(0xD800 + ((c - 0x10000) >> 10)));
      u.push_back(static_cast<uint16_t>(0xDC00 + (c & 0x3FF)));
    }
  }
  return u;
}

std::string EncodeUtf8(const CodePoints &cps) {
  std::string s;
  for (uint32_t c : cps) {
    if (c < 0x80) {
      s += static_cast<char>(c);
    } else if (c < 0x800) {
      s += static_cast<char>(0xC0 | c >> 6);
      s += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      s += static_cast<char>(0xE0 | c >> 12);
      s += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      s += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      s += static_cast<char>(0xF0 | c >> 18);
      s += static_cast<char>(0x80 | (c >> 12 & 0x3F));
      s += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      s += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return s;
}

ORLIX_UString *FromCodePoints(const CodePoints &cps) {
  const Units u = EncodeUtf16(cps);
  ORLIX_UString *s = orlix_ustring_newlength(u.data(), int64_t(u.size()));
  FUZZ_CHECK(s != nullptr);
  return s;
}

// Every conversion out of a string holding exactly cps.
void CheckConversions(const ORLIX_UString *s, const CodePoints &cps) {
  const Units units = EncodeUtf16(cps);
  FUZZ_CHECK(orlix_ustring_getcharcount(s) == int64_t(cps.size()));

  char *utf8 = nullptr;
  int64_t count = -1;
  FUZZ_CHECK(orlix_ustring_toutf8(s, &utf8, &count) == 1);
  const std::string want8 = EncodeUtf8(cps);
  FUZZ_CHECK(count == int64_t(want8.size()) && fuzz::SameBytes(utf8, want8.data(), want8.size()) &&
                 utf8[count] == 0,
             "toutf8 differs");
  orlix_free(utf8);

  uint16_t *utf16 = nullptr;
  FUZZ_CHECK(orlix_ustring_toutf16(s, &utf16, &count) == 1);
  FUZZ_CHECK(count == int64_t(units.size()) &&
                 fuzz::SameBytes(utf16, units.data(), units.size() * 2) && utf16[count] == 0,
             "toutf16 differs");
  orlix_free(utf16);

  uint64_t *utf32 = nullptr;
  FUZZ_CHECK(orlix_ustring_toutf32(s, &utf32, &count) == 1);
  FUZZ_CHECK(count == int64_t(cps.size()) && utf32[count] == 0);
  for (size_t i = 0; i < cps.size(); ++i) FUZZ_CHECK(utf32[i] == cps[i], "toutf32 at %zu", i);
  orlix_free(utf32);

  unsigned char *be = nullptr;
  FUZZ_CHECK(orlix_ustring_toutf32be(s, &be, &count) == 1);
  FUZZ_CHECK(count == int64_t(cps.size() * 4));
  for (size_t i = 0; i < cps.size(); ++i) {
    const uint32_t v = uint32_t(be[4 * i]) << 24 | uint32_t(be[4 * i + 1]) << 16 |
                       uint32_t(be[4 * i + 2]) << 8 | be[4 * i + 3];
    FUZZ_CHECK(v == cps[i], "toutf32be at %zu", i);
  }
  FUZZ_CHECK(be[count] == 0 && be[count + 1] == 0 && be[count + 2] == 0 && be[count + 3] == 0);
  orlix_free(be);

  const bool bmp = std::all_of(cps.begin(), cps.end(), [](uint32_t c) { return c < 0x10000; });
  unsigned char *ucs2 = nullptr;
  const int bmp_ok = orlix_ustring_tobmp(s, &ucs2, &count);
  FUZZ_CHECK(bmp_ok == (bmp ? 1 : 0), "tobmp %s", bmp_ok ? "accepted" : "refused");
  if (bmp_ok) {
    FUZZ_CHECK(count == int64_t(cps.size() * 2));
    for (size_t i = 0; i < cps.size(); ++i)
      FUZZ_CHECK((uint32_t(ucs2[2 * i]) << 8 | ucs2[2 * i + 1]) == cps[i], "tobmp at %zu", i);
    FUZZ_CHECK(ucs2[count] == 0 && ucs2[count + 1] == 0);
    orlix_free(ucs2);
  }
}

// The character index of the first occurrence of needle's units at or after
// character start, or -1.
int64_t NaiveFind(const Units &h, int64_t start, const Units &needle) {
  size_t first = 0;
  for (int64_t c = 0; c < start; ++c) first += (h[first] >= 0xD800 && h[first] <= 0xDBFF) ? 2 : 1;
  for (size_t u = first; u + needle.size() <= h.size(); ++u) {
    if (!std::equal(needle.begin(), needle.end(), h.begin() + long(u))) continue;
    int64_t chars = 0;
    for (size_t k = 0; k < u; ++k) chars += (h[k] >= 0xDC00 && h[k] <= 0xDFFF) ? 0 : 1;
    return chars;
  }
  return -1;
}

void CheckFind(const ORLIX_UString *s, const CodePoints &cps, uint8_t p1, uint8_t p2) {
  const size_t n = cps.size();
  const size_t from = n == 0 ? 0 : p1 % n;
  const size_t len = std::min<size_t>(p2 % 5, n - from);
  CodePoints needle_cps(cps.begin() + long(from), cps.begin() + long(from + len));
  if ((p2 & 0x80) && !needle_cps.empty()) needle_cps.back() = (needle_cps.back() + p1) % 0x80;
  const int64_t start = n == 0 ? 0 : (p1 >> 4) % int64_t(n + 1);
  ORLIX_UString *needle = FromCodePoints(needle_cps);

  int64_t position = -7;
  const int found = orlix_ustring_find(s, start, needle, &position);
  if (start >= int64_t(n)) {
    FUZZ_CHECK(found == 0 && position == -7, "find past the end");
  } else if (needle_cps.empty()) {
    FUZZ_CHECK(found == 1 && position == start);
  } else {
    const int64_t want = NaiveFind(EncodeUtf16(cps), start, EncodeUtf16(needle_cps));
    FUZZ_CHECK(found == (want >= 0 ? 1 : 0) && position == want, "find gave %d at %lld, want %lld",
               found, (long long)position, (long long)want);
  }
  orlix_ustring_free(needle);
}

void CheckCmp(const CodePoints &cps, uint8_t p1) {
  const size_t cut = cps.empty() ? 0 : p1 % (cps.size() + 1);
  const CodePoints a_cps(cps.begin(), cps.begin() + long(cut));
  const CodePoints b_cps(cps.begin() + long(cut), cps.end());
  ORLIX_UString *a = FromCodePoints(a_cps);
  ORLIX_UString *b = FromCodePoints(b_cps);
  const int want = a_cps < b_cps ? -1 : a_cps == b_cps ? 0 : 1;
  FUZZ_CHECK(orlix_ustring_cmp(a, b) == want, "cmp(a, b)");
  FUZZ_CHECK(orlix_ustring_cmp(b, a) == -want, "cmp(b, a)");
  ORLIX_UString *a2 = FromCodePoints(a_cps);
  FUZZ_CHECK(orlix_ustring_cmp(a, a2) == 0);
  orlix_ustring_free(a2);
  orlix_ustring_free(b);
  orlix_ustring_free(a);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  const uint8_t which = in.u8() % 6;
  const uint8_t p1 = in.u8();
  const uint8_t p2 = in.u8();
  const uint8_t *text = in.rest();
  const size_t n = in.remaining();

  CodePoints cps;
  bool valid = true;
  ORLIX_UString *s = nullptr;
  switch (which) {
    case 0: {  // UTF-8; an accepted text converts back to itself
      valid = DecodeUtf8(text, n, &cps);
      s = orlix_ustring_newutf8(reinterpret_cast<const char *>(text), int64_t(n));
      break;
    }
    case 1: {  // UTF-16 units, little-endian pairs of bytes
      Units units(n / 2);
      for (size_t i = 0; i < units.size(); ++i)
        units[i] = uint16_t(text[2 * i] | text[2 * i + 1] << 8);
      valid = DecodeUtf16(units, &cps);
      s = orlix_ustring_newlength(units.data(), int64_t(units.size()));
      break;
    }
    case 2: {  // UCS-2 big-endian: even count, no surrogates
      valid = n % 2 == 0;
      for (size_t i = 0; valid && i + 1 < n; i += 2) {
        const uint32_t u = uint32_t(text[i]) << 8 | text[i + 1];
        if (IsSurrogate(u)) valid = false;
        cps.push_back(u);
      }
      s = orlix_ustring_newbmp(text, int64_t(n));
      break;
    }
    case 3: {  // UTF-32 big-endian: a multiple of 4, scalar values only
      valid = n % 4 == 0;
      for (size_t i = 0; valid && i + 3 < n; i += 4) {
        const uint32_t v = uint32_t(text[i]) << 24 | uint32_t(text[i + 1]) << 16 |
                           uint32_t(text[i + 2]) << 8 | text[i + 3];
        if (!IsScalar(v)) valid = false;
        cps.push_back(v);
      }
      s = orlix_ustring_newutf32be(text, int64_t(n));
      break;
    }
    case 4: {  // 64-bit code points: 3 low bytes, the 4th (when set) far above
      std::vector<uint64_t> values(n / 4);
      for (size_t i = 0; i < values.size(); ++i) {
        uint64_t v = text[4 * i] | uint64_t(text[4 * i + 1]) << 8 | uint64_t(text[4 * i + 2]) << 16;
        v &= (p2 & 1) ? 0xFFFFFF : 0x1FFFFF;
        if (text[4 * i + 3] >= 0xF0) v |= uint64_t(text[4 * i + 3]) << 32;
        values[i] = v;
        if (!IsScalar(v)) valid = false;
        cps.push_back(uint32_t(v));
      }
      s = orlix_ustring_newutf32(values.data(), int64_t(values.size()));
      break;
    }
    default: {  // ASCII
      for (size_t i = 0; i < n; ++i) {
        if (text[i] >= 0x80) valid = false;
        cps.push_back(text[i]);
      }
      s = orlix_ustring_newascii(reinterpret_cast<const char *>(text), int64_t(n));
      break;
    }
  }
  FUZZ_CHECK((s != nullptr) == valid, "constructor %u %s the input", which,
             s ? "accepted" : "refused");
  if (s == nullptr) return 0;

  CheckConversions(s, cps);
  if (which == 0) {
    char *back = nullptr;
    int64_t count = -1;
    FUZZ_CHECK(orlix_ustring_toutf8(s, &back, &count) == 1);
    FUZZ_CHECK(count == int64_t(n) && fuzz::SameBytes(back, text, n), "UTF-8 round trip");
    orlix_free(back);
  }
  if (which == 2 || which == 3) {
    unsigned char *back = nullptr;
    int64_t count = -1;
    const int ok = which == 2 ? orlix_ustring_tobmp(s, &back, &count)
                              : orlix_ustring_toutf32be(s, &back, &count);
    FUZZ_CHECK(ok == 1 && count == int64_t(n) && fuzz::SameBytes(back, text, n), "round trip");
    orlix_free(back);
  }
  CheckFind(s, cps, p1, p2);
  CheckCmp(cps, p1);
  orlix_ustring_free(s);
  return 0;
}
