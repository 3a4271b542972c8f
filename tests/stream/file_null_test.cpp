// File streams over temporary files (modes, reads to the end and past it,
// writes, every control code, reopen, close and everything after it) and
// the null sink.
#include <fcntl.h>

#include "stream_test_util.hpp"

using namespace orlix_test;

namespace {

std::string ReadAll(ORLIX_Stream *s, int64_t piece, std::vector<uint64_t> *counts = nullptr) {
  std::string out(static_cast<size_t>(piece), '\0');
  std::string all;
  for (uint64_t n = 0; orlix_stream_read(s, out.data(), piece, &n, nullptr) == 1;) {
    all.append(out.data(), n);
    if (counts) counts->push_back(n);
  }
  return all;
}

TEST(FileStream, ConstructorFailures) {
  Ctx ctx;
  TempFile f("abc");
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_file(nullptr, 1, &ctx), ORLIX_ERR_NULL_POINT, kFile);
  for (int32_t mode : {0, 4, -1, 0x101})
    EXPECT_FAIL_WITH(ctx, orlix_stream_new_file(f.path.c_str(), mode, &ctx),
                     ORLIX_ERR_STREAM_FILE_MODE, kFile);
  const std::string missing = f.path + ".missing";
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_file(missing.c_str(), ORLIX_FILE_READ, &ctx),
                   ORLIX_ERR_STREAM_FILE_OPEN, kFile);
  const std::string in_missing_dir = f.path + ".dir/x";
  for (int32_t mode : {ORLIX_FILE_WRITE, ORLIX_FILE_APPEND})
    EXPECT_FAIL_WITH(ctx, orlix_stream_new_file(in_missing_dir.c_str(), mode, &ctx),
                     ORLIX_ERR_STREAM_FILE_OPEN, kFile);
  ORLIX_Stream *s = orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_READ, &ctx);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(orlix_stream_gettype(s), ORLIX_STREAM_TYPE_FILE);
  EXPECT_EQ(s->next, nullptr);
  orlix_stream_free(s);
}

// Mode 1 reads, 2 truncates, 3 appends (even after a seek to the start).
TEST(FileStream, Modes) {
  TempFile f("0123456789");
  {
    Chain r(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_READ, nullptr));
    EXPECT_EQ(ReadAll(r.get(), 4), "0123456789");
  }
  {
    Chain a(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_APPEND, nullptr));
    EXPECT_EQ(orlix_stream_writen(a.get(), "ab", 2, nullptr), 1);
    int64_t zero = 0;
    EXPECT_EQ(orlix_stream_ctrl(a.get(), ORLIX_CTRL_SET_POS, &zero, nullptr), 1);
    EXPECT_EQ(orlix_stream_writen(a.get(), "cd", 2, nullptr), 1);
  }
  EXPECT_EQ(f.read(), "0123456789abcd");
  {
    Chain w(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_WRITE, nullptr));
    EXPECT_EQ(f.read(), "");
    EXPECT_EQ(orlix_stream_writen(w.get(), "xyz", 3, nullptr), 1);
  }
  EXPECT_EQ(f.read(), "xyz");
  // Binary: no translation of line endings or NUL bytes.
  const std::string binary("\r\n\0\x1a\xff\n", 6);
  {
    Chain w(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_WRITE, nullptr));
    EXPECT_EQ(orlix_stream_writen(w.get(), binary.data(), 6, nullptr), 1);
  }
  Chain r(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_READ, nullptr));
  EXPECT_EQ(ReadAll(r.get(), 100), binary);
}

