// IDNA (RFC 3490): ToASCII and ToUnicode of labels and domain names, over
// nameprep and the Punycode codec of RFC 3492.
#include "ustring/ORLIX_UString_IDNA.hpp"

#include <algorithm>
#include <cstring>

#include "ORLIX_Util.h"
#include "core/memory.hpp"
#include "ustring/ORLIX_UString_Prep.hpp"

namespace orlix::idna {

namespace {

constexpr const char kModule[] = "ORLIX_UString";

// Punycode parameters.
constexpr uint32_t kBase = 36;
constexpr uint32_t kTMin = 1;
constexpr uint32_t kTMax = 26;
constexpr uint32_t kSkew = 38;
constexpr uint32_t kDamp = 700;
constexpr uint32_t kInitialBias = 72;
constexpr uint32_t kInitialN = 128;
constexpr uint16_t kDelimiter = 0x2D;

constexpr int64_t kMaxLabel = 63;  // code points of a label, before and after encoding

// ---- the STD3 table -----------------------------------------------------------------

struct UnitRange {
  uint16_t first;
  uint16_t last;
};

constexpr UnitRange kLdhRanges[] = {
    {0x00, 0x2C}, {0x2E, 0x2F}, {0x3A, 0x40}, {0x5B, 0x60}, {0x7B, 0x7F},
};

struct LdhTable {
  uint16_t rows[kLdhAsciiRows];
};

constexpr LdhTable expand_ldh() {
  LdhTable table{};
  int64_t n = 0;
  for (const UnitRange &r : kLdhRanges)
    for (uint32_t u = r.first; u <= r.last; ++u) table.rows[n++] = static_cast<uint16_t>(u);
  return table;
}

constexpr int64_t ldh_rows() {
  int64_t n = 0;
  for (const UnitRange &r : kLdhRanges) n += r.last - r.first + 1;
  return n;
}
static_assert(ldh_rows() == kLdhAsciiRows);

constexpr LdhTable kLdh = expand_ldh();

// ---- Punycode -----------------------------------------------------------------------

uint32_t adapt(uint64_t delta, uint64_t numpoints, bool first) {
  delta = first ? delta / kDamp : delta / 2;
  delta += delta / numpoints;
  uint32_t k = 0;
  while (delta > ((kBase - kTMin) * kTMax) / 2) {
    delta /= kBase - kTMin;
    k += kBase;
  }
  return k + static_cast<uint32_t>((kBase - kTMin + 1) * delta / (delta + kSkew));
}

inline uint32_t threshold(uint32_t k, uint32_t bias) {
  if (k <= bias) return kTMin;
  if (k >= bias + kTMax) return kTMax;
  return k - bias;
}

inline uint32_t encode_digit(uint64_t d) {
  if (d < 26) return static_cast<uint32_t>('a' + d);
  if (d < 36) return static_cast<uint32_t>('0' + (d - 26));
  return 0;
}

inline int decode_digit(uint16_t u) {
  if (u >= 'A' && u <= 'Z') return u - 'A';
  if (u >= 'a' && u <= 'z') return u - 'a';
  if (u >= '0' && u <= '9') return u - '0' + 26;
  return -1;
}

// ---- labels -----------------------------------------------------------------------

struct Flags {
  bool allow_unassigned;
  bool use_std3;
  bool allow_wildcard;
};

inline bool is_separator(uint16_t u) {
  return u == 0x002E || u == 0x3002 || u == 0xFF0E || u == 0xFF61;
}

inline bool has_ace_prefix(const uint16_t *d, int64_t n) {
  return n >= 4 && (d[0] == 'x' || d[0] == 'X') && (d[1] == 'n' || d[1] == 'N') && d[2] == '-' &&
         d[3] == '-';
}

inline bool all_ascii(const uint16_t *d, int64_t n) {
  for (int64_t i = 0; i < n; ++i)
    if (d[i] >= 0x80) return false;
  return true;
}

bool ldh_listed(uint16_t u) {
  int64_t position = 0;
  return orlix_bsearch(&u, g_LDHASCII_Table, kLdhAsciiRows, sizeof(uint16_t), asciiCmp,
                       &position) == 1;
}

using Bytes = SmallBuffer<char, 64>;

// ToASCII of a label of n > 0 units into *out (which is cleared first);
// false when the label is refused or memory runs out.
bool label_to_ascii(const uint16_t *units, int64_t n, const Flags &f, Bytes *out) {
  out->clear();
  OwnedString prepared;
  const uint16_t *d = units;
  int64_t len = n;
  if (!all_ascii(units, n)) {
    prepared.reset(nameprep_units(units, n, f.allow_unassigned));
    if (!prepared) return false;
    d = prepared->data;
    len = prepared->length;
  }
  if (f.use_std3 && len > 0) {
    if (d[0] == '-' || d[len - 1] == '-') return false;
    for (int64_t i = 0; i < len; ++i)
      if (d[i] < 0x80 && ldh_listed(d[i]) && !(d[i] == '*' && f.allow_wildcard)) return false;
  }
  if (all_ascii(d, len)) {
    if (len < 1 || len > kMaxLabel || !out->resize(len)) return false;
    for (int64_t i = 0; i < len; ++i) (*out)[i] = static_cast<char>(d[i]);
    return true;
  }
  if (has_ace_prefix(d, len)) return false;
  SmallBuffer<uint32_t, 64> cps(kModule);
  for (int64_t i = 0; i < len;) {
    int width = 1;
    if (!cps.push_back(code_point_at(d, len, i, &width))) return false;
    i += width;
  }
  if (cps.size() > kMaxLabel) return false;
  OwnedBuffer encoded(ORLIX_UString_Buffer_new(256));
  if (!encoded || !punycode_encode(cps.data(), cps.size(), encoded.get())) return false;
  // The encoding is ASCII, one unit per code point.
  const int64_t total = 4 + encoded->length;
  if (total > kMaxLabel || !out->resize(total)) return false;
  std::memcpy(out->data(), "xn--", 4);
  for (int64_t i = 0; i < encoded->length; ++i) (*out)[4 + i] = static_cast<char>(encoded->data[i]);
  return true;
}

// Hands out n bytes as a new NUL-terminated buffer.
bool hand_out(const char *bytes, int64_t n, char **out, int64_t *count) {
  auto *copy = orlix::alloc_array<char>(n + 1, kModule, __LINE__);
  if (copy == nullptr) return false;
  std::memcpy(copy, bytes, static_cast<size_t>(n));
  copy[n] = '\0';
  *out = copy;
  *count = n;
  return true;
}

// ToUnicode of a non-empty label: the decoded label, or the label itself
// with one more reference.
ORLIX_UString *label_to_unicode(ORLIX_UString *label, const Flags &f) {
  const uint16_t *d = label->data;
  int64_t len = label->length;
  OwnedString prepared;
  if (!all_ascii(d, len)) {
    prepared.reset(nameprep_units(d, len, f.allow_unassigned));
    if (!prepared) return orlix_ustring_dup(label);
    d = prepared->data;
    len = prepared->length;
  }
  // The check below compares the prepared label with a ToASCII result,
  // which never has more than 63 characters.
  if (len < 5 || len > kMaxLabel || !has_ace_prefix(d, len) || !all_ascii(d, len))
    return orlix_ustring_dup(label);
  SmallBuffer<uint32_t, 64> cps(kModule);
  if (!punycode_decode(d + 4, len - 4, &cps)) return orlix_ustring_dup(label);
  uint64_t wide[kMaxLabel];
  for (int64_t i = 0; i < cps.size(); ++i) wide[i] = cps[i];  // at most len - 4 code points
  OwnedString decoded(orlix_ustring_newutf32(wide, cps.size()));
  if (!decoded || decoded->length == 0) return orlix_ustring_dup(label);

  // Back through ToASCII: the result must be the prepared label, where an
  // upper-case letter of the label matches its lower-case form.
  Bytes ascii(kModule);
  if (!label_to_ascii(decoded->data, decoded->length, f, &ascii) || ascii.size() != len)
    return orlix_ustring_dup(label);
  for (int64_t i = 0; i < len; ++i) {
    const uint16_t u = d[i];
    const auto b = static_cast<uint16_t>(static_cast<unsigned char>(ascii[i]));
    if (u != b && !(u >= 'A' && u <= 'Z' && u + 0x20 == b)) return orlix_ustring_dup(label);
  }
  return decoded.release();
}

// True when ToUnicode would give the label back untouched without looking
// further: ASCII without the ACE prefix.
inline bool plain_ascii_label(const uint16_t *d, int64_t n) {
  return !has_ace_prefix(d, n) && all_ascii(d, n);
}

}  // namespace

const uint16_t *const g_LDHASCII_Table = kLdh.rows;

int asciiCmp(const void *key, const void *row) {
  const uint16_t a = *static_cast<const uint16_t *>(key);
  const uint16_t b = *static_cast<const uint16_t *>(row);
  return a < b ? -1 : (a > b ? 1 : 0);
}

bool punycode_encode(const uint32_t *cps, int64_t n, ORLIX_UString_Buffer *b) {
  int64_t basic = 0;
  for (int64_t j = 0; j < n; ++j) {
    if (cps[j] >= 0x80) continue;
    if (!buffer_put(b, cps[j])) return false;
    ++basic;
  }
  if (basic > 0 && !buffer_put(b, kDelimiter)) return false;
  uint64_t next = kInitialN;
  uint64_t delta = 0;
  uint32_t bias = kInitialBias;
  for (int64_t h = basic; h < n;) {
    uint64_t m = UINT64_MAX;
    for (int64_t j = 0; j < n; ++j)
      if (cps[j] >= next && cps[j] < m) m = cps[j];
    delta += (m - next) * static_cast<uint64_t>(h + 1);
    next = m;
    for (int64_t j = 0; j < n; ++j) {
      if (cps[j] < next) ++delta;
      if (cps[j] != next) continue;
      uint64_t q = delta;
      for (uint32_t k = kBase;; k += kBase) {
        const uint32_t t = threshold(k, bias);
        if (q < t) break;
        if (!buffer_put(b, encode_digit(t + (q - t) % (kBase - t)))) return false;
        q = (q - t) / (kBase - t);
      }
      if (!buffer_put(b, encode_digit(q))) return false;
      bias = adapt(delta, static_cast<uint64_t>(h + 1), h == basic);
      delta = 0;
      ++h;
    }
    ++delta;
    ++next;
  }
  return true;
}

bool punycode_decode(const uint16_t *in, int64_t n, SmallBuffer<uint32_t, 64> *out) {
  out->clear();
  int64_t pos = 0;
  int64_t delimiter = -1;
  for (int64_t j = 0; j < n; ++j)
    if (in[j] == kDelimiter) delimiter = j;
  if (delimiter >= 0) {
    for (int64_t j = 0; j < delimiter; ++j)
      if (in[j] >= 0x80 || !out->push_back(in[j])) return false;
    pos = delimiter + 1;
  }
  uint64_t next = kInitialN;
  uint64_t i = 0;
  uint32_t bias = kInitialBias;
  while (pos < n) {
    const uint64_t oldi = i;
    const auto points = static_cast<uint64_t>(out->size() + 1);
    // Once i reaches this, the code point lands above U+10FFFF. Stopping
    // there keeps the arithmetic exact (it cannot overflow).
    const uint64_t limit = (0x110000 - next) * points;
    uint64_t w = 1;
    for (uint32_t k = kBase;; k += kBase) {
      if (pos >= n) return false;
      const int digit = decode_digit(in[pos++]);
      if (digit < 0) return false;
      if (static_cast<uint64_t>(digit) > (limit - 1 - i) / w) return false;
      i += static_cast<uint64_t>(digit) * w;
      const uint32_t t = threshold(k, bias);
      if (static_cast<uint32_t>(digit) < t) break;
      w = w > (limit - 1) / (kBase - t) ? limit : w * (kBase - t);
    }
    bias = adapt(i - oldi, points, oldi == 0);
    next += i / points;
    i %= points;
    if (next > 0x10FFFF || !out->push_back(0)) return false;
    uint32_t *d = out->data();
    std::memmove(d + i + 1, d + i,
                 static_cast<size_t>(out->size() - 1 - static_cast<int64_t>(i)) * 4);
    d[i] = static_cast<uint32_t>(next);
    ++i;
  }
  return true;
}

}  // namespace orlix::idna

