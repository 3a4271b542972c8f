// The JSON decoder. It walks the text once, keeping the open containers
// chained through the nodes themselves (so deep nesting costs no C stack)
// and the finished entries of the open containers on one stack, and carves
// every node out of an arena that the tree's root owns in the end. Its
// grammar is deliberately exact: what it accepts and refuses is
// part of the library's contract, quirks included. When it refuses a text it
// notes why and where, for orlix_json_decodewitherror; orlix_json_decode
// runs the same code and ignores the note.
#include <cassert>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <cstring>

#include "ORLIX_Util.h"
#include "core/memory.hpp"
#include "json/ORLIX_JSON.hpp"
#include "json/ORLIX_JSON_Number.hpp"
#include "ustring/ORLIX_UString.hpp"
#include "ustring/ORLIX_UString_UTF8.hpp"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

using orlix::json::kModule;
using orlix::json::Container;
using orlix::json::kCarved;

namespace {

constexpr bool is_ws(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
constexpr bool is_digit(unsigned char c) { return c >= '0' && c <= '9'; }

// 10^0 to 10^16.
struct PowersOfTen {
  uint64_t at[17];
  constexpr PowersOfTen() : at() {
    uint64_t p = 1;
    for (uint64_t &power : at) {
      power = p;
      p *= 10;
    }
  }
};
constexpr PowersOfTen kPowersOfTen;

// The value 0-255 of two hexadecimal digits, or -1.
int decodehex(const unsigned char *p) {
  const auto nibble = [](unsigned char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  const int hi = nibble(p[0]);
  const int lo = nibble(p[1]);
  return (hi | lo) < 0 ? -1 : hi << 4 | lo;
}

// UTF-8 of a code point up to U+10FFFF; returns the byte count.
int uitoutf8(uint32_t cp, unsigned char *out) {
  if (cp < 0x80) {
    out[0] = static_cast<unsigned char>(cp);
    return 1;
  }
  if (cp < 0x800) {
    out[0] = static_cast<unsigned char>(0xC0 | cp >> 6);
    out[1] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
    return 2;
  }
  if (cp < 0x10000) {
    out[0] = static_cast<unsigned char>(0xE0 | cp >> 12);
    out[1] = static_cast<unsigned char>(0x80 | (cp >> 6 & 0x3F));
    out[2] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
    return 3;
  }
  out[0] = static_cast<unsigned char>(0xF0 | cp >> 18);
  out[1] = static_cast<unsigned char>(0x80 | (cp >> 12 & 0x3F));
  out[2] = static_cast<unsigned char>(0x80 | (cp >> 6 & 0x3F));
  out[3] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
  return 4;
}

// A C-locale strtod, for the rare texts std::from_chars reports out of range
// (where strtod still gives an infinity, zero or a subnormal).
double strtod_c_locale(const char *text) {
  static locale_t c_locale = newlocale(LC_NUMERIC_MASK, "C", nullptr);
  return c_locale != nullptr ? strtod_l(text, nullptr, c_locale) : std::strtod(text, nullptr);
}

// The reason texts, indexed by ORLIX_JSON_ERROR_* code.
constexpr const char *kReasons[] = {
    "no error",
    "no input",
    "text too long",
    "unexpected end of input",
    "unexpected character",
    "invalid literal",
    "invalid number",
    "unterminated string",
    "control character in string",
    "invalid escape",
    "unpaired surrogate escape",
    "invalid UTF-8 in string",
    "nesting limit reached",
    "trailing data",
    "out of memory",
};
static_assert(sizeof kReasons / sizeof kReasons[0] == ORLIX_JSON_ERROR_MEMORY + 1);

// The offset of the first byte in [0, n) that does not start a well-formed
// UTF-8 sequence (no overlong forms, surrogates or values above U+10FFFF),
// or n. Only runs once a string has failed validation, to say where.
int64_t first_invalid_utf8(const unsigned char *s, int64_t n) {
  int64_t i = 0;
  while (i < n) {
    const unsigned char c = s[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    // The sequence's length and the range its second byte must lie in.
    int64_t size = 0;
    unsigned char lo = 0x80, hi = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
      size = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      size = 3;
      if (c == 0xE0) lo = 0xA0;  // no overlong forms
      if (c == 0xED) hi = 0x9F;  // no surrogates
    } else if (c >= 0xF0 && c <= 0xF4) {
      size = 4;
      if (c == 0xF0) lo = 0x90;  // no overlong forms
      if (c == 0xF4) hi = 0x8F;  // nothing above U+10FFFF
    } else {
      return i;
    }
    if (n - i < size || s[i + 1] < lo || s[i + 1] > hi) return i;
    for (int64_t k = 2; k < size; ++k)
      if ((s[i + k] & 0xC0) != 0x80) return i;
    i += size;
  }
  return n;
}


class Decoder {
 public:
  // Everything carved for a text that is refused goes with the arena.
  Decoder(const unsigned char *text, int64_t length)
      : s_(text), n_(length), limit_(orlix_get_recursive_level()), arena_(length, &i_) {}
  Decoder(const Decoder &) = delete;
  Decoder &operator=(const Decoder &) = delete;

  // Decodes one value from the start; stores the bytes used in *consumed.
  ORLIX_JSON *run(int64_t *consumed);

  // Why and where the text was refused (valid after run() gave nullptr).
  uint32_t error_code() const { return code_; }
  int64_t error_offset() const { return at_; }

 private:
  // Notes why decoding stops; the first note stands, since every failure
  // passes through its callers on the way out. Returns false.
  bool fail(uint32_t code, int64_t at) {
    if (code_ == ORLIX_JSON_ERROR_NONE) {
      code_ = code;
      at_ = at;
    }
    return false;
  }

  void skip_ws() {
    if (i_ < n_ && !is_ws(s_[i_])) return;  // compact text: nothing to skip
    skip_ws_run();
  }
  // The run of whitespace at i_.
  __attribute__((noinline)) void skip_ws_run() {
#if defined(__SSE2__)
    // Indented text has long runs of blanks: skip them 16 bytes at a time.
    if (orlix::json::g_form == orlix::json::Form::kPortable) {
      while (i_ < n_ && is_ws(s_[i_])) ++i_;
      return;
    }
    const __m128i space = _mm_set1_epi8(' ');
    const __m128i tab = _mm_set1_epi8('\t');
    const __m128i lf = _mm_set1_epi8('\n');
    const __m128i cr = _mm_set1_epi8('\r');
    while (i_ + 16 <= n_) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s_ + i_));
      const __m128i ws = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, space), _mm_cmpeq_epi8(v, tab)),
                                      _mm_or_si128(_mm_cmpeq_epi8(v, lf), _mm_cmpeq_epi8(v, cr)));
      const unsigned other = ~static_cast<unsigned>(_mm_movemask_epi8(ws)) & 0xFFFFu;
      if (other != 0) {
        i_ += __builtin_ctz(other);
        return;
      }
      i_ += 16;
    }
