// The JSON value model: constructors and getter sentinels, object and array
// mutators with repeated names, copies, traversal and the comparison.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "json/ORLIX_JSON.hpp"
#include "json_test_util.hpp"

namespace {

using namespace json_test;

int Sign(int v) { return (v > 0) - (v < 0); }

// The library's order on two values, as the encoder's sort applies it.
int CompareTrees(const ORLIX_JSON *a, const ORLIX_JSON *b) {
  orlix::json::Comparer comparer;
  if (!comparer.prepare(a)) std::abort();
  return comparer.values(a, b);
}

Tree Parse(const char *text) {
  Tree t = DecodeText(text);
  EXPECT_NE(t, nullptr) << text;
  return t;
}

std::string Text(ORLIX_JSON *t) { return EncodeTree(t).value_or("<encode failed>"); }

TEST(json_model, GettersGiveSentinelsForOtherTypes) {
  Tree nodes[] = {Tree(orlix_json_newstring("ab", 2)),
                  Tree(orlix_json_newnumber(2.5)),
                  Tree(orlix_json_newboolean(42)),
                  Tree(orlix_json_newnull()),
                  Parse("{\"a\":1}"),
                  Parse("[7]")};
  for (uint32_t type = 1; type <= 6; ++type) {
    SCOPED_TRACE(testing::Message() << "type " << type);
    ORLIX_JSON *n = nodes[type - 1].get();
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(orlix_json_gettype(n), type);
    EXPECT_EQ(orlix_json_istrue(n), type == ORLIX_JSON_BOOLEAN ? 1 : 0);
    EXPECT_EQ(orlix_json_getnumber(n), type == ORLIX_JSON_NUMBER ? 2.5 : -1.0);
    EXPECT_EQ(orlix_json_getstring(n) != nullptr, type == ORLIX_JSON_STRING);
    EXPECT_EQ(orlix_json_getstringlength(n), type == ORLIX_JSON_STRING ? 2u : 0xFFFFFFFFu);
    EXPECT_EQ(orlix_json_getarraysize(n), type == ORLIX_JSON_ARRAY ? 1u : 0xFFFFFFFFu);
    EXPECT_EQ(orlix_json_getarrayitem(n, 0) != nullptr, type == ORLIX_JSON_ARRAY);
    EXPECT_EQ(orlix_json_getobjectvalue(n, "a", 1) != nullptr, type == ORLIX_JSON_OBJECT);
  }
  EXPECT_EQ(orlix_json_gettype(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(orlix_json_istrue(nullptr), 0);
  EXPECT_EQ(orlix_json_getnumber(nullptr), -1.0);
  EXPECT_EQ(orlix_json_getstring(nullptr), nullptr);
  EXPECT_EQ(orlix_json_getstringlength(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(orlix_json_getarraysize(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(orlix_json_getarrayitem(nullptr, 0), nullptr);
  EXPECT_EQ(orlix_json_getobjectvalue(nullptr, "a", 1), nullptr);

  Tree off(orlix_json_newboolean(0));
  EXPECT_EQ(orlix_json_istrue(off.get()), 0);
  // Out of range, also past 2^31 where a signed index turns negative.
  EXPECT_EQ(orlix_json_getarrayitem(nodes[5].get(), 1), nullptr);
  EXPECT_EQ(orlix_json_getarrayitem(nodes[5].get(), 0x80000000u), nullptr);
  EXPECT_EQ(orlix_json_getnumber(orlix_json_getarrayitem(nodes[5].get(), 0)), 7.0);
}

TEST(json_model, StringsAreCheckedCountedAndTerminated) {
  Tree empty(orlix_json_newstring(nullptr, 0));
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(orlix_json_getstringlength(empty.get()), 0u);
  EXPECT_STREQ(orlix_json_getstring(empty.get()), "");

  char bytes[] = "a\0b\xC3\xA9\xF0\x9F\x98\x80!";
  Tree s(orlix_json_newstring(bytes, 9));  // a NUL inside, and a prefix of the buffer
  ASSERT_NE(s, nullptr);
  bytes[0] = 'z';  // the node holds its own copy
  EXPECT_EQ(orlix_json_getstringlength(s.get()), 9u);
  EXPECT_EQ(std::string(orlix_json_getstring(s.get()), 10),
            std::string("a\0b\xC3\xA9\xF0\x9F\x98\x80\0", 10));

  const std::pair<const char *, int> refused[] = {
      {nullptr, 3},
      {"abc", -1},
      {"abc", 0x7FFFFFFF},
      {"\xC3", 1},              // truncated sequence
      {"\xC0\x80", 2},          // overlong NUL
      {"\xE0\x9F\xBF", 3},      // overlong three-byte form
      {"\xED\xA0\x80", 3},      // an encoded surrogate
      {"\xF4\x90\x80\x80", 4},  // above U+10FFFF
      {"\xF0\x8F\xBF\xBF", 4},  // overlong four-byte form
      {"\x80", 1},
      {"\xFF", 1},
      {"a\xC3(", 3}};
  for (const auto &[p, n] : refused) EXPECT_EQ(orlix_json_newstring(p, n), nullptr) << n;
  Tree edge(orlix_json_newstring("\xF4\x8F\xBF\xBF\xEF\xBF\xBF\xC2\x80", 9));
  EXPECT_NE(edge, nullptr);
}

TEST(json_model, LookupTakesTheLastNameUpdateAndDeleteTheFirst) {
  Tree o(orlix_json_newobject());
  Tree one(orlix_json_newnumber(1)), two(orlix_json_newnumber(2)), three(orlix_json_newnumber(3));
  ASSERT_EQ(orlix_json_addobjectitem(o.get(), "a", 1, one.get()), 1);
  ASSERT_EQ(orlix_json_addobjectitem(o.get(), "b", 1, one.get()), 1);
  ASSERT_EQ(orlix_json_addobjectitem(o.get(), "a", 1, two.get()), 1);
  EXPECT_EQ(Text(o.get()), "{\"a\":1,\"b\":1,\"a\":2}");
  EXPECT_EQ(orlix_json_getnumber(orlix_json_getobjectvalue(o.get(), "a", 1)), 2.0);
  // Names match by length and bytes, not by a terminator.
  EXPECT_EQ(orlix_json_getnumber(orlix_json_getobjectvalue(o.get(), "ab", 1)), 2.0);
  EXPECT_EQ(orlix_json_getobjectvalue(o.get(), "a", 0), nullptr);
  EXPECT_EQ(orlix_json_getobjectvalue(o.get(), "A", 1), nullptr);

  ASSERT_EQ(orlix_json_updateobjectitem(o.get(), "a", 1, three.get()), 1);
  EXPECT_EQ(Text(o.get()), "{\"a\":3,\"b\":1,\"a\":2}");
  ASSERT_EQ(orlix_json_deleteobjectitem(o.get(), "a", 1), 1);
  EXPECT_EQ(Text(o.get()), "{\"b\":1,\"a\":2}");
  // Update of a missing name appends; delete of a missing one fails.
  ASSERT_EQ(orlix_json_updateobjectitem(o.get(), "c\0d", 3, three.get()), 1);
  EXPECT_EQ(Text(o.get()), "{\"b\":1,\"a\":2,\"c\\u0000d\":3}");
  EXPECT_EQ(orlix_json_getnumber(orlix_json_getobjectvalue(o.get(), "c\0d", 3)), 3.0);
  EXPECT_EQ(orlix_json_deleteobjectitem(o.get(), "c", 1), 0);
  // The empty name, also given as NULL with length 0.
  ASSERT_EQ(orlix_json_addobjectitem(o.get(), nullptr, 0, one.get()), 1);
  EXPECT_EQ(orlix_json_getnumber(orlix_json_getobjectvalue(o.get(), "", 0)), 1.0);
  EXPECT_EQ(orlix_json_deleteobjectitem(o.get(), nullptr, 0), 1);
  EXPECT_EQ(Text(o.get()), "{\"b\":1,\"a\":2,\"c\\u0000d\":3}");

  Tree none(orlix_json_newobject());
  EXPECT_EQ(orlix_json_deleteobjectitem(none.get(), "a", 1), 0);
}

TEST(json_model, MutatorsRefuseBadArgumentsAndLeaveTheContainer) {
  Tree o = Parse("{\"a\":[1]}");
  Tree a = Parse("[1,2,3]");
  Tree v(orlix_json_newnull());
  EXPECT_EQ(orlix_json_addobjectitem(a.get(), "x", 1, v.get()), 0);
  EXPECT_EQ(orlix_json_addobjectitem(o.get(), "x", 1, nullptr), 0);
  EXPECT_EQ(orlix_json_addobjectitem(o.get(), "\xFF", 1, v.get()), 0);
  EXPECT_EQ(orlix_json_addobjectitem(o.get(), nullptr, 1, v.get()), 0);
  EXPECT_EQ(orlix_json_addobjectitem(o.get(), "x", 0x7FFFFFFFu, v.get()), 0);
  EXPECT_EQ(orlix_json_addobjectitem(o.get(), "x", 0x80000000u, v.get()), 0);
  for (auto op : {+[](ORLIX_JSON *t, const char *n, int l, ORLIX_JSON *x) {
                    return orlix_json_updateobjectitem(t, n, l, x);
                  },
                  +[](ORLIX_JSON *t, const char *n, int l, ORLIX_JSON *) {
                    return orlix_json_deleteobjectitem(t, n, l);
                  }}) {
    EXPECT_EQ(op(a.get(), "a", 1, v.get()), 0);
    EXPECT_EQ(op(o.get(), "a", -1, v.get()), 0);
    EXPECT_EQ(op(o.get(), nullptr, 1, v.get()), 0);
    EXPECT_EQ(op(nullptr, "a", 1, v.get()), 0);
  }
  EXPECT_EQ(orlix_json_updateobjectitem(o.get(), "a", 1, nullptr), 0);
  EXPECT_EQ(orlix_json_updateobjectitem(o.get(), "\xC3", 1, v.get()), 0);  // appends: name checked
  EXPECT_EQ(orlix_json_getobjectvalue(o.get(), "a", -1), nullptr);
  EXPECT_EQ(orlix_json_getobjectvalue(o.get(), nullptr, 1), nullptr);

  EXPECT_EQ(orlix_json_addarrayitem(o.get(), v.get()), 0);
  EXPECT_EQ(orlix_json_addarrayitem(a.get(), nullptr), 0);
  EXPECT_EQ(orlix_json_deletearrayitem(o.get(), 0), 0);
  EXPECT_EQ(orlix_json_deletearrayitem(a.get(), -1), 0);
  EXPECT_EQ(orlix_json_deletearrayitem(a.get(), 3), 0);
  EXPECT_EQ(Text(o.get()), "{\"a\":[1]}");
  EXPECT_EQ(Text(a.get()), "[1,2,3]");
  EXPECT_EQ(orlix_json_deletearrayitem(a.get(), 1), 1);
  EXPECT_EQ(Text(a.get()), "[1,3]");
}

TEST(json_model, AddedValuesAndCopiesAreIndependent) {
  Tree inner = Parse("[1]");
  Tree o(orlix_json_newobject());
  Tree a(orlix_json_newarray());
  ASSERT_EQ(orlix_json_addobjectitem(o.get(), "k", 1, inner.get()), 1);
  ASSERT_EQ(orlix_json_updateobjectitem(o.get(), "u", 1, inner.get()), 1);
  ASSERT_EQ(orlix_json_addarrayitem(a.get(), inner.get()), 1);
  EXPECT_NE(orlix_json_getobjectvalue(o.get(), "k", 1), inner.get());
  Tree two(orlix_json_newnumber(2));
  ASSERT_EQ(orlix_json_addarrayitem(inner.get(), two.get()), 1);
  EXPECT_EQ(Text(o.get()), "{\"k\":[1],\"u\":[1]}");
  EXPECT_EQ(Text(a.get()), "[[1]]");

  // Many members and elements (past the list's first growths), nested.
  Tree big(orlix_json_newobject());
  for (int i = 0; i < 40; ++i) {
    const std::string name = "m" + std::to_string(i);
    ASSERT_EQ(orlix_json_addobjectitem(big.get(), name.data(), uint32_t(name.size()), o.get()), 1);
    ASSERT_EQ(orlix_json_addarrayitem(a.get(), big.get()), 1);
  }
  Tree copy(orlix_json_dup(big.get()));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(CompareTrees(copy.get(), big.get()), 0);
  EXPECT_EQ(Text(copy.get()), Text(big.get()));
  EXPECT_EQ(orlix_json_deleteobjectitem(copy.get(), "m0", 2), 1);
  ORLIX_JSON *k = orlix_json_getobjectvalue(orlix_json_getobjectvalue(copy.get(), "m1", 2), "k", 1);
  ASSERT_EQ(orlix_json_addarrayitem(k, two.get()), 1);
  EXPECT_EQ(orlix_json_getarraysize(
                orlix_json_getobjectvalue(orlix_json_getobjectvalue(big.get(), "m1", 2), "k", 1)),
            1u);
  EXPECT_EQ(orlix_json_getarraysize(a.get()), 41u);
  EXPECT_EQ(orlix_json_dup(nullptr), nullptr);

  Tree s(orlix_json_newstring("x\0y", 3));
  Tree scopy(orlix_json_dup(s.get()));
  ASSERT_NE(scopy, nullptr);
  EXPECT_NE(orlix_json_getstring(scopy.get()), orlix_json_getstring(s.get()));
  EXPECT_EQ(std::string(orlix_json_getstring(scopy.get()), 4), std::string("x\0y\0", 4));
}

TEST(json_model, UnknownTypeCodesAreRefusedByCopyAndEncoder) {
  Tree a = Parse("[1,[2]]");
  ORLIX_JSON *inner = orlix_json_getarrayitem(orlix_json_getarrayitem(a.get(), 1), 0);
  inner->type = 7;  // damage from outside the interface
  EXPECT_EQ(orlix_json_dup(a.get()), nullptr);
  EXPECT_EQ(EncodeTree(a.get()), std::nullopt);
  EXPECT_EQ(EncodeTree(a.get(), ORLIX_JSON_ENCODE_PRETTY | ORLIX_JSON_ENCODE_LF), std::nullopt);
  EXPECT_EQ(EncodeTree(inner, ORLIX_JSON_ENCODE_SORT), std::nullopt);
  inner->type = 0;
  EXPECT_EQ(orlix_json_dup(inner), nullptr);
  EXPECT_EQ(EncodeTree(inner), std::nullopt);
  inner->type = ORLIX_JSON_NUMBER;
}

struct Walk {
  std::vector<std::string> seen;
  int stop_at = -1;
  int stop_with = 0;
};

int Visit(void *user, const char *name, uint32_t length, ORLIX_JSON *value) {
  auto *w = static_cast<Walk *>(user);
  w->seen.push_back(std::string(name, length) + "=" + Text(value));
  return int(w->seen.size()) - 1 == w->stop_at ? w->stop_with : 1;
}

TEST(json_model, TraverseVisitsInOrderAndStopsOnAnythingButOne) {
  Tree o = Parse("{\"b\":1,\"a\\u0000\":[2],\"b\":{}}");
  Walk all;
  EXPECT_EQ(orlix_json_traverse(o.get(), Visit, &all), 1);
  EXPECT_EQ(all.seen, (std::vector<std::string>{"b=1", std::string("a\0=[2]", 6), "b={}"}));
  for (int result : {0, 2, -1}) {
    Walk stop{{}, 1, result};
    EXPECT_EQ(orlix_json_traverse(o.get(), Visit, &stop), 0);
    EXPECT_EQ(stop.seen.size(), 2u) << result;
  }
  Tree empty(orlix_json_newobject());
  Walk none;
  EXPECT_EQ(orlix_json_traverse(empty.get(), Visit, &none), 1);
  EXPECT_TRUE(none.seen.empty());
  Tree arr = Parse("[1]");
  EXPECT_EQ(orlix_json_traverse(arr.get(), Visit, &none), 0);
  EXPECT_EQ(orlix_json_traverse(nullptr, Visit, &none), 0);
  EXPECT_EQ(orlix_json_traverse(o.get(), nullptr, &none), 0);
  EXPECT_TRUE(none.seen.empty());
}

TEST(json_model, ComparisonOrdersTypesThenValuesWithItsAsymmetries) {
  struct Case {
    const char *a, *b;
    int sign;
  } cases[] = {{"\"ab\"", "\"abc\"", 0},
               {"\"abc\"", "\"ab\"", 1},
               {"\"\"", "\"x\"", 0},
               {"\"x\"", "\"\"", 1},
               {"\"ab\"", "\"b\"", -1},
               {"\"b\"", "\"ab\"", 1},
               {"\"\"", "\"\"", 0},
               {"\"\\u00e9\"", "\"z\"", 1},  // bytes compare unsigned
               {"1", "2", -1},
               {"-0", "0", 0},
               {"true", "false", 1},
               {"null", "null", 0},
               {"{\"a\":1,\"b\":2}", "{\"b\":2,\"a\":1}", -1},
               {"{\"z\":9}", "{\"a\":1,\"b\":1}", -1},  // fewer members first
               {"[9]", "[1,1]", -1},
               {"[1,2]", "[1,3]", -1},
               {"[[\"ab\"]]", "[[\"abc\"]]", 0},
               {"{\"ab\":1}", "{\"abc\":1}", 0},
               {"{\"a\":2}", "{\"a\":1}", 1}};
  for (const auto &c : cases) {
    Tree a = Parse(c.a), b = Parse(c.b);
    EXPECT_EQ(Sign(CompareTrees(a.get(), b.get())), c.sign) << c.a << " vs " << c.b;
  }
  // Type order: string < number < boolean < null < object < array; NULL
  // before everything.
  const char *by_type[] = {"\"zz\"", "-5", "false", "null", "{}", "[]"};
  for (int i = 0; i < 6; ++i) {
    Tree a = Parse(by_type[i]);
    EXPECT_EQ(CompareTrees(nullptr, a.get()), -1);
    EXPECT_EQ(CompareTrees(a.get(), nullptr), 1);
    for (int j = 0; j < 6; ++j) {
      Tree b = Parse(by_type[j]);
      EXPECT_EQ(Sign(CompareTrees(a.get(), b.get())), i < j ? -1 : (i > j ? 1 : 0));
    }
  }
  EXPECT_EQ(CompareTrees(nullptr, nullptr), 0);
  // NaN equals every number, either way round.
  Tree nan(orlix_json_newnumber(std::nan(""))), one(orlix_json_newnumber(1));
  EXPECT_EQ(CompareTrees(nan.get(), one.get()), 0);
  EXPECT_EQ(CompareTrees(one.get(), nan.get()), 0);
}

}  // namespace
