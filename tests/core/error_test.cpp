// Error contexts: the ring, printing and stream output, the error texts and
// the per-thread last error.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "ORLIX_Error.h"
#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "owned.hpp"

namespace {

std::string Printed(const ORLIX_ErrCtx *ctx) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(orlix_err_ctx_print(ctx), 1);
  return testing::internal::GetCapturedStderr();
}

std::string PrintLine(uint32_t code, const std::string &desc, const char *module, int line) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "%08X", code);
  return "0X" + std::string(hex) + " " + desc + " " + module + "(" + std::to_string(line) + ")\n";
}

// The stream form pads the description to 512 columns and the module to 64.
std::string OutputLine(uint32_t code, const std::string &desc, const std::string &module,
                       int line) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "%08X", code);
  return "0X" + std::string(hex) + " " + std::string(512 - desc.size(), ' ') + desc + " " +
         std::string(64 - module.size(), ' ') + module + "(" + std::to_string(line) + ")\n";
}

// Runs orlix_err_ctx_output into a fresh memory stream and returns its text.
std::string Output(const ORLIX_ErrCtx *ctx) {
  ORLIX_Stream *stream = orlix_stream_new_mem(0, nullptr);
  EXPECT_NE(stream, nullptr);
  uint32_t code = 0xDEAD;
  EXPECT_EQ(orlix_err_ctx_output(stream, ctx, &code), 1);
  EXPECT_EQ(code, 0xDEADu);
  unsigned char *buffer = nullptr;
  int64_t length = 0;
  EXPECT_EQ(orlix_memstreamdeatch(stream, &buffer, &length), 1);
  std::string text(reinterpret_cast<char *>(buffer), static_cast<size_t>(length));
  orlix_stream_free(stream);
  orlix_free(buffer);
  return text;
}

using CtxPtr = orlix_test::CtxPtr;
CtxPtr NewCtx() { return CtxPtr(orlix_err_ctx_new()); }

int Held(const ORLIX_ErrCtx &c) { return (c.head - c.tail + 32) % 32; }

TEST(ErrorContext, FreshContextAndNullArguments) {
  CtxPtr ctx = NewCtx();
  ASSERT_NE(ctx, nullptr);
  ORLIX_ErrCtx zero{};
  EXPECT_EQ(std::memcmp(ctx.get(), &zero, sizeof zero), 0);

  uint32_t code = 0;
  EXPECT_EQ(orlix_err_ctx_geterrcode(ctx.get(), &code), 1);
  EXPECT_EQ(code, ORLIX_ERR_NONE);
  int32_t len = 0;
  EXPECT_EQ(orlix_err_ctx_geterrdesc(ctx.get(), nullptr, 0, &len), 1);
  EXPECT_EQ(len, 1);
  char buf[4] = {'x', 'x', 'x', 'x'};
  len = 0;
  EXPECT_EQ(orlix_err_ctx_geterrdesc(ctx.get(), buf, 0, &len), 0);
  EXPECT_EQ(len, 1);
  EXPECT_EQ(buf[0], 'x');
  EXPECT_EQ(orlix_err_ctx_geterrdesc(ctx.get(), buf, 1, &len), 1);
  EXPECT_EQ(buf[0], '\0');
  EXPECT_EQ(Printed(ctx.get()), "No Error\n");
  EXPECT_EQ(Printed(&zero), "No Error\n");  // a zero-filled record is an empty context

  EXPECT_EQ(orlix_err_ctx_geterrcode(nullptr, &code), 0);
  EXPECT_EQ(orlix_err_ctx_geterrcode(ctx.get(), nullptr), 0);
  EXPECT_EQ(orlix_err_ctx_geterrdesc(nullptr, buf, 4, &len), 0);
  EXPECT_EQ(orlix_err_ctx_geterrdesc(ctx.get(), buf, 4, nullptr), 0);
  EXPECT_EQ(orlix_err_ctx_print(nullptr), 0);
  EXPECT_EQ(orlix_err_ctx_clean(nullptr), 0);
  EXPECT_EQ(orlix_err_ctx_copy(nullptr, ctx.get()), 0);
  EXPECT_EQ(orlix_err_ctx_copy(ctx.get(), nullptr), 0);
  orlix_err_ctx_free(nullptr);
}