extern "C" {

int orlix_ustring_idnlabel_toascii(const ORLIX_UString *label, int32_t allowunassigned,
                                   int32_t usestd3asciirules, int32_t allowwildcard, char **out,
                                   int64_t *count) {
  using namespace orlix::idna;
  if (label == nullptr || label->length == 0 || out == nullptr || count == nullptr) return 0;
  const Flags f{allowunassigned != 0, usestd3asciirules != 0, allowwildcard != 0};
  Bytes bytes(kModule);
  if (!label_to_ascii(label->data, label->length, f, &bytes)) return 0;
  return hand_out(bytes.data(), bytes.size(), out, count) ? 1 : 0;
}

int orlix_ustring_idn_toascii(const ORLIX_UString *domain, int32_t allowunassigned,
                              int32_t usestd3asciirules, int32_t allowwildcard, char **out,
                              int64_t *count) {
  using namespace orlix::idna;
  if (domain == nullptr || domain->length == 0 || out == nullptr || count == nullptr) return 0;
  const Flags f{allowunassigned != 0, usestd3asciirules != 0, allowwildcard != 0};
  const uint16_t *d = domain->data;
  const int64_t n = domain->length;
  orlix::SmallBuffer<char, 256> name(kModule);
  Bytes label(kModule);
  // encodednlabel, label by label: an empty label (a separator first, two in
  // a row, or one last) refuses the whole name.
  for (int64_t start = 0, i = 0; i <= n; ++i) {
    if (i < n && !is_separator(d[i])) continue;
    if (i == start || !label_to_ascii(d + start, i - start, f, &label)) return 0;
    for (int64_t k = 0; k < label.size(); ++k)
      if (!name.push_back(label[k])) return 0;
    if (i < n && !name.push_back('.')) return 0;
    start = i + 1;
  }
  return hand_out(name.data(), name.size(), out, count) ? 1 : 0;
}

ORLIX_UString *orlix_ustring_idnlabel_tounicode(ORLIX_UString *label, int32_t allowunassigned,
                                                int32_t usestd3asciirules, int32_t allowwildcard) {
  using namespace orlix::idna;
  if (label == nullptr) return nullptr;
  if (label->length == 0) return orlix_ustring_dup(label);
  return label_to_unicode(label,
                          {allowunassigned != 0, usestd3asciirules != 0, allowwildcard != 0});
}

ORLIX_UString *orlix_ustring_idn_tounicode(ORLIX_UString *domain, int32_t allowunassigned,
                                           int32_t usestd3asciirules, int32_t allowwildcard) {
  using namespace orlix::idna;
  if (domain == nullptr) return nullptr;
  if (domain->length == 0) return orlix_ustring_dup(domain);
  const Flags f{allowunassigned != 0, usestd3asciirules != 0, allowwildcard != 0};
  const uint16_t *d = domain->data;
  const int64_t n = domain->length;
  orlix::SmallBuffer<uint16_t, 256> units(kModule);
  int64_t chars = 0;
  bool pairs = false;
  auto append = [&](const uint16_t *p, int64_t k) {
    const int64_t at = units.size();
    if (!units.resize(at + k)) return false;
    std::memcpy(units.data() + at, p, static_cast<size_t>(k) * 2);
    return true;
  };
  for (int64_t start = 0, i = 0; i <= n; ++i) {
    if (i < n && !is_separator(d[i])) continue;
    // An empty label - also after a separator at the end - gives the name back.
    if (i == start) return orlix_ustring_dup(domain);
    const uint16_t *p = d + start;
    const int64_t k = i - start;
    if (plain_ascii_label(p, k)) {
      if (!append(p, k)) return orlix_ustring_dup(domain);
      chars += k;
    } else {
      orlix::OwnedString piece(orlix_ustring_newlength(p, k));
      if (!piece) return orlix_ustring_dup(domain);
      orlix::OwnedString converted(label_to_unicode(piece.get(), f));
      if (!converted || !append(converted->data, converted->length))
        return orlix_ustring_dup(domain);
      chars += converted->charcount;
      pairs |= converted->hassurrogate != 0;
    }
    if (i < n) {
      const uint16_t stop = 0x2E;
      if (!append(&stop, 1)) return orlix_ustring_dup(domain);
      ++chars;
    }
    start = i + 1;
  }
  ORLIX_UString *s = orlix::utf16::make(units.size());
  if (s == nullptr) return orlix_ustring_dup(domain);
  std::memcpy(s->data, units.data(), static_cast<size_t>(units.size()) * 2);
  return orlix::utf16::finish(s, units.size(), chars, pairs);
}

}  // extern "C"
