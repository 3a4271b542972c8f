// Runs a script of operations on four memory streams - shared mode, queue
// mode, a read-only copy and a read-only borrow - and checks every result,
// count, byte, error code and the stream's whole state against a model of
// the memory-stream algorithms after each step.
//
// Input: [shared capacity] [queue capacity] [read-only length] then
// operations, each an opcode byte followed by its operands.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"
#include "stream/ORLIX_Stream_Mem.hpp"

namespace {

constexpr uint32_t kReadOnly = 0x00000001u;
constexpr uint32_t kQueue = 0x40000000u;
constexpr uint32_t kNotOwned = 0x80000000u;
constexpr uint32_t kNoError = ORLIX_ERR_NONE;

int64_t RoundUp8(int64_t n) { return (n + 7) / 8 * 8; }

// What an operation should give.
struct Outcome {
  int result = 1;
  uint32_t code = kNoError;  // the entry recorded, or none
  uint64_t count = 0;        // bytes moved, or the value a ctrl stores
  std::vector<uint8_t> bytes;

  static Outcome Fail(uint32_t code) { return Outcome{0, code, 0, {}}; }
  static Outcome Refuse() { return Outcome{0, kNoError, 0, {}}; }
};

struct Model {
  std::vector<uint8_t> buffer;  // capacity bytes; [0, length) meaningful
  int64_t length = 0;
  int64_t capacity = 0;
  uint32_t flags = 0;
  int64_t read_pos = 0;
  int64_t write_pos = 0;

  bool queue() const { return (flags & kQueue) != 0; }

  Outcome Read(int64_t n) {
    if (n < 0) return Outcome::Fail(ORLIX_ERR_BAD_LENGTH);
    Outcome out;
    if (n == 0 || read_pos == length) return out;
    const int64_t take = std::min(n, length - read_pos);
    out.bytes.assign(buffer.begin() + read_pos, buffer.begin() + read_pos + take);
    out.count = static_cast<uint64_t>(take);
    read_pos += take;
    write_pos = queue() ? std::max(write_pos, read_pos) : read_pos;
    return out;
  }

  Outcome Write(const uint8_t *data, int64_t n) {
    if (flags & kReadOnly) return Outcome::Fail(ORLIX_ERR_STREAM_READONLY);
    if (n < 0) return Outcome::Fail(ORLIX_ERR_BAD_LENGTH);
    if (n == 0) return Outcome{};
    if (data == nullptr) return Outcome::Fail(ORLIX_ERR_NULL_POINT);
    if (n > capacity - write_pos) {
      if (flags & kNotOwned) return Outcome::Fail(ORLIX_ERR_STREAM_CANNOT_GROW);
      if (!queue()) {
        // Grows by at least the old capacity; only the bytes before the write
        // position are kept, the rest is about to be overwritten.
        capacity = RoundUp8(write_pos + n + capacity);
        buffer.resize(static_cast<size_t>(capacity));
      } else {
        if (write_pos < read_pos) return Outcome::Fail(ORLIX_ERR_OUT_OF_MEMORY);
        if (n > capacity + read_pos - length) {
          capacity = RoundUp8(capacity + n + length - read_pos);
          buffer.resize(static_cast<size_t>(capacity));
        }
        // Compact: the unread bytes move to the front.
        std::copy(buffer.begin() + read_pos, buffer.begin() + length, buffer.begin());
        length -= read_pos;
        write_pos -= read_pos;
        read_pos = 0;
      }
    }
    std::copy(data, data + n, buffer.begin() + write_pos);
    write_pos += n;
    length = std::max(length, write_pos);
    if (!queue()) read_pos = write_pos;
    return Outcome{1, kNoError, static_cast<uint64_t>(n), {}};
  }

  // Checks a position argument: 0 <= p < length.
  bool PositionOk(int64_t p) const { return p >= 0 && p < length; }

