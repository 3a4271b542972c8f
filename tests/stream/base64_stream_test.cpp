// The base64 filter: constructor flags, encoding blocks and line breaks,
// flush, decoding rules, carried text across reads, end of input, control
// codes and the failure entries of every path.
#include <climits>

#include "stream_test_util.hpp"

using namespace orlix_test;

namespace {

constexpr uint32_t kPad = 0;
constexpr uint32_t kNoPad = ORLIX_BASE64_NO_PAD;
constexpr uint32_t kUrl = ORLIX_BASE64_URL;

std::string Repeat(const std::string &s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

// Decodes `text` through a filter over a read-only memory stream in one
// large read after another.
Decoded Decode(uint32_t flags, const std::string &text) {
  return DecodeStream(flags, RoMem(text), [] { return int64_t{4096}; });
}

TEST(Base64Stream, ConstructorRefusesFlagsOutOfRange) {
  Ctx ctx;
  const std::pair<uint32_t, uint32_t> bad[] = {
      {5, 2},    {2, 4},         {0, 2},         {2, 0},    {kNoPad, 2}, {kUrl | kNoPad, 2},
      {2, kUrl}, {0x200 | 2, 2}, {2, 0x200 | 2}, {0x85, 2}, {2, 0x84},   {UINT32_MAX, 2}};
  for (auto [enc, dec] : bad) {
    SCOPED_TRACE(testing::Message() << enc << " " << dec);
    EXPECT_FAIL_WITH(ctx, orlix_stream_new_base64(enc, 64, dec, &ctx), ORLIX_ERR_STREAM_BASE64_FLAG,
                     kB64);
  }
  for (uint32_t eol = 1; eol <= 4; ++eol)
    for (uint32_t ws = 1; ws <= 3; ++ws) {
      ORLIX_Stream *s = orlix_stream_new_base64(eol | kNoPad | kUrl, -1, ws | kNoPad | kUrl, &ctx);
      ASSERT_NE(s, nullptr);
      EXPECT_EQ(orlix_stream_gettype(s), ORLIX_STREAM_TYPE_BASE64);
      EXPECT_EQ(s->prev, nullptr);
      EXPECT_EQ(s->next, nullptr);
      orlix_stream_free(s);
    }
}

// The stored line length is line + line % 4 (65 -> 66) and a line ends at
// the first whole group that reaches it; <= 0 means 64.
TEST(Base64Stream, LineLengthRounding) {
  const std::pair<int32_t, size_t> widths[] = {
      {1, 4},   {2, 4},   {3, 8},   {4, 4},   {5, 8},   {6, 8},  {7, 12},  {8, 8},         {63, 68},
      {64, 64}, {65, 68}, {66, 68}, {67, 72}, {76, 76}, {0, 64}, {-5, 64}, {INT32_MIN, 64}};
  std::mt19937 rng(1);
  const std::string data = RandomBytes(rng, 600);
  for (auto [line, width] : widths) {
    // 800 characters: full lines of `width`, then the rest without a line
    // ending (nothing is pending for the flush).
    const std::string text = EncodeStream(ORLIX_BASE64_EOL_LF, line, data);
    std::string expected;
    for (size_t at = 0; at < 800; at += width)
      expected += std::string(std::min(width, 800 - at), 'x') + (at + width <= 800 ? "\n" : "");
    std::string shape = text;
    for (char &c : shape)
      if (c != '\n') c = 'x';
    EXPECT_EQ(shape, expected) << "line length " << line;
  }
}

// Near INT32_MAX the stored length (INT32_MAX + 3) must not wrap: the line
// is then longer than the text, which ends without a line break.
TEST(Base64Stream, LineLengthNearInt32MaxDoesNotOverflow) {
  const std::string text = EncodeStream(ORLIX_BASE64_EOL_LF, INT32_MAX, std::string(300, 'x'));
  EXPECT_EQ(text.size(), 400u);
  EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST(Base64Stream, EncodesFinalGroupPerEndingPaddingAndAlphabet) {
  const struct {
    uint32_t flags;
    const char *data;
    const char *text;
  } cases[] = {
      {ORLIX_BASE64_EOL_CRLF, "M", "TQ==\r\n"},
      {ORLIX_BASE64_EOL_CRLF | kNoPad, "M", "TQ\r\n"},
      {ORLIX_BASE64_EOL_CR, "Ma", "TWE=\r"},
      {ORLIX_BASE64_EOL_LF, "Ma", "TWE=\n"},
      {ORLIX_BASE64_EOL_NONE, "M", "TQ=="},
      {ORLIX_BASE64_EOL_NONE | kNoPad, "Ma", "TWE"},
      {ORLIX_BASE64_EOL_CRLF, "Man", "TWFu"},  // nothing pending: no final line ending
      {ORLIX_BASE64_EOL_NONE, "\xfb\xff\xbf", "+/+/"},
      {ORLIX_BASE64_EOL_NONE | kUrl, "\xfb\xff\xbf", "-_-_"},
      {ORLIX_BASE64_EOL_LF | kUrl | kNoPad, "\xfb\xff", "-_8\n"},
  };
  for (const auto &c : cases) EXPECT_EQ(EncodeStream(c.flags, 64, c.data), c.text) << c.text;

  const std::string line(64, 'A');
  EXPECT_EQ(EncodeStream(ORLIX_BASE64_EOL_CRLF, 64, std::string(48, '\0')), line + "\r\n");
  EXPECT_EQ(EncodeStream(ORLIX_BASE64_EOL_CRLF, 64, std::string(49, '\0')), line + "\r\nAA==\r\n");
  EXPECT_EQ(EncodeStream(ORLIX_BASE64_EOL_CR, 64, std::string(96, '\0')),
            line + "\r" + line + "\r");
  EXPECT_EQ(EncodeStream(ORLIX_BASE64_EOL_NONE, 64, std::string(96, '\0')), line + line);
}

// Input goes through a 1024-byte block: a larger remainder gives exactly 341
// groups and leaves one byte pending; pending bytes lead the next block.
TEST(Base64Stream, EncodesInBlocksOf1024Bytes) {
  const struct {
    size_t size;
    std::vector<int64_t> writes;  // text lengths the sink receives
    size_t pending;               // bytes left for the flush
  } cases[] = {{1023, {1364}, 0},      {1024, {1364}, 1},
               {1025, {1364}, 2},  // the second block has no whole group: no write
               {1026, {1364, 4}, 0},   {3000, {1364, 1364, 1272}, 0},
               {2048, {1364, 1364}, 2}};
  std::mt19937 rng(2);
  for (const auto &c : cases) {
    const std::string data = RandomBytes(rng, c.size);
    PieceSink sink;
    Chain chain = Over(orlix_stream_new_base64(ORLIX_BASE64_EOL_NONE, 0, 2, nullptr), sink.make());
    uint64_t count = 0;
    ASSERT_EQ(
        orlix_stream_write(chain.get(), data.data(), static_cast<int64_t>(c.size), &count, nullptr),
        1);
    EXPECT_EQ(count, c.size);
    EXPECT_EQ(sink.writes, c.writes) << c.size;
    const size_t before = sink.data.size();
    EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_FLUSH, nullptr, nullptr), 1);
    EXPECT_EQ(sink.data.size() - before, c.pending ? 4u : 0u) << c.size;
    EXPECT_EQ(sink.data, EncodeOneShot(ORLIX_BASE64_EOL_NONE, data));
  }
}

// However the input is cut, the text is the same, lines included.
TEST(Base64Stream, PendingBytesCarryAcrossWrites) {
  std::mt19937 rng(3);
  const std::string data = RandomBytes(rng, 5000);
  for (uint32_t flags : {ORLIX_BASE64_EOL_CRLF, ORLIX_BASE64_EOL_LF | kNoPad}) {
    const std::string whole = EncodeStream(flags, 70, data);
    EXPECT_EQ(EncodeStream(flags, 70, data, {1}), whole);
    EXPECT_EQ(EncodeStream(flags, 70, data, {2, 1025, 1, 1024, 7}), whole);
    EXPECT_EQ(EncodeStream(flags, 70, data, {1023, 1023, 2}), whole);
  }
  EXPECT_EQ(EncodeStream(ORLIX_BASE64_EOL_CRLF, 64, "Man", {1, 1, 1}), "TWFu");
}

// Flush writes the final group but keeps the pending bytes: a second flush
// repeats it, and a later write encodes them again before its own bytes.
TEST(Base64Stream, FlushKeepsPendingBytes) {
  EXPECT_EQ(EncodeStream(ORLIX_BASE64_EOL_CRLF, 64, "M", {}, 2), "TQ==\r\nTQ==\r\n");
  EXPECT_EQ(EncodeStream(ORLIX_BASE64_EOL_NONE, 64, "Ma", {}, 3), "TWE=TWE=TWE=");

  PieceSink sink;
  Chain chain = Over(orlix_stream_new_base64(ORLIX_BASE64_EOL_LF, 8, 2, nullptr), sink.make());
  ASSERT_EQ(orlix_stream_writen(chain.get(), "abcdefgM", 8, nullptr), 1);
  EXPECT_EQ(sink.data, "YWJjZGVm\n");
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_FLUSH, nullptr, nullptr), 1);
  EXPECT_EQ(sink.data, "YWJjZGVm\nZ00=\n");
  EXPECT_EQ(sink.ctrls, std::vector<int64_t>{ORLIX_CTRL_FLUSH});  // passed on after the text
  ASSERT_EQ(orlix_stream_writen(chain.get(), "a", 1, nullptr), 1);
  EXPECT_EQ(sink.data, "YWJjZGVm\nZ00=\nZ01h");  // "gM" + "a", column restarted by the flush
  // A flush in the middle of a line ends it: the next line is whole again
  // (and starts with the byte the flush kept).
  PieceSink mid;
  Chain mid_chain = Over(orlix_stream_new_base64(ORLIX_BASE64_EOL_LF, 8, 2, nullptr), mid.make());
  ASSERT_EQ(orlix_stream_writen(mid_chain.get(), "abcd", 4, nullptr), 1);
  ASSERT_EQ(orlix_stream_ctrl(mid_chain.get(), ORLIX_CTRL_FLUSH, nullptr, nullptr), 1);
  ASSERT_EQ(orlix_stream_writen(mid_chain.get(), "abcdef", 6, nullptr), 1);
  EXPECT_EQ(mid.data, "YWJjZA==\nZGFiY2Rl\n");

  // With nothing pending, flush writes nothing but still reaches the sink.
  PieceSink sink2;
  Chain chain2 = Over(orlix_stream_new_base64(ORLIX_BASE64_EOL_CRLF, 64, 2, nullptr), sink2.make());
  EXPECT_EQ(orlix_stream_ctrl(chain2.get(), ORLIX_CTRL_FLUSH, nullptr, nullptr), 1);
  EXPECT_TRUE(sink2.writes.empty());
  EXPECT_EQ(sink2.ctrls.size(), 1u);
}

