// Normalization against ICU's unorm2_normalize (the NFC, NFD, NFKC and NFKD
// instances) and utf8proc's utf8proc_map on 1 MiB of UTF-16 text - ASCII,
// already-NFC mixed-script text, decomposed text, and Chinese and Korean
// words between ASCII punctuation - and nameprep and
// ToASCII against libidn, and ToASCII against libidn2, on 10^5 international
// domain names. Before timing, main checks that every side gives the same
// results.
//
// Each side does the whole job of a caller: ours returns a string (or, when
// the text is already normalized, the argument with one more reference) that
// is released again; ICU writes into a buffer the caller provides, so its
// side mallocs and frees a buffer of the exact output size each time.
// utf8proc works in UTF-8 only: it is timed on the same text in UTF-8 (its
// natural input), returning a malloc'd UTF-8 result that is freed again, and
// its throughput is counted in the same 1 MiB as the other sides', so that
// the ratios compare times for the same characters. It has no quick check
// and always decomposes and recomposes.
//
// For domain names every side starts from UTF-8 and ends with UTF-8
// (nameprep) or an ASCII name (ToASCII), allocated and freed per name.
// libidn2 implements IDNA2008 and has no nameprep; its ToASCII runs with
// UTS #46 transitional processing, whose mapping (case folding, sharp s to
// ss, NFC) gives IDNA2003's names on these inputs, as the check shows - up
// to the case of all-ASCII labels, which IDNA2003 passes through as they
// are and UTS #46 lowercases, so that check ignores ASCII case.
// idn2.h would otherwise define libidn's names itself, clashing with idna.h.
#define IDN2_SKIP_LIBIDN_COMPAT
#include <idn2.h>
#include <idna.h>
#include <stringprep.h>
#include <unicode/uclean.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>
#include <unicode/uversion.h>
#include <utf8proc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <random>
#include <string>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "bench_common.hpp"

namespace {

using orlix_bench::kMiB;
constexpr int64_t kUnits = kMiB / 2;  // 1 MiB of UTF-16
constexpr int kDomains = 100000;

// ---- inputs --------------------------------------------------------------------

void append_utf16(std::u16string &out, char32_t cp) {
  if (cp < 0x10000) {
    out += char16_t(cp);
  } else {
    out += char16_t(0xD800 + ((cp - 0x10000) >> 10));
    out += char16_t(0xDC00 + (cp & 0x3FF));
  }
}

std::u16string icu_normalize(const UNormalizer2 *n, const std::u16string &in) {
  UErrorCode err = U_ZERO_ERROR;
  std::u16string out(in.size() * 4 + 16, u'\0');
  const int32_t len =
      unorm2_normalize(n, in.data(), int32_t(in.size()), out.data(), int32_t(out.size()), &err);
  if (U_FAILURE(err)) std::abort();
  out.resize(size_t(len));
  return out;
}

// Words of several scripts, precomposed, separated by ASCII spaces and
// punctuation (so that no Hangul syllable is followed by a letter of its own
// block's neighbours).
const std::u32string kScripts[] = {
    U"abcdefghijklmnopqrstuvwxyzéèêëàâäôöûüçñßåøæœíóúýÿ",
    U"αβγδεζηθικλμνξοπρστυφχψωάέήίόύώϊϋΐΰ",
    U"абвгдежзийклмнопрстуфхцчшщъыьэюяёї",
    U"的一是不了人我在有他这中大来上国个到说们为子和你地出道也时年",
    U"あいうえおかきくけこがぎぐげごさしすせそざじずぜぞたちつてとだぢづでど",
    U"アイウエオカキクケコガギグゲゴパピプペポ",
    U"가나다라마바사아자차카타파하각난닫랄맘밥삿앙잦찿캌탙팦핳한국어",
    U"ابتثجحخدذرزسشصضطظعغفقكلمنهوي",
    U"אבגדהוזחטיכלמנסעפצקרשת",
    U"कखगघचछजझटठडढणतथदधनपफबभमयरलवशसहािीुूेैोौ",
};

std::u16string mixed_text() {
  std::mt19937 rng(42);
  std::u16string text;
  const std::u16string punctuation = u" , . ; ";
  while (int64_t(text.size()) < kUnits - 64) {
    const std::u32string &letters = kScripts[rng() % std::size(kScripts)];
    const int n = 2 + int(rng() % 8);
    for (int i = 0; i < n; ++i) append_utf16(text, letters[rng() % letters.size()]);
    text += punctuation[rng() % punctuation.size()];
  }
  while (int64_t(text.size()) < kUnits) text += u' ';
  return text;
}

// Chinese and Korean words between ASCII spaces and commas: text whose
// quick check passes by the ranges of whole blocks.
std::u16string cjk_text() {
  std::mt19937 rng(5);
  std::u16string text;
  while (int64_t(text.size()) < kUnits - 64) {
    const std::u32string &letters = kScripts[rng() % 2 ? 3 : 6];
    const int n = 2 + int(rng() % 8);
    for (int i = 0; i < n; ++i) append_utf16(text, letters[rng() % letters.size()]);
    text += rng() % 4 ? u" " : u", ";
  }
  while (int64_t(text.size()) < kUnits) text += u' ';
  return text;
}

std::u16string ascii_text() {
  std::mt19937 rng(7);
  std::u16string text;
  while (int64_t(text.size()) < kUnits) {
    const int n = 1 + int(rng() % 10);
    for (int i = 0; i < n && int64_t(text.size()) < kUnits; ++i)
      text += char16_t('a' + rng() % 26 - (rng() % 8 == 0 ? 32 : 0));
    if (int64_t(text.size()) < kUnits) text += u' ';
  }
  return text;
}

std::string utf8_of(const std::u16string &text) {
  UErrorCode err = U_ZERO_ERROR;
  int32_t n = 0;
  u_strToUTF8(nullptr, 0, &n, text.data(), int32_t(text.size()), &err);
  std::string out(size_t(n), '\0');
  err = U_ZERO_ERROR;
  u_strToUTF8(out.data(), n, nullptr, text.data(), int32_t(text.size()), &err);
  if (U_FAILURE(err)) std::abort();
  return out;
}

struct Inputs {
  std::u16string ascii, nfc, decomposed, cjk;
  std::string ascii8, nfc8, decomposed8, cjk8;  // the same texts in UTF-8, for utf8proc

