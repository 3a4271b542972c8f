// Locale charsets: the default charset from the environment, conversions
// through iconv or application callbacks, and the named-charset entry points
// of the Unicode string.
#include "unix/string.hpp"

#include <iconv.h>
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "ORLIX_UString.h"
#include "ORLIX_Util.h"
#include "core/memory.hpp"
#include "ustring/ORLIX_UString.hpp"

namespace {

constexpr const char kModule[] = "unix/string";
constexpr const char kStringModule[] = "ORLIX_UString";
constexpr int64_t kFixedNameSize = 20;

// Fallback converters, set at start-up by the application.
struct Callbacks {
  void *mbs_context = nullptr;
  ORLIX_MbsToWcsFunc mbs_fn = nullptr;
  void *wcs_context = nullptr;
  ORLIX_WcsToMbsFunc wcs_fn = nullptr;
};
Callbacks g_callbacks;

// An iconv descriptor closed on scope exit.
class Iconv {
 public:
  Iconv(const char *to, const char *from) : cd_(iconv_open(to, from)) {}
  ~Iconv() {
    if (ok()) iconv_close(cd_);
  }
  Iconv(const Iconv &) = delete;
  Iconv &operator=(const Iconv &) = delete;
  bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  // One conversion call over the whole input; false when it fails.
  bool convert(const char *in, size_t in_size, char *out, size_t *out_left) {
    char *src = const_cast<char *>(in);
    return iconv(cd_, &src, &in_size, &out, out_left) != static_cast<size_t>(-1);
  }

