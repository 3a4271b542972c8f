// Bulk UTF-8 <-> UTF-16 transcoding.
//
// Validation and decoding are separate passes: the validator says yes or no
// for the whole input (a failed constructor has no partial result to keep),
// and the decoder then trusts its input. The SSSE3 validator classifies every
// pair of adjacent bytes with three nibble look-ups and checks the
// continuation bytes a three- or four-byte lead requires. The SSSE3 decoder
// takes a 64-byte window, marks where characters end, and converts up to 12
// bytes at a time with one byte shuffle chosen by the pattern of character
// ends: six characters of one or two bytes, or four of up to three bytes.
// The encoder turns eight units at a time into UTF-8 when none of them is a
// surrogate, again with a shuffle chosen by the characters' lengths.
#include "ustring/ORLIX_UString_UTF8.hpp"

#include <bit>
#include <cstring>

#include "ustring/ORLIX_UString.hpp"

#if defined(__x86_64__) || defined(__i386__)
#define ORLIX_UTF8_SSSE3 1
#include <tmmintrin.h>
#endif

namespace orlix::utf8 {
namespace {

// ---------------------------------------------------------------------------
// Portable forms

bool validate_scalar(const unsigned char *in, int64_t n) {
  // Second-byte ranges exclude overlong forms, encoded surrogates and values
  // above U+10FFFF.
  const auto cont = [](unsigned char c) { return (c & 0xC0) == 0x80; };
  int64_t i = 0;
  while (i < n) {
    while (i + 16 <= n) {
      uint64_t a;
      uint64_t b;
      std::memcpy(&a, in + i, 8);
      std::memcpy(&b, in + i + 8, 8);
      if (((a | b) & 0x8080808080808080ull) != 0) break;
      i += 16;
    }
    if (i >= n) break;
    const unsigned char c = in[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    const int64_t left = n - i;
    if (c >= 0xC2 && c <= 0xDF) {
      if (left < 2 || !cont(in[i + 1])) return false;
      i += 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      if (left < 3 || !cont(in[i + 1]) || !cont(in[i + 2])) return false;
      if (c == 0xE0 && in[i + 1] < 0xA0) return false;   // overlong
      if (c == 0xED && in[i + 1] >= 0xA0) return false;  // a surrogate
      i += 3;
    } else if (c >= 0xF0 && c <= 0xF4) {
      if (left < 4 || !cont(in[i + 1]) || !cont(in[i + 2]) || !cont(in[i + 3])) return false;
      if (c == 0xF0 && in[i + 1] < 0x90) return false;   // overlong
      if (c == 0xF4 && in[i + 1] >= 0x90) return false;  // above U+10FFFF
      i += 4;
    } else {
      return false;  // a continuation byte, C0, C1 or F5..FF
    }
  }
  return true;
}

// Decodes the valid character starting at in[0] into out; returns its byte
// length and adds the units written to *units.
inline int decode_one(const unsigned char *in, uint16_t *out, int64_t *units, int64_t *pairs) {
  const uint32_t b = in[0];
  if (b < 0x80) {
    out[(*units)++] = static_cast<uint16_t>(b);
    return 1;
  }
  if (b < 0xE0) {
    out[(*units)++] = static_cast<uint16_t>((b & 0x1F) << 6 | (in[1] & 0x3F));
    return 2;
  }
  if (b < 0xF0) {
    out[(*units)++] =
        static_cast<uint16_t>((b & 0x0F) << 12 | (in[1] & 0x3F) << 6 | (in[2] & 0x3F));
    return 3;
  }
  const uint32_t cp =
      (b & 0x07) << 18 | (in[1] & 0x3F) << 12 | (in[2] & 0x3F) << 6 | (in[3] & 0x3F);
  out[(*units)++] = static_cast<uint16_t>(0xD7C0 + (cp >> 10));
  out[(*units)++] = static_cast<uint16_t>(0xDC00 | (cp & 0x3FF));
  ++*pairs;
  return 4;
}

int64_t decode_scalar(const unsigned char *in, int64_t n, uint16_t *out, int64_t *pairs) {
  int64_t i = 0;
  int64_t u = 0;
  while (i < n) {
    while (i + 8 <= n) {
      uint64_t word;
      std::memcpy(&word, in + i, 8);
      if ((word & 0x8080808080808080ull) != 0) break;
      for (int k = 0; k < 8; ++k) out[u + k] = in[i + k];
      u += 8;
      i += 8;
    }
    if (i < n) i += decode_one(in + i, out, &u, pairs);
  }
  return u;
}

// Encodes the character whose first unit is d[i] (d[length] is readable and
// 0) at out + *n; false for a surrogate outside a high-low pair.
inline bool encode_one(const uint16_t *d, int64_t &i, int64_t length, unsigned char *out,
                       int64_t *n) {
  uint32_t u = d[i++];
  unsigned char *o = out + *n;
  if (u < 0x80) {
    o[0] = static_cast<unsigned char>(u);
    *n += 1;
  } else if (u < 0x800) {
    o[0] = static_cast<unsigned char>(0xC0 | u >> 6);
    o[1] = static_cast<unsigned char>(0x80 | (u & 0x3F));
    *n += 2;
  } else if (!utf16::is_surrogate(u)) {
    o[0] = static_cast<unsigned char>(0xE0 | u >> 12);
    o[1] = static_cast<unsigned char>(0x80 | (u >> 6 & 0x3F));
    o[2] = static_cast<unsigned char>(0x80 | (u & 0x3F));
    *n += 3;
  } else {
    if (!utf16::is_high(u) || i >= length || !utf16::is_low(d[i])) return false;
    u = utf16::combine(u, d[i++]);
    o[0] = static_cast<unsigned char>(0xF0 | u >> 18);
    o[1] = static_cast<unsigned char>(0x80 | (u >> 12 & 0x3F));
    o[2] = static_cast<unsigned char>(0x80 | (u >> 6 & 0x3F));
    o[3] = static_cast<unsigned char>(0x80 | (u & 0x3F));
    *n += 4;
  }
  return true;
}

int64_t encode_scalar(const uint16_t *d, int64_t i, int64_t length, unsigned char *out, int64_t n) {
  while (i < length) {
    while (i + 4 <= length) {
      uint64_t word;
      std::memcpy(&word, d + i, 8);
      if ((word & 0xFF80FF80FF80FF80ull) != 0) break;
      for (int k = 0; k < 4; ++k) out[n + k] = static_cast<unsigned char>(d[i + k]);
      n += 4;
      i += 4;
    }
    if (i < length && !encode_one(d, i, length, out, &n)) return -1;
  }
  return n;
}

#if defined(ORLIX_UTF8_SSSE3)

// ---------------------------------------------------------------------------
// Shuffle tables, computed at compile time.

// Decoding. A 12-bit mask of character ends (bit k: byte k is the last byte
// of a character) names a pattern. When its first six characters are one or
// two bytes long, kind is 0..63 (bit j: character j has two bytes) and the
// shuffle puts character j in 16-bit lane j, last byte low. Otherwise, when
// its first four are at most three bytes long, kind is 64 + a base-3 number
// of their lengths and the shuffle puts character j in 32-bit lane j, last
// byte lowest. Any other pattern (a four-byte character early on) has kind
// 255 and is decoded one character at a time.
struct DecodeTables {
  uint8_t kind[4096];
  uint8_t consumed[4096];
  uint8_t shuffle[145][16];
};

constexpr DecodeTables make_decode_tables() {
  DecodeTables t{};
  for (int c = 0; c < 64; ++c) {
    for (int k = 0; k < 16; ++k) t.shuffle[c][k] = 0x80;
    int start = 0;
    for (int j = 0; j < 6; ++j) {
      const int len = (c >> j & 1) ? 2 : 1;
      t.shuffle[c][2 * j] = static_cast<uint8_t>(start + len - 1);
      if (len == 2) t.shuffle[c][2 * j + 1] = static_cast<uint8_t>(start);
      start += len;
    }
  }
  for (int c = 0; c < 81; ++c) {
    uint8_t *row = t.shuffle[64 + c];
    for (int k = 0; k < 16; ++k) row[k] = 0x80;
    int start = 0;
    int code = c;
    for (int j = 0; j < 4; ++j) {
      const int len = code % 3 + 1;
      code /= 3;
      for (int b = 0; b < len; ++b) row[4 * j + b] = static_cast<uint8_t>(start + len - 1 - b);
      start += len;
    }
  }
  for (int m = 0; m < 4096; ++m) {
    int lens[12] = {};
    int count = 0;
    int start = 0;
    for (int b = 0; b < 12; ++b) {
      if ((m >> b & 1) == 0) continue;
      lens[count++] = b - start + 1;
      start = b + 1;
    }
    bool short6 = count >= 6;
    for (int j = 0; short6 && j < 6; ++j) short6 = lens[j] <= 2;
    bool short4 = count >= 4;
    for (int j = 0; short4 && j < 4; ++j) short4 = lens[j] <= 3;
    int kind = 255;
    int used = 0;
    if (short6) {
      kind = 0;
      for (int j = 0; j < 6; ++j) {
        kind |= (lens[j] == 2) << j;
        used += lens[j];
      }
    } else if (short4) {
      kind = 0;
      for (int j = 3; j >= 0; --j) {
        kind = kind * 3 + lens[j] - 1;
        used += lens[j];
      }
      kind += 64;
    }
    t.kind[m] = static_cast<uint8_t>(kind);
    t.consumed[m] = static_cast<uint8_t>(used);
  }
  return t;
}

constexpr DecodeTables kDecode = make_decode_tables();

// Encoding. Four code points below U+10000 sit in 32-bit lanes, each already
// in its UTF-8 form (first byte lowest). The index holds four bits "one
// byte" and above them four bits "at most two bytes"; the shuffle packs the
// used bytes of the lanes together.
struct EncodeTables {
  uint8_t length[256];
  uint8_t shuffle[256][16];
};

constexpr EncodeTables make_encode_tables() {
  EncodeTables t{};
  for (int m = 0; m < 256; ++m) {
    int n = 0;
    for (int k = 0; k < 16; ++k) t.shuffle[m][k] = 0x80;
    for (int j = 0; j < 4; ++j) {
      const int len = (m >> j & 1) ? 1 : (m >> (4 + j) & 1) ? 2 : 3;
      for (int b = 0; b < len; ++b) t.shuffle[m][n++] = static_cast<uint8_t>(4 * j + b);
    }
    t.length[m] = static_cast<uint8_t>(n);
  }
  return t;
}

constexpr EncodeTables kEncode = make_encode_tables();

#define ORLIX_SSSE3 __attribute__((target("ssse3")))

ORLIX_SSSE3 inline __m128i load16(const void *p) {
  return _mm_loadu_si128(static_cast<const __m128i *>(p));
}

ORLIX_SSSE3 inline void store16(void *p, __m128i v) {
  _mm_storeu_si128(static_cast<__m128i *>(p), v);
}

// The bytes of v widened to 16 units at out.
ORLIX_SSSE3 inline void widen16(__m128i v, uint16_t *out) {
  const __m128i zero = _mm_setzero_si128();
  store16(out, _mm_unpacklo_epi8(v, zero));
  store16(out + 8, _mm_unpackhi_epi8(v, zero));
}

// ---------------------------------------------------------------------------
// Validation

// Error classes of a byte and the byte before it. The three look-ups (high
// nibble of the earlier byte, its low nibble, high nibble of the later byte)
// each give the classes the nibble allows; a pair is in a class when all
// three agree.
constexpr uint8_t kTooShort = 1 << 0;      // a lead followed by a non-continuation
constexpr uint8_t kTooLong = 1 << 1;       // ASCII followed by a continuation
constexpr uint8_t kOverlong3 = 1 << 2;     // E0 80..9F
constexpr uint8_t kTooLarge = 1 << 3;      // F4 90..BF, F5..FF 90..BF
constexpr uint8_t kSurrogate = 1 << 4;     // ED A0..BF
constexpr uint8_t kOverlong2 = 1 << 5;     // C0/C1 then a continuation
constexpr uint8_t kTooLarge1000 = 1 << 6;  // F5..FF 80..8F
constexpr uint8_t kOverlong4 = 1 << 6;     // F0 80..8F
constexpr uint8_t kTwoConts = 1 << 7;      // two continuation bytes: an error unless
                                           // a three- or four-byte lead requires it
constexpr uint8_t kCarry = kTooShort | kTooLong | kTwoConts;

struct Validator {
  __m128i error;
  __m128i prev;  // the 16 bytes before the current ones

  ORLIX_SSSE3 static __m128i high_nibbles(__m128i v) {
    return _mm_and_si128(_mm_srli_epi16(v, 4), _mm_set1_epi8(0x0F));
  }

  ORLIX_SSSE3 void check(__m128i input) {
    const __m128i prev1 = _mm_alignr_epi8(input, prev, 15);
    const __m128i byte_1_high = _mm_shuffle_epi8(
        _mm_setr_epi8(kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong, kTooLong,
                      kTooLong, kTwoConts, kTwoConts, kTwoConts, kTwoConts, kTooShort | kOverlong2,
                      kTooShort, kTooShort | kOverlong3 | kSurrogate,
                      static_cast<char>(kTooShort | kTooLarge | kTooLarge1000 | kOverlong4)),
        high_nibbles(prev1));
    constexpr uint8_t kLarge = kCarry | kTooLarge | kTooLarge1000;
    const __m128i byte_1_low = _mm_shuffle_epi8(
        _mm_setr_epi8(static_cast<char>(kCarry | kOverlong3 | kOverlong2 | kOverlong4),
                      static_cast<char>(kCarry | kOverlong2), static_cast<char>(kCarry),
                      static_cast<char>(kCarry), static_cast<char>(kCarry | kTooLarge),
                      static_cast<char>(kLarge), static_cast<char>(kLarge),
                      static_cast<char>(kLarge), static_cast<char>(kLarge),
                      static_cast<char>(kLarge), static_cast<char>(kLarge),
                      static_cast<char>(kLarge), static_cast<char>(kLarge),
                      static_cast<char>(kLarge | kSurrogate), static_cast<char>(kLarge),
                      static_cast<char>(kLarge)),
        _mm_and_si128(prev1, _mm_set1_epi8(0x0F)));
    constexpr uint8_t kCont = kTooLong | kOverlong2 | kTwoConts;
    const __m128i byte_2_high = _mm_shuffle_epi8(
        _mm_setr_epi8(kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort, kTooShort,
                      kTooShort, static_cast<char>(kCont | kOverlong3 | kTooLarge1000 | kOverlong4),
                      static_cast<char>(kCont | kOverlong3 | kTooLarge),
                      static_cast<char>(kCont | kSurrogate | kTooLarge),
                      static_cast<char>(kCont | kSurrogate | kTooLarge), kTooShort, kTooShort,
                      kTooShort, kTooShort),
        high_nibbles(input));
    const __m128i pair_errors = _mm_and_si128(_mm_and_si128(byte_1_high, byte_1_low), byte_2_high);
    // Third and fourth bytes: two bytes after a lead of three or more, or
    // three after a lead of four, a continuation is required (and the pair
    // check above reported it as kTwoConts).
    const __m128i prev2 = _mm_alignr_epi8(input, prev, 14);
    const __m128i prev3 = _mm_alignr_epi8(input, prev, 13);
    const __m128i third = _mm_subs_epu8(prev2, _mm_set1_epi8(0xE0 - 0x80));
    const __m128i fourth = _mm_subs_epu8(prev3, _mm_set1_epi8(0xF0 - 0x80));
    const __m128i must =
        _mm_and_si128(_mm_or_si128(third, fourth), _mm_set1_epi8(static_cast<char>(0x80)));
    error = _mm_or_si128(error, _mm_xor_si128(must, pair_errors));
    prev = input;
  }

  // For a block of ASCII: the only possible error is a sequence left
  // unfinished at the end of the previous bytes.
  ORLIX_SSSE3 void check_ascii(__m128i input) {
    const __m128i last = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                       static_cast<char>(0xF0 - 1), static_cast<char>(0xE0 - 1),
                                       static_cast<char>(0xC0 - 1));
    error = _mm_or_si128(error, _mm_subs_epu8(prev, last));
    prev = input;
  }

  ORLIX_SSSE3 bool ok() const {
    return _mm_movemask_epi8(_mm_cmpeq_epi8(error, _mm_setzero_si128())) == 0xFFFF;
  }
};

ORLIX_SSSE3 bool validate_ssse3(const unsigned char *in, int64_t n) {
  Validator v{_mm_setzero_si128(), _mm_setzero_si128()};
  int64_t i = 0;
  for (; i + 64 <= n; i += 64) {
    const __m128i a = load16(in + i);
    const __m128i b = load16(in + i + 16);
    const __m128i c = load16(in + i + 32);
    const __m128i d = load16(in + i + 48);
    if (_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) == 0) {
      v.check_ascii(d);
      continue;
    }
    v.check(a);
    v.check(b);
    v.check(c);
    v.check(d);
  }
  for (; i + 16 <= n; i += 16) v.check(load16(in + i));
  if (!v.ok()) return false;
  // The rest, from the start of the character that may run past byte i.
  int64_t from = i;
  for (int64_t k = i - 1; k >= 0 && k >= i - 3; --k) {
    if (in[k] < 0x80) break;
    if (in[k] >= 0xC0) {
      from = k;
      break;
    }
  }
  return validate_scalar(in + from, n - from);
}

// ---------------------------------------------------------------------------
// Decoding

// Bit k set when in[k] is not a continuation byte, for k in 0..63.
ORLIX_SSSE3 inline uint64_t lead_mask(__m128i a, __m128i b, __m128i c, __m128i d) {
  const __m128i last_cont = _mm_set1_epi8(static_cast<char>(0xBF));
  const auto bits = [&](__m128i v) {
    return uint64_t{static_cast<uint16_t>(_mm_movemask_epi8(_mm_cmpgt_epi8(v, last_cont)))};
  };
  return bits(a) | bits(b) << 16 | bits(c) << 32 | bits(d) << 48;
}

ORLIX_SSSE3 int64_t decode_ssse3(const unsigned char *in, int64_t n, uint16_t *out,
                                 int64_t *pairs) {
  const __m128i pack32 = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1);
  int64_t i = 0;
  int64_t u = 0;
  while (i + 64 <= n) {
    const unsigned char *w = in + i;
    const __m128i a = load16(w);
    const __m128i b = load16(w + 16);
    const __m128i c = load16(w + 32);
    const __m128i d = load16(w + 48);
    if (_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) == 0) {
      widen16(a, out + u);
      widen16(b, out + u + 16);
      widen16(c, out + u + 32);
      widen16(d, out + u + 48);
      i += 64;
      u += 64;
      continue;
    }
    // Bit k: byte k ends a character. Byte 63's bit is unknown and unused:
    // conversion stops before offset 48, and looks at most 16 bytes ahead.
    const uint64_t ends = lead_mask(a, b, c, d) >> 1;
    int p = 0;
    while (p < 48) {
      const uint64_t e = ends >> p;
      const __m128i x = load16(w + p);
      if ((e & 0xFFFF) == 0xFFFF) {  // sixteen one-byte characters
        widen16(x, out + u);
        p += 16;
        u += 16;
        continue;
      }
      const unsigned m = static_cast<unsigned>(e & 0xFFF);
      const unsigned kind = kDecode.kind[m];
      if (kind < 64) {
        const __m128i perm = _mm_shuffle_epi8(x, load16(kDecode.shuffle[kind]));
        const __m128i low = _mm_and_si128(perm, _mm_set1_epi16(0x007F));
        const __m128i high = _mm_and_si128(perm, _mm_set1_epi16(0x1F00));
        store16(out + u, _mm_or_si128(low, _mm_srli_epi16(high, 2)));
        u += 6;
        p += kDecode.consumed[m];
      } else if (kind < 145) {
        const __m128i perm = _mm_shuffle_epi8(x, load16(kDecode.shuffle[kind]));
        const __m128i low = _mm_and_si128(perm, _mm_set1_epi32(0x7F));
        const __m128i middle = _mm_and_si128(perm, _mm_set1_epi32(0x3F00));
        const __m128i high = _mm_and_si128(perm, _mm_set1_epi32(0x0F0000));
        const __m128i v =
            _mm_or_si128(low, _mm_or_si128(_mm_srli_epi32(middle, 2), _mm_srli_epi32(high, 4)));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + u), _mm_shuffle_epi8(v, pack32));
        u += 4;
        p += kDecode.consumed[m];
      } else {
        p += decode_one(w + p, out, &u, pairs);
      }
    }
    i += p;
  }
  return u + decode_scalar(in + i, n - i, out + u, pairs);
}

