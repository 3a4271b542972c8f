// How each input-taking operation grows with its input. Every operation is
// fed the worst input found for it, at size n and at 8n, and the program
// prints the growth exponent log8(t(8n) / t(n)): about 1.0 for linear work,
// 1.1 for n log n, 2.0 for quadratic. Rows with a note may grow faster: the
// note says why (see Row::note). Not a test: timings on a shared machine
// are noisy, so each side is the fastest of several runs, the two sides
// taking turns. Working sets that outgrow the caches at 8n add a little.
//
//   scaling [filter]     (rows whose name contains filter)
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "orlix_util.h"

namespace {

using Clock = std::chrono::steady_clock;
using Op = std::function<void()>;

struct Row {
  const char *family;
  const char *name;
  // "" for rows held to n log n; otherwise why the row may grow faster:
  // "contract" (the output or the defined algorithm grows so) or
  // "M(n) log n" (radix conversion of big integers, GMP's subquadratic).
  const char *note;
  int64_t n;         // the base size (units depend on the row)
  std::function<Op(int64_t)> make;  // builds the input of size n, returns the timed call
};

void check(bool ok, const char *what) {
  if (!ok) {
    std::fprintf(stderr, "scaling: %s failed\n", what);
    std::exit(1);
  }
}

// The fastest of several runs of each of two calls, in seconds. The runs
// alternate so that a busy machine slows both sides alike: at least 5 of
// each and 0.3 s in all.
std::pair<double, double> time_pair(const Op &a, const Op &b) {
  double best[2] = {1e30, 1e30};
  double total = 0;
  for (int run = 0; run < 5 || (total < 0.3 && run < 100); ++run) {
    for (int side = 0; side < 2; ++side) {
      const auto start = Clock::now();
      (side == 0 ? a : b)();
      const double t = std::chrono::duration<double>(Clock::now() - start).count();
      best[side] = t < best[side] ? t : best[side];
      total += t;
    }
  }
  return {best[0], best[1]};
}

std::string repeat(const std::string &unit, int64_t n) {
  std::string out;
  out.reserve(unit.size() * static_cast<size_t>(n));
  for (int64_t i = 0; i < n; ++i) out += unit;
  return out;
}

// UTF-8 of code points.
std::string utf8(const std::vector<uint32_t> &cps) {
  std::string out;
  for (uint32_t c : cps) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | c >> 6);
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | c >> 12);
      out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | c >> 18);
      out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
      out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::string utf8_repeat(const std::vector<uint32_t> &head, const std::vector<uint32_t> &unit,
                        int64_t n) {
  return utf8(head) + repeat(utf8(unit), n);
}

// A string made once per size and shared by the timed calls.
struct Text {
  ORLIX_UString *s;
  explicit Text(const std::string &bytes)
      : s(orlix_ustring_newutf8(bytes.data(), static_cast<int64_t>(bytes.size()))) {
    check(s != nullptr, "newutf8");
  }
};

std::shared_ptr<Text> text(const std::string &bytes) { return std::make_shared<Text>(bytes); }

Op normalize(const std::string &bytes, int32_t form) {
  auto t = text(bytes);
  return [t, form] { orlix_ustring_free(orlix_ustring_normalize(t->s, form)); };
}

Op ldap(const std::string &bytes, int64_t type) {
  auto t = text(bytes);
  return [t, type] { orlix_ustring_free(orlix_ustring_ldapi18nstringprep(type, t->s)); };
}

Op json_decode(const std::string &doc) {
  return [doc] {
    orlix_json_free(orlix_json_decode(doc.data(), static_cast<uint32_t>(doc.size())));
  };
}

Op json_encode(const std::string &doc, uint32_t flags) {
  std::shared_ptr<ORLIX_JSON> tree(
      orlix_json_decode(doc.data(), static_cast<uint32_t>(doc.size())), orlix_json_free);
  check(tree != nullptr, "json decode");
  return [tree, flags] {
    char *out = nullptr;
    uint32_t length = 0;
    if (orlix_json_encode(tree.get(), flags, &out, &length)) orlix_free(out);
  };
}

std::string nested(int64_t depth, const std::string &core) {
  return std::string(static_cast<size_t>(depth), '[') + core + std::string(static_cast<size_t>(depth), ']');
}

std::string number_array(int64_t n) {
  std::string s = "[";
  for (int64_t i = 0; i < n; ++i) s += (i ? "," : "") + std::to_string(i * 7919 % 100003) + ".5";
  return s + "]";
}

