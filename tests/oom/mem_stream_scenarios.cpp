// Memory streams in every mode, and stream-to-stream copies between them.
#include <cstring>
#include <deque>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "scenario_util.hpp"
#include "stream/ORLIX_Stream_Mem.hpp"
#include "sweep.hpp"

namespace {

using oom::Chain;
using oom::CtrlValue;

constexpr const char kMem[] = "ORLIX_Stream_Mem";

int64_t CapacityOf(ORLIX_Stream *s) { return orlix::mem_of(s)->capacity; }

// Writes n bytes in one call and checks the count; on failure checks that it
// was reported as out of memory and returns false.
bool WriteAll(ORLIX_Stream *s, const unsigned char *data, int64_t n, ORLIX_ErrCtx *ctx) {
  uint64_t count = 0;
  orlix_err_ctx_clean(ctx);
  const int r = orlix_stream_write(s, data, n, &count, ctx);
  if (r != 1) {
    EXPECT_EQ(r, 0);
    oom::ExpectOutOfMemory(*ctx, kMem);
    return false;
  }
  EXPECT_EQ(count, static_cast<uint64_t>(n));
  return true;
}

// A fresh growable stream of either mode: made, written within its first
// capacity (no allocation), read back.
bool NewGrowable(bool queue) {
  ORLIX_ErrCtx ctx{};
  Chain s(queue ? orlix_stream_new_rwspecmem(0, &ctx) : orlix_stream_new_mem(0, &ctx));
  if (!s) {
    oom::ExpectOutOfMemory(ctx, kMem);
    return false;
  }
  EXPECT_EQ(CapacityOf(s.get()), 4096);
  const auto data = oom::Pattern(300);
  const int64_t before = oom::AllocationCalls();
  EXPECT_TRUE(WriteAll(s.get(), data.data(), 300, &ctx));
  EXPECT_EQ(oom::AllocationCalls(), before) << "a write within capacity allocated";
  EXPECT_EQ(oom::Contents(s.get()), data);
  return true;
}

bool NewReadOnly(int32_t copy) {
  ORLIX_ErrCtx ctx{};
  const auto data = oom::Pattern(300);
  Chain s(orlix_stream_new_romem(data.data(), 300, copy, &ctx));
  if (!s) {
    oom::ExpectOutOfMemory(ctx, kMem);
    return false;
  }
  EXPECT_EQ(oom::Contents(s.get()), data);
  EXPECT_EQ(orlix_stream_write(s.get(), "x", 1, nullptr, &ctx), 0);
  EXPECT_EQ(oom::LastCode(ctx), ORLIX_ERR_STREAM_READONLY);
  return true;
}

// Copies a source of `size` bytes into a small destination; `queue` picks
// the source's mode, which decides between the whole-buffer path and the
// 8192-byte read loop.
bool CopyBetweenStreams(bool queue, int64_t size) {
  ORLIX_ErrCtx ctx{};
  const auto data = oom::Pattern(static_cast<size_t>(size), 7);
  Chain src;
  {
    // Building the source is not what is being swept.
    oom::PauseInjection pause;
    src.reset(queue ? orlix_stream_new_rwspecmem(16, nullptr) : orlix_stream_new_mem(16, nullptr));
    EXPECT_TRUE(WriteAll(src.get(), data.data(), size, &ctx));
  }
  Chain dst(orlix_stream_new_mem(16, &ctx));
  if (!dst) {
    oom::ExpectOutOfMemory(ctx, kMem);
    return false;
  }
  uint64_t copied = 12345;
  orlix_err_ctx_clean(&ctx);
  const int r = orlix_stream_writefromstream(dst.get(), src.get(), &copied, &ctx);
  if (r != 1) {
    EXPECT_EQ(r, 0);
    oom::ExpectOutOfMemory(ctx, kMem);
    // Whatever reached the destination is a prefix of the source.
    const auto got = oom::Contents(dst.get());
    EXPECT_LE(got.size(), data.size());
    EXPECT_TRUE(std::equal(got.begin(), got.end(), data.begin()));
    return false;
  }
  EXPECT_EQ(copied, static_cast<uint64_t>(size));
  EXPECT_EQ(oom::Contents(dst.get()), data);
  return true;
}

}  // namespace

ORLIX_OOM_SCENARIO(MemStream, NewShared) { return NewGrowable(false); }

