// Base64 filters and codecs, PEM, file and null streams, digest and HMAC
// filters. The hash used here is a small FNV-1a table of the test's own
// whose contexts come from orlix_malloc, so that the sweep reaches the
// "new returned NULL" paths as well.
#include <dirent.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "scenario_util.hpp"
#include "sweep.hpp"

namespace {

using oom::Chain;

constexpr const char kB64[] = "ORLIX_Stream_Base64";
constexpr const char kFile[] = "ORLIX_Stream_File";
constexpr const char kMD[] = "ORLIX_Stream_MD";
constexpr const char kHmac[] = "ORLIX_Stream_HMAC";

// ---- a tiny hash: 64-bit FNV-1a, 8-byte digest, 16-byte blocks ----------------

struct FnvCtx {
  unsigned char digest[8];  // final leaves the digest here when out == the context
  uint64_t h;
};

uint64_t FnvStep(uint64_t h, const unsigned char *p, size_t n) {
  for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 0x100000001B3u;
  return h;
}

void *FnvNew() { return orlix_malloc(sizeof(FnvCtx), "fnv", 1); }
void FnvFree(void *c) { orlix_free(c); }
uint32_t FnvLength() { return 8; }
uint32_t FnvProperty() { return 0xF17u; }
void FnvInit(void *c) { static_cast<FnvCtx *>(c)->h = 0xCBF29CE484222325u; }
int FnvUpdate(void *c, const void *p, uint64_t n) {
  auto *f = static_cast<FnvCtx *>(c);
  f->h = FnvStep(f->h, static_cast<const unsigned char *>(p), n);
  return 1;
}
int FnvFinal(void *c, unsigned char *out) {
  const uint64_t h = static_cast<FnvCtx *>(c)->h;
  for (int i = 0; i < 8; ++i) out[i] = static_cast<unsigned char>(h >> (56 - 8 * i));
  return 1;
}
uint32_t FnvBlock() { return 16; }
void *FnvDup(void *c) {
  void *copy = FnvNew();
  if (copy != nullptr) std::memcpy(copy, c, sizeof(FnvCtx));
  return copy;
}
constexpr ORLIX_MDMethod kFnv = {FnvNew,    FnvFree,  FnvLength, FnvProperty, FnvInit,
                                 FnvUpdate, FnvFinal, FnvBlock,  FnvDup};

std::string Fnv(const std::string &data) {
  FnvCtx c;
  FnvInit(&c);
  FnvUpdate(&c, data.data(), data.size());
  unsigned char out[8];
  FnvFinal(&c, out);
  return std::string(reinterpret_cast<char *>(out), 8);
}

// HMAC over the FNV hash, written out directly.
std::string FnvHmac(std::string key, const std::string &data) {
  if (key.size() > 16) key = Fnv(key);
  key.resize(16, '\0');
  std::string inner = key, outer = key;
  for (char &c : inner) c ^= 0x36;
  for (char &c : outer) c ^= 0x5C;
  return Fnv(outer + Fnv(inner + data));
}

// The newest entry is "Out Of Memory"; which module ran out depends on
// where the failure fell, so only the code is checked.
void ExpectOutOfMemoryFromAny(const ORLIX_ErrCtx &ctx) {
  EXPECT_GE(oom::EntryCount(ctx), 1);
  EXPECT_EQ(oom::LastCode(ctx), ORLIX_ERR_OUT_OF_MEMORY);
}

int OpenDescriptors() {
  int n = 0;
  if (DIR *d = opendir("/proc/self/fd")) {
    while (readdir(d) != nullptr) ++n;
    closedir(d);
  }
  return n;
}

std::string TempPath(const char *tag) {
  return testing::TempDir() + "orlix_oom_s2_" + tag + "_" + std::to_string(getpid());
}

}  // namespace

// ---- base64 -------------------------------------------------------------------------

