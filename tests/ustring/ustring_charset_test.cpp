// Named charsets: the default charset from the locale environment (in child
// processes), conversions through iconv compared with iconv itself, the
// branches decoded by the library, and the application's fallback
// converters.
#include <iconv.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <utility>

#include "unix/string.hpp"
#include "ustring_test_util.hpp"

namespace {

using namespace orlix_test;

// The default charset seen by a child process whose locale variables are
// exactly `env`; "(null)" for no answer.
std::string DefaultCharsetWith(std::initializer_list<std::pair<const char *, const char *>> env) {
  int fds[2];
  if (pipe(fds) != 0) return "pipe failed";
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    for (const char *var : {"LC_ALL", "LC_CTYPE", "LANG"}) unsetenv(var);
    for (const auto &[name, value] : env) setenv(name, value, 1);
    char *cs = orlix_ustring_getdefaultcharset();
    const char *text = cs != nullptr ? cs : "(null)";
    const bool ok = write(fds[1], text, std::strlen(text)) == ssize_t(std::strlen(text));
    orlix_free(cs);
    _exit(ok ? 0 : 1);
  }
  close(fds[1]);
  std::string out;
  char buf[64];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) out.append(buf, size_t(n));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
  return out;
}

TEST(UStringDefaultCharset, FromLocaleEnvironment) {
  EXPECT_EQ(DefaultCharsetWith({{"LC_ALL", "zh_CN.UTF-8@cjk"}}), "UTF-8");
  EXPECT_EQ(DefaultCharsetWith({{"LANG", "zh_cn"}}), "GBK");
  EXPECT_EQ(DefaultCharsetWith({{"LANG", "zh_HK"}}), "BIG5");
  EXPECT_EQ(DefaultCharsetWith({{"LANG", "ZH_tw"}}), "BIG5");
  EXPECT_EQ(DefaultCharsetWith({{"LANG", "fr_FR"}}), "(null)");
  EXPECT_EQ(DefaultCharsetWith({}), "ISO8859-1");
  EXPECT_EQ(DefaultCharsetWith({{"LC_ALL", ""}}), "ISO8859-1");
  EXPECT_EQ(DefaultCharsetWith({{"LC_ALL", ""}, {"LC_CTYPE", "ru_RU.KOI8-R"}, {"LANG", "zh_CN"}}),
            "KOI8-R");
  EXPECT_EQ(DefaultCharsetWith({{"LC_ALL", ""}, {"LC_CTYPE", ""}, {"LANG", "zh_CN"}}), "GBK");
  EXPECT_EQ(DefaultCharsetWith({{"LC_ALL", "en_US.ISO-8859-15"}, {"LC_CTYPE", "zh_CN"}}),
            "ISO-8859-15");
  EXPECT_EQ(DefaultCharsetWith({{"LC_CTYPE", "zh_TW"}, {"LANG", "fr_FR.UTF-8"}}), "BIG5");
  EXPECT_EQ(DefaultCharsetWith({{"LC_ALL", "C"}}), "ISO8859-1");
  EXPECT_EQ(DefaultCharsetWith({{"LANG", "c"}}), "ISO8859-1");
  EXPECT_EQ(DefaultCharsetWith({{"LANG", "C.UTF-8"}}), "UTF-8");
  EXPECT_EQ(DefaultCharsetWith({{"LANG", "POSIX"}}), "(null)");
  EXPECT_EQ(DefaultCharsetWith({{"LANG", "en_GB"}}), "ISO8859-1");
  EXPECT_EQ(DefaultCharsetWith({{"LANG", "EN_us"}}), "ISO8859-1");
  EXPECT_EQ(DefaultCharsetWith({{"LANG", "de_DE.a.b@euro@x"}}), "a.b");
}

// One flushed conversion through the C library's iconv; nullopt when it
// refuses the input.
std::optional<std::string> Iconv(const char *to, const char *from, const std::string &in) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
  std::string out(in.size() * 8 + 16, '\0');
  char *src = const_cast<char *>(in.data()), *dst = out.data();
  size_t left = in.size(), room = out.size();
  const bool ok = iconv(cd, &src, &left, &dst, &room) != size_t(-1) &&
                  iconv(cd, nullptr, nullptr, &dst, &room) != size_t(-1);
  iconv_close(cd);
  if (!ok) return std::nullopt;
  out.resize(out.size() - room);
  return out;
}