  const std::string &utf8(const std::u16string *text) const {
    return text == &ascii ? ascii8 : text == &nfc ? nfc8 : text == &cjk ? cjk8 : decomposed8;
  }
};

const Inputs &inputs() {
  static const Inputs in = [] {
    UErrorCode err = U_ZERO_ERROR;
    const std::u16string raw = mixed_text();
    Inputs r;
    r.ascii = ascii_text();
    r.nfc = icu_normalize(unorm2_getNFCInstance(&err), raw);
    r.decomposed = icu_normalize(unorm2_getNFDInstance(&err), raw);
    // Both exactly 1 MiB: pad or cut at a space.
    for (std::u16string *t : {&r.nfc, &r.decomposed}) {
      t->resize(size_t(kUnits), u' ');
      (*t)[size_t(kUnits) - 1] = u' ';
    }
    r.cjk = cjk_text();
    r.cjk8 = utf8_of(r.cjk);
    r.ascii8 = utf8_of(r.ascii);
    r.nfc8 = utf8_of(r.nfc);
    r.decomposed8 = utf8_of(r.decomposed);
    return r;
  }();
  return in;
}

// Domain names of one script per label, ASCII or IDN top-level domains,
// some upper case and sharp s; right-to-left names are right-to-left
// throughout.
const std::vector<std::string> &domains() {
  static const std::vector<std::string> list = [] {
    const std::u32string ltr[] = {
        U"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZéüöäßñçøå",
        U"абвгдежзийклмнопрстуфхцчшщыэюяАБВГДЕЖЗИЙКЛМН",
        U"αβγδεζηθικλμνξοπρστυφχψωάέήίόύώΑΒΓΔΕ",
        U"的一是不了人我在有他这中大来上国个到说们为子和你地出道也时年",
        U"あいうえおかきくけこがぎぐげごアイウエオカキクケコ",
        U"가나다라마바사아자차카타파하각난닫랄맘밥삿앙잦한국어",
    };
    const std::u32string rtl[] = {U"ابتثجحخدذرزسشصضطظعغفقكلمنهوي", U"אבגדהוזחטיכלמנסעפצקרשת"};
    const char *tlds[] = {"com", "org", "net", "de", "рф", "中国", "한국", "example"};
    const char *rtl_tlds[] = {"مصر", "ישראל"};
    auto utf8 = [](std::string &out, char32_t cp) {
      if (cp < 0x80) {
        out += char(cp);
      } else if (cp < 0x800) {
        out += char(0xC0 | cp >> 6), out += char(0x80 | (cp & 0x3F));
      } else {
        out += char(0xE0 | cp >> 12), out += char(0x80 | (cp >> 6 & 0x3F));
        out += char(0x80 | (cp & 0x3F));
      }
    };
    std::mt19937 rng(11);
    std::vector<std::string> out;
    for (int d = 0; d < kDomains; ++d) {
      std::string name;
      const bool right_to_left = rng() % 8 == 0;
      const int labels = 1 + int(rng() % 2);
      for (int l = 0; l < labels; ++l) {
        const std::u32string &letters = right_to_left ? rtl[rng() % 2] : ltr[rng() % 6];
        const int n = 3 + int(rng() % 10);
        for (int i = 0; i < n; ++i) utf8(name, letters[rng() % letters.size()]);
        name += '.';
      }
      name += right_to_left ? rtl_tlds[rng() % 2] : tlds[rng() % std::size(tlds)];
      out.push_back(name);
    }
    return out;
  }();
  return list;
}

int64_t domain_bytes() {
  static const int64_t n = [] {
    int64_t total = 0;
    for (const auto &d : domains()) total += int64_t(d.size());
    return total;
  }();
  return n;
}

// ---- normalization ---------------------------------------------------------------

const UNormalizer2 *icu_instance(int32_t form) {
  UErrorCode err = U_ZERO_ERROR;
  switch (form) {
    case ORLIX_NORMALIZE_NFD: return unorm2_getNFDInstance(&err);
    case ORLIX_NORMALIZE_NFC: return unorm2_getNFCInstance(&err);
    case ORLIX_NORMALIZE_NFKD: return unorm2_getNFKDInstance(&err);
    default: return unorm2_getNFKCInstance(&err);
  }
}

const char *form_name(int32_t form) {
  static const char *names[] = {"", "NFD", "NFC", "NFKD", "NFKC"};
  return names[form];
}

void normalize_ours(benchmark::State &state, const std::u16string *text, int32_t form) {
  ORLIX_UString *s =
      orlix_ustring_newlength(reinterpret_cast<const uint16_t *>(text->data()), kUnits);
  bool ok = s != nullptr;
  for (auto _ : state) {
    ORLIX_UString *r = orlix_ustring_normalize(s, form);
    ok &= r != nullptr;
    benchmark::DoNotOptimize(r);
    orlix_ustring_free(r);
  }
  orlix_ustring_free(s);
  orlix_bench::finish(state, ok, kMiB);
}

void normalize_icu(benchmark::State &state, const std::u16string *text, int32_t form) {
  const UNormalizer2 *n = icu_instance(form);
  const auto capacity = int32_t(icu_normalize(n, *text).size() + 1);
  bool ok = true;
  for (auto _ : state) {
    auto *out = static_cast<UChar *>(std::malloc(size_t(capacity) * sizeof(UChar)));
    UErrorCode err = U_ZERO_ERROR;
    ok &= unorm2_normalize(n, text->data(), int32_t(kUnits), out, capacity, &err) < capacity &&
          U_SUCCESS(err);
    benchmark::DoNotOptimize(out);
    std::free(out);
  }
  orlix_bench::finish(state, ok, kMiB);
}

utf8proc_option_t utf8proc_options(int32_t form) {
  const int compose = form == ORLIX_NORMALIZE_NFC || form == ORLIX_NORMALIZE_NFKC
                          ? UTF8PROC_COMPOSE
                          : UTF8PROC_DECOMPOSE;
  const int compat =
      form == ORLIX_NORMALIZE_NFKC || form == ORLIX_NORMALIZE_NFKD ? UTF8PROC_COMPAT : 0;
  return utf8proc_option_t(UTF8PROC_STABLE | compose | compat);
}

void normalize_utf8proc(benchmark::State &state, const std::string *text, int32_t form) {
  const utf8proc_option_t options = utf8proc_options(form);
  bool ok = true;
  for (auto _ : state) {
    utf8proc_uint8_t *out = nullptr;
    ok &= utf8proc_map(reinterpret_cast<const utf8proc_uint8_t *>(text->data()),
                       utf8proc_ssize_t(text->size()), &out, options) >= 0;
    benchmark::DoNotOptimize(out);
    std::free(out);
  }
  orlix_bench::finish(state, ok, kMiB);
}

// ---- domain names -----------------------------------------------------------------

void nameprep_ours(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    for (const auto &d : domains()) {
      ORLIX_UString *s = orlix_ustring_newutf8(d.data(), int64_t(d.size()));
      ORLIX_UString *r = orlix_ustring_idn_stringprep(s, 1);
      char *out = nullptr;
      int64_t n = 0;
      ok &= r != nullptr && orlix_ustring_toutf8(r, &out, &n) == 1;
      benchmark::DoNotOptimize(out);
      orlix_free(out);
      orlix_ustring_free(r);
      orlix_ustring_free(s);
    }
  }
  orlix_bench::finish(state, ok, domain_bytes());
}