#endif
    while (i_ < n_ && is_ws(s_[i_])) ++i_;
  }
  // Where in the grammar the decoder stands. Each state reads from i_ and
  // names the next one; kDone leaves the finished tree in node_.
  enum class State { kValue, kAfterValue, kMember, kDone, kFailed };
  // Notes why decoding stops at i_, and stops.
  State refuse(uint32_t code) {
    fail(code, i_);
    return State::kFailed;
  }
  State ended() { return refuse(ORLIX_JSON_ERROR_END); }
  State value();
  State open_container();
  State after_value();
  State member();

  ORLIX_JSON *literal(const char *word, int64_t size, uint8_t type, int32_t boolean);
  // A node from the arena (a Container for an object or array).
  ORLIX_JSON *carve(uint8_t type, int64_t size = sizeof(ORLIX_JSON)) {
    auto *node = static_cast<ORLIX_JSON *>(arena_.carve(size));
    if (node == nullptr) return nullptr;
    node->type = type;
    node->flags = kCarved;
    node->reserved = 0;
    node->length = 0;
    return node;
  }
  ORLIX_JSON *carve_string(const char *bytes, int32_t length);
  bool close_container();
  // A number at i_ and, inside an array, the numbers that follow it with
  // bare commas between them (coordinates, vectors): all but the last are
  // attached here, the last is returned as the general path would give it.
  ORLIX_JSON *number_row();
  ORLIX_JSON *number_row_vector();
  __attribute__((noinline)) ORLIX_JSON *number();
  // The end of the run of digits from j. Adds their value to *m (times
  // ten per digit) while *count, the digits taken so far, stays within 19;
  // *count goes on counting past that.
  __attribute__((always_inline)) int64_t digit_run(int64_t j, uint64_t *m, int64_t *count) const {
    if (orlix::json::g_form != orlix::json::Form::kPortable) {
      // Eight bytes a step: a byte is a digit when its high nibble is 3 and
      // stays 3 with 6 added. A carry out of a byte of 0xFA or more only
      // disturbs the bytes after it, and that byte is a non-digit already.
      constexpr uint64_t kHighNibbles = 0xF0F0F0F0F0F0F0F0u;
      constexpr uint64_t kZeros = 0x3030303030303030u;
      while (j + 8 <= n_) {
        uint64_t w;
        std::memcpy(&w, s_ + j, 8);
        const uint64_t t = (w & kHighNibbles) | ((w + 0x0606060606060606u) & kHighNibbles) >> 4;
        const uint64_t other = t ^ 0x3333333333333333u;
        const int run = other != 0 ? __builtin_ctzll(other) / 8 : 8;
        if (run == 0) return j;
        if (*count + run <= 19) {
          // The run's digits moved to the top of the word, zeros before them.
          if (run < 8) w = w << (8 * (8 - run)) | kZeros >> (8 * run);
          *m = *m * kPowersOfTen.at[run] + orlix::json::eight_digits(w);
        }
        *count += run;
        j += run;
        if (run < 8) return j;
      }
    }
    for (; j < n_ && is_digit(s_[j]); ++j) {
      if (*count < 19) *m = *m * 10 + (s_[j] - '0');
      ++*count;
    }
    return j;
  }
  bool string(const char **bytes, int32_t *length);
  bool escaped_string(int64_t run_start, bool *high);
  bool attach(ORLIX_JSON *node);
  // A byte below '!' that is not whitespace may not follow a token (i_ is
  // within the text).
  bool bad_byte_after_token() const { return s_[i_] < 0x21 && !is_ws(s_[i_]); }

  const unsigned char *s_;
  int64_t n_;
  int64_t i_ = 0;
  int32_t limit_;
  uint32_t code_ = ORLIX_JSON_ERROR_NONE;
  int64_t at_ = 0;
  ORLIX_JSON *node_ = nullptr;  // a complete value on its way to its container
  ORLIX_JSON *root_ = nullptr;  // the first container carved (the top value)
  orlix::json::Arena arena_;
  // The open containers, innermost first, chained through their entry
  // pointers (which they do not need until they close): so any depth costs
  // no memory beyond the tree.
  ORLIX_JSON *open_ = nullptr;
  int32_t depth_ = 0;
  // The finished entries of the open containers, innermost last: elements,
  // or a member's name and value one after the other.
  orlix::SmallBuffer<ORLIX_JSON *, 256> entries_{kModule};
  orlix::SmallBuffer<char, 256> scratch_{kModule};
};

