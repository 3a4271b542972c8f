// Helpers shared by the base64, PEM, file, null, digest and HMAC suites:
// error-entry checks, memory-stream plumbing, temporary files, a sink that
// takes short counts, and ORLIX_MDMethod tables built on OpenSSL's EVP
// digests.
#pragma once

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "ORLIX_Error.h"
#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"

namespace s2 {

constexpr const char kB64[] = "ORLIX_Stream_Base64";
constexpr const char kFile[] = "ORLIX_Stream_File";
constexpr const char kNull[] = "ORLIX_Stream_Null";
constexpr const char kMD[] = "ORLIX_Stream_MD";
constexpr const char kHmac[] = "ORLIX_Stream_HMAC";
constexpr const char kMem[] = "ORLIX_Stream_Mem";
constexpr const char kCore[] = "ORLIX_Stream";

// An error context embedded by value.
struct Ctx : ORLIX_ErrCtx {
  Ctx() : ORLIX_ErrCtx{} {}
  int count() const { return (head - tail + ORLIX_ERR_RING_SIZE) % ORLIX_ERR_RING_SIZE; }
  const ORLIX_ErrEntry &last() const {
    return entries[head == 0 ? ORLIX_ERR_RING_SIZE - 1 : head - 1];
  }
  void clear() { orlix_err_ctx_clean(this); }
};

inline const char *text_of(uint32_t code) {
  const char *t = orlix_igetGeneralError(static_cast<int32_t>(code));
  return *t ? t : orlix_igetStreamError(static_cast<int32_t>(code));
}

// Exactly one entry: code, module and the given description.
inline testing::AssertionResult OneEntry(const Ctx &ctx, uint32_t code, const char *module,
                                         const char *text) {
  if (ctx.count() != 1) return testing::AssertionFailure() << ctx.count() << " entries recorded";
  const ORLIX_ErrEntry &e = ctx.last();
  if (e.code == code && e.module != nullptr && std::strcmp(e.module, module) == 0 &&
      std::strcmp(e.description, text) == 0)
    return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << "entry 0x" << std::hex << e.code << " \"" << e.description << "\" from "
         << (e.module ? e.module : "(null)") << ", expected 0x" << code << " \"" << text
         << "\" from " << module;
}

inline testing::AssertionResult OneErr(const Ctx &ctx, uint32_t code, const char *module) {
  return OneEntry(ctx, code, module, text_of(code));
}

// Runs `call` on a clean context: a failure result (0 or NULL) and exactly
// one entry of `code` from `module` with the code's own text.
#define EXPECT_FAIL_WITH(ctx, call, code, module)       \
  do {                                                  \
    (ctx).clear();                                      \
    EXPECT_FALSE((call));                               \
    EXPECT_TRUE(::s2::OneErr((ctx), (code), (module))); \
  } while (0)

// Frees a whole chain from any of its links.
struct ChainDeleter {
  void operator()(ORLIX_Stream *s) const { orlix_stream_freeall(s); }
};
using Chain = std::unique_ptr<ORLIX_Stream, ChainDeleter>;

// `filter` pushed on `below`; the result owns both.
inline Chain Over(ORLIX_Stream *filter, ORLIX_Stream *below) {
  EXPECT_NE(filter, nullptr);
  EXPECT_NE(below, nullptr);
  EXPECT_EQ(orlix_stream_push(filter, below), 1);
  return Chain(filter);
}

// Everything a memory stream holds, read from its start.
inline std::string MemContents(ORLIX_Stream *mem) {
  std::string out;
  EXPECT_EQ(orlix_stream_ctrl(mem, ORLIX_CTRL_RESET, nullptr, nullptr), 1);
  char buf[4096];
  for (uint64_t n = 0; orlix_stream_read(mem, buf, sizeof buf, &n, nullptr) == 1 && n > 0;)
    out.append(buf, n);
  return out;
}

inline ORLIX_Stream *RoMem(const std::string &s) {
  return orlix_stream_new_romem(s.data(), static_cast<int64_t>(s.size()), 1, nullptr);
}

inline std::string RandomBytes(std::mt19937 &rng, size_t n) {
  std::string s(n, '\0');
  for (char &c : s) c = static_cast<char>(rng());
  return s;
}

// A path under the test temporary directory, removed when this goes away.
struct TempFile {
  std::string path;
  explicit TempFile(const std::string &content = "", const char *tag = "f") {
    static int serial = 0;
    path = testing::TempDir() + "orlix_s2_" + std::to_string(getpid()) + "_" + tag + "_" +
           std::to_string(++serial);
    std::ofstream(path, std::ios::binary) << content;
  }
  ~TempFile() { std::remove(path.c_str()); }
  std::string read() const {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
};

inline ORLIX_Stream *MakeStream(const ORLIX_StreamMethod *method, uint32_t type, void *data) {
  auto *s = static_cast<ORLIX_Stream *>(orlix_malloc(sizeof(ORLIX_Stream), "test_kind", 1));
  *s = ORLIX_Stream{method, type, data, nullptr, nullptr};
  return s;
}

// A sink of the test's own that accepts at most `piece` bytes per write,
// remembers the size of every write and every ctrl code it is asked, and
// answers 1 to every ctrl code.
struct ShortSink {
  std::string data;
  size_t piece = SIZE_MAX;
  bool fail = false;
  std::vector<int64_t> writes;
  std::vector<int64_t> ctrls;
  static int write(ORLIX_Stream *s, const void *buf, int64_t n, uint64_t *count,
                   ORLIX_ErrCtx *ctx) {
    auto *p = static_cast<ShortSink *>(s->data);
    p->writes.push_back(n);
    if (p->fail) {
      orlix_err_ctx_put(ctx, "test_sink", 1, ORLIX_ERR_STREAM_WRITE_FAIL, "Write stream fail");
      return 0;
    }
    const size_t take = std::min(static_cast<size_t>(n), p->piece);
    p->data.append(static_cast<const char *>(buf), take);
    if (count != nullptr) *count = take;
    return 1;
  }
  static int ctrl(ORLIX_Stream *s, int64_t code, void *, ORLIX_ErrCtx *) {
    static_cast<ShortSink *>(s->data)->ctrls.push_back(code);
    return 1;
  }
  static constexpr ORLIX_StreamMethod kMethod = {nullptr, write, nullptr, ctrl};
  ORLIX_Stream *make() { return MakeStream(&kMethod, 0x20041u, this); }
};

// A source of the test's own that hands out its text in reads of at most
// `piece` characters (0 in the list: a random size from 1 to 40 each time),
// returns 1 with 0 bytes at its end, or fails there when fail_at_end is set
// (recording 0x10106 as a file would). ctrl 11 answers whether all was
// read, 1 rewinds; other codes fail without an entry.
struct ShortSource {
  std::string text;
  size_t piece = SIZE_MAX;
  bool fail_at_end = false;
  size_t pos = 0;
  std::mt19937 rng{7};
  static int read(ORLIX_Stream *s, void *buf, int64_t n, uint64_t *count, ORLIX_ErrCtx *ctx) {
    auto *p = static_cast<ShortSource *>(s->data);
    if (p->pos == p->text.size() && p->fail_at_end) {
      orlix_err_ctx_put(ctx, "test_source", 1, ORLIX_ERR_STREAM_FILE_READ, "read file fail");
      return 0;
    }
    const size_t piece = p->piece == 0 ? 1 + p->rng() % 40 : p->piece;
    const size_t take = std::min({static_cast<size_t>(n), piece, p->text.size() - p->pos});
    std::memcpy(buf, p->text.data() + p->pos, take);
    p->pos += take;
    if (count != nullptr) *count = take;
    return 1;
  }
  static int ctrl(ORLIX_Stream *s, int64_t code, void *, ORLIX_ErrCtx *) {
    auto *p = static_cast<ShortSource *>(s->data);
    if (code == ORLIX_CTRL_EOF) return p->pos == p->text.size() ? 1 : 0;
    if (code == ORLIX_CTRL_RESET) return p->pos = 0, 1;
    return 0;
  }
  static constexpr ORLIX_StreamMethod kMethod = {read, nullptr, nullptr, ctrl};
  ORLIX_Stream *make() { return MakeStream(&kMethod, 0x20042u, this); }
};

// ---- ORLIX_MDMethod tables over OpenSSL's EVP digests --------------------------

// What the tables saw, and failures the tests can switch on.
struct MdSpy {
  std::string fed;  // every byte given to update, in order
  int updates = 0;
  int finals = 0;
  bool fail_new = false;
  bool fail_update = false;
  bool fail_final = false;
  void reset() { *this = MdSpy{}; }
};
inline MdSpy g_md_spy;

// The hash context. The digest buffer comes first: a digest filter finishes
// by calling final with out == the context and copies the digest from the
// context's first bytes.
struct EvpCtx {
  unsigned char digest[EVP_MAX_MD_SIZE];
  EVP_MD_CTX *md;
};

template <const EVP_MD *(*Md)()>
struct EvpTable {
  static void *md_new() {
    if (g_md_spy.fail_new) return nullptr;
    auto *c = new EvpCtx{};
    c->md = EVP_MD_CTX_new();
    return c;
  }
  static void md_free(void *ctx) {
    auto *c = static_cast<EvpCtx *>(ctx);
    EVP_MD_CTX_free(c->md);
    delete c;
  }
  static uint32_t md_length() { return static_cast<uint32_t>(EVP_MD_get_size(Md())); }
  static uint32_t md_property() { return static_cast<uint32_t>(EVP_MD_get_type(Md())); }
  static void md_init(void *ctx) {
    EVP_DigestInit_ex(static_cast<EvpCtx *>(ctx)->md, Md(), nullptr);
  }
  static int md_update(void *ctx, const void *data, uint64_t length) {
    ++g_md_spy.updates;
    g_md_spy.fed.append(static_cast<const char *>(data), length);
    if (g_md_spy.fail_update) return 0;
    return EVP_DigestUpdate(static_cast<EvpCtx *>(ctx)->md, data, length);
  }
  static int md_final(void *ctx, unsigned char *out) {
    ++g_md_spy.finals;
    if (g_md_spy.fail_final) return 0;
    unsigned char tmp[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    if (EVP_DigestFinal_ex(static_cast<EvpCtx *>(ctx)->md, tmp, &n) != 1) return 0;
    std::memcpy(out, tmp, n);  // out may be the context itself
    return 1;
  }
  static uint32_t md_blocksize() { return static_cast<uint32_t>(EVP_MD_get_block_size(Md())); }
  static void *md_dup(void *ctx) {
    auto *c = new EvpCtx{};
    c->md = EVP_MD_CTX_new();
    EVP_MD_CTX_copy_ex(c->md, static_cast<EvpCtx *>(ctx)->md);
    return c;
  }
  static constexpr ORLIX_MDMethod kMethod = {
      md_new, md_free, md_length, md_property, md_init, md_update, md_final, md_blocksize, md_dup};
};

inline const ORLIX_MDMethod &Sha1() { return EvpTable<EVP_sha1>::kMethod; }
inline const ORLIX_MDMethod &Sha256() { return EvpTable<EVP_sha256>::kMethod; }

// OpenSSL's own digest of `data`, the oracle for the filters.
inline std::string EvpDigest(const EVP_MD *md, const std::string &data) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  EVP_Digest(data.data(), data.size(), out, &n, md, nullptr);
  return std::string(reinterpret_cast<char *>(out), n);
}

inline std::string Hex(const std::string &bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out += kDigits[c >> 4];
    out += kDigits[c & 15];
  }
  return out;
}

// ---- base64 through a filter ----------------------------------------------------

// Writes `data` through a base64 filter (encode_flags, line) over a memory
// stream in calls of the given sizes (cycled; none: one call), flushes
// `flushes` times and returns the text the memory stream received.
inline std::string EncodeStream(uint32_t encode_flags, int32_t line, const std::string &data,
                                const std::vector<size_t> &pieces = {}, int flushes = 1) {
  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  Chain chain = Over(orlix_stream_new_base64(encode_flags, line, 2, nullptr), mem);
  for (size_t done = 0, i = 0; done < data.size(); ++i) {
    const size_t n =
        pieces.empty() ? data.size() : std::min(pieces[i % pieces.size()], data.size() - done);
    uint64_t count = 0;
    EXPECT_EQ(orlix_stream_write(chain.get(), data.data() + done, static_cast<int64_t>(n), &count,
                                 nullptr),
              1);
    EXPECT_EQ(count, n);
    done += n;
  }
  for (int i = 0; i < flushes; ++i)
    EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_FLUSH, nullptr, nullptr), 1);
  return MemContents(mem);
}

