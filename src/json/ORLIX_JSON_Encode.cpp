// The JSON encoder: compact or indented text written into a memory stream
// and handed to the caller as one NUL-terminated buffer.
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "core/memory.hpp"
#include "json/ORLIX_JSON.hpp"

using orlix::json::Member;

namespace {

constexpr uint32_t kPretty = ORLIX_JSON_ENCODE_PRETTY;

// Collects output in a local block and passes it to the memory stream in
// large writes; the first failed write makes every later one fail too. The
// text may not grow beyond what the caller's 32-bit length can report: the
// write that would pass that limit fails, long before memory would run out.
class Writer {
 public:
  explicit Writer(ORLIX_Stream *stream) : stream_(stream) {}
  bool put(const char *p, size_t n) {
    if (n > sizeof buf_ - used_) {
      if (!flush()) return false;
      if (n > sizeof buf_) return write_through(p, n);
    }
    std::memcpy(buf_ + used_, p, n);
    used_ += n;
    return true;
  }
  bool put(char c) {
    if (used_ == sizeof buf_ && !flush()) return false;
    buf_[used_++] = c;
    return true;
  }
  bool put(const char *text) { return put(text, std::strlen(text)); }
  // Room for n bytes (at most kRoom) to be written at the returned place and
  // then passed to advance(); nullptr when an earlier write failed.
  static constexpr size_t kRoom = 1024;
  char *room(size_t n) {
    if (n > sizeof buf_ - used_ && !flush()) return nullptr;
    return buf_ + used_;
  }
  void advance(char *end) { used_ = static_cast<size_t>(end - buf_); }
  bool flush() {
    const size_t n = used_;
    used_ = 0;
    return n == 0 || write_through(buf_, n);
  }

 private:
  bool write_through(const char *p, size_t n) {
    if (!ok_ || n > kMaxText - written_) return ok_ = false;
    uint64_t taken = 0;
    ok_ = orlix_stream_write(stream_, p, static_cast<int64_t>(n), &taken, nullptr) == 1 &&
          taken == n;
    written_ += n;
    return ok_;
  }
  static constexpr uint64_t kMaxText = UINT32_MAX;
  ORLIX_Stream *stream_;
  bool ok_ = true;
  uint64_t written_ = 0;
  size_t used_ = 0;
  char buf_[16384];
};

// Shortens "%lf" text: drops trailing zeros after the point, and the point
// itself when nothing follows it ("1.500000" -> "1.5", "2.000000" -> "2").
// Returns the new length.
size_t trimzero(char *text) {
  const size_t n = std::strlen(text);
  if (n == 0) return 0;
  size_t point;
  if (text[0] == '.') {
    if (n == 1) {
      std::strcpy(text, "0");
      return 1;
    }
    point = 0;
  } else {
    const char *dot = std::strchr(text + 1, '.');
    if (dot == nullptr) return n;  // "inf", "nan"
    point = static_cast<size_t>(dot - text);
  }
  size_t end = n;
  if (point == end - 1) {
    text[point] = '\0';
    return point;
  }
  while (end - 1 > point && text[end - 1] == '0') text[--end] = '\0';
  if (end - 1 == point) {
    if (point == 0) {
      std::strcpy(text, "0");
      return 1;
    }
    text[point] = '\0';
    return point;
  }
  return end;
}

// Two decimal digits for each value 0-99.
constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes v in decimal at p and returns the end.
// Four digits of v (below 10000), leading zeros included.
inline void put_four(char *p, uint32_t v) {
  std::memcpy(p, kDigitPairs + v / 100 * 2, 2);
  std::memcpy(p + 2, kDigitPairs + v % 100 * 2, 2);
}

// 1 to 4 digits of v (below 10000) at p; returns the end.
inline char *put_small(char *p, uint32_t v) {
  if (v < 100) {
    if (v < 10) {
      *p = static_cast<char>('0' + v);
      return p + 1;
    }
    std::memcpy(p, kDigitPairs + v * 2, 2);
    return p + 2;
  }
  if (v < 1000) {
    *p = static_cast<char>('0' + v / 100);
    std::memcpy(p + 1, kDigitPairs + v % 100 * 2, 2);
    return p + 3;
  }
  put_four(p, v);
  return p + 4;
}

char *put_decimal(char *p, uint64_t v) {
  // Below 10^8 the value splits into two groups of four digits, and below
  // 2^32 into at most three groups, whose digits are formed independently.
  if (v < 10000) return put_small(p, static_cast<uint32_t>(v));
  if (v < 100000000) {
    p = put_small(p, static_cast<uint32_t>(v / 10000));
    put_four(p, static_cast<uint32_t>(v % 10000));
    return p + 4;
  }
  if (v < 4294967296u) {
    const auto w = static_cast<uint32_t>(v);
    p = put_small(p, w / 100000000);
    const uint32_t rest = w % 100000000;
    put_four(p, rest / 10000);
    put_four(p + 4, rest % 10000);
    return p + 8;
  }
  int digits;
  digits = 10;
  for (uint64_t bound = 10000000000u; digits < 20 && v >= bound; bound *= 10) ++digits;
  char *end = p + digits;
  char *d = end;
  while (v >= 100) {
    const auto pair = static_cast<size_t>(v % 100) * 2;
    v /= 100;
    *--d = kDigitPairs[pair + 1];
    *--d = kDigitPairs[pair];
  }
  if (v >= 10) {
    *--d = kDigitPairs[v * 2 + 1];
    *--d = kDigitPairs[v * 2];
  } else {
    *--d = static_cast<char>('0' + v);
  }
  return end;
}

// The bytes a string writes as an escape: quote, backslash, controls.
constexpr struct EscapeTable {
  bool escaped[256];
  constexpr EscapeTable() : escaped() {
    for (int c = 0; c < 0x20; ++c) escaped[c] = true;
    escaped[static_cast<unsigned char>('"')] = true;
    escaped[static_cast<unsigned char>('\\')] = true;
  }
} kEscape;

}  // namespace