// ---------------------------------------------------------------------------
// Encoding

// Four code points below U+10000 in 32-bit lanes, none a surrogate, written
// as UTF-8 at out (16 bytes are stored); returns the bytes that count.
ORLIX_SSSE3 inline int encode4(__m128i cp, unsigned char *out) {
  const __m128i one = _mm_cmplt_epi32(cp, _mm_set1_epi32(0x80));
  const __m128i two = _mm_cmplt_epi32(cp, _mm_set1_epi32(0x800));
  // 110xxxxx 10xxxxxx
  const __m128i form2 =
      _mm_or_si128(_mm_or_si128(_mm_srli_epi32(cp, 6),
                                _mm_and_si128(_mm_slli_epi32(cp, 8), _mm_set1_epi32(0x3F00))),
                   _mm_set1_epi32(0x80C0));
  // 1110xxxx 10xxxxxx 10xxxxxx
  const __m128i form3 =
      _mm_or_si128(_mm_or_si128(_mm_srli_epi32(cp, 12),
                                _mm_and_si128(_mm_slli_epi32(cp, 2), _mm_set1_epi32(0x3F00))),
                   _mm_or_si128(_mm_and_si128(_mm_slli_epi32(cp, 16), _mm_set1_epi32(0x3F0000)),
                                _mm_set1_epi32(0x8080E0)));
  const __m128i forms = _mm_or_si128(
      _mm_and_si128(one, cp),
      _mm_or_si128(_mm_and_si128(_mm_andnot_si128(one, two), form2), _mm_andnot_si128(two, form3)));
  const unsigned index = static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(one))) |
                         static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(two))) << 4;
  store16(out, _mm_shuffle_epi8(forms, load16(kEncode.shuffle[index])));
  return kEncode.length[index];
}