std::vector<Row> rows() {
  const uint32_t kPretty = ORLIX_JSON_ENCODE_PRETTY | ORLIX_JSON_ENCODE_LF;
  return {
      // ---- streams and codecs
      {"stream", "memory stream, 1-byte writes", "", 1 << 18,
       [](int64_t n) -> Op {
         return [n] {
           ORLIX_Stream *s = orlix_stream_new_mem(0, nullptr);
           for (int64_t i = 0; i < n; ++i) orlix_stream_writen(s, "x", 1, nullptr);
           orlix_stream_free(s);
         };
       }},
      {"stream", "memory queue, write 3 read 2", "", 1 << 18,
       [](int64_t n) -> Op {
         return [n] {
           ORLIX_Stream *s = orlix_stream_new_rwspecmem(0, nullptr);
           char buf[2];
           uint64_t got = 0;
           for (int64_t i = 0; i < n; ++i) {
             orlix_stream_writen(s, "abc", 3, nullptr);
             orlix_stream_read(s, buf, 2, &got, nullptr);
           }
           orlix_stream_free(s);
         };
       }},
      {"stream", "memory queue compaction, full queue", "contract", 1 << 12,
       [](int64_t n) -> Op {
         return [n] {
           // A queue kept full: every write compacts the unread bytes.
           ORLIX_Stream *s = orlix_stream_new_rwspecmem(n, nullptr);
           const std::string fill(static_cast<size_t>(n), 'x');
           orlix_stream_writen(s, fill.data(), n, nullptr);
           char c;
           uint64_t got = 0;
           for (int64_t i = 0; i < n; ++i) {
             orlix_stream_read(s, &c, 1, &got, nullptr);
             orlix_stream_writen(s, "y", 1, nullptr);
           }
           orlix_stream_free(s);
         };
       }},
      {"stream", "hex decode", "", 1 << 20,
       [](int64_t n) -> Op {
         const std::string hex = repeat("0aF9", n / 4);
         return [hex] {
           unsigned char *out = nullptr;
           int64_t len = 0;
           if (orlix_hexdecode(hex.data(), static_cast<int64_t>(hex.size()), &out, &len))
             orlix_free(out);
         };
       }},
      {"stream", "base64 decode, CRLF lines", "", 1 << 20,
       [](int64_t n) -> Op {
         const std::string b64 = repeat(std::string(76, 'Q') + "\r\n", n / 78);
         return [b64] {
           unsigned char *out = nullptr;
           int64_t len = 0;
           if (orlix_base64decode(ORLIX_BASE64_WS_EOL, b64.data(),
                                  static_cast<int64_t>(b64.size()), &out, &len))
             orlix_free(out);
         };
       }},
      {"stream", "base64 decode, all whitespace", "", 1 << 20,
       [](int64_t n) -> Op {
         const std::string b64 = repeat("QU \t\r\n", n / 6) + "==";
         return [b64] {
           unsigned char *out = nullptr;
           int64_t len = 0;
           if (orlix_base64decode(ORLIX_BASE64_WS_ALL, b64.data(),
                                  static_cast<int64_t>(b64.size()), &out, &len))
             orlix_free(out);
         };
       }},
      {"stream", "base64 stream decode, 1-byte writes", "", 1 << 17,
       [](int64_t n) -> Op {
         const std::string b64 = repeat("QUJD", n / 4);
         return [b64] {
           ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
           ORLIX_Stream *f = orlix_stream_new_base64(0, 64, ORLIX_BASE64_WS_ALL, nullptr);
           orlix_stream_push(f, mem);
           for (char c : b64) orlix_stream_writen(f, &c, 1, nullptr);
           orlix_stream_freeall(f);
         };
       }},
      {"stream", "PEM decode, short lines", "", 1 << 19,
       [](int64_t n) -> Op {
         const std::string pem = "-----BEGIN X-----\n" + repeat("QUJD\n", n / 5) + "-----END X-----\n";
         return [pem] {
           unsigned char *out = nullptr;
           int64_t len = 0;
           if (orlix_pemdecode("X", pem.data(), static_cast<int64_t>(pem.size()), &out, &len))
             orlix_free(out);
         };
       }},
      // ---- Unicode strings
      {"ustring", "newutf8, 4-byte characters", "", 1 << 18,
       [](int64_t n) -> Op {
         const std::string s = utf8_repeat({}, {0x1F600, 0xE9, 'a'}, n / 7);
         return [s] { orlix_ustring_free(orlix_ustring_newutf8(s.data(), int64_t(s.size()))); };
       }},
      {"ustring", "newutf8, error at the end", "", 1 << 20,
       [](int64_t n) -> Op {
         const std::string s = repeat("\xC3\xA9", n / 2) + "\xC3";
         return [s] { orlix_ustring_free(orlix_ustring_newutf8(s.data(), int64_t(s.size()))); };
       }},
      {"ustring", "toutf8, surrogate pairs", "", 1 << 18,
       [](int64_t n) -> Op {
         auto t = text(utf8_repeat({}, {0x10437}, n / 4));
         return [t] {
           char *out = nullptr;
           int64_t len = 0;
           if (orlix_ustring_toutf8(t->s, &out, &len)) orlix_free(out);
         };
       }},
      {"ustring", "newmbs ISO8859-1 (iconv)", "", 1 << 18,
       [](int64_t n) -> Op {
         const std::string s = repeat("\xE9z", n / 2);
         return [s] {
           orlix_ustring_free(orlix_ustring_newmbs("ISO8859-1", s.data(), int64_t(s.size())));
         };
       }},
      {"ustring", "find aaa..ab in aaa..a", "", 1 << 18,
       [](int64_t n) -> Op {
         auto hay = text(std::string(static_cast<size_t>(n), 'a'));
         auto needle = text(std::string(static_cast<size_t>(n / 2), 'a') + "b");
         return [hay, needle] {
           int64_t pos = 0;
           orlix_ustring_find(hay->s, 0, needle->s, &pos);
         };
       }},
      {"ustring", "substring of the second half", "", 1 << 20,
       [](int64_t n) -> Op {
         auto t = text(utf8_repeat({}, {0x10437, 'a'}, n / 2));
         return [t, n] { orlix_ustring_free(orlix_ustring_substring(t->s, n / 2, n / 2)); };
       }},
      // ---- normalization and preparation
      {"unicode", "NFD, marks in descending class order", "", 1 << 15,
       [](int64_t n) -> Op {
         return normalize(utf8_repeat({'a'}, {0x301, 0x316, 0x327, 0x5B0, 0x334}, n / 5), 1);
       }},
      {"unicode", "NFC, U+0F73 U+0F75 run", "", 1 << 15,
       [](int64_t n) -> Op { return normalize(utf8_repeat({}, {0xF73, 0xF75}, n / 2), 2); }},
      {"unicode", "NFC, starter + blocked marks + composing", "", 1 << 15,
       [](int64_t n) -> Op {
         return normalize(utf8_repeat({'a'}, {0x316, 0x301, 0x30A}, n / 3), 2);
       }},
      {"unicode", "NFKC, U+FDFA (18 code points each)", "", 1 << 14,
       [](int64_t n) -> Op { return normalize(utf8_repeat({}, {0xFDFA}, n), 4); }},
      {"unicode", "NFC, Hangul jamo L V T", "", 1 << 16,
       [](int64_t n) -> Op { return normalize(utf8_repeat({}, {0x1100, 0x1161, 0x11A8}, n / 3), 2); }},
      {"unicode", "case fold mode 2, expanding", "", 1 << 16,
       [](int64_t n) -> Op {
         auto t = text(utf8_repeat({}, {0xDF, 0x1F80, 0x130}, n / 3));
         return [t] { orlix_ustring_free(orlix_ustring_tocasefold(t->s, 2)); };
       }},
      {"unicode", "LDAP type 1, spaces", "", 1 << 16,
       [](int64_t n) -> Op { return ldap(repeat("a  ", n / 3), 1); }},
      {"unicode", "LDAP type 3, '1 ' repeated", "", 1 << 16,
       [](int64_t n) -> Op { return ldap(repeat("1 ", n / 2), 3); }},
      {"unicode", "LDAP type 5, hyphens", "", 1 << 16,
       [](int64_t n) -> Op { return ldap(repeat("A-", n / 2), 5); }},
      {"unicode", "nameprep, long label", "", 1 << 16,
       [](int64_t n) -> Op {
         auto t = text(utf8_repeat({}, {0xC9, 0xAD, 'x'}, n / 3));
         return [t] { orlix_ustring_free(orlix_ustring_idn_stringprep(t->s, 1)); };
       }},
      {"unicode", "IDNA ToASCII, many labels", "", 1 << 15,
       [](int64_t n) -> Op {
         auto t = text(utf8_repeat({}, {0xFC, 'b', '.'}, n / 3) + "x");
         return [t] {
           char *out = nullptr;
           int64_t len = 0;
           if (orlix_ustring_idn_toascii(t->s, 1, 0, 0, &out, &len)) orlix_free(out);
         };
       }},
      {"unicode", "IDNA ToASCII, one long label", "", 1 << 16,
       [](int64_t n) -> Op {
         auto t = text(utf8_repeat({}, {0xFC, 'b'}, n / 2));
         return [t] {
           char *out = nullptr;
           int64_t len = 0;
           if (orlix_ustring_idnlabel_toascii(t->s, 1, 0, 0, &out, &len)) orlix_free(out);
         };
       }},
      {"unicode", "IDNA ToUnicode, long xn-- label", "", 1 << 16,
       [](int64_t n) -> Op {
         auto t = text("xn--" + std::string(static_cast<size_t>(n), 'a'));
         return [t] { orlix_ustring_free(orlix_ustring_idnlabel_tounicode(t->s, 1, 0, 0)); };
       }},
      {"unicode", "IDNA ToUnicode, many xn-- labels", "", 1 << 14,
       [](int64_t n) -> Op {
         auto t = text(repeat("xn--bcher-kva.", n / 14) + "de");
         return [t] { orlix_ustring_free(orlix_ustring_idn_tounicode(t->s, 1, 0, 0)); };
       }},
      // ---- JSON
      {"json", "decode, wide array of numbers", "", 1 << 16,
       [](int64_t n) -> Op { return json_decode(number_array(n)); }},
      {"json", "decode, deep arrays", "", 1 << 15,
       [](int64_t n) -> Op { return json_decode(nested(n, "1")); }},
      {"json", "decode, string of escapes", "", 1 << 18,
       [](int64_t n) -> Op { return json_decode("[\"" + repeat("\\u00e9\\n", n / 8) + "\"]"); }},
      {"json", "decode, object with one name repeated", "", 1 << 15,
       [](int64_t n) -> Op { return json_decode("{" + repeat("\"k\":1,", n) + "\"k\":2}"); }},
      {"json", "decode, long number", "", 1 << 18,
       [](int64_t n) -> Op { return json_decode("[" + std::string(static_cast<size_t>(n), '7') + "]"); }},
      {"json", "encode compact, deep arrays", "", 1 << 15,
       [](int64_t n) -> Op { return json_encode(nested(n, "1"), 0); }},
      {"json", "encode indented, wide array", "", 1 << 15,
       [](int64_t n) -> Op { return json_encode(number_array(n), kPretty); }},
      {"json", "encode indented, deep arrays", "contract", 1 << 11,
       [kPretty](int64_t n) -> Op { return json_encode(nested(n, "1"), kPretty); }},
      {"json", "encode sorted, equal deep entries", "", 1 << 10,
       [](int64_t n) -> Op {
         // n entries, each an array nested n/64 deep: every comparison
         // walks to the bottom.
         std::string doc = "[";
         for (int64_t i = 0; i < 64; ++i) doc += (i ? "," : "") + nested(n, std::to_string(i % 7));
         return json_encode(doc + "]", ORLIX_JSON_ENCODE_SORT);
       }},
      {"json", "encode sorted, many members", "", 1 << 11,
       [](int64_t n) -> Op {
         std::string doc = "{";
         for (int64_t i = 0; i < n; ++i) doc += (i ? ",\"" : "\"") + std::to_string(i * 7919 % n) + "\":1";
         return json_encode(doc + "}", ORLIX_JSON_ENCODE_SORT);
       }},
      // ---- big integers
      {"bigint", "newdec", "M(n) log n", 1 << 14,
       [](int64_t n) -> Op {
         const std::string digits = "9" + repeat("1234567890", n / 10);
         return [digits] { orlix_biginteger_free(orlix_biginteger_newdec(digits.c_str())); };
       }},
      {"bigint", "unsigned todec", "M(n) log n", 1 << 14,
       [](int64_t n) -> Op {
         const std::string digits = "9" + repeat("1234567890", n / 10);
         std::shared_ptr<ORLIX_BigInteger> a(orlix_biginteger_newdec(digits.c_str()),
                                             orlix_biginteger_free);
         return [a] {
           char *out = nullptr;
           int64_t len = 0;
           if (orlix_biginteger_unsigned_todec(a.get(), &out, &len)) orlix_free(out);
         };
       }},
      {"bigint", "newdata / getdata", "", 1 << 18,
       [](int64_t n) -> Op {
         const std::string bytes = repeat("\x80\x01\xFF", n / 3);
         return [bytes] {
           ORLIX_BigInteger *a = orlix_biginteger_newdata(bytes.data(), int64_t(bytes.size()));
           orlix_data_blob_free(orlix_biginteger_getdata(a));
           orlix_biginteger_free(a);
         };
       }},
      // ---- containers
      {"containers", "bit set from bytes and back", "", 1 << 22,
       [](int64_t n) -> Op {
         const std::string bytes = repeat("\xA5\x00", n / 2);
         return [bytes] {
           ORLIX_BitSet *b = orlix_bitset_new(3, reinterpret_cast<const unsigned char *>(bytes.data()),
                                              bytes.size());
           uint32_t unused = 0;
           orlix_data_blob_free(orlix_bitset_getdata(b, &unused));
           orlix_bitset_free(b);
         };
       }},
      {"containers", "bit set, clearing from the top", "", 1 << 16,
       [](int64_t n) -> Op {
         return [n] {
           ORLIX_BitSet *b = orlix_bitset_new(0, nullptr, 0);
           orlix_bitset_set(b, 0);
           orlix_bitset_set(b, n);
           for (int64_t i = n; i > 0; --i) orlix_bitset_clear(b, i);
           orlix_bitset_free(b);
         };
       }},
      {"containers", "array list insert at the front", "contract", 1 << 13,
       [](int64_t n) -> Op {
         return [n] {
           ORLIX_ArrayList *l = orlix_arraylist_new(nullptr, nullptr);
           for (int64_t i = 0; i < n; ++i) orlix_arraylist_insert(l, 0, &l);
           orlix_arraylist_free(l);
         };
       }},
      {"containers", "bit set grown one bit at a time", "contract", 1 << 13,
       [](int64_t n) -> Op {
         return [n] {
           ORLIX_BitSet *b = orlix_bitset_new(0, nullptr, 0);
           for (int64_t i = 0; i < n; ++i) orlix_bitset_set(b, i);
           orlix_bitset_free(b);
         };
       }},
      {"containers", "array list append", "", 1 << 18,
       [](int64_t n) -> Op {
         return [n] {
           ORLIX_ArrayList *l = orlix_arraylist_new(nullptr, nullptr);
           for (int64_t i = 0; i < n; ++i) orlix_arraylist_pushback(l, &l);
           orlix_arraylist_free(l);
         };
       }},
      // ---- time
      {"time", "add days (count = n)", "", 1 << 20,
       [](int64_t n) -> Op {
         std::shared_ptr<ORLIX_Time> t(orlix_time_newutctime(1600, 1, 1, 0, 0, 0, 0), orlix_time_free);
         return [t, n] { orlix_time_free(orlix_time_addday(t.get(), static_cast<int32_t>(n))); };
       }},
      {"time", "add seconds (count = n)", "", 1 << 24,
       [](int64_t n) -> Op {
         std::shared_ptr<ORLIX_Time> t(orlix_time_newutctime(1972, 6, 30, 23, 59, 59, 0), orlix_time_free);
         return [t, n] { orlix_time_free(orlix_time_addsecond(t.get(), static_cast<int32_t>(n))); };
       }},
      {"time", "local time by an unknown zone name", "", 1 << 18,
       [](int64_t n) -> Op {
         const std::string zone = "Europe/" + std::string(static_cast<size_t>(n), 'x');
         return [zone] {
           orlix_time_free(orlix_time_newlocaltimebyzone(zone.c_str(), 2000, 1, 1, 0, 0, 0, 0, 0));
         };
       }},
  };
}

}  // namespace