namespace orlix::json {

// The integer N below, when it fits 64 bits (not for infinities and NaN).
// v is m * 2^e with an integer m below 2^53; the text is the integer
// N = m * 10^6 * 2^e rounded half to even, with a point before its last six
// digits. The product m * 10^6 stays below 2^73, so 128 bits hold it exactly,
// and the rounding looks at exactly the bits a right shift drops. Values
// whose N does not fit 64 bits (magnitudes from about 1.8e13 up), and
// infinities and NaN, take the standard library's exact fixed form, which
// prints the same text.
bool scaled6(double v, uint64_t *scaled_value) {
  uint64_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  const auto biased = static_cast<int>(bits >> 52 & 0x7FF);
  if (biased == 0x7FF) return false;
  uint64_t m = bits & ((uint64_t{1} << 52) - 1);
  int e;
  if (biased == 0) {
    e = -1074;
  } else {
    m |= uint64_t{1} << 52;
    e = biased - 1075;
  }
  using u128 = unsigned __int128;
  const u128 scaled = static_cast<u128>(m) * 1000000u;
  if (e >= 0) {
    if (e >= 64 || (scaled >> (64 - e)) != 0) return false;
    *scaled_value = static_cast<uint64_t>(scaled << e);
    return true;
  }
  if (e <= -128) {  // v * 10^6 is below 2^-54
    *scaled_value = 0;
    return true;
  }
  const int s = -e;
  u128 q = scaled >> s;
  const u128 rest = scaled - (q << s);
  const u128 half = static_cast<u128>(1) << (s - 1);
  if (rest > half || (rest == half && (q & 1) != 0)) ++q;
  if ((q >> 64) != 0) return false;
  *scaled_value = static_cast<uint64_t>(q);
  return true;
}

size_t format_fixed6(double v, char *out) {
  uint64_t n;
  if (!scaled6(v, &n)) {
    const auto r = std::to_chars(out, out + kFixed6Size - 1, v, std::chars_format::fixed, 6);
    *r.ptr = '\0';
    return static_cast<size_t>(r.ptr - out);
  }
  char *p = out;
  if (std::signbit(v)) *p++ = '-';
  p = put_decimal(p, n / 1000000);
  auto fraction = static_cast<uint32_t>(n % 1000000);
  p[0] = '.';
  for (int k = 6; k > 0; k -= 2) {
    const uint32_t pair = fraction % 100 * 2;
    fraction /= 100;
    p[k - 1] = kDigitPairs[pair];
    p[k] = kDigitPairs[pair + 1];
  }
  p[7] = '\0';
  return static_cast<size_t>(p + 7 - out);
}

// The trimmed text straight from the scaled integer: the integer part, then
// the point and the fraction's digits without its trailing zeros, if any.
char *put_number_fast(char *p, double v) {
  if (v >= -2147483648.0 && v <= 2147483647.0) {
    const auto i = static_cast<int32_t>(v);
    if (static_cast<double>(i) == v) {  // integral ("%d"); -0.0 gives "0"
      if (i < 0) *p++ = '-';
      return put_decimal(p, i < 0 ? 0u - static_cast<uint32_t>(i) : static_cast<uint32_t>(i));
    }
  }
  uint64_t n;
  if (!scaled6(v, &n)) return nullptr;
  if (std::signbit(v)) *p++ = '-';
  p = put_decimal(p, n / 1000000);
  auto fraction = static_cast<uint32_t>(n % 1000000);
  if (fraction == 0) return p;
  int digits = 6;
  while (fraction % 10 == 0) {
    fraction /= 10;
    --digits;
  }
  *p = '.';
  for (int k = digits; k > 0; --k) {
    p[k] = static_cast<char>('0' + fraction % 10);
    fraction /= 10;
  }
  return p + digits + 1;
}

size_t format_number(double v, char *out) {
  char *end = put_number_fast(out, v);
  if (end != nullptr) {
    *end = '\0';
    return static_cast<size_t>(end - out);
  }
  format_fixed6(v, out);
  return trimzero(out);
}

}  // namespace orlix::json