struct Decoded {
  bool ok = false;
  std::string bytes;
  uint32_t code = ORLIX_ERR_NONE;  // newest entry of the failing call
};

// Reads through a base64 filter (decode_flags) pushed on `source` until the
// source is used up and a read gives no bytes; read sizes come from
// `piece()`. Unpadded input then has its remainder taken with ctrl 20.
template <class Piece>
Decoded DecodeStream(uint32_t decode_flags, ORLIX_Stream *source, Piece piece) {
  Decoded d;
  Chain chain = Over(orlix_stream_new_base64(2, 64, decode_flags, nullptr), source);
  std::string buf;
  for (int guard = 0;; ++guard) {
    if (guard > 1000000) return ADD_FAILURE() << "no progress", d;
    const int64_t n = piece();
    buf.resize(static_cast<size_t>(n));
    uint64_t got = 0;
    Ctx ctx;
    if (orlix_stream_read(chain.get(), buf.data(), n, &got, &ctx) != 1) {
      d.code = ctx.last().code;
      return d;
    }
    EXPECT_LE(got, static_cast<uint64_t>(n));
    d.bytes.append(buf.data(), got);
    if (got == 0 && orlix_stream_ctrl(source, ORLIX_CTRL_EOF, nullptr, nullptr) == 1) break;
  }
  if ((decode_flags & ORLIX_BASE64_NO_PAD) != 0) {
    ORLIX_DataBlob *rest = nullptr;
    Ctx ctx;
    if (orlix_stream_ctrl(chain.get(), ORLIX_CTRL_BASE64_REMAINDER, &rest, &ctx) != 1) {
      d.code = ctx.count() ? ctx.last().code : ORLIX_ERR_NONE;
      return d;
    }
    d.bytes.append(reinterpret_cast<char *>(rest->data), static_cast<size_t>(rest->length));
    orlix_data_blob_free(rest);
  }
  d.ok = true;
  return d;
}

// The one-shot decoder; `ok` is false when it refuses the text.
inline Decoded DecodeOneShot(uint32_t decode_flags, const std::string &text) {
  Decoded d;
  unsigned char *data = nullptr;
  int64_t n = -1;
  if (orlix_base64decode(decode_flags, text.data(), static_cast<int64_t>(text.size()), &data, &n) !=
      1)
    return d;
  d.ok = true;
  d.bytes.assign(reinterpret_cast<char *>(data), static_cast<size_t>(n));
  orlix_free(data);
  return d;
}

inline std::string EncodeOneShot(uint32_t encode_flags, const std::string &data) {
  char *text = nullptr;
  int64_t n = -1;
  EXPECT_EQ(
      orlix_base64encode(encode_flags, data.data(), static_cast<int64_t>(data.size()), &text, &n),
      1);
  if (text == nullptr) return {};
  EXPECT_EQ(text[n], '\0');
  std::string out(text, static_cast<size_t>(n));
  orlix_free(text);
  return out;
}

}  // namespace s2
