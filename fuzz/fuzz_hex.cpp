// Hex decoding must agree between the one-shot orlix_hexdecode and a hex
// filter read in pieces of varying size over a read-only memory stream: the
// one-shot codec accepts exactly the even, non-empty texts of digits, the
// filter fails exactly when a digit pair before an odd last digit is bad
// (and then stays failed), and both give the digit pairs' bytes. Encoding is
// checked the same way (one-shot against the filter's writes) and by a round
// trip.
//
// Input: [piece count] [piece sizes...] [flags] [source limit count]
//        [source limits...] [failing read] [text...] (the source script bytes
//        are read and ignored, so that older seeds keep their meaning)
#include <algorithm>
#include <cstring>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"

namespace {

int DigitValue(uint8_t c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Decodes digit pairs; false at the first pair holding a non-digit, with the
// pairs before it decoded.
bool DecodePairs(const uint8_t *text, size_t pairs, std::vector<uint8_t> *out) {
  for (size_t i = 0; i < pairs; ++i) {
    const int hi = DigitValue(text[2 * i]);
    const int lo = DigitValue(text[2 * i + 1]);
    if (hi < 0 || lo < 0) return false;
    out->push_back(static_cast<uint8_t>(hi << 4 | lo));
  }
  return true;
}

// Piece sizes mostly small, sometimes large enough to take several passes.
int64_t PieceSize(uint8_t b) { return b < 200 ? b + 1 : (b - 200) * 40 + 1; }

uint32_t LastCode(const ORLIX_ErrCtx &ctx) {
  uint32_t code = 0;
  orlix_err_ctx_geterrcode(&ctx, &code);
  return code;
}

struct ChainOwner {
  ORLIX_Stream *top;
  ~ChainOwner() { orlix_stream_freeall(top); }
};

// Reads the whole text through a hex filter over a read-only memory stream.
// Returns whether decoding failed and appends the bytes delivered to *all.
bool ReadThroughFilter(const uint8_t *text, int64_t length, int32_t upper,
                       const std::vector<int64_t> &pieces, std::vector<uint8_t> *all) {
  ORLIX_ErrCtx ctx{};
  ORLIX_Stream *memory = orlix_stream_new_romem(text, length, 0, &ctx);
  ORLIX_Stream *hex = orlix_stream_new_hex(upper, &ctx);
  FUZZ_CHECK(memory != nullptr && hex != nullptr);
  FUZZ_CHECK(orlix_stream_push(hex, memory) == 1);
  ChainOwner chain{hex};
  std::vector<uint8_t> buffer;
  for (size_t i = 0;; ++i) {
    FUZZ_CHECK(i <= static_cast<size_t>(4 * length + 64), "the filter makes no progress");
    const int64_t piece = pieces[i % pieces.size()];
    buffer.assign(static_cast<size_t>(piece), 0);
    uint64_t count = 0;
    fuzz::Clear(&ctx);
    if (orlix_stream_read(hex, buffer.data(), piece, &count, &ctx) != 1) {
      if (LastCode(ctx) != ORLIX_ERR_STREAM_HEX_DECODE) break;
      // Sticky for reads and control codes alike.
      uint8_t byte = 0;
      orlix_err_ctx_clean(&ctx);
      FUZZ_CHECK(orlix_stream_read(hex, &byte, 1, nullptr, &ctx) == 0);
      FUZZ_CHECK(LastCode(ctx) == ORLIX_ERR_STREAM_HEX_DECODE);
      orlix_err_ctx_clean(&ctx);
      FUZZ_CHECK(orlix_stream_ctrl(hex, ORLIX_CTRL_EOF, nullptr, &ctx) == 0);
      FUZZ_CHECK(LastCode(ctx) == ORLIX_ERR_STREAM_HEX_DECODE);
      return true;
    }
    FUZZ_CHECK(count <= static_cast<uint64_t>(piece));
    all->insert(all->end(), buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(count));
    if (count == 0) break;
  }
  // Other codes pass through to the source.
  FUZZ_CHECK(orlix_stream_ctrl(hex, ORLIX_CTRL_EOF, nullptr, nullptr) == 1);
  return false;
}

void CheckDecode(const uint8_t *text, int64_t length, const std::vector<int64_t> &pieces,
                 int32_t upper) {
  std::vector<uint8_t> expected;
  const bool all_valid = DecodePairs(text, static_cast<size_t>(length / 2), &expected);

  unsigned char *one_shot = nullptr;
  int64_t one_shot_length = -1;
  const int r =
      orlix_hexdecode(reinterpret_cast<const char *>(text), length, &one_shot, &one_shot_length);
  const bool should_decode = length > 0 && length % 2 == 0 && all_valid;
  FUZZ_CHECK(r == (should_decode ? 1 : 0), "hexdecode gave %d for %lld characters", r,
             static_cast<long long>(length));
  if (r == 1) {
    FUZZ_CHECK(one_shot_length == length / 2);
    FUZZ_CHECK(fuzz::SameBytes(one_shot, expected.data(), expected.size()));
  }
  orlix_free(one_shot);

  // The filter judges characters in pairs and holds back an odd last digit,
  // so it rejects exactly the texts with a bad pair before that digit.
  const int64_t even = length & ~int64_t{1};
  std::vector<uint8_t> even_part;
  const bool even_valid = DecodePairs(text, static_cast<size_t>(even / 2), &even_part);
  std::vector<uint8_t> from_memory;
  const bool failed = ReadThroughFilter(text, length, upper, pieces, &from_memory);
  FUZZ_CHECK(failed == !even_valid);
  if (failed) {
    FUZZ_CHECK(from_memory.size() <= even_part.size());
    FUZZ_CHECK(fuzz::SameBytes(from_memory.data(), even_part.data(), from_memory.size()));
  } else {
    FUZZ_CHECK(from_memory == even_part, "filter gave %zu bytes, expected %zu", from_memory.size(),
               even_part.size());
  }
}

// One-shot encoding, its round trip, and the filter's writes.
void CheckEncode(const uint8_t *data, int64_t length, const std::vector<int64_t> &pieces,
                 int32_t upper, uint8_t sink_capacity) {
  if (length < 1) return;
  static const char kLower[] = "0123456789abcdef";
  static const char kUpper[] = "0123456789ABCDEF";
  const char *digits = upper ? kUpper : kLower;
  std::vector<char> expected;
  for (int64_t i = 0; i < length; ++i) {
    expected.push_back(digits[data[i] >> 4]);
    expected.push_back(digits[data[i] & 15]);
  }

  char *text = nullptr;
  int64_t text_length = 0;
  FUZZ_CHECK(orlix_hexencode(upper, data, length, &text, &text_length) == 1);
  FUZZ_CHECK(text_length == 2 * length);
  FUZZ_CHECK(fuzz::SameBytes(text, expected.data(), expected.size()));
  FUZZ_CHECK(text[text_length] == '\0');
  unsigned char *back = nullptr;
  int64_t back_length = 0;
  FUZZ_CHECK(orlix_hexdecode(text, text_length, &back, &back_length) == 1);
  FUZZ_CHECK(back_length == length && fuzz::SameBytes(back, data, length));
  orlix_free(back);
  orlix_free(text);

  ORLIX_ErrCtx ctx{};
  ORLIX_Stream *sink = orlix_stream_new_mem(sink_capacity, &ctx);
  FUZZ_CHECK(sink != nullptr);
  ORLIX_Stream *hex = orlix_stream_new_hex(upper, &ctx);
  FUZZ_CHECK(hex != nullptr);
  FUZZ_CHECK(orlix_stream_push(hex, sink) == 1);
  ChainOwner chain{hex};
  for (int64_t done = 0, i = 0; done < length; ++i) {
    const int64_t piece = std::min(pieces[static_cast<size_t>(i) % pieces.size()], length - done);
    uint64_t count = 0;
    FUZZ_CHECK(orlix_stream_write(hex, data + done, piece, &count, &ctx) == 1);
    FUZZ_CHECK(count == static_cast<uint64_t>(piece));
    done += piece;
  }
  // The sink holds exactly the one-shot text...
  std::vector<char> written(expected.size() + 1);
  uint64_t count = 0;
  FUZZ_CHECK(orlix_stream_ctrl(sink, ORLIX_CTRL_RESET, nullptr, &ctx) == 1);
  FUZZ_CHECK(orlix_stream_read(sink, written.data(), static_cast<int64_t>(written.size()), &count,
                               &ctx) == 1);
  FUZZ_CHECK(count == expected.size());
  FUZZ_CHECK(fuzz::SameBytes(written.data(), expected.data(), expected.size()));
  // ...and reads back through the same filter as the original bytes.
  std::vector<uint8_t> decoded(static_cast<size_t>(length));
  FUZZ_CHECK(orlix_stream_ctrl(hex, ORLIX_CTRL_RESET, nullptr, &ctx) == 1);
  FUZZ_CHECK(orlix_stream_readn(hex, decoded.data(), length, &ctx) == 1);
  FUZZ_CHECK(fuzz::SameBytes(decoded.data(), data, length));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  std::vector<int64_t> pieces(1 + in.u8() % 8);
  for (auto &p : pieces) p = PieceSize(in.u8());
  const uint8_t flags = in.u8();
  const int32_t upper = flags & 1;
  for (int skip = in.u8() % 4 + 1; skip > 0; --skip) in.u8();
  // Borrowed as-is: the read-only stream never writes to it.
  static const uint8_t kEmpty[1] = {0};
  const uint8_t *text = in.empty() ? kEmpty : in.rest();
  const auto length = static_cast<int64_t>(in.remaining());

  CheckDecode(text, length, pieces, upper);
  CheckEncode(text, length, pieces, upper, static_cast<uint8_t>(flags >> 1));
  return 0;
}
