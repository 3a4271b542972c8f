// Base64 decoding must agree between the one-shot orlix_base64decode and a
// base64 filter read in pieces of varying size, over a read-only memory
// stream and over a scripted source that hands the text out in short,
// uneven reads. Both accept the same texts and give the same bytes; a
// failing read of the filter reports "base64 decode fail", and after it
// the failure is sticky. The vector and portable forms of the one-shot
// decoder agree.
//
// Input: [decode flags] [piece count] [piece sizes...] [source read limit]
//        [text...]
#include <algorithm>
#include <cstring>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"
#include "stream/ORLIX_Stream_Base64_Vector.hpp"

namespace {

// Read sizes mostly small, sometimes larger than a 1024-character pass.
int64_t PieceSize(uint8_t b) { return b < 200 ? b + 1 : (b - 200) * 60 + 1; }

// A source handing out at most `limit` characters per read (0: as asked),
// cycling through 1..limit when `vary` is set. Its end reads as 0 bytes.
struct Source {
  const uint8_t *text;
  int64_t length;
  int64_t limit;
  bool vary;
  int64_t pos = 0;
  int64_t reads = 0;
};

int SourceRead(ORLIX_Stream *s, void *buffer, int64_t n, uint64_t *count, ORLIX_ErrCtx *) {
  auto *src = static_cast<Source *>(s->data);
  int64_t take = std::min(n, src->length - src->pos);
  if (src->limit > 0) take = std::min(take, src->vary ? 1 + src->reads % src->limit : src->limit);
  ++src->reads;
  if (take > 0) std::memcpy(buffer, src->text + src->pos, static_cast<size_t>(take));
  src->pos += take;
  if (count != nullptr) *count = static_cast<uint64_t>(take);
  return 1;
}

int SourceCtrl(ORLIX_Stream *s, int64_t code, void *, ORLIX_ErrCtx *) {
  const auto *src = static_cast<Source *>(s->data);
  return code == ORLIX_CTRL_EOF && src->pos == src->length ? 1 : 0;
}

constexpr ORLIX_StreamMethod kSourceMethod = {SourceRead, nullptr, nullptr, SourceCtrl};

struct Result {
  bool ok = false;
  std::vector<uint8_t> bytes;
};

// Reads the whole text through a base64 filter over `bottom` (which the
// chain takes over), then takes the remainder of unpadded input.
Result ReadThroughFilter(ORLIX_Stream *bottom, uint32_t flags, const std::vector<int64_t> &pieces,
                         int64_t text_length) {
  Result result;
  ORLIX_ErrCtx ctx{};
  ORLIX_Stream *b64 = orlix_stream_new_base64(2, 64, flags, &ctx);
  FUZZ_CHECK(b64 != nullptr);
  FUZZ_CHECK(orlix_stream_push(b64, bottom) == 1);
  std::vector<uint8_t> buffer;
  bool failed = false;
  for (size_t i = 0;; ++i) {
    FUZZ_CHECK(i <= static_cast<size_t>(4 * text_length + 64), "the filter makes no progress");
    const int64_t piece = pieces[i % pieces.size()];
    buffer.assign(static_cast<size_t>(piece), 0);
    uint64_t count = 0;
    fuzz::Clear(&ctx);
    if (orlix_stream_read(b64, buffer.data(), piece, &count, &ctx) != 1) {
      uint32_t code = 0;
      orlix_err_ctx_geterrcode(&ctx, &code);
      FUZZ_CHECK(code == ORLIX_ERR_STREAM_BASE64_DECODE, "read failed with 0x%X", code);
      // Sticky: reads fail again, code 11 answers 0.
      fuzz::Clear(&ctx);
      FUZZ_CHECK(orlix_stream_read(b64, buffer.data(), 1, &count, &ctx) == 0);
      FUZZ_CHECK(orlix_stream_ctrl(b64, ORLIX_CTRL_EOF, nullptr, nullptr) == 0);
      failed = true;
      break;
    }
    FUZZ_CHECK(count <= static_cast<uint64_t>(piece));
    result.bytes.insert(result.bytes.end(), buffer.begin(),
                        buffer.begin() + static_cast<ptrdiff_t>(count));
    if (count == 0 && orlix_stream_ctrl(bottom, ORLIX_CTRL_EOF, nullptr, nullptr) == 1) break;
  }
  if (!failed && (flags & ORLIX_BASE64_NO_PAD) != 0) {
    ORLIX_DataBlob *rest = nullptr;
    if (orlix_stream_ctrl(b64, ORLIX_CTRL_BASE64_REMAINDER, &rest, &ctx) == 1) {
      result.bytes.insert(result.bytes.end(), rest->data, rest->data + rest->length);
      orlix_data_blob_free(rest);
      // Nothing is left: a second call gives an empty blob.
      FUZZ_CHECK(orlix_stream_ctrl(b64, ORLIX_CTRL_BASE64_REMAINDER, &rest, &ctx) == 1);
      FUZZ_CHECK(rest->length == 0);
      orlix_data_blob_free(rest);
    } else {
      failed = true;
    }
  }
  orlix_stream_freeall(b64);
  result.ok = !failed;
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  const uint8_t f = in.u8();
  const uint32_t flags =
      (1u + f % 3) | (f & 0x10 ? ORLIX_BASE64_NO_PAD : 0u) | (f & 0x20 ? ORLIX_BASE64_URL : 0u);
  std::vector<int64_t> pieces(1 + in.u8() % 8);
  for (auto &p : pieces) p = PieceSize(in.u8());
  const uint8_t limit = in.u8();
  static const uint8_t kEmpty[1] = {0};
  const uint8_t *text = in.empty() ? kEmpty : in.rest();
  const auto length = static_cast<int64_t>(in.remaining());

  Result one_shot;
  if (length > 0) {
    unsigned char *out = nullptr;
    int64_t out_length = -1;
    one_shot.ok = orlix_base64decode(flags, reinterpret_cast<const char *>(text), length, &out,
                                     &out_length) == 1;
    if (one_shot.ok) {
      FUZZ_CHECK(out != nullptr && out_length >= 0 && out_length <= length / 4 * 3 + 2);
      one_shot.bytes.assign(out, out + out_length);
    }
    orlix_free(out);
    // The portable decoder gives the same answer as the vector forms.
    const bool was = orlix::base64::use_vector_forms(false);
    out = nullptr;
    const bool portable_ok = orlix_base64decode(flags, reinterpret_cast<const char *>(text), length,
                                                &out, &out_length) == 1;
    orlix::base64::use_vector_forms(was);
    FUZZ_CHECK(portable_ok == one_shot.ok, "vector %d, portable %d", one_shot.ok, portable_ok);
    if (portable_ok)
      FUZZ_CHECK(std::vector<uint8_t>(out, out + out_length) == one_shot.bytes, "vector and portable differ");
    orlix_free(out);
  }

  ORLIX_Stream *memory = orlix_stream_new_romem(text, length, 0, nullptr);
  FUZZ_CHECK(memory != nullptr);
  const Result from_memory = ReadThroughFilter(memory, flags, pieces, length);

  Source source{text, length, limit & 0x3F, (limit & 0x40) != 0};
  auto *scripted = static_cast<ORLIX_Stream *>(orlix_malloc(sizeof(ORLIX_Stream), "fuzz", 1));
  FUZZ_CHECK(scripted != nullptr);
  *scripted = ORLIX_Stream{&kSourceMethod, 0x20010u, &source, nullptr, nullptr};
  const Result from_source = ReadThroughFilter(scripted, flags, pieces, length);

  FUZZ_CHECK(from_memory.ok == from_source.ok, "memory %d, short reads %d", from_memory.ok,
             from_source.ok);
  if (from_memory.ok) FUZZ_CHECK(from_memory.bytes == from_source.bytes);
  if (length > 0) {
    FUZZ_CHECK(one_shot.ok == from_memory.ok, "one-shot %d, filter %d", one_shot.ok,
               from_memory.ok);
    if (one_shot.ok) FUZZ_CHECK(one_shot.bytes == from_memory.bytes);
  }
  return 0;
}
