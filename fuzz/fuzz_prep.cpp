// Case folding and the LDAP preparation of every matching type.
//
// Printable ASCII goes through the LDAP steps unchanged except for the
// folding of letters and the handling of spaces and hyphens, so on such text
// every type is checked exactly against a plain model of those two steps
// (the walk that removes insignificant characters included, with its
// skipped unit after each removal). Any other text is checked for what holds
// of every result: well-formed UTF-16, the space layout of types 0 and 1
// (types 3 to 5 may keep a space, as the walk skips units), and case folding that
// folds each character on its own (fold(x + y) == fold(x) + fold(y)) and is
// stable. Long inputs are welcome: they look for slow paths.
//
// Input: a first byte chooses ASCII (even) or any code points (odd); then
// ASCII bytes (mapped into 0x20..0x7E, with spaces and hyphens frequent) or
// code points of 1 to 3 bytes each.
#include <string>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"
#include "ustring/ORLIX_UString.hpp"

namespace {

using fuzz::Make;
using fuzz::Str;

using Text = std::vector<uint32_t>;

Text Units(const ORLIX_UString *s) { return Text(s->data, s->data + s->length); }

bool WellFormed(const ORLIX_UString *s) {
  int64_t chars = 0;
  for (int64_t i = 0; i < s->length; ++i, ++chars) {
    const uint16_t u = s->data[i];
    if (u >= 0xDC00 && u <= 0xDFFF) return false;
    if (u >= 0xD800 && u <= 0xDBFF && !(++i < s->length && s->data[i] >= 0xDC00 && s->data[i] <= 0xDFFF))
      return false;
  }
  return chars == s->charcount;
}

// ---- the ASCII model ------------------------------------------------------------

Text Lower(Text t) {
  for (uint32_t &c : t)
    if (c >= 'A' && c <= 'Z') c += 0x20;
  return t;
}

Text SpaceWords(const Text &t) {
  size_t b = 0, e = t.size();
  while (b < e && t[b] == ' ') ++b;
  while (e > b && t[e - 1] == ' ') --e;
  if (b == e) return {' ', ' '};
  Text out{' '};
  for (size_t i = b; i < e; ++i) {
    if (t[i] != ' ') out.push_back(t[i]);
    else if (t[i - 1] != ' ') out.insert(out.end(), {' ', ' '});
  }
  out.push_back(' ');
  return out;
}

// Removal as the walk defines it, one erase at a time (no combining marks
// in ASCII, so every insignificant unit before the last place goes, and the
// unit after it is skipped).
Text Remove(Text t, bool hyphens) {
  const auto insignificant = [hyphens](uint32_t c) { return c == ' ' || (hyphens && c == '-'); };
  for (size_t i = 0; i + 1 < t.size(); ++i)
    if (insignificant(t[i])) t.erase(t.begin() + static_cast<std::ptrdiff_t>(i));
  if (!t.empty() && insignificant(t.back())) t.pop_back();
  return t;
}

Text Model(const Text &t, int64_t type) {
  switch (type) {
    case 0: return SpaceWords(t);
    case 1: return SpaceWords(Lower(t));
    case 3: return Remove(Lower(t), false);
    case 4: return Remove(t, true);
    default: return Remove(Lower(t), true);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  const bool ascii = in.u8() % 2 == 0;
  Text text;
  while (!in.empty()) {
    if (ascii) {
      const uint8_t b = in.u8();
      text.push_back(b < 0x40 ? (b % 2 ? ' ' : '-') : 0x20 + b % 0x5F);
    } else {
      const uint8_t s = in.u8();
      uint32_t cp = s < 0x80 ? s : (s < 0xC0 ? 0x80 + in.u16() : (in.u16() | (s & 0x1Fu) << 16));
      if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
      text.push_back(cp);
    }
  }
  Str s(Make(text));
  FUZZ_CHECK(s.s != nullptr);

  for (int64_t type : {0, 1, 3, 4, 5}) {
    Str r(orlix_ustring_ldapi18nstringprep(type, s.s));
    if (ascii) {
      // The model erases one unit at a time (quadratic): long texts only
      // have to come through.
      FUZZ_CHECK(r.s != nullptr, "type %d", int(type));
      if (text.size() <= 4096) FUZZ_CHECK(Units(r.s) == Model(text, type), "type %d", int(type));
      continue;
    }
    if (r.s == nullptr) continue;
    FUZZ_CHECK(WellFormed(r.s), "type %d", int(type));
    if (type <= 1) {
      const Text u = Units(r.s);
      FUZZ_CHECK(u.size() >= 2 && u.front() == ' ' && u.back() == ' ');
      for (size_t i = 2; i + 1 < u.size(); ++i)
        FUZZ_CHECK(!(u[i - 2] == ' ' && u[i - 1] == ' ' && u[i] == ' '), "three spaces");
    }
  }
  FUZZ_CHECK(orlix_ustring_ldapi18nstringprep(2, s.s) == nullptr);

  // Case folding works character by character, and folded text folds to
  // itself.
  for (int32_t mode : {1, 2}) {
    Str f(orlix_ustring_tocasefold(s.s, mode));
    FUZZ_CHECK(f.s != nullptr && WellFormed(f.s));
    Str again(orlix_ustring_tocasefold(f.s, mode));
    FUZZ_CHECK(again.s != nullptr && Units(again.s) == Units(f.s), "mode %d", mode);
    const size_t half = text.size() / 2;
    Str a(Make(Text(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(half))));
    Str b(Make(Text(text.begin() + static_cast<std::ptrdiff_t>(half), text.end())));
    Str fa(orlix_ustring_tocasefold(a.s, mode)), fb(orlix_ustring_tocasefold(b.s, mode));
    FUZZ_CHECK(fa.s != nullptr && fb.s != nullptr);
    Text joined = Units(fa.s);
    const Text second = Units(fb.s);
    joined.insert(joined.end(), second.begin(), second.end());
    FUZZ_CHECK(joined == Units(f.s), "mode %d", mode);
  }
  return 0;
}