// The read that meets the end fails with "read file fail"; the one after it
// with "Read pass end of stream" and a count of 0. A read that returns
// bytes never fails, even when it reached the end.
TEST(FileStream, ReadToTheEndAndPastIt) {
  TempFile f("0123456789");
  Ctx ctx;
  for (int64_t piece : {16, 10, 4}) {
    Chain s(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_READ, nullptr));
    char buf[16];
    uint64_t n = 0;
    std::string got;
    for (int i = 0; i < 3 && got.size() < 10; ++i) {
      ctx.clear();
      ASSERT_EQ(orlix_stream_read(s.get(), buf, piece, &n, &ctx), 1) << piece;
      EXPECT_EQ(ctx.count(), 0);
      got.append(buf, n);
    }
    EXPECT_EQ(got, "0123456789");
    EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_EOF, nullptr, nullptr), 0);
    EXPECT_FAIL_WITH(ctx, orlix_stream_read(s.get(), buf, piece, &n, &ctx),
                     ORLIX_ERR_STREAM_FILE_READ, kFile);
    EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_EOF, nullptr, nullptr), 1);
    n = 99;
    EXPECT_FAIL_WITH(ctx, orlix_stream_read(s.get(), buf, piece, &n, &ctx),
                     ORLIX_ERR_STREAM_READ_PAST_END, kFile);
    EXPECT_EQ(n, 0u);
    EXPECT_FAIL_WITH(ctx, orlix_stream_read(s.get(), buf, piece, &n, &ctx),
                     ORLIX_ERR_STREAM_READ_PAST_END, kFile);
    // Rewinding clears the end.
    EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_RESET, nullptr, &ctx), 1);
    EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_EOF, nullptr, nullptr), 0);
    EXPECT_EQ(ReadAll(s.get(), piece), "0123456789");
  }
  // An empty file: the first read meets the end. A read of 0 bytes has no
  // shortcut: it fails as well.
  TempFile empty;
  Chain e(orlix_stream_new_file(empty.path.c_str(), ORLIX_FILE_READ, nullptr));
  char c;
  uint64_t n = 0;
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(e.get(), &c, 1, &n, &ctx), ORLIX_ERR_STREAM_FILE_READ,
                   kFile);
  Chain z(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_READ, nullptr));
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(z.get(), &c, 0, &n, &ctx), ORLIX_ERR_STREAM_FILE_READ,
                   kFile);
  EXPECT_EQ(orlix_stream_read(z.get(), &c, 1, &n, &ctx), 1);  // the data is still there
  EXPECT_EQ(c, '0');
}

TEST(FileStream, ReadAndWriteArgumentChecks) {
  Ctx ctx;
  TempFile f("abc");
  Chain r(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_READ, nullptr));
  Chain w(orlix_stream_new_file((f.path + "w").c_str(), ORLIX_FILE_WRITE, nullptr));
  Chain a(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_APPEND, nullptr));
  char buf[4];
  uint64_t n = 0;
  const ORLIX_StreamMethod *m = r->method;
  EXPECT_FAIL_WITH(ctx, m->read(nullptr, buf, 1, &n, &ctx), ORLIX_ERR_NULL_POINT, kFile);
  EXPECT_FAIL_WITH(ctx, m->write(nullptr, "x", 1, &n, &ctx), ORLIX_ERR_NULL_POINT, kFile);
  EXPECT_FAIL_WITH(ctx, m->ctrl(nullptr, 1, nullptr, &ctx), ORLIX_ERR_NULL_POINT, kFile);
  void *data = r->data;
  r->data = nullptr;
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(r.get(), buf, 1, &n, &ctx), ORLIX_ERR_STREAM_BAD, kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(r.get(), "x", 1, &n, &ctx), ORLIX_ERR_STREAM_BAD, kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(r.get(), 6, nullptr, &ctx), ORLIX_ERR_STREAM_BAD, kFile);
  r->data = data;

  EXPECT_FAIL_WITH(ctx, orlix_stream_write(r.get(), "x", 1, &n, &ctx),
                   ORLIX_ERR_STREAM_CANNOT_WRITE, kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(r.get(), "x", 0, &n, &ctx),
                   ORLIX_ERR_STREAM_CANNOT_WRITE, kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(w.get(), buf, 1, &n, &ctx), ORLIX_ERR_STREAM_CANNOT_READ,
                   kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(a.get(), buf, 1, &n, &ctx), ORLIX_ERR_STREAM_CANNOT_READ,
                   kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(r.get(), buf, -1, &n, &ctx), ORLIX_ERR_BAD_LENGTH, kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(r.get(), nullptr, 1, &n, &ctx), ORLIX_ERR_NULL_POINT,
                   kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(w.get(), "x", -1, &n, &ctx), ORLIX_ERR_BAD_LENGTH,
                   kFile);
  n = 7;
  EXPECT_EQ(orlix_stream_write(w.get(), nullptr, 0, &n, &ctx), 1);
  EXPECT_EQ(n, 0u);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(w.get(), nullptr, 1, &n, &ctx), ORLIX_ERR_NULL_POINT,
                   kFile);
  EXPECT_EQ(orlix_stream_write(w.get(), "xyz", 3, &n, &ctx), 1);
  EXPECT_EQ(n, 3u);
  std::remove((f.path + "w").c_str());
}

