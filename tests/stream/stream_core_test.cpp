// The chain core: dispatch, exact reads and writes, linking, freeing and
// stream-to-stream copies, over the library's kinds and the test's own.
#include "stream/ORLIX_Stream_Mem.hpp"
#include "stream_test_util.hpp"

using namespace orlix_test;

namespace {

ORLIX_Stream *mem_with(const std::string &text) {
  ORLIX_Stream *s = orlix_stream_new_mem(0, nullptr);
  EXPECT_EQ(orlix_stream_writen(s, text.data(), static_cast<int64_t>(text.size()), nullptr), 1);
  return s;
}

TEST(StreamDispatch, NullStreamMissingTableAndEmptySlots) {
  Ctx ctx;
  char buf[4] = {};
  uint64_t n = 0;
  using Call = int (*)(ORLIX_Stream *, char *, uint64_t *, ORLIX_ErrCtx *);
  const Call calls[] = {
      [](ORLIX_Stream *s, char *b, uint64_t *c, ORLIX_ErrCtx *e) {
        return orlix_stream_read(s, b, 4, c, e);
      },
      [](ORLIX_Stream *s, char *b, uint64_t *c, ORLIX_ErrCtx *e) {
        return orlix_stream_write(s, b, 4, c, e);
      },
      [](ORLIX_Stream *s, char *, uint64_t *c, ORLIX_ErrCtx *e) {
        return orlix_stream_ctrl(s, 2, c, e);
      },
      [](ORLIX_Stream *s, char *b, uint64_t *, ORLIX_ErrCtx *e) {
        return orlix_stream_writen(s, b, 4, e);
      },
      [](ORLIX_Stream *s, char *b, uint64_t *, ORLIX_ErrCtx *e) {
        return orlix_stream_readn(s, b, 4, e);
      },
  };
  static constexpr ORLIX_StreamMethod kEmpty = {nullptr, nullptr, nullptr, nullptr};
  ORLIX_Stream no_table{nullptr, kTestSourceType, nullptr, nullptr, nullptr};
  ORLIX_Stream empty_slots{&kEmpty, kTestSourceType, nullptr, nullptr, nullptr};
  for (size_t i = 0; i < std::size(calls); ++i) {
    SCOPED_TRACE(i);
    EXPECT_FAIL_WITH(ctx, calls[i](nullptr, buf, &n, &ctx), ORLIX_ERR_NULL_POINT, kCore);
    for (ORLIX_Stream *s : {&no_table, &empty_slots}) {
      EXPECT_FAIL_WITH(ctx, calls[i](s, buf, &n, &ctx), ORLIX_ERR_NOT_SUPPORTED, kCore);
    }
  }
  // A null context is accepted.
  EXPECT_EQ(orlix_stream_read(nullptr, buf, 4, &n, nullptr), 0);
}

TEST(StreamDispatch, SlotResultsPassUnchanged) {
  PieceSink sink;
  sink.limit = 0;
  sink.fail_result = 7;
  ORLIX_Stream *s = sink.make();
  uint64_t n = 0;
  EXPECT_EQ(orlix_stream_write(s, "x", 1, &n, nullptr), 7);
  EXPECT_EQ(orlix_stream_writen(s, "x", 1, nullptr), 7);
  orlix_stream_free(s);
}

TEST(StreamWriteN, LoopsOverSmallAndStallingPieces) {
  PieceSink sink;
  sink.piece = 3;
  sink.stall = true;
  ORLIX_Stream *s = sink.make();
  Ctx ctx;
  const std::string text = "the quick brown fox";
  EXPECT_EQ(orlix_stream_writen(s, text.data(), 0, &ctx), 1);
  EXPECT_TRUE(sink.writes.empty());
  EXPECT_FAIL_WITH(ctx, orlix_stream_writen(s, text.data(), -1, &ctx), ORLIX_ERR_BAD_LENGTH, kCore);
  EXPECT_EQ(orlix_stream_writen(s, text.data(), static_cast<int64_t>(text.size()), nullptr), 1);
  EXPECT_EQ(sink.data, text);
  EXPECT_EQ(sink.writes.size(), 14u);  // 7 pieces, each after one call that took nothing

  // A failure part way leaves the bytes already written in place.
  sink = PieceSink{};
  sink.piece = 4;
  sink.limit = 10;
  ctx.clear();
  EXPECT_EQ(orlix_stream_writen(s, text.data(), static_cast<int64_t>(text.size()), &ctx), 0);
  EXPECT_EQ(sink.data, text.substr(0, 10));
  EXPECT_TRUE(LastIs(ctx, ORLIX_ERR_STREAM_WRITE_FAIL, kTestKind, "Write stream fail"));
  orlix_stream_free(s);
}

TEST(StreamReadN, LoopsOverPiecesAndRefusesShortSources) {
  PieceSource src;
  src.data = "0123456789";
  src.piece = 3;
  ORLIX_Stream *s = src.make();
  Ctx ctx;
  char buf[16] = {};
  EXPECT_EQ(orlix_stream_readn(s, buf, 0, &ctx), 1);
  EXPECT_EQ(src.reads, 0);
  EXPECT_FAIL_WITH(ctx, orlix_stream_readn(s, buf, -2, &ctx), ORLIX_ERR_BAD_LENGTH, kCore);
  EXPECT_EQ(orlix_stream_readn(s, buf, 8, nullptr), 1);
  EXPECT_EQ(std::string(buf, 8), "01234567");
  EXPECT_EQ(src.reads, 3);
  // Two bytes are left.
  EXPECT_FAIL_WITH(ctx, orlix_stream_readn(s, buf, 5, &ctx), ORLIX_ERR_BAD_LENGTH, kCore);
  orlix_stream_free(s);

  ORLIX_Stream *m = mem_with("abcd");
  ORLIX_Stream *ro = orlix_memstream_dup_readonly(m);
  EXPECT_FAIL_WITH(ctx, orlix_stream_readn(ro, buf, 10, &ctx), ORLIX_ERR_BAD_LENGTH, kCore);
  EXPECT_EQ(std::string(buf, 4), "abcd");
  orlix_stream_free(ro);
  orlix_stream_free(m);
}

TEST(StreamChain, PushRefusals) {
  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  ORLIX_Stream *mem2 = orlix_stream_new_mem(0, nullptr);
  ORLIX_Stream *hex = orlix_stream_new_hex(0, nullptr);
  ORLIX_Stream *hex2 = orlix_stream_new_hex(0, nullptr);
  PieceSource state;
  ORLIX_Stream *both = make_stream(&PieceSource::kMethod, 0x30000u, &state);
  ORLIX_Stream *plain = make_stream(&PieceSource::kMethod, 0x00040u, &state);

  EXPECT_EQ(orlix_stream_push(nullptr, mem), 0);
  EXPECT_EQ(orlix_stream_push(hex, nullptr), 0);
  EXPECT_EQ(orlix_stream_push(mem2, mem), 0);   // a source/sink is no filter
  EXPECT_EQ(orlix_stream_push(both, mem), 0);   // both bits: still a source/sink
  EXPECT_EQ(orlix_stream_push(plain, mem), 0);  // no filter bit
  EXPECT_EQ(orlix_stream_push(hex, hex2), 0);   // chain without a source/sink
  mem2->next = mem;                             // two sinks: the first is not the bottom
  mem->prev = mem2;
  EXPECT_EQ(orlix_stream_push(hex, mem2), 0);
  mem2->next = mem->prev = nullptr;
  EXPECT_EQ(orlix_stream_push(hex, mem), 1);
  EXPECT_EQ(hex->next, mem);
  EXPECT_EQ(mem->prev, hex);
  EXPECT_EQ(orlix_stream_push(hex2, mem), 0);  // mem is no longer a top
  EXPECT_EQ(orlix_stream_push(hex, mem2), 0);  // hex already has a next
  EXPECT_EQ(orlix_stream_push(hex2, hex), 1);
  ORLIX_Stream *hex3 = orlix_stream_new_hex(0, nullptr);
  EXPECT_EQ(orlix_stream_push(hex, hex3), 0);  // hex has a prev and a next
  EXPECT_EQ(hex->prev, hex2);

  orlix_stream_freeall(mem);
  for (ORLIX_Stream *s : {mem2, hex3, both, plain}) orlix_stream_free(s);
}

TEST(StreamChain, PopFindTypeGettypeNext) {
  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  ORLIX_Stream *hex = orlix_stream_new_hex(0, nullptr);
  PieceSource state;
  ORLIX_Stream *filter = make_stream(&PieceSource::kMethod, kTestFilterType, &state);
  ASSERT_EQ(orlix_stream_push(hex, mem), 1);
  ASSERT_EQ(orlix_stream_push(filter, hex), 1);  // filter -> hex -> mem

  EXPECT_EQ(orlix_stream_gettype(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(orlix_stream_gettype(hex), ORLIX_STREAM_TYPE_HEX);
  EXPECT_EQ(orlix_stream_next(nullptr), nullptr);
  EXPECT_EQ(orlix_stream_next(filter), hex);
  EXPECT_EQ(orlix_stream_next(mem), nullptr);

  for (ORLIX_Stream *s : {filter, hex, mem}) {
    EXPECT_EQ(orlix_stream_find_type(s, 1, ORLIX_STREAM_SOURCE_SINK), mem);
    EXPECT_EQ(orlix_stream_find_type(s, 1, ORLIX_STREAM_FILTER), filter);
    EXPECT_EQ(orlix_stream_find_type(s, 1, ORLIX_STREAM_TYPE_HEX), hex);
  }
  EXPECT_EQ(orlix_stream_find_type(hex, 2, ORLIX_STREAM_FILTER), hex);
  EXPECT_EQ(orlix_stream_find_type(hex, 2, kTestFilterType), nullptr);  // above the start
  EXPECT_EQ(orlix_stream_find_type(filter, 3, ORLIX_STREAM_FILTER), hex);
  EXPECT_EQ(orlix_stream_find_type(mem, 3, ORLIX_STREAM_SOURCE_SINK), nullptr);
  EXPECT_EQ(orlix_stream_find_type(filter, 1, ORLIX_STREAM_TYPE_FILE), nullptr);
  // Only the two bare bits match by bit; any other value must be equal.
  EXPECT_EQ(orlix_stream_find_type(filter, 1, 0x30000u), nullptr);
  EXPECT_EQ(orlix_stream_find_type(filter, 1, 0x00004u), nullptr);
  for (int32_t start : {0, 4, -1})
    EXPECT_EQ(orlix_stream_find_type(filter, start, ORLIX_STREAM_FILTER), nullptr);
  EXPECT_EQ(orlix_stream_find_type(nullptr, 1, ORLIX_STREAM_FILTER), nullptr);

  EXPECT_EQ(orlix_stream_pop(nullptr), nullptr);
  EXPECT_EQ(orlix_stream_pop(hex), nullptr);  // not the top
  EXPECT_EQ(orlix_stream_pop(filter), hex);
  EXPECT_EQ(filter->next, nullptr);
  EXPECT_EQ(hex->prev, nullptr);
  EXPECT_EQ(orlix_stream_pop(filter), nullptr);  // alone
  EXPECT_EQ(orlix_stream_pop(hex), mem);
  EXPECT_EQ(mem->prev, nullptr);
  EXPECT_EQ(orlix_stream_gettype(hex), ORLIX_STREAM_TYPE_HEX);  // still alive
  orlix_stream_free(filter);
  orlix_stream_free(hex);
  orlix_stream_free(mem);
}

TEST(StreamFree, DestroysOnceAndFreeallTakesTheWholeChain) {
  orlix_stream_free(nullptr);
  orlix_stream_freeall(nullptr);
  PieceSource a, b, c;
  ORLIX_Stream *top = make_stream(&PieceSource::kMethod, kTestFilterType, &a);
  ORLIX_Stream *mid = make_stream(&PieceSource::kMethod, kTestFilterType, &b);
  ORLIX_Stream *bottom = make_stream(&PieceSource::kMethod, kTestSourceType, &c);
  ASSERT_EQ(orlix_stream_push(mid, bottom), 1);
  ASSERT_EQ(orlix_stream_push(top, mid), 1);
  orlix_stream_freeall(mid);
  EXPECT_EQ(a.destroyed + b.destroyed + c.destroyed, 3);
  EXPECT_EQ(a.destroyed * b.destroyed * c.destroyed, 1);

  // Records without a table or a destroy slot are still released.
  orlix_stream_free(make_stream(nullptr, kTestSourceType, nullptr));
  PieceSink sink;
  orlix_stream_free(sink.make());
}

TEST(StreamCopy, ArgumentsAndMemoryFastPath) {
  Ctx ctx;
  ORLIX_Stream *dest = orlix_stream_new_mem(0, nullptr);
  uint64_t copied = 99;
  EXPECT_FAIL_WITH(ctx, orlix_stream_writefromstream(nullptr, dest, &copied, &ctx),
                   ORLIX_ERR_NULL_POINT, kCore);
  EXPECT_FAIL_WITH(ctx, orlix_stream_writefromstream(dest, nullptr, &copied, &ctx),
                   ORLIX_ERR_NULL_POINT, kCore);
  EXPECT_EQ(copied, 99u);

  // The whole content goes, whatever the source's read position.
  ORLIX_Stream *src = mem_with("hello, world");
  int64_t pos = 5;
  ASSERT_EQ(orlix_stream_ctrl(src, ORLIX_CTRL_SET_POS, &pos, nullptr), 1);
  EXPECT_EQ(orlix_stream_writefromstream(dest, src, &copied, nullptr), 1);
  EXPECT_EQ(copied, 12u);
  EXPECT_EQ(orlix::mem_of(dest)->length, 12);
  ASSERT_EQ(orlix_stream_ctrl(dest, ORLIX_CTRL_RESET, nullptr, nullptr), 1);
  EXPECT_EQ(read_all(dest), "hello, world");

  // A failing destination's result comes back.
  PieceSink sink;
  sink.limit = 4;
  ORLIX_Stream *bad = sink.make();
  ctx.clear();
  EXPECT_EQ(orlix_stream_writefromstream(bad, src, nullptr, &ctx), 0);
  EXPECT_TRUE(LastIs(ctx, ORLIX_ERR_STREAM_WRITE_FAIL, kTestKind, "Write stream fail"));
  orlix_stream_free(bad);
  orlix_stream_free(src);
  orlix_stream_free(dest);
}

TEST(StreamCopy, LoopReadsPiecesAndEndsOnFailureAtTheEnd) {
  PieceSource src;
  for (int i = 0; i < 20000; ++i) src.data.push_back(static_cast<char>(i * 7 + i / 251));
  src.fail_at_end = true;
  src.pos = 123;  // rewound first
  ORLIX_Stream *s = src.make();
  ORLIX_Stream *dest = orlix_stream_new_mem(16, nullptr);
  uint64_t copied = 0;
  EXPECT_EQ(orlix_stream_writefromstream(dest, s, &copied, nullptr), 1);
  EXPECT_EQ(copied, 20000u);
  EXPECT_EQ(src.largest_request, 8192);
  EXPECT_EQ(src.reads, 4);  // 8192, 8192, 3616, then the failing read
  // The destination was reserved once for the source's length, so it never
  // had to grow past it.
  EXPECT_EQ(orlix::mem_of(dest)->capacity, 20000);
  ASSERT_EQ(orlix_stream_ctrl(dest, ORLIX_CTRL_RESET, nullptr, nullptr), 1);
  EXPECT_EQ(read_all(dest), src.data);

  // Smaller pieces than asked, and a read of 0 bytes at the end.
  PieceSource small;
  small.data = src.data.substr(0, 5000);
  small.piece = 1000;
  ORLIX_Stream *s2 = small.make();
  PieceSink sink;
  ORLIX_Stream *out = sink.make();
  EXPECT_EQ(orlix_stream_writefromstream(out, s2, &copied, nullptr), 1);
  EXPECT_EQ(copied, 5000u);
  EXPECT_EQ(sink.data, small.data);
  orlix_stream_free(out);
  orlix_stream_free(s2);
  orlix_stream_free(s);
  orlix_stream_free(dest);
}

TEST(StreamCopy, LoopFailures) {
  PieceSource src;
  src.data = std::string(30000, 'q');
  src.fail_at = 8192;  // fails before the end
  ORLIX_Stream *s = src.make();
  PieceSink sink;
  ORLIX_Stream *out = sink.make();
  uint64_t copied = 77;
  EXPECT_EQ(orlix_stream_writefromstream(out, s, &copied, nullptr), 0);
  EXPECT_EQ(copied, 77u);
  EXPECT_EQ(sink.data.size(), 8192u);

  // A destination that fails in the loop.
  src.fail_at = SIZE_MAX;
  sink = PieceSink{};
  sink.limit = 10000;
  Ctx ctx;
  EXPECT_EQ(orlix_stream_writefromstream(out, s, &copied, &ctx), 0);
  EXPECT_TRUE(LastIs(ctx, ORLIX_ERR_STREAM_WRITE_FAIL, kTestKind, "Write stream fail"));

  // A source that cannot rewind.
  src.refuse_rewind = true;
  EXPECT_EQ(orlix_stream_writefromstream(out, s, &copied, nullptr), 0);
  orlix_stream_free(out);
  orlix_stream_free(s);
}

}  // namespace
