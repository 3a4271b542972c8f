// The hex filter and the one-shot hex codec, checked against Python's
// bytes.hex() and bytes.fromhex() as an independent oracle.
#include <cctype>
#include <sstream>
#include <vector>

#include "python_oracle.hpp"
#include "stream_test_util.hpp"

using namespace orlix_test;

namespace {

std::string encode(const std::string &data, int upper) {
  char *text = nullptr;
  int64_t len = 0;
  EXPECT_EQ(orlix_hexencode(upper, data.data(), static_cast<int64_t>(data.size()), &text, &len), 1);
  std::string out(text, static_cast<size_t>(len));
  EXPECT_EQ(text[len], '\0');
  orlix_free(text);
  return out;
}

// Decodes text into *out; false when the codec refuses it.
bool decode(const std::string &text, std::string *out) {
  unsigned char *data = nullptr;
  int64_t len = -1;
  if (orlix_hexdecode(text.data(), static_cast<int64_t>(text.size()), &data, &len) != 1)
    return false;
  EXPECT_EQ(len, static_cast<int64_t>(text.size() / 2));
  out->assign(reinterpret_cast<char *>(data), static_cast<size_t>(len));
  orlix_free(data);
  return true;
}

TEST(HexCodec, KnownValuesAndRefusals) {
  EXPECT_EQ(encode("\xab\x01", 0), "ab01");
  EXPECT_EQ(encode("\xab\x01", 1), "AB01");
  std::string out;
  EXPECT_FALSE(decode("aB0", &out));
  EXPECT_FALSE(decode("a b0", &out));
  EXPECT_TRUE(decode("aB01", &out));
  EXPECT_EQ(out, "\xab\x01");
  for (const char *bad : {"0g", "G0", "0x", "\xc3\xa9", "1\x80", "0\t", "+1", "0:", "0@"})
    EXPECT_FALSE(decode(bad, &out)) << bad;
  EXPECT_FALSE(decode(std::string("0\0", 2), &out));

  char *text = nullptr;
  int64_t tlen = 0;
  unsigned char *data = nullptr;
  int64_t dlen = 0;
  EXPECT_EQ(orlix_hexencode(0, nullptr, 1, &text, &tlen), 0);
  EXPECT_EQ(orlix_hexencode(0, "a", 0, &text, &tlen), 0);
  EXPECT_EQ(orlix_hexencode(0, "a", 1, nullptr, &tlen), 0);
  EXPECT_EQ(orlix_hexencode(0, "a", 1, &text, nullptr), 0);
  EXPECT_EQ(orlix_hexdecode(nullptr, 2, &data, &dlen), 0);
  EXPECT_EQ(orlix_hexdecode("00", 0, &data, &dlen), 0);
  EXPECT_EQ(orlix_hexdecode("00", -2, &data, &dlen), 0);
  EXPECT_EQ(orlix_hexdecode("00", 2, nullptr, &dlen), 0);
  EXPECT_EQ(orlix_hexdecode("00", 2, &data, nullptr), 0);
}

// Python makes random byte strings and prints each as decimal bytes, its
// hex, and a random mixed-case spelling of that hex.
const char kScript[] = R"PY(
import random
rng = random.Random(42)
for i in range(40):
    b = bytes(rng.randrange(256) for _ in range(1 + rng.randrange(40 if i < 20 else 5000)))
    print(' '.join(map(str, b)), b.hex(), ''.join(rng.choice((c, c.upper())) for c in b.hex()))
)PY";

TEST(HexCodec, MatchesPython) {
  if (!orlix_oracle::HavePython()) GTEST_SKIP() << "python3 is missing";
  const std::vector<std::string> lines = orlix_oracle::RunPython(kScript, "");
  ASSERT_EQ(lines.size(), 40u);
  for (const std::string &line : lines) {
    std::vector<std::string> words;
    std::istringstream in(line);
    for (std::string w; in >> w;) words.push_back(w);
    std::string data;
    for (size_t i = 0; i + 2 < words.size(); ++i) data += static_cast<char>(std::stoi(words[i]));
    std::string hex = words[words.size() - 2], decoded;
    EXPECT_EQ(encode(data, 0), hex);
    for (char &c : hex) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_EQ(encode(data, 1), hex);
    ASSERT_TRUE(decode(words.back(), &decoded));
    EXPECT_EQ(decoded, data);
  }
}