namespace {

class Encoder {
 public:
  explicit Encoder(ORLIX_Stream *stream) : out_(stream) {}
  bool value(const ORLIX_JSON *node, uint32_t flags, int32_t level);
  bool finish() { return out_.flush(); }

 private:
  // One level is N spaces (ORLIX_JSON_ENCODE_SPACES) and a tab.
  bool indent(uint32_t flags, int32_t level) {
    if ((flags & kPretty) == 0 || level <= 0) return true;
    const uint32_t spaces =
        (flags & ORLIX_JSON_ENCODE_SPACES) != 0 ? flags & ORLIX_JSON_ENCODE_SPACES_MASK : 0;
    if (spaces == 0) {
      for (int32_t l = 0; l < level; ++l)
        if (!out_.put('\t')) return false;
      return true;
    }
    char unit[ORLIX_JSON_ENCODE_SPACES_MASK + 1];
    std::memset(unit, ' ', spaces);
    unit[spaces] = '\t';
    for (int32_t l = 0; l < level; ++l)
      if (!out_.put(unit, spaces + 1)) return false;
    return true;
  }
  bool newline(uint32_t flags) {
    if ((flags & kPretty) == 0) return true;
    if ((flags & ORLIX_JSON_ENCODE_CR) != 0 && !out_.put('\r')) return false;
    return (flags & ORLIX_JSON_ENCODE_LF) == 0 || out_.put('\n');
  }
  enum Step { kFailed, kDone, kOpened };
  Step start(const ORLIX_JSON *node, uint32_t flags, int32_t level);
  bool string(const char *bytes, int32_t length);
  bool number(double v);
  __attribute__((noinline)) bool long_number(double v);
  bool compact(const ORLIX_JSON *node);