TEST(Base64Stream, WriteAndFlushFailures) {
  Ctx ctx;
  ORLIX_Stream *b = orlix_stream_new_base64(2, 64, 2, nullptr);
  const ORLIX_StreamMethod *m = b->method;
  uint64_t count = 99;
  EXPECT_FAIL_WITH(ctx, m->write(nullptr, "a", 1, &count, &ctx), ORLIX_ERR_NULL_POINT, kB64);
  EXPECT_FAIL_WITH(ctx, m->read(nullptr, &count, 1, &count, &ctx), ORLIX_ERR_NULL_POINT, kB64);
  EXPECT_FAIL_WITH(ctx, m->ctrl(nullptr, 6, nullptr, &ctx), ORLIX_ERR_NULL_POINT, kB64);
  void *data = b->data;
  b->data = nullptr;
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(b, "a", 1, &count, &ctx), ORLIX_ERR_STREAM_BAD, kB64);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(b, &count, 1, &count, &ctx), ORLIX_ERR_STREAM_BAD, kB64);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(b, 6, nullptr, &ctx), ORLIX_ERR_STREAM_BAD, kB64);
  b->data = data;
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(b, "a", -1, &count, &ctx), ORLIX_ERR_BAD_LENGTH, kB64);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(b, &count, -1, &count, &ctx), ORLIX_ERR_BAD_LENGTH, kB64);
  EXPECT_EQ(orlix_stream_write(b, "a", 0, &count, &ctx), 1);  // before the next check
  EXPECT_EQ(count, 0u);
  count = 99;
  EXPECT_EQ(orlix_stream_read(b, &count, 0, &count, &ctx), 1);
  EXPECT_EQ(count, 0u);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(b, "a", 1, &count, &ctx), ORLIX_ERR_STREAM_NO_SINK,
                   kB64);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(b, &count, 1, &count, &ctx), ORLIX_ERR_STREAM_NO_SINK,
                   kB64);
  for (int64_t code : {2, 6, 11, 20, 1})
    EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(b, code, &count, &ctx), ORLIX_ERR_STREAM_NO_SINK, kB64);

  // A failing sink's result and entry come back unchanged, from write and
  // from flush alike.
  PieceSink sink;
  sink.limit = 0;
  Chain chain = Over(b, sink.make());
  ctx.clear();
  EXPECT_EQ(orlix_stream_write(b, "abcd", 4, &count, &ctx), 0);
  EXPECT_TRUE(OneErr(ctx, ORLIX_ERR_STREAM_WRITE_FAIL, kTestKind));
  ctx.clear();
  EXPECT_EQ(orlix_stream_ctrl(b, ORLIX_CTRL_FLUSH, nullptr, &ctx), 0);
  EXPECT_TRUE(OneErr(ctx, ORLIX_ERR_STREAM_WRITE_FAIL, kTestKind));
  EXPECT_TRUE(sink.ctrls.empty());
}

