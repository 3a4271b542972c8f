// Hex decoding must agree three ways: the one-shot orlix_hexdecode, a hex
// filter read in pieces of varying size, and a model of the filter's read
// algorithm. The filter is read twice: over a read-only memory stream of the
// text, and over a scripted source stream that hands out the text in short,
// uneven reads and can fail on a chosen read or at its end. Encoding is
// checked the same way (one-shot against the filter's writes) and by a round
// trip.
//
// Input: [piece count] [piece sizes...] [flags] [source limit count]
//        [source limits...] [failing read] [text...]
#include <algorithm>
#include <cstring>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"

namespace {

constexpr int64_t kPass = 1024;  // characters the filter decodes per pass
constexpr uint32_t kSourceError = ORLIX_ERR_STREAM_FILE_READ;

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

// How a source hands out the text. No limits means whatever is asked.
struct SourceScript {
  std::vector<int64_t> limits;  // at most this many characters per read, in turn
  int64_t failing_read = 0;     // this read (counted from 1) fails; 0: none
  bool fails_at_end = false;    // reads at the end fail instead of giving 0
};

// The text as a source: used both by the scripted stream and by the model,
// each with its own copy.
struct Source {
  const uint8_t *text;
  int64_t length;
  const SourceScript *script;
  int64_t pos = 0;
  int64_t reads = 0;

  bool AtEnd() const { return pos == length; }

  // False when this read fails; else *got characters from `*from`.
  bool Read(int64_t n, int64_t *got, const uint8_t **from) {
    ++reads;
    if (reads == script->failing_read) return false;
    if (AtEnd() && script->fails_at_end) return false;
    int64_t take = std::min(n, length - pos);
    if (!script->limits.empty())
      take = std::min(take, script->limits[static_cast<size_t>(reads) % script->limits.size()]);
    *from = text + pos;
    *got = take;
    pos += take;
    return true;
  }
};

// A caller-made stream kind over a Source.
int SourceRead(ORLIX_Stream *stream, void *buffer, int64_t n, uint64_t *count, ORLIX_ErrCtx *ctx) {
  auto *source = static_cast<Source *>(stream->data);
  int64_t got = 0;
  const uint8_t *from = nullptr;
  if (!source->Read(n, &got, &from)) {
    orlix_err_ctx_put(ctx, "fuzz_source", 1, kSourceError, "read file fail");
    return 0;
  }
  if (got > 0) std::memcpy(buffer, from, static_cast<size_t>(got));
  if (count != nullptr) *count = static_cast<uint64_t>(got);
  return 1;
}

int SourceCtrl(ORLIX_Stream *stream, int64_t code, void *, ORLIX_ErrCtx *) {
  return code == ORLIX_CTRL_EOF && static_cast<Source *>(stream->data)->AtEnd() ? 1 : 0;
}

constexpr ORLIX_StreamMethod kSourceMethod = {SourceRead, nullptr, nullptr, SourceCtrl};

ORLIX_Stream *NewSourceStream(Source *source) {
  auto *s = static_cast<ORLIX_Stream *>(orlix_malloc(sizeof(ORLIX_Stream), "fuzz_hex", 1));
  FUZZ_CHECK(s != nullptr);
  *s = ORLIX_Stream{&kSourceMethod, 0x20010u, source, nullptr, nullptr};
  return s;
}

// The filter's read, pass by pass: each pass asks for at most twice the bytes
// still wanted (less a carried digit, within a 1024-character buffer),
// carries an odd last digit, and decodes the rest. The call ends once the
// buffer is full, or the source gave less than asked, or less than a full
// buffer was asked. A failed source read ends it as well, judged by whether
// the source is at its end.
struct FilterModel {
  explicit FilterModel(const Source &from) : source(from) {}

  Source source;
  bool has_carried = false;
  uint8_t carried = 0;
  bool failed = false;
  std::vector<uint8_t> chars;