  Writer out_;
};

// Writes the quoted string. The text goes in pieces of at most kPiece
// bytes, each into room for its worst case (every byte a six-byte escape)
// plus the 16 bytes a vector store may write beyond what it keeps.
bool Encoder::string(const char *bytes, int32_t length) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  constexpr int64_t kPiece = 128;
  static_assert(kPiece * 6 + 2 + 16 <= Writer::kRoom);
  const auto *s = reinterpret_cast<const unsigned char *>(bytes);
  char *p = out_.room(Writer::kRoom);
  if (p == nullptr) return false;
  *p++ = '"';
  int64_t at = 0;
  const bool vector = orlix::json::g_form != orlix::json::Form::kPortable;
  for (;;) {
    const int64_t end = length - at > kPiece ? at + kPiece : length;
    while (at < end) {
#if defined(__SSE2__)
      if (vector) {
        const __m128i quote = _mm_set1_epi8('"');
        const __m128i backslash = _mm_set1_epi8('\\');
        const __m128i controls = _mm_set1_epi8(0x1F);
        const __m128i zero = _mm_setzero_si128();
        while (end - at >= 16) {
          const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + at));
          _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v);
          const __m128i stop = _mm_or_si128(
              _mm_or_si128(_mm_cmpeq_epi8(v, quote), _mm_cmpeq_epi8(v, backslash)),
              _mm_cmpeq_epi8(_mm_subs_epu8(v, controls), zero));
          const auto mask = static_cast<unsigned>(_mm_movemask_epi8(stop));
          if (mask != 0) {
            const int plain = __builtin_ctz(mask);
            p += plain;
            at += plain;
            break;
          }
          p += 16;
          at += 16;
        }
        // Then 8 bytes at a time as one word: a byte is flagged when it is
        // below 0x20 or equal to a quote or a backslash.
        constexpr uint64_t kOnes = 0x0101010101010101u;
        constexpr uint64_t kHigh = 0x8080808080808080u;
        while (end - at >= 8) {
          uint64_t w;
          std::memcpy(&w, s + at, 8);
          const uint64_t q = w ^ (kOnes * '"');
          const uint64_t b = w ^ (kOnes * '\\');
          const uint64_t flagged = ((w - kOnes * 0x20) & ~w) | ((q - kOnes) & ~q) | ((b - kOnes) & ~b);
          if ((flagged & kHigh) != 0) break;  // the byte loop finds which
          std::memcpy(p, &w, 8);
          p += 8;
          at += 8;
        }
      }
#endif
      while (at < end && !kEscape.escaped[s[at]]) *p++ = static_cast<char>(s[at++]);
      if (at == end) break;
      const unsigned char c = s[at++];
      if (c == '"' || c == '\\') {
        p[0] = '\\';
        p[1] = static_cast<char>(c);
        p += 2;
      } else {
        std::memcpy(p, "\\u00", 4);
        p[4] = kHex[c >> 4];
        p[5] = kHex[c & 15];
        p += 6;
      }
    }
    if (at == length) break;
    out_.advance(p);
    p = out_.room(Writer::kRoom);
    if (p == nullptr) return false;
  }
  *p++ = '"';
  out_.advance(p);
  return true;
}

// Integral values in 32-bit range as "%d"; everything else as "%lf" then
// trimmed. Formatting never depends on the process locale.
bool Encoder::number(double v) {
  char *p = out_.room(32);
  if (p == nullptr) return false;
  if (char *end = orlix::json::put_number_fast(p, v); end != nullptr) {
    out_.advance(end);
    return true;
  }
  return long_number(v);
}

// Magnitudes from about 1.8e13, infinities and NaN.
bool Encoder::long_number(double v) {
  char text[orlix::json::kFixed6Size];
  const size_t n = orlix::json::format_number(v, text);
  return out_.put(text, n);
}

// Compact text, with no indentation and no line breaks (the whole output
// without ORLIX_JSON_ENCODE_PRETTY, and every member value with it). The
// container being written stays in locals; only its ancestors wait on the
// stack.
bool Encoder::compact(const ORLIX_JSON *node) {
  struct Open {
    const ORLIX_JSON *node;
    int32_t next;  // the entry to write next
  };
  orlix::SmallBuffer<Open, 64> open(orlix::json::kModule);
  const ORLIX_JSON *container = nullptr;  // the innermost open one
  int32_t next = 0;
  for (;;) {
    if (node == nullptr) return false;
    char *p = out_.room(8);
    if (p == nullptr) return false;
    switch (node->type) {
      case ORLIX_JSON_STRING:
        if (!string(node->value.string, node->length)) return false;
        break;
      case ORLIX_JSON_NUMBER:
        if (!number(node->value.number)) return false;
        break;
      case ORLIX_JSON_BOOLEAN:
        if (node->value.boolean) {
          std::memcpy(p, "true", 4);
          out_.advance(p + 4);
        } else {
          std::memcpy(p, "false", 5);
          out_.advance(p + 5);
        }
        break;
      case ORLIX_JSON_NULL:
        std::memcpy(p, "null", 4);
        out_.advance(p + 4);
        break;
      case ORLIX_JSON_OBJECT:
      case ORLIX_JSON_ARRAY:
        p[0] = node->type == ORLIX_JSON_OBJECT ? '{' : '[';
        if (node->length == 0) {
          p[1] = node->type == ORLIX_JSON_OBJECT ? '}' : ']';
          out_.advance(p + 2);
        } else {
          out_.advance(p + 1);
          if (container != nullptr && !open.push_back(Open{container, next})) return false;
          container = node;
          next = 0;
        }
        break;
      default: return false;
    }
    // The next value: the next entry of the innermost open container,
    // closing those that are done.
    for (;;) {
      if (container == nullptr) return true;
      const bool object = container->type == ORLIX_JSON_OBJECT;
      if (next == container->length) {
        if (!out_.put(object ? '}' : ']')) return false;
        if (open.empty()) return true;
        container = open.back().node;
        next = open.back().next;
        open.pop_back();
        continue;
      }
      if (next > 0 && !out_.put(',')) return false;
      if (object) {
        const Member &m = orlix::json::members(container)[next];
        if (!string(m.name->value.string, m.name->length) || !out_.put(':')) return false;
        node = m.value;
      } else {
        node = orlix::json::elements(container)[next];
      }
      ++next;
      break;
    }
  }
}

