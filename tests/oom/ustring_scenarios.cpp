// Unicode string values: every constructor, every conversion out and the
// operations that allocate. iconv's own memory does not come from the
// library's allocator, so only the library's buffers are swept here.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "sweep.hpp"
#include "owned.hpp"

namespace {

using UStr = orlix_test::UStr;

template <class T>
using Buffer = orlix_test::Buf<T>;

// "Aé€😀" in UTF-8: one character of each UTF-8 length.
const char kMixedUtf8[] = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
const uint16_t kMixedUnits[] = {0x0041, 0x00E9, 0x20AC, 0xD83D, 0xDE00};

// "中文" in GBK and in UTF-8.
const char kChineseGbk[] = "\xD6\xD0\xCE\xC4";
const char kChineseUtf8[] = "\xE4\xB8\xAD\xE6\x96\x87";

UStr Mixed() { return UStr(orlix_ustring_newutf8(kMixedUtf8, int64_t(sizeof kMixedUtf8 - 1))); }

// The UTF-8 form of s; false when the conversion (or its allocation) fails.
bool Utf8Of(const ORLIX_UString *s, std::string *text) {
  char *out = nullptr;
  int64_t count = 0;
  if (orlix_ustring_toutf8(s, &out, &count) != 1) return false;
  text->assign(out, size_t(count));
  orlix_free(out);
  return true;
}

// Sets LC_ALL for the scope and puts the previous value back.
class ScopedLocaleEnv {
 public:
  explicit ScopedLocaleEnv(const char *value) {
    const char *old = std::getenv("LC_ALL");
    had_ = old != nullptr;
    if (had_) old_ = old;
    setenv("LC_ALL", value, 1);
  }
  ~ScopedLocaleEnv() {
    if (had_) {
      setenv("LC_ALL", old_.c_str(), 1);
    } else {
      unsetenv("LC_ALL");
    }
  }

 private:
  bool had_ = false;
  std::string old_;
};

}  // namespace

// The constructors from UTF encodings and ASCII, each one allocation pair.
ORLIX_OOM_SCENARIO(UString, ConstructUtf) {
  UStr utf8 = Mixed();
  if (!utf8) return false;
  UStr units(orlix_ustring_newlength(kMixedUnits, 5));
  if (!units) return false;
  const uint16_t terminated_units[] = {'a', 'b', 'c', 0x00E9, 0};
  UStr terminated(orlix_ustring_new(terminated_units));
  if (!terminated) return false;
  const unsigned char bmp[] = {0x00, 0x41, 0x00, 0xE9, 0x20, 0xAC};
  UStr ucs2(orlix_ustring_newbmp(bmp, sizeof bmp));
  if (!ucs2) return false;
  const unsigned char be[] = {0, 0, 0, 0x41, 0, 0, 0, 0xE9, 0, 0, 0x20, 0xAC, 0, 0x01, 0xF6, 0x00};
  UStr utf32be(orlix_ustring_newutf32be(be, sizeof be));
  if (!utf32be) return false;
  const uint64_t cps[] = {0x41, 0xE9, 0x20AC, 0x1F600};
  UStr utf32(orlix_ustring_newutf32(cps, 4));
  if (!utf32) return false;
  UStr ascii(orlix_ustring_newascii("plain\0text", 10));
  if (!ascii) return false;
  UStr wide(orlix_ustring_newwcs(L"A\u00e9\u20ac\U0001F600"));
  if (!wide) return false;
  UStr empty(orlix_ustring_newutf8(nullptr, 0));
  if (!empty) return false;

  EXPECT_EQ(orlix_ustring_cmp(utf8.get(), units.get()), 0);
  EXPECT_EQ(orlix_ustring_cmp(utf8.get(), utf32be.get()), 0);
  EXPECT_EQ(orlix_ustring_cmp(utf8.get(), utf32.get()), 0);
  EXPECT_EQ(orlix_ustring_cmp(utf8.get(), wide.get()), 0);
  EXPECT_EQ(orlix_ustring_getcharcount(utf8.get()), 4);
  EXPECT_EQ(orlix_ustring_getcharcount(terminated.get()), 4);
  EXPECT_EQ(orlix_ustring_getcharcount(ucs2.get()), 3);
  EXPECT_EQ(orlix_ustring_getcharcount(ascii.get()), 10);
  EXPECT_EQ(orlix_ustring_getcharcount(empty.get()), 0);
  return true;
}

// newmbs through its own UTF-8 and ASCII decoders and through iconv (GBK).
ORLIX_OOM_SCENARIO(UString, ConstructMbs) {
  UStr utf8(orlix_ustring_newmbs("utf-8", kMixedUtf8, int64_t(sizeof kMixedUtf8 - 1)));
  if (!utf8) return false;
  UStr ascii(orlix_ustring_newmbs("ASCII", "hello", 5));
  if (!ascii) return false;
  UStr gbk(orlix_ustring_newmbs("GBK", kChineseGbk, 4));
  if (!gbk) return false;
  std::string text;
  if (!Utf8Of(utf8.get(), &text)) return false;
  EXPECT_EQ(text, kMixedUtf8);
  if (!Utf8Of(ascii.get(), &text)) return false;
  EXPECT_EQ(text, "hello");
  if (!Utf8Of(gbk.get(), &text)) return false;
  EXPECT_EQ(text, kChineseUtf8);
  return true;
}

