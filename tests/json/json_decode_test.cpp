// The JSON decoder: its exact grammar (what it refuses and accepts on
// purpose), the nesting limit read at load time, deep trees, numbers read
// exactly as strtod reads them, and independence from the process locale.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "json_test_util.hpp"

namespace {

using namespace json_test;
using namespace std::string_literals;

// Each text decodes, and the tree encodes compactly as given.
void ExpectReencoded(std::initializer_list<std::pair<std::string, std::string>> cases) {
  for (const auto &[text, compact] : cases) {
    Tree t = DecodeText(text);
    ASSERT_NE(t, nullptr) << text;
    EXPECT_EQ(EncodeTree(t.get()), compact) << text;
  }
}

TEST(json_decode, AcceptsAndReencodesCompactly) {
  // Blanks around a top-level container and between its tokens.
  ExpectReencoded({{"[1, 2]\n", "[1,2]"},
                   {" {} ", "{}"},
                   {"\t\r\n[ ]\r\n", "[]"},
                   {"[[],{},[[]]]", "[[],{},[[]]]"},
                   {"{\"a\"\t:\n1\r}", "{\"a\":1}"},
                   {"{ \"a\" : [ 1 , 2 ] , \"b\" : { } }", "{\"a\":[1,2],\"b\":{}}"},
                   {"[\"a\",-1,{\"b\":[true]}]", "[\"a\",-1,{\"b\":[true]}]"},
                   {"true", "true"},
                   {"false", "false"},
                   {"null", "null"},
                   {"[null,true,false]", "[null,true,false]"}});
  // Numbers: integral values in 32-bit range as integers, others as %lf
  // trimmed; out-of-range texts convert as strtod does.
  ExpectReencoded({{"-0", "0"},
                   {"-0.0", "0"},
                   {"0e0", "0"},
                   {"0.5", "0.5"},
                   {"1e5", "100000"},
                   {"1E+5", "100000"},
                   {"-1.25e-3", "-0.00125"},
                   {"2.5E-1", "0.25"},
                   {"10.0", "10"},
                   {"2147483647", "2147483647"},
                   {"-2147483648", "-2147483648"},
                   {"2147483648", "2147483648"},
                   {"-2147483649", "-2147483649"},
                   {"123456.7890123", "123456.789012"},
                   {"3.14159265", "3.141593"},
                   {"0.1", "0.1"},
                   {"0.0078125", "0.007812"},
                   {"1e20", "100000000000000000000"},
                   {"1e-7", "0"},
                   {"-1e-7", "-0"},
                   {"1.000000000000000000001", "1"},
                   {"1e400", "inf"},
                   {"-1e400", "-inf"},
                   {"1e-400", "0"},
                   {"4.9e-324", "0"}});
  // Escapes decode to UTF-8; the encoder writes \u00XX for controls only.
  ExpectReencoded({{"\"\\u00e9\"", "\"\xC3\xA9\""},
                   {"\"\\u00E9\"", "\"\xC3\xA9\""},
                   {"\"\\ud83d\\ude00\"", "\"\xF0\x9F\x98\x80\""},
                   {"\"\\uDBFF\\uDFFF\"", "\"\xF4\x8F\xBF\xBF\""},
                   {"\"\\uffff\"", "\"\xEF\xBF\xBF\""},
                   {"\"\\u0000\"", "\"\\u0000\""},
                   {"\"\\t\"", "\"\\u0009\""},
                   {"\"\\/\"", "\"/\""},
                   {"\"\\b\\f\\n\\r\\\"\\\\\"", "\"\\u0008\\u000C\\u000A\\u000D\\\"\\\\\""},
                   {"\"\\u001f\\u007F\\u0080\"", "\"\\u001F\x7F\xC2\x80\""},
                   {"\"\xC3\xA9 raw\"", "\"\xC3\xA9 raw\""},
                   {"\"\"", "\"\""},
                   {"\"\x7F\"", "\"\x7F\""}});
  // Objects keep repeated names in order; a name's opening quote is not
  // examined, whatever byte stands there.
  ExpectReencoded({{"{\"a\":1,\"a\":2}", "{\"a\":1,\"a\":2}"},
                   {"{xkey\":1}", "{\"key\":1}"},
                   {"{'a\":1}", "{\"a\":1}"},
                   {"{\"a\":1,}\":2}", "{\"a\":1,\"\":2}"},
                   {"{\"\\u0041\":\"x\"}", "{\"A\":\"x\"}"}});
  Tree dup = DecodeText("{\"a\":1,\"b\":0,\"a\":2}");
  EXPECT_EQ(orlix_json_getnumber(orlix_json_getobjectvalue(dup.get(), "a", 1)), 2.0);
}

TEST(json_decode, RefusesOnPurpose) {
  const std::string cases[] = {
      // Top level: no blank before or after a scalar, nothing after a value.
      " 1", "1 ", "\t\"a\"", "\"a\"\n", " null", "[1] x", "{}}", "[1]]", "[1,2]\0"s, "\"a\"\0"s,
      "{\"a\":1}{}", "[]{}", " ", "\t",
      // Numbers.
      "01", "-01", "-", "-a", "1.", ".5", "+1", "1e", "1e+", "1.e5", "1.5e", "--1", "0x10", "[-]",
      "[01]", "[1.]", "{\"a\":01}",
      // The same inside an array with room after them, where numbers are read
      // in vectors: the byte after '9' is no digit, nor is any after a point.
      "[1:2," + std::string(32, ' ') + "0]", "[1.:2," + std::string(32, ' ') + "0]",
      "[01," + std::string(32, ' ') + "0]", "[1.e5," + std::string(32, ' ') + "0]",
      // Literals.
      "nul", "nullx", "[nullx]", "truex", "True", "tru", "fals",
      // Containers.
      "[1,]", "[,1]", "{,}", "[1 2]", "x", "[x]", "\0"s, "[1,\n]", "[\"a\":1]", "{\"a\" 1}",
      "{\"a\":}", "{\"a\":1,}", "{\"a\"}", "{\"a\":1", "{", "[", "[1", "[1,", "{\"a\"",
      "{\"a\":", "{\"a\":1 \"b\":2}", "{\"a\":1,\"b\"}", "[\x01]", "[1\x01]", "{\"a\"\x01:1}",
      "{\"a\":1\x01}", "[1\x7F]",
      // Strings: unterminated, bad escapes, lone surrogates, raw controls, bad UTF-8.
      "\"", "\"abc", "\"abc\\\"", "\"\\", "\"\\u123\"", "\"\\u12G4\"", "\"\\x\"", "\"\\U0041\"",
      "\"\\ud83d\"", "\"\\ud83dx\"", "\"\\ud83d\\u0041\"", "\"\\ud83d\\ud83d\"", "\"\\ude00\"",
      "\"\\ud83d\\ude0\"", "\"\\ud83d\\ude0", "\"a\tb\"", "\"\x01\"", "\"\x1f\"", "\"a\nb\"",
      "\"\xff\"", "\"\xc3\"", "\"\xc3\\u00a9\"", "\"\xed\xa0\x80\"", "\"\xc0\x80\"",
      "\"\xf4\x90\x80\x80\"", "{\"\xff\":1}", "{\"\\ud800\":1}", "{\"a\\u\":1}"};
  for (const auto &text : cases) EXPECT_EQ(DecodeText(text), nullptr) << Hex(text);
}

// Where and why a refused text fails: offset, line, column (characters of
// the line) and the code with its fixed reason, for every kind of refusal.
TEST(json_decode, ErrorsSayWhereAndWhy) {
  struct Row {
    std::string text;
    uint32_t code;
    uint64_t offset;
    uint32_t line, column;
  };
  const Row rows[] = {
      {"", ORLIX_JSON_ERROR_END, 0, 1, 1},
      {"[1", ORLIX_JSON_ERROR_END, 2, 1, 3},
      {"[1,]", ORLIX_JSON_ERROR_CHARACTER, 3, 1, 4},
      {"{\"a\" 1}", ORLIX_JSON_ERROR_CHARACTER, 5, 1, 6},
      {"[tru]", ORLIX_JSON_ERROR_LITERAL, 1, 1, 2},
      {"[1,-]", ORLIX_JSON_ERROR_NUMBER, 3, 1, 4},
      {"[1.5e]", ORLIX_JSON_ERROR_NUMBER, 1, 1, 2},
      {"[\"abc", ORLIX_JSON_ERROR_UNTERMINATED, 1, 1, 2},
      {"[\"a\\", ORLIX_JSON_ERROR_UNTERMINATED, 1, 1, 2},
      {"[\"\\u00", ORLIX_JSON_ERROR_UNTERMINATED, 1, 1, 2},
      {"[\"\\x\"]", ORLIX_JSON_ERROR_ESCAPE, 2, 1, 3},
      {"[\"\\u12G4\"]", ORLIX_JSON_ERROR_ESCAPE, 2, 1, 3},
      {"[\"\\ud83d\\u0041\"]", ORLIX_JSON_ERROR_SURROGATE, 2, 1, 3},  // the high half
      {"[\"\\ude00\"]", ORLIX_JSON_ERROR_SURROGATE, 2, 1, 3},
      {"[\"a\x01\"]", ORLIX_JSON_ERROR_CONTROL, 3, 1, 4},
      {"[\"\xc3(\"]", ORLIX_JSON_ERROR_UTF8, 2, 1, 3},
      {"[1] x", ORLIX_JSON_ERROR_TRAILING, 4, 1, 5},  // a container may be followed by blanks
      {"1 x", ORLIX_JSON_ERROR_TRAILING, 1, 1, 2},    // a scalar by nothing
      // Columns count characters: "é" is one, its two bytes are two offsets.
      {"[\n  \"\xc3\xa9\", ?\n]", ORLIX_JSON_ERROR_CHARACTER, 10, 2, 8},
      {"{\"\xc3\xa9\xc3\xa9\":\n\n1,\"\xe2\x82\xac\":tx}", ORLIX_JSON_ERROR_LITERAL, 18, 3, 7},
  };
  for (const Row &r : rows) {
    ORLIX_JSON_Error e{99, 99, 99, 99, nullptr};
    EXPECT_EQ(orlix_json_decodewitherror(r.text.data(), static_cast<uint32_t>(r.text.size()), &e),
              nullptr)
        << Hex(r.text);
    EXPECT_EQ(e.code, r.code) << Hex(r.text);
    EXPECT_EQ(e.offset, r.offset) << Hex(r.text);
    EXPECT_EQ(e.line, r.line) << Hex(r.text);
    EXPECT_EQ(e.column, r.column) << Hex(r.text);
    EXPECT_NE(e.reason, nullptr);
  }
  ORLIX_JSON_Error e{99, 99, 99, 99, nullptr};
  Tree ok(orlix_json_decodewitherror("[1]", 3, &e));
  EXPECT_NE(ok, nullptr);
  EXPECT_EQ(e.code, ORLIX_JSON_ERROR_NONE);
  EXPECT_EQ(e.offset + e.line + e.column, 0u);
  EXPECT_STREQ(e.reason, "no error");
  EXPECT_EQ(orlix_json_decodewitherror(nullptr, 0, &e), nullptr);
  EXPECT_EQ(e.code, ORLIX_JSON_ERROR_NO_INPUT);
  EXPECT_STREQ(e.reason, "no input");
}

TEST(json_decode, ReadsExactlyTheGivenLength) {
  const char text[] = "[1,2]garbage";
  Tree t(orlix_json_decode(text, 5));
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(EncodeTree(t.get()), "[1,2]");
  EXPECT_EQ(orlix_json_decode(text, 4), nullptr);
  Tree one(orlix_json_decode("12", 1));
  EXPECT_EQ(orlix_json_getnumber(one.get()), 1.0);
  Tree lit(orlix_json_decode("nullnull", 4));
  EXPECT_EQ(orlix_json_gettype(lit.get()), ORLIX_JSON_NULL);
  EXPECT_EQ(orlix_json_decode("\"ab\"", 3), nullptr);
  EXPECT_EQ(orlix_json_decode("1", 0), nullptr);
  EXPECT_EQ(orlix_json_decode(nullptr, 1), nullptr);
  // A length that does not fit a signed 32-bit count is refused unread.
  EXPECT_EQ(orlix_json_decode("[1]", 0x80000003u), nullptr);
}

std::string Nest(const std::string &open, int n, const std::string &core,
                 const std::string &close) {
  std::string s;
  for (int i = 0; i < n; ++i) s += open;
  s += core;
  for (int i = 0; i < n; ++i) s += close;
  return s;
}

TEST(json_decode, NestingLimitCountsContainerLevels) {
  const int limit = orlix_get_recursive_level();
  ASSERT_GE(limit, 8);
  EXPECT_NE(DecodeText(Nest("[", limit, "", "]")), nullptr);
  EXPECT_EQ(DecodeText(Nest("[", limit + 1, "", "]")), nullptr);
  EXPECT_EQ(DecodeText(Nest("[", limit, "1", "]")), nullptr);
  EXPECT_NE(DecodeText(Nest("[", limit - 1, "1", "]")), nullptr);
  EXPECT_NE(DecodeText(Nest("{\"a\":", limit - 1, "{}", "}")), nullptr);
  EXPECT_EQ(DecodeText(Nest("{\"a\":", limit, "{}", "}")), nullptr);
  EXPECT_NE(DecodeText(Nest("{\"a\":", limit - 1, "1", "}")), nullptr);
  EXPECT_EQ(DecodeText(Nest("{\"a\":", limit, "1", "}")), nullptr);
  // Arrays and objects alike: the pairs put the core at level 2k.
  const int k = (limit - 1) / 2;
  const int rest = limit - 2 * k;
  EXPECT_NE(DecodeText(Nest("[{\"a\":", k, Nest("[", rest, "", "]"), "}]")), nullptr);
  EXPECT_EQ(DecodeText(Nest("[{\"a\":", k, Nest("[", rest, "1", "]"), "}]")), nullptr);
  // Blanks and siblings do not count.
  EXPECT_NE(DecodeText(Nest("[ 0, ", limit - 1, "1", " ] ")), nullptr);
}

TEST(json_decode, NestingLimitIsReadFromTheEnvironmentAtLoad) {
  struct Run {
    const char *level;
    int expected_level;
    std::vector<std::pair<std::string, bool>> texts;  // text, decodes
  } runs[] = {
      {nullptr,
       200,
       {{Nest("[", 200, "", "]"), true},
        {Nest("[", 200, "1", "]"), false},
        {Nest("[", 199, "1", "]"), true},
        {Nest("[", 201, "", "]"), false}}},
      {"3",
       8,
       {{"[[[[[[[[]]]]]]]]", true},
        {"[[[[[[[[1]]]]]]]]", false},
        {"[[[[[[[1]]]]]]]", true},
        {Nest("{\"k\":", 7, "{}", "}"), true},
        {Nest("{\"k\":", 8, "{}", "}"), false}}},
      {"1000", 1000, {{Nest("[", 999, "1", "]"), true}, {Nest("[", 1000, "1", "]"), false}}}};
  for (const auto &run : runs) {
    SCOPED_TRACE(run.level ? run.level : "unset");
    std::string input;
    for (const auto &[text, ok] : run.texts) input += text + "\n";
    const ProbeRun out = RunProbe({{"ORLIX_RECURSIVE_LEVEL", run.level}}, {}, input);
    ASSERT_TRUE(out.exited_ok);
    ASSERT_EQ(out.lines.size(), run.texts.size() + 2);
    EXPECT_EQ(out.lines[1], std::to_string(run.expected_level));
    for (size_t i = 0; i < run.texts.size(); ++i) {
      const auto &[text, ok] = run.texts[i];
      EXPECT_EQ(out.lines[i + 2], ok ? text : "-") << "text " << i;
    }
  }
}

// With the limit raised, a million nested arrays decode, encode, sort and
// free without exhausting the C stack (a child process, as a crash would
// end the test program). Sorting compares two chains a million deep.
TEST(json_decode, DeepTreesDoNotExhaustTheStack) {
  const std::string one = Nest("[", 1000000, "1", "]");
  const std::string two = Nest("[", 1000000, "2", "]");
  const struct {
    std::vector<std::string> args;
    std::string input;
    std::string output;
  } runs[] = {{{}, one, one}, {{"sort"}, "[" + two + "," + one + "]", "[" + one + "," + two + "]"}};
  for (const auto &run : runs) {
    const ProbeRun out = RunProbe({{"ORLIX_RECURSIVE_LEVEL", "2000010"}}, run.args, run.input + "\n");
    EXPECT_TRUE(out.exited_ok);
    ASSERT_EQ(out.lines.size(), 3u);
    EXPECT_TRUE(out.lines[2] == run.output) << "output differs";
  }
}

// A child adopts de_DE.UTF-8 (decimal comma) with setlocale(LC_ALL, "")
// and must decode and encode exactly as this "C" process does. The locale is
// compiled into a temporary LOCPATH directory when the system lacks it.
TEST(json_decode, NumbersIgnoreTheProcessLocale) {
  const std::vector<std::string> texts = {
      "0.5",
      "-1.25e-3",
      "[1.5,2.25,-3.75e2,1e-3,123456.7890123,2147483648.5,1e300,0.1]",
      "{\"a\":0.125,\"b\":[6.02214076e23]}",
      "[1,2,3]",
      "3.14159265"};
  std::string input;
  std::vector<std::string> expected;
  for (const auto &t : texts) {
    input += t + "\n";
    Tree tree = DecodeText(t);
    ASSERT_NE(tree, nullptr) << t;
    expected.push_back(EncodeTree(tree.get()).value_or("?"));
  }
  ASSERT_EQ(expected[0], "0.5");

  std::vector<std::pair<std::string, const char *>> env = {
      {"LC_ALL", "de_DE.UTF-8"}, {"LC_NUMERIC", "de_DE.UTF-8"}, {"LANG", "de_DE.UTF-8"}};
  ProbeRun out = RunProbe(env, {"locale"}, input);
  std::string locpath;
  if (!out.exited_ok || out.lines.empty() || out.lines[0] != ",") {
    if (std::system("command -v localedef >/dev/null 2>&1") != 0)
      GTEST_SKIP() << "no de_DE.UTF-8 locale and no localedef to make one";
    locpath = testing::TempDir() + "json_locale_XXXXXX";
    ASSERT_NE(mkdtemp(locpath.data()), nullptr);
    const std::string cmd =
        "localedef -i de_DE -f UTF-8 " + locpath + "/de_DE.UTF-8 >/dev/null 2>&1";
    (void)std::system(cmd.c_str());  // warnings give a non-zero status
    env.emplace_back("LOCPATH", locpath.c_str());
    out = RunProbe(env, {"locale"}, input);
  }
  ASSERT_TRUE(out.exited_ok);
  ASSERT_EQ(out.lines.size(), texts.size() + 2);
  EXPECT_EQ(out.lines[0], ",") << "the child did not run with a comma as its decimal point";
  for (size_t i = 0; i < texts.size(); ++i) EXPECT_EQ(out.lines[i + 2], expected[i]) << texts[i];
  if (!locpath.empty()) (void)std::system(("rm -rf " + locpath).c_str());
}

// Number texts must read as the C library's strtod reads them, bit for bit.
// The draws crowd what the decoder converts itself: up to 20 significant
// digits around a point anywhere, exponents that bring the value to 1e-27
// and 1e+19 of the digits, integers near 2^53 and 2^64 (where rounding
// ties), map coordinates with 15 to 17 decimals; the other texts (more
// digits, larger exponents) take the general conversion.
TEST(json_decode, NumbersReadAsStrtodReadsThem) {
  locale_t c_locale = newlocale(LC_NUMERIC_MASK, "C", nullptr);
  ASSERT_NE(c_locale, nullptr);
  uint64_t x = 0x9E3779B97F4A7C15u;
  const auto next = [&] {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    return x;
  };
  const auto digits = [&](int n) {
    std::string d(1, static_cast<char>('1' + next() % 9));
    while (static_cast<int>(d.size()) < n) d += static_cast<char>('0' + next() % 10);
    return d;
  };
  std::vector<std::string> texts = {"9007199254740993", "9007199254740995", "18446744073709551615",
                                    "18446744073709551616", "9223372036854775807", "0.5", "2.5e-1",
                                    "4503599627370496.5", "4503599627370497.5", "0.1", "1e-27",
                                    "9999999999999999999e-27", "1e19", "-0.0", "0e5", "123456789012345678e-5"};
  for (int i = 0; i < 1000000; ++i) {
    std::string t = (next() & 1) ? "-" : "";
    switch (i % 4) {
      case 0: {  // any digits, point anywhere, any small exponent
        const std::string d = digits(1 + static_cast<int>(next() % 20));
        const size_t point = next() % (d.size() + 1);
        t += point == 0 ? "0" : d.substr(0, point);
        if (point < d.size()) t += "." + d.substr(point);
        if (next() & 1) t += "e" + std::to_string(static_cast<int>(next() % 50) - 30);
        break;
      }
      case 1:  // coordinates
        t += std::to_string(next() % 180) + "." + digits(13 + static_cast<int>(next() % 3));
        break;
      case 2: {  // integers near 2^53 and 2^64
        const uint64_t base = (next() & 1) ? (uint64_t{1} << 53) : ~uint64_t{0} - 4096;
        t += std::to_string(base + next() % 8192 - ((next() & 1) ? 4096 : 0));
        break;
      }
      default:  // many digits and far exponents: the general conversion
        t += digits(1 + static_cast<int>(next() % 30)) + "e" +
             std::to_string(static_cast<int>(next() % 700) - 350);
        break;
    }
    texts.push_back(t);
  }
  int mismatches = 0;
  for (size_t i = 0; i < texts.size(); ++i) {
    // Alternate runs of four (one of each kind of draw) alone and as the
    // first entry of an array with room after it, where the decoder takes
    // its vector form.
    const std::string &t = texts[i];
    const bool alone = (i / 4) % 2 == 0;
    Tree tree = DecodeText(alone ? t : "[" + t + "," + std::string(32, ' ') + "0]");
    ASSERT_NE(tree, nullptr) << t;
    const ORLIX_JSON *number = alone ? tree.get() : orlix_json_getarrayitem(tree.get(), 0);
    const double ours = orlix_json_getnumber(number);
    const double theirs = strtod_l(t.c_str(), nullptr, c_locale);
    if (std::memcmp(&ours, &theirs, sizeof ours) != 0 && ++mismatches <= 10)
      ADD_FAILURE() << t << ": " << ours << " against " << theirs;
  }
  freelocale(c_locale);
}

}  // namespace