ORLIX_SSSE3 int64_t encode_ssse3(const uint16_t *d, int64_t length, unsigned char *out) {
  const __m128i zero = _mm_setzero_si128();
  int64_t i = 0;
  int64_t n = 0;
  // Sixteen units left keep every 16-byte store inside the 3 x length + 1
  // bytes: at most 3 bytes per unit have been written before it.
  while (i + 16 <= length) {
    const __m128i x = load16(d + i);
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(x, _mm_set1_epi16(-0x80)), zero)) ==
        0xFFFF) {
      _mm_storel_epi64(reinterpret_cast<__m128i *>(out + n), _mm_packus_epi16(x, x));
      i += 8;
      n += 8;
      continue;
    }
    const __m128i surrogate = _mm_cmpeq_epi16(_mm_and_si128(x, _mm_set1_epi16(-0x800)),
                                              _mm_set1_epi16(-0x2800));  // 0xD800
    if (_mm_movemask_epi8(surrogate) == 0) {
      n += encode4(_mm_unpacklo_epi16(x, zero), out + n);
      n += encode4(_mm_unpackhi_epi16(x, zero), out + n);
      i += 8;
      continue;
    }
    const int64_t stop = i + 8;
    while (i < stop) {
      if (!encode_one(d, i, length, out, &n)) return -1;
    }
  }
  return encode_scalar(d, i, length, out, n);
}

