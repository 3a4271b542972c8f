// Memory streams and hex: ours against OpenSSL's memory BIO and libsodium's
// hex codec, on 1 MiB of data. Each pair does the same work on both sides;
// the comment above each pair says how. Before timing, main checks that both
// sides produce the same bytes.
#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/crypto.h>
#include <sodium.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "bench_common.hpp"
#include "stream/ORLIX_Stream_Mem.hpp"

namespace {

using orlix_bench::kMiB;

constexpr int64_t kPieces[] = {16, 64, 4096};

const std::vector<unsigned char> &source() {
  static const std::vector<unsigned char> bytes = orlix_bench::pseudo_random_bytes(kMiB);
  return bytes;
}

// The source as lower-case hex digits (what both encoders produce).
const std::string &source_hex() {
  static const std::string text = [] {
    std::string t(static_cast<size_t>(2 * kMiB + 1), '\0');
    sodium_bin2hex(t.data(), t.size(), source().data(), source().size());
    t.resize(static_cast<size_t>(2 * kMiB));
    return t;
  }();
  return text;
}

// ---- write -----------------------------------------------------------------
// Each iteration creates an empty memory stream of the library's default size
// (orlix_stream_new_mem(0): 4 KiB; BIO_new(BIO_s_mem()): empty), writes the
// 1 MiB source in `piece`-byte calls, checking every count, and releases the
// stream. Creation, growth and release are timed on both sides.

void write_ours(benchmark::State &state, int64_t piece) {
  const unsigned char *src = source().data();
  bool ok = true;
  for (auto _ : state) {
    ORLIX_Stream *s = orlix_stream_new_mem(0, nullptr);
    for (int64_t off = 0; off < kMiB; off += piece) {
      uint64_t n = 0;
      ok &= orlix_stream_write(s, src + off, piece, &n, nullptr) == 1 &&
            n == static_cast<uint64_t>(piece);
    }
    benchmark::DoNotOptimize(s);
    orlix_stream_free(s);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void write_openssl(benchmark::State &state, int64_t piece) {
  const unsigned char *src = source().data();
  bool ok = true;
  for (auto _ : state) {
    BIO *b = BIO_new(BIO_s_mem());
    for (int64_t off = 0; off < kMiB; off += piece)
      ok &= BIO_write(b, src + off, static_cast<int>(piece)) == piece;
    benchmark::DoNotOptimize(b);
    BIO_free(b);
  }
  orlix_bench::finish(state, ok, kMiB);
}

// ---- where the reads land ------------------------------------------------------
// The reads are bound by memcpy, whose speed depends on where its two
// buffers lie relative to each other: a destination a few bytes past the
// source modulo 4 KiB makes the processor take loads for aliases of the
// stores just made, and costs either side about a tenth. Where the heap put
// the source and each side's destination decided the 4 KiB rows before, so
// each side now reads into a destination placed half a page from its
// source, the same for both.

unsigned char *placed_destination(const void *source_start) {
  static std::vector<unsigned char> arena(static_cast<size_t>(kMiB + 8192));
  const auto src = reinterpret_cast<uintptr_t>(source_start);
  const auto base = reinterpret_cast<uintptr_t>(arena.data());
  const uintptr_t want = (src + 2048) % 4096;
  return arena.data() + (want + 4096 - base % 4096) % 4096;
}

// ---- read from a fresh read-only stream --------------------------------------
// Each iteration wraps the 1 MiB source, borrowed and not copied on both sides
// (orlix_stream_new_romem with copy 0; BIO_new_mem_buf), in a new read-only
// stream, reads it out in `piece`-byte calls into a 1 MiB destination,
// checking every count, and releases the stream.

void read_romem_ours(benchmark::State &state, int64_t piece) {
  const unsigned char *src = source().data();
  unsigned char *const dst = placed_destination(src);
  bool ok = true;
  for (auto _ : state) {
    ORLIX_Stream *s = orlix_stream_new_romem(src, kMiB, 0, nullptr);
    for (int64_t off = 0; off < kMiB; off += piece) {
      uint64_t n = 0;
      ok &= orlix_stream_read(s, dst + off, piece, &n, nullptr) == 1 &&
            n == static_cast<uint64_t>(piece);
    }
    benchmark::DoNotOptimize(dst);
    benchmark::ClobberMemory();
    orlix_stream_free(s);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void read_romem_openssl(benchmark::State &state, int64_t piece) {
  const unsigned char *src = source().data();
  unsigned char *const dst = placed_destination(src);
  bool ok = true;
  for (auto _ : state) {
    BIO *b = BIO_new_mem_buf(src, static_cast<int>(kMiB));
    for (int64_t off = 0; off < kMiB; off += piece)
      ok &= BIO_read(b, dst + off, static_cast<int>(piece)) == piece;
    benchmark::DoNotOptimize(dst);
    benchmark::ClobberMemory();
    BIO_free(b);
  }
  orlix_bench::finish(state, ok, kMiB);
}

// ---- read after rewinding ----------------------------------------------------
// One writable memory stream per benchmark, filled with the 1 MiB source
// before timing. Each iteration rewinds it and reads the 1 MiB out in
// `piece`-byte calls into a 1 MiB destination, checking every count. Ours
// rewinds with ORLIX_CTRL_RESET; the BIO has BIO_FLAGS_NONCLEAR_RST set, so
// BIO_reset keeps the data and only moves the read position back (without
// the flag it would zero the buffer, which is not the same work).

ORLIX_Stream *filled_mem_stream() {
  ORLIX_Stream *s = orlix_stream_new_mem(0, nullptr);
  if (s != nullptr && orlix_stream_writen(s, source().data(), kMiB, nullptr) != 1) {
    orlix_stream_free(s);
    return nullptr;
  }
  return s;
}

BIO *filled_mem_bio() {
  BIO *b = BIO_new(BIO_s_mem());
  if (b == nullptr) return nullptr;
  BIO_set_flags(b, BIO_FLAGS_NONCLEAR_RST);
  if (BIO_write(b, source().data(), static_cast<int>(kMiB)) != kMiB) {
    BIO_free(b);
    return nullptr;
  }
  return b;
}

void read_rewound_ours(benchmark::State &state, int64_t piece) {
  ORLIX_Stream *s = filled_mem_stream();
  unsigned char *const dst = placed_destination(s != nullptr ? orlix::mem_of(s)->buffer : nullptr);
  bool ok = s != nullptr;
  for (auto _ : state) {
    if (!ok) break;
    ok &= orlix_stream_ctrl(s, ORLIX_CTRL_RESET, nullptr, nullptr) == 1;
    for (int64_t off = 0; off < kMiB; off += piece) {
      uint64_t n = 0;
      ok &= orlix_stream_read(s, dst + off, piece, &n, nullptr) == 1 &&
            n == static_cast<uint64_t>(piece);
    }
    benchmark::DoNotOptimize(dst);
    benchmark::ClobberMemory();
  }
  orlix_stream_free(s);
  orlix_bench::finish(state, ok, kMiB);
}

void read_rewound_openssl(benchmark::State &state, int64_t piece) {
  BIO *b = filled_mem_bio();
  BUF_MEM *held = nullptr;
  if (b != nullptr) BIO_get_mem_ptr(b, &held);
  unsigned char *const dst = placed_destination(held != nullptr ? held->data : nullptr);
  bool ok = b != nullptr;
  for (auto _ : state) {
    if (!ok) break;
    ok &= BIO_reset(b) == 1;
    for (int64_t off = 0; off < kMiB; off += piece)
      ok &= BIO_read(b, dst + off, static_cast<int>(piece)) == piece;
    benchmark::DoNotOptimize(dst);
    benchmark::ClobberMemory();
  }
  BIO_free(b);
  orlix_bench::finish(state, ok, kMiB);
}

// ---- hex -------------------------------------------------------------------
// Encode: 1 MiB becomes 2 MiB of lower-case digits plus a NUL in a newly
// allocated block, which is then released. orlix_hexencode allocates inside
// the call; sodium_bin2hex writes into the caller's buffer, so its side
// mallocs the same 2 MiB + 1 per iteration (our default allocation hook is
// malloc too).
// Decode: 2 MiB of digits become 1 MiB in a newly allocated block, with every
// character validated (sodium_hex2bin without ignored characters or an end
// pointer fails on any non-digit, as orlix_hexdecode does); the libsodium
// side mallocs its 1 MiB output. Both report 1 MiB of binary data.

void hexencode_ours(benchmark::State &state) {
  const unsigned char *src = source().data();
  bool ok = true;
  for (auto _ : state) {
    char *text = nullptr;
    int64_t length = 0;
    ok &= orlix_hexencode(0, src, kMiB, &text, &length) == 1 && length == 2 * kMiB;
    benchmark::DoNotOptimize(text);
    orlix_free(text);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void hexencode_sodium(benchmark::State &state) {
  const unsigned char *src = source().data();
  bool ok = true;
  for (auto _ : state) {
    auto *text = static_cast<char *>(std::malloc(static_cast<size_t>(2 * kMiB + 1)));
    ok &= text != nullptr &&
          sodium_bin2hex(text, static_cast<size_t>(2 * kMiB + 1), src, kMiB) == text;
    benchmark::DoNotOptimize(text);
    std::free(text);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void hexdecode_ours(benchmark::State &state) {
  const char *text = source_hex().data();
  bool ok = true;
  for (auto _ : state) {
    unsigned char *data = nullptr;
    int64_t length = 0;
    ok &= orlix_hexdecode(text, 2 * kMiB, &data, &length) == 1 && length == kMiB;
    benchmark::DoNotOptimize(data);
    orlix_free(data);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void hexdecode_sodium(benchmark::State &state) {
  const char *text = source_hex().data();
  bool ok = true;
  for (auto _ : state) {
    auto *data = static_cast<unsigned char *>(std::malloc(static_cast<size_t>(kMiB)));
    size_t length = 0;
    ok &= data != nullptr &&
          sodium_hex2bin(data, kMiB, text, 2 * kMiB, nullptr, &length, nullptr) == 0 &&
          length == kMiB;
    benchmark::DoNotOptimize(data);
    std::free(data);
  }
  orlix_bench::finish(state, ok, kMiB);
}

// ---- agreement ---------------------------------------------------------------

bool same_as_source(const void *p, size_t n) {
  return n == source().size() && std::memcmp(p, source().data(), n) == 0;
}

// Runs each operation once per side outside the timing and compares the
// bytes, so that a broken side cannot pass for a fast one.
bool sides_agree() {
  bool ok = true;
  auto expect = [&ok](bool cond, const char *what) {
    if (!cond) std::fprintf(stderr, "bench_stream: %s\n", what);
    ok &= cond;
  };

  for (int64_t piece : kPieces) {
    ORLIX_Stream *s = orlix_stream_new_mem(0, nullptr);
    for (int64_t off = 0; off < kMiB; off += piece)
      orlix_stream_write(s, source().data() + off, piece, nullptr, nullptr);
    unsigned char *buffer = nullptr;
    int64_t length = 0;
    expect(orlix_memstreamdeatch(s, &buffer, &length) == 1 &&
               same_as_source(buffer, static_cast<size_t>(length)),
           "our memory stream does not hold what was written");
    orlix_stream_free(s);
    orlix_free(buffer);

    BIO *b = BIO_new(BIO_s_mem());
    for (int64_t off = 0; off < kMiB; off += piece)
      BIO_write(b, source().data() + off, static_cast<int>(piece));
    char *data = nullptr;
    const long n = BIO_get_mem_data(b, &data);
    expect(n > 0 && same_as_source(data, static_cast<size_t>(n)),
           "the memory BIO does not hold what was written");
    BIO_free(b);
  }

  std::vector<unsigned char> out(static_cast<size_t>(kMiB));
  ORLIX_Stream *ro = orlix_stream_new_romem(source().data(), kMiB, 0, nullptr);
  expect(orlix_stream_readn(ro, out.data(), kMiB, nullptr) == 1 &&
             same_as_source(out.data(), out.size()),
         "our read-only stream reads back wrong bytes");
  orlix_stream_free(ro);
  BIO *rob = BIO_new_mem_buf(source().data(), static_cast<int>(kMiB));
  expect(BIO_read(rob, out.data(), static_cast<int>(kMiB)) == kMiB &&
             same_as_source(out.data(), out.size()),
         "the read-only BIO reads back wrong bytes");
  BIO_free(rob);

  // Rewinding twice must give the whole source both times.
  ORLIX_Stream *s = filled_mem_stream();
  BIO *b = filled_mem_bio();
  for (int round = 0; round < 2; ++round) {
    std::fill(out.begin(), out.end(), 0);
    expect(s != nullptr && orlix_stream_ctrl(s, ORLIX_CTRL_RESET, nullptr, nullptr) == 1 &&
               orlix_stream_readn(s, out.data(), kMiB, nullptr) == 1 &&
               same_as_source(out.data(), out.size()),
           "our rewound memory stream reads back wrong bytes");
    std::fill(out.begin(), out.end(), 0);
    expect(b != nullptr && BIO_reset(b) == 1 &&
               BIO_read(b, out.data(), static_cast<int>(kMiB)) == kMiB &&
               same_as_source(out.data(), out.size()),
           "the rewound memory BIO reads back wrong bytes");
  }
  orlix_stream_free(s);
  BIO_free(b);

  char *text = nullptr;
  int64_t text_length = 0;
  expect(orlix_hexencode(0, source().data(), kMiB, &text, &text_length) == 1 &&
             text_length == 2 * kMiB &&
             std::memcmp(text, source_hex().data(), source_hex().size()) == 0 &&
             text[text_length] == '\0',
         "the two hex encoders disagree");
  orlix_free(text);
  unsigned char *data = nullptr;
  int64_t data_length = 0;
  expect(orlix_hexdecode(source_hex().data(), 2 * kMiB, &data, &data_length) == 1 &&
             same_as_source(data, static_cast<size_t>(data_length)),
         "our hex decoder does not invert the encoding");
  orlix_free(data);
  size_t decoded = 0;
  expect(sodium_hex2bin(out.data(), out.size(), source_hex().data(), source_hex().size(), nullptr,
                        &decoded, nullptr) == 0 &&
             same_as_source(out.data(), decoded),
         "libsodium's hex decoder does not invert the encoding");
  return ok;
}

template <class F>
auto with_piece(F f, int64_t piece) {
  return [f, piece](benchmark::State &state) { f(state, piece); };
}

}  // namespace

int main(int argc, char **argv) {
  if (sodium_init() < 0 || !sides_agree()) return 1;
  orlix_bench::note_peer("OpenSSL", OpenSSL_version(OPENSSL_VERSION_STRING));
  orlix_bench::note_peer("libsodium", sodium_version_string());

  using orlix_bench::register_pair;
  using orlix_bench::size_name;
  for (int64_t piece : kPieces)
    register_pair("mem_write/" + size_name(piece), "OpenSSL", with_piece(write_ours, piece),
                  with_piece(write_openssl, piece));
  for (int64_t piece : kPieces)
    register_pair("mem_read_romem/" + size_name(piece), "OpenSSL",
                  with_piece(read_romem_ours, piece), with_piece(read_romem_openssl, piece));
  for (int64_t piece : kPieces)
    register_pair("mem_read_rewound/" + size_name(piece), "OpenSSL",
                  with_piece(read_rewound_ours, piece), with_piece(read_rewound_openssl, piece));
  register_pair("hex_encode/1MiB", "libsodium", hexencode_ours, hexencode_sodium);
  register_pair("hex_decode/1MiB", "libsodium", hexdecode_ours, hexdecode_sodium);
  return orlix_bench::run(argc, argv);
}