// 5000 bytes written through a base64 filter into a 16-byte memory stream
// (it grows many times), then decoded back through the same filter.
ORLIX_OOM_SCENARIO(Base64, FilterChain) {
  ORLIX_ErrCtx ctx{};
  Chain chain(orlix_stream_new_mem(16, &ctx));
  if (!chain) return oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Mem"), false;
  ORLIX_Stream *b64 = orlix_stream_new_base64(ORLIX_BASE64_EOL_LF, 76, ORLIX_BASE64_WS_EOL, &ctx);
  if (b64 == nullptr) return oom::ExpectOutOfMemory(ctx, kB64), false;
  EXPECT_EQ(orlix_stream_push(b64, chain.get()), 1);
  chain.release();
  chain.reset(b64);

  const auto data = oom::Pattern(5000, 9);
  if (orlix_stream_writen(b64, data.data(), 5000, &ctx) != 1 ||
      orlix_stream_ctrl(b64, ORLIX_CTRL_FLUSH, nullptr, &ctx) != 1) {
    oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Mem");
    return false;
  }
  std::vector<unsigned char> back(5000);
  EXPECT_EQ(orlix_stream_ctrl(b64, ORLIX_CTRL_RESET, nullptr, &ctx), 1);
  EXPECT_EQ(orlix_stream_readn(b64, back.data(), 5000, &ctx), 1);
  EXPECT_EQ(back, data);
  return true;
}

// Unpadded input: the remainder comes out in a new blob.
ORLIX_OOM_SCENARIO(Base64, UnpaddedRemainder) {
  ORLIX_ErrCtx ctx{};
  Chain chain(orlix_stream_new_romem("TWFuTWE", 7, 0, &ctx));
  if (!chain) return oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Mem"), false;
  ORLIX_Stream *b64 = orlix_stream_new_base64(2, 64, 2 | ORLIX_BASE64_NO_PAD, &ctx);
  if (b64 == nullptr) return oom::ExpectOutOfMemory(ctx, kB64), false;
  EXPECT_EQ(orlix_stream_push(b64, chain.get()), 1);
  chain.release();
  chain.reset(b64);
  char out[8];
  uint64_t n = 0;
  EXPECT_EQ(orlix_stream_read(b64, out, 8, &n, &ctx), 1);
  EXPECT_EQ(std::string(out, n), "Man");
  ORLIX_DataBlob *rest = nullptr;
  if (orlix_stream_ctrl(b64, ORLIX_CTRL_BASE64_REMAINDER, &rest, &ctx) != 1) return false;
  EXPECT_EQ(std::string(reinterpret_cast<char *>(rest->data), rest->length), "Ma");
  orlix_data_blob_free(rest);
  return true;
}

// A remainder whose blob could not be made must still be there for a
// second try.
ORLIX_OOM_SCENARIO(Base64, RemainderSurvivesAFailedBlob) {
  Chain chain(orlix_stream_new_romem("TWFuTWE", 7, 0, nullptr));
  if (!chain) return false;
  ORLIX_Stream *b64 = orlix_stream_new_base64(2, 64, 2 | ORLIX_BASE64_NO_PAD, nullptr);
  if (b64 == nullptr) return false;
  EXPECT_EQ(orlix_stream_push(b64, chain.get()), 1);
  chain.release();
  chain.reset(b64);
  char out[8];
  uint64_t n = 0;
  EXPECT_EQ(orlix_stream_read(b64, out, 8, &n, nullptr), 1);
  ORLIX_DataBlob *rest = nullptr;
  if (orlix_stream_ctrl(b64, ORLIX_CTRL_BASE64_REMAINDER, &rest, nullptr) != 1) {
    oom::PauseInjection pause;
    EXPECT_EQ(orlix_stream_ctrl(b64, ORLIX_CTRL_BASE64_REMAINDER, &rest, nullptr), 1);
    if (rest != nullptr) {
      EXPECT_EQ(rest->length, 2) << "the remainder was lost";
    }
    orlix_data_blob_free(rest);
    return false;
  }
  orlix_data_blob_free(rest);
  return true;
}

