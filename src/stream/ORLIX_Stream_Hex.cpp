// Hexadecimal: a filter that encodes on write and decodes on read, and the
// one-shot codecs.
#include <array>
#include <cstring>

#include "ORLIX_Stream.h"
#include "core/error.hpp"
#include "core/memory.hpp"
#include "stream/filter.hpp"

namespace {

constexpr const char kModule[] = "ORLIX_Stream_Hex";
constexpr const char kDigits[] = "00112233445566778899aAbBcCdDeEfF";
constexpr int64_t kPiece = 1024;  // bytes encoded, or characters decoded, per pass

struct HexStream {
  int32_t uppercase;
  unsigned char carried;   // a digit left over from the previous pass
  int32_t has_carried;
  int32_t decode_failed;   // sticky
};

// Both digits of every byte value, high nibble first, for each case.
using DigitPairs = std::array<std::array<char, 2>, 256>;
constexpr DigitPairs make_pairs(int upper) {
  DigitPairs t{};
  for (int b = 0; b < 256; ++b) {
    t[b][0] = kDigits[2 * (b >> 4) + upper];
    t[b][1] = kDigits[2 * (b & 15) + upper];
  }
  return t;
}
constexpr DigitPairs kLowerPairs = make_pairs(0);
constexpr DigitPairs kUpperPairs = make_pairs(1);

// Digit values; -1 for every other character, including all of 0x80..0xFF.
constexpr std::array<int8_t, 256> make_values() {
  std::array<int8_t, 256> t{};
  for (auto &v : t) v = -1;
  for (int c = '0'; c <= '9'; ++c) t[c] = static_cast<int8_t>(c - '0');
  for (int c = 'A'; c <= 'F'; ++c) t[c] = static_cast<int8_t>(c - 'A' + 10);
  for (int c = 'a'; c <= 'f'; ++c) t[c] = static_cast<int8_t>(c - 'a' + 10);
  return t;
}
constexpr std::array<int8_t, 256> kValues = make_values();

void encode(const unsigned char *in, int64_t n, int upper, char *out) {
  const DigitPairs &pairs = upper ? kUpperPairs : kLowerPairs;
  for (int64_t i = 0; i < n; ++i) std::memcpy(out + 2 * i, pairs[in[i]].data(), 2);
}

// Decodes n_bytes digit pairs; false at the first invalid character.
bool decode(const unsigned char *in, int64_t n_bytes, unsigned char *out) {
  for (int64_t i = 0; i < n_bytes; ++i) {
    const int hi = kValues[in[2 * i]];
    const int lo = kValues[in[2 * i + 1]];
    if ((hi | lo) < 0) return false;
    out[i] = static_cast<unsigned char>(hi << 4 | lo);
  }
  return true;
}

int hex_write(ORLIX_Stream *stream, const void *buffer, int64_t length, uint64_t *count,
              ORLIX_ErrCtx *ctx) {
  const int checked = ORLIX_FILTER_CHECK(HexStream, stream, buffer, length, count, ctx);
  if (checked != orlix::kFilterProceed) return checked;
  const auto *h = static_cast<HexStream *>(stream->data);
  const auto *in = static_cast<const unsigned char *>(buffer);
  char digits[2 * kPiece];
  for (int64_t done = 0; done < length;) {
    const int64_t piece = length - done < kPiece ? length - done : kPiece;
    encode(in + done, piece, h->uppercase, digits);
    const int r = orlix_stream_writen(stream->next, digits, 2 * piece, ctx);
    if (r != 1) return r;
    done += piece;
  }
  if (count != nullptr) *count = static_cast<uint64_t>(length);
  return 1;
}

int hex_read(ORLIX_Stream *stream, void *buffer, int64_t length, uint64_t *count,
             ORLIX_ErrCtx *ctx) {
  const int checked = ORLIX_FILTER_CHECK_STICKY(HexStream, decode_failed, ORLIX_ERR_STREAM_HEX_DECODE,
                                                stream, buffer, length, count, ctx);
  if (checked != orlix::kFilterProceed) return checked;
  auto *h = static_cast<HexStream *>(stream->data);

  auto *out = static_cast<unsigned char *>(buffer);
  unsigned char text[kPiece];
  int64_t delivered = 0;
  auto finish = [&](int result) {
    if (count != nullptr) *count = static_cast<uint64_t>(delivered);
    return result;
  };
  for (bool first_pass = true; delivered < length; first_pass = false) {
    const int64_t carried = h->has_carried ? 1 : 0;
    if (carried) text[0] = h->carried;
    const int64_t wanted = length - delivered;
    const int64_t ask = (wanted > kPiece / 2 ? kPiece : 2 * wanted) - carried;
    uint64_t got = 0;
    const int r = orlix_stream_read(stream->next, text + carried, ask, &got, ctx);
    if (r != 1) {
      if (orlix_stream_ctrl(stream->next, ORLIX_CTRL_EOF, nullptr, nullptr) != 1) return r;
      if (h->has_carried) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_LENGTH);
      h->has_carried = 0;
      if (first_pass) return finish(ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_READ_PAST_END));
      return finish(1);
    }
    if (got == 0) return finish(1);
    const int64_t in_hand = carried + static_cast<int64_t>(got);
    h->has_carried = in_hand & 1;
    if (h->has_carried) h->carried = text[in_hand - 1];
    const int64_t pairs = in_hand / 2;
    if (!decode(text, pairs, out + delivered)) {
      h->decode_failed = 1;
      return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_HEX_DECODE);
    }
    delivered += pairs;
    if (static_cast<int64_t>(got) < ask || ask < kPiece) break;
  }
  return finish(1);
}

