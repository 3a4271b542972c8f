// JSON trees: decoding valid and invalid texts, encoding in every layout and
// with the sort, copies, and the object and array mutators.
#include <cstring>
#include <string>

#include "../json/json_test_util.hpp"
#include "ORLIX_JSON.h"
#include "ORLIX_Util.h"
#include "sweep.hpp"

namespace {

using json_test::Tree;

std::string Repeat(const std::string &s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

// Exercises every block the decoder takes: nesting past its first 32 open
// containers, lists past 16 and 32 entries, strings with escapes longer than
// the inline scratch, number texts longer than their inline buffer that
// need the out-of-range conversion, and enough text that the encoder writes
// into its stream several times.
std::string BigDocument() {
  std::string members;
  for (int i = 0; i < 40; ++i)
    members += "\"m" + std::to_string(i) + "\":" + std::to_string(i) + ",";
  return "{" + members + "\"esc\":\"" + Repeat("ab\\n\\u00e9\\ud83d\\ude00", 40) +
         "\",\"deep\":" + Repeat("[", 40) + "1e400" + Repeat("]", 40) + ",\"tiny\":0." +
         Repeat("0", 90) + "1e-400,\"list\":[" + Repeat("true,null,\"x\",-2.5,", 20) +
         "{}],\"bulk\":[" + Repeat("\"" + Repeat("x", 100) + "\",", 100) + "0],\"m0\":\"last\"}";
}

// The library's own encoding, taken without injected failures.
std::string EncodePaused(ORLIX_JSON *tree, uint32_t flags = 0) {
  oom::PauseInjection pause;
  return json_test::EncodeTree(tree, flags).value_or("<encode failed>");
}

Tree BuildPaused(const std::string &text) {
  oom::PauseInjection pause;
  Tree t = json_test::DecodeText(text);
  EXPECT_NE(t, nullptr);
  return t;
}

}  // namespace

ORLIX_OOM_SCENARIO(json, DecodeValid) {
  static const std::string text = BigDocument();
  static const std::string expected = [] {
    oom::PauseInjection pause;
    Tree t = json_test::DecodeText(text);
    return t ? json_test::EncodeTree(t.get()).value_or("") : "";
  }();
  EXPECT_FALSE(expected.empty());
  Tree t = json_test::DecodeText(text);
  if (!t) return false;
  EXPECT_EQ(EncodePaused(t.get()), expected);
  return true;
}

// Texts refused only after much has been built: the decoder must release
// every partial container, pending member and scratch block whether it
// stops at the fault in the text or at a failed allocation.
ORLIX_OOM_SCENARIO(json, DecodeInvalid, .absorbs_failures = true) {
  const std::string doc = BigDocument();
  const std::string texts[] = {
      doc.substr(0, doc.size() - 1),                                      // the last brace missing
      doc + "x",                                                          // a trailing byte
      "[" + doc + "," + Repeat("[", 45) + "1,]" + Repeat("]", 45) + "]",  // [1,]
      "{\"a\":" + doc + ",\"b\":\"" + Repeat("\\u00e9", 100) + "\\ud83d\"}",  // lone surrogate
      "{\"a\":[" + Repeat("\"x\",", 30) + "\"\xC3\"]}",                       // bad UTF-8
      "{\"a\":" + Repeat("{\"b\":", 50) + "nullx" + Repeat("}", 51),
  };
  int accepted = 0;
  for (const auto &text : texts) {
    Tree t = json_test::DecodeText(text);
    accepted += t != nullptr;
  }
  EXPECT_EQ(accepted, 0);
  return true;
}

namespace {

// Encodes a tree that already exists; a failure must hand out nothing and
// leave the tree as it was (sorted already, when sorting was asked for).
bool EncodeScenario(uint32_t flags) {
  Tree tree = BuildPaused(BigDocument());
  if (!tree) return false;
  const std::string before = EncodePaused(tree.get());
  char *text = reinterpret_cast<char *>(&flags);  // must stay untouched on failure
  uint32_t length = 7;
  if (orlix_json_encode(tree.get(), flags, &text, &length) != 1) {
    EXPECT_EQ(text, reinterpret_cast<char *>(&flags));
    EXPECT_EQ(length, 7u);
    if ((flags & ORLIX_JSON_ENCODE_SORT) == 0) {
      EXPECT_EQ(EncodePaused(tree.get()), before);
    }
    return false;
  }
  EXPECT_EQ(std::string(text, length), EncodePaused(tree.get(), flags & ~ORLIX_JSON_ENCODE_SORT));
  EXPECT_GT(length, 8192u);  // several writes into the stream
  orlix_free(text);
  return true;
}

}  // namespace

ORLIX_OOM_SCENARIO(json, EncodeCompact) { return EncodeScenario(0); }

ORLIX_OOM_SCENARIO(json, EncodePretty) {
  return EncodeScenario(ORLIX_JSON_ENCODE_PRETTY | ORLIX_JSON_ENCODE_SPACES | 3 |
                        ORLIX_JSON_ENCODE_CR | ORLIX_JSON_ENCODE_LF);
}

ORLIX_OOM_SCENARIO(json, EncodeSorted) {
  return EncodeScenario(ORLIX_JSON_ENCODE_SORT | ORLIX_JSON_ENCODE_PRETTY | ORLIX_JSON_ENCODE_LF);
}

ORLIX_OOM_SCENARIO(json, Dup) {
  Tree tree = BuildPaused(BigDocument());
  if (!tree) return false;
  Tree copy(orlix_json_dup(tree.get()));
  if (!copy) return false;
  EXPECT_EQ(EncodePaused(copy.get()), EncodePaused(tree.get()));
  return true;
}

// Builds an object and an array through the constructors and mutators; after
// any failed step the container must read exactly as before it.
ORLIX_OOM_SCENARIO(json, BuildAndMutate) {
  Tree object(orlix_json_newobject());
  if (!object) return false;
  Tree array(orlix_json_newarray());
  if (!array) return false;
  Tree nested = BuildPaused("{\"k\":[1,\"two\",{\"x\":null}],\"e\":\"\\u00e9\"}");
  auto step = [&](ORLIX_JSON *container, auto &&op) {
    const std::string before = EncodePaused(container);
    if (op() == 1) return true;
    EXPECT_EQ(EncodePaused(container), before);
    return false;
  };
  for (int i = 0; i < 40; ++i) {
    const std::string name = "n" + std::to_string(i % 25);  // repeats past 25
    Tree value(i % 3 ? orlix_json_newnumber(i)
                     : orlix_json_newstring(name.data(), int(name.size())));
    if (!value) return false;
    if (!step(object.get(), [&] {
          return orlix_json_addobjectitem(object.get(), name.data(), uint32_t(name.size()),
                                          i % 5 ? value.get() : nested.get());
        }))
      return false;
    if (!step(array.get(), [&] { return orlix_json_addarrayitem(array.get(), value.get()); }))
      return false;
  }
  if (!step(object.get(),
            [&] { return orlix_json_updateobjectitem(object.get(), "n3", 2, nested.get()); }))
    return false;
  if (!step(object.get(),
            [&] { return orlix_json_updateobjectitem(object.get(), "new", 3, nested.get()); }))
    return false;
  if (!step(array.get(), [&] { return orlix_json_addarrayitem(array.get(), object.get()); }))
    return false;
  EXPECT_EQ(orlix_json_deleteobjectitem(object.get(), "n3", 2), 1);
  EXPECT_EQ(orlix_json_deletearrayitem(array.get(), 0), 1);
  EXPECT_EQ(orlix_json_getarraysize(array.get()), 40u);
  EXPECT_EQ(orlix_json_gettype(orlix_json_getobjectvalue(object.get(), "n3", 2)),
            ORLIX_JSON_NUMBER);
  return true;
}

// The mutators on containers inside a decoded tree, whose nodes share the
// decoder's blocks: what they add has blocks of its own, and releasing the
// tree must find and release exactly those.
ORLIX_OOM_SCENARIO(json, MutateDecoded) {
  Tree tree = BuildPaused(BigDocument());
  if (!tree) return false;
  Tree value = BuildPaused("{\"v\":[1,\"two\"]}");
  if (!value) return false;
  ORLIX_JSON *list = orlix_json_getobjectvalue(tree.get(), "list", 4);
  ORLIX_JSON *deep = orlix_json_getobjectvalue(tree.get(), "deep", 4);
  ORLIX_JSON *inner = orlix_json_getarrayitem(list, 80);  // the empty object
  if (list == nullptr || deep == nullptr || inner == nullptr) return false;
  for (int i = 0; i < 3; ++i) {
    if (orlix_json_addarrayitem(list, value.get()) != 1) return false;
    if (orlix_json_addarrayitem(deep, value.get()) != 1) return false;
    if (orlix_json_addobjectitem(inner, "k", 1, value.get()) != 1) return false;
    if (orlix_json_updateobjectitem(tree.get(), "m5", 2, value.get()) != 1) return false;
    if (orlix_json_updateobjectitem(inner, "k", 1, list) != 1) return false;
  }
  EXPECT_EQ(orlix_json_deletearrayitem(list, 81), 1);
  EXPECT_EQ(orlix_json_deleteobjectitem(tree.get(), "m6", 2), 1);
  EXPECT_EQ(orlix_json_getarraysize(list), 83u);
  EXPECT_EQ(orlix_json_getarraysize(deep), 4u);
  EXPECT_EQ(orlix_json_gettype(orlix_json_getobjectvalue(tree.get(), "m5", 2)), ORLIX_JSON_OBJECT);
  return true;
}
