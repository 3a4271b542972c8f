// Conversion between strings and bytes by charset name, the library's own
// names and the ones handed to iconv.
//
// Properties: "UTF-8" in any case agrees with orlix_ustring_newutf8 and
// orlix_ustring_toutf8; "ASCII" takes exactly the bytes below 0x80; every
// byte string survives ISO8859-1 both ways; iconv's UTF-16BE (reached
// through the name UTF16BE, which the library does not handle itself) agrees
// with orlix_ustring_newlength on the same units, and iconv's UCS-4 with
// orlix_ustring_newutf32be; KOI8-R goes both ways unchanged; the fixed-width names read 8 bytes whatever the
// count; any other name, however odd, gives a result or NULL and never
// anything in between.
//
// Input: a selector byte for the name (mod 24: one of the list, or past it a
// name of its own, NUL-ended),
// then the bytes to convert.
#include <strings.h>

#include <cstring>
#include <string>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"
#include "ustring/ORLIX_UString.hpp"

namespace {

using fuzz::Make;
using fuzz::Str;

bool Same(const ORLIX_UString *a, const ORLIX_UString *b) {
  if (a == nullptr || b == nullptr) return a == b;
  return a->length == b->length && a->charcount == b->charcount &&
         fuzz::SameBytes(a->data, b->data, static_cast<size_t>(a->length) * 2);
}

std::string ToBytes(const ORLIX_UString *s, const char *charset, bool *ok) {
  char *out = nullptr;
  int64_t n = 0;
  *ok = orlix_ustring_tombs(s, charset, &out, &n) == 1;
  if (!*ok) return {};
  FUZZ_CHECK(out != nullptr && n >= 0 && out[n] == '\0', "%s", charset);
  std::string bytes(out, static_cast<size_t>(n));
  orlix_free(out);
  return bytes;
}

const char *const kNames[] = {"UTF-8",  "utf-8",     "ASCII",   "ISO8859-1", "UTF16BE", "UCS-4",
                              "GBK",    "BIG5",      "CP1252",  "SHIFT_JIS", "UTF-7",   "KOI8-R",
                              "EUC-JP", "UTF-16BE",  "UTF-16LE", "UTF-32BE", "UTF-32LE", ""};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  std::string name;
  size_t at = 1;
  if (data[0] % 24 < std::size(kNames)) {
    name = kNames[data[0] % 24];
  } else {
    while (at < size && data[at] != 0 && name.size() < 40) name += static_cast<char>(data[at++]);
    ++at;
  }
  const char *bytes = at < size ? reinterpret_cast<const char *>(data + at) : "";
  const int64_t count = at < size ? static_cast<int64_t>(size - at) : 0;

  const char *const fixed_width[] = {"UTF-16BE", "UTF-16LE", "UTF-32BE", "UTF-32LE"};
  for (const char *fixed : fixed_width) {
    if (strcasecmp(name.c_str(), fixed) != 0) continue;
    // These read 8 bytes however few are given: hand them 8 at least.
    std::string padded(bytes, static_cast<size_t>(count));
    padded.resize(padded.size() < 8 ? 8 : padded.size(), 'x');
    Str s(orlix_ustring_newmbs(name.c_str(), padded.data(), count));
    if (count > 0 && fixed[4] == '1') {
      const bool big_endian = fixed[6] == 'B';
      uint16_t units[4];
      for (int k = 0; k < 4; ++k)
        units[k] = static_cast<uint16_t>(static_cast<uint8_t>(padded[2 * k + !big_endian]) << 8);
      Str want(orlix_ustring_newlength(units, 4));
      FUZZ_CHECK(Same(s.s, want.s), "%s", name.c_str());
    }
    return 0;
  }

  Str s(orlix_ustring_newmbs(name.c_str(), bytes, count));
  if (count == 0) {
    FUZZ_CHECK(s.s != nullptr && s.s->length == 0);
    return 0;
  }
  if (name.empty()) {
    FUZZ_CHECK(s.s == nullptr);
    return 0;
  }
  bool ok = false;
  if (name == "UTF-8" || name == "utf-8") {
    Str direct(orlix_ustring_newutf8(bytes, count));
    FUZZ_CHECK(Same(s.s, direct.s));
    if (s.s) FUZZ_CHECK(ToBytes(s.s, name.c_str(), &ok) == std::string(bytes, size_t(count)) && ok);
  } else if (name == "ASCII") {
    bool all_ascii = true;
    for (int64_t i = 0; i < count; ++i) all_ascii &= static_cast<uint8_t>(bytes[i]) < 0x80;
    FUZZ_CHECK((s.s != nullptr) == all_ascii);
  } else if (name == "ISO8859-1") {
    FUZZ_CHECK(s.s != nullptr && s.s->length == count);
    FUZZ_CHECK(ToBytes(s.s, "ISO8859-1", &ok) == std::string(bytes, size_t(count)) && ok);
    // Above U+00FF nothing fits: ASCII refuses what ISO8859-1 took above 0x7F.
    ToBytes(s.s, "ASCII", &ok);
    bool high = false;
    for (int64_t i = 0; i < count; ++i) high |= static_cast<uint8_t>(bytes[i]) >= 0x80;
    FUZZ_CHECK(ok == !high);
  } else if (name == "UTF16BE") {
    std::vector<uint16_t> units(static_cast<size_t>(count / 2));
    for (size_t k = 0; k < units.size(); ++k)
      units[k] = static_cast<uint16_t>(static_cast<uint8_t>(bytes[2 * k]) << 8 |
                                       static_cast<uint8_t>(bytes[2 * k + 1]));
    Str want(orlix_ustring_newlength(units.data(), static_cast<int64_t>(units.size())));
    // iconv refuses an odd count and lone surrogates; when both succeed they
    // must agree, and iconv may not accept what the library refuses.
    if (s.s != nullptr) FUZZ_CHECK(count % 2 == 0 && Same(s.s, want.s));
  } else if (name == "UCS-4") {
    // iconv's big-endian UCS-4 against the library's own decoder.
    Str own(orlix_ustring_newutf32be(reinterpret_cast<const unsigned char *>(bytes), count));
    if (s.s != nullptr && own.s != nullptr) FUZZ_CHECK(Same(s.s, own.s));
  }
  // Whatever the name, a string that came in goes out through it or fails
  // cleanly, and comes back the same where the charset maps one to one.
  if (s.s != nullptr) {
    const std::string out = ToBytes(s.s, name.c_str(), &ok);
    if (ok && name == "KOI8-R") {
      FUZZ_CHECK(out == std::string(bytes, size_t(count)));
    }
  }
  return 0;
}