void nameprep_libidn(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    for (const auto &d : domains()) {
      const size_t size = d.size() * 4 + 1;
      char *buffer = static_cast<char *>(std::malloc(size));
      std::memcpy(buffer, d.c_str(), d.size() + 1);
      ok &= stringprep(buffer, size, Stringprep_profile_flags(0), stringprep_nameprep) ==
            STRINGPREP_OK;
      benchmark::DoNotOptimize(buffer);
      std::free(buffer);
    }
  }
  orlix_bench::finish(state, ok, domain_bytes());
}

void toascii_ours(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    for (const auto &d : domains()) {
      ORLIX_UString *s = orlix_ustring_newutf8(d.data(), int64_t(d.size()));
      char *out = nullptr;
      int64_t n = 0;
      ok &= orlix_ustring_idn_toascii(s, 0, 0, 0, &out, &n) == 1;
      benchmark::DoNotOptimize(out);
      orlix_free(out);
      orlix_ustring_free(s);
    }
  }
  orlix_bench::finish(state, ok, domain_bytes());
}

void toascii_libidn(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    for (const auto &d : domains()) {
      char *out = nullptr;
      ok &= idna_to_ascii_8z(d.c_str(), &out, 0) == IDNA_SUCCESS;
      benchmark::DoNotOptimize(out);
      std::free(out);
    }
  }
  orlix_bench::finish(state, ok, domain_bytes());
}

