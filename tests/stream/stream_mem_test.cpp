// Memory streams in their four uses: shared position, read-only view, queue
// and detached buffer. The private record is inspected through mem_of.
#include <array>
#include <random>

#include "stream/ORLIX_Stream_Mem.hpp"
#include "stream_test_util.hpp"

using namespace orlix_test;
using orlix::mem_of;

namespace {

int ctrl_pos(ORLIX_Stream *s, int64_t code, int64_t p, Ctx *ctx = nullptr) {
  return orlix_stream_ctrl(s, code, &p, ctx);
}

uint64_t ctrl_get(ORLIX_Stream *s, int64_t code) {
  uint64_t v = 12345;
  EXPECT_EQ(orlix_stream_ctrl(s, code, &v, nullptr), 1);
  return v;
}

void write_str(ORLIX_Stream *s, const std::string &text) {
  ASSERT_EQ(orlix_stream_writen(s, text.data(), static_cast<int64_t>(text.size()), nullptr), 1);
}

std::string read_n(ORLIX_Stream *s, int64_t n) {
  std::string out(static_cast<size_t>(n), '\0');
  uint64_t got = 0;
  EXPECT_EQ(orlix_stream_read(s, out.data(), n, &got, nullptr), 1);
  out.resize(got);
  return out;
}

TEST(MemStream, ConstructorsCapacityAndFlags) {
  const std::pair<int64_t, int64_t> rounding[] = {
      {0, 4096}, {1, 8}, {13, 16}, {16, 16}, {4097, 4104}};
  for (auto [asked, capacity] : rounding) {
    ORLIX_Stream *s = orlix_stream_new_mem(asked, nullptr);
    ORLIX_Stream *q = orlix_stream_new_rwspecmem(asked, nullptr);
    EXPECT_EQ(mem_of(s)->capacity, capacity) << asked;
    EXPECT_EQ(mem_of(q)->capacity, capacity) << asked;
    EXPECT_EQ(mem_of(s)->flags, 0u);
    EXPECT_EQ(mem_of(q)->flags, orlix::kMemQueue);
    EXPECT_EQ(orlix_stream_gettype(s), ORLIX_STREAM_TYPE_MEM);
    EXPECT_EQ(mem_of(s)->length + mem_of(s)->read_pos + mem_of(s)->write_pos, 0);
    orlix_stream_free(s);
    orlix_stream_free(q);
  }
  Ctx ctx;
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_mem(-1, &ctx), ORLIX_ERR_BAD_LENGTH, kMem);
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_rwspecmem(-8, &ctx), ORLIX_ERR_BAD_LENGTH, kMem);
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_romem("x", -1, 1, &ctx), ORLIX_ERR_BAD_LENGTH, kMem);
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_romem(nullptr, 3, 0, &ctx), ORLIX_ERR_NULL_POINT, kMem);

  ORLIX_Stream *empty = orlix_stream_new_romem(nullptr, 0, 1, nullptr);
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(read_n(empty, 4), "");
  orlix_stream_free(empty);
}

TEST(MemStream, SharedPositionAndSetPos) {
  ORLIX_Stream *s = orlix_stream_new_mem(0, nullptr);
  write_str(s, "abc");
  EXPECT_EQ(read_n(s, 10), "");  // the position is at the end
  EXPECT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_EOF, nullptr, nullptr), 1);
  ASSERT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_RESET, nullptr, nullptr), 1);
  EXPECT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_EOF, nullptr, nullptr), 0);
  EXPECT_EQ(read_n(s, 10), "abc");

  Ctx ctx;
  for (int64_t bad : {3, 4, -1}) {
    SCOPED_TRACE(bad);
    EXPECT_FAIL_WITH(ctx, ctrl_pos(s, ORLIX_CTRL_SET_POS, bad, &ctx), ORLIX_ERR_STREAM_BAD_POS,
                     kMem);
  }
  EXPECT_EQ(ctrl_pos(s, ORLIX_CTRL_SET_POS, 2), 1);
  EXPECT_EQ(ctrl_get(s, ORLIX_CTRL_GET_POS), 2u);
  write_str(s, "XY");  // overwrites one byte and extends by one
  EXPECT_EQ(ctrl_get(s, ORLIX_CTRL_GET_LENGTH), 4u);
  EXPECT_EQ(ctrl_get(s, ORLIX_CTRL_GET_READ_POS), 4u);
  ASSERT_EQ(ctrl_pos(s, ORLIX_CTRL_SET_POS, 0), 1);
  EXPECT_EQ(read_n(s, 10), "abXY");
  orlix_stream_free(s);

  ORLIX_Stream *none = orlix_stream_new_mem(0, nullptr);
  // An empty stream refuses every position.
  EXPECT_FAIL_WITH(ctx, ctrl_pos(none, ORLIX_CTRL_SET_POS, 0, &ctx), ORLIX_ERR_STREAM_BAD_POS,
                   kMem);
  orlix_stream_free(none);
}