ORLIX_OOM_SCENARIO(Base64, OneShotCodecs) {
  const auto data = oom::Pattern(3000, 4);
  for (uint32_t flags : {2u, 4u | ORLIX_BASE64_NO_PAD | ORLIX_BASE64_URL}) {
    char *text = nullptr;
    int64_t text_length = 0;
    if (orlix_base64encode(flags, data.data(), 3000, &text, &text_length) != 1) {
      EXPECT_EQ(text, nullptr);
      return false;
    }
    unsigned char *back = nullptr;
    int64_t back_length = 0;
    const uint32_t decode_flags = (flags & ~7u) | ORLIX_BASE64_WS_EOL;
    const int r = orlix_base64decode(decode_flags, text, text_length, &back, &back_length);
    orlix_free(text);
    if (r != 1) {
      EXPECT_EQ(back, nullptr);
      return false;
    }
    EXPECT_EQ(std::vector<unsigned char>(back, back + back_length), data);
    orlix_free(back);
  }
  return true;
}

ORLIX_OOM_SCENARIO(Base64, Pem) {
  const auto data = oom::Pattern(1000, 6);
  char *pem = nullptr;
  int64_t pem_length = 0;
  if (orlix_pemencode("CERTIFICATE", data.data(), 1000, &pem, &pem_length) != 1) {
    EXPECT_EQ(pem, nullptr);
    return false;
  }
  unsigned char *back = nullptr;
  int64_t back_length = 0;
  const int r = orlix_pemdecode("CERTIFICATE", pem, pem_length, &back, &back_length);
  orlix_free(pem);
  if (r != 1) return false;
  EXPECT_EQ(std::vector<unsigned char>(back, back + back_length), data);
  orlix_free(back);
  return true;
}

// ---- file and null --------------------------------------------------------------------

// Opening, writing, reopening for reading and copying into memory. A failed
// constructor must close the file it opened. The copy reserves its
// destination first and ignores a failed reservation (it then grows the
// destination as it goes), so the scenario may succeed despite a failure.
ORLIX_OOM_SCENARIO(FileStream, OpenWriteReopenCopy, .absorbs_failures = true) {
  const std::string path = TempPath("file");
  const int fds = OpenDescriptors();
  ORLIX_ErrCtx ctx{};
  Chain file(orlix_stream_new_file(path.c_str(), ORLIX_FILE_WRITE, &ctx));
  if (!file) {
    oom::ExpectOutOfMemory(ctx, kFile);
    EXPECT_EQ(OpenDescriptors(), fds) << "the file was left open";
    std::remove(path.c_str());
    return false;
  }
  const auto data = oom::Pattern(20000, 8);
  EXPECT_EQ(orlix_stream_writen(file.get(), data.data(), 20000, &ctx), 1);
  int32_t mode = ORLIX_FILE_READ;
  EXPECT_EQ(orlix_stream_ctrl(file.get(), ORLIX_CTRL_REOPEN, &mode, &ctx), 1);
  Chain mem(orlix_stream_new_mem(16, &ctx));
  bool ok = false;
  if (!mem) {
    oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Mem");
  } else {
    uint64_t copied = 0;
    // The destination is reserved up front; when that fails the copy grows
    // it piece by piece instead.
    if (orlix_stream_writefromstream(mem.get(), file.get(), &copied, &ctx) == 1) {
      EXPECT_EQ(copied, 20000u);
      EXPECT_EQ(oom::Contents(mem.get()), data);
      ok = true;
    } else {
      oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Mem");
    }
  }
  file.reset();
  mem.reset();
  EXPECT_EQ(OpenDescriptors(), fds);
  std::remove(path.c_str());
  return ok;
}

