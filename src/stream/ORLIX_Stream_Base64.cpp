// Base64: a filter that encodes on write and decodes on read, the one-shot
// codecs built on it, and PEM armour.
#include <array>
#include <cstdio>
#include <cstring>

#include "ORLIX_Stream.h"
#include "core/error.hpp"
#include "core/memory.hpp"
#include "stream/ORLIX_Stream_Base64_Vector.hpp"
#include "stream/filter.hpp"

namespace {

constexpr const char kModule[] = "ORLIX_Stream_Base64";
constexpr char g_b64encodetable[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char g_b64urlencodetable[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr uint32_t kFlagBits = ORLIX_BASE64_NO_PAD | ORLIX_BASE64_URL;
constexpr int64_t kBlock = 1024;          // input bytes per encoded block, text per read
constexpr int64_t kBlockGroups = 341;     // whole groups of a full block (1023 bytes)
constexpr int32_t kDefaultLine = 64;

// Decode classes beyond the digit values 0..63.
constexpr uint32_t kPadChar = 64;
constexpr uint32_t kLineBreak = 65;  // CR, LF
constexpr uint32_t kBlank = 66;      // TAB, space
constexpr uint32_t kInvalid = 0xFFFFFFFFu;

using DecodeTable = std::array<uint32_t, 128>;
constexpr DecodeTable make_decode_table(const char *alphabet) {
  DecodeTable t{};
  for (auto &v : t) v = kInvalid;
  for (uint32_t i = 0; i < 64; ++i) t[static_cast<unsigned char>(alphabet[i])] = i;
  t['='] = kPadChar;
  t['\n'] = t['\r'] = kLineBreak;
  t['\t'] = t[' '] = kBlank;
  return t;
}
constexpr DecodeTable kStdDecode = make_decode_table(g_b64encodetable);
constexpr DecodeTable kUrlDecode = make_decode_table(g_b64urlencodetable);

struct Base64Stream {
  // encoding side
  int32_t eol_mode;  // ORLIX_BASE64_EOL_*
  int64_t line_length;  // 64 bits: a length near INT32_MAX grows past it
  int64_t column;
  unsigned char pending[2];
  int32_t pending_count;
  int32_t has_pending;
  int32_t pad;
  int32_t url;
  // decoding side
  int32_t ws_mode;  // ORLIX_BASE64_WS_*
  int32_t padded;   // the input carries "=" padding
  int32_t dec_url;
  unsigned char text[kBlock];  // text not yet decoded: an unfinished group
  int32_t text_count;
  int32_t has_text;
  unsigned char out[kBlock];  // decoded bytes not yet delivered
  int32_t out_count;
  int32_t has_out;
  int32_t out_pos;
  int32_t padding_seen;
  int32_t failed;  // sticky
};

// ---- encoding ----------------------------------------------------------------

const char *eol_text(int32_t mode) {
  switch (mode) {
    case ORLIX_BASE64_EOL_CR: return "\r";
    case ORLIX_BASE64_EOL_CRLF: return "\r\n";
    case ORLIX_BASE64_EOL_LF: return "\n";
    default: return "";
  }
}

// The four characters of a group come from two look-ups of twelve bits
// each, in tables of character pairs for both alphabets.
using PairTable = std::array<std::array<char, 2>, 4096>;
constexpr PairTable make_pair_table(const char *alphabet) {
  PairTable t{};
  for (int v = 0; v < 4096; ++v) {
    t[v][0] = alphabet[v >> 6];
    t[v][1] = alphabet[v & 63];
  }
  return t;
}
constexpr PairTable kStdPairs = make_pair_table(g_b64encodetable);
constexpr PairTable kUrlPairs = make_pair_table(g_b64urlencodetable);

// Encodes `groups` groups, of which `readable` bytes may be read: the
// vector form takes what it can, the pair tables the rest.
char *encode_run(const PairTable &pairs, bool url, const unsigned char *in, int64_t groups,
                 int64_t readable, char *o) {
  const int64_t done = orlix::base64::encode_groups(in, groups, readable, o, url);
  in += 3 * done;
  o += 4 * done;
  for (int64_t g = done; g < groups; ++g, in += 3, o += 4) {
    const uint32_t v = uint32_t{in[0]} << 16 | uint32_t{in[1]} << 8 | in[2];
    std::memcpy(o, pairs[v >> 12].data(), 2);
    std::memcpy(o + 2, pairs[v & 0xFFF].data(), 2);
  }
  return o;
}

// Encodes whole groups of `in` (a block of kBlock bytes: the vector form may
// read past the groups within it) into `out`, breaking lines; returns the
// text length. Each group moves the column by 4, and a line ends as soon as
// the column reaches the line length.
int64_t encode_groups(Base64Stream *b, const unsigned char *in, int64_t groups, char *out) {
  const PairTable &pairs = b->url ? kUrlPairs : kStdPairs;
  const unsigned char *const block_end = in + kBlock;
  if (b->eol_mode == ORLIX_BASE64_EOL_NONE)
    return encode_run(pairs, b->url, in, groups, block_end - in, out) - out;
  const char *eol = eol_text(b->eol_mode);
  const size_t eol_length = std::strlen(eol);
  char *o = out;
  while (groups > 0) {
    if (b->column == 0) {  // whole lines, as far as the vector form goes
      const int64_t line_groups = (b->line_length + 3) / 4;
      const int64_t lines =
          orlix::base64::encode_lines(in, groups / line_groups, line_groups, block_end - in, o,
                                      b->url, eol, static_cast<int>(eol_length));
      in += 3 * line_groups * lines;
      groups -= line_groups * lines;
      o += lines * (4 * line_groups + static_cast<int64_t>(eol_length));
      if (groups == 0) break;
    }
    const int64_t to_eol = (b->line_length - b->column + 3) / 4;  // groups until the line ends
    const int64_t run = groups < to_eol ? groups : to_eol;
    o = encode_run(pairs, b->url, in, run, block_end - in, o);
    in += 3 * run;
    groups -= run;
    b->column += 4 * run;
    if (b->column >= b->line_length) {
      std::memcpy(o, eol, eol_length);
      o += eol_length;
      b->column = 0;
    }
  }
  return o - out;
}

int b64_write(ORLIX_Stream *stream, const void *buffer, int64_t length, uint64_t *count,
              ORLIX_ErrCtx *ctx) {
  const int checked = ORLIX_FILTER_CHECK(Base64Stream, stream, buffer, length, count, ctx);
  if (checked != orlix::kFilterProceed) return checked;
  auto *b = static_cast<Base64Stream *>(stream->data);
  const auto *in = static_cast<const unsigned char *>(buffer);
  unsigned char block[kBlock];
  char text[kBlockGroups * 6];  // four characters and at most one line ending per group
  int64_t taken = 0;
  while (taken < length) {
    const int64_t held = b->pending_count;
    std::memcpy(block, b->pending, static_cast<size_t>(held));
    const int64_t room = kBlock - held;
    const int64_t remaining = length - taken;
    int64_t groups;
    if (remaining > room) {
      // A full block: 341 groups now, its last byte waits for the next one.
      std::memcpy(block + held, in + taken, static_cast<size_t>(room));
      taken += room;
      groups = kBlockGroups;
      b->pending[0] = block[kBlock - 1];
      b->pending_count = 1;
    } else {
      std::memcpy(block + held, in + taken, static_cast<size_t>(remaining));
      taken += remaining;
      const int64_t total = held + remaining;
      groups = total / 3;
      b->pending_count = static_cast<int32_t>(total - groups * 3);
      std::memcpy(b->pending, block + groups * 3, static_cast<size_t>(b->pending_count));
    }
    b->has_pending = b->pending_count > 0;
    const int64_t n = encode_groups(b, block, groups, text);
    if (const int r = orlix_stream_writen(stream->next, text, n, ctx); r != 1) return r;
  }
  if (count != nullptr) *count = static_cast<uint64_t>(length);
  return 1;
}

// Writes the final partial group and a line ending. The pending bytes stay:
// a second flush writes the same group again. Encoders call it once, last.
int flush(ORLIX_Stream *stream, Base64Stream *b, void *argument, ORLIX_ErrCtx *ctx) {
  if (b->pending_count > 0) {
    const char *alphabet = b->url ? g_b64urlencodetable : g_b64encodetable;
    char text[8];
    int n = 0;
    const uint32_t v = uint32_t{b->pending[0]} << 16 |
                       (b->pending_count > 1 ? uint32_t{b->pending[1]} << 8 : 0);
    text[n++] = alphabet[v >> 18];
    text[n++] = alphabet[v >> 12 & 63];
    if (b->pending_count > 1) text[n++] = alphabet[v >> 6 & 63];
    if (b->pad) {
      for (int k = b->pending_count; k < 3; ++k) text[n++] = '=';
    }
    const char *eol = eol_text(b->eol_mode);
    const size_t eol_length = std::strlen(eol);
    std::memcpy(text + n, eol, eol_length);
    n += static_cast<int>(eol_length);
    b->column = 0;
    if (const int r = orlix_stream_writen(stream->next, text, n, ctx); r != 1) return r;
  }
  return orlix_stream_ctrl(stream->next, ORLIX_CTRL_FLUSH, argument, ctx);
}

// ---- decoding ----------------------------------------------------------------

// Decodes as much of `text` as forms whole groups. out receives the bytes;
// *leftover the number of characters at the end that belong to an unfinished
// group (whitespace before such a group is consumed). In unpadded mode, once
// the input is known to be complete (padding_seen), the unfinished group is
// decoded too. False on any malformed input. out needs room for 3/4 of count
// plus 32 bytes (the vector form writes whole blocks).
bool decodebase64(bool padded, bool url, int32_t ws_mode, const unsigned char *text,
                  int64_t count, unsigned char *out, int64_t *out_count, int64_t *leftover,
                  int32_t *padding_seen) {
  const DecodeTable &table = url ? kUrlDecode : kStdDecode;
  int64_t n = 0;
  int64_t consumed = 0;
  int digits = 0;
  int pads = 0;
  uint32_t acc = 0;
  // Once a padded group has ended the input, nothing but whitespace may
  // follow it.
  const auto padding_closed = [&] { return padded && *padding_seen != 0; };
  int64_t next_vector = 0;  // where a run of digits is looked for next
  for (int64_t i = 0; i < count; ++i) {
    // At a group boundary, whole blocks of digits go the vector way. After a
    // block that holds something else, scalar decoding goes on for at least
    // 16 characters before the next look.
    if (digits == 0 && pads == 0 && i >= next_vector && count - i >= 16 && !padding_closed()) {
      int64_t written = 0;
      const int64_t end = i + orlix::base64::decode_run(text + i, count - i, out + n, url, ws_mode,
                                                        &written);
      n += written;
      if (end > i) consumed = end;
      next_vector = end + 16;
      i = end;
      if (i == count) break;
    }
    const unsigned char c = text[i];
    if (c >= 0x80) return false;
    const uint32_t v = table[c];
    if (v == kInvalid) return false;
    if (v == kLineBreak || v == kBlank) {
      if (ws_mode == ORLIX_BASE64_WS_NONE) return false;
      if (v == kBlank && ws_mode != ORLIX_BASE64_WS_ALL) return false;
      if (digits == 0 && pads == 0) consumed = i + 1;
      continue;
    }
    if (v == kPadChar) {
      if (!padded || digits < 2 || pads >= 2 || padding_closed()) return false;
      ++pads;
      if (digits == 3) {
        if ((acc & 3) != 0) return false;
        acc >>= 2;
        out[n++] = static_cast<unsigned char>(acc >> 8);
        out[n++] = static_cast<unsigned char>(acc);
      } else if (pads == 2) {
        if ((acc & 15) != 0) return false;
        out[n++] = static_cast<unsigned char>(acc >> 4);
      } else {
        continue;  // two digits and one "=": the group needs its second "="
      }
      *padding_seen = 1;
      digits = pads = 0;
      acc = 0;
      consumed = i + 1;
      continue;
    }
    if (pads > 0 || padding_closed()) return false;
    acc = acc << 6 | v;
    if (++digits == 4) {
      out[n++] = static_cast<unsigned char>(acc >> 16);
      out[n++] = static_cast<unsigned char>(acc >> 8);
      out[n++] = static_cast<unsigned char>(acc);
      digits = 0;
      acc = 0;
      consumed = i + 1;
    }
  }
  *leftover = count - consumed;
  if (!padded && *padding_seen != 0) {
    // The final, unpadded group.
    if (digits == 1) return false;
    if (digits == 2) {
      if ((acc & 15) != 0) return false;
      out[n++] = static_cast<unsigned char>(acc >> 4);
    } else if (digits == 3) {
      if ((acc & 3) != 0) return false;
      acc >>= 2;
      out[n++] = static_cast<unsigned char>(acc >> 8);
      out[n++] = static_cast<unsigned char>(acc);
    }
    *leftover = 0;
  }
  *out_count = n;
  return true;
}

// Keeps the unfinished group at the end of text for the next step. Its
// whitespace is dropped: it would only be skipped again.
void carry(Base64Stream *b, const unsigned char *text, int64_t count, int64_t leftover) {
  int32_t kept = 0;
  for (int64_t i = count - leftover; i < count; ++i) {
    const unsigned char c = text[i];
    if (c != '\r' && c != '\n' && c != '\t' && c != ' ') b->text[kept++] = c;
  }
  b->text_count = kept;
  b->has_text = kept > 0;
}

int decode_failed(Base64Stream *b, ORLIX_ErrCtx *ctx) {
  b->failed = 1;
  return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BASE64_DECODE);
}

int b64_read(ORLIX_Stream *stream, void *buffer, int64_t length, uint64_t *count,
             ORLIX_ErrCtx *ctx) {
  const int checked = ORLIX_FILTER_CHECK_STICKY(Base64Stream, failed, ORLIX_ERR_STREAM_BASE64_DECODE,
                                                stream, buffer, length, count, ctx);
  if (checked != orlix::kFilterProceed) return checked;
  auto *b = static_cast<Base64Stream *>(stream->data);

  auto *out = static_cast<unsigned char *>(buffer);
  int64_t delivered = 0;
  const auto finish = [&](int result) {
    if (count != nullptr) *count = static_cast<uint64_t>(delivered);
    return result;
  };
  // Bytes decoded by an earlier call come first.
  const auto serve = [&](const unsigned char *from, int64_t n) {
    const int64_t take = n < length - delivered ? n : length - delivered;
    std::memcpy(out + delivered, from, static_cast<size_t>(take));
    delivered += take;
    return take;
  };
  if (b->out_count > 0) {
    const int64_t took = serve(b->out + b->out_pos, b->out_count);
    b->out_pos += static_cast<int32_t>(took);
    b->out_count -= static_cast<int32_t>(took);
    b->has_out = b->out_count > 0;
    if (delivered == length) return finish(1);
  }

  unsigned char text[kBlock];
  unsigned char decoded[kBlock];
  for (;;) {
    const int64_t carried = b->text_count;
    std::memcpy(text, b->text, static_cast<size_t>(carried));
    const int64_t ask = kBlock - carried;
    uint64_t got = 0;
    const int r = orlix_stream_read(stream->next, text + carried, ask, &got, ctx);
    if (r != 1) {
      if (orlix_stream_ctrl(stream->next, ORLIX_CTRL_EOF, nullptr, nullptr) != 1) return r;
      if (b->has_text) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_LENGTH);
      b->padding_seen = 1;  // the input is complete
      if (delivered > 0) return finish(1);
      return finish(ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_READ_PAST_END));
    }
    if (got == 0) return finish(1);
    const int64_t total = carried + static_cast<int64_t>(got);
    int64_t n = 0;
    int64_t leftover = 0;
    if (!decodebase64(b->padded, b->dec_url, b->ws_mode, text, total, decoded, &n, &leftover,
                      &b->padding_seen))
      return decode_failed(b, ctx);
    carry(b, text, total, leftover);
    const int64_t took = serve(decoded, n);
    if (took < n) {
      b->out_pos = 0;
      b->out_count = static_cast<int32_t>(n - took);
      b->has_out = 1;
      std::memcpy(b->out, decoded + took, static_cast<size_t>(n - took));
    }
    if (static_cast<int64_t>(got) != ask || delivered == length) return finish(1);
  }
}

