// Helpers shared by the normalization, string preparation and IDNA suites:
// owning wrappers, code-point conversions, and a runner for the Python 3
// oracles (one interpreter per batch of cases).
#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "ustring/ORLIX_UString.hpp"
#include "python_oracle.hpp"
#include "owned.hpp"

namespace unicode_test {

using UStr = orlix_test::UStr;

using Bytes = orlix_test::Buf<char>;

using CodePoints = std::vector<uint32_t>;

inline UStr Make(const CodePoints &cps) {
  std::vector<uint64_t> wide(cps.begin(), cps.end());
  return UStr(orlix_ustring_newutf32(wide.empty() ? nullptr : wide.data(), int64_t(wide.size())));
}

inline UStr Utf8(const std::string &bytes) {
  return UStr(orlix_ustring_newutf8(bytes.data(), int64_t(bytes.size())));
}

inline UStr Units(const std::vector<uint16_t> &u) {
  return UStr(orlix_ustring_newlength(u.empty() ? nullptr : u.data(), int64_t(u.size())));
}

// Decoded here from the units rather than by the library.
inline CodePoints CodePointsOf(const ORLIX_UString *s) {
  CodePoints out;
  for (int64_t i = 0; i < s->length; ++i) {
    uint32_t u = s->data[i];
    if (u >= 0xD800 && u <= 0xDBFF && i + 1 < s->length && s->data[i + 1] >= 0xDC00 &&
        s->data[i + 1] <= 0xDFFF)
      u = 0x10000 + ((u - 0xD800) << 10) + (s->data[++i] - 0xDC00u);
    out.push_back(u);
  }
  return out;
}

// "41 30a", or "-" for a null string: the format the oracle scripts print.
inline std::string Hex(const CodePoints &cps) {
  std::string out;
  char buf[16];
  for (size_t i = 0; i < cps.size(); ++i) {
    std::snprintf(buf, sizeof buf, i ? " %x" : "%x", cps[i]);
    out += buf;
  }
  return out;
}
inline std::string Hex(const ORLIX_UString *s) { return s ? Hex(CodePointsOf(s)) : "-"; }

inline CodePoints ParseHex(const std::string &text) {
  CodePoints out;
  std::istringstream in(text);
  std::string word;
  while (in >> word) out.push_back(uint32_t(std::stoul(word, nullptr, 16)));
  return out;
}

inline std::vector<std::string> Split(const std::string &line, char sep) {
  std::vector<std::string> fields;
  std::string field;
  std::istringstream in(line);
  while (std::getline(in, field, sep)) fields.push_back(field);
  if (!line.empty() && line.back() == sep) fields.push_back("");
  return fields;
}

// The record must be consistent with its units: terminator, code points,
// surrogate flag.
inline testing::AssertionResult WellFormed(const ORLIX_UString *s) {
  if (s == nullptr) return testing::AssertionFailure() << "null string";
  const auto cps = CodePointsOf(s);
  bool pairs = false;
  for (uint32_t cp : cps) {
    if (cp >= 0xD800 && cp <= 0xDFFF) return testing::AssertionFailure() << "unpaired surrogate";
    pairs |= cp > 0xFFFF;
  }
  if (s->data[s->length] != 0 || s->charcount != int64_t(cps.size()) ||
      s->hassurrogate != (pairs ? 1u : 0u))
    return testing::AssertionFailure() << "length " << s->length << " charcount " << s->charcount
                                       << " hassurrogate " << s->hassurrogate;
  return testing::AssertionSuccess();
}

using orlix_oracle::HavePython;

// The oracles of these suites take what they need as arguments.
inline std::vector<std::string> RunPython(const std::string &script, const std::string &args = "") {
  return orlix_oracle::RunPython(script, "", args);
}

// The data files the tables are generated from (for the oracles' choice of
// inputs only; expected results never come from them).
inline std::string DataFile(const std::string &name) {
  return std::string(ORLIX_SOURCE_DIR) + "/data/" + name;
}

}  // namespace unicode_test
