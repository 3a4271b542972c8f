// SSSE3 and AVX2 forms of base64 decoding and encoding over runs of whole
// groups.
//
// Decoding classifies each character by its two nibbles: a table indexed
// by the low nibble holds, as a bit per high nibble, which characters are
// digits of the alphabet, so one AND of two byte shuffles validates 16
// characters. The digit value is the character plus an offset chosen by its
// high nibble, except for the one character whose offset differs from the
// rest of its nibble row ("/" or "_"). Two multiply-adds then pack four
// 6-bit values into three bytes. Encoding runs the same steps backwards:
// a shuffle puts the bytes of each group where two multiplies can cut out
// the four 6-bit indices, and a 16-entry table of offsets turns indices into
// characters. All tables are computed from the alphabets below and checked
// against them at compile time.
#include "stream/ORLIX_Stream_Base64_Vector.hpp"

#include <immintrin.h>

#include <cstring>

#include "ORLIX_Stream.h"

namespace orlix::base64 {

namespace {

constexpr int kWsEol = ORLIX_BASE64_WS_EOL;
constexpr int kWsAll = ORLIX_BASE64_WS_ALL;

constexpr char kStd[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUrl[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

struct Tables {
  // decoding
  unsigned char valid_by_low[16];  // bit h set: (h << 4 | low) is a digit (h < 8)
  unsigned char offset_by_high[16];
  unsigned char special;         // the digit whose offset is not its row's
  unsigned char special_offset;
  // encoding: offsets added to the reduced index (see encode_block)
  unsigned char char_offset[16];
};

constexpr int value_of(const char *alphabet, unsigned c) {
  for (int i = 0; i < 64; ++i)
    if (static_cast<unsigned char>(alphabet[i]) == c) return i;
  return -1;
}

constexpr Tables make_tables(const char *alphabet, unsigned char special) {
  Tables t{};
  for (unsigned c = 0; c < 128; ++c) {
    const int v = value_of(alphabet, c);
    if (v < 0) continue;
    t.valid_by_low[c & 15] = static_cast<unsigned char>(t.valid_by_low[c & 15] | 1u << (c >> 4));
    const auto offset = static_cast<unsigned char>(v - static_cast<int>(c));
    if (c == special) t.special_offset = offset;
    else t.offset_by_high[c >> 4] = offset;
  }
  t.special = special;
  // Reduced indices: 0 for 26..51, 1..10 for 52..61, 11 for 62, 12 for 63,
  // 13 for 0..25.
  t.char_offset[0] = static_cast<unsigned char>(alphabet[26] - 26);
  for (int i = 1; i <= 10; ++i) t.char_offset[i] = static_cast<unsigned char>(alphabet[52] - 52);
  t.char_offset[11] = static_cast<unsigned char>(alphabet[62] - 62);
  t.char_offset[12] = static_cast<unsigned char>(alphabet[63] - 63);
  t.char_offset[13] = static_cast<unsigned char>(alphabet[0]);
  return t;
}

// What the vector steps compute for one character and one index, done the
// scalar way: the compile-time proof that the tables are right.
constexpr bool tables_agree(const char *alphabet, const Tables &t) {
  for (unsigned c = 0; c < 256; ++c) {
    const unsigned high = c >> 4;
    const unsigned bit = high < 8 ? 1u << high : 0u;
    const bool valid = (t.valid_by_low[c & 15] & bit) != 0;
    const int v = c < 128 ? value_of(alphabet, c) : -1;
    if (valid != (v >= 0)) return false;
    const unsigned offset = c == t.special ? t.special_offset : t.offset_by_high[high];
    if (valid && ((c + offset) & 0xFF) != static_cast<unsigned>(v)) return false;
  }
  for (unsigned i = 0; i < 64; ++i) {
    unsigned reduced = i > 51 ? i - 51 : 0;
    if (i < 26) reduced |= 13;
    if (((t.char_offset[reduced] + i) & 0xFF) != static_cast<unsigned char>(alphabet[i])) return false;
  }
  return true;
}

constexpr Tables kStdTables = make_tables(kStd, '/');
constexpr Tables kUrlTables = make_tables(kUrl, '_');
static_assert(tables_agree(kStd, kStdTables));
static_assert(tables_agree(kUrl, kUrlTables));

#define ORLIX_SSSE3 __attribute__((target("ssse3")))
#define ORLIX_AVX2 __attribute__((target("avx2")))

inline __m128i load16(const unsigned char *p) {
  __m128i v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// ---- SSSE3 ------------------------------------------------------------------

// Byte shuffles for squeezing whitespace out of a block and for joining the
// digits that remain to those waiting from earlier blocks (0x80 clears a
// byte).
struct ShuffleTables {
  unsigned char compress[256][8];  // mask of 8 bytes -> its set bytes first, in order
  unsigned char count[256];        // bits set in the mask
  unsigned char join[9][16];       // lanes 0..k-1 stay, lanes 8.. move down to k
  unsigned char up[17][16];        // lane i takes lane i - k
  unsigned char down[17][16];      // lane i takes lane i + k
};
constexpr ShuffleTables make_shuffle_tables() {
  ShuffleTables t{};
  for (int m = 0; m < 256; ++m) {
    int k = 0;
    for (int b = 0; b < 8; ++b)
      if (m >> b & 1) t.compress[m][k++] = static_cast<unsigned char>(b);
    t.count[m] = static_cast<unsigned char>(k);
    for (; k < 8; ++k) t.compress[m][k] = 0x80;
  }
  for (int k = 0; k <= 8; ++k)
    for (int i = 0; i < 16; ++i)
      t.join[k][i] = static_cast<unsigned char>(i < k ? i : (8 + i - k < 16 ? 8 + i - k : 0x80));
  for (int k = 0; k <= 16; ++k)
    for (int i = 0; i < 16; ++i) {
      t.up[k][i] = static_cast<unsigned char>(i >= k ? i - k : 0x80);
      t.down[k][i] = static_cast<unsigned char>(i + k < 16 ? i + k : 0x80);
    }
  return t;
}
constexpr ShuffleTables kShuffle = make_shuffle_tables();

// The digit values of 16 characters and the masks of digits and of allowed
// whitespace among them.
struct Classified {
  __m128i values;
  unsigned digits;
  unsigned blanks;
};

ORLIX_SSSE3 inline Classified classify(const Tables &t, __m128i v, int ws_mode) {
  const __m128i nibble = _mm_set1_epi8(0x0F);
  const __m128i high = _mm_and_si128(_mm_srli_epi32(v, 4), nibble);
  const __m128i low = _mm_and_si128(v, nibble);
  const __m128i bits = _mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 0, 0, 0, 0, 0, 0, 0, 0);
  const __m128i valid =
      _mm_and_si128(_mm_shuffle_epi8(load16(t.valid_by_low), low), _mm_shuffle_epi8(bits, high));
  const unsigned digits =
      ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(valid, _mm_setzero_si128()))) &
      0xFFFFu;
  unsigned blanks = 0;
  if (digits != 0xFFFFu && ws_mode >= kWsEol) {
    __m128i ws = _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('\r')),
                              _mm_cmpeq_epi8(v, _mm_set1_epi8('\n')));
    if (ws_mode >= kWsAll)
      ws = _mm_or_si128(ws, _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('\t')),
                                         _mm_cmpeq_epi8(v, _mm_set1_epi8(' '))));
    blanks = static_cast<unsigned>(_mm_movemask_epi8(ws));
  }
  const __m128i is_special = _mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(t.special)));
  const __m128i offset =
      _mm_or_si128(_mm_andnot_si128(is_special, _mm_shuffle_epi8(load16(t.offset_by_high), high)),
                   _mm_and_si128(is_special, _mm_set1_epi8(static_cast<char>(t.special_offset))));
  return {_mm_add_epi8(v, offset), digits, blanks};
}