ORLIX_JSON *Decoder::literal(const char *word, int64_t size, uint8_t type, int32_t boolean) {
  if (n_ - i_ < size || std::memcmp(s_ + i_, word, static_cast<size_t>(size)) != 0) {
    fail(ORLIX_JSON_ERROR_LITERAL, i_);
    return nullptr;
  }
  ORLIX_JSON *node = carve(type);
  if (node == nullptr) {
    fail(ORLIX_JSON_ERROR_MEMORY, i_);
    return nullptr;
  }
  node->value.entries = nullptr;
  node->value.boolean = boolean;
  i_ += size;
  return node;
}

// A string node with its bytes right after it.
ORLIX_JSON *Decoder::carve_string(const char *bytes, int32_t length) {
  ORLIX_JSON *node = carve(ORLIX_JSON_STRING, int64_t{sizeof(ORLIX_JSON)} + length + 1);
  if (node == nullptr) return nullptr;
  char *text = reinterpret_cast<char *>(node + 1);
  std::memcpy(text, bytes, static_cast<size_t>(length));
  text[length] = '\0';
  node->value.string = text;
  node->length = length;
  return node;
}

#if defined(__x86_64__)  // 64-bit lane moves below
// Shuffle controls that move the first r bytes of a vector to its end, with
// zeros before them: the 16 bytes from kAlignDigits + r.
alignas(32) constexpr signed char kAlignDigits[32] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                                      -1, -1, -1, -1, -1, 0,  1,  2,  3,  4,  5,
                                                      6,  7,  8,  9,  10, 11, 12, 13, 14, 15};