TEST(MemStream, SharedGrowthAddsTheOldCapacity) {
  ORLIX_Stream *s = orlix_stream_new_mem(16, nullptr);
  write_str(s, "0123456789");
  write_str(s, "abcdefghij");
  EXPECT_EQ(mem_of(s)->capacity, 40);  // 10 + 10 + 16
  ASSERT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_RESET, nullptr, nullptr), 1);
  EXPECT_EQ(read_n(s, 100), "0123456789abcdefghij");
  orlix_stream_free(s);
}

TEST(MemStream, ReadOnlyBorrowedAndCopied) {
  std::array<char, 6> bytes = {'s', 'e', 'c', 'r', 'e', 't'};
  Ctx ctx;
  ORLIX_Stream *borrowed = orlix_stream_new_romem(bytes.data(), 6, 0, nullptr);
  ORLIX_Stream *copied = orlix_stream_new_romem(bytes.data(), 6, 1, nullptr);
  EXPECT_EQ(mem_of(borrowed)->flags, orlix::kMemReadOnly | orlix::kMemNotOwned);
  EXPECT_EQ(mem_of(borrowed)->buffer, reinterpret_cast<unsigned char *>(bytes.data()));
  EXPECT_EQ(mem_of(copied)->flags, orlix::kMemReadOnly);
  bytes[0] = 'S';
  EXPECT_EQ(read_n(borrowed, 6), "Secret");
  EXPECT_EQ(read_n(copied, 6), "secret");
  for (ORLIX_Stream *s : {borrowed, copied}) {
    uint64_t n = 9;
    EXPECT_FAIL_WITH(ctx, orlix_stream_write(s, "x", 1, &n, &ctx), ORLIX_ERR_STREAM_READONLY, kMem);
    // Read-only is checked before the length.
    EXPECT_FAIL_WITH(ctx, orlix_stream_write(s, "x", 0, &n, &ctx), ORLIX_ERR_STREAM_READONLY, kMem);
    int64_t extra = 100;
    ctx.clear();
    EXPECT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_RESERVE, &extra, &ctx), 0);
    EXPECT_EQ(ctx.count(), 0);
  }
  orlix_stream_free(borrowed);  // must leave the caller's stack bytes alone
  orlix_stream_free(copied);
}

