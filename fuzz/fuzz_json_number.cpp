// The encoder's number text against the C library: for every double read
// from the input (eight bytes each, any bit pattern, and the same bits
// scaled into the ranges where the exact integer form works), the "%lf"
// text must be snprintf's byte for byte, and the trimmed text must be
// "%d" or "%lf" with the trailing zeros after the point dropped.
//
// Input: doubles, eight bytes each, in machine byte order.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "fuzz_util.hpp"
#include "json/ORLIX_JSON.hpp"
#include "printf_number.hpp"

namespace {

void Check(double v) {
  char ours[orlix::json::kFixed6Size];
  char theirs[orlix::json::kFixed6Size];
  const size_t n = orlix::json::format_fixed6(v, ours);
  std::snprintf(theirs, sizeof theirs, "%lf", v);
  FUZZ_CHECK(n == std::strlen(theirs) && std::strcmp(ours, theirs) == 0, "%a: %s against %s", v, ours,
             theirs);
  const std::string expected = PrintfNumber(v);
  const size_t m = orlix::json::format_number(v, ours);
  FUZZ_CHECK(std::string(ours, m) == expected, "%a: %s against %s", v, ours, expected.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  for (size_t at = 0; at + 8 <= size; at += 8) {
    double v;
    std::memcpy(&v, data + at, sizeof v);
    Check(v);
    if (std::isfinite(v) && v != 0) {
      // The same mantissa at magnitudes of 2^-30 to 2^43.
      int exponent;
      const double mantissa = std::frexp(v, &exponent);
      Check(std::ldexp(mantissa, static_cast<int>(data[at] % 74) - 30));
    }
  }
  return 0;
}
