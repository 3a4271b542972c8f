// Helpers shared by the stream suites: checks on recorded error entries and
// two stream kinds of the test's own, built the way a caller would build one
// (a method table plus a record taken with orlix_malloc).
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "ORLIX_Error.h"
#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"

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

// Exactly one entry: code, module and the code's own table text.
inline testing::AssertionResult OneErr(const Ctx &ctx, uint32_t code, const char *module) {
  if (ctx.count() != 1) return testing::AssertionFailure() << ctx.count() << " entries recorded";
  return LastIs(ctx, code, module, text_of(code));
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
constexpr const char kTestKind[] = "test_kind";
constexpr uint32_t kTestSourceType = 0x20040u;
constexpr uint32_t kTestFilterType = 0x10040u;

// A stream record over test-owned state; the state outlives the record.
inline ORLIX_Stream *make_stream(const ORLIX_StreamMethod *method, uint32_t type, void *data) {
  auto *s = static_cast<ORLIX_Stream *>(orlix_malloc(sizeof(ORLIX_Stream), kTestKind, __LINE__));
  *s = ORLIX_Stream{method, type, data, nullptr, nullptr};
  return s;
}

// A source that hands out its data in pieces of at most `piece` bytes. At the
// end a read returns 1 with 0 bytes, or fails when fail_at_end is set; a read
// at position fail_at (before the end) fails too. ctrl 11 answers whether all
// data was handed out, 1 rewinds, 2 gives the length.
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

  static int read(ORLIX_Stream *s, void *buf, int64_t n, uint64_t *count, ORLIX_ErrCtx *ctx) {
    auto *p = static_cast<PieceSource *>(s->data);
    ++p->reads;
    p->largest_request = std::max(p->largest_request, n);
    if (p->pos == p->fail_at || (p->pos == p->data.size() && p->fail_at_end)) {
      orlix_err_ctx_put(ctx, kTestKind, 1, ORLIX_ERR_STREAM_FILE_READ, "read file fail");
      return 0;
    }
    const size_t take = std::min({static_cast<size_t>(n), p->piece, p->data.size() - p->pos});
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
// bytes have been taken.
struct PieceSink {
  std::string data;
  size_t piece = SIZE_MAX;
  size_t limit = SIZE_MAX;
  bool stall = false;
  int fail_result = 0;
  int writes = 0;
  int64_t largest_request = 0;

  static int write(ORLIX_Stream *s, const void *buf, int64_t n, uint64_t *count,
                   ORLIX_ErrCtx *ctx) {
    auto *p = static_cast<PieceSink *>(s->data);
    ++p->writes;
    p->largest_request = std::max(p->largest_request, n);
    if (p->data.size() >= p->limit) {
      orlix_err_ctx_put(ctx, kTestKind, 2, ORLIX_ERR_STREAM_WRITE_FAIL, "Write stream fail");
      return p->fail_result;
    }
    size_t take = std::min({static_cast<size_t>(n), p->piece, p->limit - p->data.size()});
    if (p->stall && p->writes % 2 == 1) take = 0;
    p->data.append(static_cast<const char *>(buf), take);
    *count = take;
    return 1;
  }
  static constexpr ORLIX_StreamMethod kMethod = {nullptr, write, nullptr, nullptr};

  ORLIX_Stream *make() { return make_stream(&kMethod, kTestSourceType, this); }
};

inline std::string read_all(ORLIX_Stream *s, int64_t piece = 4096) {
  std::string out;
  std::string buf(static_cast<size_t>(piece), '\0');
  for (uint64_t n = 0; orlix_stream_read(s, buf.data(), piece, &n, nullptr) == 1 && n > 0;)
    out.append(buf.data(), n);
  return out;
}

}  // namespace orlix_test