// The count (0-16) of digits that open the 16 bytes at p and, when below
// 16, their value in *value.
__attribute__((target("sse4.1"))) inline int digit_vector(const unsigned char *p, uint64_t *value) {
  const __m128i d = _mm_sub_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)),
                                 _mm_set1_epi8('0'));
  const __m128i digit = _mm_cmpeq_epi8(_mm_min_epu8(d, _mm_set1_epi8(9)), d);
  const int run = __builtin_ctz(~static_cast<unsigned>(_mm_movemask_epi8(digit)));
  // Right-aligned digits: pairs, then fours, then two groups of eight.
  const __m128i aligned = _mm_shuffle_epi8(
      d, _mm_loadu_si128(reinterpret_cast<const __m128i *>(kAlignDigits + run)));
  const __m128i pairs =
      _mm_maddubs_epi16(aligned, _mm_setr_epi8(10, 1, 10, 1, 10, 1, 10, 1, 10, 1, 10, 1, 10, 1, 10, 1));
  const __m128i fours = _mm_madd_epi16(pairs, _mm_setr_epi16(100, 1, 100, 1, 100, 1, 100, 1));
  const __m128i packed = _mm_packus_epi32(fours, fours);
  const __m128i eights =
      _mm_madd_epi16(packed, _mm_setr_epi16(10000, 1, 10000, 1, 10000, 1, 10000, 1));
  const auto both = static_cast<uint64_t>(_mm_cvtsi128_si64(eights));
  *value = (both & 0xFFFFFFFFu) * 100000000u + (both >> 32);
  return run;
}

// The common number at p: a lone digit, or at most 15 digits before the
// point and 15 after it, 19 in all; no exponent, at least 32 bytes before the end of the text
// (so that no read here passes it). Each part's digits are found and
// converted in one vector. Its value goes to *value and its length to
// *length; false for anything else, and for every value exact_decimal
// leaves undecided, which number() then reads the general way.
__attribute__((target("sse4.1"), always_inline)) inline bool short_number(const unsigned char *p,
                                                                         double *value,
                                                                         int64_t *length) {
  const unsigned char *const first = p;
  const bool negative = *p == '-';
  p += negative;
  // A lone digit (counts, flags, small codes) needs no vector.
  if (is_digit(p[0]) && !is_digit(p[1]) && p[1] != '.' && (p[1] | 0x20) != 'e') {
    const auto digit = static_cast<double>(p[0] - '0');
    *value = negative ? -digit : digit;
    *length = p + 1 - first;
    return true;
  }
  uint64_t m;
  const int whole = digit_vector(p, &m);
  if (whole == 0 || whole == 16 || (whole > 1 && *p == '0')) return false;
  int32_t q = 0;
  p += whole;
  if (*p == '.') {
    uint64_t fraction;
    const int digits = digit_vector(p + 1, &fraction);
    if (digits == 0 || digits == 16 || whole + digits > 19) return false;
    m = m * kPowersOfTen.at[digits] + fraction;
    q = -digits;
    p += 1 + digits;
  }
  if (*p == 'e' || *p == 'E' || !orlix::json::exact_decimal(m, q, negative, value)) return false;
  *length = p - first;
  return true;
}

// number_row() with the vector form of the common number; the position
// stays in a register from one number to the next.
__attribute__((target("sse4.1"))) ORLIX_JSON *Decoder::number_row_vector() {
  const unsigned char *const s = s_;
  int64_t at = i_;
  while (true) {
    ORLIX_JSON *node;
    double value;
    int64_t length;
    if (n_ - at >= 32 && short_number(s + at, &value, &length)) {
      node = carve(ORLIX_JSON_NUMBER);
      if (node == nullptr) {
        fail(ORLIX_JSON_ERROR_MEMORY, at);
        return nullptr;
      }
      node->value.number = value;
      at += length;
    } else {
      i_ = at;
      node = number();
      if (node == nullptr) return nullptr;
      at = i_;
    }
    if (open_ == nullptr || open_->type != ORLIX_JSON_ARRAY || at + 1 >= n_ || s[at] != ',' ||
        (s[at + 1] != '-' && !is_digit(s[at + 1]))) {
      i_ = at;
      return node;
    }
    // A number is no container: attaching it is pushing it.
    if (!entries_.push_back(node)) {
      fail(ORLIX_JSON_ERROR_MEMORY, at);
      return nullptr;
    }
    ++at;
  }
}
#else
ORLIX_JSON *Decoder::number_row_vector() { return number_row(); }
#endif

ORLIX_JSON *Decoder::number_row() {
  ORLIX_JSON *node = number();
  while (node != nullptr && open_ != nullptr && open_->type == ORLIX_JSON_ARRAY && i_ + 1 < n_ &&
         s_[i_] == ',' && (s_[i_ + 1] == '-' || is_digit(s_[i_ + 1]))) {
    if (!attach(node)) return nullptr;
    ++i_;
    node = number();
  }
  return node;
}