// A device that is always full: a write that overflows the C library's
// buffer fails at once, a small one when it is flushed or closed.
TEST(FileStream, WriteFlushAndCloseFailures) {
  Ctx ctx;
  Chain s(orlix_stream_new_file("/dev/full", ORLIX_FILE_WRITE, nullptr));
  ASSERT_NE(s, nullptr);
  uint64_t n = 0;
  EXPECT_EQ(orlix_stream_write(s.get(), "x", 1, &n, &ctx), 1);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_FLUSH, nullptr, &ctx),
                   ORLIX_ERR_STREAM_FILE_FLUSH, kFile);
  const std::string big(1 << 16, 'x');
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(s.get(), big.data(), 1 << 16, &n, &ctx),
                   ORLIX_ERR_STREAM_FILE_WRITE, kFile);
  // The error state is cleared for the next call.
  EXPECT_EQ(orlix_stream_write(s.get(), "x", 1, &n, &ctx), 1);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_CLOSE, nullptr, &ctx),
                   ORLIX_ERR_STREAM_FILE_CLOSE, kFile);
  // The handle is gone all the same.
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(s.get(), "x", 1, &n, &ctx), ORLIX_ERR_STREAM_FILE_CLOSED,
                   kFile);
}

TEST(FileStream, LengthAndPositions) {
  Ctx ctx;
  TempFile f("0123456789");
  Chain s(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_READ, nullptr));
  char buf[4];
  uint64_t n = 0;
  uint64_t v = 0;
  ASSERT_EQ(orlix_stream_read(s.get(), buf, 3, &n, nullptr), 1);
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_GET_LENGTH, &v, &ctx), 1);
  EXPECT_EQ(v, 10u);
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_GET_POS, &v, &ctx), 1);
  EXPECT_EQ(v, 3u);  // the length query put the position back
  ASSERT_EQ(orlix_stream_read(s.get(), buf, 1, &n, nullptr), 1);
  EXPECT_EQ(buf[0], '3');
  int64_t to = 8;
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_SET_POS, &to, &ctx), 1);
  EXPECT_EQ(ReadAll(s.get(), 4), "89");
  to = 20;  // beyond the end is a valid place
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_SET_POS, &to, &ctx), 1);
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_GET_POS, &v, &ctx), 1);
  EXPECT_EQ(v, 20u);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_GET_LENGTH, nullptr, &ctx),
                   ORLIX_ERR_NULL_POINT, kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_GET_POS, nullptr, &ctx),
                   ORLIX_ERR_NULL_POINT, kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_SET_POS, nullptr, &ctx),
                   ORLIX_ERR_NULL_POINT, kFile);
  to = -1;
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_SET_POS, &to, &ctx),
                   ORLIX_ERR_STREAM_BAD_POS, kFile);
  for (int64_t code : {0, 3, 4, 5, 12, 13, 14, 15, 19, 20, -1})
    EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), code, &v, &ctx), ORLIX_ERR_STREAM_BAD_CTRL,
                     kFile);

  // A length counts what was written, buffered or not.
  TempFile g;
  Chain w(orlix_stream_new_file(g.path.c_str(), ORLIX_FILE_WRITE, nullptr));
  ASSERT_EQ(orlix_stream_writen(w.get(), "hello", 5, nullptr), 1);
  EXPECT_EQ(orlix_stream_ctrl(w.get(), ORLIX_CTRL_GET_LENGTH, &v, &ctx), 1);
  EXPECT_EQ(v, 5u);
  EXPECT_EQ(orlix_stream_ctrl(w.get(), ORLIX_CTRL_FLUSH, nullptr, &ctx), 1);
  EXPECT_EQ(g.read(), "hello");
}