std::string Utf8Of(const CodePoints &cps) {
  std::string s;
  for (uint32_t c : cps) s += Utf8Raw(c);
  return s;
}

// Encodes s with tombs; nullopt on failure. Checks the trailing 0 byte.
std::optional<std::string> ToMbs(const ORLIX_UString *s, const char *charset) {
  char *out = nullptr;
  int64_t n = -1;
  if (orlix_ustring_tombs(s, charset, &out, &n) != 1) return std::nullopt;
  Buf<char> owned(out);
  EXPECT_EQ(out[n], 0);
  return std::string(out, size_t(n));
}

UStr FromMbs(const char *charset, const std::string &b) {
  return UStr(orlix_ustring_newmbs(charset, b.data(), int64_t(b.size())));
}

class UStringIconv : public testing::TestWithParam<const char *> {};

TEST_P(UStringIconv, AgreesWithIconv) {
  const char *cs = GetParam();
  // Sort a repertoire into what the charset can and cannot represent,
  // asking iconv.
  CodePoints can, cannot;
  const std::pair<uint32_t, uint32_t> ranges[] = {
      {0x20, 0x7E},     {0xA0, 0xFF},     {0x391, 0x3C9},   {0x410, 0x44F},   {0xE01, 0xE10},
      {0x2460, 0x2473}, {0x3041, 0x30FF}, {0x4E00, 0x9FA5}, {0xFF01, 0xFF5E}, {0x1F600, 0x1F603}};
  for (const auto &[lo, hi] : ranges) {
    for (uint32_t cp = lo; cp <= hi; cp += hi - lo > 500 ? 37 : 1) {
      const std::string u8 = Utf8Raw(cp);
      const auto enc = Iconv(cs, "UTF-8", u8);
      if (!enc)
        cannot.push_back(cp);
      else if (Iconv("UTF-8", cs, *enc) == u8)
        can.push_back(cp);
    }
  }
  ASSERT_GT(can.size(), 150u);
  ASSERT_GT(cannot.size(), 20u);

  std::mt19937 rng(7);
  for (int i = 0; i < 500; ++i) {
    CodePoints cps(1 + rng() % 12);
    for (auto &c : cps) c = can[rng() % can.size()];
    UStr s = FromCodePoints(cps);
    const auto want = Iconv(cs, "UTF-8", Utf8Of(cps));
    ASSERT_TRUE(want.has_value());
    ASSERT_EQ(ToMbs(s.get(), cs), want) << Hex(Utf8Of(cps));
    UStr back = FromMbs(cs, *want);
    ASSERT_NE(back, nullptr) << Hex(*want);
    EXPECT_EQ(CodePointsOf(back.get()), cps);

    cps.insert(cps.begin() + rng() % (cps.size() + 1), cannot[rng() % cannot.size()]);
    UStr bad = FromCodePoints(cps);
    EXPECT_EQ(ToMbs(bad.get(), cs), std::nullopt) << Hex(Utf8Of(cps));
  }
  // Arbitrary bytes, mostly in the multibyte ranges: decoded exactly when
  // iconv decodes them.
  int refused = 0;
  for (int i = 0; i < 2000; ++i) {
    std::string b(1 + rng() % 6, '\0');
    for (auto &c : b) c = char(rng() % 4 ? 0x80 + rng() % 0x80 : 0x20 + rng() % 0x60);
    const auto want = Iconv("UTF-8", cs, b);
    UStr s = FromMbs(cs, b);
    refused += !want;
    ASSERT_EQ(s != nullptr, want.has_value()) << Hex(b);
    if (s) {
      ASSERT_EQ(Hex(Utf8Of(CodePointsOf(s.get()))), Hex(*want)) << Hex(b);
    }
  }
  if (std::strcmp(cs, "ISO8859-1") != 0) {
    EXPECT_GT(refused, 100);
  }
}

INSTANTIATE_TEST_SUITE_P(Charsets, UStringIconv,
                         testing::Values("GBK", "BIG5", "ISO8859-1", "Shift_JIS"),
                         [](const auto &info) {
                           std::string name = info.param;
                           for (auto &c : name)
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           return name;
                         });