// The longest prefix of: -? (0 | [1-9][0-9]*) (. [0-9]+)? ([eE] [+-]? [0-9]+)?
// A sign, point or exponent mark without its digits fails the whole value.
ORLIX_JSON *Decoder::number() {
  const auto invalid = [this] {
    fail(ORLIX_JSON_ERROR_NUMBER, i_);
    return nullptr;
  };
  int64_t j = i_;
  const bool negative = s_[j] == '-';
  if (negative) ++j;
  if (j == n_) return invalid();
  // The significant digits as an integer m (while they fit), and q, the
  // power of ten that scales it.
  uint64_t m = 0;
  int64_t digits = 0;
  if (s_[j] == '0') {
    ++j;
    digits = 1;
  } else if (s_[j] >= '1' && s_[j] <= '9') {
    j = digit_run(j, &m, &digits);
  } else {
    return invalid();
  }
  int64_t q = 0;
  if (j < n_ && s_[j] == '.') {
    ++j;
    if (j == n_ || !is_digit(s_[j])) return invalid();
    const int64_t start = j;
    j = digit_run(j, &m, &digits);
    q = start - j;
  }
  bool small_exponent = true;
  if (j < n_ && (s_[j] == 'e' || s_[j] == 'E')) {
    ++j;
    bool exp_negative = false;
    if (j < n_ && (s_[j] == '+' || s_[j] == '-')) exp_negative = s_[j++] == '-';
    if (j == n_ || !is_digit(s_[j])) return invalid();
    int64_t e = 0;
    const int64_t start = j;
    for (; j < n_ && is_digit(s_[j]); ++j)
      if (j - start < 6) e = e * 10 + (s_[j] - '0');
    small_exponent = j - start <= 6;
    q += exp_negative ? -e : e;
  }
  double value = 0;
  if (digits > 19 || !small_exponent ||
      !orlix::json::exact_decimal(m, static_cast<int32_t>(q), negative, &value)) {
    const char *first = reinterpret_cast<const char *>(s_ + i_);
    const char *last = reinterpret_cast<const char *>(s_ + j);
    // Locale-independent: the point is always '.', whatever LC_NUMERIC says.
    if (std::from_chars(first, last, value).ec != std::errc{}) {
      orlix::SmallBuffer<char, 64> text(kModule);
      if (!text.resize(last - first + 1)) {
        fail(ORLIX_JSON_ERROR_MEMORY, i_);
        return nullptr;
      }
      std::memcpy(text.data(), first, static_cast<size_t>(last - first));
      text[last - first] = '\0';
      value = strtod_c_locale(text.data());
    }
  }
  ORLIX_JSON *node = carve(ORLIX_JSON_NUMBER);
  if (node == nullptr) {
    fail(ORLIX_JSON_ERROR_MEMORY, i_);
    return nullptr;
  }
  node->value.number = value;
  i_ = j;
  return node;
}

// Decodes the string whose opening quote is at i_ (that byte is not
// examined: a member name's opening quote is taken on trust). On success the
// bytes are valid UTF-8, either in the input or in scratch_, and i_ is past
// the closing quote.
bool Decoder::string(const char **bytes, int32_t *length) {
  const int64_t quote = i_;
  if (n_ - i_ < 2) return fail(ORLIX_JSON_ERROR_UNTERMINATED, quote);
  const int64_t start = i_ + 1;
  bool high = false;
  const int64_t k = orlix::json::scan_plain(s_, start, n_, &high);
  if (k == n_) return fail(ORLIX_JSON_ERROR_UNTERMINATED, quote);
  if (s_[k] < 0x20) return fail(ORLIX_JSON_ERROR_CONTROL, k);
  const unsigned char *text;
  int64_t size;
  if (s_[k] == '"') {
    text = s_ + start;
    size = k - start;
    i_ = k + 1;
  } else {
    i_ = k;
    if (!escaped_string(start, &high)) {
      if (code_ == ORLIX_JSON_ERROR_UNTERMINATED) at_ = quote;
      return false;
    }
    text = reinterpret_cast<const unsigned char *>(scratch_.data());
    size = scratch_.size();
  }
  // Escapes always yield whole UTF-8 sequences: only raw bytes of 0x80 and
  // above can make the text invalid.
  if (size >= 0x7FFFFFFF) return fail(ORLIX_JSON_ERROR_TOO_LONG, quote);
  if (high && !orlix::utf8::validate(text, size)) {
    // The escapes are ASCII and decode to whole sequences, so the first bad
    // sequence of the decoded text is the first bad one between the quotes.
    return fail(ORLIX_JSON_ERROR_UTF8, start + first_invalid_utf8(s_ + start, i_ - 1 - start));
  }
  *bytes = reinterpret_cast<const char *>(text);
  *length = static_cast<int32_t>(size);
  return true;
}

