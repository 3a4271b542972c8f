// Helpers shared by the Unicode string suites: owning wrappers, views of the
// string record, code-point encoders used to build inputs, and a runner for
// Python 3 as an independent decoder.
#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "ustring/ORLIX_UString.hpp"
#include "ustring/ORLIX_UString_UTF8.hpp"
#include "python_oracle.hpp"
#include "owned.hpp"

namespace orlix_test {

using UStr = orlix_test::UStr;

template <class T>
using Buf = orlix_test::Buf<T>;

using CodePoints = std::vector<uint32_t>;
using Units = std::vector<uint16_t>;

inline Units UnitsOf(const ORLIX_UString *s) { return Units(s->data, s->data + s->length); }

// UTF-16 of well-formed code points.
inline Units ToUnits(const CodePoints &cps) {
  Units u;
  for (uint32_t cp : cps) {
    if (cp < 0x10000) {
      u.push_back(static_cast<uint16_t>(cp));
    } else {
      u.push_back(static_cast<uint16_t>(0xD800 + ((cp - 0x10000) >> 10)));
      u.push_back(static_cast<uint16_t>(0xDC00 + (cp & 0x3FF)));
    }
  }
  return u;
}

inline UStr FromUnits(const Units &u) {
  return UStr(orlix_ustring_newlength(u.empty() ? nullptr : u.data(), int64_t(u.size())));
}

inline UStr FromCodePoints(const CodePoints &cps) { return FromUnits(ToUnits(cps)); }

// Code points of a well-formed string, decoded here rather than by the
// library.
inline CodePoints CodePointsOf(const ORLIX_UString *s) {
  CodePoints out;
  for (int64_t i = 0; i < s->length; ++i) {
    uint32_t u = s->data[i];
    if (u >= 0xD800 && u <= 0xDBFF && i + 1 < s->length)
      u = 0x10000 + ((u - 0xD800) << 10) + (s->data[++i] - 0xDC00u);
    out.push_back(u);
  }
  return out;
}

// The UTF-8 form of any value below 2^21, surrogates included, so that
// tests can build ill-formed input on purpose.
inline std::string Utf8Raw(uint32_t cp) {
  std::string s;
  if (cp < 0x80) {
    s += char(cp);
  } else if (cp < 0x800) {
    s += char(0xC0 | cp >> 6), s += char(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    s += char(0xE0 | cp >> 12), s += char(0x80 | (cp >> 6 & 0x3F)), s += char(0x80 | (cp & 0x3F));
  } else {
    s += char(0xF0 | cp >> 18), s += char(0x80 | (cp >> 12 & 0x3F));
    s += char(0x80 | (cp >> 6 & 0x3F)), s += char(0x80 | (cp & 0x3F));
  }
  return s;
}

inline std::string Hex(const void *p, size_t n) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  const auto *b = static_cast<const unsigned char *>(p);
  for (size_t i = 0; i < n; ++i) out += digits[b[i] >> 4], out += digits[b[i] & 15];
  return out;
}
inline std::string Hex(const std::string &s) { return Hex(s.data(), s.size()); }

// A random code point of a mixed repertoire: ASCII (with U+0000), Latin,
// the rest of the BMP around the surrogate block, the edges between
// encoded lengths, and supplementary planes.
inline uint32_t RandomCodePoint(std::mt19937 &rng) {
  switch (rng() % 8) {
    case 0: return rng() % 0x80;
    case 1: return 0x80 + rng() % 0x780;
    case 2: return 0x800 + rng() % (0xD800 - 0x800);
    case 3: return 0xE000 + rng() % 0x2000;
    case 4: {  // the edges of each encoded length and of the surrogate block
      static const uint32_t edges[] = {0,      0x7F,   0x80,   0x7FF,   0x800,
                                       0xD7FF, 0xE000, 0xFFFF, 0x10000, 0x10FFFF};
      return edges[rng() % 10];
    }
    case 5: return 0x10000 + rng() % 0x400;
    case 6: return 0x10FFFF - rng() % 0x400;
    default: return 0x10000 + rng() % 0x100000;
  }
}

using orlix_oracle::HavePython;
using orlix_oracle::RunPython;

}  // namespace orlix_test