TEST(Base64Stream, WhitespaceModes) {
  const struct {
    const char *text;
    bool ok[3];  // whitespace modes 1, 2, 3
  } cases[] = {
      {"TWFu", {true, true, true}},          {"TWFu\r\nTWFu", {false, true, true}},
      {"\nTW\rF\nu\r", {false, true, true}}, {"TWFu TWFu", {false, false, true}},
      {"TW\tFu", {false, false, true}},      {"TQ= =", {false, false, true}},
      {" \t\r\n", {false, false, true}},
  };
  for (const auto &c : cases)
    for (uint32_t ws = 1; ws <= 3; ++ws) {
      const Decoded d = Decode(ws, c.text);
      EXPECT_EQ(d.ok, c.ok[ws - 1]) << c.text << " mode " << ws;
      if (!d.ok) {
        EXPECT_EQ(d.code, ORLIX_ERR_STREAM_BASE64_DECODE);
      }
    }
  EXPECT_EQ(Decode(3, "T W\tF\nu\rT Q = =").bytes, "ManM");
}

// Every byte outside the alphabet, "=" and whitespace fails, in every mode;
// each alphabet refuses the other's two extra digits.
TEST(Base64Stream, EveryInvalidByteFails) {
  const std::string std_digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (int c = 0; c < 256; ++c) {
    if (c == '=' || c == '\r' || c == '\n' || c == '\t' || c == ' ') continue;
    const bool in_std = std_digits.find(static_cast<char>(c)) != std::string::npos;
    const bool in_url = in_std ? c != '+' && c != '/' : c == '-' || c == '_';
    const std::string text = "TWFu" + std::string(1, static_cast<char>(c)) + "WFu";
    for (uint32_t flags : {3u, 3u | kUrl, 3u | kNoPad, 1u | kUrl | kNoPad}) {
      const bool valid = (flags & kUrl) ? in_url : in_std;
      const Decoded d = Decode(flags, text);
      EXPECT_EQ(d.ok, valid) << "byte " << c << " flags " << flags;
      if (!valid) {
        EXPECT_EQ(d.code, ORLIX_ERR_STREAM_BASE64_DECODE) << c;
      }
    }
  }
}