// Continues a string at the escape at i_, whose plain run began at
// run_start; the decoded bytes go to scratch_, and *high notes raw bytes of
// 0x80 and above.
bool Decoder::escaped_string(int64_t run_start, bool *high) {
  scratch_.clear();
  const auto append = [&](const unsigned char *p, int64_t count) {
    const int64_t at = scratch_.size();
    if (!scratch_.resize(at + count)) return fail(ORLIX_JSON_ERROR_MEMORY, i_);
    std::memcpy(scratch_.data() + at, p, static_cast<size_t>(count));
    return true;
  };
  if (!append(s_ + run_start, i_ - run_start)) return false;
  // A \uXXXX escape at k: needs its last digit inside the input. -1 when
  // there is none, -2 when the input ends inside it.
  const auto u_escape = [&](int64_t k) -> int32_t {
    if ((k < n_ && s_[k] != '\\') || (k + 1 < n_ && s_[k + 1] != 'u')) return -1;
    if (k + 5 >= n_) return -2;
    const int hi = decodehex(s_ + k + 2);
    const int lo = decodehex(s_ + k + 4);
    return (hi | lo) < 0 ? -1 : hi << 8 | lo;
  };
  while (true) {
    const int64_t plain = i_;
    i_ = orlix::json::scan_plain(s_, i_, n_, high);
    if (!append(s_ + plain, i_ - plain)) return false;
    if (i_ == n_) return fail(ORLIX_JSON_ERROR_UNTERMINATED, i_);
    if (s_[i_] < 0x20) return fail(ORLIX_JSON_ERROR_CONTROL, i_);
    if (s_[i_] == '"') {
      ++i_;
      return true;
    }
    if (i_ + 1 >= n_) return fail(ORLIX_JSON_ERROR_UNTERMINATED, i_);
    unsigned char one;
    switch (s_[i_ + 1]) {
      case '"': one = 0x22; break;
      case '\\': one = 0x5C; break;
      case '/': one = 0x2F; break;
      case 'b': one = 0x08; break;
      case 'f': one = 0x0C; break;
      case 'n': one = 0x0A; break;
      case 'r': one = 0x0D; break;
      case 't': one = 0x09; break;
      case 'u': {
        int32_t cp = u_escape(i_);
        if (cp < 0)
          return fail(cp == -2 ? ORLIX_JSON_ERROR_UNTERMINATED : ORLIX_JSON_ERROR_ESCAPE, i_);
        if (cp >= 0xDC00 && cp <= 0xDFFF) return fail(ORLIX_JSON_ERROR_SURROGATE, i_);  // alone
        i_ += 6;
        if (cp >= 0xD800 && cp <= 0xDBFF) {
          const int32_t low = u_escape(i_);
          if (low == -2) return fail(ORLIX_JSON_ERROR_UNTERMINATED, i_);
          if (low < 0xDC00 || low > 0xDFFF) return fail(ORLIX_JSON_ERROR_SURROGATE, i_ - 6);
          i_ += 6;
          cp = 0x10000 + ((cp & 0x3FF) << 10 | (low & 0x3FF));
        }
        unsigned char utf8[4];
        if (!append(utf8, uitoutf8(static_cast<uint32_t>(cp), utf8))) return false;
        continue;
      }
      default: return fail(ORLIX_JSON_ERROR_ESCAPE, i_);
    }
    if (!append(&one, 1)) return false;
    i_ += 2;
  }
}

// Hands a finished value to the innermost open container.
bool Decoder::attach(ORLIX_JSON *node) {
  assert(open_ != nullptr);
  if (orlix::json::is_container(node)) open_->flags &= static_cast<uint8_t>(~orlix::json::kCarvedLeaves);
  return entries_.push_back(node) || fail(ORLIX_JSON_ERROR_MEMORY, i_);
}