// Packs 16 digit values into 12 bytes (16 are written).
ORLIX_SSSE3 inline void pack(__m128i values, unsigned char *out) {
  // aaaaaa bbbbbb -> 12 bits per 16-bit lane, then 24 bits per 32-bit lane.
  const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
  const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
  const __m128i bytes =
      _mm_shuffle_epi8(groups, _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
  _mm_storeu_si128(reinterpret_cast<__m128i *>(out), bytes);
}

// The run decoder's state: digit values waiting for a whole block of 16,
// in the low lanes of a register.
struct Run {
  __m128i staged;
  int count = 0;
};

// Adds the first n digit values of `values` to the run, packing a whole
// block of 16 when one fills.
ORLIX_SSSE3 inline void stage(Run &run, __m128i values, int n, unsigned char *&out) {
  const __m128i joined =
      _mm_or_si128(run.staged, _mm_shuffle_epi8(values, load16(kShuffle.up[run.count])));
  const int total = run.count + n;
  if (total < 16) {
    run.staged = joined;
    run.count = total;
    return;
  }
  pack(joined, out);
  out += 12;
  run.staged = _mm_shuffle_epi8(values, load16(kShuffle.down[16 - run.count]));
  run.count = total - 16;
}

// Takes characters from a block of 16: digits and allowed whitespace only,
// else nothing (0). Whole blocks of 16 values are packed to out. Returns
// how many characters were taken: 16, or fewer when whitespace falls
// between whole groups (a line break, mostly). Then the digits before it
// are packed, the whitespace is passed over, and the next block starts a
// group, so that it can go the fast way again.
ORLIX_SSSE3 inline int take_block(const Tables &t, const unsigned char *in, int ws_mode, Run &run,
                                  unsigned char *&out) {
  const Classified c = classify(t, _mm_loadu_si128(reinterpret_cast<const __m128i *>(in)), ws_mode);
  if (c.digits == 0xFFFFu) {
    if (run.count == 0) {
      pack(c.values, out);
      out += 12;
    } else {
      stage(run, c.values, 16, out);
    }
    return 16;
  }
  if ((c.digits | c.blanks) != 0xFFFFu) return 0;
  const int first_blank = __builtin_ctz(~c.digits);
  if ((run.count + first_blank) % 4 == 0) {
    const __m128i before = _mm_cmpgt_epi8(_mm_set1_epi8(static_cast<char>(first_blank)),
                                          _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12,
                                                        13, 14, 15));
    stage(run, _mm_and_si128(c.values, before), first_blank, out);
    if (run.count > 0) {  // whole groups: 3 bytes for every 4 values
      pack(run.staged, out);
      out += run.count / 4 * 3;
      run.staged = _mm_setzero_si128();
      run.count = 0;
    }
    // Bits above the block are clear in `blanks`, so the count stops there.
    return first_blank + __builtin_ctz(~(c.blanks >> first_blank));
  }
  // Whitespace inside a group: squeeze it out, each half to its front, then
  // the halves together.
  const unsigned lo = c.digits & 0xFF;
  const unsigned hi = c.digits >> 8;
  const __m128i order = _mm_unpacklo_epi64(
      _mm_loadl_epi64(reinterpret_cast<const __m128i *>(kShuffle.compress[lo])),
      _mm_add_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(kShuffle.compress[hi])),
                   _mm_set1_epi8(8)));
  const __m128i values =
      _mm_shuffle_epi8(_mm_shuffle_epi8(c.values, order), load16(kShuffle.join[kShuffle.count[lo]]));
  stage(run, values, kShuffle.count[lo] + kShuffle.count[hi], out);
  return 16;
}