TEST(Base64Stream, PaddingRules) {
  const struct {
    uint32_t flags;
    const char *text;
    bool ok;
    const char *bytes;
  } cases[] = {
      {2, "TQ==", true, "M"},
      {2, "TWE=", true, "Ma"},
      {2, "TQ==\r\n\r\n", true, "M"},
      {2, "TR==", false, ""},  // low 4 bits of the last digit must be 0
      {2, "TWF=", false, ""},  // low 2 bits must be 0
      {2, "T===", false, ""},  // "=" after one digit
      {2, "====", false, ""},
      {2, "TQ=Q", false, ""},      // a digit after "=" in the group
      {2, "TQ==TQ==", false, ""},  // nothing after a padded group
      {2, "TWE=TWFu", false, ""},
      {2, "TWE==", false, ""},     // a third "=" once the group is complete
      {2, "TQ===", false, ""},
      {2, "TWFuTQ", true, "Man"},  // an unfinished group stays carried
      {2, "TQ=", true, ""},
      {2 | kNoPad, "TQ==", false, ""},  // unpadded input has no "="
      {2 | kNoPad, "TQ", true, "M"},
      {2 | kNoPad, "TWE", true, "Ma"},
      {2 | kNoPad, "TWFuTWE\r\n", true, "ManMa"},
      {2 | kNoPad, "TWFu", true, "Man"},
      {2 | kNoPad, "T", false, ""},  // one digit cannot end the input
      {2 | kNoPad, "TR", false, ""},
      {2 | kNoPad, "TWF", false, ""},
  };
  for (const auto &c : cases) {
    const Decoded d = Decode(c.flags, c.text);
    EXPECT_EQ(d.ok, c.ok) << c.text;
    if (d.ok) {
      EXPECT_EQ(d.bytes, c.bytes) << c.text;
    } else {
      EXPECT_EQ(d.code, ORLIX_ERR_STREAM_BASE64_DECODE) << c.text;
    }
    // The one-shot decoder agrees, dropping a padded unfinished group too.
    const Decoded one = DecodeOneShot(c.flags, c.text);
    EXPECT_EQ(one.ok, c.ok) << c.text;
    EXPECT_EQ(one.bytes, d.bytes) << c.text;
  }
}