// Code 20: decodes the unfinished final group of unpadded input.
int take_remainder(Base64Stream *b, void *argument, ORLIX_ErrCtx *ctx) {
  if (argument == nullptr || b->failed) return 0;
  auto **blob = static_cast<ORLIX_DataBlob **>(argument);
  unsigned char decoded[4];
  int64_t n = 0;
  if (b->has_text) {
    if (b->padded) return 0;
    int64_t leftover = 0;
    int32_t complete = 1;
    if (!decodebase64(false, b->dec_url, b->ws_mode, b->text, b->text_count, decoded, &n,
                      &leftover, &complete))
      return decode_failed(b, ctx);
    if (leftover != 0) return 0;
  }
  // The carried text goes only once its bytes are safely handed out, so a
  // failed blob can be asked for again.
  *blob = orlix_data_blob_new(decoded, n);
  if (*blob == nullptr) return 0;
  b->text_count = 0;
  b->has_text = 0;
  return 1;
}

int b64_ctrl(ORLIX_Stream *stream, int64_t code, void *argument, ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  auto *b = static_cast<Base64Stream *>(stream->data);
  if (b == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD);
  if (stream->next == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_NO_SINK);
  switch (code) {
    case ORLIX_CTRL_FLUSH: return flush(stream, b, argument, ctx);
    case ORLIX_CTRL_GET_LENGTH: return 0;  // a text's decoded length is unknown
    case ORLIX_CTRL_EOF:
      if (b->failed || b->has_text) return 0;
      return orlix_stream_ctrl(stream->next, code, argument, ctx);
    case ORLIX_CTRL_BASE64_REMAINDER: return take_remainder(b, argument, ctx);
    default: return orlix_stream_ctrl(stream->next, code, argument, ctx);
  }
}