TEST(ErrorContext, PutRefusesWithoutChange) {
  ORLIX_ErrCtx ctx{};
  ASSERT_EQ(orlix_err_ctx_put(&ctx, "ORLIX_Error", 5, 0x10001, "Bad Length"), 1);
  ORLIX_ErrCtx before = ctx;
  EXPECT_EQ(orlix_err_ctx_put(&ctx, nullptr, 1, 7, "x"), 0);
  EXPECT_EQ(orlix_err_ctx_put(&ctx, "M", -1, 7, "x"), 0);
  EXPECT_EQ(orlix_err_ctx_put(nullptr, "M", 1, 7, "x"), 0);
  EXPECT_EQ(std::memcmp(&ctx, &before, sizeof ctx), 0);
  EXPECT_EQ(orlix_err_ctx_put(&ctx, "M", 0, 7, nullptr), 1);  // line 0 is valid
  EXPECT_EQ(ctx.head, 2);
}

TEST(ErrorContext, DescriptionIsCutAtSixtyThreeAndPadded) {
  ORLIX_ErrCtx ctx{};
  std::memset(ctx.entries[0].description, 'x', sizeof ctx.entries[0].description);
  const std::string hundred(100, 'd');
  ASSERT_EQ(orlix_err_ctx_put(&ctx, "M", 1, 2, hundred.c_str()), 1);
  EXPECT_EQ(std::string(ctx.entries[0].description), hundred.substr(0, 63));  // ended in place

  // A reused slot holding a long text: a short text is NUL-padded, NULL
  // leaves the empty text.
  std::memset(ctx.entries[1].description, 'x', 63);
  std::memset(ctx.entries[2].description, 'x', 63);
  ASSERT_EQ(orlix_err_ctx_put(&ctx, "M", 2, 3, "ab"), 1);
  ASSERT_EQ(orlix_err_ctx_put(&ctx, "M", 3, 4, nullptr), 1);
  EXPECT_STREQ(ctx.entries[1].description, "ab");
  for (int i = 2; i < 64; ++i) EXPECT_EQ(ctx.entries[1].description[i], '\0') << i;
  EXPECT_STREQ(ctx.entries[2].description, "");
}

TEST(ErrorContext, RingWrapsAndPrintStopsAtSlotZero) {
  ORLIX_ErrCtx ctx{};
  for (uint32_t n = 1; n <= 32; ++n) {
    ASSERT_EQ(orlix_err_ctx_put(&ctx, "Mod", int32_t(n), n, ("e" + std::to_string(n)).c_str()), 1);
    EXPECT_EQ(Held(ctx), n < 32 ? int(n) : 31);
  }
  EXPECT_EQ(ctx.head, 0);
  EXPECT_EQ(ctx.tail, 1);
  uint32_t code = 0;
  ASSERT_EQ(orlix_err_ctx_geterrcode(&ctx, &code), 1);
  EXPECT_EQ(code, 32u);  // the newest entry sits in slot 31 when head is 0
  int32_t len = 0;
  EXPECT_EQ(orlix_err_ctx_geterrdesc(&ctx, nullptr, 0, &len), 1);
  EXPECT_EQ(len, 4);  // "e32"

  std::string expected;
  for (int n = 32; n >= 2; --n) expected += PrintLine(n, "e" + std::to_string(n), "Mod", n);
  EXPECT_EQ(Printed(&ctx), expected);

  ASSERT_EQ(orlix_err_ctx_put(&ctx, "Mod", 33, 33, "e33"), 1);
  EXPECT_EQ(ctx.head, 1);
  EXPECT_EQ(ctx.tail, 2);
  ASSERT_EQ(orlix_err_ctx_geterrcode(&ctx, &code), 1);
  EXPECT_EQ(code, 33u);
  EXPECT_EQ(Printed(&ctx), "");  // tail lies above the newest slot: nothing
  EXPECT_EQ(Output(&ctx), "");

  for (int n = 34; n <= 100; ++n) {
    ASSERT_EQ(orlix_err_ctx_put(&ctx, "Mod", n, n, nullptr), 1);
    EXPECT_EQ(Held(ctx), 31);
  }
}