// Text carried from one read to the next: "TQ=" waits for its second "=".
TEST(Base64Stream, CarriesUnfinishedGroupsAcrossReads) {
  const std::pair<const char *, const char *> cases[] = {{"TQ==", "M"},
                                                         {"TWE=", "Ma"},
                                                         {"T W\tF u", "Man"},
                                                         {"TQ=\r\n=", "M"},
                                                         {"TWFuTWFu\nTQ==", "ManManM"}};
  for (auto [text, bytes] : cases) {
    for (size_t piece = 1; piece <= 4; ++piece) {
      PieceSource src;
      src.data = text;
      src.piece = piece;
      const Decoded d = DecodeStream(3, src.make(), [] { return int64_t{1}; });
      EXPECT_TRUE(d.ok) << text << " piece " << piece;
      EXPECT_EQ(d.bytes, bytes) << text << " piece " << piece;
    }
  }
  // "TQ=" alone delivers nothing and keeps all three characters: the filter
  // is not at its end although its source is.
  PieceSource src;
  src.data = "TQ=";
  Chain chain = Over(orlix_stream_new_base64(2, 64, 2, nullptr), src.make());
  char out[4];
  uint64_t n = 9;
  EXPECT_EQ(orlix_stream_read(chain.get(), out, 4, &n, nullptr), 1);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_EOF, nullptr, nullptr), 0);
  ORLIX_DataBlob *blob = nullptr;
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_BASE64_REMAINDER, &blob, nullptr), 0);
  src.data += "=";
  EXPECT_EQ(orlix_stream_read(chain.get(), out, 4, &n, nullptr), 1);
  EXPECT_EQ(std::string(out, n), "M");
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_EOF, nullptr, nullptr), 1);
}

