// Helpers shared by the stream suites: checks on recorded error entries,
// memory-stream plumbing, temporary files, stream kinds of the test's own
// built the way a caller would build one (a method table plus a record taken
// with orlix_malloc), and base64 through a filter and one-shot.
#pragma once

#include <gtest/gtest.h>
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
#include "owned.hpp"

namespace orlix_test {
// An error context embedded by value, as callers may do.
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

// The newest entry carries code, module and the given description.
inline testing::AssertionResult LastIs(const Ctx &ctx, uint32_t code, const char *module,
                                       const char *text) {
  if (ctx.count() == 0) return testing::AssertionFailure() << "no entry recorded";
  const ORLIX_ErrEntry &e = ctx.last();
  if (e.code != code || e.module == nullptr || std::strcmp(e.module, module) != 0 ||
      std::strcmp(e.description, text) != 0)
    return testing::AssertionFailure()
           << "newest entry is 0x" << std::hex << e.code << " \"" << e.description << "\" from "
           << (e.module ? e.module : "(null)") << ", expected 0x" << code << " \"" << text
           << "\" from " << module;
  return testing::AssertionSuccess();
}

// Exactly one entry: code, module and the given description.
inline testing::AssertionResult OneEntry(const Ctx &ctx, uint32_t code, const char *module,
                                         const char *text) {
  if (ctx.count() != 1) return testing::AssertionFailure() << ctx.count() << " entries recorded";
  return LastIs(ctx, code, module, text);
}

// Exactly one entry: code, module and the code's own table text.
inline testing::AssertionResult OneErr(const Ctx &ctx, uint32_t code, const char *module) {
  return OneEntry(ctx, code, module, text_of(code));
}

// Runs `call` on a clean context and expects a failure result (0 or NULL)
// with exactly one entry of `code` from `module`.
#define EXPECT_FAIL_WITH(ctx, call, code, module)               \
  do {                                                          \
    (ctx).clear();                                              \
    EXPECT_FALSE((call));                                       \
    EXPECT_TRUE(::orlix_test::OneErr((ctx), (code), (module))); \
  } while (0)

constexpr const char kCore[] = "ORLIX_Stream";
constexpr const char kMem[] = "ORLIX_Stream_Mem";
constexpr const char kHex[] = "ORLIX_Stream_Hex";
constexpr const char kB64[] = "ORLIX_Stream_Base64";
constexpr const char kFile[] = "ORLIX_Stream_File";
constexpr const char kNull[] = "ORLIX_Stream_Null";
constexpr const char kMD[] = "ORLIX_Stream_MD";
constexpr const char kHmac[] = "ORLIX_Stream_HMAC";
constexpr const char kTestKind[] = "test_kind";
constexpr uint32_t kTestSourceType = 0x20040u;
constexpr uint32_t kTestFilterType = 0x10040u;
constexpr uint32_t kTestSinkType = 0x20041u;

// A stream record over test-owned state; the state outlives the record.
inline ORLIX_Stream *make_stream(const ORLIX_StreamMethod *method, uint32_t type, void *data) {
  auto *s = static_cast<ORLIX_Stream *>(orlix_malloc(sizeof(ORLIX_Stream), kTestKind, __LINE__));
  *s = ORLIX_Stream{method, type, data, nullptr, nullptr};
  return s;
}

// A source that hands out its data in pieces of at most `piece` bytes (0: a
// random size from 1 to 40 each time). At the end a read returns 1 with 0
// bytes, or fails when fail_at_end is set; a read at position fail_at
// (before the end) fails too. ctrl 11 answers whether all data was handed
// out, 1 rewinds, 2 gives the length.
struct PieceSource {
  std::string data;
  size_t piece = SIZE_MAX;
  bool fail_at_end = false;
  size_t fail_at = SIZE_MAX;
  bool refuse_rewind = false;
  size_t pos = 0;
  int64_t largest_request = 0;
  int reads = 0;
  int destroyed = 0;
  std::mt19937 rng{7};