ORLIX_OOM_SCENARIO(MemStream, NewQueue) { return NewGrowable(true); }

ORLIX_OOM_SCENARIO(MemStream, ReadOnlyCopy) { return NewReadOnly(1); }

ORLIX_OOM_SCENARIO(MemStream, ReadOnlyBorrow) { return NewReadOnly(0); }

ORLIX_OOM_SCENARIO(MemStream, DupReadOnly) {
  ORLIX_ErrCtx ctx{};
  Chain base(orlix_stream_new_mem(64, &ctx));
  if (!base) return oom::ExpectOutOfMemory(ctx, kMem), false;
  const auto data = oom::Pattern(200);
  if (!WriteAll(base.get(), data.data(), 200, &ctx)) return false;
  Chain dup(orlix_memstream_dup_readonly(base.get()));
  if (!dup) return false;  // records nothing by design
  EXPECT_EQ(oom::Contents(dup.get()), data);
  return true;
}

// Many writes of varying sizes into a stream that starts at 8 bytes, so that
// it grows again and again. A failed growth must leave the stream as it was
// and still usable.
ORLIX_OOM_SCENARIO(MemStream, SharedGrowth) {
  ORLIX_ErrCtx ctx{};
  Chain s(orlix_stream_new_mem(8, &ctx));
  if (!s) return oom::ExpectOutOfMemory(ctx, kMem), false;
  std::vector<unsigned char> model;
  for (unsigned i = 0; i < 64; ++i) {
    const auto chunk = oom::Pattern(i * 37 % 97 + 1, i);
    const int64_t capacity = CapacityOf(s.get());
    if (!WriteAll(s.get(), chunk.data(), static_cast<int64_t>(chunk.size()), &ctx)) {
      EXPECT_EQ(CapacityOf(s.get()), capacity);
      EXPECT_EQ(CtrlValue(s.get(), ORLIX_CTRL_GET_LENGTH), model.size());
      EXPECT_EQ(CtrlValue(s.get(), ORLIX_CTRL_GET_POS), model.size());
      EXPECT_EQ(oom::Contents(s.get()), model);
      // Still usable: reading left the position at the end, and the same
      // write goes through once memory is there.
      oom::PauseInjection pause;
      EXPECT_TRUE(WriteAll(s.get(), chunk.data(), static_cast<int64_t>(chunk.size()), &ctx));
      model.insert(model.end(), chunk.begin(), chunk.end());
      EXPECT_EQ(oom::Contents(s.get()), model);
      return false;
    }
    model.insert(model.end(), chunk.begin(), chunk.end());
  }
  EXPECT_EQ(CtrlValue(s.get(), ORLIX_CTRL_GET_LENGTH), model.size());
  EXPECT_EQ(oom::Contents(s.get()), model);
  return true;
}

// A queue that is written and read in turns, so that it both compacts in
// place and grows. Unread bytes must survive a failed growth.
ORLIX_OOM_SCENARIO(MemStream, QueueGrowthAndCompaction) {
  ORLIX_ErrCtx ctx{};
  Chain q(orlix_stream_new_rwspecmem(64, &ctx));
  if (!q) return oom::ExpectOutOfMemory(ctx, kMem), false;
  std::deque<unsigned char> model;
  int compactions = 0;
  int growths = 0;
  for (unsigned i = 0; i < 48; ++i) {
    const auto chunk = oom::Pattern(i * 53 % 113 + 20, i);
    const auto n = static_cast<int64_t>(chunk.size());
    const orlix::MemStream *m = orlix::mem_of(q.get());
    const int64_t capacity = m->capacity;
    const bool needs_room = n > capacity - m->write_pos;
    if (!WriteAll(q.get(), chunk.data(), n, &ctx)) {
      EXPECT_EQ(CapacityOf(q.get()), capacity);
      EXPECT_EQ(CtrlValue(q.get(), ORLIX_CTRL_GET_LENGTH), model.size());
      std::vector<unsigned char> unread(model.size() + 1);
      uint64_t got = 0;
      EXPECT_EQ(orlix_stream_read(q.get(), unread.data(), static_cast<int64_t>(unread.size()), &got,
                                  nullptr),
                1);
      unread.resize(got);
      EXPECT_EQ(unread, std::vector<unsigned char>(model.begin(), model.end()));
      return false;
    }
    if (needs_room) ++(CapacityOf(q.get()) == capacity ? compactions : growths);
    model.insert(model.end(), chunk.begin(), chunk.end());

    // Take back most of what is queued: reads never allocate.
    std::vector<unsigned char> out(model.size() * 3 / 4 + i % 5);
    uint64_t got = 0;
    EXPECT_EQ(
        orlix_stream_read(q.get(), out.data(), static_cast<int64_t>(out.size()), &got, nullptr), 1);
    EXPECT_EQ(got, out.size());
    EXPECT_TRUE(std::equal(out.begin(), out.end(), model.begin()));
    model.erase(model.begin(), model.begin() + static_cast<ptrdiff_t>(got));
  }
  EXPECT_GT(compactions, 0);
  EXPECT_GT(growths, 0);
  EXPECT_EQ(CtrlValue(q.get(), ORLIX_CTRL_GET_LENGTH), model.size());
  return true;
}