// A decoding failure is sticky: later reads fail, codes 11 and 20 answer 0.
// The encoding side and other codes keep working.
TEST(Base64Stream, DecodeFailureIsSticky) {
  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  ASSERT_EQ(orlix_stream_writen(mem, "TWFu!TWFu", 9, nullptr), 1);
  Chain chain = Over(orlix_stream_new_base64(ORLIX_BASE64_EOL_NONE, 64, 2, nullptr), mem);
  Ctx ctx;
  char out[16];
  uint64_t n = 0;
  ASSERT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_RESET, nullptr, &ctx), 1);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(chain.get(), out, 16, &n, &ctx),
                   ORLIX_ERR_STREAM_BASE64_DECODE, kB64);
  ASSERT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_RESET, nullptr, &ctx), 1);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(chain.get(), out, 1, &n, &ctx),
                   ORLIX_ERR_STREAM_BASE64_DECODE, kB64);
  ctx.clear();
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_EOF, nullptr, &ctx), 0);
  ORLIX_DataBlob *blob = nullptr;
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_BASE64_REMAINDER, &blob, &ctx), 0);
  EXPECT_EQ(blob, nullptr);
  EXPECT_EQ(ctx.count(), 0);
  uint64_t pos = 0;
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_GET_POS, &pos, &ctx), 1);
  EXPECT_EQ(orlix_stream_writen(chain.get(), "Man", 3, &ctx), 1);
}

// The end of the input as a file stream reports it: the read that meets it
// fails, and code 11 then tells the filter that this is the end.
TEST(Base64Stream, EndOfAFailingSource) {
  char out[1024];
  uint64_t n = 0;
  Ctx ctx;
  {
    // A full pass, then the end within the same call: what was delivered
    // counts (the file's failed read stays recorded). The next call
    // delivers nothing and reports the end.
    TempFile file(Repeat("TWFu", 256));
    Chain chain = Over(orlix_stream_new_base64(2, 64, 2, nullptr),
                       orlix_stream_new_file(file.path.c_str(), ORLIX_FILE_READ, nullptr));
    EXPECT_EQ(orlix_stream_read(chain.get(), out, 1000, &n, &ctx), 1);
    EXPECT_EQ(n, 768u);
    EXPECT_TRUE(OneErr(ctx, ORLIX_ERR_STREAM_FILE_READ, kFile));
    ctx.clear();
    EXPECT_EQ(orlix_stream_read(chain.get(), out, 1000, &n, &ctx), 0);
    EXPECT_EQ(n, 0u);
    ASSERT_EQ(ctx.count(), 2);  // the file's own entry, then the filter's
    EXPECT_EQ(ctx.entries[ctx.tail].code, ORLIX_ERR_STREAM_READ_PAST_END);
    EXPECT_STREQ(ctx.entries[ctx.tail].module, kFile);
    EXPECT_EQ(ctx.last().code, ORLIX_ERR_STREAM_READ_PAST_END);
    EXPECT_STREQ(ctx.last().module, kB64);
    EXPECT_STREQ(ctx.last().description, "Read pass end of stream");
  }
  for (uint32_t flags : {2u, 2u | kNoPad}) {
    // Text still carried at the end is a length error, padded or not.
    PieceSource src;
    src.data = "TWFuTQ";
    src.fail_at_end = true;
    Chain chain = Over(orlix_stream_new_base64(2, 64, flags, nullptr), src.make());
    EXPECT_EQ(orlix_stream_read(chain.get(), out, 100, &n, &ctx), 1);
    EXPECT_EQ(std::string(out, n), "Man");
    ctx.clear();
    EXPECT_EQ(orlix_stream_read(chain.get(), out, 100, &n, &ctx), 0);
    ASSERT_EQ(ctx.count(), 2);
    EXPECT_EQ(ctx.last().code, ORLIX_ERR_STREAM_LENGTH);
    EXPECT_STREQ(ctx.last().module, kB64);
    EXPECT_STREQ(ctx.last().description, "stream length error");
  }
  // A source that fails before its end: its result and entry only.
  struct FailingMidway {
    static int read(ORLIX_Stream *, void *, int64_t, uint64_t *, ORLIX_ErrCtx *c) {
      orlix_err_ctx_put(c, "test_source", 2, ORLIX_ERR_STREAM_FILE_READ, "read file fail");
      return 0;
    }
    static int ctrl(ORLIX_Stream *, int64_t, void *, ORLIX_ErrCtx *) { return 0; }
  };
  static constexpr ORLIX_StreamMethod kFailing = {FailingMidway::read, nullptr, nullptr,
                                                  FailingMidway::ctrl};
  Chain chain =
      Over(orlix_stream_new_base64(2, 64, 2, nullptr), make_stream(&kFailing, 0x20043u, nullptr));
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(chain.get(), out, 10, &n, &ctx),
                   ORLIX_ERR_STREAM_FILE_READ, "test_source");
}