  static int read(ORLIX_Stream *s, void *buf, int64_t n, uint64_t *count, ORLIX_ErrCtx *ctx) {
    auto *p = static_cast<PieceSource *>(s->data);
    ++p->reads;
    p->largest_request = std::max(p->largest_request, n);
    if (p->pos == p->fail_at || (p->pos == p->data.size() && p->fail_at_end)) {
      orlix_err_ctx_put(ctx, kTestKind, 1, ORLIX_ERR_STREAM_FILE_READ, "read file fail");
      return 0;
    }
    const size_t piece = p->piece == 0 ? 1 + p->rng() % 40 : p->piece;
    const size_t take = std::min({static_cast<size_t>(n), piece, p->data.size() - p->pos});
    std::memcpy(buf, p->data.data() + p->pos, take);
    p->pos += take;
    if (count != nullptr) *count = take;
    return 1;
  }
  static int ctrl(ORLIX_Stream *s, int64_t code, void *arg, ORLIX_ErrCtx *) {
    auto *p = static_cast<PieceSource *>(s->data);
    switch (code) {
      case ORLIX_CTRL_EOF: return p->pos == p->data.size() ? 1 : 0;
      case ORLIX_CTRL_RESET:
        if (p->refuse_rewind) return 0;
        p->pos = 0;
        return 1;
      case ORLIX_CTRL_GET_LENGTH: *static_cast<uint64_t *>(arg) = p->data.size(); return 1;
      default: return 0;
    }
  }
  static void destroy(ORLIX_Stream *s) { ++static_cast<PieceSource *>(s->data)->destroyed; }
  static constexpr ORLIX_StreamMethod kMethod = {read, nullptr, destroy, ctrl};

  ORLIX_Stream *make() { return make_stream(&kMethod, kTestSourceType, this); }
};

// A sink that accepts at most `piece` bytes per call, answers every other
// call with 0 bytes when stall is set, and fails with fail_result once `limit`
// bytes have been taken. It remembers the size of every write and every ctrl
// code it is asked (answering 1).
struct PieceSink {
  std::string data;
  size_t piece = SIZE_MAX;
  size_t limit = SIZE_MAX;
  bool stall = false;
  int fail_result = 0;
  std::vector<int64_t> writes;
  std::vector<int64_t> ctrls;

  static int write(ORLIX_Stream *s, const void *buf, int64_t n, uint64_t *count,
                   ORLIX_ErrCtx *ctx) {
    auto *p = static_cast<PieceSink *>(s->data);
    p->writes.push_back(n);
    if (p->data.size() >= p->limit) {
      orlix_err_ctx_put(ctx, kTestKind, 2, ORLIX_ERR_STREAM_WRITE_FAIL, "Write stream fail");
      return p->fail_result;
    }
    size_t take = std::min({static_cast<size_t>(n), p->piece, p->limit - p->data.size()});
    if (p->stall && p->writes.size() % 2 == 1) take = 0;
    p->data.append(static_cast<const char *>(buf), take);
    if (count != nullptr) *count = take;
    return 1;
  }
  static int ctrl(ORLIX_Stream *s, int64_t code, void *, ORLIX_ErrCtx *) {
    static_cast<PieceSink *>(s->data)->ctrls.push_back(code);
    return 1;
  }
  static constexpr ORLIX_StreamMethod kMethod = {nullptr, write, nullptr, ctrl};

  ORLIX_Stream *make() { return make_stream(&kMethod, kTestSinkType, this); }
  int64_t largest_write() const {
    return writes.empty() ? 0 : *std::max_element(writes.begin(), writes.end());
  }
};

inline std::string read_all(ORLIX_Stream *s, int64_t piece = 4096) {
  std::string out;
  std::string buf(static_cast<size_t>(piece), '\0');
  for (uint64_t n = 0; orlix_stream_read(s, buf.data(), piece, &n, nullptr) == 1 && n > 0;)
    out.append(buf.data(), n);
  return out;
}

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

}  // namespace orlix_test