// Code 19 reserves room once; the writes it was made for then take no
// allocation. A refused reserve changes nothing and records nothing.
ORLIX_OOM_SCENARIO(MemStream, Reserve) {
  ORLIX_ErrCtx ctx{};
  Chain s(orlix_stream_new_mem(16, &ctx));
  if (!s) return oom::ExpectOutOfMemory(ctx, kMem), false;
  const auto head = oom::Pattern(10);
  EXPECT_TRUE(WriteAll(s.get(), head.data(), 10, &ctx));
  int64_t extra = 5000;
  orlix_err_ctx_clean(&ctx);
  if (orlix_stream_ctrl(s.get(), ORLIX_CTRL_RESERVE, &extra, &ctx) != 1) {
    EXPECT_EQ(oom::EntryCount(ctx), 0);
    EXPECT_EQ(CapacityOf(s.get()), 16);
    EXPECT_EQ(oom::Contents(s.get()), head);
    return false;
  }
  EXPECT_GE(CapacityOf(s.get()), 5010);
  const auto body = oom::Pattern(5000, 2);
  const int64_t before = oom::AllocationCalls();
  EXPECT_TRUE(WriteAll(s.get(), body.data(), 5000, &ctx));
  EXPECT_EQ(oom::AllocationCalls(), before) << "writing reserved room allocated";
  auto all = head;
  all.insert(all.end(), body.begin(), body.end());
  EXPECT_EQ(oom::Contents(s.get()), all);
  return true;
}

// The encoder's pattern: write, add a NUL, detach, free the stream, keep the
// buffer and release it with orlix_free.
ORLIX_OOM_SCENARIO(MemStream, DetachAndFree) {
  ORLIX_ErrCtx ctx{};
  Chain s(orlix_stream_new_mem(8, &ctx));
  if (!s) return oom::ExpectOutOfMemory(ctx, kMem), false;
  static const char kText[] = "detached text, long enough to grow";
  if (!WriteAll(s.get(), reinterpret_cast<const unsigned char *>(kText), sizeof kText, &ctx))
    return false;
  unsigned char *buffer = nullptr;
  int64_t length = 0;
  EXPECT_EQ(orlix_memstreamdeatch(s.get(), &buffer, &length), 1);
  // A detached stream can no longer grow.
  const auto big = oom::Pattern(static_cast<size_t>(CapacityOf(s.get())) + 1);
  orlix_err_ctx_clean(&ctx);
  EXPECT_EQ(
      orlix_stream_write(s.get(), big.data(), static_cast<int64_t>(big.size()), nullptr, &ctx), 0);
  EXPECT_EQ(oom::LastCode(ctx), ORLIX_ERR_STREAM_CANNOT_GROW);
  s.reset();
  EXPECT_EQ(length, static_cast<int64_t>(sizeof kText));
  EXPECT_STREQ(reinterpret_cast<const char *>(buffer), kText);
  orlix_free(buffer);
  return true;
}

// The destination's pre-sizing may fail silently; the copy then grows it the
// ordinary way, so a single failure there is absorbed.
ORLIX_OOM_SCENARIO(MemStream, CopySharedToShared, .absorbs_failures = true) {
  return CopyBetweenStreams(false, 5000);
}

ORLIX_OOM_SCENARIO(MemStream, CopyQueueToShared, .absorbs_failures = true) {
  return CopyBetweenStreams(true, 20000);
}