TEST(Base64Stream, ControlCodes) {
  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  ASSERT_EQ(orlix_stream_writen(mem, "TWFuTWE", 7, nullptr), 1);
  Chain chain = Over(orlix_stream_new_base64(2, 64, 2 | kNoPad, nullptr), mem);
  Ctx ctx;
  uint64_t v = 77;
  // Length is refused without an entry; unknown codes reach the sink.
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_GET_LENGTH, &v, &ctx), 0);
  EXPECT_EQ(ctx.count(), 0);
  EXPECT_EQ(v, 77u);
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_GET_POS, &v, &ctx), 1);
  EXPECT_EQ(v, 7u);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(chain.get(), ORLIX_CTRL_MD_LENGTH, &v, &ctx),
                   ORLIX_ERR_STREAM_BAD_CTRL, kMem);
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_EOF, nullptr, &ctx), 1);  // the sink's
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_RESET, nullptr, &ctx), 1);
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_EOF, nullptr, &ctx), 0);

  // Code 20: an empty blob while nothing is carried, the final group once
  // "TWE" is, then empty again; NULL argument refused.
  ORLIX_DataBlob *blob = nullptr;
  ASSERT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_BASE64_REMAINDER, &blob, &ctx), 1);
  EXPECT_EQ(blob->length, 0);
  orlix_data_blob_free(blob);
  char out[8];
  uint64_t n = 0;
  ASSERT_EQ(orlix_stream_read(chain.get(), out, 8, &n, &ctx), 1);
  EXPECT_EQ(std::string(out, n), "Man");
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_EOF, nullptr, &ctx), 0);  // "TWE" carried
  ctx.clear();
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_BASE64_REMAINDER, nullptr, &ctx), 0);
  EXPECT_EQ(ctx.count(), 0);
  ASSERT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_BASE64_REMAINDER, &blob, &ctx), 1);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(blob->data), blob->length), "Ma");
  orlix_data_blob_free(blob);
  EXPECT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_EOF, nullptr, &ctx), 1);
  ASSERT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_BASE64_REMAINDER, &blob, &ctx), 1);
  EXPECT_EQ(blob->length, 0);
  orlix_data_blob_free(blob);

  // A single carried digit cannot end the input: that failure is sticky.
  Chain one = Over(orlix_stream_new_base64(2, 64, 2 | kNoPad, nullptr), RoMem("T"));
  ASSERT_EQ(orlix_stream_read(one.get(), out, 8, &n, &ctx), 1);
  EXPECT_EQ(n, 0u);
  blob = nullptr;
  EXPECT_EQ(orlix_stream_ctrl(one.get(), ORLIX_CTRL_BASE64_REMAINDER, &blob, &ctx), 0);
  EXPECT_EQ(blob, nullptr);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(one.get(), out, 8, &n, &ctx),
                   ORLIX_ERR_STREAM_BASE64_DECODE, kB64);

  // Padded input with a carried group: code 20 declines without an entry.
  Chain padded = Over(orlix_stream_new_base64(2, 64, 2, nullptr), RoMem("TWE"));
  ASSERT_EQ(orlix_stream_read(padded.get(), out, 8, &n, &ctx), 1);
  ctx.clear();
  EXPECT_EQ(orlix_stream_ctrl(padded.get(), ORLIX_CTRL_BASE64_REMAINDER, &blob, &ctx), 0);
  EXPECT_EQ(ctx.count(), 0);
  EXPECT_EQ(orlix_stream_read(padded.get(), out, 8, &n, &ctx), 1);  // not a failure
}