ORLIX_OOM_SCENARIO(NullStream, New) {
  ORLIX_ErrCtx ctx{};
  Chain s(orlix_stream_new_null(&ctx));
  if (!s) return oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Null"), false;
  uint64_t n = 0;
  EXPECT_EQ(orlix_stream_write(s.get(), "abc", 3, &n, &ctx), 1);
  EXPECT_EQ(n, 3u);
  return true;
}

// ---- digest and HMAC --------------------------------------------------------------------

ORLIX_OOM_SCENARIO(Digest, FilterAndDuplicate) {
  ORLIX_ErrCtx ctx{};
  Chain chain(orlix_stream_new_null(&ctx));
  if (!chain) return oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Null"), false;
  ORLIX_Stream *md = orlix_stream_new_md(&kFnv, &ctx);
  if (md == nullptr) return oom::ExpectOutOfMemory(ctx, kMD), false;
  EXPECT_EQ(orlix_stream_push(md, chain.get()), 1);
  chain.release();
  chain.reset(md);
  EXPECT_EQ(orlix_stream_writen(md, "ab", 2, &ctx), 1);
  Chain dup(orlix_stream_md_dup(md));
  if (!dup) return false;  // records nothing by design
  Chain sink(orlix_stream_new_null(&ctx));
  if (!sink) return oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Null"), false;
  EXPECT_EQ(orlix_stream_push(dup.get(), sink.release()), 1);
  EXPECT_EQ(orlix_stream_writen(md, "c", 1, &ctx), 1);
  EXPECT_EQ(orlix_stream_writen(dup.get(), "d", 1, &ctx), 1);
  char digest[8];
  EXPECT_EQ(orlix_stream_ctrl(md, ORLIX_CTRL_MD_FINAL, digest, &ctx), 1);
  EXPECT_EQ(std::string(digest, 8), Fnv("abc"));
  EXPECT_EQ(orlix_stream_ctrl(dup.get(), ORLIX_CTRL_MD_FINAL, digest, &ctx), 1);
  EXPECT_EQ(std::string(digest, 8), Fnv("abd"));
  return true;
}

// Short and long keys (a long one is hashed through a digest filter over a
// null sink), then finishing, which allocates and hashes again.
static bool HmacScenario(const std::string &key) {
  ORLIX_ErrCtx ctx{};
  Chain chain(orlix_stream_new_null(&ctx));
  if (!chain) return oom::ExpectOutOfMemory(ctx, "ORLIX_Stream_Null"), false;
  ORLIX_Stream *h =
      orlix_stream_new_hmac(&kFnv, key.data(), static_cast<int64_t>(key.size()), &ctx);
  if (h == nullptr) return ExpectOutOfMemoryFromAny(ctx), false;
  EXPECT_EQ(orlix_stream_push(h, chain.get()), 1);
  chain.release();
  chain.reset(h);
  EXPECT_EQ(orlix_stream_writen(h, "message", 7, &ctx), 1);
  char mac[8];
  if (orlix_stream_ctrl(h, ORLIX_CTRL_HMAC_FINAL, mac, &ctx) != 1) {
    ExpectOutOfMemoryFromAny(ctx);
    return false;
  }
  EXPECT_EQ(std::string(mac, 8), FnvHmac(key, "message"));
  return true;
}

ORLIX_OOM_SCENARIO(Hmac, ShortKey) { return HmacScenario("key"); }

ORLIX_OOM_SCENARIO(Hmac, LongKey) { return HmacScenario(std::string(40, 'k')); }

// The HMAC module itself reports running out while building.
ORLIX_OOM_SCENARIO(Hmac, ConstructorEntry) {
  ORLIX_ErrCtx ctx{};
  ORLIX_Stream *h = orlix_stream_new_hmac(&kFnv, "k", 1, &ctx);
  if (h == nullptr) return oom::ExpectOutOfMemory(ctx, kHmac), false;
  orlix_stream_free(h);
  return true;
}