void toascii_libidn2(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    for (const auto &d : domains()) {
      char *out = nullptr;
      ok &= idn2_to_ascii_8z(d.c_str(), &out, IDN2_TRANSITIONAL) == IDN2_OK;
      benchmark::DoNotOptimize(out);
      idn2_free(out);
    }
  }
  orlix_bench::finish(state, ok, domain_bytes());
}

// ---- agreement ---------------------------------------------------------------------

bool sides_agree() {
  bool ok = true;
  auto expect = [&ok](bool cond, const std::string &what) {
    if (!cond) std::fprintf(stderr, "bench_unicode: %s\n", what.c_str());
    ok &= cond;
  };
  const Inputs &in = inputs();
  for (const std::u16string *text : {&in.ascii, &in.nfc, &in.decomposed, &in.cjk}) {
    ORLIX_UString *s =
        orlix_ustring_newlength(reinterpret_cast<const uint16_t *>(text->data()), kUnits);
    for (int32_t form = 1; form <= 4; ++form) {
      ORLIX_UString *r = orlix_ustring_normalize(s, form);
      uint16_t *units = nullptr;
      int64_t n = 0;
      const std::u16string theirs = icu_normalize(icu_instance(form), *text);
      expect(r != nullptr && orlix_ustring_toutf16(r, &units, &n) == 1 &&
                 n == int64_t(theirs.size()) &&
                 std::memcmp(units, theirs.data(), size_t(n) * 2) == 0,
             std::string(form_name(form)) + " differs from ICU");
      orlix_free(units);
      char *ours8 = nullptr;
      utf8proc_uint8_t *theirs8 = nullptr;
      const std::string &text8 = in.utf8(text);
      const utf8proc_ssize_t m =
          utf8proc_map(reinterpret_cast<const utf8proc_uint8_t *>(text8.data()),
                       utf8proc_ssize_t(text8.size()), &theirs8, utf8proc_options(form));
      expect(r != nullptr && orlix_ustring_toutf8(r, &ours8, &n) == 1 && m == n &&
                 std::memcmp(ours8, theirs8, size_t(n)) == 0,
             std::string(form_name(form)) + " differs from utf8proc");
      orlix_free(ours8);
      std::free(theirs8);
      orlix_ustring_free(r);
    }
    orlix_ustring_free(s);
  }
  for (const auto &d : domains()) {
    ORLIX_UString *s = orlix_ustring_newutf8(d.data(), int64_t(d.size()));
    ORLIX_UString *r = orlix_ustring_idn_stringprep(s, 1);
    char *ours = nullptr;
    int64_t n = 0;
    std::vector<char> buffer(d.size() * 4 + 1);
    std::memcpy(buffer.data(), d.c_str(), d.size() + 1);
    const bool theirs = stringprep(buffer.data(), buffer.size(), Stringprep_profile_flags(0),
                                   stringprep_nameprep) == STRINGPREP_OK;
    expect(r != nullptr && theirs && orlix_ustring_toutf8(r, &ours, &n) == 1 &&
               std::strcmp(ours, buffer.data()) == 0,
           "nameprep differs from libidn for " + d);
    orlix_free(ours);
    orlix_ustring_free(r);
    char *ascii = nullptr;
    char *their_ascii = nullptr;
    expect(orlix_ustring_idn_toascii(s, 0, 0, 0, &ascii, &n) == 1 &&
               idna_to_ascii_8z(d.c_str(), &their_ascii, 0) == IDNA_SUCCESS &&
               std::strcmp(ascii, their_ascii) == 0,
           "ToASCII differs from libidn for " + d);
    char *idn2_ascii = nullptr;
    expect(ascii != nullptr &&
               idn2_to_ascii_8z(d.c_str(), &idn2_ascii, IDN2_TRANSITIONAL) == IDN2_OK &&
               strcasecmp(ascii, idn2_ascii) == 0,
           "ToASCII differs from libidn2 for " + d);
    idn2_free(idn2_ascii);
    orlix_free(ascii);
    std::free(their_ascii);
    orlix_ustring_free(s);
    if (!ok) break;
  }
  return ok;
}

}  // namespace