void b64_destroy(ORLIX_Stream *stream) {
  if (stream == nullptr || stream->type != ORLIX_STREAM_TYPE_BASE64 || stream->data == nullptr)
    return;
  orlix_free(stream->data);
  stream->data = nullptr;
}

constexpr ORLIX_StreamMethod base64_method = {b64_read, b64_write, b64_destroy, b64_ctrl};

// ---- one-shot helpers ----------------------------------------------------------

struct ChainDeleter {
  void operator()(ORLIX_Stream *s) const noexcept { orlix_stream_freeall(s); }
};
using Chain = std::unique_ptr<ORLIX_Stream, ChainDeleter>;

// A base64 filter pushed on `sink`; the chain owns both (or, on failure,
// the sink is released).
Chain filter_over(ORLIX_Stream *sink, uint32_t encode_flags, uint32_t decode_flags) {
  if (sink == nullptr) return nullptr;
  ORLIX_Stream *filter = orlix_stream_new_base64(encode_flags, kDefaultLine, decode_flags, nullptr);
  if (filter == nullptr || orlix_stream_push(filter, sink) != 1) {
    orlix_stream_free(filter);
    orlix_stream_free(sink);
    return nullptr;
  }
  return Chain(filter);
}

// The first place of needle in the first length bytes of haystack, or -1.
// It finds nothing when the needle is not shorter than the haystack, and
// never looks at the last place, where the needle would end with the
// haystack; PEM parsing has always relied on both limits.
int64_t nstrstr(const char *haystack, int64_t length, const char *needle) {
  const auto n = static_cast<int64_t>(std::strlen(needle));
  if (n >= length) return -1;
  for (int64_t at = 0; at < length - n; ++at)
    if (std::memcmp(haystack + at, needle, static_cast<size_t>(n)) == 0) return at;
  return -1;
}

