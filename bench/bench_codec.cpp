// Base64, PEM and the digest filter: ours against OpenSSL on 1 MiB of data.
// Each pair does the same work on both sides; the comment above each pair
// says how. Before timing, main checks that both sides produce the same
// bytes.
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "bench_common.hpp"

namespace {

using orlix_bench::kMiB;

constexpr char kLabel[] = "CERTIFICATE";

const std::vector<unsigned char> &source() {
  static const std::vector<unsigned char> bytes = orlix_bench::pseudo_random_bytes(kMiB);
  return bytes;
}

// The source as OpenSSL's encoder writes it: 64-character lines, each
// ending in LF (what ours writes with ORLIX_BASE64_EOL_LF).
const std::string &source_base64() {
  static const std::string text = [] {
    std::string t(static_cast<size_t>(EVP_ENCODE_LENGTH(kMiB)), '\0');
    EVP_ENCODE_CTX *ctx = EVP_ENCODE_CTX_new();
    EVP_EncodeInit(ctx);
    int n = 0;
    int total = 0;
    EVP_EncodeUpdate(ctx, reinterpret_cast<unsigned char *>(t.data()), &n, source().data(),
                     static_cast<int>(kMiB));
    total += n;
    EVP_EncodeFinal(ctx, reinterpret_cast<unsigned char *>(t.data()) + total, &n);
    total += n;
    EVP_ENCODE_CTX_free(ctx);
    t.resize(static_cast<size_t>(total));
    return t;
  }();
  return text;
}

// The source in PEM armour with LF lines (OpenSSL's form; ours reads it too).
const std::string &source_pem() {
  static const std::string text =
      "-----BEGIN CERTIFICATE-----\n" + source_base64() + "-----END CERTIFICATE-----\n";
  return text;
}

// ---- base64 -----------------------------------------------------------------
// Encode: 1 MiB becomes 1,398,102 characters in 64-character LF lines in a
// newly allocated block, released after each iteration. Ours allocates
// inside orlix_base64encode; OpenSSL's side mallocs EVP_ENCODE_LENGTH bytes
// and runs EVP_EncodeInit/Update/Final with a context made per iteration.
// Decode: that text (line endings included) back into 1 MiB in a newly
// allocated block: orlix_base64decode with CR/LF accepted, against
// EVP_DecodeInit/Update/Final into a malloc'd block.
// Decode with CR LF lines: the same data as 64-character CR LF lines,
// against OpenSSL's fastest decoder, EVP_DecodeBlock, on the text without
// any line breaks (it accepts none), into a malloc'd block: our decoder
// skips the line breaks and still has to keep up with one that sees none.

void base64encode_ours(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    char *text = nullptr;
    int64_t length = 0;
    ok &= orlix_base64encode(ORLIX_BASE64_EOL_LF, source().data(), kMiB, &text, &length) == 1 &&
          length == static_cast<int64_t>(source_base64().size());
    benchmark::DoNotOptimize(text);
    orlix_free(text);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void base64encode_openssl(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    auto *out = static_cast<unsigned char *>(std::malloc(EVP_ENCODE_LENGTH(kMiB)));
    EVP_ENCODE_CTX *ctx = EVP_ENCODE_CTX_new();
    EVP_EncodeInit(ctx);
    int n = 0;
    int total = 0;
    ok &= EVP_EncodeUpdate(ctx, out, &n, source().data(), static_cast<int>(kMiB)) == 1;
    total += n;
    EVP_EncodeFinal(ctx, out + total, &n);
    total += n;
    EVP_ENCODE_CTX_free(ctx);
    ok &= total == static_cast<int>(source_base64().size());
    benchmark::DoNotOptimize(out);
    std::free(out);
  }
  orlix_bench::finish(state, ok, kMiB);
}

// orlix_base64decode of a text with CR and LF accepted into a new block.
void base64decode_text(benchmark::State &state, const std::string &text) {
  bool ok = true;
  for (auto _ : state) {
    unsigned char *data = nullptr;
    int64_t length = 0;
    ok &= orlix_base64decode(ORLIX_BASE64_WS_EOL, text.data(), static_cast<int64_t>(text.size()),
                             &data, &length) == 1 &&
          length == kMiB;
    benchmark::DoNotOptimize(data);
    orlix_free(data);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void base64decode_ours(benchmark::State &state) { base64decode_text(state, source_base64()); }

// The 1 MiB as one line, and as 64-character CR LF lines.
const std::string &source_base64_flat() {
  static const std::string text = [] {
    std::string t;
    for (char c : source_base64())
      if (c != '\n') t += c;
    return t;
  }();
  return text;
}

const std::string &source_base64_crlf() {
  static const std::string text = [] {
    std::string t;
    for (char c : source_base64()) t += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return t;
  }();
  return text;
}

void base64decode_crlf_ours(benchmark::State &state) {
  base64decode_text(state, source_base64_crlf());
}

void base64decode_block_openssl(benchmark::State &state) {
  const std::string &text = source_base64_flat();
  bool ok = true;
  for (auto _ : state) {
    auto *out = static_cast<unsigned char *>(std::malloc(text.size() / 4 * 3));
    // Whole groups only: the padded last group decodes to zero bytes as well.
    ok &= EVP_DecodeBlock(out, reinterpret_cast<const unsigned char *>(text.data()),
                          static_cast<int>(text.size())) >= kMiB;
    benchmark::DoNotOptimize(out);
    std::free(out);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void base64decode_openssl(benchmark::State &state) {
  const std::string &text = source_base64();
  bool ok = true;
  for (auto _ : state) {
    auto *out = static_cast<unsigned char *>(std::malloc(text.size() / 4 * 3 + 3));
    EVP_ENCODE_CTX *ctx = EVP_ENCODE_CTX_new();
    EVP_DecodeInit(ctx);
    int n = 0;
    int total = 0;
    ok &= EVP_DecodeUpdate(ctx, out, &n, reinterpret_cast<const unsigned char *>(text.data()),
                           static_cast<int>(text.size())) >= 0;
    total += n;
    ok &= EVP_DecodeFinal(ctx, out + total, &n) == 1;
    total += n;
    EVP_ENCODE_CTX_free(ctx);
    ok &= total == kMiB;
    benchmark::DoNotOptimize(out);
    std::free(out);
  }
  orlix_bench::finish(state, ok, kMiB);
}

// ---- PEM ----------------------------------------------------------------------
// Encode: 1 MiB in CERTIFICATE armour in a new block (ours: orlix_pemencode,
// CR LF lines; OpenSSL: PEM_write_bio into a new memory BIO, LF lines, the
// text left in the BIO's buffer), released after each iteration.
// Decode: the LF armour of the source back into 1 MiB, label checked:
// orlix_pemdecode against PEM_read_bio from a read-only memory BIO (name,
// header and data allocated and released).

void pemencode_ours(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    char *pem = nullptr;
    int64_t length = 0;
    ok &= orlix_pemencode(kLabel, source().data(), kMiB, &pem, &length) == 1;
    benchmark::DoNotOptimize(pem);
    orlix_free(pem);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void pemencode_openssl(benchmark::State &state) {
  bool ok = true;
  for (auto _ : state) {
    BIO *b = BIO_new(BIO_s_mem());
    ok &= PEM_write_bio(b, kLabel, "", source().data(), kMiB) > 0;
    char *p = nullptr;
    ok &= BIO_get_mem_data(b, &p) == static_cast<long>(source_pem().size());
    benchmark::DoNotOptimize(p);
    BIO_free(b);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void pemdecode_ours(benchmark::State &state) {
  const std::string &pem = source_pem();
  bool ok = true;
  for (auto _ : state) {
    unsigned char *data = nullptr;
    int64_t length = 0;
    ok &= orlix_pemdecode(kLabel, pem.data(), static_cast<int64_t>(pem.size()), &data, &length) ==
              1 &&
          length == kMiB;
    benchmark::DoNotOptimize(data);
    orlix_free(data);
  }
  orlix_bench::finish(state, ok, kMiB);
}

void pemdecode_openssl(benchmark::State &state) {
  const std::string &pem = source_pem();
  bool ok = true;
  for (auto _ : state) {
    BIO *b = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    char *name = nullptr;
    char *header = nullptr;
    unsigned char *data = nullptr;
    long length = 0;
    ok &= PEM_read_bio(b, &name, &header, &data, &length) == 1 && length == kMiB &&
          std::strcmp(name, kLabel) == 0;
    benchmark::DoNotOptimize(data);
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(data);
    BIO_free(b);
  }
  orlix_bench::finish(state, ok, kMiB);
}

// ---- digest filter ------------------------------------------------------------------
// SHA-256 of 1 MiB. Ours: an ORLIX_MDMethod over EVP SHA-256, a digest
// filter pushed on a null sink, the data written in `piece`-byte calls,
// finished with ORLIX_CTRL_MD_FINAL, the chain freed: all per iteration.
// OpenSSL: EVP_Digest of the whole 1 MiB for the one-call case; for pieces,
// EVP_DigestInit_ex / EVP_DigestUpdate per piece / EVP_DigestFinal_ex with a
// context made per iteration. The filter's cost is what it adds around the
// same EVP calls.

struct Sha256Ctx {
  unsigned char digest[EVP_MAX_MD_SIZE];  // final leaves the digest here
  EVP_MD_CTX *md;
};

void *sha_new() {
  auto *c = static_cast<Sha256Ctx *>(std::malloc(sizeof(Sha256Ctx)));
  if (c != nullptr && (c->md = EVP_MD_CTX_new()) == nullptr) {
    std::free(c);
    return nullptr;
  }
  return c;
}
void sha_free(void *c) {
  EVP_MD_CTX_free(static_cast<Sha256Ctx *>(c)->md);
  std::free(c);
}
uint32_t sha_length() { return 32; }
uint32_t sha_property() { return NID_sha256; }
void sha_init(void *c) {
  EVP_DigestInit_ex(static_cast<Sha256Ctx *>(c)->md, EVP_sha256(), nullptr);
}
int sha_update(void *c, const void *p, uint64_t n) {
  return EVP_DigestUpdate(static_cast<Sha256Ctx *>(c)->md, p, n);
}
int sha_final(void *c, unsigned char *out) {
  unsigned char tmp[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  if (EVP_DigestFinal_ex(static_cast<Sha256Ctx *>(c)->md, tmp, &n) != 1) return 0;
  std::memcpy(out, tmp, n);
  return 1;
}
uint32_t sha_block() { return 64; }
constexpr ORLIX_MDMethod kSha256 = {sha_new,    sha_free,  sha_length, sha_property, sha_init,
                                    sha_update, sha_final, sha_block,  nullptr};

bool digest_ours(int64_t piece, unsigned char *out) {
  ORLIX_Stream *sink = orlix_stream_new_null(nullptr);
  ORLIX_Stream *md = orlix_stream_new_md(&kSha256, nullptr);
  bool ok = sink != nullptr && md != nullptr && orlix_stream_push(md, sink) == 1;
  for (int64_t off = 0; ok && off < kMiB; off += piece)
    ok = orlix_stream_writen(md, source().data() + off, piece, nullptr) == 1;
  ok = ok && orlix_stream_ctrl(md, ORLIX_CTRL_MD_FINAL, out, nullptr) == 1;
  if (md != nullptr && md->next != nullptr) {
    orlix_stream_freeall(md);
  } else {
    orlix_stream_free(md);
    orlix_stream_free(sink);
  }
  return ok;
}

bool digest_openssl(int64_t piece, unsigned char *out) {
  unsigned int n = 0;
  if (piece == kMiB) return EVP_Digest(source().data(), kMiB, out, &n, EVP_sha256(), nullptr) == 1;
  EVP_MD_CTX *ctx = EVP_MD_CTX_new();
  bool ok = EVP_DigestInit_ex(ctx, EVP_sha256(), nullptr) == 1;
  for (int64_t off = 0; ok && off < kMiB; off += piece)
    ok = EVP_DigestUpdate(ctx, source().data() + off, static_cast<size_t>(piece)) == 1;
  ok = ok && EVP_DigestFinal_ex(ctx, out, &n) == 1;
  EVP_MD_CTX_free(ctx);
  return ok;
}

template <bool (*Digest)(int64_t, unsigned char *)>
void digest_bench(benchmark::State &state, int64_t piece) {
  unsigned char out[EVP_MAX_MD_SIZE];
  bool ok = true;
  for (auto _ : state) {
    ok &= Digest(piece, out);
    benchmark::DoNotOptimize(out);
  }
  orlix_bench::finish(state, ok, kMiB);
}

// ---- checks before timing -------------------------------------------------------------

bool ok = true;
void expect(bool condition, const char *what) {
  if (!condition) {
    std::fprintf(stderr, "bench_codec: %s\n", what);
    ok = false;
  }
}

bool sides_agree() {
  const std::vector<unsigned char> &src = source();
  char *text = nullptr;
  int64_t length = 0;
  expect(orlix_base64encode(ORLIX_BASE64_EOL_LF, src.data(), kMiB, &text, &length) == 1 &&
             std::string(text, static_cast<size_t>(length)) == source_base64(),
         "the two base64 encoders disagree");
  orlix_free(text);
  unsigned char *data = nullptr;
  expect(orlix_base64decode(ORLIX_BASE64_WS_EOL, source_base64().data(),
                            static_cast<int64_t>(source_base64().size()), &data, &length) == 1 &&
             length == kMiB && std::memcmp(data, src.data(), kMiB) == 0,
         "our base64 decoder does not invert OpenSSL's encoding");
  orlix_free(data);

  char *pem = nullptr;
  expect(orlix_pemencode(kLabel, src.data(), kMiB, &pem, &length) == 1, "orlix_pemencode failed");
  std::string lf(pem, static_cast<size_t>(length));
  for (size_t at; (at = lf.find("\r\n")) != std::string::npos;) lf.erase(at, 1);
  expect(lf == source_pem(), "our PEM text is not OpenSSL's with CR LF lines");
  BIO *b = BIO_new_mem_buf(pem, static_cast<int>(length));
  char *name = nullptr;
  char *header = nullptr;
  long n = 0;
  expect(PEM_read_bio(b, &name, &header, &data, &n) == 1 && n == kMiB &&
             std::memcmp(data, src.data(), kMiB) == 0,
         "OpenSSL cannot read our PEM text");
  OPENSSL_free(name);
  OPENSSL_free(header);
  OPENSSL_free(data);
  BIO_free(b);
  orlix_free(pem);
  expect(orlix_pemdecode(kLabel, source_pem().data(), static_cast<int64_t>(source_pem().size()),
                         &data, &length) == 1 &&
             length == kMiB && std::memcmp(data, src.data(), kMiB) == 0,
         "we cannot read OpenSSL's PEM text");
  orlix_free(data);

  for (int64_t piece : {kMiB, int64_t{4096}, int64_t{64}}) {
    unsigned char ours[EVP_MAX_MD_SIZE];
    unsigned char theirs[EVP_MAX_MD_SIZE];
    expect(digest_ours(piece, ours) && digest_openssl(piece, theirs) &&
               std::memcmp(ours, theirs, 32) == 0,
           "the digests disagree");
  }
  return ok;
}

template <class F>
auto with_piece(F f, int64_t piece) {
  return [f, piece](benchmark::State &state) { f(state, piece); };
}

}  // namespace

int main(int argc, char **argv) {
  if (!sides_agree()) return 1;
  orlix_bench::note_peer("OpenSSL", OpenSSL_version(OPENSSL_VERSION_STRING));

  using orlix_bench::register_pair;
  using orlix_bench::size_name;
  register_pair("base64_encode/1MiB", "OpenSSL", base64encode_ours, base64encode_openssl);
  register_pair("base64_decode/1MiB", "OpenSSL", base64decode_ours, base64decode_openssl);
  register_pair("base64_decode_crlf/1MiB", "OpenSSL_DecodeBlock", base64decode_crlf_ours,
                base64decode_block_openssl);
  register_pair("pem_encode/1MiB", "OpenSSL", pemencode_ours, pemencode_openssl);
  register_pair("pem_decode/1MiB", "OpenSSL", pemdecode_ours, pemdecode_openssl);
  for (int64_t piece : {kMiB, int64_t{4096}, int64_t{64}})
    register_pair("digest_sha256/" + size_name(piece) + "_writes", "OpenSSL",
                  with_piece(digest_bench<digest_ours>, piece),
                  with_piece(digest_bench<digest_openssl>, piece));
  return orlix_bench::run(argc, argv);
}