TEST(ErrorContext, PrintFormat) {
  ORLIX_ErrCtx ctx{};
  orlix_err_ctx_put(&ctx, "ORLIX_Stream", 42, 0x10102, "Bad stream");
  orlix_err_ctx_put(&ctx, "ORLIX_Error", 7, 0xABC, "");
  EXPECT_EQ(Printed(&ctx), "0X00000ABC  ORLIX_Error(7)\n0X00010102 Bad stream ORLIX_Stream(42)\n");
}

TEST(ErrorContext, GetErrDescCopiesCallerBufferIntoEntry) {
  ORLIX_ErrCtx ctx{};
  orlix_err_ctx_put(&ctx, "M", 1, 9, "abc");
  int32_t len = 0;
  char small[3] = {'Q', 'Q', 'Q'};
  EXPECT_EQ(orlix_err_ctx_geterrdesc(&ctx, small, 3, &len), 0);
  EXPECT_EQ(len, 4);
  EXPECT_STREQ(ctx.entries[0].description, "abc");

  char buf[10] = "XYZ";
  len = 0;
  EXPECT_EQ(orlix_err_ctx_geterrdesc(&ctx, buf, 10, &len), 1);
  EXPECT_EQ(len, 4);
  EXPECT_STREQ(buf, "XYZ");  // the caller's buffer is not written
  EXPECT_STREQ(ctx.entries[0].description, "XYZ");

  // Exactly n = 4 bytes move, whatever they are.
  char unterminated[8] = {'W', 'X', 'Y', 'Z', 'V', 'V', 'V', 'V'};
  EXPECT_EQ(orlix_err_ctx_geterrdesc(&ctx, unterminated, 8, &len), 1);
  EXPECT_STREQ(ctx.entries[0].description, "WXYZ");
  EXPECT_EQ(Printed(&ctx), PrintLine(9, "WXYZ", "M", 1));
}

TEST(ErrorContext, CopyAndClean) {
  ORLIX_ErrCtx from{}, to{};
  orlix_err_ctx_put(&from, "A", 1, 0x10000, "Out Of Memory");
  orlix_err_ctx_put(&to, "B", 2, 0x10001, "Bad Length");
  orlix_err_ctx_put(&to, "B", 3, 0x10002, "Null Point");
  const ORLIX_ErrCtx original = from;
  ASSERT_EQ(orlix_err_ctx_copy(&from, &to), 1);
  EXPECT_EQ(std::memcmp(&to, &original, sizeof to), 0);
  EXPECT_EQ(std::memcmp(&from, &original, sizeof from), 0);

  ASSERT_EQ(orlix_err_ctx_clean(&to), 1);
  const ORLIX_ErrCtx zero{};
  EXPECT_EQ(std::memcmp(&to, &zero, sizeof to), 0);
}

TEST(ErrorContext, OutputIntoMemoryStream) {
  ORLIX_ErrCtx ctx{};
  EXPECT_EQ(Output(&ctx), "No Error\n");
  const std::string longest(63, 'L');
  orlix_err_ctx_put(&ctx, "ORLIX_Stream_Mem", 120, 0x10101, "Stream cannot grow");
  orlix_err_ctx_put(&ctx, "ORLIX_Error", 0, 0x10004, (longest + "cut").c_str());
  EXPECT_EQ(Output(&ctx), OutputLine(0x10004, longest, "ORLIX_Error", 0) +
                              OutputLine(0x10101, "Stream cannot grow", "ORLIX_Stream_Mem", 120));
}