bool is_eol(char c) { return c == '\r' || c == '\n'; }

}  // namespace

extern "C" {

ORLIX_Stream *orlix_stream_new_base64(uint32_t encode_flags, int32_t line_length,
                                      uint32_t decode_flags, ORLIX_ErrCtx *ctx) {
  const uint32_t eol = encode_flags & ~kFlagBits;
  const uint32_t ws = decode_flags & ~kFlagBits;
  if (eol < ORLIX_BASE64_EOL_CR || eol > ORLIX_BASE64_EOL_NONE || ws < ORLIX_BASE64_WS_NONE ||
      ws > ORLIX_BASE64_WS_ALL)
    return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_STREAM_BASE64_FLAG);
  orlix::Owned<Base64Stream> b(orlix::alloc_record<Base64Stream>(kModule, __LINE__));
  if (!b) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  auto *stream = orlix::alloc_record<ORLIX_Stream>(kModule, __LINE__);
  if (stream == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  std::memset(b.get(), 0, sizeof(Base64Stream));
  b->eol_mode = static_cast<int32_t>(eol);
  // Positive lengths grow by their remainder mod 4 (65 becomes 66); lines
  // then run to the next whole group.
  b->line_length =
      line_length > 0 ? int64_t{line_length} + line_length % 4 : int64_t{kDefaultLine};
  b->pad = (encode_flags & ORLIX_BASE64_NO_PAD) == 0;
  b->url = (encode_flags & ORLIX_BASE64_URL) != 0;
  b->ws_mode = static_cast<int32_t>(ws);
  b->padded = (decode_flags & ORLIX_BASE64_NO_PAD) == 0;
  b->dec_url = (decode_flags & ORLIX_BASE64_URL) != 0;
  *stream = ORLIX_Stream{&base64_method, ORLIX_STREAM_TYPE_BASE64, b.release(), nullptr, nullptr};
  return stream;
}

int orlix_base64encode(uint32_t encode_flags, const void *data, int64_t length, char **text,
                       int64_t *text_length) {
  if (data == nullptr || length < 1 || text == nullptr || text_length == nullptr) return 0;
  if (length > INT64_MAX / 2) return 0;
  ORLIX_Stream *sink = orlix_stream_new_mem(2 * length, nullptr);
  Chain chain = filter_over(sink, encode_flags, ORLIX_BASE64_WS_EOL);
  if (!chain) return 0;
  unsigned char *buffer = nullptr;
  int64_t size = 0;
  if (orlix_stream_writen(chain.get(), data, length, nullptr) != 1 ||
      orlix_stream_ctrl(chain.get(), ORLIX_CTRL_FLUSH, nullptr, nullptr) != 1 ||
      orlix_stream_writen(sink, "", 1, nullptr) != 1 ||
      orlix_memstreamdeatch(sink, &buffer, &size) != 1)
    return 0;
  *text = reinterpret_cast<char *>(buffer);
  *text_length = size - 1;
  return 1;
}

int orlix_base64decode(uint32_t decode_flags, const char *text, int64_t length,
                       unsigned char **data, int64_t *data_length) {
  if (text == nullptr || length < 1 || data == nullptr || data_length == nullptr) return 0;
  const uint32_t ws = decode_flags & ~kFlagBits;
  if (ws < ORLIX_BASE64_WS_NONE || ws > ORLIX_BASE64_WS_ALL) return 0;
  // The whole text is at hand, so it is decoded in one pass straight into
  // the result: the same decoding a base64 filter over the text applies one
  // block at a time, without the blocks' copies. Like a reader of that
  // filter, a padded text's unfinished last group is left out, and an
  // unpadded text's is decoded as its remainder.
  const bool padded = (decode_flags & ORLIX_BASE64_NO_PAD) == 0;
  const bool url = (decode_flags & ORLIX_BASE64_URL) != 0;
  orlix::Owned<unsigned char> out(orlix::alloc_bytes(length / 4 * 3 + 3 + 32, kModule, __LINE__));
  if (!out) return 0;
  const auto *in = reinterpret_cast<const unsigned char *>(text);
  int64_t n = 0;
  int64_t leftover = 0;
  int32_t padding_seen = 0;
  if (!decodebase64(padded, url, static_cast<int32_t>(ws), in, length, out.get(), &n, &leftover,
                    &padding_seen))
    return 0;
  if (!padded && leftover > 0) {
    // At most three digits, with whitespace between them that was allowed.
    unsigned char group[4];
    int64_t digits = 0;
    for (int64_t i = length - leftover; i < length && digits < 4; ++i)
      if (in[i] != '\r' && in[i] != '\n' && in[i] != '\t' && in[i] != ' ') group[digits++] = in[i];
    int64_t tail = 0;
    int32_t complete = 1;
    if (!decodebase64(false, url, static_cast<int32_t>(ws), group, digits, out.get() + n, &tail,
                      &leftover, &complete))
      return 0;
    n += tail;
  }
  *data = out.release();
  *data_length = n;
  return 1;
}

int orlix_pemencode(const char *label, const void *data, int64_t length, char **pem,
                    int64_t *pem_length) {
  if (label == nullptr || *label == '\0' || data == nullptr || length < 1 || pem == nullptr ||
      pem_length == nullptr)
    return 0;
  const auto label_length = static_cast<int64_t>(std::strlen(label));
  char *body = nullptr;
  int64_t body_length = 0;
  if (orlix_base64encode(ORLIX_BASE64_EOL_CRLF, data, length, &body, &body_length) != 1) return 0;
  orlix::Owned<char> body_owner(body);
  const int64_t size = (length / 32) * 2 + (length / 3) * 4 + 64 + 2 * label_length + 26;
  const bool needs_eol =
      body_length < 2 || body[body_length - 2] != '\r' || body[body_length - 1] != '\n';
  const int64_t needed = 2 * label_length + 34 + body_length + (needs_eol ? 2 : 0) + 1;
  if (needed > size) return 0;  // the armour always fits; refuse rather than overrun
  orlix::Owned<char> out(orlix::alloc_array<char>(size, kModule, __LINE__));
  if (!out) return 0;
  std::memset(out.get(), 0, static_cast<size_t>(size));
  int64_t n = std::snprintf(out.get(), static_cast<size_t>(size), "-----BEGIN %s-----\r\n", label);
  std::memcpy(out.get() + n, body, static_cast<size_t>(body_length));
  n += body_length;
  if (needs_eol) {
    std::memcpy(out.get() + n, "\r\n", 2);
    n += 2;
  }
  n += std::snprintf(out.get() + n, static_cast<size_t>(size - n), "-----END %s-----\r\n", label);
  *pem = out.release();
  *pem_length = n;
  return 1;
}

int orlix_pemdecode(const char *label, const char *pem, int64_t length, unsigned char **data,
                    int64_t *data_length) {
  if (label == nullptr || pem == nullptr || data == nullptr || data_length == nullptr ||
      length < 1 || *label == '\0')
    return 0;
  const auto l = static_cast<int64_t>(std::strlen(label));
  if (length < 2 * l + 34) return 0;
  // The text ends in the footer's dashes or a line ending (a final NUL is
  // looked past).
  const char last = pem[length - 1] == '\0' ? pem[length - 2] : pem[length - 1];
  if (last != '-' && !is_eol(last)) return 0;

  constexpr char kBegin[] = "-----BEGIN ";
  constexpr char kEnd[] = "-----END ";
  const int64_t header = nstrstr(pem, length, kBegin);
  if (header < 0) return 0;
  for (int64_t i = 0; i < header; ++i)
    if (pem[i] != '-') return 0;
  int64_t at = header + static_cast<int64_t>(sizeof kBegin) - 1;
  if (length - at < l || std::memcmp(pem + at, label, static_cast<size_t>(l)) != 0) return 0;
  at += l;
  const int64_t dashes = at;
  while (at < length && pem[at] == '-') ++at;
  if (at - dashes < 5 || at == length || !is_eol(pem[at])) return 0;
  ++at;
  if (at < length && is_eol(pem[at])) ++at;
  const int64_t body_start = at;

  const int64_t footer = nstrstr(pem, length, kEnd);
  if (footer <= body_start) return 0;
  // The body ends at the last byte before the footer that is not a dash; the
  // line ending before the footer belongs to it.
  int64_t body_end = footer - 1;
  while (pem[body_end] == '-') {
    if (--body_end <= body_start) return 0;
  }
  at = footer + static_cast<int64_t>(sizeof kEnd) - 1;
  if (length - at < l || std::memcmp(pem + at, label, static_cast<size_t>(l)) != 0) return 0;
  at += l;
  const int64_t trailer = at;
  while (at < length && pem[at] == '-') ++at;
  if (at - trailer < 5 || length - at > 2) return 0;
  return orlix_base64decode(ORLIX_BASE64_WS_EOL, pem + body_start, body_end - body_start + 1, data,
                            data_length);
}

}  // extern "C"