// The innermost container is complete: its entries move from the entry
// stack into a block carved to their exact size, and it becomes node_.
bool Decoder::close_container() {
  ORLIX_JSON *node = open_;
  const int64_t base = reinterpret_cast<Container *>(node)->base;
  open_ = static_cast<ORLIX_JSON *>(node->value.entries);
  --depth_;
  node->value.entries = nullptr;
  reinterpret_cast<Container *>(node)->root = root_;
  const int64_t words = entries_.size() - base;
  if (words > 0) {
    auto **entries =
        static_cast<ORLIX_JSON **>(arena_.carve(words * static_cast<int64_t>(sizeof(ORLIX_JSON *))));
    if (entries == nullptr) return fail(ORLIX_JSON_ERROR_MEMORY, i_);
    ORLIX_JSON *const *from = entries_.data() + base;
    if (words <= 4) {
      for (int64_t k = 0; k < words; ++k) entries[k] = from[k];
    } else {
      std::memcpy(entries, from, static_cast<size_t>(words) * sizeof(ORLIX_JSON *));
    }
    node->value.entries = entries;
  }
  // An object's entries are name, value pairs: exactly the layout of Member.
  const int64_t count = node->type == ORLIX_JSON_OBJECT ? words / 2 : words;
  node->length = static_cast<int32_t>(count);
  entries_.resize(base);
  node_ = node;
  return true;
}

// A value starts at i_, at nesting level depth_.
Decoder::State Decoder::value() {
  if (i_ >= n_) return ended();
  if (depth_ >= limit_) return refuse(ORLIX_JSON_ERROR_NESTING);
  switch (s_[i_]) {
    case '"': {
      const int64_t at = i_;
      const char *bytes;
      int32_t length;
      if (!string(&bytes, &length)) return State::kFailed;
      node_ = carve_string(bytes, length);
      if (node_ == nullptr) {
        fail(ORLIX_JSON_ERROR_MEMORY, at);
        return State::kFailed;
      }
      return State::kAfterValue;
    }
    case 'n': node_ = literal("null", 4, ORLIX_JSON_NULL, 0); break;
    case 't': node_ = literal("true", 4, ORLIX_JSON_BOOLEAN, 1); break;
    case 'f': node_ = literal("false", 5, ORLIX_JSON_BOOLEAN, 0); break;
    case '-':
    case '0': case '1': case '2': case '3': case '4':
    case '5': case '6': case '7': case '8': case '9':
      // The vector form needs SSE4.1, which every AVX2 processor has.
      node_ = orlix::json::g_form == orlix::json::Form::kAvx2 ? number_row_vector() : number_row();
      break;
    default: return open_container();
  }
  // The literal and number readers note their own failures.
  return node_ != nullptr ? State::kAfterValue : State::kFailed;
}

// An array or object opens at i_ (only a container may follow whitespace).
Decoder::State Decoder::open_container() {
  skip_ws();
  if (i_ == n_) return ended();
  if (s_[i_] != '[' && s_[i_] != '{') return refuse(ORLIX_JSON_ERROR_CHARACTER);
  const bool object = s_[i_] == '{';
  ORLIX_JSON *container = carve(object ? ORLIX_JSON_OBJECT : ORLIX_JSON_ARRAY, sizeof(Container));
  if (container == nullptr) return refuse(ORLIX_JSON_ERROR_MEMORY);
  if (root_ == nullptr) root_ = container;
  // Until it closes it has no entries of its own (which counts as carved
  // ones), and none that are containers.
  container->flags |= orlix::json::kEntriesCarved | orlix::json::kCarvedLeaves;
  container->value.entries = open_;
  reinterpret_cast<Container *>(container)->base = entries_.size();
  open_ = container;
  ++depth_;
  ++i_;
  skip_ws();
  if (i_ == n_) return ended();
  if (s_[i_] == (object ? '}' : ']')) {
    ++i_;
    skip_ws();
    return close_container() ? State::kAfterValue : State::kFailed;
  }
  return object ? State::kMember : State::kValue;  // the first member or element
}

// node_ is complete: attach it and read what follows, closing one container
// when the text closes it.
Decoder::State Decoder::after_value() {
  if (open_ == nullptr) return State::kDone;
  ORLIX_JSON *node = node_;
  node_ = nullptr;
  if (!attach(node)) return State::kFailed;
  const bool object = open_->type == ORLIX_JSON_OBJECT;
  if (i_ == n_) return ended();
  if (bad_byte_after_token()) return refuse(ORLIX_JSON_ERROR_CHARACTER);
  skip_ws();
  if (i_ == n_) return ended();
  if (s_[i_] == (object ? '}' : ']')) {
    ++i_;
    skip_ws();
    return close_container() ? State::kAfterValue : State::kFailed;
  }
  if (s_[i_] != ',') return refuse(ORLIX_JSON_ERROR_CHARACTER);
  ++i_;
  skip_ws();
  if (i_ == n_) return ended();
  return object ? State::kMember : State::kValue;  // the next member or element
}