TEST(Base64Codec, OneShotArgumentsAndResults) {
  char *text = nullptr;
  int64_t tn = -1;
  unsigned char *data = nullptr;
  int64_t dn = -1;
  EXPECT_EQ(orlix_base64encode(2, nullptr, 1, &text, &tn), 0);
  EXPECT_EQ(orlix_base64encode(2, "M", 0, &text, &tn), 0);
  EXPECT_EQ(orlix_base64encode(2, "M", -1, &text, &tn), 0);
  EXPECT_EQ(orlix_base64encode(2, "M", 1, nullptr, &tn), 0);
  EXPECT_EQ(orlix_base64encode(2, "M", 1, &text, nullptr), 0);
  EXPECT_EQ(orlix_base64encode(5, "M", 1, &text, &tn), 0);
  EXPECT_EQ(orlix_base64decode(2, nullptr, 4, &data, &dn), 0);
  EXPECT_EQ(orlix_base64decode(2, "TQ==", 0, &data, &dn), 0);
  EXPECT_EQ(orlix_base64decode(2, "TQ==", 4, nullptr, &dn), 0);
  EXPECT_EQ(orlix_base64decode(2, "TQ==", 4, &data, nullptr), 0);
  EXPECT_EQ(orlix_base64decode(4, "TQ==", 4, &data, &dn), 0);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(data, nullptr);

  EXPECT_EQ(EncodeOneShot(ORLIX_BASE64_EOL_CRLF, "M"), "TQ==\r\n");
  EXPECT_EQ(EncodeOneShot(ORLIX_BASE64_EOL_NONE | kNoPad | kUrl, "\xfb\xff"), "-_8");
  EXPECT_EQ(EncodeOneShot(ORLIX_BASE64_EOL_LF, std::string(48, '\0')), std::string(64, 'A') + "\n");
  // The one-shot decoder reads in 8192-byte pieces; long text crosses many.
  std::mt19937 rng(5);
  const std::string big = RandomBytes(rng, 100000);
  const std::string big_text = EncodeOneShot(ORLIX_BASE64_EOL_CRLF, big);
  EXPECT_EQ(DecodeOneShot(2, big_text).bytes, big);
  EXPECT_FALSE(DecodeOneShot(1, big_text).ok);
  EXPECT_FALSE(DecodeOneShot(2, big_text + "!").ok);
  // An empty result is still a block of its own.
  const Decoded empty = DecodeOneShot(2, "\r\n");
  EXPECT_TRUE(empty.ok);
  EXPECT_EQ(empty.bytes, "");
}

}  // namespace