TEST(MemStream, QueueCompactsBeforeGrowing) {
  ORLIX_Stream *q = orlix_stream_new_rwspecmem(4096, nullptr);
  std::string data(4096, '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 31 + 7);
  write_str(q, data);
  EXPECT_EQ(read_n(q, 100), data.substr(0, 100));
  EXPECT_EQ(ctrl_get(q, ORLIX_CTRL_GET_LENGTH), 3996u);  // unread bytes
  write_str(q, std::string(50, 'z'));
  const orlix::MemStream *m = mem_of(q);
  EXPECT_EQ(m->capacity, 4096);
  EXPECT_EQ(m->length, 4046);
  EXPECT_EQ(m->read_pos, 0);
  EXPECT_EQ(m->write_pos, 4046);
  EXPECT_EQ(read_n(q, 5000), data.substr(100) + std::string(50, 'z'));
  orlix_stream_free(q);

  // Compaction cannot make room: a new buffer holding the unread bytes.
  q = orlix_stream_new_rwspecmem(16, nullptr);
  write_str(q, "0123456789abcdef");
  EXPECT_EQ(read_n(q, 2), "01");
  write_str(q, "ghijklmnop");
  EXPECT_EQ(mem_of(q)->capacity, 40);  // 16 + 10 + 14
  EXPECT_EQ(mem_of(q)->read_pos, 0);
  EXPECT_EQ(read_n(q, 100), "23456789abcdefghijklmnop");
  orlix_stream_free(q);
}

TEST(MemStream, QueuePositionControls) {
  ORLIX_Stream *q = orlix_stream_new_rwspecmem(16, nullptr);
  Ctx ctx;
  write_str(q, "0123456789");
  EXPECT_EQ(read_n(q, 4), "0123");
  uint64_t v = 0;
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(q, ORLIX_CTRL_GET_POS, &v, &ctx),
                   ORLIX_ERR_STREAM_POS_DIFFER, kMem);
  EXPECT_EQ(ctrl_get(q, ORLIX_CTRL_GET_READ_POS), 4u);
  EXPECT_EQ(ctrl_get(q, ORLIX_CTRL_GET_WRITE_POS), 10u);

  // 17: the write position never falls behind the read position.
  ASSERT_EQ(ctrl_pos(q, ORLIX_CTRL_SET_READ_POS, 2), 1);
  EXPECT_EQ(ctrl_get(q, ORLIX_CTRL_GET_WRITE_POS), 10u);
  ASSERT_EQ(ctrl_pos(q, ORLIX_CTRL_SET_WRITE_POS, 6), 1);
  ASSERT_EQ(ctrl_pos(q, ORLIX_CTRL_SET_READ_POS, 8), 1);
  EXPECT_EQ(ctrl_get(q, ORLIX_CTRL_GET_WRITE_POS), 8u);
  EXPECT_EQ(ctrl_get(q, ORLIX_CTRL_GET_POS), 8u);  // equal again

  // 18 behind the reader is refused after moving the writer.
  EXPECT_FAIL_WITH(ctx, ctrl_pos(q, ORLIX_CTRL_SET_WRITE_POS, 3, &ctx), ORLIX_ERR_STREAM_BAD_POS,
                   kMem);
  EXPECT_EQ(ctrl_get(q, ORLIX_CTRL_GET_WRITE_POS), 3u);
  EXPECT_EQ(ctrl_get(q, ORLIX_CTRL_GET_READ_POS), 8u);

  // Writing in place still works; growing with the writer behind the reader
  // is reported as out of memory.
  write_str(q, "AB");
  ctx.clear();
  uint64_t n = 0;
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(q, "0123456789abc", 13, &n, &ctx),
                   ORLIX_ERR_OUT_OF_MEMORY, kMem);
  EXPECT_EQ(read_n(q, 10), "89");
  ASSERT_EQ(ctrl_pos(q, ORLIX_CTRL_SET_READ_POS, 0), 1);
  EXPECT_EQ(read_n(q, 10), "012AB56789");

  ASSERT_EQ(orlix_stream_ctrl(q, ORLIX_CTRL_RESET, nullptr, nullptr), 1);
  EXPECT_EQ(ctrl_get(q, ORLIX_CTRL_GET_WRITE_POS) + ctrl_get(q, ORLIX_CTRL_GET_READ_POS), 0u);
  EXPECT_EQ(ctrl_get(q, ORLIX_CTRL_GET_LENGTH), 10u);
  orlix_stream_free(q);
}

TEST(MemStream, SharedPositionControls) {
  ORLIX_Stream *s = orlix_stream_new_mem(0, nullptr);
  write_str(s, "0123456789");
  Ctx ctx;
  ASSERT_EQ(ctrl_pos(s, ORLIX_CTRL_SET_READ_POS, 3), 1);
  EXPECT_EQ(ctrl_get(s, ORLIX_CTRL_GET_WRITE_POS), 3u);
  ASSERT_EQ(ctrl_pos(s, ORLIX_CTRL_SET_WRITE_POS, 7), 1);
  EXPECT_EQ(ctrl_get(s, ORLIX_CTRL_GET_READ_POS), 7u);
  for (int64_t code : {ORLIX_CTRL_SET_READ_POS, ORLIX_CTRL_SET_WRITE_POS}) {
    for (int64_t bad : {10, -1}) {
      EXPECT_FAIL_WITH(ctx, ctrl_pos(s, code, bad, &ctx), ORLIX_ERR_STREAM_BAD_POS, kMem);
    }
  }
  EXPECT_EQ(ctrl_get(s, ORLIX_CTRL_GET_POS), 7u);
  EXPECT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_FLUSH, nullptr, nullptr), 1);
  for (int64_t code : {2, 7, 8, 15, 16, 17, 18, 19}) {
    SCOPED_TRACE(code);
    EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s, code, nullptr, &ctx), ORLIX_ERR_NULL_POINT, kMem);
  }
  for (int64_t code : std::initializer_list<int64_t>{0, 3, 4, 5, 9, 10, 12, 13, 14, 20, 21, -1,
                                                     int64_t{1} << 40}) {
    SCOPED_TRACE(code);
    EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s, code, &ctx, &ctx), ORLIX_ERR_STREAM_BAD_CTRL, kMem);
  }
  orlix_stream_free(s);
}

