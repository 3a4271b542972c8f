// orlix_json_decode on arbitrary bytes. An accepted tree must survive its own
// text: its compact encoding decodes again (unless a number printed as inf
// or nan), re-encodes to the same bytes (except where a small negative number
// printed as "-0" reads back as 0), and an indented encoding of it decodes to
// a tree with the same compact text; a copy encodes like the original.
// The decoder's vector scans and its portable loops must agree exactly: the
// same tree (number bits included) or the same refusal at the same place,
// and the encoder's forms the same bytes. A text that is one number must
// give the double the C library's strtod gives.
//
// Input: the JSON text. Its last byte also picks the indented layout.
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "ORLIX_JSON.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"
#include "json/ORLIX_JSON.hpp"

namespace {

struct Tree {
  ORLIX_JSON *p;
  explicit Tree(ORLIX_JSON *node) : p(node) {}
  ~Tree() { orlix_json_free(p); }
};

ORLIX_JSON *Decode(std::string_view text) {
  return orlix_json_decode(text.data(), static_cast<uint32_t>(text.size()));
}

std::optional<std::string> Encode(ORLIX_JSON *tree, uint32_t flags = 0) {
  char *text = nullptr;
  uint32_t length = 0;
  if (orlix_json_encode(tree, flags, &text, &length) != 1) return std::nullopt;
  std::string out(text, length);
  const bool terminated = text[length] == '\0';
  orlix_free(text);
  FUZZ_CHECK(terminated);
  return out;
}

// Whether two trees are the same value for value: types, string bytes,
// number bits, member names and order.
bool SameTree(const ORLIX_JSON *a, const ORLIX_JSON *b) {
  if (a->type != b->type) return false;
  switch (a->type) {
    case ORLIX_JSON_STRING:
      return a->length == b->length && fuzz::SameBytes(a->value.string, b->value.string, a->length);
    case ORLIX_JSON_NUMBER: return std::memcmp(&a->value.number, &b->value.number, sizeof(double)) == 0;
    case ORLIX_JSON_BOOLEAN: return a->value.boolean == b->value.boolean;
    case ORLIX_JSON_NULL: return true;
    case ORLIX_JSON_ARRAY:
      if (a->length != b->length) return false;
      for (int32_t i = 0; i < a->length; ++i)
        if (!SameTree(orlix::json::elements(a)[i], orlix::json::elements(b)[i])) return false;
      return true;
    case ORLIX_JSON_OBJECT:
      if (a->length != b->length) return false;
      for (int32_t i = 0; i < a->length; ++i) {
        const orlix::json::Member &x = orlix::json::members(a)[i];
        const orlix::json::Member &y = orlix::json::members(b)[i];
        if (!SameTree(x.name, y.name) || !SameTree(x.value, y.value)) return false;
      }
      return true;
    default: return false;
  }
}

// strtod in the C locale.
double CStrtod(const std::string &text) {
  static locale_t c_locale = newlocale(LC_NUMERIC_MASK, "C", nullptr);
  return strtod_l(text.c_str(), nullptr, c_locale);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  Tree tree(Decode(text));
  // The decode that explains its refusals accepts exactly the same texts and
  // says where within the text it stopped.
  ORLIX_JSON_Error error;
  ORLIX_JSON *explained =
      orlix_json_decodewitherror(text.data(), static_cast<uint32_t>(size), &error);
  FUZZ_CHECK((explained != nullptr) == (tree.p != nullptr));
  orlix_json_free(explained);
  {
    // The portable loops: the same tree, or the same refusal at the same place.
    const bool was = orlix::json::use_vector_forms(false);
    ORLIX_JSON_Error portable_error;
    Tree portable(orlix_json_decodewitherror(text.data(), static_cast<uint32_t>(size), &portable_error));
    const auto portable_text = portable.p != nullptr ? Encode(portable.p) : std::nullopt;
    orlix::json::use_vector_forms(was);
    FUZZ_CHECK((portable.p != nullptr) == (tree.p != nullptr));
    if (tree.p == nullptr) {
      FUZZ_CHECK(portable_error.code == error.code && portable_error.offset == error.offset &&
                     portable_error.line == error.line && portable_error.column == error.column,
                 "vector: code %u at %llu; portable: code %u at %llu", error.code,
                 static_cast<unsigned long long>(error.offset), portable_error.code,
                 static_cast<unsigned long long>(portable_error.offset));
    } else {
      FUZZ_CHECK(SameTree(tree.p, portable.p));
      FUZZ_CHECK(portable_text == Encode(tree.p));
    }
  }
  if (tree.p != nullptr && tree.p->type == ORLIX_JSON_NUMBER) {
    const double expected = CStrtod(std::string(text));
    FUZZ_CHECK(std::memcmp(&expected, &tree.p->value.number, sizeof expected) == 0, "%s: %a against %a",
               std::string(text).c_str(), tree.p->value.number, expected);
  }
  if (tree.p == nullptr) {
    FUZZ_CHECK(error.code != ORLIX_JSON_ERROR_NONE && error.code <= ORLIX_JSON_ERROR_MEMORY &&
                   error.offset <= size && error.line >= 1 && error.column >= 1 &&
                   error.column <= error.offset + 1,
               "code %u at %llu (line %u, column %u)", error.code,
               static_cast<unsigned long long>(error.offset), error.line, error.column);
    return 0;
  }
  const auto compact = Encode(tree.p);
  FUZZ_CHECK(compact.has_value());
  Tree copy(orlix_json_dup(tree.p));
  FUZZ_CHECK(copy.p != nullptr && Encode(copy.p) == compact);

  Tree again(Decode(*compact));
  if (again.p == nullptr) {
    FUZZ_CHECK(compact->find("inf") != std::string::npos || compact->find("nan") != std::string::npos,
               "own output refused: %s", compact->c_str());
    return 0;
  }
  const auto second = Encode(again.p);
  FUZZ_CHECK(second.has_value());
  FUZZ_CHECK(*second == *compact || compact->find("-0") != std::string::npos, "%s\nbecame %s",
             compact->c_str(), second->c_str());

  const uint8_t pick = data[size - 1];
  const uint32_t flags = ORLIX_JSON_ENCODE_PRETTY | (pick & 0x80 ? ORLIX_JSON_ENCODE_SPACES : 0) |
                         (pick & 0x40 ? ORLIX_JSON_ENCODE_CR : 0) |
                         (pick & 0x20 ? ORLIX_JSON_ENCODE_LF : 0) | (pick & 0x07);
  const auto pretty = Encode(again.p, flags);
  FUZZ_CHECK(pretty.has_value());
  Tree from_pretty(Decode(*pretty));
  FUZZ_CHECK(from_pretty.p != nullptr, "indented output refused: %s", pretty->c_str());
  FUZZ_CHECK(Encode(from_pretty.p) == second);
  return 0;
}