#undef ORLIX_SSSE3

// Whether the SSSE3 forms run: decided once from the processor, and
// switchable off so that tests can run the portable forms on any machine.
bool &use_ssse3() {
  static bool use = __builtin_cpu_supports("ssse3");
  return use;
}

bool have_ssse3() { return use_ssse3(); }

#endif  // ORLIX_UTF8_SSSE3

}  // namespace

bool use_vector_forms(bool on) {
#if defined(ORLIX_UTF8_SSSE3)
  const bool was = use_ssse3();
  use_ssse3() = on && __builtin_cpu_supports("ssse3");
  return was;
#else
  (void)on;
  return false;
#endif
}

bool validate(const unsigned char *in, int64_t n) {
#if defined(ORLIX_UTF8_SSSE3)
  if (have_ssse3()) return validate_ssse3(in, n);
#endif
  return validate_scalar(in, n);
}

int64_t decode_valid(const unsigned char *in, int64_t n, uint16_t *out, int64_t *pairs) {
  *pairs = 0;
#if defined(ORLIX_UTF8_SSSE3)
  if (have_ssse3()) return decode_ssse3(in, n, out, pairs);
#endif
  return decode_scalar(in, n, out, pairs);
}

int64_t encode_utf16(const uint16_t *units, int64_t length, unsigned char *out) {
#if defined(ORLIX_UTF8_SSSE3)
  if (have_ssse3()) return encode_ssse3(units, length, out);
#endif
  return encode_scalar(units, 0, length, out, 0);
}

}  // namespace orlix::utf8
