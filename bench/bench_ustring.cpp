// UTF-8 in and out of Unicode string values against ICU's u_strFromUTF8 and
// u_strToUTF8, on 1 MiB of ASCII text and on 1 MiB of mixed Latin, Cyrillic,
// CJK and emoji text. Before timing, main checks that both sides give the
// same UTF-16 units and the same bytes back.
//
// Each side does the whole job of a caller. Ours allocates the string (or the
// UTF-8 buffer) and it is released again. ICU writes into a buffer the caller
// provides, so its side mallocs a buffer sized for the worst case (one UTF-16
// unit per input byte; three bytes per UTF-16 unit) per iteration, converts
// into it in one call and frees it. Throughput counts the UTF-8 bytes.
#include <unicode/ustring.h>
#include <unicode/uversion.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "bench_common.hpp"

namespace {

using orlix_bench::kMiB;

// 1 MiB of printable ASCII words.
std::string ascii_text() {
  const auto noise = orlix_bench::pseudo_random_bytes(kMiB);
  std::string text;
  text.reserve(size_t(kMiB));
  for (int64_t i = 0; i < kMiB; ++i) {
    const unsigned char b = noise[size_t(i)];
    text += (b % 7 == 0) ? ' ' : char('a' + b % 26);
  }
  return text;
}

// 1 MiB of words of four scripts (1 to 4 UTF-8 bytes per character), padded
// with spaces to the exact size.
std::string mixed_text() {
  const char *const words[] = {
      "caf\xC3\xA9 ",                                       // Latin
      "na\xC3\xAFve r\xC3\xA9sum\xC3\xA9 ",                 // Latin
      "\xD0\xBF\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82 ",  // Cyrillic
      "\xD0\xBC\xD0\xB8\xD1\x80 ",                          // Cyrillic
      "\xE4\xB8\xAD\xE6\x96\x87\xE5\xAD\x97 ",              // CJK
      "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E ",              // CJK
      "\xF0\x9F\x98\x80\xF0\x9F\x8E\x89 ",                  // emoji
      "plain ",
  };
  const auto noise = orlix_bench::pseudo_random_bytes(kMiB, 12345);
  std::string text;
  text.reserve(size_t(kMiB));
  for (size_t i = 0;; ++i) {
    const char *w = words[noise[i % noise.size()] % 8];
    if (text.size() + std::strlen(w) > size_t(kMiB)) break;
    text += w;
  }
  text.resize(size_t(kMiB), ' ');
  return text;
}

std::u16string icu_from_utf8(const std::string &in) {
  std::u16string out(in.size() + 1, u'\0');
  int32_t len = 0;
  UErrorCode err = U_ZERO_ERROR;
  u_strFromUTF8(out.data(), int32_t(out.size()), &len, in.data(), int32_t(in.size()), &err);
  if (U_FAILURE(err)) std::abort();
  out.resize(size_t(len));
  return out;
}

// Both sides agree on the text before anything is timed.
void check_same(const std::string &text) {
  ORLIX_UString *s = orlix_ustring_newutf8(text.data(), int64_t(text.size()));
  uint16_t *units = nullptr;
  int64_t count = 0;
  if (s == nullptr || orlix_ustring_toutf16(s, &units, &count) != 1) std::abort();
  const std::u16string peer = icu_from_utf8(text);
  if (count != int64_t(peer.size()) || std::memcmp(units, peer.data(), peer.size() * 2) != 0) {
    std::fprintf(stderr, "UTF-16 differs from ICU's\n");
    std::abort();
  }
  orlix_free(units);
  char *back = nullptr;
  if (orlix_ustring_toutf8(s, &back, &count) != 1 || count != int64_t(text.size()) ||
      std::memcmp(back, text.data(), text.size()) != 0) {
    std::fprintf(stderr, "UTF-8 round trip differs\n");
    std::abort();
  }
  orlix_free(back);
  orlix_ustring_free(s);
}

void register_text(const std::string &name, const std::string *text) {
  const int64_t bytes = int64_t(text->size());

  orlix_bench::register_pair(
      "newutf8/" + name, "icu",
      [text, bytes](benchmark::State &state) {
        bool ok = true;
        for (auto _ : state) {
          ORLIX_UString *s = orlix_ustring_newutf8(text->data(), bytes);
          ok &= s != nullptr;
          benchmark::DoNotOptimize(s);
          orlix_ustring_free(s);
        }
        orlix_bench::finish(state, ok, bytes);
      },
      [text, bytes](benchmark::State &state) {
        bool ok = true;
        for (auto _ : state) {
          // Worst case: one UTF-16 unit per UTF-8 byte, plus the terminator.
          auto *out = static_cast<UChar *>(std::malloc(size_t(bytes + 1) * sizeof(UChar)));
          int32_t len = 0;
          UErrorCode err = U_ZERO_ERROR;
          u_strFromUTF8(out, int32_t(bytes + 1), &len, text->data(), int32_t(bytes), &err);
          ok &= U_SUCCESS(err) && out != nullptr;
          benchmark::DoNotOptimize(out);
          std::free(out);
        }
        orlix_bench::finish(state, ok, bytes);
      });

  ORLIX_UString *source = orlix_ustring_newutf8(text->data(), bytes);
  const std::u16string *units = new std::u16string(icu_from_utf8(*text));
  orlix_bench::register_pair(
      "toutf8/" + name, "icu",
      [source, bytes](benchmark::State &state) {
        bool ok = true;
        for (auto _ : state) {
          char *out = nullptr;
          int64_t count = 0;
          ok &= orlix_ustring_toutf8(source, &out, &count) == 1 && count == bytes;
          benchmark::DoNotOptimize(out);
          orlix_free(out);
        }
        orlix_bench::finish(state, ok, bytes);
      },
      [units, bytes](benchmark::State &state) {
        bool ok = true;
        const int32_t cap = int32_t(units->size() * 3 + 1);  // worst case: 3 bytes per unit
        for (auto _ : state) {
          auto *out = static_cast<char *>(std::malloc(size_t(cap)));
          int32_t len = 0;
          UErrorCode err = U_ZERO_ERROR;
          u_strToUTF8(out, cap, &len, units->data(), int32_t(units->size()), &err);
          ok &= U_SUCCESS(err) && len == bytes;
          benchmark::DoNotOptimize(out);
          std::free(out);
        }
        orlix_bench::finish(state, ok, bytes);
      });
}

}  // namespace

int main(int argc, char **argv) {
  static const std::string ascii = ascii_text();
  static const std::string mixed = mixed_text();
  check_same(ascii);
  check_same(mixed);
  orlix_bench::note_peer("icu", U_ICU_VERSION);
  register_text("ascii/1MiB", &ascii);
  register_text("mixed/1MiB", &mixed);
  return orlix_bench::run(argc, argv);
}