// A pipe cannot seek: rewind and length fail with "reset fail", set
// position with "pos is invalid", and get position records the code
// 0x10105 with an empty description.
TEST(FileStream, SeekFailuresOnAPipe) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  ASSERT_EQ(write(fds[1], "abc", 3), 3);
  const std::string path = "/proc/self/fd/" + std::to_string(fds[0]);
  Ctx ctx;
  Chain s(orlix_stream_new_file(path.c_str(), ORLIX_FILE_READ, &ctx));
  ASSERT_NE(s, nullptr) << ctx.last().description;
  uint64_t v = 0;
  int64_t to = 1;
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_RESET, nullptr, &ctx),
                   ORLIX_ERR_STREAM_RESET, kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_GET_LENGTH, &v, &ctx),
                   ORLIX_ERR_STREAM_RESET, kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_SET_POS, &to, &ctx),
                   ORLIX_ERR_STREAM_BAD_POS, kFile);
  ctx.clear();
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_GET_POS, &v, &ctx), 0);
  EXPECT_TRUE(OneEntry(ctx, ORLIX_ERR_STREAM_BAD_POS, kFile, ""));
  // Reading still works; with the writing end closed the pipe ends.
  close(fds[1]);
  char buf[8];
  uint64_t n = 0;
  EXPECT_EQ(orlix_stream_read(s.get(), buf, 8, &n, &ctx), 1);
  EXPECT_EQ(std::string(buf, n), "abc");
  close(fds[0]);
}

// After close every read, write and codes 1, 2, 7, 8 (and 6, 11, 9) record
// "file already close"; reopening brings the stream back.
TEST(FileStream, CloseAndEverythingAfterIt) {
  Ctx ctx;
  TempFile f("0123456789");
  Chain s(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_READ, nullptr));
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_CLOSE, nullptr, &ctx), 1);
  EXPECT_EQ(ctx.count(), 0);
  char buf[4];
  uint64_t n = 0;
  uint64_t v = 0;
  int64_t to = 1;
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(s.get(), buf, 4, &n, &ctx), ORLIX_ERR_STREAM_FILE_CLOSED,
                   kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(s.get(), "x", 1, &n, &ctx), ORLIX_ERR_STREAM_FILE_CLOSED,
                   kFile);
  for (int64_t code : {ORLIX_CTRL_RESET, ORLIX_CTRL_GET_LENGTH, ORLIX_CTRL_GET_POS,
                       ORLIX_CTRL_SET_POS, ORLIX_CTRL_CLOSE, ORLIX_CTRL_FLUSH, ORLIX_CTRL_EOF}) {
    void *arg = code == ORLIX_CTRL_SET_POS ? static_cast<void *>(&to) : &v;
    EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), code, arg, &ctx), ORLIX_ERR_STREAM_FILE_CLOSED,
                     kFile);
  }
  // Set position checks its argument first.
  to = -1;
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_SET_POS, &to, &ctx),
                   ORLIX_ERR_STREAM_BAD_POS, kFile);
  // A closed stream has no mode: reopening for writing truncates.
  int32_t mode = ORLIX_FILE_READ;
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_REOPEN, &mode, &ctx), 1);
  EXPECT_EQ(ReadAll(s.get(), 4), "0123456789");
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_CLOSE, nullptr, &ctx), 1);
  mode = ORLIX_FILE_WRITE;
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_REOPEN, &mode, &ctx), 1);
  EXPECT_EQ(f.read(), "");
}

