// Decimal text in and out: orlix_biginteger_newdec must accept exactly the
// texts GMP's reading rule allows (white space first, one optional '-',
// then digits with white space anywhere among them), and
// orlix_biginteger_unsigned_todec of the magnitude must give the digits
// without white space and leading zeros; that canonical text reads back as
// the same number.
#include <cctype>
#include <string>

#include "ORLIX_BigInteger.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"

namespace {

struct Parsed {
  bool ok = false;
  bool negative = false;
  std::string digits;  // without leading zeros; empty for zero
};

// The reading rule, written from its description.
Parsed Parse(const std::string &text) {
  Parsed p;
  size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  if (i < text.size() && text[i] == '-') {
    p.negative = true;
    ++i;
  }
  if (i >= text.size() || !std::isdigit(static_cast<unsigned char>(text[i]))) return p;
  for (; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (std::isspace(c)) continue;
    if (!std::isdigit(c)) return p;
    if (c == '0' && p.digits.empty()) continue;
    p.digits += static_cast<char>(c);
  }
  p.ok = true;
  return p;
}

std::string Todec(const ORLIX_BigInteger *a) {
  char *text = nullptr;
  int64_t length = -1;
  FUZZ_CHECK(orlix_biginteger_unsigned_todec(a, &text, &length) == 1);
  std::string s(text);
  FUZZ_CHECK(int64_t(s.size()) == length);
  orlix_free(text);
  return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // The library reads up to the first NUL.
  const std::string text(reinterpret_cast<const char *>(data), size);
  const std::string c_text = text.substr(0, text.find('\0'));
  const Parsed want = Parse(c_text);

  ORLIX_BigInteger *a = orlix_biginteger_newdec(text.c_str());
  FUZZ_CHECK((a != nullptr) == want.ok, "newdec %s the text", a ? "accepted" : "refused");
  if (a == nullptr) return 0;

  const int sign = want.digits.empty() ? 0 : want.negative ? -1 : 1;
  FUZZ_CHECK(orlix_biginteger_getsign(a) == sign);
  ORLIX_BigInteger *magnitude = sign < 0 ? orlix_biginteger_neg(a) : orlix_biginteger_dup(a);
  FUZZ_CHECK(magnitude != nullptr);
  const std::string canonical = want.digits.empty() ? "0" : want.digits;
  FUZZ_CHECK(Todec(magnitude) == canonical, "decimal text differs");
  if (sign < 0) {
    char *refused = nullptr;
    FUZZ_CHECK(orlix_biginteger_unsigned_todec(a, &refused, nullptr) == 0 && refused == nullptr);
  }

  const std::string again_text = (sign < 0 ? "-" : "") + canonical;
  ORLIX_BigInteger *again = orlix_biginteger_newdec(again_text.c_str());
  FUZZ_CHECK(again != nullptr && orlix_biginteger_cmp(again, a) == 0);
  orlix_biginteger_free(again);
  orlix_biginteger_free(magnitude);
  orlix_biginteger_free(a);
  return 0;
}