  int Read(int64_t wanted_total, std::vector<uint8_t> *out, uint32_t *code) {
    *code = ORLIX_ERR_NONE;
    if (failed) return *code = ORLIX_ERR_STREAM_HEX_DECODE, 0;
    int64_t delivered = 0;
    for (bool first = true; delivered < wanted_total; first = false) {
      const int64_t carry = has_carried ? 1 : 0;
      const int64_t wanted = wanted_total - delivered;
      const int64_t ask = std::min(2 * wanted, kPass) - carry;
      int64_t got = 0;
      const uint8_t *from = nullptr;
      if (!source.Read(ask, &got, &from)) {
        if (!source.AtEnd()) return *code = kSourceError, 0;
        if (has_carried) return *code = ORLIX_ERR_STREAM_LENGTH, 0;
        if (first) return *code = ORLIX_ERR_STREAM_READ_PAST_END, 0;
        return 1;
      }
      if (got == 0) return 1;
      chars.clear();
      if (has_carried) chars.push_back(carried);
      chars.insert(chars.end(), from, from + got);
      has_carried = chars.size() % 2 == 1;
      if (has_carried) carried = chars.back();
      if (!DecodePairs(chars.data(), chars.size() / 2, out)) {
        failed = true;
        return *code = ORLIX_ERR_STREAM_HEX_DECODE, 0;
      }
      delivered += static_cast<int64_t>(chars.size() / 2);
      if (got < ask || ask < kPass) break;
    }
    return 1;
  }
};

struct ChainOwner {
  ORLIX_Stream *top;
  ~ChainOwner() { orlix_stream_freeall(top); }
};

// Reads the whole text through a hex filter over `bottom`, comparing every
// read with the model. Returns whether decoding failed and appends the bytes
// delivered to *all.
bool ReadThroughFilter(ORLIX_Stream *bottom, FilterModel model, int32_t upper,
                       const std::vector<int64_t> &pieces, std::vector<uint8_t> *all) {
  ORLIX_ErrCtx ctx{};
  ORLIX_Stream *hex = orlix_stream_new_hex(upper, &ctx);
  FUZZ_CHECK(hex != nullptr);
  FUZZ_CHECK(orlix_stream_push(hex, bottom) == 1);
  ChainOwner chain{hex};

  const int64_t length = model.source.length;
  std::vector<uint8_t> expected;
  std::vector<uint8_t> buffer;
  for (size_t i = 0;; ++i) {
    FUZZ_CHECK(i <= static_cast<size_t>(4 * length + 64), "the filter makes no progress");
    const int64_t piece = pieces[i % pieces.size()];
    buffer.assign(static_cast<size_t>(piece), 0);
    uint64_t count = 0;
    fuzz::Clear(&ctx);
    const int got = orlix_stream_read(hex, buffer.data(), piece, &count, &ctx);
    uint32_t want_code = 0;
    const size_t before = expected.size();
    const int want = model.Read(piece, &expected, &want_code);
    FUZZ_CHECK(got == want, "read %zu of %lld: result %d, model %d", i,
               static_cast<long long>(piece), got, want);
    FUZZ_CHECK(LastCode(ctx) == want_code, "read %zu: code 0x%X, model 0x%X", i, LastCode(ctx),
               want_code);
    if (got == 1) {
      FUZZ_CHECK(count == expected.size() - before, "read %zu: %llu bytes, model %zu", i,
                 static_cast<unsigned long long>(count), expected.size() - before);
      FUZZ_CHECK(fuzz::SameBytes(buffer.data(), expected.data() + before, count));
      all->insert(all->end(), buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(count));
    } else {
      expected.resize(before);
    }
    if (want_code == ORLIX_ERR_STREAM_HEX_DECODE) {
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
    if (model.source.AtEnd() && (got == 0 || count == 0)) break;
  }
  // Other codes pass through to the source.
  FUZZ_CHECK(orlix_stream_ctrl(hex, ORLIX_CTRL_EOF, nullptr, nullptr) == 1);
  return false;
}

void CheckDecode(const uint8_t *text, int64_t length, const std::vector<int64_t> &pieces,
                 int32_t upper, const SourceScript &script) {
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

  const SourceScript plain;
  ORLIX_ErrCtx ctx{};
  ORLIX_Stream *memory = orlix_stream_new_romem(text, length, 0, &ctx);
  FUZZ_CHECK(memory != nullptr);
  std::vector<uint8_t> from_memory;
  const bool memory_failed = ReadThroughFilter(memory, FilterModel{Source{text, length, &plain}},
                                               upper, pieces, &from_memory);
  FUZZ_CHECK(memory_failed == !even_valid);
  if (memory_failed) {
    FUZZ_CHECK(from_memory.size() <= even_part.size());
    FUZZ_CHECK(fuzz::SameBytes(from_memory.data(), even_part.data(), from_memory.size()));
  } else {
    FUZZ_CHECK(from_memory == even_part, "filter gave %zu bytes, expected %zu", from_memory.size(),
               even_part.size());
    if (r == 1) FUZZ_CHECK(from_memory == expected);
  }

  Source scripted{text, length, &script};
  std::vector<uint8_t> from_script;
  const bool script_failed =
      ReadThroughFilter(NewSourceStream(&scripted), FilterModel{Source{text, length, &script}},
                        upper, pieces, &from_script);
  FUZZ_CHECK(script_failed == memory_failed);
  if (!script_failed) FUZZ_CHECK(from_script == even_part);
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
  SourceScript script;
  script.limits.resize(in.u8() % 4);
  for (auto &limit : script.limits) limit = PieceSize(in.u8());
  const uint8_t failing = in.u8();
  script.failing_read = failing & 0x7F;
  script.fails_at_end = (failing & 0x80) != 0;
  // Borrowed as-is: the read-only stream never writes to it.
  static const uint8_t kEmpty[1] = {0};
  const uint8_t *text = in.empty() ? kEmpty : in.rest();
  const auto length = static_cast<int64_t>(in.remaining());

  CheckDecode(text, length, pieces, upper, script);
  CheckEncode(text, length, pieces, upper, static_cast<uint8_t>(flags >> 1));
  return 0;
}