// Where decoding goes on after a run that stopped at `at` with run.count
// digits not packed: at the first of them, with everything before it taken.
int64_t resume_point(const Tables &t, const unsigned char *in, int64_t at, int count) {
  while (count > 0) {
    const unsigned c = in[--at];
    const unsigned bit = c >> 4 < 8 ? 1u << (c >> 4) : 0u;
    if (t.valid_by_low[c & 15] & bit) --count;
  }
  return at;
}

ORLIX_SSSE3 int64_t decode_ssse3(const Tables &t, const unsigned char *in, int64_t n,
                                 unsigned char *out, int ws_mode, int64_t *written) {
  unsigned char *const start = out;
  Run run{_mm_setzero_si128()};
  int64_t i = 0;
  while (i + 16 <= n) {
    const int taken = take_block(t, in + i, ws_mode, run, out);
    if (taken == 0) break;
    i += taken;
  }
  *written = out - start;
  return resume_point(t, in, i, run.count);
}

// The 16 characters of the 12 bytes at in (16 bytes are read).
ORLIX_SSSE3 inline __m128i encode_indices(__m128i v) {
  v = _mm_shuffle_epi8(v, _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
  const __m128i t0 = _mm_and_si128(v, _mm_set1_epi32(0x0FC0FC00));
  const __m128i t1 = _mm_mulhi_epu16(t0, _mm_set1_epi32(0x04000040));
  const __m128i t2 = _mm_and_si128(v, _mm_set1_epi32(0x003F03F0));
  const __m128i t3 = _mm_mullo_epi16(t2, _mm_set1_epi32(0x01000010));
  return _mm_or_si128(t1, t3);
}

ORLIX_SSSE3 inline __m128i indices_to_chars(const Tables &t, __m128i indices) {
  __m128i reduced = _mm_subs_epu8(indices, _mm_set1_epi8(51));
  const __m128i below26 = _mm_cmpgt_epi8(_mm_set1_epi8(26), indices);
  reduced = _mm_or_si128(reduced, _mm_and_si128(below26, _mm_set1_epi8(13)));
  return _mm_add_epi8(_mm_shuffle_epi8(load16(t.char_offset), reduced), indices);
}

ORLIX_SSSE3 int64_t encode_ssse3(const Tables &t, const unsigned char *in, int64_t groups,
                                 int64_t readable, char *out) {
  int64_t g = 0;
  // 16 bytes are read for every 12 used.
  for (; g + 4 <= groups && 3 * g + 16 <= readable; g += 4) {
    const __m128i chars = indices_to_chars(
        t, encode_indices(_mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 3 * g))));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 4 * g), chars);
  }
  return g;
}