int main(int argc, char **argv) {
  if (!sides_agree()) return 1;
  char version[U_MAX_VERSION_STRING_LENGTH];
  UVersionInfo info;
  u_getVersion(info);
  u_versionToString(info, version);
  orlix_bench::note_peer("ICU", version);
  orlix_bench::note_peer("libidn", stringprep_check_version(nullptr));
  orlix_bench::note_peer("utf8proc", utf8proc_version());
  orlix_bench::note_peer("libidn2", idn2_check_version(nullptr));

  const Inputs &in = inputs();
  const struct {
    const char *name;
    const std::u16string *text;
  } texts[] = {{"ascii", &in.ascii},
               {"nfc_mixed", &in.nfc},
               {"decomposed", &in.decomposed},
               {"cjk_hangul", &in.cjk}};
  for (const auto &t : texts) {
    for (int32_t form :
         {ORLIX_NORMALIZE_NFC, ORLIX_NORMALIZE_NFD, ORLIX_NORMALIZE_NFKC, ORLIX_NORMALIZE_NFKD}) {
      const std::u16string *text = t.text;
      const std::string *text8 = &in.utf8(text);
      const std::string operation =
          std::string("normalize_") + form_name(form) + "/" + t.name + "/1MiB";
      orlix_bench::register_pair(
          operation, "ICU", [text, form](benchmark::State &s) { normalize_ours(s, text, form); },
          [text, form](benchmark::State &s) { normalize_icu(s, text, form); });
      benchmark::RegisterBenchmark((operation + "/utf8proc").c_str(),
                                   [text8, form](benchmark::State &s) {
                                     normalize_utf8proc(s, text8, form);
                                   });
    }
  }
  orlix_bench::register_pair("nameprep/100k_domains", "libidn", nameprep_ours, nameprep_libidn);
  orlix_bench::register_pair("toascii/100k_domains", "libidn", toascii_ours, toascii_libidn);
  benchmark::RegisterBenchmark("toascii/100k_domains/libidn2", toascii_libidn2);
  const int rc = orlix_bench::run(argc, argv);
  u_cleanup();
  return rc;
}