  Outcome Ctrl(int64_t code, bool null_argument, int64_t in) {
    Outcome out;
    auto value = [&](int64_t v) {
      if (null_argument) return Outcome::Fail(ORLIX_ERR_NULL_POINT);
      out.count = static_cast<uint64_t>(v);
      return out;
    };
    switch (code) {
      case ORLIX_CTRL_RESET: read_pos = write_pos = 0; return out;
      case ORLIX_CTRL_GET_LENGTH: return value(queue() ? length - read_pos : length);
      case ORLIX_CTRL_FLUSH: return out;
      case ORLIX_CTRL_GET_POS:
        if (null_argument) return Outcome::Fail(ORLIX_ERR_NULL_POINT);
        if (queue() && read_pos != write_pos) return Outcome::Fail(ORLIX_ERR_STREAM_POS_DIFFER);
        return value(read_pos);
      case ORLIX_CTRL_SET_POS:
        if (null_argument) return Outcome::Fail(ORLIX_ERR_NULL_POINT);
        if (!PositionOk(in)) return Outcome::Fail(ORLIX_ERR_STREAM_BAD_POS);
        read_pos = write_pos = in;
        return out;
      case ORLIX_CTRL_EOF: out.result = read_pos == length ? 1 : 0; return out;
      case ORLIX_CTRL_GET_READ_POS: return value(read_pos);
      case ORLIX_CTRL_GET_WRITE_POS: return value(write_pos);
      case ORLIX_CTRL_SET_READ_POS:
        if (null_argument) return Outcome::Fail(ORLIX_ERR_NULL_POINT);
        if (!PositionOk(in)) return Outcome::Fail(ORLIX_ERR_STREAM_BAD_POS);
        read_pos = in;
        write_pos = queue() ? std::max(write_pos, in) : in;
        return out;
      case ORLIX_CTRL_SET_WRITE_POS:
        if (null_argument) return Outcome::Fail(ORLIX_ERR_NULL_POINT);
        if (!PositionOk(in)) return Outcome::Fail(ORLIX_ERR_STREAM_BAD_POS);
        write_pos = in;
        if (!queue()) read_pos = in;
        // A queue refuses a writer behind its reader, after moving it.
        else if (read_pos > in)
          return Outcome::Fail(ORLIX_ERR_STREAM_BAD_POS);
        return out;
      case ORLIX_CTRL_RESERVE:
        if (flags & kReadOnly) return Outcome::Refuse();
        if (null_argument) return Outcome::Fail(ORLIX_ERR_NULL_POINT);
        if (read_pos != write_pos || write_pos != length) return Outcome::Refuse();
        if (in > capacity - read_pos) {
          // A buffer the caller owns is never reallocated.
          if (flags & kNotOwned) return Outcome::Refuse();
          capacity = RoundUp8(read_pos + in);
          buffer.resize(static_cast<size_t>(capacity));
        }
        return out;
      default: return Outcome::Fail(ORLIX_ERR_STREAM_BAD_CTRL);
    }
  }
};

struct Subject {
  ORLIX_Stream *stream;
  Model model;
  unsigned char *detached = nullptr;  // a handed-over buffer that we now own
};

void CheckOutcome(const char *what, size_t step, size_t which, int result, uint64_t count,
                  const ORLIX_ErrCtx &ctx, const Outcome &want) {
  FUZZ_CHECK(result == want.result, "step %zu stream %zu %s: result %d, model %d", step, which,
             what, result, want.result);
  uint32_t code = 0;
  FUZZ_CHECK(orlix_err_ctx_geterrcode(&ctx, &code) == 1);
  FUZZ_CHECK(code == want.code, "step %zu stream %zu %s: code 0x%X, model 0x%X", step, which, what,
             code, want.code);
  const int32_t entries = (ctx.head - ctx.tail + ORLIX_ERR_RING_SIZE) % ORLIX_ERR_RING_SIZE;
  FUZZ_CHECK(entries == (want.code == kNoError ? 0 : 1), "step %zu: %d entries", step, entries);
  if (entries == 1) {
    const ORLIX_ErrEntry &e = ctx.entries[ctx.tail];
    FUZZ_CHECK(std::strcmp(e.module, "ORLIX_Stream_Mem") == 0);
    const char *text = orlix_igetGeneralError(static_cast<int32_t>(e.code));
    if (*text == '\0') text = orlix_igetStreamError(static_cast<int32_t>(e.code));
    FUZZ_CHECK(std::strcmp(e.description, text) == 0);
  }
  if (result == 1)
    FUZZ_CHECK(count == want.count, "step %zu stream %zu %s: %llu, model %llu", step, which, what,
               static_cast<unsigned long long>(count), static_cast<unsigned long long>(want.count));
}

// The whole private record and the valid bytes match the model.
void CheckState(const Subject &s, size_t step, size_t which) {
  const orlix::MemStream *m = orlix::mem_of(s.stream);
  FUZZ_CHECK(m != nullptr);
  const Model &w = s.model;
  FUZZ_CHECK(m->length == w.length && m->capacity == w.capacity && m->flags == w.flags &&
                 m->read_pos == w.read_pos && m->write_pos == w.write_pos,
             "step %zu stream %zu: length %lld/%lld capacity %lld/%lld flags %X/%X read %lld/%lld "
             "write %lld/%lld",
             step, which, (long long)m->length, (long long)w.length, (long long)m->capacity,
             (long long)w.capacity, m->flags, w.flags, (long long)m->read_pos,
             (long long)w.read_pos, (long long)m->write_pos, (long long)w.write_pos);
  FUZZ_CHECK(fuzz::SameBytes(m->buffer, w.buffer.data(), w.length),
             "step %zu stream %zu: contents differ", step, which);
}

// A position operand: mostly near the valid range, sometimes far outside.
int64_t PositionOperand(uint16_t raw, int64_t length) {
  if (raw & 0x8000) return -static_cast<int64_t>(raw & 0x7FFF) * 977;
  return static_cast<int64_t>(raw) % (length + 3) - 1;
}

constexpr int64_t kUnsupported[] = {0, 3, 4, 5, 9, 10, 12, 13, 14, 20, 21, -1};
constexpr int64_t kWithArgument[] = {2, 7, 8, 15, 16, 17, 18, 19};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  const int64_t shared_capacity = in.u8() % 64;
  const int64_t queue_capacity = in.u8() % 64;
  std::vector<uint8_t> ro_bytes(in.u8() % 48);
  for (size_t i = 0; i < ro_bytes.size(); ++i) ro_bytes[i] = static_cast<uint8_t>(i * 7 + 1);
  std::vector<uint8_t> borrowed = ro_bytes;  // the borrowing stream's storage