TEST(UStringMbs, ArgumentRulesAndNames) {
  EXPECT_EQ(UStr(orlix_ustring_newmbs("UTF-8", nullptr, 0))->length, 0);
  EXPECT_EQ(UStr(orlix_ustring_newmbs(nullptr, nullptr, 0))->length, 0);
  EXPECT_EQ(UStr(orlix_ustring_newmbs("GBK", "abc", 0))->length, 0);
  EXPECT_EQ(orlix_ustring_newmbs(nullptr, "a", 1), nullptr);
  EXPECT_EQ(orlix_ustring_newmbs("", "a", 1), nullptr);
  EXPECT_EQ(orlix_ustring_newmbs("UTF-8", "a", -1), nullptr);
  EXPECT_EQ(orlix_ustring_newmbs("UTF-8", nullptr, 1), nullptr);
  EXPECT_EQ(orlix_ustring_newmbs("ISO-8859-1", nullptr, 1), nullptr);  // iconv's path too

  // utf-8 is matched ignoring case and decoded strictly; Utf8 goes to iconv.
  const std::string text = "a\xC3\xA9\xF0\x9F\x98\x80";
  for (const char *name : {"UTF-8", "utf-8", "Utf8"}) {
    UStr s = FromMbs(name, text);
    ASSERT_NE(s, nullptr) << name;
    EXPECT_EQ(CodePointsOf(s.get()), (CodePoints{'a', 0xE9, 0x1F600})) << name;
    EXPECT_EQ(ToMbs(s.get(), name), text) << name;
    EXPECT_EQ(FromMbs(name, "\xED\xA0\x80"), nullptr) << name;
  }
  EXPECT_EQ(FromMbs("ascii", "a\x80"), nullptr);
  EXPECT_EQ(CodePointsOf(FromMbs("ASCII", std::string("a\0", 2)).get()), (CodePoints{'a', 0}));
  UStr e = FromMbs("UTF-8", "\xC3\xA9");
  EXPECT_EQ(ToMbs(e.get(), "ASCII"), std::nullopt);
  EXPECT_EQ(ToMbs(e.get(), "ascii"), std::nullopt);
  UStr abc = FromMbs("UTF-8", "abc");
  EXPECT_EQ(ToMbs(abc.get(), "Ascii"), "abc");

  char *out = nullptr;
  int64_t n = 0;
  EXPECT_EQ(orlix_ustring_tombs(nullptr, "UTF-8", &out, &n), 0);
  EXPECT_EQ(orlix_ustring_tombs(abc.get(), nullptr, &out, &n), 0);
  EXPECT_EQ(orlix_ustring_tombs(abc.get(), "UTF-8", nullptr, &n), 0);
  EXPECT_EQ(orlix_ustring_tombs(abc.get(), "UTF-8", &out, nullptr), 0);
}

TEST(UStringMbs, FixedWidthDecodingNamesReadAFixedNumberOfUnits) {
  // Four UTF-16 units whatever the count, each from one byte of its pair.
  const std::string be = "AxBxCxDxEEEE";
  for (const std::string &data : {be.substr(0, 8), be}) {
    UStr s = FromMbs("UTF-16BE", data);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(UnitsOf(s.get()), (Units{0x4100, 0x4200, 0x4300, 0x4400}));
    UStr le = FromMbs("utf-16le", "x" + data);
    ASSERT_NE(le, nullptr);
    EXPECT_EQ(UnitsOf(le.get()), (Units{0x4100, 0x4200, 0x4300, 0x4400}));
  }
  UStr pairs = FromMbs("UTF-16BE", "\xD8?\xDC?\xDB?\xDF?");
  ASSERT_NE(pairs, nullptr);
  EXPECT_EQ(CodePointsOf(pairs.get()), (CodePoints{0x10000, 0xD0300}));
  EXPECT_EQ(pairs->hassurrogate, 1u);
  EXPECT_EQ(FromMbs("UTF-16BE", "\xD8?A?B?C?"), nullptr);
  EXPECT_EQ(FromMbs("UTF-16LE", "?\xDC?A?B?C"), nullptr);

  // Two UTF-32 code points, each one byte shifted into the top byte: only a
  // zero byte there gives a value the constructor accepts.
  UStr z = FromMbs("UTF-32BE", std::string("\0abc\0def", 8));
  ASSERT_NE(z, nullptr);
  EXPECT_EQ(CodePointsOf(z.get()), (CodePoints{0, 0}));
  UStr zl = FromMbs("utf-32le", std::string("abc\0def\0xyz", 11));
  ASSERT_NE(zl, nullptr);
  EXPECT_EQ(CodePointsOf(zl.get()), (CodePoints{0, 0}));
  EXPECT_EQ(FromMbs("UTF-32BE", std::string("\0abc\x01"
                                            "def",
                                            8)),
            nullptr);
  EXPECT_EQ(FromMbs("UTF-32LE", std::string("abc\x01"
                                            "def\0",
                                            8)),
            nullptr);
}

