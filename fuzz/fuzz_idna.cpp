// IDNA both ways.
//
// Properties: ToASCII gives ASCII, 1 to 63 bytes per label, one label per
// label of the input (each what the label operation gives); for a non-ASCII
// label ToASCII accepts, ToUnicode(ToASCII(x)) is nameprep(x) - unless
// nameprep(x) is ASCII with the ACE prefix (ToUnicode then decodes it), or
// the LV rule of the normalizer makes nameprep(nameprep(x)) differ from
// nameprep(x), which must then be explained by an L + V pair in the mapped
// text. ToUnicode never fails, gives back its argument whenever it does not
// decode, and decodes only to well-formed text; an ACE label built from raw
// input bytes exercises the Punycode decoder.
//
// Input: [flags] then code points, each a selector byte and up to two more.
#include <string>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"
#include "ustring/ORLIX_UString.hpp"
#include "ustring/ORLIX_UString_Prep.hpp"

namespace {

using fuzz::Make;
using fuzz::Str;

using Text = std::vector<uint32_t>;

uint32_t NextCodePoint(fuzz::Reader &in) {
  static const uint32_t kSpecial[] = {'.',    '-',  '*',   '_',   0x3002, 0xFF0E, 0xFF61, 0xAD,
                                      0x200B, 0xDF, 0x130, 0x5D0, 0x627,  0x661,  0x1100, 0x1161};
  const uint8_t s = in.u8();
  if (s < 0x50)
    return "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-xnXN.-"[s % 70];
  if (s < 0x70) return kSpecial[s % 16];
  if (s < 0xE0) {
    const uint32_t cp = 0x80 + in.u16() % 0xFF80;
    return orlix::utf16::is_surrogate(cp) ? cp - 0x800 : cp;
  }
  return 0x10000 + (in.u16() | (in.u8() % 3) << 16);
}

Text Decode(const ORLIX_UString *s) {
  Text out;
  for (int64_t i = 0; i < s->length; ++i) {
    uint32_t u = s->data[i];
    if (orlix::utf16::is_high(u) && i + 1 < s->length) u = orlix::utf16::combine(u, s->data[++i]);
    FUZZ_CHECK(!orlix::utf16::is_surrogate(u));
    out.push_back(u);
  }
  FUZZ_CHECK(s->charcount == static_cast<int64_t>(out.size()) && s->data[s->length] == 0);
  return out;
}

bool IsSeparator(uint32_t c) { return c == '.' || c == 0x3002 || c == 0xFF0E || c == 0xFF61; }

bool AllAscii(const Text &t) {
  for (uint32_t c : t)
    if (c >= 0x80) return false;
  return true;
}

struct Flags {
  int32_t allow, std3, wildcard;
};

bool ToAscii(const Text &label, const Flags &f, std::string *out) {
  Str s(Make(label));
  char *bytes = nullptr;
  int64_t n = 0;
  if (orlix_ustring_idnlabel_toascii(s.s, f.allow, f.std3, f.wildcard, &bytes, &n) != 1)
    return false;
  FUZZ_CHECK(n >= 1 && n <= 63 && bytes[n] == '\0', "label of %lld bytes",
             static_cast<long long>(n));
  for (int64_t i = 0; i < n; ++i) FUZZ_CHECK(static_cast<unsigned char>(bytes[i]) < 0x80);
  out->assign(bytes, static_cast<size_t>(n));
  orlix_free(bytes);
  return true;
}

// An L + V pair in the text nameprep normalizes, followed by anything.
bool HasLvPair(const Text &label) {
  Str s(Make(label));
  Str mapped(orlix::fold_units(s.s->data, s.s->length, 2, true));
  Str d(orlix_ustring_normalize(mapped.s, ORLIX_NORMALIZE_NFKD));
  const Text t = Decode(d.s);
  for (size_t i = 0; i + 2 < t.size(); ++i)
    if (t[i] >= 0x1100 && t[i] <= 0x1112 && t[i + 1] >= 0x1161 && t[i + 1] <= 0x1175) return true;
  return false;
}

void CheckLabel(const Text &label, const Flags &f) {
  std::string ascii;
  if (!ToAscii(label, f, &ascii) || AllAscii(label)) return;
  Str s(Make(label));
  Str prepared(orlix_ustring_idn_stringprep(s.s, f.allow));
  FUZZ_CHECK(prepared.s != nullptr, "ToASCII accepted what nameprep refuses");
  const Text p = Decode(prepared.s);
  if (AllAscii(p)) {
    FUZZ_CHECK(ascii == std::string(p.begin(), p.end()));
    const bool ace =
        p.size() >= 4 && (p[0] | 0x20) == 'x' && (p[1] | 0x20) == 'n' && p[2] == '-' && p[3] == '-';
    if (ace) return;
  } else {
    FUZZ_CHECK(ascii.compare(0, 4, "xn--") == 0);
  }
  Str again(orlix_ustring_idn_stringprep(prepared.s, f.allow));
  if (again.s == nullptr || Decode(again.s) != p) {
    FUZZ_CHECK(HasLvPair(label), "nameprep is not stable without the LV rule");
    return;
  }
  Str ace(orlix_ustring_newascii(ascii.data(), static_cast<int64_t>(ascii.size())));
  Str back(orlix_ustring_idnlabel_tounicode(ace.s, f.allow, f.std3, f.wildcard));
  FUZZ_CHECK(Decode(back.s) == p, "ToUnicode(ToASCII(x)) is not nameprep(x)");
}

void CheckDomain(const Text &name, const Flags &f) {
  std::vector<Text> labels(1);
  for (uint32_t c : name) {
    if (IsSeparator(c)) {
      labels.emplace_back();
    } else {
      labels.back().push_back(c);
    }
  }
  std::string expected;
  bool accepted = !name.empty();
  for (size_t i = 0; i < labels.size() && accepted; ++i) {
    std::string ascii;
    accepted = !labels[i].empty() && ToAscii(labels[i], f, &ascii);
    expected += (i ? "." : "") + ascii;
  }
  Str s(Make(name));
  char *out = nullptr;
  int64_t n = 0;
  const int r = orlix_ustring_idn_toascii(s.s, f.allow, f.std3, f.wildcard, &out, &n);
  FUZZ_CHECK(r == (accepted ? 1 : 0));
  if (r == 1) {
    FUZZ_CHECK(std::string(out, static_cast<size_t>(n)) == expected && out[n] == '\0');
    orlix_free(out);
  }

  Str u(orlix_ustring_idn_tounicode(s.s, f.allow, f.std3, f.wildcard));
  FUZZ_CHECK(u.s != nullptr);
  Decode(u.s);
  const bool empty_label = name.empty() || [&] {
    for (const Text &l : labels)
      if (l.empty()) return true;
    return false;
  }();
  if (empty_label) FUZZ_CHECK(u.s == s.s);
}

// ToUnicode of an arbitrary ACE label: the decoder on raw digits.
void CheckAceBytes(const uint8_t *data, size_t size, const Flags &f) {
  std::string label = "xn--";
  for (size_t i = 0; i < size && label.size() < 80; ++i)
    label += "abcdefghijklmnopqrstuvwxyz0123456789-ABCXYZ_"[data[i] % 45];
  Str s(orlix_ustring_newascii(label.data(), static_cast<int64_t>(label.size())));
  Str u(orlix_ustring_idnlabel_tounicode(s.s, f.allow, f.std3, f.wildcard));
  FUZZ_CHECK(u.s != nullptr);
  const Text t = Decode(u.s);
  if (u.s == s.s) return;
  // Decoded: it converts back to the label, letters compared without case.
  std::string ascii;
  FUZZ_CHECK(ToAscii(t, f, &ascii));
  FUZZ_CHECK(ascii.size() == label.size());
  for (size_t i = 0; i < ascii.size(); ++i)
    FUZZ_CHECK(ascii[i] == label[i] ||
               (label[i] >= 'A' && label[i] <= 'Z' && ascii[i] == label[i] + 32));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  const uint8_t bits = in.u8();
  const Flags f{bits & 1, (bits >> 1) & 1, (bits >> 2) & 1};
  const uint8_t *rest = in.rest();
  const size_t rest_size = in.remaining();
  Text name;
  while (!in.empty() && name.size() < 200) name.push_back(NextCodePoint(in));
  Text label;
  for (uint32_t c : name)
    if (!IsSeparator(c)) label.push_back(c);
  CheckLabel(label, f);
  CheckDomain(name, f);
  if (bits & 8) CheckAceBytes(rest, rest_size, f);
  return 0;
}