TEST(FileStream, Reopen) {
  Ctx ctx;
  TempFile f("0123456789");
  Chain s(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_READ, nullptr));
  char buf[4];
  uint64_t n = 0;
  ASSERT_EQ(orlix_stream_read(s.get(), buf, 4, &n, nullptr), 1);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_REOPEN, nullptr, &ctx),
                   ORLIX_ERR_NULL_POINT, kFile);
  // An unknown mode is refused before the file is touched.
  for (int32_t bad : {0, 4, -1}) {
    int32_t mode = bad;
    EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_REOPEN, &mode, &ctx),
                     ORLIX_ERR_STREAM_FILE_MODE, kFile);
  }
  ASSERT_EQ(orlix_stream_read(s.get(), buf, 2, &n, nullptr), 1);
  EXPECT_EQ(std::string(buf, n), "45");

  // Read to write: opened for update ("rb+"), content kept, writing from
  // the start; the stream is now a writer.
  int32_t mode = ORLIX_FILE_WRITE;
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_REOPEN, &mode, &ctx), 1);
  EXPECT_EQ(f.read(), "0123456789");
  EXPECT_EQ(orlix_stream_writen(s.get(), "ab", 2, &ctx), 1);
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_FLUSH, nullptr, &ctx), 1);
  EXPECT_EQ(f.read(), "ab23456789");
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(s.get(), buf, 1, &n, &ctx), ORLIX_ERR_STREAM_CANNOT_READ,
                   kFile);
  // Write to append, then append to write: "wb", truncating.
  mode = ORLIX_FILE_APPEND;
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_REOPEN, &mode, &ctx), 1);
  EXPECT_EQ(orlix_stream_writen(s.get(), "!", 1, &ctx), 1);
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_FLUSH, nullptr, &ctx), 1);
  EXPECT_EQ(f.read(), "ab23456789!");
  mode = ORLIX_FILE_WRITE;
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_REOPEN, &mode, &ctx), 1);
  EXPECT_EQ(f.read(), "");
  EXPECT_EQ(orlix_stream_writen(s.get(), "new", 3, &ctx), 1);
  // Write to read: the written bytes were flushed by the reopen.
  mode = ORLIX_FILE_READ;
  EXPECT_EQ(orlix_stream_ctrl(s.get(), ORLIX_CTRL_REOPEN, &mode, &ctx), 1);
  EXPECT_EQ(ReadAll(s.get(), 8), "new");
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(s.get(), "x", 1, &n, &ctx),
                   ORLIX_ERR_STREAM_CANNOT_WRITE, kFile);

  // Read to write on an empty file: the probe read finds nothing, fine.
  TempFile empty;
  Chain e(orlix_stream_new_file(empty.path.c_str(), ORLIX_FILE_READ, nullptr));
  EXPECT_EQ(orlix_stream_ctrl(e.get(), ORLIX_CTRL_REOPEN, &mode, &ctx), 1);  // read again
  mode = ORLIX_FILE_WRITE;
  EXPECT_EQ(orlix_stream_ctrl(e.get(), ORLIX_CTRL_REOPEN, &mode, &ctx), 1);
  EXPECT_EQ(orlix_stream_writen(e.get(), "z", 1, &ctx), 1);
  e.reset();
  EXPECT_EQ(empty.read(), "z");

  // A file that cannot be opened again leaves the stream closed.
  const std::string gone = f.path + ".gone";
  ASSERT_EQ(std::rename(f.path.c_str(), gone.c_str()), 0);
  mode = ORLIX_FILE_READ;
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s.get(), ORLIX_CTRL_REOPEN, &mode, &ctx),
                   ORLIX_ERR_STREAM_FILE_OPEN, kFile);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(s.get(), buf, 1, &n, &ctx), ORLIX_ERR_STREAM_FILE_CLOSED,
                   kFile);
  std::remove(gone.c_str());
}

TEST(NullStream, DiscardsWritesRefusesTheRest) {
  Ctx ctx;
  ORLIX_Stream *s = orlix_stream_new_null(&ctx);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(orlix_stream_gettype(s), ORLIX_STREAM_TYPE_NULL);
  EXPECT_EQ(s->data, nullptr);
  uint64_t n = 0;
  EXPECT_EQ(orlix_stream_write(s, "abc", 3, &n, &ctx), 1);
  EXPECT_EQ(n, 3u);
  EXPECT_EQ(orlix_stream_write(s, nullptr, 1 << 30, &n, &ctx), 1);  // the bytes are never looked at
  EXPECT_EQ(n, uint64_t{1} << 30);
  EXPECT_EQ(orlix_stream_write(s, nullptr, 0, nullptr, &ctx), 1);
  EXPECT_EQ(ctx.count(), 0);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(s, "abc", -1, &n, &ctx), ORLIX_ERR_BAD_LENGTH, kNull);
  EXPECT_FAIL_WITH(ctx, s->method->write(nullptr, "abc", 3, &n, &ctx), ORLIX_ERR_NULL_POINT, kNull);
  char buf[4];
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(s, buf, 4, &n, &ctx), ORLIX_ERR_NOT_SUPPORTED, kNull);
  EXPECT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_FLUSH, nullptr, &ctx), 1);
  uint64_t v = 0;
  for (int64_t code : {0, 1, 2, 3, 7, 9, 11, 20, -1})
    EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(s, code, &v, &ctx), ORLIX_ERR_STREAM_BAD_CTRL, kNull);
  orlix_stream_free(s);
}

}  // namespace
