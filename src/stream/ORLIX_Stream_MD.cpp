// Digest filters: bytes written pass unchanged to the next stream and are
// hashed with a caller-supplied hash table.
#include "stream/ORLIX_Stream_MD.hpp"

#include <cstring>

#include "core/error.hpp"
#include "core/memory.hpp"
#include "stream/filter.hpp"

namespace {

constexpr const char kModule[] = "ORLIX_Stream_MD";

int md_read(ORLIX_Stream *stream, void *buffer, int64_t length, uint64_t *count,
            ORLIX_ErrCtx *ctx) {
  return orlix::md::read_through(stream, buffer, length, count, ctx, kModule, __LINE__);
}

int md_write(ORLIX_Stream *stream, const void *buffer, int64_t length, uint64_t *count,
             ORLIX_ErrCtx *ctx) {
  return orlix::md::write_through(stream, buffer, length, count, ctx, kModule, __LINE__);
}

// Finishes the digest. The hash's final writes into its own context, from
// whose first bytes the digest is copied out: that is the contract callers'
// tables are written against. The context is not restarted.
int finish(orlix::md::Digest *d, void *argument, ORLIX_ErrCtx *ctx) {
  if (argument == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  const uint32_t n = d->method.md_length();
  if (d->method.md_final(d->context, static_cast<unsigned char *>(d->context)) != 1)
    return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_MD_FINAL);
  std::memcpy(argument, d->context, n);
  return 1;
}

int md_ctrl(ORLIX_Stream *stream, int64_t code, void *argument, ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  auto *d = static_cast<orlix::md::Digest *>(stream->data);
  if (d == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD);
  if (stream->next == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_NO_SINK);
  if (code == ORLIX_CTRL_MD_FINAL) return finish(d, argument, ctx);
  if (const int r = orlix::md::common_ctrl(d, code, argument, ctx, kModule); r >= 0) return r;
  return orlix_stream_ctrl(stream->next, code, argument, ctx);
}

void md_destroy(ORLIX_Stream *stream) {
  if (stream == nullptr || stream->type != ORLIX_STREAM_TYPE_MD || stream->data == nullptr)
    return;
  auto *d = static_cast<orlix::md::Digest *>(stream->data);
  orlix::md::release_digest(d);
  orlix_free(d);
  stream->data = nullptr;
}

constexpr ORLIX_StreamMethod md_method = {md_read, md_write, md_destroy, md_ctrl};

ORLIX_Stream *wrap(orlix::md::Digest *d) {
  auto *stream = orlix::alloc_record<ORLIX_Stream>(kModule, __LINE__);
  if (stream == nullptr) return nullptr;
  *stream = ORLIX_Stream{&md_method, ORLIX_STREAM_TYPE_MD, d, nullptr, nullptr};
  return stream;
}

}  // namespace

