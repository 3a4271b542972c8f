// The null sink: takes every write and keeps nothing; it cannot be read.
#include "ORLIX_Stream.h"
#include "core/error.hpp"
#include "core/memory.hpp"

namespace {

constexpr const char kModule[] = "ORLIX_Stream_Null";

int null_read(ORLIX_Stream *, void *, int64_t, uint64_t *, ORLIX_ErrCtx *ctx) {
  return ORLIX_FAIL(ctx, ORLIX_ERR_NOT_SUPPORTED);
}

int null_write(ORLIX_Stream *stream, const void *, int64_t length, uint64_t *count,
               ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  if (length < 0) return ORLIX_FAIL(ctx, ORLIX_ERR_BAD_LENGTH);
  if (count != nullptr) *count = static_cast<uint64_t>(length);
  return 1;
}

int null_ctrl(ORLIX_Stream *, int64_t code, void *, ORLIX_ErrCtx *ctx) {
  if (code == ORLIX_CTRL_FLUSH) return 1;
  return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD_CTRL);
}

void null_destroy(ORLIX_Stream *) {}

constexpr ORLIX_StreamMethod null_method = {null_read, null_write, null_destroy, null_ctrl};

}  // namespace

extern "C" ORLIX_Stream *orlix_stream_new_null(ORLIX_ErrCtx *ctx) {
  auto *stream = orlix::alloc_record<ORLIX_Stream>(kModule, __LINE__);
  if (stream == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  *stream = ORLIX_Stream{&null_method, ORLIX_STREAM_TYPE_NULL, nullptr, nullptr, nullptr};
  return stream;
}
