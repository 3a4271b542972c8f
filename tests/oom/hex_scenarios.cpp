// Hex filter chains and the one-shot hex codecs.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "scenario_util.hpp"
#include "sweep.hpp"

namespace {

using oom::Chain;

std::string HexOf(const std::vector<unsigned char> &bytes, bool upper) {
  std::string out;
  char two[3];
  for (unsigned char b : bytes) {
    std::snprintf(two, sizeof two, upper ? "%02X" : "%02x", b);
    out += two;
  }
  return out;
}

}  // namespace

// 3000 bytes written through a hex filter into a 16-byte memory stream: the
// filter passes 2048 digits at a time, so the sink grows several times. The
// text is then read back through the same chain and through a second hex
// filter over a read-only duplicate of the sink.
ORLIX_OOM_SCENARIO(Hex, FilterChain) {
  ORLIX_ErrCtx ctx{};
  Chain chain(orlix_stream_new_mem(16, &ctx));
  if (!chain) return oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Mem"), false;
  ORLIX_Stream *hex = orlix_stream_new_hex(0, &ctx);
  if (hex == nullptr) return oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Hex"), false;
  EXPECT_EQ(orlix_stream_push(hex, chain.get()), 1);
  chain.release();
  chain.reset(hex);

  const auto data = oom::Pattern(3000, 3);
  uint64_t count = 0;
  const int r = orlix_stream_write(hex, data.data(), 3000, &count, &ctx);
  if (r != 1) {
    EXPECT_EQ(r, 0);
    oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Mem");
    // Whole pieces that went through before the failure stay in the sink.
    ORLIX_Stream *sink = orlix_stream_next(hex);
    const auto text = oom::Contents(sink);
    EXPECT_EQ(text.size() % 2048, 0u);
    EXPECT_EQ(
        std::string(text.begin(), text.end()),
        HexOf(std::vector<unsigned char>(data.begin(), data.begin() + text.size() / 2), false));
    return false;
  }
  EXPECT_EQ(count, 3000u);

  ORLIX_Stream *sink = orlix_stream_next(hex);
  const auto text = oom::Contents(sink);
  EXPECT_EQ(std::string(text.begin(), text.end()), HexOf(data, false));

  std::vector<unsigned char> back(3000);
  EXPECT_EQ(orlix_stream_ctrl(hex, ORLIX_CTRL_RESET, nullptr, &ctx), 1);
  EXPECT_EQ(orlix_stream_readn(hex, back.data(), 3000, &ctx), 1);
  EXPECT_EQ(back, data);

  // A second reader needs the sink on its own.
  Chain rest(orlix_stream_pop(hex));
  Chain filter(hex);
  chain.release();
  Chain reader(orlix_memstream_dup_readonly(rest.get()));
  if (!reader) return false;
  ORLIX_Stream *hex2 = orlix_stream_new_hex(1, &ctx);
  if (hex2 == nullptr) return oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Hex"), false;
  EXPECT_EQ(orlix_stream_push(hex2, reader.get()), 1);
  reader.release();
  reader.reset(hex2);
  std::fill(back.begin(), back.end(), 0);
  EXPECT_EQ(orlix_stream_readn(hex2, back.data(), 3000, &ctx), 1);
  EXPECT_EQ(back, data);
  return true;
}

ORLIX_OOM_SCENARIO(Hex, OneShot) {
  const auto data = oom::Pattern(700, 5);
  char *text = nullptr;
  int64_t text_length = 0;
  if (orlix_hexencode(1, data.data(), 700, &text, &text_length) != 1) {
    EXPECT_EQ(text, nullptr);
    return false;
  }
  EXPECT_EQ(text_length, 1400);
  EXPECT_EQ(text, HexOf(data, true));

  unsigned char *back = nullptr;
  int64_t back_length = 0;
  const int r = orlix_hexdecode(text, text_length, &back, &back_length);
  orlix_free(text);
  if (r != 1) return false;
  EXPECT_EQ(back_length, 700);
  EXPECT_EQ(std::memcmp(back, data.data(), 700), 0);
  orlix_free(back);
  return true;
}