namespace orlix::md {

bool method_complete(const ORLIX_MDMethod &m) {
  return m.md_new != nullptr && m.md_free != nullptr && m.md_length != nullptr &&
         m.md_property != nullptr && m.md_init != nullptr && m.md_final != nullptr &&
         m.md_blocksize != nullptr;
}

bool init_digest(Digest *d, const ORLIX_MDMethod &m, const char *module, ORLIX_ErrCtx *ctx) {
  d->method = m;
  d->digest = nullptr;
  d->context = m.md_new();
  if (d->context == nullptr) return orlix::fail(ctx, module, __LINE__, ORLIX_ERR_OUT_OF_MEMORY);
  m.md_init(d->context);
  d->digest = orlix::alloc_bytes(m.md_length(), module, __LINE__);
  if (d->digest == nullptr) {
    m.md_free(d->context);
    d->context = nullptr;
    return orlix::fail(ctx, module, __LINE__, ORLIX_ERR_OUT_OF_MEMORY);
  }
  return true;
}

void release_digest(Digest *d) {
  if (d->context != nullptr) d->method.md_free(d->context);
  orlix_free(d->digest);
  d->context = nullptr;
  d->digest = nullptr;
}

int write_through(ORLIX_Stream *stream, const void *buffer, int64_t length, uint64_t *count,
                  ORLIX_ErrCtx *ctx, const char *module, int line) {
  // The buffer is left to the next stream's check.
  const int checked = check_filter_call<Digest>(stream, buffer, length, count, ctx, module, line,
                                                nullptr, 0, false);
  if (checked != kFilterProceed) return checked;
  auto *d = static_cast<Digest *>(stream->data);
  uint64_t taken = 0;
  const int r = orlix_stream_write(stream->next, buffer, length, &taken, ctx);
  if (r != 1) return r;
  // A table without update cannot hash anything: that is an update failure.
  if (d->method.md_update == nullptr || d->method.md_update(d->context, buffer, taken) != 1)
    return orlix::fail(ctx, module, __LINE__, ORLIX_ERR_STREAM_MD_UPDATE);
  if (count != nullptr) *count = taken;
  return 1;
}

int read_through(ORLIX_Stream *stream, void *buffer, int64_t length, uint64_t *count,
                 ORLIX_ErrCtx *ctx, const char *module, int line) {
  const int checked = check_filter_call<Digest>(stream, buffer, length, count, ctx, module, line,
                                                nullptr, 0, false);
  if (checked != kFilterProceed) return checked;
  return orlix_stream_read(stream->next, buffer, length, count, ctx);
}

int common_ctrl(const Digest *d, int64_t code, void *argument, ORLIX_ErrCtx *ctx,
                const char *module) {
  if (code != ORLIX_CTRL_MD_LENGTH && code != ORLIX_CTRL_MD_PROPERTY) return -1;
  if (argument == nullptr) return orlix::fail(ctx, module, __LINE__, ORLIX_ERR_NULL_POINT);
  if (code == ORLIX_CTRL_MD_LENGTH)
    *static_cast<uint64_t *>(argument) = d->method.md_length();
  else
    *static_cast<uint32_t *>(argument) = d->method.md_property();
  return 1;
}

int64_t hash(const ORLIX_MDMethod *method, const void *bytes, int64_t length,
             unsigned char *output, ORLIX_ErrCtx *ctx) {
  ORLIX_Stream *sink = orlix_stream_new_null(ctx);
  if (sink == nullptr) return -1;
  ORLIX_Stream *filter = orlix_stream_new_md(method, ctx);
  if (filter == nullptr || orlix_stream_push(filter, sink) != 1) {
    orlix_stream_free(filter);
    orlix_stream_free(sink);
    return -1;
  }
  uint64_t n = 0;
  const bool ok = orlix_stream_writen(filter, bytes, length, ctx) == 1 &&
                  orlix_stream_ctrl(filter, ORLIX_CTRL_MD_LENGTH, &n, ctx) == 1 &&
                  orlix_stream_ctrl(filter, ORLIX_CTRL_MD_FINAL, output, ctx) == 1;
  orlix_stream_freeall(filter);
  return ok ? static_cast<int64_t>(n) : -1;
}

}  // namespace orlix::md

extern "C" {

ORLIX_Stream *orlix_stream_new_md(const ORLIX_MDMethod *method, ORLIX_ErrCtx *ctx) {
  if (method == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_NULL_POINT);
  if (!orlix::md::method_complete(*method)) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_STREAM_BAD_MD);
  orlix::Owned<orlix::md::Digest> d(orlix::alloc_record<orlix::md::Digest>(kModule, __LINE__));
  if (!d) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  if (!orlix::md::init_digest(d.get(), *method, kModule, ctx)) return nullptr;
  ORLIX_Stream *stream = wrap(d.get());
  if (stream == nullptr) {
    orlix::md::release_digest(d.get());
    return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  }
  d.release();
  return stream;
}

ORLIX_Stream *orlix_stream_md_dup(ORLIX_Stream *stream) {
  if (stream == nullptr || stream->type != ORLIX_STREAM_TYPE_MD || stream->data == nullptr)
    return nullptr;
  const auto *from = static_cast<const orlix::md::Digest *>(stream->data);
  if (from->method.md_dup == nullptr) return nullptr;
  orlix::Owned<orlix::md::Digest> d(orlix::alloc_record<orlix::md::Digest>(kModule, __LINE__));
  if (!d) return nullptr;
  d->method = from->method;
  d->digest = nullptr;
  d->context = from->method.md_dup(from->context);
  if (d->context == nullptr) return nullptr;
  const uint32_t n = from->method.md_length();
  d->digest = orlix::alloc_bytes(n, kModule, __LINE__);
  ORLIX_Stream *copy = d->digest != nullptr ? wrap(d.get()) : nullptr;
  if (copy == nullptr) {
    orlix::md::release_digest(d.get());
    return nullptr;
  }
  std::memcpy(d->digest, from->digest, n);
  d.release();
  return copy;
}

}  // extern "C"