TEST(ErrorContext, OutputArgumentChecksAndFailingWrite) {
  ORLIX_ErrCtx ctx{};
  orlix_err_ctx_put(&ctx, "M", 1, 5, "five");
  ORLIX_Stream *sink = orlix_stream_new_romem("abc", 3, 0, nullptr);
  ASSERT_NE(sink, nullptr);
  uint32_t code = 0;
  EXPECT_EQ(orlix_err_ctx_output(nullptr, &ctx, &code), 0);
  EXPECT_EQ(code, ORLIX_ERR_STREAM_BAD);
  code = 0;
  EXPECT_EQ(orlix_err_ctx_output(nullptr, nullptr, &code), 0);
  EXPECT_EQ(code, ORLIX_ERR_STREAM_BAD);  // the stream is checked first
  EXPECT_EQ(orlix_err_ctx_output(sink, nullptr, &code), 0);
  EXPECT_EQ(code, ORLIX_ERR_NULL_POINT);

  // A read-only sink refuses the write; its code comes back, and the
  // caller's context is not where the stream's failure is recorded.
  const ORLIX_ErrCtx before = ctx;
  code = 0;
  EXPECT_EQ(orlix_err_ctx_output(sink, &ctx, &code), 0);
  EXPECT_EQ(code, ORLIX_ERR_STREAM_READONLY);
  EXPECT_EQ(std::memcmp(&ctx, &before, sizeof ctx), 0);
  EXPECT_EQ(orlix_err_ctx_output(sink, &ctx, nullptr), 0);
  ORLIX_ErrCtx empty{};
  code = 0;
  EXPECT_EQ(orlix_err_ctx_output(sink, &empty, &code), 0);
  EXPECT_EQ(code, ORLIX_ERR_STREAM_READONLY);
  orlix_stream_free(sink);
}

TEST(ErrorText, GeneralAndStreamTables) {
  const char *general[] = {"Out Of Memory", "Bad Length", "Null Point", "This method not support",
                           "unexcpeted error"};
  for (int i = 0; i < 5; ++i) EXPECT_STREQ(orlix_igetGeneralError(0x10000 + i), general[i]);
  // clang-format off
  const char *stream[] = {
      "Write a readonly stream", "Stream cannot grow", "Bad stream", "Read pass end of stream",
      "Write stream fail", "pos is invalid", "read file fail", "write file fail",
      "file already close", "reset fail", "file close fail", "error file mode", "open file fail",
      "no source/sink stream", "stream length error", "hex decode fail", "bad base64 flag",
      "base64 decode fail", "file flush fail", "bad md function", "get stream length fail",
      "unsupported ctrl code", "pem decode fail", "md update fail", "md finish fail",
      "stream can not read", "stream can not write", "wirte pos and read pos are difference"};
  // clang-format on
  for (int i = 0; i < 28; ++i) EXPECT_STREQ(orlix_igetStreamError(0x10100 + i), stream[i]);

  for (int32_t code : {0, 1, -1, INT32_MIN, INT32_MAX, 0xFFFF, 0x10005, 0x100FF, 0x1011C}) {
    EXPECT_STREQ(orlix_igetGeneralError(code), "") << code;
    EXPECT_STREQ(orlix_igetStreamError(code), "") << code;
  }
  EXPECT_STREQ(orlix_igetGeneralError(0x10100), "");
  EXPECT_STREQ(orlix_igetStreamError(0x10000), "");
}

TEST(LastError, IsPerThread) {
  EXPECT_EQ(orlix_setlasterror(5), 1);
  uint32_t seen_first = 99, seen_after = 0;
  std::thread other([&] {
    seen_first = orlix_getlasterror();
    orlix_setlasterror(0xFFFFFFFFu);
    seen_after = orlix_getlasterror();
  });
  other.join();
  EXPECT_EQ(seen_first, 0u);
  EXPECT_EQ(seen_after, 0xFFFFFFFFu);
  EXPECT_EQ(orlix_getlasterror(), 5u);
}

}  // namespace