TEST(MemStream, Reserve) {
  ORLIX_Stream *s = orlix_stream_new_mem(16, nullptr);
  write_str(s, "0123456789");
  int64_t extra = 6;
  EXPECT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_RESERVE, &extra, nullptr), 1);
  EXPECT_EQ(mem_of(s)->capacity, 16);
  extra = 7;
  EXPECT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_RESERVE, &extra, nullptr), 1);
  EXPECT_EQ(mem_of(s)->capacity, 24);  // 10 + 7 rounded
  ASSERT_EQ(ctrl_pos(s, ORLIX_CTRL_SET_POS, 0), 1);
  EXPECT_EQ(read_n(s, 100), "0123456789");

  // Only while every position is at the end; refusals record nothing.
  Ctx ctx;
  ASSERT_EQ(ctrl_pos(s, ORLIX_CTRL_SET_POS, 4), 1);
  extra = 100;
  EXPECT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_RESERVE, &extra, &ctx), 0);
  EXPECT_EQ(ctx.count(), 0);
  orlix_stream_free(s);

  ORLIX_Stream *q = orlix_stream_new_rwspecmem(8, nullptr);
  write_str(q, "abcd");
  EXPECT_EQ(orlix_stream_ctrl(q, ORLIX_CTRL_RESERVE, &extra, &ctx), 0);  // reader behind
  EXPECT_EQ(read_n(q, 4), "abcd");
  EXPECT_EQ(orlix_stream_ctrl(q, ORLIX_CTRL_RESERVE, &extra, &ctx), 1);
  EXPECT_EQ(mem_of(q)->capacity, 104);
  EXPECT_EQ(ctx.count(), 0);
  orlix_stream_free(q);
}

TEST(MemStream, MethodChecksAndIntendedCodePairings) {
  ORLIX_Stream *s = orlix_stream_new_mem(8, nullptr);
  write_str(s, "abcdefgh");
  const ORLIX_StreamMethod *mt = s->method;
  Ctx ctx;
  uint64_t n = 5;
  char buf[8];

  EXPECT_FAIL_WITH(ctx, mt->read(nullptr, buf, 1, &n, &ctx), ORLIX_ERR_NULL_POINT, kMem);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(s, buf, -1, &n, &ctx), ORLIX_ERR_BAD_LENGTH, kMem);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(s, buf, -1, &n, &ctx), ORLIX_ERR_BAD_LENGTH, kMem);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(s, nullptr, 3, &n, &ctx), ORLIX_ERR_NULL_POINT, kMem);
  EXPECT_EQ(orlix_stream_write(s, nullptr, 0, &n, nullptr), 1);
  EXPECT_EQ(n, 0u);

  // Without its private record every entry point reports a bad stream.
  void *data = s->data;
  s->data = nullptr;
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(s, buf, 1, &n, &ctx), ORLIX_ERR_STREAM_BAD, kMem);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(s, "x", 1, &n, &ctx), ORLIX_ERR_STREAM_BAD, kMem);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s, 1, nullptr, &ctx), ORLIX_ERR_STREAM_BAD, kMem);
  s->data = data;

  // Positions beyond the data report code 0x10004 with the text "Bad Length".
  orlix::MemStream *m = mem_of(s);
  m->read_pos = m->length + 1;
  ctx.clear();
  EXPECT_EQ(orlix_stream_read(s, buf, 1, &n, &ctx), 0);
  EXPECT_TRUE(LastIs(ctx, ORLIX_ERR_UNEXPECTED, kMem, "Bad Length"));
  m->read_pos = 0;
  m->write_pos = m->capacity + 1;
  ctx.clear();
  EXPECT_EQ(orlix_stream_write(s, "x", 1, &n, &ctx), 0);
  EXPECT_TRUE(LastIs(ctx, ORLIX_ERR_UNEXPECTED, kMem, "Bad Length"));
  EXPECT_EQ(ctx.count(), 1);
  m->write_pos = 0;
  orlix_stream_free(s);
}