// Writes a scalar, or opens a container. Returns kOpened for a container
// with entries (the caller then walks them), kDone otherwise, kFailed on
// error.
Encoder::Step Encoder::start(const ORLIX_JSON *node, uint32_t flags, int32_t level) {
  if (node == nullptr) return kFailed;
  const bool object = node->type == ORLIX_JSON_OBJECT;
  if (object || node->type == ORLIX_JSON_ARRAY) {
    if (!indent(flags, level) || !out_.put(object ? '{' : '[') || !newline(flags)) return kFailed;
    if (node->length > 0) return kOpened;
    return indent(flags, level) && out_.put(object ? '}' : ']') ? kDone : kFailed;
  }
  if (node->type < ORLIX_JSON_STRING || node->type > ORLIX_JSON_NULL) return kFailed;
  if (!indent(flags, level)) return kFailed;
  bool ok;
  switch (node->type) {
    case ORLIX_JSON_STRING: ok = string(node->value.string, node->length); break;
    case ORLIX_JSON_NUMBER: ok = number(node->value.number); break;
    case ORLIX_JSON_BOOLEAN: ok = out_.put(node->value.boolean ? "true" : "false"); break;
    default: ok = out_.put("null"); break;
  }
  return ok ? kDone : kFailed;
}

// Walks the tree with an explicit stack of open containers, so that depth
// costs heap rather than C stack. In indented output a member's value is
// always written compact: its flags are 0 whatever the container's.
bool Encoder::value(const ORLIX_JSON *root, uint32_t flags, int32_t level) {
  struct Open {
    const ORLIX_JSON *node;
    int32_t next;  // the entry to write next
    int32_t count;
    uint32_t flags;
    int32_t level;
  };
  if ((flags & kPretty) == 0) return compact(root);
  Step step = start(root, flags, level);
  if (step != kOpened) return step == kDone;
  orlix::SmallBuffer<Open, 64> open(orlix::json::kModule);
  if (!open.push_back(Open{root, 0, root->length, flags, level}))
    return false;
  while (!open.empty()) {
    const Open f = open.back();
    // After each entry: a comma unless it was the last, then a line break.
    if (f.next > 0 && ((f.next < f.count && !out_.put(',')) || !newline(f.flags))) return false;
    const bool object = f.node->type == ORLIX_JSON_OBJECT;
    if (f.next == f.count) {
      open.pop_back();
      if (!indent(f.flags, f.level) || !out_.put(object ? '}' : ']')) return false;
      continue;
    }
    ++open.back().next;
    const ORLIX_JSON *child;
    uint32_t child_flags = f.flags;
    if (object) {
      const Member &m = orlix::json::members(f.node)[f.next];
      if (!indent(f.flags, f.level + 1) || !string(m.name->value.string, m.name->length) ||
          !out_.put(':'))
        return false;
      child = m.value;
      child_flags = 0;
    } else {
      child = orlix::json::elements(f.node)[f.next];
    }
    if (child_flags == 0) {  // a member's value
      if (!compact(child)) return false;
      continue;
    }
    step = start(child, child_flags, f.level + 1);
    if (step == kFailed) return false;
    if (step == kOpened &&
        !open.push_back(Open{child, 0, child->length, child_flags, f.level + 1}))
      return false;
  }
  return true;
}

