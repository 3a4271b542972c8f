// orlix_json_decode on arbitrary bytes against the recursive-descent
// reference of the grammar: both accept exactly the same texts and build the
// same tree, and the compact encoding matches the reference encoder. An
// accepted tree without infinities must survive its own text: decoding the
// compact and an indented encoding gives the tree with each number read back
// from its printed form, and the compact bytes re-encode unchanged (except
// where a small negative number was printed as "-0", which reads back as 0).
//
// Input: the JSON text. Its last byte also picks the indented layout.
#include <cmath>
#include <cstdlib>
#include <string>
#include <string_view>

#include "../tests/json/json_reference.hpp"
#include "fuzz_util.hpp"

namespace {

using namespace json_ref;

bool AllFinite(const Value &v) {
  if (v.type == ORLIX_JSON_NUMBER) return std::isfinite(v.number);
  for (const Member &m : v.members)
    if (!AllFinite(m.value)) return false;
  for (const Value &e : v.elements)
    if (!AllFinite(e)) return false;
  return true;
}

// Every number replaced by the value its printed text decodes to.
Value Reprinted(Value v) {
  if (v.type == ORLIX_JSON_NUMBER) v.number = std::strtod(FormatNumber(v.number).c_str(), nullptr);
  for (Member &m : v.members) m.value = Reprinted(std::move(m.value));
  for (Value &e : v.elements) e = Reprinted(std::move(e));
  return v;
}

bool PrintsNegativeZero(const Value &v) {
  if (v.type == ORLIX_JSON_NUMBER) return FormatNumber(v.number) == "-0";
  for (const Member &m : v.members)
    if (PrintsNegativeZero(m.value)) return true;
  for (const Value &e : v.elements)
    if (PrintsNegativeZero(e)) return true;
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const Decoder reference(orlix_get_recursive_level());
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  const auto want = reference.Decode(text);
  Tree tree = DecodeText(text);
  FUZZ_CHECK((tree != nullptr) == want.has_value(), "library %d, reference %d", tree != nullptr,
             want.has_value());
  // The decode that explains its refusals accepts exactly the same texts and
  // says where within the text it stopped.
  ORLIX_JSON_Error error;
  ORLIX_JSON *explained =
      orlix_json_decodewitherror(text.data(), static_cast<uint32_t>(size), &error);
  FUZZ_CHECK((explained != nullptr) == (tree != nullptr));
  orlix_json_free(explained);
  if (!tree) {
    FUZZ_CHECK(error.code != ORLIX_JSON_ERROR_NONE && error.code <= ORLIX_JSON_ERROR_MEMORY &&
                   error.offset <= size && error.line >= 1 && error.column >= 1 &&
                   error.column <= error.offset + 1,
               "code %u at %llu (line %u, column %u)", error.code,
               static_cast<unsigned long long>(error.offset), error.line, error.column);
    return 0;
  }
  FUZZ_CHECK(Same(Read(tree.get()), *want));

  const auto compact = EncodeTree(tree.get());
  FUZZ_CHECK(compact.has_value());
  FUZZ_CHECK(*compact == Encode(*want), "library %s\nreference %s", compact->c_str(),
             Encode(*want).c_str());
  if (!AllFinite(*want)) return 0;  // "inf" and "nan" are not JSON

  const Value reread = Reprinted(*want);
  Tree again = DecodeText(*compact);
  FUZZ_CHECK(again != nullptr, "own output refused: %s", compact->c_str());
  FUZZ_CHECK(Same(Read(again.get()), reread));
  const auto second = EncodeTree(again.get());
  FUZZ_CHECK(second.has_value() && *second == Encode(reread));
  FUZZ_CHECK(*second == *compact || PrintsNegativeZero(*want));

  const uint8_t pick = data[size - 1];
  const uint32_t flags = ORLIX_JSON_ENCODE_PRETTY | (pick & 0x80 ? ORLIX_JSON_ENCODE_SPACES : 0) |
                         (pick & 0x40 ? ORLIX_JSON_ENCODE_CR : 0) |
                         (pick & 0x20 ? ORLIX_JSON_ENCODE_LF : 0) | (pick & 0x07);
  const auto pretty = EncodeTree(tree.get(), flags);
  FUZZ_CHECK(pretty.has_value() && *pretty == Encode(*want, flags));
  Tree from_pretty = DecodeText(*pretty);
  FUZZ_CHECK(from_pretty != nullptr, "own indented output refused");
  FUZZ_CHECK(Same(Read(from_pretty.get()), reread));
  return 0;
}