// The fixed-width names read their 8 bytes whatever the count: a count of
// 2 over an 8-byte buffer still gives four units (and two code points).
TEST(UStringMbs, FixedWidthNamesReadEightBytesWhateverTheCount) {
  const char data[8] = {'A', 'x', 'B', 'x', 'C', 'x', 'D', 'x'};
  UStr be(orlix_ustring_newmbs("UTF-16BE", data, 2));
  ASSERT_NE(be, nullptr);
  EXPECT_EQ(UnitsOf(be.get()), (Units{0x4100, 0x4200, 0x4300, 0x4400}));
  UStr le(orlix_ustring_newmbs("UTF-16LE", data, 1));
  ASSERT_NE(le, nullptr);
  EXPECT_EQ(UnitsOf(le.get()), (Units{0x7800, 0x7800, 0x7800, 0x7800}));
  // Byte 7, past a count of 3, makes the second UTF-32LE code point
  // 0x01000000, which the constructor refuses.
  const char zeros[8] = {0, 'a', 'b', 0, 0, 'd', 'e', 1};
  UStr z(orlix_ustring_newmbs("UTF-32BE", zeros, 1));
  ASSERT_NE(z, nullptr);
  EXPECT_EQ(CodePointsOf(z.get()), (CodePoints{0, 0}));
  EXPECT_EQ(orlix_ustring_newmbs("UTF-32LE", zeros, 3), nullptr);
}

TEST(UStringMbs, EncodedHereByName) {
  UStr s = FromMbs("UTF-8", "a\xF0\x9F\x98\x80");
  EXPECT_EQ(ToMbs(s.get(), "UTF-16BE"), std::string("\0a\xD8\x3D\xDE\x00", 6));
  EXPECT_EQ(ToMbs(s.get(), "utf-16le"), std::string("a\0\x3D\xD8\x00\xDE", 6));
  EXPECT_EQ(ToMbs(s.get(), "Utf-32be"), std::string("\0\0\0a\0\x01\xF6\x00", 8));

  // UTF-32LE turns only the code points at indices 0, 4, 8, ... around.
  CodePoints cps;
  for (uint32_t i = 0; i < 9; ++i) cps.push_back(i % 2 ? 0x10000 + 0x1111 * i : 0x41 + i);
  UStr nine = FromCodePoints(cps);
  std::string want;
  for (size_t i = 0; i < cps.size(); ++i) {
    std::string unit = {char(cps[i] >> 24), char(cps[i] >> 16), char(cps[i] >> 8), char(cps[i])};
    if (i % 4 == 0) std::reverse(unit.begin(), unit.end());
    want += unit;
  }
  EXPECT_EQ(Hex(ToMbs(nine.get(), "UTF-32LE").value_or("-")), Hex(want));

  // Through iconv the output may take at most four bytes per character:
  // one kanji in ISO-2022-JP needs five (escape sequence included), two
  // need seven.
  UStr one = FromMbs("UTF-8", "\xE6\x97\xA5"), two = FromMbs("UTF-8", "\xE6\x97\xA5\xE6\x97\xA5");
  EXPECT_EQ(ToMbs(one.get(), "ISO-2022-JP"), std::nullopt);
  EXPECT_EQ(ToMbs(two.get(), "iso-2022-jp"), "\x1B$BF|F|");
}

// Records the calls of the fallback converters and answers as told.
struct Fallback {
  int calls = 0;
  std::string charset;
  const void *in = nullptr;
  int64_t in_count = -1, capacity = -1;
  int result = 1;
  Units units;
  std::string bytes;

  static int Mbs(void *ctx, const char *cs, const char *in, int64_t n, uint16_t *out, int64_t cap,
                 int64_t *count) {
    auto *f = static_cast<Fallback *>(ctx);
    f->Record(cs, in, n, cap);
    std::copy(f->units.begin(), f->units.end(), out);
    *count = int64_t(f->units.size());
    return f->result;
  }
  static int Wcs(void *ctx, const char *cs, const uint16_t *in, int64_t n, char *out, int64_t cap,
                 int64_t *count) {
    auto *f = static_cast<Fallback *>(ctx);
    f->Record(cs, in, n, cap);
    std::copy(f->bytes.begin(), f->bytes.end(), out);
    *count = int64_t(f->bytes.size());
    return f->result;
  }
  void Record(const char *cs, const void *p, int64_t n, int64_t cap) {
    ++calls, charset = cs, in = p, in_count = n, capacity = cap;
  }
};