// Indented output can be far larger than the tree: every entry repeats the
// indentation of its level. Before writing anything, this adds up the
// indentation and line breaks alone (a lower bound of the text) and
// answers true when they already pass what *length can report, or when
// memory for the walk runs out, so that such a tree fails at once instead
// of after gigabytes of output. Only arrays pass the indented layout on to
// their entries (member values are compact), so only they are descended.
bool indented_output_too_long(const ORLIX_JSON *root, uint32_t flags) {
  if ((flags & kPretty) == 0 || root == nullptr) return false;
  const uint64_t unit =
      1 + ((flags & ORLIX_JSON_ENCODE_SPACES) != 0 ? flags & ORLIX_JSON_ENCODE_SPACES_MASK : 0);
  const uint64_t line = ((flags & ORLIX_JSON_ENCODE_CR) != 0) + ((flags & ORLIX_JSON_ENCODE_LF) != 0);
  constexpr uint64_t kLimit = UINT32_MAX;
  uint64_t total = 0;
  struct Open {
    const ORLIX_JSON *node;
    int32_t next;
    int32_t count;
    uint64_t level;
  };
  orlix::SmallBuffer<Open, 64> open(orlix::json::kModule);
  const ORLIX_JSON *node = root;
  uint64_t level = 0;
  for (;;) {
    // Each addition is below 2^40, so the sum cannot wrap before the test.
    if (node != nullptr) {
      total += unit * level;  // before the value or the opening bracket
      if (node->type == ORLIX_JSON_OBJECT || node->type == ORLIX_JSON_ARRAY) {
        const int32_t count = node->length;
        total += line + unit * level;  // after the opening, before the closing bracket
        if (node->type == ORLIX_JSON_OBJECT) {
          total += static_cast<uint64_t>(count) * (unit * (level + 1) + line);
        } else if (count > 0) {
          total += static_cast<uint64_t>(count) * line;
          if (!open.push_back(Open{node, 0, count, level})) return true;
        }
      }
      if (total > kLimit) return true;
    }
    // The next array entry still to visit.
    node = nullptr;
    while (!open.empty() && open.back().next == open.back().count) open.pop_back();
    if (open.empty()) return false;
    Open &f = open.back();
    node = orlix::json::elements(f.node)[f.next++];
    level = f.level + 1;
  }
}

// Sorts the top-level container in place; scalars are left alone. false
// for an unknown type code, or when memory for the comparison runs out
// (the container is then left as it was).
bool sort_top(ORLIX_JSON *json) {
  orlix::json::Comparer comparer;
  switch (json->type) {
    case ORLIX_JSON_OBJECT:
      if (!comparer.prepare(json)) return false;
      if (json->length > 1)
        qsort_r(json->value.entries, static_cast<size_t>(json->length), sizeof(Member),
              orlix::json::compare_member_slots, &comparer);
      return true;
    case ORLIX_JSON_ARRAY:
      if (!comparer.prepare(json)) return false;
      if (json->length > 1)
        qsort_r(json->value.entries, static_cast<size_t>(json->length), sizeof(ORLIX_JSON *),
              orlix::json::compare_value_slots, &comparer);
      return true;
    case ORLIX_JSON_STRING:
    case ORLIX_JSON_NUMBER:
    case ORLIX_JSON_BOOLEAN:
    case ORLIX_JSON_NULL: return true;
    default: return false;
  }
}

}  // namespace

extern "C" int orlix_json_encode(ORLIX_JSON *json, uint32_t flags, char **bytes,
                                 uint32_t *length) {
  if (json == nullptr || bytes == nullptr || length == nullptr) return 0;
  if ((flags & ORLIX_JSON_ENCODE_SORT) != 0 && !sort_top(json)) return 0;
  if (indented_output_too_long(json, flags)) return 0;
  ORLIX_Stream *stream = orlix_stream_new_mem(32, nullptr);
  if (stream == nullptr) return 0;
  unsigned char *buffer = nullptr;
  int64_t size = 0;
  bool ok;
  {
    Encoder encoder(stream);
    ok = encoder.value(json, flags, 0) && encoder.finish() &&
         orlix_stream_writen(stream, "", 1, nullptr) == 1 &&
         orlix_memstreamdeatch(stream, &buffer, &size) == 1;
  }
  orlix_stream_free(stream);
  if (!ok) return 0;
  *bytes = reinterpret_cast<char *>(buffer);
  *length = static_cast<uint32_t>(size - 1);
  return 1;
}