TEST(HexStream, WritesPiecesOfAtMost1024Bytes) {
  PieceSink sink;
  ORLIX_Stream *out = sink.make();
  ORLIX_Stream *hex = orlix_stream_new_hex(0, nullptr);
  ASSERT_EQ(orlix_stream_push(hex, out), 1);
  const std::string data(3000, '\x5a');
  uint64_t n = 0;
  ASSERT_EQ(orlix_stream_write(hex, data.data(), 3000, &n, nullptr), 1);
  EXPECT_EQ(n, 3000u);
  EXPECT_EQ(sink.writes.size(), 3u);
  EXPECT_EQ(sink.largest_write(), 2048);
  EXPECT_EQ(sink.data, encode(data, 0));

  // A failing sink's result comes back at once.
  sink = PieceSink{};
  sink.limit = 100;
  Ctx ctx;
  n = 99;
  EXPECT_EQ(orlix_stream_write(hex, data.data(), 3000, &n, &ctx), 0);
  EXPECT_TRUE(LastIs(ctx, ORLIX_ERR_STREAM_WRITE_FAIL, kTestKind, "Write stream fail"));
  EXPECT_EQ(sink.writes.size(), 2u);
  orlix_stream_freeall(hex);
}

TEST(HexStream, CarriedDigitWaitsForItsPartner) {
  ORLIX_Stream *q = orlix_stream_new_rwspecmem(0, nullptr);
  ORLIX_Stream *hex = orlix_stream_new_hex(0, nullptr);
  ASSERT_EQ(orlix_stream_push(hex, q), 1);
  ASSERT_EQ(orlix_stream_writen(q, "4", 1, nullptr), 1);
  unsigned char b = 0;
  uint64_t n = 9;
  EXPECT_EQ(orlix_stream_read(hex, &b, 1, &n, nullptr), 1);
  EXPECT_EQ(n, 0u);
  ASSERT_EQ(orlix_stream_writen(q, "1e", 2, nullptr), 1);
  EXPECT_EQ(orlix_stream_read(hex, &b, 1, &n, nullptr), 1);
  EXPECT_EQ(n, 1u);
  EXPECT_EQ(b, 0x41);
  orlix_stream_freeall(hex);
}

TEST(HexStream, DecodeFailureIsSticky) {
  ORLIX_Stream *mem = orlix_stream_new_romem("4142zz4344", 10, 0, nullptr);
  ORLIX_Stream *hex = orlix_stream_new_hex(0, nullptr);
  ASSERT_EQ(orlix_stream_push(hex, mem), 1);
  Ctx ctx;
  char buf[8];
  uint64_t n = 0;
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(hex, buf, 5, &n, &ctx), ORLIX_ERR_STREAM_HEX_DECODE,
                   kHex);
  ASSERT_EQ(orlix_stream_ctrl(mem, ORLIX_CTRL_RESET, nullptr, nullptr), 1);
  // Every later read fails, even one of a single byte.
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(hex, buf, 1, &n, &ctx), ORLIX_ERR_STREAM_HEX_DECODE,
                   kHex);
  // The flag is checked before the length.
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(hex, buf, -1, &n, &ctx), ORLIX_ERR_STREAM_HEX_DECODE,
                   kHex);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(hex, ORLIX_CTRL_EOF, nullptr, &ctx),
                   ORLIX_ERR_STREAM_HEX_DECODE, kHex);
  orlix_stream_freeall(hex);
}

// Reads over a source that fails once everything has been handed out.
class HexOverFailingSource : public testing::Test {
 protected:
  void SetUp() override {
    src.fail_at_end = true;
    hex = orlix_stream_new_hex(0, nullptr);
    ASSERT_EQ(orlix_stream_push(hex, src.make()), 1);
  }
  void TearDown() override { orlix_stream_freeall(hex); }
  int read(int64_t length) { return orlix_stream_read(hex, buf, length, &n, &ctx); }

  PieceSource src;
  ORLIX_Stream *hex = nullptr;
  Ctx ctx;
  unsigned char buf[1000] = {};
  uint64_t n = 99;
};

TEST_F(HexOverFailingSource, EndWithCarriedDigitIsALengthError) {
  src.data = "ab1";
  EXPECT_EQ(read(10), 1);
  EXPECT_EQ(n, 1u);
  for (int again = 0; again < 2; ++again) {  // the digit stays carried
    ctx.clear();
    EXPECT_EQ(read(10), 0);
    EXPECT_TRUE(LastIs(ctx, ORLIX_ERR_STREAM_LENGTH, kHex, "stream length error"));
  }
}