TEST(MemStream, DetachHandsTheBufferOver) {
  ORLIX_Stream *s = orlix_stream_new_mem(16, nullptr);
  write_str(s, "abcdef");
  unsigned char *buf = nullptr;
  int64_t len = -1;
  ASSERT_EQ(orlix_memstreamdeatch(s, &buf, &len), 1);
  EXPECT_EQ(len, 6);
  EXPECT_EQ(mem_of(s)->flags, orlix::kMemNotOwned);
  write_str(s, "0123456789");  // fills the capacity exactly
  Ctx ctx;
  uint64_t n = 0;
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(s, "!", 1, &n, &ctx), ORLIX_ERR_STREAM_CANNOT_GROW,
                   kMem);
  orlix_stream_free(s);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(buf), 16), "abcdef0123456789");
  orlix_free(buf);

  // Detaching clears the read-only bit too.
  ORLIX_Stream *ro = orlix_stream_new_romem("xyz", 3, 1, nullptr);
  ASSERT_EQ(orlix_memstreamdeatch(ro, &buf, &len), 1);
  EXPECT_EQ(mem_of(ro)->flags, orlix::kMemNotOwned);
  ASSERT_EQ(ctrl_pos(ro, ORLIX_CTRL_SET_POS, 1), 1);
  write_str(ro, "Y");
  orlix_stream_free(ro);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(buf), 3), "xYz");
  orlix_free(buf);
}

TEST(MemStream, DetachAndDupRefusals) {
  ORLIX_Stream *s = orlix_stream_new_mem(0, nullptr);
  ORLIX_Stream *q = orlix_stream_new_rwspecmem(0, nullptr);
  ORLIX_Stream *hex = orlix_stream_new_hex(0, nullptr);
  unsigned char *buf = nullptr;
  int64_t len = 0;
  EXPECT_EQ(orlix_memstreamdeatch(nullptr, &buf, &len), 0);
  EXPECT_EQ(orlix_memstreamdeatch(hex, &buf, &len), 0);
  EXPECT_EQ(orlix_memstreamdeatch(q, &buf, &len), 0);
  EXPECT_EQ(orlix_memstreamdeatch(s, nullptr, &len), 0);
  EXPECT_EQ(orlix_memstreamdeatch(s, &buf, nullptr), 0);
  EXPECT_EQ(orlix_memstream_dup_readonly(nullptr), nullptr);
  EXPECT_EQ(orlix_memstream_dup_readonly(hex), nullptr);
  EXPECT_EQ(orlix_memstream_dup_readonly(q), nullptr);
  void *data = s->data;
  s->data = nullptr;
  EXPECT_EQ(orlix_memstreamdeatch(s, &buf, &len), 0);
  EXPECT_EQ(orlix_memstream_dup_readonly(s), nullptr);
  s->data = data;
  ASSERT_EQ(orlix_stream_push(hex, s), 1);
  EXPECT_EQ(orlix_memstream_dup_readonly(s), nullptr);  // linked below
  EXPECT_EQ(orlix_memstream_dup_readonly(hex), nullptr);
  EXPECT_EQ(mem_of(s)->flags, 0u);
  orlix_stream_freeall(hex);
  orlix_stream_free(q);
}

TEST(MemStream, DupReadOnlyBorrowsTheSource) {
  ORLIX_Stream *s = orlix_stream_new_mem(0, nullptr);
  write_str(s, "shared bytes");
  ORLIX_Stream *dup = orlix_memstream_dup_readonly(s);
  ASSERT_NE(dup, nullptr);
  EXPECT_EQ(mem_of(dup)->buffer, mem_of(s)->buffer);
  EXPECT_EQ(mem_of(dup)->flags, orlix::kMemReadOnly | orlix::kMemNotOwned);
  EXPECT_EQ(read_n(dup, 100), "shared bytes");
  Ctx ctx;
  uint64_t n = 0;
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(dup, "x", 1, &n, &ctx), ORLIX_ERR_STREAM_READONLY, kMem);
  orlix_stream_free(dup);
  ASSERT_EQ(ctrl_pos(s, ORLIX_CTRL_SET_POS, 0), 1);
  EXPECT_EQ(read_n(s, 100), "shared bytes");
  orlix_stream_free(s);
}

}  // namespace
