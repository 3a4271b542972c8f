// HMAC filters: like digest filters, but keyed, computing
// H((K ^ opad) || H((K ^ ipad) || data)) with a caller-supplied hash.
#include <cstring>

#include "core/error.hpp"
#include "core/memory.hpp"
#include "stream/ORLIX_Stream_MD.hpp"

namespace {

constexpr const char kModule[] = "ORLIX_Stream_HMAC";
constexpr unsigned char kInnerPad = 0x36;
constexpr unsigned char kOuterPad = 0x5C;

struct Hmac {
  orlix::md::Digest digest;  // hashes the inner pad and then the data
  unsigned char *key;        // block-size bytes
};

int hmac_read(ORLIX_Stream *stream, void *buffer, int64_t length, uint64_t *count,
              ORLIX_ErrCtx *ctx) {
  return orlix::md::read_through(stream, buffer, length, count, ctx, kModule, __LINE__);
}

int hmac_write(ORLIX_Stream *stream, const void *buffer, int64_t length, uint64_t *count,
               ORLIX_ErrCtx *ctx) {
  return orlix::md::write_through(stream, buffer, length, count, ctx, kModule, __LINE__);
}

// The outer hash over (key ^ opad) followed by the inner digest.
int finish(Hmac *h, void *argument, ORLIX_ErrCtx *ctx) {
  if (argument == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  const ORLIX_MDMethod &m = h->digest.method;
  const int64_t block = m.md_blocksize();
  const int64_t length = m.md_length();
  orlix::Owned<unsigned char> outer(orlix::alloc_bytes(block + length, kModule, __LINE__));
  if (!outer) return ORLIX_FAIL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  for (int64_t i = 0; i < block; ++i) outer.get()[i] = h->key[i] ^ kOuterPad;
  if (m.md_final(h->digest.context, outer.get() + block) != 1)
    return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_MD_FINAL);
  return orlix::md::hash(&m, outer.get(), block + length, static_cast<unsigned char *>(argument),
                         ctx) >= 0
             ? 1
             : 0;
}

int hmac_ctrl(ORLIX_Stream *stream, int64_t code, void *argument, ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  auto *h = static_cast<Hmac *>(stream->data);
  if (h == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD);
  if (stream->next == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_NO_SINK);
  if (code == ORLIX_CTRL_HMAC_FINAL) return finish(h, argument, ctx);
  if (const int r = orlix::md::common_ctrl(&h->digest, code, argument, ctx, kModule); r >= 0)
    return r;
  return orlix_stream_ctrl(stream->next, code, argument, ctx);
}

void hmac_destroy(ORLIX_Stream *stream) {
  if (stream == nullptr || stream->type != ORLIX_STREAM_TYPE_HMAC || stream->data == nullptr)
    return;
  auto *h = static_cast<Hmac *>(stream->data);
  orlix::md::release_digest(&h->digest);
  orlix_free(h->key);
  orlix_free(h);
  stream->data = nullptr;
}

constexpr ORLIX_StreamMethod hmac_method = {hmac_read, hmac_write, hmac_destroy, hmac_ctrl};

// Releases a half-built record.
struct HmacDeleter {
  void operator()(Hmac *h) const noexcept {
    orlix::md::release_digest(&h->digest);
    orlix_free(h->key);
    orlix_free(h);
  }
};

// The key block: the key itself when it fits in a block, else its digest;
// zero-filled to the block size.
bool make_key_block(Hmac *h, const unsigned char *key, int64_t key_length, ORLIX_ErrCtx *ctx) {
  const ORLIX_MDMethod &m = h->digest.method;
  const int64_t block = m.md_blocksize();
  h->key = orlix::alloc_bytes(block, kModule, __LINE__);
  if (h->key == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  std::memset(h->key, 0, static_cast<size_t>(block));
  if (key_length <= block) {
    std::memcpy(h->key, key, static_cast<size_t>(key_length));
    return true;
  }
  const int64_t length = m.md_length();
  orlix::Owned<unsigned char> digest(orlix::alloc_bytes(length, kModule, __LINE__));
  if (!digest) return ORLIX_FAIL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  if (orlix::md::hash(&m, key, key_length, digest.get(), ctx) < 0) return false;
  std::memcpy(h->key, digest.get(), static_cast<size_t>(length < block ? length : block));
  return true;
}

}  // namespace

extern "C" ORLIX_Stream *orlix_stream_new_hmac(const ORLIX_MDMethod *method, const void *key,
                                               int64_t key_length, ORLIX_ErrCtx *ctx) {
  if (method == nullptr || key == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_NULL_POINT);
  if (!orlix::md::method_complete(*method)) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_STREAM_BAD_MD);
  if (key_length < 1) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_BAD_LENGTH);
  auto *raw = orlix::alloc_record<Hmac>(kModule, __LINE__);
  if (raw == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  raw->key = nullptr;
  if (!orlix::md::init_digest(&raw->digest, *method, kModule, ctx)) {
    orlix_free(raw);
    return nullptr;
  }
  std::unique_ptr<Hmac, HmacDeleter> h(raw);
  if (!make_key_block(h.get(), static_cast<const unsigned char *>(key), key_length, ctx))
    return nullptr;

  // The inner pad starts the inner hash.
  const int64_t block = method->md_blocksize();
  orlix::Owned<unsigned char> pad(orlix::alloc_bytes(block, kModule, __LINE__));
  if (!pad) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  for (int64_t i = 0; i < block; ++i) pad.get()[i] = h->key[i] ^ kInnerPad;
  if (method->md_update == nullptr ||
      method->md_update(h->digest.context, pad.get(), static_cast<uint64_t>(block)) != 1)
    return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_STREAM_MD_UPDATE);

  auto *stream = orlix::alloc_record<ORLIX_Stream>(kModule, __LINE__);
  if (stream == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  *stream = ORLIX_Stream{&hmac_method, ORLIX_STREAM_TYPE_HMAC, h.release(), nullptr, nullptr};
  return stream;
}