  ORLIX_ErrCtx ctx{};
  Subject subjects[4] = {
      {orlix_stream_new_mem(shared_capacity, &ctx), {}},
      {orlix_stream_new_rwspecmem(queue_capacity, &ctx), {}},
      {orlix_stream_new_romem(ro_bytes.data(), static_cast<int64_t>(ro_bytes.size()), 1, &ctx), {}},
      {orlix_stream_new_romem(borrowed.data(), static_cast<int64_t>(borrowed.size()), 0, &ctx), {}},
  };
  const int64_t growable[2] = {shared_capacity == 0 ? 4096 : RoundUp8(shared_capacity),
                               queue_capacity == 0 ? 4096 : RoundUp8(queue_capacity)};
  for (size_t i = 0; i < 4; ++i) {
    FUZZ_CHECK(subjects[i].stream != nullptr);
    Model &m = subjects[i].model;
    if (i < 2) {
      m.capacity = growable[i];
      m.flags = i == 1 ? kQueue : 0;
    } else {
      m.capacity = m.length = static_cast<int64_t>(ro_bytes.size());
      m.flags = i == 2 ? kReadOnly : kNotOwned | kReadOnly;
    }
    m.buffer.assign(static_cast<size_t>(m.capacity), 0);
    std::copy(ro_bytes.begin(), ro_bytes.begin() + m.length, m.buffer.begin());
    CheckState(subjects[i], 0, i);
  }