 private:
  iconv_t cd_;
};

char *copy_name(const char *name, size_t n, int64_t size) {
  auto *out = orlix::alloc_array<char>(size, kModule, __LINE__);
  if (out == nullptr) return nullptr;
  std::memcpy(out, name, n);
  out[n] = '\0';
  return out;
}

// The charset name upper-cased (only a to z change), in `small` when it fits.
class UpperName {
 public:
  explicit UpperName(const char *name) {
    const size_t n = std::strlen(name);
    if (n < sizeof small_) {
      text_ = small_;
    } else {
      heap_.reset(orlix::alloc_array<char>(static_cast<int64_t>(n) + 1, kStringModule, __LINE__));
      text_ = heap_.get();
    }
    if (text_ == nullptr) return;
    for (size_t i = 0; i <= n; ++i) {
      const char c = name[i];
      text_[i] = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
  }
  const char *get() const { return text_; }
  bool is(const char *other) const { return std::strcmp(text_, other) == 0; }

 private:
  char small_[64];
  orlix::Owned<char> heap_;
  char *text_ = nullptr;
};

char *alloc_text(int64_t bytes) {
  return orlix::alloc_array<char>(bytes, kStringModule, __LINE__);
}

// The units of s as bytes in one byte order, then one 0 byte.
int units_to_bytes(const ORLIX_UString *s, bool big_endian, char **out, int64_t *count) {
  if (s->length > INT64_MAX / 2 - 1) return 0;
  char *buffer = alloc_text(2 * s->length + 1);
  if (buffer == nullptr) return 0;
  for (int64_t i = 0; i < s->length; ++i) {
    const auto hi = static_cast<char>(s->data[i] >> 8);
    const auto lo = static_cast<char>(s->data[i]);
    buffer[2 * i] = big_endian ? hi : lo;
    buffer[2 * i + 1] = big_endian ? lo : hi;
  }
  buffer[2 * s->length] = 0;
  *out = buffer;
  *count = 2 * s->length;
  return 1;
}

}  // namespace

int orlix_imbstowcs(const char *charset, const char *in, int64_t in_count, uint16_t *out,
                    int64_t out_capacity, int64_t *out_count) {
  if (charset == nullptr) return 0;
  Iconv conv("UTF-16BE", charset);
  if (!conv.ok()) {
    if (g_callbacks.mbs_fn == nullptr) return 0;
    return g_callbacks.mbs_fn(g_callbacks.mbs_context, charset, in, in_count, out, out_capacity,
                              out_count);
  }
  if (in_count < 0 || out_capacity < 0 || out_capacity > INT64_MAX / 2) return 0;
  orlix::Owned<unsigned char> work(orlix::alloc_bytes(2 * out_capacity, kModule, __LINE__));
  if (!work) return 0;
  size_t left = static_cast<size_t>(2 * out_capacity);
  if (!conv.convert(in, static_cast<size_t>(in_count), reinterpret_cast<char *>(work.get()),
                    &left))
    return 0;
  const size_t produced = static_cast<size_t>(2 * out_capacity) - left;
  if (produced % 2 != 0) return 0;
  for (size_t i = 0; i < produced / 2; ++i)
    out[i] = static_cast<uint16_t>(work.get()[2 * i] << 8 | work.get()[2 * i + 1]);
  *out_count = static_cast<int64_t>(produced / 2);
  return 1;
}

int orlix_iwcstombs(const char *charset, const uint16_t *in, int64_t in_count, char *out,
                    int64_t out_capacity, int64_t *out_count) {
  if (charset == nullptr || in_count < 0 || in_count > INT64_MAX / 2) return 0;
  orlix::Owned<unsigned char> work(orlix::alloc_bytes(2 * in_count, kModule, __LINE__));
  if (!work) return 0;
  for (int64_t i = 0; i < in_count; ++i) {
    work.get()[2 * i] = static_cast<unsigned char>(in[i] >> 8);
    work.get()[2 * i + 1] = static_cast<unsigned char>(in[i]);
  }
  Iconv conv(charset, "UTF-16BE");
  if (!conv.ok()) {
    if (g_callbacks.wcs_fn == nullptr) return 0;
    return g_callbacks.wcs_fn(g_callbacks.wcs_context, charset, in, in_count, out, out_capacity,
                              out_count);
  }
  if (out_capacity < 0) return 0;
  size_t left = static_cast<size_t>(out_capacity);
  if (!conv.convert(reinterpret_cast<const char *>(work.get()), static_cast<size_t>(2 * in_count),
                    out, &left))
    return 0;
  *out_count = out_capacity - static_cast<int64_t>(left);
  return 1;
}

extern "C" {

char *orlix_ustring_getdefaultcharset(void) {
  const char *name = nullptr;
  for (const char *var : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char *value = std::getenv(var);
    if (value != nullptr && *value != '\0') {
      name = value;
      break;
    }
  }
  const auto fixed = [](const char *text) {
    return copy_name(text, std::strlen(text), kFixedNameSize);
  };
  if (name == nullptr || strcasecmp(name, "C") == 0) return fixed("ISO8859-1");
  if (const char *dot = std::strchr(name, '.'); dot != nullptr) {
    const char *codeset = dot + 1;
    const size_t n = std::strcspn(codeset, "@");
    return copy_name(codeset, n, static_cast<int64_t>(n) + 1);
  }
  if (strcasecmp(name, "zh_CN") == 0) return fixed("GBK");
  if (strcasecmp(name, "zh_TW") == 0 || strcasecmp(name, "zh_HK") == 0) return fixed("BIG5");
  if (strcasecmp(name, "en_US") == 0 || strcasecmp(name, "en_GB") == 0) return fixed("ISO8859-1");
  return nullptr;
}

ORLIX_UString *orlix_ustring_newmbs(const char *charset, const char *data, int64_t count) {
  if (count < 0 || (data == nullptr && count != 0)) return nullptr;
  if (count == 0) return orlix_ustring_newlength(nullptr, 0);
  if (charset == nullptr || *charset == '\0') return nullptr;
  const UpperName name(charset);
  if (name.get() == nullptr) return nullptr;
  if (name.is("UTF-8")) return orlix_ustring_newutf8(data, count);
  if (name.is("ASCII")) return orlix_ustring_newascii(data, count);

  // The fixed-width names read a fixed number of units, taken from the
  // length of the name (8 / 2 = 4 UTF-16 units, 8 / 4 = 2 UTF-32 code
  // points), and only one byte of each unit, from the first 8 bytes of data
  // whatever count says. Existing callers depend on exactly this, so it
  // stays; the header warns that these names read 8 bytes.
  const auto *bytes = reinterpret_cast<const unsigned char *>(data);
  const auto byte_at = [&](int64_t i) -> uint32_t { return bytes[i]; };
  const int64_t name_length = static_cast<int64_t>(std::strlen(name.get()));
  const bool utf16be = name.is("UTF-16BE");
  if (utf16be || name.is("UTF-16LE")) {
    uint16_t units[4];
    for (int64_t k = 0; k < name_length / 2; ++k)
      units[k] = static_cast<uint16_t>(byte_at(2 * k + (utf16be ? 0 : 1)) << 8);
    return orlix_ustring_newlength(units, name_length / 2);
  }
  const bool utf32be = name.is("UTF-32BE");
  if (utf32be || name.is("UTF-32LE")) {
    uint64_t cps[2];
    for (int64_t k = 0; k < name_length / 4; ++k)
      cps[k] = uint64_t{byte_at(4 * k + (utf32be ? 0 : 3))} << 24;
    return orlix_ustring_newutf32(cps, name_length / 4);
  }

  if (count > INT64_MAX / 2 - 1) return nullptr;
  orlix::Owned<uint16_t> area(orlix::alloc_array<uint16_t>(count + 1, kStringModule, __LINE__));
  if (!area) return nullptr;
  int64_t units = 0;
  if (orlix_imbstowcs(name.get(), data, count, area.get(), count, &units) != 1) return nullptr;
  if (units < 0 || units > count) return nullptr;
  return orlix_ustring_newlength(area.get(), units);
}

int orlix_ustring_tombs(const ORLIX_UString *s, const char *charset, char **out,
                        int64_t *count) {
  if (s == nullptr || charset == nullptr || out == nullptr || count == nullptr) return 0;
  const UpperName name(charset);
  if (name.get() == nullptr) return 0;
  if (name.is("UTF-8")) return orlix_ustring_toutf8(s, out, count);
  if (name.is("ASCII")) {
    for (int64_t i = 0; i < s->length; ++i)
      if (s->data[i] >= 0x80) return 0;
    return orlix_ustring_toutf8(s, out, count);
  }
  if (name.is("UTF-16BE")) return units_to_bytes(s, true, out, count);
  if (name.is("UTF-16LE")) return units_to_bytes(s, false, out, count);
  if (name.is("UTF-32BE"))
    return orlix_ustring_toutf32be(s, reinterpret_cast<unsigned char **>(out), count);
  if (name.is("UTF-32LE")) {
    if (orlix_ustring_toutf32be(s, reinterpret_cast<unsigned char **>(out), count) != 1) return 0;
    // Only the code points at indices 0, 4, 8, ... turn little-endian; the
    // others stay big-endian. Callers depend on these exact bytes.
    for (int64_t i = 0; i < *count / 4; i += 4) {
      char *u = *out + 4 * i;
      std::swap(u[0], u[3]);
      std::swap(u[1], u[2]);
    }
    return 1;
  }

  if (s->charcount > (INT64_MAX - 1) / 4) return 0;
  orlix::Owned<char> area(alloc_text(4 * s->charcount + 1));
  if (!area) return 0;
  int64_t n = 0;
  if (s->length > 0 &&
      orlix_iwcstombs(name.get(), s->data, s->length, area.get(), 4 * s->charcount, &n) != 1)
    return 0;
  if (n < 0 || n > 4 * s->charcount) return 0;
  area.get()[n] = '\0';
  *out = area.release();
  *count = n;
  return 1;
}

int orlix_ustring_setmbstowcscallback(void *context, ORLIX_MbsToWcsFunc fn) {
  g_callbacks.mbs_context = context;
  g_callbacks.mbs_fn = fn;
  return 1;
}

int orlix_ustring_setwcstombscallback(void *context, ORLIX_WcsToMbsFunc fn) {
  g_callbacks.wcs_context = context;
  g_callbacks.wcs_fn = fn;
  return 1;
}

}  // extern "C"
