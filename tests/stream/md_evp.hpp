// ORLIX_MDMethod tables over OpenSSL's EVP digests, for the digest and HMAC
// filters, with OpenSSL's own digests as the oracle.
#pragma once

#include <openssl/evp.h>

#include <cstring>
#include <string>

#include "ORLIX_Stream.h"

namespace orlix_test {

// What the tables saw, and failures the tests can switch on.
struct MdSpy {
  std::string fed;  // every byte given to update, in order
  int updates = 0;
  int finals = 0;
  bool fail_new = false;
  bool fail_update = false;
  bool fail_final = false;
  void reset() { *this = MdSpy{}; }
};
inline MdSpy g_md_spy;

// The hash context. The digest buffer comes first: a digest filter finishes
// by calling final with out == the context and copies the digest from the
// context's first bytes.
struct EvpCtx {
  unsigned char digest[EVP_MAX_MD_SIZE];
  EVP_MD_CTX *md;
};

template <const EVP_MD *(*Md)()>
struct EvpTable {
  static void *md_new() {
    if (g_md_spy.fail_new) return nullptr;
    auto *c = new EvpCtx{};
    c->md = EVP_MD_CTX_new();
    return c;
  }
  static void md_free(void *ctx) {
    auto *c = static_cast<EvpCtx *>(ctx);
    EVP_MD_CTX_free(c->md);
    delete c;
  }
  static uint32_t md_length() { return static_cast<uint32_t>(EVP_MD_get_size(Md())); }
  static uint32_t md_property() { return static_cast<uint32_t>(EVP_MD_get_type(Md())); }
  static void md_init(void *ctx) {
    EVP_DigestInit_ex(static_cast<EvpCtx *>(ctx)->md, Md(), nullptr);
  }
  static int md_update(void *ctx, const void *data, uint64_t length) {
    ++g_md_spy.updates;
    g_md_spy.fed.append(static_cast<const char *>(data), length);
    if (g_md_spy.fail_update) return 0;
    return EVP_DigestUpdate(static_cast<EvpCtx *>(ctx)->md, data, length);
  }
  static int md_final(void *ctx, unsigned char *out) {
    ++g_md_spy.finals;
    if (g_md_spy.fail_final) return 0;
    unsigned char tmp[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    if (EVP_DigestFinal_ex(static_cast<EvpCtx *>(ctx)->md, tmp, &n) != 1) return 0;
    std::memcpy(out, tmp, n);  // out may be the context itself
    return 1;
  }
  static uint32_t md_blocksize() { return static_cast<uint32_t>(EVP_MD_get_block_size(Md())); }
  static void *md_dup(void *ctx) {
    auto *c = new EvpCtx{};
    c->md = EVP_MD_CTX_new();
    EVP_MD_CTX_copy_ex(c->md, static_cast<EvpCtx *>(ctx)->md);
    return c;
  }
  static constexpr ORLIX_MDMethod kMethod = {
      md_new, md_free, md_length, md_property, md_init, md_update, md_final, md_blocksize, md_dup};
};

inline const ORLIX_MDMethod &Sha1() { return EvpTable<EVP_sha1>::kMethod; }
inline const ORLIX_MDMethod &Sha256() { return EvpTable<EVP_sha256>::kMethod; }

// OpenSSL's own digest of `data`, the oracle for the filters.
inline std::string EvpDigest(const EVP_MD *md, const std::string &data) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  EVP_Digest(data.data(), data.size(), out, &n, md, nullptr);
  return std::string(reinterpret_cast<char *>(out), n);
}

inline std::string Hex(const std::string &bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out += kDigits[c >> 4];
    out += kDigits[c & 15];
  }
  return out;
}

}  // namespace orlix_test