  std::vector<uint8_t> bytes;
  for (size_t step = 1; !in.empty() && step <= 400; ++step) {
    const uint8_t op = in.u8();
    const uint16_t a = in.u16();
    const uint8_t seed = in.u8();
    for (size_t i = 0; i < 4; ++i) {
      Subject &s = subjects[i];
      Model &w = s.model;
      uint64_t count = 0;
      int result = 0;
      Outcome want;
      const char *what = "";
      fuzz::Clear(&ctx);
      switch (op % 9) {
        case 0: {  // write n bytes
          what = "write";
          const int64_t n = a % 6000;
          bytes.resize(static_cast<size_t>(n));
          for (int64_t j = 0; j < n; ++j) bytes[j] = static_cast<uint8_t>(seed + j * 31);
          count = 0;
          result = orlix_stream_write(s.stream, bytes.data(), n, &count, &ctx);
          want = w.Write(bytes.data(), n);
          break;
        }
        case 1: {  // read n bytes
          what = "read";
          const int64_t n = a % 6000;
          bytes.assign(static_cast<size_t>(n) + 1, 0xEE);
          result = orlix_stream_read(s.stream, bytes.data(), n, &count, &ctx);
          want = w.Read(n);
          if (result == 1 && want.result == 1) {
            FUZZ_CHECK(count == want.count);
            FUZZ_CHECK(fuzz::SameBytes(bytes.data(), want.bytes.data(), count),
                       "step %zu stream %zu: bytes read differ", step, i);
            FUZZ_CHECK(bytes[count] == 0xEE || count == static_cast<uint64_t>(n),
                       "read wrote past its count");
          }
          break;
        }
        case 2:
        case 3: {  // a ctrl code with its argument
          static constexpr int64_t kCodes[] = {1, 2, 6, 7, 8, 11, 15, 16, 17, 18, 19};
          const int64_t code = kCodes[seed % std::size(kCodes)];
          what = "ctrl";
          int64_t in_value = code == ORLIX_CTRL_RESERVE ? static_cast<int64_t>(a % 9000) - 500
                                                        : PositionOperand(a, w.length);
          uint64_t out_value = 0;
          void *argument = (code == 8 || code >= 17) ? static_cast<void *>(&in_value)
                                                     : static_cast<void *>(&out_value);
          result = orlix_stream_ctrl(s.stream, code, argument, &ctx);
          count = out_value;
          want = w.Ctrl(code, false, in_value);
          break;
        }
        case 4: {  // a ctrl code that needs an argument, given none
          what = "ctrl without argument";
          const int64_t code = kWithArgument[seed % std::size(kWithArgument)];
          result = orlix_stream_ctrl(s.stream, code, nullptr, &ctx);
          want = w.Ctrl(code, true, 0);
          break;
        }
        case 5: {  // an unsupported code
          what = "unsupported ctrl";
          uint64_t scratch = 0;
          const int64_t code = kUnsupported[seed % std::size(kUnsupported)];
          result = orlix_stream_ctrl(s.stream, code, &scratch, &ctx);
          want = w.Ctrl(code, false, 0);
          break;
        }
        case 6: {  // bad lengths and a missing buffer
          what = "bad argument";
          const int64_t n = -1 - a % 5;
          if (seed % 3 == 0) {
            result = orlix_stream_read(s.stream, bytes.data(), n, &count, &ctx);
            want = w.Read(n);
          } else if (seed % 3 == 1) {
            result = orlix_stream_write(s.stream, bytes.data(), n, &count, &ctx);
            want = w.Write(bytes.data(), n);
          } else {
            result = orlix_stream_write(s.stream, nullptr, 1 + a % 7, &count, &ctx);
            want = w.Write(nullptr, 1 + a % 7);
          }
          break;
        }
        case 7: {  // hand the buffer over
          what = "detach";
          unsigned char *buffer = nullptr;
          int64_t length = -1;
          const bool owned = (w.flags & kNotOwned) == 0;
          result = orlix_memstreamdeatch(s.stream, &buffer, &length);
          want.result = w.queue() ? 0 : 1;
          if (result == 1) {
            FUZZ_CHECK(buffer == orlix::mem_of(s.stream)->buffer && length == w.length);
            w.flags = kNotOwned;
            if (owned) s.detached = buffer;
          }
          break;
        }
        case 8: {  // a read-only duplicate sees the same bytes
          what = "dup";
          ORLIX_Stream *dup = orlix_memstream_dup_readonly(s.stream);
          result = dup != nullptr ? 1 : 0;
          want.result = w.queue() ? 0 : 1;
          if (dup != nullptr) {
            std::vector<uint8_t> seen(static_cast<size_t>(w.length) + 1);
            uint64_t n = 0;
            FUZZ_CHECK(orlix_stream_read(dup, seen.data(), static_cast<int64_t>(seen.size()), &n,
                                         nullptr) == 1);
            FUZZ_CHECK(n == static_cast<uint64_t>(w.length));
            FUZZ_CHECK(fuzz::SameBytes(seen.data(), w.buffer.data(), n));
            orlix_stream_free(dup);
          }
          break;
        }
      }
      CheckOutcome(what, step, i, result, count, ctx, want);
      CheckState(s, step, i);
    }
  }

  // A borrowing stream writes to the caller's bytes only once it has been
  // detached, which clears its read-only flag.
  const bool borrow_writable = (subjects[3].model.flags & kReadOnly) == 0;
  FUZZ_CHECK(borrow_writable || borrowed == ro_bytes, "a read-only borrow changed its bytes");
  for (Subject &s : subjects) {
    orlix_stream_free(s.stream);
    orlix_free(s.detached);
  }
  return 0;
}
