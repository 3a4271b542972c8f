// A reference model of the JSON family, written from its documented rules
// and kept deliberately plain: a value type, a recursive-descent decoder, an
// encoder built on snprintf, the comparison, and converters to and from
// library trees. The suites and the fuzz targets check the library against
// it; it shares no code with the library.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ORLIX_JSON.h"
#include "ORLIX_Util.h"

namespace json_ref {

struct Member;

struct Value {
  uint32_t type = ORLIX_JSON_NULL;
  std::string text;  // string
  double number = 0;
  int truth = 0;
  std::vector<Member> members;  // object, in order, names may repeat
  std::vector<Value> elements;  // array
};

struct Member {
  std::string name;
  Value value;
};

inline Value Str(std::string s) {
  Value v;
  v.type = ORLIX_JSON_STRING;
  v.text = std::move(s);
  return v;
}
inline Value Num(double d) {
  Value v;
  v.type = ORLIX_JSON_NUMBER;
  v.number = d;
  return v;
}
inline Value Bool(bool b) {
  Value v;
  v.type = ORLIX_JSON_BOOLEAN;
  v.truth = b ? 1 : 0;
  return v;
}
inline Value Null() { return Value{}; }
inline Value Obj(std::vector<Member> m = {}) {
  Value v;
  v.type = ORLIX_JSON_OBJECT;
  v.members = std::move(m);
  return v;
}
inline Value Arr(std::vector<Value> e = {}) {
  Value v;
  v.type = ORLIX_JSON_ARRAY;
  v.elements = std::move(e);
  return v;
}

// Same structure, same bytes, same number bits (so -0 differs from 0).
inline bool Same(const Value &a, const Value &b) {
  if (a.type != b.type) return false;
  switch (a.type) {
    case ORLIX_JSON_STRING: return a.text == b.text;
    case ORLIX_JSON_NUMBER: return std::memcmp(&a.number, &b.number, sizeof(double)) == 0;
    case ORLIX_JSON_BOOLEAN: return a.truth == b.truth;
    case ORLIX_JSON_OBJECT:
      if (a.members.size() != b.members.size()) return false;
      for (size_t i = 0; i < a.members.size(); ++i)
        if (a.members[i].name != b.members[i].name || !Same(a.members[i].value, b.members[i].value))
          return false;
      return true;
    case ORLIX_JSON_ARRAY:
      if (a.elements.size() != b.elements.size()) return false;
      for (size_t i = 0; i < a.elements.size(); ++i)
        if (!Same(a.elements[i], b.elements[i])) return false;
      return true;
    default: return true;
  }
}

// ---- UTF-8 ------------------------------------------------------------------

// Well-formed UTF-8, judged by assembling each code point from its bits.
inline bool ValidUtf8(std::string_view s) {
  for (size_t i = 0; i < s.size();) {
    const auto b = static_cast<unsigned char>(s[i]);
    int extra;
    uint32_t cp;
    if (b < 0x80) {
      ++i;
      continue;
    } else if ((b & 0xE0) == 0xC0) {
      extra = 1, cp = b & 0x1F;
    } else if ((b & 0xF0) == 0xE0) {
      extra = 2, cp = b & 0x0F;
    } else if ((b & 0xF8) == 0xF0) {
      extra = 3, cp = b & 0x07;
    } else {
      return false;
    }
    if (i + extra >= s.size()) return false;
    for (int k = 1; k <= extra; ++k) {
      const auto c = static_cast<unsigned char>(s[i + k]);
      if ((c & 0xC0) != 0x80) return false;
      cp = cp << 6 | (c & 0x3F);
    }
    if (extra == 1 && cp < 0x80) return false;
    if (extra == 2 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) return false;
    if (extra == 3 && (cp < 0x10000 || cp > 0x10FFFF)) return false;
    i += extra + 1;
  }
  return true;
}

inline void AppendUtf8(std::string *out, uint32_t cp) {
  if (cp < 0x80) {
    *out += char(cp);
  } else if (cp < 0x800) {
    *out += char(0xC0 | cp >> 6), *out += char(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    *out += char(0xE0 | cp >> 12), *out += char(0x80 | (cp >> 6 & 0x3F));
    *out += char(0x80 | (cp & 0x3F));
  } else {
    *out += char(0xF0 | cp >> 18), *out += char(0x80 | (cp >> 12 & 0x3F));
    *out += char(0x80 | (cp >> 6 & 0x3F)), *out += char(0x80 | (cp & 0x3F));
  }
}

// ---- decoding ---------------------------------------------------------------

// The decoder as a recursive descent, one function per rule, over a buffer
// with an explicit length.
class Decoder {
 public:
  explicit Decoder(int limit) : limit_(limit) {}

  std::optional<Value> Decode(std::string_view text) const {
    if (text.empty()) return std::nullopt;
    size_t used = 0;
    auto v = Value_(reinterpret_cast<const unsigned char *>(text.data()), text.size(), 0, &used);
    if (!v || used != text.size()) return std::nullopt;
    return v;
  }

 private:
  static bool Ws(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
  static bool Digit(unsigned char c) { return c >= '0' && c <= '9'; }
  static int Hex(unsigned char c) {
    if (Digit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  }
  static int Hex4(const unsigned char *p) {
    int v = 0;
    for (int k = 0; k < 4; ++k) {
      const int h = Hex(p[k]);
      if (h < 0) return -1;
      v = v << 4 | h;
    }
    return v;
  }

  std::optional<Value> Value_(const unsigned char *p, size_t n, int level, size_t *used) const {
    if (n < 1 || level >= limit_) return std::nullopt;
    switch (p[0]) {
      case '"': {
        std::string s;
        if (!String(p, n, &s, used)) return std::nullopt;
        return Str(std::move(s));
      }
      case 'n': return Word(p, n, "null", Null(), used);
      case 't': return Word(p, n, "true", Bool(true), used);
      case 'f': return Word(p, n, "false", Bool(false), used);
      default: break;
    }
    if (p[0] == '-' || Digit(p[0])) return Number(p, n, used);
    size_t i = 0;
    while (i < n && Ws(p[i])) ++i;
    if (i == n) return std::nullopt;
    if (p[i] == '[') return Array(p, n, i + 1, level, used);
    if (p[i] == '{') return Object(p, n, i + 1, level, used);
    return std::nullopt;
  }

  static std::optional<Value> Word(const unsigned char *p, size_t n, const char *word, Value v,
                                   size_t *used) {
    const size_t len = std::strlen(word);
    if (n < len || std::memcmp(p, word, len) != 0) return std::nullopt;
    *used = len;
    return v;
  }

  static std::optional<Value> Number(const unsigned char *p, size_t n, size_t *used) {
    size_t i = 0;
    if (p[i] == '-') ++i;
    if (i == n || !Digit(p[i])) return std::nullopt;
    if (p[i++] != '0')
      while (i < n && Digit(p[i])) ++i;
    if (i < n && p[i] == '.') {
      if (++i == n || !Digit(p[i])) return std::nullopt;
      while (i < n && Digit(p[i])) ++i;
    }
    if (i < n && (p[i] == 'e' || p[i] == 'E')) {
      ++i;
      if (i < n && (p[i] == '+' || p[i] == '-')) ++i;
      if (i == n || !Digit(p[i])) return std::nullopt;
      while (i < n && Digit(p[i])) ++i;
    }
    const std::string text(reinterpret_cast<const char *>(p), i);
    *used = i;
    return Num(std::strtod(text.c_str(), nullptr));  // the test processes run in "C"
  }

  static bool String(const unsigned char *p, size_t n, std::string *out, size_t *used) {
    if (n < 2) return false;
    for (size_t i = 1; i < n;) {
      const unsigned char c = p[i];
      if (c == '"') {
        *used = i + 1;
        return ValidUtf8(*out);
      }
      if (c < 0x20) return false;
      if (c != '\\') {
        *out += char(c);
        ++i;
        continue;
      }
      if (i + 1 >= n) return false;
      const char *from = "\"\\/bfnrt";
      const char *to = "\"\\/\b\f\n\r\t";
      if (const char *e = std::strchr(from, p[i + 1]); e != nullptr && *e != '\0') {
        *out += to[e - from];
        i += 2;
        continue;
      }
      if (p[i + 1] != 'u' || i + 5 >= n) return false;
      int cp = Hex4(p + i + 2);
      if (cp < 0 || (cp >= 0xDC00 && cp <= 0xDFFF)) return false;
      i += 6;
      if (cp >= 0xD800 && cp <= 0xDBFF) {
        if (i + 5 >= n || p[i] != '\\' || p[i + 1] != 'u') return false;
        const int low = Hex4(p + i + 2);
        if (low < 0xDC00 || low > 0xDFFF) return false;
        cp = 0x10000 + ((cp & 0x3FF) << 10 | (low & 0x3FF));
        i += 6;
      }
      AppendUtf8(out, uint32_t(cp));
    }
    return false;
  }

  static size_t SkipWs(const unsigned char *p, size_t n, size_t i) {
    while (i < n && Ws(p[i])) ++i;
    return i;
  }

  std::optional<Value> Array(const unsigned char *p, size_t n, size_t i, int level,
                             size_t *used) const {
    Value a = Arr();
    i = SkipWs(p, n, i);
    if (i == n) return std::nullopt;
    if (p[i] != ']') {
      for (;;) {
        size_t c = 0;
        auto e = Value_(p + i, n - i, level + 1, &c);
        if (!e) return std::nullopt;
        a.elements.push_back(std::move(*e));
        i += c;
        if (i == n || (p[i] < 0x21 && !Ws(p[i]))) return std::nullopt;
        i = SkipWs(p, n, i);
        if (i == n) return std::nullopt;
        if (p[i] == ']') break;
        if (p[i] != ',') return std::nullopt;
        i = SkipWs(p, n, i + 1);
        if (i == n) return std::nullopt;
      }
    }
    *used = SkipWs(p, n, i + 1);
    return a;
  }

  std::optional<Value> Object(const unsigned char *p, size_t n, size_t i, int level,
                              size_t *used) const {
    if (level >= limit_) return std::nullopt;
    Value o = Obj();
    i = SkipWs(p, n, i);
    if (i == n) return std::nullopt;
    if (p[i] != '}') {
      for (;;) {
        std::string name;
        size_t c = 0;
        if (!String(p + i, n - i, &name, &c)) return std::nullopt;  // p[i] not examined
        i += c;
        if (i == n || (p[i] < 0x21 && !Ws(p[i]))) return std::nullopt;
        i = SkipWs(p, n, i);
        if (i == n || p[i] != ':') return std::nullopt;
        i = SkipWs(p, n, i + 1);
        if (i == n) return std::nullopt;
        auto v = Value_(p + i, n - i, level + 1, &c);
        if (!v) return std::nullopt;
        o.members.push_back(Member{std::move(name), std::move(*v)});
        i += c;
        if (i == n) return std::nullopt;
        i = SkipWs(p, n, i);
        if (i == n) return std::nullopt;
        if (p[i] == '}') break;
        if (p[i] != ',') return std::nullopt;
        i = SkipWs(p, n, i + 1);
        if (i == n) return std::nullopt;
      }
    }
    *used = SkipWs(p, n, i + 1);
    return o;
  }

  int limit_;
};

// ---- encoding ---------------------------------------------------------------

// "%lf" text shortened: trailing zeros after the point go, then a bare point.
inline std::string TrimZero(std::string t) {
  if (t.empty()) return t;
  size_t point;
  if (t[0] == '.') {
    if (t.size() == 1) return "0";
    point = 0;
  } else {
    point = t.find('.', 1);
    if (point == std::string::npos) return t;
  }
  if (point == t.size() - 1) return t.substr(0, point);
  while (t.size() - 1 > point && t.back() == '0') t.pop_back();
  if (t.size() - 1 == point) return point == 0 ? "0" : t.substr(0, point);
  return t;
}

inline std::string FormatNumber(double v) {
  char buf[512];
  if (v - std::floor(v) == 0 && v >= -2147483648.0 && v <= 2147483647.0) {
    std::snprintf(buf, sizeof buf, "%d", static_cast<int>(v));
    return buf;
  }
  std::snprintf(buf, sizeof buf, "%lf", v);
  return TrimZero(buf);
}

inline std::string Quote(const std::string &s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\', out += char(c);
    } else if (c < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u00%02X", c);
      out += buf;
    } else {
      out += char(c);
    }
  }
  return out + "\"";
}

inline void Indent(std::string *out, uint32_t flags, int level) {
  if ((flags & ORLIX_JSON_ENCODE_PRETTY) == 0) return;
  const uint32_t n = (flags & ORLIX_JSON_ENCODE_SPACES) ? flags & 0xFF : 0;
  for (int l = 0; l < level; ++l) *out += std::string(n, ' ') + "\t";
}

inline void Newline(std::string *out, uint32_t flags) {
  if ((flags & ORLIX_JSON_ENCODE_PRETTY) == 0) return;
  if (flags & ORLIX_JSON_ENCODE_CR) *out += '\r';
  if (flags & ORLIX_JSON_ENCODE_LF) *out += '\n';
}

inline void EncodeTo(std::string *out, const Value &v, uint32_t flags, int level) {
  const bool pretty = (flags & ORLIX_JSON_ENCODE_PRETTY) != 0;
  if (v.type == ORLIX_JSON_OBJECT) {
    Indent(out, flags, level);
    *out += '{';
    Newline(out, flags);
    for (size_t i = 0; i < v.members.size(); ++i) {
      Indent(out, flags, level + 1);
      *out += Quote(v.members[i].name) + ":";
      EncodeTo(out, v.members[i].value, 0, level + 1);
      if (i + 1 < v.members.size()) *out += ',';
      if (pretty) Newline(out, flags);
    }
    Indent(out, flags, level);
    *out += '}';
    return;
  }
  if (v.type == ORLIX_JSON_ARRAY) {
    Indent(out, flags, level);
    *out += '[';
    Newline(out, flags);
    for (size_t i = 0; i < v.elements.size(); ++i) {
      EncodeTo(out, v.elements[i], flags, level + 1);
      if (i + 1 < v.elements.size()) *out += ',';
      Newline(out, flags);
    }
    Indent(out, flags, level);
    *out += ']';
    return;
  }
  Indent(out, flags, level);
  switch (v.type) {
    case ORLIX_JSON_STRING: *out += Quote(v.text); break;
    case ORLIX_JSON_NUMBER: *out += FormatNumber(v.number); break;
    case ORLIX_JSON_BOOLEAN: *out += v.truth ? "true" : "false"; break;
    default: *out += "null";
  }
}

inline std::string Encode(const Value &v, uint32_t flags = 0) {
  std::string out;
  EncodeTo(&out, v, flags, 0);
  return out;
}

// ---- comparison -------------------------------------------------------------

int Compare(const Value *a, const Value *b);

inline int CompareStrings(const std::string &a, const std::string &b) {
  const size_t m = std::min(a.size(), b.size());
  if (a.size() == b.size()) return m == 0 ? 0 : std::memcmp(a.data(), b.data(), m);
  if (m != 0)
    if (const int c = std::memcmp(a.data(), b.data(), m); c != 0) return c;
  return a.size() > b.size() ? 1 : 0;
}

inline int CompareMembers(const Member &a, const Member &b) {
  if (const int c = CompareStrings(a.name, b.name); c != 0) return c;
  return Compare(&a.value, &b.value);
}

// Negative, zero or positive, with the documented asymmetries: a string
// equals any longer string it begins, NaN equals every number.
inline int Compare(const Value *a, const Value *b) {
  const int ta = a ? int(a->type) : -1;
  const int tb = b ? int(b->type) : -1;
  if (ta != tb) return ta < tb ? -1 : 1;
  if (!a) return 0;
  switch (a->type) {
    case ORLIX_JSON_STRING: return CompareStrings(a->text, b->text);
    case ORLIX_JSON_NUMBER: return b->number > a->number ? -1 : (a->number > b->number ? 1 : 0);
    case ORLIX_JSON_BOOLEAN: return a->truth < b->truth ? -1 : (a->truth == b->truth ? 0 : 1);
    case ORLIX_JSON_OBJECT:
      if (a->members.size() != b->members.size())
        return a->members.size() < b->members.size() ? -1 : 1;
      for (size_t i = 0; i < a->members.size(); ++i)
        if (const int c = CompareMembers(a->members[i], b->members[i]); c != 0) return c;
      return 0;
    case ORLIX_JSON_ARRAY:
      if (a->elements.size() != b->elements.size())
        return a->elements.size() < b->elements.size() ? -1 : 1;
      for (size_t i = 0; i < a->elements.size(); ++i)
        if (const int c = Compare(&a->elements[i], &b->elements[i]); c != 0) return c;
      return 0;
    default: return 0;
  }
}

// ---- library trees ----------------------------------------------------------

struct TreeDeleter {
  void operator()(ORLIX_JSON *p) const { orlix_json_free(p); }
};
using Tree = std::unique_ptr<ORLIX_JSON, TreeDeleter>;

// The tree built through the public constructors and add operations; null
// when the library refuses a piece (or memory runs out).
inline Tree Build(const Value &v) {
  switch (v.type) {
    case ORLIX_JSON_STRING:
      return Tree(orlix_json_newstring(v.text.data(), static_cast<int>(v.text.size())));
    case ORLIX_JSON_NUMBER: return Tree(orlix_json_newnumber(v.number));
    case ORLIX_JSON_BOOLEAN: return Tree(orlix_json_newboolean(v.truth));
    case ORLIX_JSON_NULL: return Tree(orlix_json_newnull());
    case ORLIX_JSON_OBJECT: {
      Tree o(orlix_json_newobject());
      for (const Member &m : v.members) {
        Tree value = Build(m.value);
        if (!o || !value ||
            orlix_json_addobjectitem(o.get(), m.name.data(), uint32_t(m.name.size()),
                                     value.get()) != 1)
          return nullptr;
      }
      return o;
    }
    default: {
      Tree a(orlix_json_newarray());
      for (const Value &e : v.elements) {
        Tree element = Build(e);
        if (!a || !element || orlix_json_addarrayitem(a.get(), element.get()) != 1) return nullptr;
      }
      return a;
    }
  }
}

// The value a library tree holds, read through the public getters.
inline Value Read(const ORLIX_JSON *node) {
  switch (orlix_json_gettype(node)) {
    case ORLIX_JSON_STRING:
      return Str(std::string(orlix_json_getstring(node), orlix_json_getstringlength(node)));
    case ORLIX_JSON_NUMBER: return Num(orlix_json_getnumber(node));
    case ORLIX_JSON_BOOLEAN: return Bool(orlix_json_istrue(node) != 0);
    case ORLIX_JSON_OBJECT: {
      Value o = Obj();
      orlix_json_traverse(
          const_cast<ORLIX_JSON *>(node),
          [](void *out, const char *name, uint32_t length, ORLIX_JSON *value) {
            static_cast<Value *>(out)->members.push_back(
                Member{std::string(name, length), Read(value)});
            return 1;
          },
          &o);
      return o;
    }
    case ORLIX_JSON_ARRAY: {
      Value a = Arr();
      const uint32_t n = orlix_json_getarraysize(node);
      for (uint32_t i = 0; i < n; ++i) a.elements.push_back(Read(orlix_json_getarrayitem(node, i)));
      return a;
    }
    default: return Null();
  }
}

// The library's encoding of a tree; nullopt when the encoder fails.
inline std::optional<std::string> EncodeTree(ORLIX_JSON *tree, uint32_t flags = 0) {
  char *text = nullptr;
  uint32_t length = 0;
  if (orlix_json_encode(tree, flags, &text, &length) != 1) return std::nullopt;
  std::string out(text, length);
  const bool terminated = text[length] == '\0';
  orlix_free(text);
  if (!terminated) return std::nullopt;
  return out;
}

inline Tree DecodeText(std::string_view text) {
  return Tree(orlix_json_decode(text.data(), static_cast<uint32_t>(text.size())));
}

}  // namespace json_ref
