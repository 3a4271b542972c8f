// What the JSON encoder writes for a number, from the C library: "%d" for
// an integral value in 32-bit range, else "%lf" with trailing zeros after
// the point dropped, and the point too when nothing is left after it.
// Shared by the encoder's tests and fuzz_json_number as their oracle.
#pragma once

#include <cmath>
#include <cstdio>
#include <string>

inline std::string PrintfNumber(double v) {
  char text[400];
  if (v - std::floor(v) == 0 && v >= -2147483648.0 && v <= 2147483647.0) {
    std::snprintf(text, sizeof text, "%d", static_cast<int>(v));
    return text;
  }
  std::snprintf(text, sizeof text, "%lf", v);
  std::string s = text;
  if (s.find('.') == std::string::npos) return s;
  while (s.back() == '0') s.pop_back();
  if (s.back() == '.') s.pop_back();
  return s;
}