// ---- AVX2 -------------------------------------------------------------------

ORLIX_AVX2 inline __m256i broadcast(const unsigned char *table) {
  return _mm256_broadcastsi128_si256(load16(table));
}

// Pure digit blocks of 32 go through AVX2; anything else, and the rest of
// the run, through the SSSE3 steps.
ORLIX_AVX2 int64_t decode_avx2(const Tables &t, const unsigned char *in, int64_t n,
                               unsigned char *out, int ws_mode, int64_t *written) {
  const __m256i nibble = _mm256_set1_epi8(0x0F);
  const __m256i bits = _mm256_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2,
                                        4, 8, 16, 32, 64, -128, 0, 0, 0, 0, 0, 0, 0, 0);
  const __m256i valid_by_low = broadcast(t.valid_by_low);
  const __m256i offset_by_high = broadcast(t.offset_by_high);
  const __m256i special = _mm256_set1_epi8(static_cast<char>(t.special));
  const __m256i special_offset = _mm256_set1_epi8(static_cast<char>(t.special_offset));
  const __m256i order = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, 2,
                                         1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  unsigned char *const start = out;
  Run run{_mm_setzero_si128()};
  int64_t i = 0;
  while (i + 16 <= n) {
    if (run.count == 0 && i + 32 <= n) {
      const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(in + i));
      const __m256i high = _mm256_and_si256(_mm256_srli_epi32(v, 4), nibble);
      const __m256i low = _mm256_and_si256(v, nibble);
      const __m256i valid = _mm256_and_si256(_mm256_shuffle_epi8(valid_by_low, low),
                                             _mm256_shuffle_epi8(bits, high));
      if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(valid, _mm256_setzero_si256())) == 0) {
        const __m256i offset = _mm256_blendv_epi8(_mm256_shuffle_epi8(offset_by_high, high),
                                                  special_offset, _mm256_cmpeq_epi8(v, special));
        const __m256i values = _mm256_add_epi8(v, offset);
        const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
        const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
        const __m256i lanes = _mm256_shuffle_epi8(groups, order);
        // 12 bytes at the bottom of each lane: gather them into 24.
        const __m256i packed =
            _mm256_permutevar8x32_epi32(lanes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), packed);
        out += 24;
        i += 32;
        continue;
      }
    }
    const int taken = take_block(t, in + i, ws_mode, run, out);
    if (taken == 0) break;
    i += taken;
  }
  *written = out - start;
  return resume_point(t, in, i, run.count);
}