// A member name, a colon, then its value at the next level.
Decoder::State Decoder::member() {
  assert(open_ != nullptr && open_->type == ORLIX_JSON_OBJECT);
  const char *name;
  int32_t length;
  const int64_t at = i_;
  if (!string(&name, &length)) {
    // The name's first byte is taken for its quote unseen; when it is
    // something else, that byte is the better thing to point at.
    if (s_[at] != '"' && code_ != ORLIX_JSON_ERROR_MEMORY) {
      code_ = ORLIX_JSON_ERROR_CHARACTER;
      at_ = at;
    }
    return State::kFailed;
  }
  ORLIX_JSON *name_node = carve_string(name, length);
  if (name_node == nullptr || !entries_.push_back(name_node)) return refuse(ORLIX_JSON_ERROR_MEMORY);
  if (i_ == n_) return ended();
  if (bad_byte_after_token()) return refuse(ORLIX_JSON_ERROR_CHARACTER);
  skip_ws();
  if (i_ == n_) return ended();
  if (s_[i_] != ':') return refuse(ORLIX_JSON_ERROR_CHARACTER);
  ++i_;
  skip_ws();
  if (i_ == n_) return ended();
  return State::kValue;
}

ORLIX_JSON *Decoder::run(int64_t *consumed) {
  State state = State::kValue;
  while (state != State::kDone && state != State::kFailed) {
    switch (state) {
      case State::kValue: state = value(); break;
      case State::kAfterValue: state = after_value(); break;
      case State::kMember: state = member(); break;
      case State::kDone:
      case State::kFailed: break;
    }
  }
  if (state == State::kFailed) return nullptr;
  *consumed = i_;
  ORLIX_JSON *tree = node_;
  node_ = nullptr;
  arena_.adopt(tree);  // the first node carved: the tree now owns the arena
  return tree;
}

}  // namespace

namespace {

// Line and column (both 1-based) of a byte offset: lines end with a line
// feed, and a column counts characters, that is, bytes that do not continue
// a UTF-8 sequence.
void locate(const unsigned char *text, int64_t offset, ORLIX_JSON_Error *error) {
  uint32_t line = 1, column = 1;
  for (int64_t i = 0; i < offset; ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else if ((text[i] & 0xC0) != 0x80) {
      ++column;
    }
  }
  error->line = line;
  error->column = column;
}

// Both entry points: the decode and, on failure, the note of why and where
// (when error is given).
ORLIX_JSON *decode(const char *bytes, uint32_t length, ORLIX_JSON_Error *error) {
  const auto text = reinterpret_cast<const unsigned char *>(bytes);
  const auto n = static_cast<int32_t>(length);
  const auto refuse = [&](uint32_t code, int64_t offset) -> ORLIX_JSON * {
    if (error != nullptr) {
      *error = ORLIX_JSON_Error{static_cast<uint64_t>(offset), 1, 1, code, kReasons[code]};
      if (text != nullptr) locate(text, offset, error);
    }
    return nullptr;
  };
  if (bytes == nullptr) return refuse(ORLIX_JSON_ERROR_NO_INPUT, 0);
  if (n < 0) return refuse(ORLIX_JSON_ERROR_TOO_LONG, 0);
  if (n == 0) return refuse(ORLIX_JSON_ERROR_END, 0);
  int64_t consumed = 0;
  ORLIX_JSON *tree = nullptr;
  uint32_t code;
  int64_t offset;
  {
    Decoder decoder(text, n);
    tree = decoder.run(&consumed);
    code = decoder.error_code();
    offset = decoder.error_offset();
  }
  if (tree == nullptr) return refuse(code, offset);
  // The value must use up the text exactly: nothing may follow a top-level
  // scalar, not even whitespace.
  if (consumed != n) {
    orlix_json_free(tree);
    return refuse(ORLIX_JSON_ERROR_TRAILING, consumed);
  }
  if (error != nullptr) *error = ORLIX_JSON_Error{0, 0, 0, ORLIX_JSON_ERROR_NONE, kReasons[0]};
  return tree;
}

}  // namespace

extern "C" ORLIX_JSON *orlix_json_decode(const char *bytes, uint32_t length) {
  return decode(bytes, length, nullptr);
}

extern "C" ORLIX_JSON *orlix_json_decodewitherror(const char *bytes, uint32_t length,
                                                  ORLIX_JSON_Error *error) {
  return decode(bytes, length, error);
}