class UStringCallback : public testing::Test {
 protected:
  void TearDown() override {
    orlix_ustring_setmbstowcscallback(nullptr, nullptr);
    orlix_ustring_setwcstombscallback(nullptr, nullptr);
  }
  static constexpr const char *kUnknown = "x-no-such-charset";
  Fallback fb;
};

TEST_F(UStringCallback, UnknownCharsetFailsWithoutCallbacks) {
  UStr s = FromMbs("UTF-8", "abc");
  uint16_t units[4];
  char bytes[4];
  int64_t n = 0;
  EXPECT_EQ(FromMbs(kUnknown, "abc"), nullptr);
  EXPECT_EQ(ToMbs(s.get(), kUnknown), std::nullopt);
  EXPECT_EQ(orlix_imbstowcs("X-NO-SUCH-CHARSET", "abc", 3, units, 4, &n), 0);
  EXPECT_EQ(orlix_iwcstombs("X-NO-SUCH-CHARSET", s->data, 3, bytes, 4, &n), 0);
}

TEST_F(UStringCallback, DecodingFallback) {
  ASSERT_EQ(orlix_ustring_setmbstowcscallback(&fb, &Fallback::Mbs), 1);
  fb.units = {'h', 0xD83D, 0xDE00};
  const std::string data = "abc";
  UStr s(orlix_ustring_newmbs(kUnknown, data.data(), 3));
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(CodePointsOf(s.get()), (CodePoints{'h', 0x1F600}));
  EXPECT_EQ(fb.calls, 1);
  EXPECT_EQ(fb.charset, "X-NO-SUCH-CHARSET");
  EXPECT_EQ(fb.in, data.data());
  EXPECT_EQ(fb.in_count, 3);
  EXPECT_EQ(fb.capacity, 3);

  fb.units = {0xDC00};  // the units are validated like any others
  EXPECT_EQ(FromMbs(kUnknown, "abc"), nullptr);
  fb.units = {'x'};
  uint16_t out[4];
  int64_t n = 0;
  for (int r : {0, 2, -1}) {
    fb.result = r;
    EXPECT_EQ(FromMbs(kUnknown, "abc"), nullptr) << r;
    EXPECT_EQ(orlix_imbstowcs("X-NO-SUCH-CHARSET", "abc", 3, out, 4, &n), r);
  }
  const int before = fb.calls;
  EXPECT_EQ(orlix_imbstowcs(nullptr, "abc", 3, out, 4, &n), 0);
  EXPECT_NE(FromMbs("GBK", "abc"), nullptr);
  EXPECT_EQ(fb.calls, before);
  orlix_ustring_setmbstowcscallback(nullptr, nullptr);
  EXPECT_EQ(FromMbs(kUnknown, "abc"), nullptr);
  EXPECT_EQ(fb.calls, before);
}

TEST_F(UStringCallback, EncodingFallback) {
  ASSERT_EQ(orlix_ustring_setwcstombscallback(&fb, &Fallback::Wcs), 1);
  fb.bytes = "XYZ";
  UStr s = FromMbs("UTF-8", "a\xF0\x9F\x98\x80");
  EXPECT_EQ(ToMbs(s.get(), kUnknown), "XYZ");
  EXPECT_EQ(fb.calls, 1);
  EXPECT_EQ(fb.charset, "X-NO-SUCH-CHARSET");
  EXPECT_EQ(fb.in, s->data);
  EXPECT_EQ(fb.in_count, 3);
  EXPECT_EQ(fb.capacity, 8);

  // The empty string never reaches the converter.
  UStr empty(orlix_ustring_new(nullptr));
  EXPECT_EQ(ToMbs(empty.get(), kUnknown), "");
  EXPECT_EQ(fb.calls, 1);

  char out[8];
  int64_t n = 0;
  for (int r : {0, 5, -3}) {
    fb.result = r;
    EXPECT_EQ(ToMbs(s.get(), kUnknown), std::nullopt) << r;
    EXPECT_EQ(orlix_iwcstombs("X-NO-SUCH-CHARSET", s->data, 3, out, 8, &n), r);
  }
  EXPECT_EQ(orlix_iwcstombs(nullptr, s->data, 3, out, 8, &n), 0);
  EXPECT_EQ(fb.calls, 7);
}

}  // namespace