// Encodes the 8 groups at in (28 bytes are read) into 32 characters.
ORLIX_AVX2 inline void encode8_avx2(const unsigned char *in, __m256i char_offset, char *out) {
  const __m256i shuffle = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 1, 0,
                                           2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
  // Two 16-byte loads, 12 bytes apart.
  __m256i v = _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(in))),
      _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 12)), 1);
  v = _mm256_shuffle_epi8(v, shuffle);
  const __m256i t0 = _mm256_and_si256(v, _mm256_set1_epi32(0x0FC0FC00));
  const __m256i t1 = _mm256_mulhi_epu16(t0, _mm256_set1_epi32(0x04000040));
  const __m256i t2 = _mm256_and_si256(v, _mm256_set1_epi32(0x003F03F0));
  const __m256i t3 = _mm256_mullo_epi16(t2, _mm256_set1_epi32(0x01000010));
  const __m256i indices = _mm256_or_si256(t1, t3);
  __m256i reduced = _mm256_subs_epu8(indices, _mm256_set1_epi8(51));
  const __m256i below26 = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), indices);
  reduced = _mm256_or_si256(reduced, _mm256_and_si256(below26, _mm256_set1_epi8(13)));
  const __m256i chars = _mm256_add_epi8(_mm256_shuffle_epi8(char_offset, reduced), indices);
  _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), chars);
}

ORLIX_AVX2 int64_t encode_avx2(const Tables &t, const unsigned char *in, int64_t groups,
                               int64_t readable, char *out) {
  const __m256i char_offset = broadcast(t.char_offset);
  int64_t g = 0;
  for (; g + 8 <= groups && 3 * g + 28 <= readable; g += 8)
    encode8_avx2(in + 3 * g, char_offset, out + 4 * g);
  return g + encode_ssse3(t, in + 3 * g, groups - g, readable - 3 * g, out + 4 * g);
}

ORLIX_AVX2 int64_t encode_lines_avx2(const Tables &t, const unsigned char *in, int64_t lines,
                                     int64_t line_groups, int64_t readable, char *out,
                                     const char *eol, int eol_length) {
  const __m256i char_offset = broadcast(t.char_offset);
  const int64_t line_bytes = 3 * line_groups;
  int64_t done = 0;
  // The last 8 groups of a line read 28 bytes from 24 before its end.
  for (; done < lines && (done + 1) * line_bytes + 4 <= readable; ++done) {
    for (int64_t g = 0; g < line_groups; g += 8, in += 24, out += 32)
      encode8_avx2(in, char_offset, out);
    for (int k = 0; k < eol_length; ++k) *out++ = eol[k];
  }
  return done;
}

enum class Form { kPortable, kSsse3, kAvx2 };

Form best_form() {
  __builtin_cpu_init();  // may run before the CPU model is read otherwise
  if (__builtin_cpu_supports("avx2")) return Form::kAvx2;
  if (__builtin_cpu_supports("ssse3")) return Form::kSsse3;
  return Form::kPortable;
}

// Chosen when the library loads.
Form g_form = best_form();
Form &form() { return g_form; }

}  // namespace

int64_t decode_run(const unsigned char *in, int64_t n, unsigned char *out, bool url, int ws_mode,
                   int64_t *written) {
  const Tables &t = url ? kUrlTables : kStdTables;
  switch (form()) {
    case Form::kAvx2: return decode_avx2(t, in, n, out, ws_mode, written);
    case Form::kSsse3: return decode_ssse3(t, in, n, out, ws_mode, written);
    default: *written = 0; return 0;
  }
}

int64_t encode_groups(const unsigned char *in, int64_t groups, int64_t readable, char *out,
                      bool url) {
  const Tables &t = url ? kUrlTables : kStdTables;
  switch (form()) {
    case Form::kAvx2: return encode_avx2(t, in, groups, readable, out);
    case Form::kSsse3: return encode_ssse3(t, in, groups, readable, out);
    default: return 0;
  }
}

int64_t encode_lines(const unsigned char *in, int64_t lines, int64_t line_groups, int64_t readable,
                     char *out, bool url, const char *eol, int eol_length) {
  if (form() != Form::kAvx2 || line_groups % 8 != 0) return 0;
  return encode_lines_avx2(url ? kUrlTables : kStdTables, in, lines, line_groups, readable, out, eol,
                           eol_length);
}

bool use_vector_forms(bool on) {
  const bool was = form() != Form::kPortable;
  form() = on ? best_form() : Form::kPortable;
  return was;
}

}  // namespace orlix::base64
