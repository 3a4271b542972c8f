// Small helpers shared by the scenarios.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "ORLIX_Error.h"
#include "ORLIX_Stream.h"
#include "owned.hpp"

namespace oom {

using Chain = orlix_test::Chain;

// Deterministic, non-repeating-looking bytes.
inline std::vector<unsigned char> Pattern(size_t n, unsigned seed = 1) {
  std::vector<unsigned char> v(n);
  uint32_t x = 2463534242u ^ seed;
  for (auto &b : v) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    b = static_cast<unsigned char>(x);
  }
  return v;
}

inline int32_t EntryCount(const ORLIX_ErrCtx &ctx) {
  return (ctx.head - ctx.tail + ORLIX_ERR_RING_SIZE) % ORLIX_ERR_RING_SIZE;
}

inline uint32_t LastCode(const ORLIX_ErrCtx &ctx) {
  uint32_t code = 0;
  orlix_err_ctx_geterrcode(&ctx, &code);
  return code;
}

// A failure must have recorded exactly one entry: `code` with its table
// text, reported by `module`.
inline void ExpectOnlyError(const ORLIX_ErrCtx &ctx, uint32_t code, const char *module) {
  ASSERT_EQ(EntryCount(ctx), 1);
  const ORLIX_ErrEntry &e = ctx.entries[ctx.tail];
  EXPECT_EQ(e.code, code);
  EXPECT_STREQ(e.module, module);
  const char *text = orlix_igetGeneralError(static_cast<int32_t>(code));
  if (*text == '\0') text = orlix_igetStreamError(static_cast<int32_t>(code));
  EXPECT_STREQ(e.description, text);
}

inline void ExpectOutOfMemory(const ORLIX_ErrCtx &ctx, const char *module) {
  ExpectOnlyError(ctx, ORLIX_ERR_OUT_OF_MEMORY, module);
}

// A ctrl code that stores one unsigned 64-bit value; ~0 when it fails.
inline uint64_t CtrlValue(ORLIX_Stream *s, int64_t code) {
  uint64_t v = 0;
  return orlix_stream_ctrl(s, code, &v, nullptr) == 1 ? v : ~uint64_t{0};
}

// Everything a memory stream holds, read from its start. Moves its position.
inline std::vector<unsigned char> Contents(ORLIX_Stream *s) {
  std::vector<unsigned char> out;
  if (orlix_stream_ctrl(s, ORLIX_CTRL_RESET, nullptr, nullptr) != 1) return out;
  unsigned char buf[4096];
  for (;;) {
    uint64_t n = 0;
    if (orlix_stream_read(s, buf, sizeof buf, &n, nullptr) != 1 || n == 0) break;
    out.insert(out.end(), buf, buf + n);
  }
  return out;
}

}  // namespace oom