int hex_ctrl(ORLIX_Stream *stream, int64_t code, void *argument, ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  const auto *h = static_cast<HexStream *>(stream->data);
  if (h == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD);
  if (stream->next == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_NO_SINK);
  if (h->decode_failed) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_HEX_DECODE);
  return orlix_stream_ctrl(stream->next, code, argument, ctx);
}

void hex_destroy(ORLIX_Stream *stream) {
  if (stream == nullptr || stream->type != ORLIX_STREAM_TYPE_HEX || stream->data == nullptr)
    return;
  orlix_free(stream->data);
  stream->data = nullptr;
}

constexpr ORLIX_StreamMethod hex_method = {hex_read, hex_write, hex_destroy, hex_ctrl};

}  // namespace

extern "C" {

ORLIX_Stream *orlix_stream_new_hex(int32_t uppercase, ORLIX_ErrCtx *ctx) {
  orlix::Owned<HexStream> h(orlix::alloc_record<HexStream>(kModule, __LINE__));
  if (!h) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  auto *stream = orlix::alloc_record<ORLIX_Stream>(kModule, __LINE__);
  if (stream == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  *h = HexStream{uppercase != 0 ? 1 : 0, 0, 0, 0};
  *stream = ORLIX_Stream{&hex_method, ORLIX_STREAM_TYPE_HEX, h.release(), nullptr, nullptr};
  return stream;
}

int orlix_hexencode(int32_t uppercase, const void *data, int64_t length, char **text,
                    int64_t *text_length) {
  if (data == nullptr || length < 1 || text == nullptr || text_length == nullptr) return 0;
  if (length > (INT64_MAX - 1) / 2) return 0;
  *text_length = 2 * length;
  *text = orlix::alloc_array<char>(2 * length + 1, kModule, __LINE__);
  if (*text == nullptr) return 0;
  encode(static_cast<const unsigned char *>(data), length, uppercase != 0, *text);
  (*text)[2 * length] = '\0';
  return 1;
}

int orlix_hexdecode(const char *text, int64_t length, unsigned char **data,
                    int64_t *data_length) {
  if (text == nullptr || length <= 0 || length % 2 != 0 || data == nullptr ||
      data_length == nullptr)
    return 0;
  *data_length = length / 2;
  orlix::Owned<unsigned char> out(orlix::alloc_bytes(length / 2, kModule, __LINE__));
  *data = nullptr;
  if (!out) return 0;
  if (!decode(reinterpret_cast<const unsigned char *>(text), length / 2, out.get())) return 0;
  *data = out.release();
  return 1;
}

}  // extern "C"