TEST_F(HexOverFailingSource, EndOnTheFirstPassIsAReadPastTheEnd) {
  src.data = "ab";
  EXPECT_EQ(read(10), 1);
  EXPECT_EQ(n, 1u);
  n = 99;
  EXPECT_EQ(read(10), 0);
  EXPECT_EQ(n, 0u);
  EXPECT_TRUE(LastIs(ctx, ORLIX_ERR_STREAM_READ_PAST_END, kHex, "Read pass end of stream"));
}

TEST_F(HexOverFailingSource, EndOnALaterPassIsSuccess) {
  // Only a full pass of 1024 digits leads to a second pass.
  src.data = std::string(1024, 'c');
  EXPECT_EQ(read(1000), 1);
  EXPECT_EQ(n, 512u);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(buf), 512), std::string(512, '\xcc'));
  EXPECT_EQ(src.largest_request, 1024);
  EXPECT_EQ(src.reads, 2);
}

TEST_F(HexOverFailingSource, FailureBeforeTheEndComesBackAsItIs) {
  src.data = "0102030405";
  src.fail_at = 4;
  src.piece = 4;
  EXPECT_EQ(read(10), 1);
  EXPECT_EQ(n, 2u);
  EXPECT_FAIL_WITH(ctx, read(10), ORLIX_ERR_STREAM_FILE_READ, kTestKind);
}

TEST(HexStream, ArgumentChecks) {
  Ctx ctx;
  ORLIX_Stream *hex = orlix_stream_new_hex(1, nullptr);
  const ORLIX_StreamMethod *mt = hex->method;
  char buf[4];
  uint64_t n = 7;

  // Without a next stream.
  EXPECT_EQ(orlix_stream_write(hex, "ab", 0, &n, &ctx), 1);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(orlix_stream_read(hex, buf, 0, &n, &ctx), 1);
  EXPECT_EQ(ctx.count(), 0);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(hex, "ab", -1, &n, &ctx), ORLIX_ERR_BAD_LENGTH, kHex);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(hex, buf, -1, &n, &ctx), ORLIX_ERR_BAD_LENGTH, kHex);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(hex, "ab", 2, &n, &ctx), ORLIX_ERR_STREAM_NO_SINK, kHex);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(hex, buf, 2, &n, &ctx), ORLIX_ERR_STREAM_NO_SINK, kHex);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(hex, ORLIX_CTRL_FLUSH, nullptr, &ctx),
                   ORLIX_ERR_STREAM_NO_SINK, kHex);

  // A NULL stream reaching the methods, and a missing private record.
  ctx.clear();
  EXPECT_EQ(mt->write(nullptr, "ab", 2, &n, &ctx) + mt->read(nullptr, buf, 2, &n, &ctx) +
                mt->ctrl(nullptr, 1, nullptr, &ctx),
            0);
  EXPECT_EQ(ctx.count(), 3);
  EXPECT_TRUE(LastIs(ctx, ORLIX_ERR_NULL_POINT, kHex, "Null Point"));
  void *data = hex->data;
  hex->data = nullptr;
  ctx.clear();
  EXPECT_EQ(orlix_stream_write(hex, "ab", 2, &n, &ctx) + orlix_stream_read(hex, buf, 2, &n, &ctx) +
                orlix_stream_ctrl(hex, 1, nullptr, &ctx),
            0);
  EXPECT_EQ(ctx.count(), 3);
  EXPECT_TRUE(LastIs(ctx, ORLIX_ERR_STREAM_BAD, kHex, "Bad stream"));
  hex->data = data;

  // Codes go down unchanged, unknown ones included.
  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  ASSERT_EQ(orlix_stream_push(hex, mem), 1);
  ASSERT_EQ(orlix_stream_write(hex, "\x0f", 1, &n, nullptr), 1);
  int64_t pos = 1;
  EXPECT_EQ(orlix_stream_ctrl(hex, ORLIX_CTRL_SET_POS, &pos, nullptr), 1);
  EXPECT_EQ(orlix_stream_read(mem, buf, 4, &n, nullptr), 1);
  EXPECT_EQ(std::string(buf, n), "F");
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(hex, 13, nullptr, &ctx), ORLIX_ERR_STREAM_BAD_CTRL, kMem);
  orlix_stream_freeall(hex);
}

}  // namespace