int main(int argc, char **argv) {
  // Deep trees need a nesting limit above the default, read when the library
  // loads: the program runs itself again with it set.
  if (std::getenv("ORLIX_RECURSIVE_LEVEL") == nullptr) {
    setenv("ORLIX_RECURSIVE_LEVEL", "10000000", 1);
    execv("/proc/self/exe", argv);
    std::perror("scaling: execv");
    return 1;
  }
  const char *filter = argc > 1 ? argv[1] : "";
  std::printf("| family | operation | n | t(n) | t(8n) | exponent | |\n");
  std::printf("|---|---|---:|---:|---:|---:|---|\n");
  int flagged = 0;
  for (const Row &row : rows()) {
    if (std::strstr(row.name, filter) == nullptr && std::strstr(row.family, filter) == nullptr)
      continue;
    const auto [t1, t8] = time_pair(row.make(row.n), row.make(8 * row.n));
    const double exponent = std::log(t8 / t1) / std::log(8.0);
    const bool contract = row.note[0] != '\0';
    const bool super_linear = exponent > 1.3;
    flagged += super_linear && !contract;
    std::printf("| %s | %s | %lld | %.3g ms | %.3g ms | %.2f | %s |\n", row.family, row.name,
                static_cast<long long>(row.n), t1 * 1e3, t8 * 1e3, exponent,
                contract ? row.note : (super_linear ? "SUPER-LINEAR" : ""));
    std::fflush(stdout);
  }
  std::printf("\n%d super-linear row(s) outside the contract exceptions (exponent > 1.3).\n",
              flagged);
  return 0;
}
