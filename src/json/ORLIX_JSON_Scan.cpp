// The choice of the JSON byte scans' form, and the AVX2 form of the plain-run
// scan (compiled for AVX2 alone, run only where the processor has it).
#include <immintrin.h>

#include "json/ORLIX_JSON.hpp"

namespace orlix::json {

namespace {

Form best_form() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_cpu_init();  // may run before the CPU model is read otherwise
  if (__builtin_cpu_supports("avx2")) return Form::kAvx2;
  if (__builtin_cpu_supports("sse2")) return Form::kSse2;
#endif
  return Form::kPortable;
}

}  // namespace

// Chosen when the library loads.
Form g_form = best_form();

bool use_vector_forms(bool on) {
  const bool was = g_form != Form::kPortable;
  g_form = on ? best_form() : Form::kPortable;
  return was;
}

#if defined(__x86_64__) || defined(__i386__)
// 32 bytes a step while 32 remain; the rest goes to the 16-byte form.
__attribute__((target("avx2"))) int64_t scan_plain_avx2(const unsigned char *s, int64_t k,
                                                        int64_t n, bool *high) {
  const __m256i quote = _mm256_set1_epi8('"');
  const __m256i backslash = _mm256_set1_epi8('\\');
  const __m256i controls = _mm256_set1_epi8(0x1F);
  const __m256i zero = _mm256_setzero_si256();
  unsigned seen = 0;
  while (k + 32 <= n) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(s + k));
    const __m256i stop = _mm256_or_si256(
        _mm256_or_si256(_mm256_cmpeq_epi8(v, quote), _mm256_cmpeq_epi8(v, backslash)),
        _mm256_cmpeq_epi8(_mm256_subs_epu8(v, controls), zero));
    const auto mask = static_cast<unsigned>(_mm256_movemask_epi8(stop));
    const auto top = static_cast<unsigned>(_mm256_movemask_epi8(v));
    if (mask != 0) {
      const int at = __builtin_ctz(mask);
      seen |= at == 0 ? 0 : top & (0xFFFFFFFFu >> (32 - at));
      *high = *high || seen != 0;
      return k + at;
    }
    seen |= top;
    k += 32;
  }
  *high = *high || seen != 0;
  // Fewer than 32 bytes are left: the 16-byte form finishes (it does not
  // come back here for fewer than 64).
  return scan_plain(s, k, n, high);
}
#else
int64_t scan_plain_avx2(const unsigned char *s, int64_t k, int64_t n, bool *high) {
  return scan_plain(s, k, n, high);
}
#endif

}  // namespace orlix::json
