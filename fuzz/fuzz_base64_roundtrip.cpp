// Base64 encode -> decode round trips for every flag combination: the
// one-shot codecs, and a base64 filter written and read in pieces of
// varying size with any line length. The filter's text with line length 64
// equals the one-shot text, no line is longer than the rounded line length,
// and decoding with the matching flags gives the input back.
//
// Input: [encode flags] [decode whitespace] [line length] [piece count]
//        [piece sizes...] [data...]
#include <algorithm>
#include <cstring>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"
#include "stream/ORLIX_Stream_Base64_Vector.hpp"

namespace {

int64_t PieceSize(uint8_t b) { return b < 200 ? b + 1 : (b - 200) * 60 + 1; }

struct ChainOwner {
  ORLIX_Stream *top;
  ~ChainOwner() { orlix_stream_freeall(top); }
};

// Encodes through a filter over a memory stream, in pieces, and flushes.
std::vector<uint8_t> EncodeStream(uint32_t flags, int32_t line, const uint8_t *data, int64_t length,
                                  const std::vector<int64_t> &pieces) {
  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  ORLIX_Stream *b64 = orlix_stream_new_base64(flags, line, ORLIX_BASE64_WS_EOL, nullptr);
  FUZZ_CHECK(mem != nullptr && b64 != nullptr && orlix_stream_push(b64, mem) == 1);
  ChainOwner chain{b64};
  for (int64_t done = 0, i = 0; done < length; ++i) {
    const int64_t n = std::min(pieces[static_cast<size_t>(i) % pieces.size()], length - done);
    uint64_t count = 0;
    FUZZ_CHECK(orlix_stream_write(b64, data + done, n, &count, nullptr) == 1);
    FUZZ_CHECK(count == static_cast<uint64_t>(n));
    done += n;
  }
  FUZZ_CHECK(orlix_stream_ctrl(b64, ORLIX_CTRL_FLUSH, nullptr, nullptr) == 1);
  uint64_t text_length = 0;
  FUZZ_CHECK(orlix_stream_ctrl(mem, ORLIX_CTRL_GET_LENGTH, &text_length, nullptr) == 1);
  std::vector<uint8_t> text(text_length);
  FUZZ_CHECK(orlix_stream_ctrl(mem, ORLIX_CTRL_RESET, nullptr, nullptr) == 1);
  FUZZ_CHECK(orlix_stream_readn(mem, text.data(), static_cast<int64_t>(text_length), nullptr) == 1);
  return text;
}

// Decodes through a filter over a read-only stream of the text, in pieces.
std::vector<uint8_t> DecodeStream(uint32_t flags, const std::vector<uint8_t> &text,
                                  const std::vector<int64_t> &pieces) {
  static const uint8_t kEmpty[1] = {0};
  ORLIX_Stream *ro = orlix_stream_new_romem(text.empty() ? kEmpty : text.data(),
                                            static_cast<int64_t>(text.size()), 0, nullptr);
  ORLIX_Stream *b64 = orlix_stream_new_base64(2, 64, flags, nullptr);
  FUZZ_CHECK(ro != nullptr && b64 != nullptr && orlix_stream_push(b64, ro) == 1);
  ChainOwner chain{b64};
  std::vector<uint8_t> out;
  std::vector<uint8_t> buffer;
  for (size_t i = 0;; ++i) {
    FUZZ_CHECK(i <= 4 * text.size() + 64, "the filter makes no progress");
    const int64_t piece = pieces[(i + 3) % pieces.size()];
    buffer.resize(static_cast<size_t>(piece));
    uint64_t count = 0;
    FUZZ_CHECK(orlix_stream_read(b64, buffer.data(), piece, &count, nullptr) == 1);
    out.insert(out.end(), buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(count));
    if (count == 0) break;  // a read-only stream delivers all it is asked
  }
  if (flags & ORLIX_BASE64_NO_PAD) {
    ORLIX_DataBlob *rest = nullptr;
    FUZZ_CHECK(orlix_stream_ctrl(b64, ORLIX_CTRL_BASE64_REMAINDER, &rest, nullptr) == 1);
    out.insert(out.end(), rest->data, rest->data + rest->length);
    orlix_data_blob_free(rest);
  }
  return out;
}

// No line (between line endings) is longer than the rounded line length.
void CheckLines(const std::vector<uint8_t> &text, uint32_t eol, int32_t line) {
  if (eol == ORLIX_BASE64_EOL_NONE) {
    FUZZ_CHECK(
        std::none_of(text.begin(), text.end(), [](uint8_t c) { return c == '\r' || c == '\n'; }));
    return;
  }
  const int64_t stored = line > 0 ? int64_t{line} + line % 4 : 64;
  const int64_t width = (stored + 3) / 4 * 4;
  int64_t run = 0;
  for (uint8_t c : text) {
    if (c == '\r' || c == '\n') {
      FUZZ_CHECK(run <= width, "a line of %lld characters, width %lld", static_cast<long long>(run),
                 static_cast<long long>(width));
      run = 0;
    } else {
      ++run;
    }
  }
  FUZZ_CHECK(run <= width);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  const uint8_t f = in.u8();
  const uint32_t eol = 1u + f % 4;
  const uint32_t bits = (f & 0x10 ? ORLIX_BASE64_NO_PAD : 0u) | (f & 0x20 ? ORLIX_BASE64_URL : 0u);
  const uint32_t encode_flags = eol | bits;
  // The decoder must accept the encoder's line endings.
  const uint8_t w = in.u8();
  const uint32_t ws = eol == ORLIX_BASE64_EOL_NONE ? 1u + w % 3 : 2u + w % 2;
  const uint32_t decode_flags = ws | bits;
  const uint8_t l = in.u8();
  // Line lengths up to 200, zero and negative; the stored length is
  // line + line % 4, so lengths near INT32_MAX are left out.
  const int32_t line = l < 200 ? l : 200 - l;
  std::vector<int64_t> pieces(1 + in.u8() % 8);
  for (auto &p : pieces) p = PieceSize(in.u8());
  const uint8_t *bytes = in.rest();
  const auto length = static_cast<int64_t>(in.remaining());
  const std::vector<uint8_t> input(bytes, bytes + length);
  if (length == 0) return 0;

  char *text = nullptr;
  int64_t text_length = 0;
  FUZZ_CHECK(orlix_base64encode(encode_flags, bytes, length, &text, &text_length) == 1);
  FUZZ_CHECK(text[text_length] == '\0');
  const std::vector<uint8_t> one_shot_text(text, text + text_length);
  {
    // The portable encoder writes the same text as the vector forms.
    const bool was = orlix::base64::use_vector_forms(false);
    char *portable = nullptr;
    int64_t portable_length = 0;
    FUZZ_CHECK(orlix_base64encode(encode_flags, bytes, length, &portable, &portable_length) == 1);
    orlix::base64::use_vector_forms(was);
    FUZZ_CHECK(std::vector<uint8_t>(portable, portable + portable_length) == one_shot_text,
               "vector and portable encodings differ");
    orlix_free(portable);
  }
  unsigned char *back = nullptr;
  int64_t back_length = 0;
  FUZZ_CHECK(orlix_base64decode(decode_flags, text, text_length, &back, &back_length) == 1,
             "flags %u/%u", encode_flags, decode_flags);
  FUZZ_CHECK(std::vector<uint8_t>(back, back + back_length) == input);
  orlix_free(back);
  orlix_free(text);
  CheckLines(one_shot_text, eol, 64);

  FUZZ_CHECK(EncodeStream(encode_flags, 64, bytes, length, pieces) == one_shot_text);
  const std::vector<uint8_t> stream_text = EncodeStream(encode_flags, line, bytes, length, pieces);
  CheckLines(stream_text, eol, line);
  FUZZ_CHECK(DecodeStream(decode_flags, stream_text, pieces) == input);
  return 0;
}
