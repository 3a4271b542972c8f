// The stream chain: generic dispatch, exact reads and writes, linking and
// stream-to-stream copies.
#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"

#include "core/error.hpp"
#include "stream/ORLIX_Stream_Mem.hpp"

namespace {

constexpr const char kModule[] = "ORLIX_Stream";
constexpr int64_t kCopyBufferSize = 8192;

bool is_filter(const ORLIX_Stream *s) { return (s->type & ORLIX_STREAM_FILTER) != 0; }
bool is_source_sink(const ORLIX_Stream *s) { return (s->type & ORLIX_STREAM_SOURCE_SINK) != 0; }

// The chain below top is well formed when its first source/sink is its last
// stream.
bool ends_in_one_sink(const ORLIX_Stream *top) {
  for (const ORLIX_Stream *s = top; s != nullptr; s = s->next)
    if (is_source_sink(s)) return s->next == nullptr;
  return false;
}

ORLIX_Stream *top_of(ORLIX_Stream *s) {
  while (s->prev != nullptr) s = s->prev;
  return s;
}

}  // namespace

extern "C" {

int orlix_stream_read(ORLIX_Stream *stream, void *buffer, int64_t length, uint64_t *count,
                      ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  if (stream->method == nullptr || stream->method->read == nullptr)
    return ORLIX_FAIL(ctx, ORLIX_ERR_NOT_SUPPORTED);
  return stream->method->read(stream, buffer, length, count, ctx);
}

int orlix_stream_write(ORLIX_Stream *stream, const void *buffer, int64_t length, uint64_t *count,
                       ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  if (stream->method == nullptr || stream->method->write == nullptr)
    return ORLIX_FAIL(ctx, ORLIX_ERR_NOT_SUPPORTED);
  return stream->method->write(stream, buffer, length, count, ctx);
}

int orlix_stream_ctrl(ORLIX_Stream *stream, int64_t code, void *argument, ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  if (stream->method == nullptr || stream->method->ctrl == nullptr)
    return ORLIX_FAIL(ctx, ORLIX_ERR_NOT_SUPPORTED);
  return stream->method->ctrl(stream, code, argument, ctx);
}

int orlix_stream_writen(ORLIX_Stream *stream, const void *buffer, int64_t length,
                        ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  if (stream->method == nullptr || stream->method->write == nullptr)
    return ORLIX_FAIL(ctx, ORLIX_ERR_NOT_SUPPORTED);
  if (length < 0) return ORLIX_FAIL(ctx, ORLIX_ERR_BAD_LENGTH);
  const auto *bytes = static_cast<const unsigned char *>(buffer);
  int64_t done = 0;
  // A kind that keeps accepting 0 bytes keeps this loop going; stream kinds
  // must make progress or fail.
  while (done < length) {
    uint64_t n = 0;
    const int r = stream->method->write(stream, bytes + done, length - done, &n, ctx);
    if (r != 1) return r;
    done += static_cast<int64_t>(n);
  }
  return 1;
}

int orlix_stream_readn(ORLIX_Stream *stream, void *buffer, int64_t length, ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  if (stream->method == nullptr || stream->method->read == nullptr)
    return ORLIX_FAIL(ctx, ORLIX_ERR_NOT_SUPPORTED);
  if (length < 0) return ORLIX_FAIL(ctx, ORLIX_ERR_BAD_LENGTH);
  auto *bytes = static_cast<unsigned char *>(buffer);
  int64_t done = 0;
  while (done < length) {
    uint64_t n = 0;
    const int r = stream->method->read(stream, bytes + done, length - done, &n, ctx);
    if (r != 1) return r;
    if (n == 0) return ORLIX_FAIL(ctx, ORLIX_ERR_BAD_LENGTH);  // source ended early
    done += static_cast<int64_t>(n);
  }
  return 1;
}

int orlix_stream_push(ORLIX_Stream *filter, ORLIX_Stream *chain) {
  if (filter == nullptr || chain == nullptr) return 0;
  if (filter->prev != nullptr || filter->next != nullptr) return 0;
  if (is_source_sink(filter) || !is_filter(filter)) return 0;
  if (chain->prev != nullptr || !ends_in_one_sink(chain)) return 0;
  filter->next = chain;
  chain->prev = filter;
  return 1;
}

ORLIX_Stream *orlix_stream_pop(ORLIX_Stream *top) {
  if (top == nullptr || top->prev != nullptr || top->next == nullptr) return nullptr;
  ORLIX_Stream *rest = top->next;
  rest->prev = nullptr;
  top->next = nullptr;
  return rest;
}

ORLIX_Stream *orlix_stream_find_type(ORLIX_Stream *stream, int32_t start, uint32_t type) {
  if (stream == nullptr) return nullptr;
  ORLIX_Stream *s = nullptr;
  switch (start) {
    case ORLIX_FIND_FROM_TOP: s = top_of(stream); break;
    case ORLIX_FIND_FROM_SELF: s = stream; break;
    case ORLIX_FIND_FROM_NEXT: s = stream->next; break;
    default: return nullptr;
  }
  const bool by_bit = type == ORLIX_STREAM_FILTER || type == ORLIX_STREAM_SOURCE_SINK;
  for (; s != nullptr; s = s->next)
    if (by_bit ? (s->type & type) != 0 : s->type == type) return s;
  return nullptr;
}

uint32_t orlix_stream_gettype(const ORLIX_Stream *stream) {
  return stream == nullptr ? 0xFFFFFFFFu : stream->type;
}

ORLIX_Stream *orlix_stream_next(const ORLIX_Stream *stream) {
  return stream == nullptr ? nullptr : stream->next;
}

void orlix_stream_free(ORLIX_Stream *stream) {
  if (stream == nullptr) return;
  if (stream->method != nullptr && stream->method->destroy != nullptr)
    stream->method->destroy(stream);
  orlix_free(stream);
}

void orlix_stream_freeall(ORLIX_Stream *stream) {
  if (stream == nullptr) return;
  ORLIX_Stream *s = top_of(stream);
  while (s != nullptr) {
    ORLIX_Stream *next = s->next;
    orlix_stream_free(s);
    s = next;
  }
}

int orlix_stream_writefromstream(ORLIX_Stream *dest, ORLIX_Stream *source, uint64_t *copied,
                                 ORLIX_ErrCtx *ctx) {
  if (dest == nullptr || source == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);

  // Reserve the destination once when both lengths are known.
  if (const orlix::MemStream *d = orlix::mem_of(dest);
      d != nullptr && (d->flags & orlix::kMemReadOnly) == 0) {
    uint64_t source_length = 0;
    if (orlix_stream_ctrl(source, ORLIX_CTRL_GET_LENGTH, &source_length, nullptr) == 1) {
      auto extra = static_cast<int64_t>(source_length);
      orlix_stream_ctrl(dest, ORLIX_CTRL_RESERVE, &extra, nullptr);
    }
  }

  // A shared-mode memory source is written out whole, whatever its position.
  if (const orlix::MemStream *m = orlix::mem_of(source);
      m != nullptr && (m->flags & orlix::kMemQueue) == 0) {
    const int r = orlix_stream_writen(dest, m->buffer, m->length, ctx);
    if (r != 1) return r;
    if (copied != nullptr) *copied = static_cast<uint64_t>(m->length);
    return 1;
  }

  const int rewound = orlix_stream_ctrl(source, ORLIX_CTRL_RESET, nullptr, ctx);
  if (rewound != 1) return rewound;

  unsigned char buffer[kCopyBufferSize];
  uint64_t total = 0;
  for (;;) {
    // Reads report into a private context: a read that fails at the end of
    // the source is the normal way for some kinds to end, not an error.
    ORLIX_ErrCtx read_errors{};
    uint64_t n = 0;
    const int r = orlix_stream_read(source, buffer, kCopyBufferSize, &n, &read_errors);
    if (r != 1 || n == 0) {
      if (orlix_stream_ctrl(source, ORLIX_CTRL_EOF, nullptr, nullptr) != 1) {
        orlix::forward_last(read_errors, ctx);
        return 0;
      }
      if (copied != nullptr) *copied = total;
      return 1;
    }
    const int w = orlix_stream_writen(dest, buffer, static_cast<int64_t>(n), ctx);
    if (w != 1) return w;
    total += n;
  }
}

}  // extern "C"