// Every UTF conversion out, each allocating one buffer.
ORLIX_OOM_SCENARIO(UString, ConvertUtf) {
  UStr s = Mixed();
  if (!s) return false;
  int64_t count = 0;

  char *utf8_raw = nullptr;
  if (orlix_ustring_toutf8(s.get(), &utf8_raw, &count) != 1) return false;
  Buffer<char> utf8(utf8_raw);
  EXPECT_EQ(std::string(utf8.get(), size_t(count)), kMixedUtf8);

  uint16_t *utf16_raw = nullptr;
  if (orlix_ustring_toutf16(s.get(), &utf16_raw, &count) != 1) return false;
  Buffer<uint16_t> utf16(utf16_raw);
  EXPECT_EQ(count, 5);
  EXPECT_EQ(std::memcmp(utf16.get(), kMixedUnits, sizeof kMixedUnits), 0);

  uint64_t *utf32_raw = nullptr;
  if (orlix_ustring_toutf32(s.get(), &utf32_raw, &count) != 1) return false;
  Buffer<uint64_t> utf32(utf32_raw);
  EXPECT_EQ(count, 4);
  EXPECT_EQ(utf32.get()[3], 0x1F600u);

  unsigned char *be_raw = nullptr;
  if (orlix_ustring_toutf32be(s.get(), &be_raw, &count) != 1) return false;
  Buffer<unsigned char> be(be_raw);
  EXPECT_EQ(count, 16);
  EXPECT_EQ(be.get()[14], 0xF6);

  wchar_t *wide_raw = orlix_ustring_towcs(s.get());
  if (wide_raw == nullptr) return false;
  Buffer<wchar_t> wide(wide_raw);
  EXPECT_EQ(std::wcscmp(wide.get(), L"A\u00e9\u20ac\U0001F600"), 0);

  UStr bmp_text(orlix_ustring_newutf8("A\xC3\xA9", 3));
  if (!bmp_text) return false;
  unsigned char *ucs2_raw = nullptr;
  if (orlix_ustring_tobmp(bmp_text.get(), &ucs2_raw, &count) != 1) return false;
  Buffer<unsigned char> ucs2(ucs2_raw);
  EXPECT_EQ(count, 4);
  EXPECT_EQ(std::memcmp(ucs2.get(), "\x00\x41\x00\xE9\x00\x00", 6), 0);
  return true;
}

// tombs through its own encoders and through iconv (GBK).
ORLIX_OOM_SCENARIO(UString, ConvertMbs) {
  UStr s = Mixed();
  if (!s) return false;
  int64_t count = 0;

  char *raw = nullptr;
  if (orlix_ustring_tombs(s.get(), "UTF-8", &raw, &count) != 1) return false;
  Buffer<char> utf8(raw);
  EXPECT_EQ(std::string(utf8.get(), size_t(count)), kMixedUtf8);

  raw = nullptr;
  if (orlix_ustring_tombs(s.get(), "UTF-16BE", &raw, &count) != 1) return false;
  Buffer<char> utf16be(raw);
  EXPECT_EQ(count, 10);
  EXPECT_EQ(std::memcmp(utf16be.get(), "\x00\x41\x00\xE9\x20\xAC\xD8\x3D\xDE\x00", 10), 0);

  raw = nullptr;
  if (orlix_ustring_tombs(s.get(), "UTF-32LE", &raw, &count) != 1) return false;
  Buffer<char> utf32le(raw);
  EXPECT_EQ(count, 16);

  UStr chinese(orlix_ustring_newutf8(kChineseUtf8, 6));
  if (!chinese) return false;
  raw = nullptr;
  if (orlix_ustring_tombs(chinese.get(), "GBK", &raw, &count) != 1) return false;
  Buffer<char> gbk(raw);
  EXPECT_EQ(std::string(gbk.get(), size_t(count)), kChineseGbk);
  return true;
}

// cat, substring and find (the failure table of a non-empty needle).
ORLIX_OOM_SCENARIO(UString, Operations) {
  UStr a = Mixed();
  if (!a) return false;
  UStr b(orlix_ustring_newutf8("xyz", 3));
  if (!b) return false;
  UStr joined(orlix_ustring_cat(a.get(), b.get()));
  if (!joined) return false;
  EXPECT_EQ(orlix_ustring_getcharcount(joined.get()), 7);

  UStr tail(orlix_ustring_substring(joined.get(), 2, -1));
  if (!tail) return false;
  std::string text;
  if (!Utf8Of(tail.get(), &text)) return false;
  EXPECT_EQ(text, "\xE2\x82\xAC\xF0\x9F\x98\x80xyz");
  // "Aé": the character after the range (U+20AC) is in the BMP.
  UStr head(orlix_ustring_substring(joined.get(), 0, 2));
  if (!head) return false;
  EXPECT_EQ(orlix_ustring_getcharcount(head.get()), 2);

  UStr needle(orlix_ustring_newutf8("yz", 2));
  if (!needle) return false;
  int64_t position = -7;
  if (orlix_ustring_find(joined.get(), 1, needle.get(), &position) != 1) return false;
  EXPECT_EQ(position, 5);
  return true;
}

// The locale's charset name, in a fresh allocation.
ORLIX_OOM_SCENARIO(UString, DefaultCharset) {
  {
    ScopedLocaleEnv env("de_DE.UTF-8@euro");
    Buffer<char> name(orlix_ustring_getdefaultcharset());
    if (!name) return false;
    EXPECT_STREQ(name.get(), "UTF-8");
  }
  ScopedLocaleEnv env("zh_CN");
  Buffer<char> name(orlix_ustring_getdefaultcharset());
  if (!name) return false;
  EXPECT_STREQ(name.get(), "GBK");
  return true;
}
