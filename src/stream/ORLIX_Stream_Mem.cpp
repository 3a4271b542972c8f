// Memory streams: a growable buffer with one shared position, a read-only
// view of caller bytes, a queue with separate read and write positions, and
// a buffer handed over to the caller.
#include <algorithm>
#include <cstring>

#include "ORLIX_Stream.h"
#include "core/error.hpp"
#include "core/memory.hpp"
#include "stream/ORLIX_Stream_Mem.hpp"

using orlix::kMemNotOwned;
using orlix::kMemQueue;
using orlix::kMemReadOnly;
using orlix::MemStream;

namespace {

constexpr const char kModule[] = "ORLIX_Stream_Mem";
constexpr int64_t kDefaultCapacity = 4096;

bool queue_mode(const MemStream *m) { return (m->flags & kMemQueue) != 0; }

// Moves the unread bytes [read_pos, length) to the front of `to` (which may
// be the current buffer) and rebases every position on read_pos.
void rebase_unread(MemStream *m, unsigned char *to) {
  const int64_t unread = m->length - m->read_pos;
  std::memmove(to, m->buffer + m->read_pos, static_cast<size_t>(unread));
  m->length = unread;
  m->write_pos -= m->read_pos;
  m->read_pos = 0;
}

// Makes room for n more bytes at the write position. Shared mode grows by
// at least the old capacity; queue mode first compacts in place.
bool make_room(MemStream *m, int64_t n, ORLIX_ErrCtx *ctx) {
  if ((m->flags & kMemNotOwned) != 0) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_CANNOT_GROW);
  // Sizes that cannot be represented are as unavailable as exhausted memory.
  if (n > INT64_MAX - 8 - m->capacity - m->length)
    return ORLIX_FAIL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  if (!queue_mode(m)) {
    const int64_t capacity = orlix::round_up8(m->write_pos + n + m->capacity);
    unsigned char *buffer = orlix::alloc_bytes(capacity, kModule, __LINE__);
    if (buffer == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
    std::memcpy(buffer, m->buffer, static_cast<size_t>(m->write_pos));
    orlix_free(m->buffer);
    m->buffer = buffer;
    m->capacity = capacity;
    return true;
  }
  // A queue whose writer trails its reader cannot be compacted; this reports
  // as out of memory, as it always has.
  if (m->write_pos < m->read_pos) return ORLIX_FAIL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  if (n <= m->capacity + m->read_pos - m->length) {
    rebase_unread(m, m->buffer);
    return true;
  }
  const int64_t capacity = orlix::round_up8(m->capacity + n + m->length - m->read_pos);
  unsigned char *buffer = orlix::alloc_bytes(capacity, kModule, __LINE__);
  if (buffer == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  rebase_unread(m, buffer);
  orlix_free(m->buffer);
  m->buffer = buffer;
  m->capacity = capacity;
  return true;
}

int mem_read(ORLIX_Stream *stream, void *buffer, int64_t n, uint64_t *count, ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  auto *m = static_cast<MemStream *>(stream->data);
  if (m == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD);
  if (n < 0) return ORLIX_FAIL(ctx, ORLIX_ERR_BAD_LENGTH);
  if (n == 0 || m->read_pos == m->length) {
    if (count != nullptr) *count = 0;
    return 1;
  }
  const int64_t available = m->length - m->read_pos;
  if (available < 0) {
    orlix::raise_with_text_of(ctx, kModule, __LINE__, ORLIX_ERR_UNEXPECTED, ORLIX_ERR_BAD_LENGTH);
    return 0;
  }
  if (buffer == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  const int64_t take = std::min(n, available);
  std::memcpy(buffer, m->buffer + m->read_pos, static_cast<size_t>(take));
  m->read_pos += take;
  m->write_pos = queue_mode(m) ? std::max(m->write_pos, m->read_pos) : m->read_pos;
  if (count != nullptr) *count = static_cast<uint64_t>(take);
  return 1;
}

int mem_write(ORLIX_Stream *stream, const void *buffer, int64_t n, uint64_t *count,
              ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  auto *m = static_cast<MemStream *>(stream->data);
  if (m == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD);
  if ((m->flags & kMemReadOnly) != 0) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_READONLY);
  if (n < 0) return ORLIX_FAIL(ctx, ORLIX_ERR_BAD_LENGTH);
  if (n == 0) {
    if (count != nullptr) *count = 0;
    return 1;
  }
  if (buffer == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  const int64_t room = m->capacity - m->write_pos;
  if (room < 0) {
    orlix::raise_with_text_of(ctx, kModule, __LINE__, ORLIX_ERR_UNEXPECTED, ORLIX_ERR_BAD_LENGTH);
    return 0;
  }
  if (n > room && !make_room(m, n, ctx)) return 0;
  std::memcpy(m->buffer + m->write_pos, buffer, static_cast<size_t>(n));
  m->write_pos += n;
  m->length = std::max(m->length, m->write_pos);
  if (!queue_mode(m)) m->read_pos = m->write_pos;
  if (count != nullptr) *count = static_cast<uint64_t>(n);
  return 1;
}

// Reads a position argument and checks 0 <= p < length. A position equal to
// the length is refused on purpose.
bool position_arg(const MemStream *m, const void *argument, int64_t *p, ORLIX_ErrCtx *ctx) {
  if (argument == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  *p = *static_cast<const int64_t *>(argument);
  if (*p < 0 || *p >= m->length) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD_POS);
  return true;
}

bool store_u64(void *argument, int64_t value, ORLIX_ErrCtx *ctx) {
  if (argument == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  *static_cast<uint64_t *>(argument) = static_cast<uint64_t>(value);
  return true;
}

// Code 19: room for n more bytes, only while every position is at the end.
int reserve(MemStream *m, const void *argument, ORLIX_ErrCtx *ctx) {
  if ((m->flags & kMemReadOnly) != 0) return 0;
  if (argument == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  if (m->read_pos != m->write_pos || m->write_pos != m->length) return 0;
  const int64_t n = *static_cast<const int64_t *>(argument);
  if (n <= m->capacity - m->read_pos) return 1;
  // A handed-over buffer belongs to the caller: reallocating it here would
  // release the caller's memory, so growing it is refused.
  if ((m->flags & kMemNotOwned) != 0) return 0;
  if (n > INT64_MAX - 8 - m->read_pos) return 0;
  const int64_t capacity = orlix::round_up8(m->read_pos + n);
  unsigned char *buffer = orlix::alloc_bytes(capacity, kModule, __LINE__);
  if (buffer == nullptr) return 0;
  std::memcpy(buffer, m->buffer, static_cast<size_t>(m->length));
  orlix_free(m->buffer);
  m->buffer = buffer;
  m->capacity = capacity;
  return 1;
}

int mem_ctrl(ORLIX_Stream *stream, int64_t code, void *argument, ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  auto *m = static_cast<MemStream *>(stream->data);
  if (m == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD);
  int64_t p = 0;
  switch (code) {
    case ORLIX_CTRL_RESET:
      m->read_pos = m->write_pos = 0;
      return 1;
    case ORLIX_CTRL_GET_LENGTH:
      return store_u64(argument, queue_mode(m) ? m->length - m->read_pos : m->length, ctx);
    case ORLIX_CTRL_FLUSH:
      return 1;
    case ORLIX_CTRL_GET_POS:
      if (argument == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
      if (queue_mode(m) && m->read_pos != m->write_pos)
        return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_POS_DIFFER);
      return store_u64(argument, m->read_pos, ctx);
    case ORLIX_CTRL_SET_POS:
      if (!position_arg(m, argument, &p, ctx)) return 0;
      m->read_pos = m->write_pos = p;
      return 1;
    case ORLIX_CTRL_EOF:
      return m->read_pos == m->length ? 1 : 0;
    case ORLIX_CTRL_GET_READ_POS:
      return store_u64(argument, m->read_pos, ctx);
    case ORLIX_CTRL_GET_WRITE_POS:
      return store_u64(argument, m->write_pos, ctx);
    case ORLIX_CTRL_SET_READ_POS:
      if (!position_arg(m, argument, &p, ctx)) return 0;
      m->read_pos = p;
      m->write_pos = queue_mode(m) ? std::max(m->write_pos, p) : p;
      return 1;
    case ORLIX_CTRL_SET_WRITE_POS:
      if (!position_arg(m, argument, &p, ctx)) return 0;
      m->write_pos = p;
      if (!queue_mode(m)) {
        m->read_pos = p;
        return 1;
      }
      // A queue's writer may not go behind its reader. The write position has
      // already moved when this is refused; callers have relied on that.
      if (m->read_pos > p) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD_POS);
      return 1;
    case ORLIX_CTRL_RESERVE:
      return reserve(m, argument, ctx);
    default:
      return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD_CTRL);
  }
}

void mem_destroy(ORLIX_Stream *stream) {
  if (stream == nullptr || stream->type != ORLIX_STREAM_TYPE_MEM || stream->data == nullptr)
    return;
  auto *m = static_cast<MemStream *>(stream->data);
  if ((m->flags & kMemNotOwned) == 0) orlix_free(m->buffer);
  orlix_free(m);
  stream->data = nullptr;
}

constexpr ORLIX_StreamMethod mem_method = {mem_read, mem_write, mem_destroy, mem_ctrl};

// Allocates the private record, then the buffer (when `copy_from` is given or
// `owned` is set), then the stream record, releasing what was taken when a
// later step fails.
ORLIX_Stream *make_mem(unsigned char *borrowed, const void *copy_from, int64_t capacity,
                       int64_t length, uint32_t flags, ORLIX_ErrCtx *ctx) {
  orlix::Owned<MemStream> m(orlix::alloc_record<MemStream>(kModule, __LINE__));
  if (!m) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  orlix::Owned<unsigned char> buffer;
  if (borrowed == nullptr && (flags & kMemNotOwned) == 0) {
    buffer.reset(orlix::alloc_bytes(capacity, kModule, __LINE__));
    if (!buffer) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
    if (copy_from != nullptr && length > 0)
      std::memcpy(buffer.get(), copy_from, static_cast<size_t>(length));
  }
  auto *stream = orlix::alloc_record<ORLIX_Stream>(kModule, __LINE__);
  if (stream == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  *m = MemStream{buffer ? buffer.release() : borrowed, length, capacity, flags, 0, 0};
  *stream = ORLIX_Stream{&mem_method, ORLIX_STREAM_TYPE_MEM, m.release(), nullptr, nullptr};
  return stream;
}

ORLIX_Stream *new_growable(int64_t initial_capacity, uint32_t flags, ORLIX_ErrCtx *ctx) {
  if (initial_capacity < 0) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_BAD_LENGTH);
  const int64_t capacity =
      initial_capacity == 0 ? kDefaultCapacity : orlix::round_up8(initial_capacity);
  return make_mem(nullptr, nullptr, capacity, 0, flags, ctx);
}

}  // namespace

extern "C" {

ORLIX_Stream *orlix_stream_new_mem(int64_t initial_capacity, ORLIX_ErrCtx *ctx) {
  return new_growable(initial_capacity, 0, ctx);
}

ORLIX_Stream *orlix_stream_new_rwspecmem(int64_t initial_capacity, ORLIX_ErrCtx *ctx) {
  return new_growable(initial_capacity, kMemQueue, ctx);
}

ORLIX_Stream *orlix_stream_new_romem(const void *data, int64_t length, int32_t copy,
                                     ORLIX_ErrCtx *ctx) {
  if (length < 0) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_BAD_LENGTH);
  if (length > 0 && data == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_NULL_POINT);
  if (copy != 0) return make_mem(nullptr, data, length, length, kMemReadOnly, ctx);
  auto *borrowed = static_cast<unsigned char *>(const_cast<void *>(data));
  return make_mem(borrowed, nullptr, length, length, kMemNotOwned | kMemReadOnly, ctx);
}

ORLIX_Stream *orlix_memstream_dup_readonly(ORLIX_Stream *stream) {
  if (stream == nullptr || stream->prev != nullptr || stream->next != nullptr) return nullptr;
  const MemStream *m = orlix::mem_of(stream);
  if (m == nullptr || queue_mode(m)) return nullptr;
  return orlix_stream_new_romem(m->buffer, m->length, 0, nullptr);
}

int orlix_memstreamdeatch(ORLIX_Stream *stream, unsigned char **buffer, int64_t *length) {
  MemStream *m = orlix::mem_of(stream);
  if (m == nullptr || queue_mode(m) || buffer == nullptr || length == nullptr) return 0;
  m->flags = kMemNotOwned;
  *buffer = m->buffer;
  *length = m->length;
  return 1;
}

}  // extern "C"
