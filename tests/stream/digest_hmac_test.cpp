// Digest and HMAC filters with ORLIX_MDMethod tables over OpenSSL's SHA-1
// and SHA-256: the RFC 2202 and RFC 4231 vectors, OpenSSL's HMAC and
// EVP_Digest as oracles, pass-through counts, key blocks, duplication and
// the failure entries of every path.
#include <openssl/hmac.h>

#include "md_evp.hpp"
#include "stream_test_util.hpp"

using namespace orlix_test;

namespace {

class DigestTest : public testing::Test {
 protected:
  void SetUp() override { g_md_spy.reset(); }
  void TearDown() override { g_md_spy.reset(); }
};
using Digest = DigestTest;
using Hmac = DigestTest;

// The digest (ctrl 4) or HMAC (ctrl 12) of a filter, as bytes.
std::string Finish(ORLIX_Stream *s, int64_t code = ORLIX_CTRL_MD_FINAL) {
  uint64_t n = 0;
  EXPECT_EQ(orlix_stream_ctrl(s, ORLIX_CTRL_MD_LENGTH, &n, nullptr), 1);
  std::string out(n, '\0');
  EXPECT_EQ(orlix_stream_ctrl(s, code, out.data(), nullptr), 1);
  return out;
}

std::string OpenSslHmac(const EVP_MD *md, const std::string &key, const std::string &data) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  HMAC(md, key.data(), static_cast<int>(key.size()),
       reinterpret_cast<const unsigned char *>(data.data()), data.size(), out, &n);
  return std::string(reinterpret_cast<char *>(out), n);
}

// HMAC of data through a filter over a null sink, written in pieces.
std::string HmacOf(const ORLIX_MDMethod &m, const std::string &key, const std::string &data,
                   size_t piece = 7) {
  Chain chain =
      Over(orlix_stream_new_hmac(&m, key.data(), static_cast<int64_t>(key.size()), nullptr),
           orlix_stream_new_null(nullptr));
  for (size_t at = 0; at < data.size(); at += piece)
    EXPECT_EQ(orlix_stream_writen(chain.get(), data.data() + at,
                                  static_cast<int64_t>(std::min(piece, data.size() - at)), nullptr),
              1);
  return Finish(chain.get(), ORLIX_CTRL_HMAC_FINAL);
}

// The table with one slot emptied; slots counted from 1 in table order.
ORLIX_MDMethod Without(int slot) {
  ORLIX_MDMethod m = Sha256();
  void **slots = reinterpret_cast<void **>(&m);
  static_assert(sizeof(ORLIX_MDMethod) == 9 * sizeof(void *));
  slots[slot - 1] = nullptr;
  return m;
}

TEST_F(Digest, ConstructorChecksTheTable) {
  Ctx ctx;
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_md(nullptr, &ctx), ORLIX_ERR_NULL_POINT, kMD);
  for (int slot : {1, 2, 3, 4, 5, 7, 8}) {
    SCOPED_TRACE(slot);
    const ORLIX_MDMethod m = Without(slot);
    EXPECT_FAIL_WITH(ctx, orlix_stream_new_md(&m, &ctx), ORLIX_ERR_STREAM_BAD_MD, kMD);
  }
  // update and dup are not required by the constructor; a filter without
  // update cannot hash what is written.
  for (int slot : {6, 9}) {
    const ORLIX_MDMethod m = Without(slot);
    ORLIX_Stream *s = orlix_stream_new_md(&m, &ctx);
    ASSERT_NE(s, nullptr) << slot;
    EXPECT_EQ(orlix_stream_gettype(s), ORLIX_STREAM_TYPE_MD);
    Chain chain = Over(s, orlix_stream_new_mem(0, nullptr));
    if (slot == 6)
      EXPECT_FAIL_WITH(ctx, orlix_stream_write(s, "abc", 3, nullptr, &ctx),
                       ORLIX_ERR_STREAM_MD_UPDATE, kMD);
  }
  g_md_spy.fail_new = true;
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_md(&Sha256(), &ctx), ORLIX_ERR_OUT_OF_MEMORY, kMD);
  g_md_spy.fail_new = false;

  // The table is copied: the caller's may go away.
  ORLIX_MDMethod *table = new ORLIX_MDMethod(Sha1());
  Chain chain = Over(orlix_stream_new_md(table, nullptr), orlix_stream_new_null(nullptr));
  std::memset(static_cast<void *>(table), 0, sizeof *table);
  delete table;
  ASSERT_EQ(orlix_stream_writen(chain.get(), "abc", 3, nullptr), 1);
  EXPECT_EQ(Finish(chain.get()), EvpDigest(EVP_sha1(), "abc"));
}

TEST_F(Digest, PassThroughWritesHashWhatNextTook) {
  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  Chain chain = Over(orlix_stream_new_md(&Sha256(), nullptr), mem);
  uint64_t n = 0;
  ASSERT_EQ(orlix_stream_write(chain.get(), "ab", 2, &n, nullptr), 1);
  ASSERT_EQ(orlix_stream_write(chain.get(), "c", 1, &n, nullptr), 1);
  EXPECT_EQ(MemContents(mem), "abc");
  EXPECT_EQ(Finish(chain.get()), EvpDigest(EVP_sha256(), "abc"));
  EXPECT_EQ(Hex(Finish(
                Over(orlix_stream_new_md(&Sha1(), nullptr), orlix_stream_new_null(nullptr)).get())),
            "da39a3ee5e6b4b0d3255bfef95601890afd80709");  // SHA-1 of nothing

  // A sink taking 5 bytes a call: one write hashes those 5 only; writen
  // gets everything through, 5 at a time.
  PieceSink sink;
  sink.piece = 5;
  Chain short_chain = Over(orlix_stream_new_md(&Sha1(), nullptr), sink.make());
  const std::string text = "0123456789ab";
  g_md_spy.reset();
  ASSERT_EQ(orlix_stream_write(short_chain.get(), text.data(), 12, &n, nullptr), 1);
  EXPECT_EQ(n, 5u);
  EXPECT_EQ(g_md_spy.fed, "01234");
  ASSERT_EQ(orlix_stream_writen(short_chain.get(), text.data() + 5, 7, nullptr), 1);
  EXPECT_EQ(g_md_spy.fed, text);
  EXPECT_EQ(sink.data, text);
  EXPECT_EQ(sink.writes, (std::vector<int64_t>{12, 7, 2}));
  EXPECT_EQ(Finish(short_chain.get()), EvpDigest(EVP_sha1(), text));

  // A failing sink: its result and entry, nothing hashed. A failing update
  // after the sink took the bytes: "md update fail", the bytes stay written.
  Ctx ctx;
  PieceSink bad;
  bad.limit = 0;
  Chain bad_chain = Over(orlix_stream_new_md(&Sha1(), nullptr), bad.make());
  g_md_spy.reset();
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(bad_chain.get(), "x", 1, &n, &ctx),
                   ORLIX_ERR_STREAM_WRITE_FAIL, kTestKind);
  EXPECT_EQ(g_md_spy.updates, 0);
  g_md_spy.fail_update = true;
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(chain.get(), "def", 3, &n, &ctx),
                   ORLIX_ERR_STREAM_MD_UPDATE, kMD);
  EXPECT_EQ(MemContents(mem), "abcdef");
}

TEST_F(Digest, ReadsAreNotHashed) {
  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  ASSERT_EQ(orlix_stream_writen(mem, "hello", 5, nullptr), 1);
  Chain chain = Over(orlix_stream_new_md(&Sha256(), nullptr), mem);
  ASSERT_EQ(orlix_stream_writen(chain.get(), "abc", 3, nullptr), 1);
  ASSERT_EQ(orlix_stream_ctrl(chain.get(), ORLIX_CTRL_RESET, nullptr, nullptr), 1);  // to the sink
  char buf[16];
  uint64_t n = 0;
  ASSERT_EQ(orlix_stream_read(chain.get(), buf, 16, &n, nullptr), 1);
  EXPECT_EQ(std::string(buf, n), "helloabc");
  EXPECT_EQ(Finish(chain.get()), EvpDigest(EVP_sha256(), "abc"));
}

TEST_F(Digest, ControlCodesAndFailures) {
  Ctx ctx;
  ORLIX_Stream *md = orlix_stream_new_md(&Sha1(), nullptr);
  uint64_t v = 0;
  uint32_t prop = 0;
  char buf[32];
  EXPECT_FAIL_WITH(ctx, md->method->write(nullptr, "a", 1, &v, &ctx), ORLIX_ERR_NULL_POINT, kMD);
  EXPECT_FAIL_WITH(ctx, md->method->read(nullptr, buf, 1, &v, &ctx), ORLIX_ERR_NULL_POINT, kMD);
  EXPECT_FAIL_WITH(ctx, md->method->ctrl(nullptr, 3, &v, &ctx), ORLIX_ERR_NULL_POINT, kMD);
  void *data = md->data;
  md->data = nullptr;
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(md, "a", 1, &v, &ctx), ORLIX_ERR_STREAM_BAD, kMD);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(md, buf, 1, &v, &ctx), ORLIX_ERR_STREAM_BAD, kMD);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(md, 3, &v, &ctx), ORLIX_ERR_STREAM_BAD, kMD);
  EXPECT_EQ(orlix_stream_md_dup(md), nullptr);
  md->data = data;
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(md, "a", -1, &v, &ctx), ORLIX_ERR_BAD_LENGTH, kMD);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(md, buf, -1, &v, &ctx), ORLIX_ERR_BAD_LENGTH, kMD);
  v = 9;
  EXPECT_EQ(orlix_stream_write(md, "a", 0, &v, &ctx), 1);
  EXPECT_EQ(v, 0u);
  v = 9;
  EXPECT_EQ(orlix_stream_read(md, buf, 0, &v, &ctx), 1);
  EXPECT_EQ(v, 0u);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(md, "a", 1, &v, &ctx), ORLIX_ERR_STREAM_NO_SINK, kMD);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(md, buf, 1, &v, &ctx), ORLIX_ERR_STREAM_NO_SINK, kMD);
  for (int64_t code : {3, 4, 5, 1, 6})
    EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(md, code, buf, &ctx), ORLIX_ERR_STREAM_NO_SINK, kMD);

  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  Chain chain = Over(md, mem);
  EXPECT_EQ(orlix_stream_ctrl(md, ORLIX_CTRL_MD_LENGTH, &v, &ctx), 1);
  EXPECT_EQ(v, 20u);
  EXPECT_EQ(orlix_stream_ctrl(md, ORLIX_CTRL_MD_PROPERTY, &prop, &ctx), 1);
  EXPECT_EQ(prop, static_cast<uint32_t>(NID_sha1));
  for (int64_t code : {3, 4, 5})
    EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(md, code, nullptr, &ctx), ORLIX_ERR_NULL_POINT, kMD);
  // Every other code goes to the sink, 12 (the HMAC's) included.
  ASSERT_EQ(orlix_stream_writen(md, "abc", 3, nullptr), 1);
  EXPECT_EQ(orlix_stream_ctrl(md, ORLIX_CTRL_GET_POS, &v, &ctx), 1);
  EXPECT_EQ(v, 3u);
  EXPECT_EQ(orlix_stream_ctrl(md, ORLIX_CTRL_EOF, nullptr, &ctx), 1);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(md, ORLIX_CTRL_HMAC_FINAL, buf, &ctx),
                   ORLIX_ERR_STREAM_BAD_CTRL, kMem);
  g_md_spy.fail_final = true;
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(md, ORLIX_CTRL_MD_FINAL, buf, &ctx),
                   ORLIX_ERR_STREAM_MD_FINAL, kMD);
  g_md_spy.fail_final = false;
  EXPECT_EQ(orlix_stream_ctrl(md, ORLIX_CTRL_MD_FINAL, buf, &ctx), 1);
  EXPECT_EQ(std::string(buf, 20), EvpDigest(EVP_sha1(), "abc"));
}

TEST_F(Digest, DuplicateCarriesTheState) {
  Chain a = Over(orlix_stream_new_md(&Sha256(), nullptr), orlix_stream_new_null(nullptr));
  ASSERT_EQ(orlix_stream_writen(a.get(), "ab", 2, nullptr), 1);
  ORLIX_Stream *dup = orlix_stream_md_dup(a.get());
  ASSERT_NE(dup, nullptr);
  EXPECT_EQ(orlix_stream_gettype(dup), ORLIX_STREAM_TYPE_MD);
  EXPECT_EQ(dup->prev, nullptr);
  EXPECT_EQ(dup->next, nullptr);
  Chain b = Over(dup, orlix_stream_new_null(nullptr));
  ASSERT_EQ(orlix_stream_writen(a.get(), "c", 1, nullptr), 1);
  ASSERT_EQ(orlix_stream_writen(b.get(), "x", 1, nullptr), 1);
  EXPECT_EQ(Finish(a.get()), EvpDigest(EVP_sha256(), "abc"));
  EXPECT_EQ(Finish(b.get()), EvpDigest(EVP_sha256(), "abx"));

  EXPECT_EQ(orlix_stream_md_dup(nullptr), nullptr);
  Chain mem(orlix_stream_new_mem(0, nullptr));
  EXPECT_EQ(orlix_stream_md_dup(mem.get()), nullptr);
  const std::string key = "k";
  Chain hmac(orlix_stream_new_hmac(&Sha256(), key.data(), 1, nullptr));
  EXPECT_EQ(orlix_stream_md_dup(hmac.get()), nullptr);
  const ORLIX_MDMethod no_dup = Without(9);
  Chain plain(orlix_stream_new_md(&no_dup, nullptr));
  EXPECT_EQ(orlix_stream_md_dup(plain.get()), nullptr);
}

TEST_F(Digest, RandomDataInRandomPiecesMatchesEvp) {
  std::mt19937 rng(31);
  for (int round = 0; round < 20; ++round) {
    const std::string data = RandomBytes(rng, rng() % 20000);
    const bool sha1 = round % 2;
    Chain chain = Over(orlix_stream_new_md(sha1 ? &Sha1() : &Sha256(), nullptr),
                       orlix_stream_new_null(nullptr));
    for (size_t at = 0; at < data.size();) {
      const size_t n = std::min<size_t>(1 + rng() % 3000, data.size() - at);
      ASSERT_EQ(
          orlix_stream_writen(chain.get(), data.data() + at, static_cast<int64_t>(n), nullptr), 1);
      at += n;
    }
    EXPECT_EQ(Finish(chain.get()), EvpDigest(sha1 ? EVP_sha1() : EVP_sha256(), data));
  }
}

TEST_F(Hmac, Rfc2202AndRfc4231Vectors) {
  std::string key25;
  for (char c = 1; c <= 25; ++c) key25 += c;
  const struct {
    std::string key, data;
    const char *sha1, *sha256;
  } vectors[] = {
      {std::string(20, '\x0b'), "Hi There", "b617318655057264e28bc0b6fb378c8ef146be00",
       "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
      {"Jefe", "what do ya want for nothing?", "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79",
       "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
      {std::string(20, '\xaa'), std::string(50, '\xdd'), "125d7342b9ac11cd91a39af48aa17b4f63f175d3",
       "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
      {key25, std::string(50, '\xcd'), "4c9007f4026250c6bc8414f9bf50c86c2d7235da",
       "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"},
      {std::string(20, '\x0c'), "Test With Truncation", "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04",
       "a3b6167473100ee06e0c796c2955552b"},  // RFC 4231 gives 128 bits
  };
  for (const auto &v : vectors) {
    EXPECT_EQ(Hex(HmacOf(Sha1(), v.key, v.data)), v.sha1);
    EXPECT_EQ(Hex(HmacOf(Sha256(), v.key, v.data)).substr(0, std::strlen(v.sha256)), v.sha256);
  }
  // Keys longer than the block: 80 bytes (RFC 2202), 131 bytes (RFC 4231).
  const std::string hash_first = "Test Using Larger Than Block-Size Key - Hash Key First";
  EXPECT_EQ(Hex(HmacOf(Sha1(), std::string(80, '\xaa'), hash_first)),
            "aa4ae5e15272d00e95705637ce8a3b55ed402112");
  EXPECT_EQ(
      Hex(HmacOf(Sha1(), std::string(80, '\xaa'),
                 "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data")),
      "e8e99d0f45237d786d6bbaa7965c7808bbff1a91");
  EXPECT_EQ(Hex(HmacOf(Sha256(), std::string(131, '\xaa'), hash_first)),
            "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
  EXPECT_EQ(Hex(HmacOf(Sha256(), std::string(131, '\xaa'),
                       "This is a test using a larger than block-size key and a larger than "
                       "block-size data. The key needs to be hashed before being used by the "
                       "HMAC algorithm.",
                       1000)),
            "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2");
}

// Keys up to the block size are used as they are, longer ones by their
// digest: checked against OpenSSL's HMAC, and by the key's digest giving
// the same HMAC as the long key (but not as a block-size key).
TEST_F(Hmac, KeyBlocksForShortBlockSizeAndLongKeys) {
  std::mt19937 rng(32);
  for (const EVP_MD *md : {EVP_sha1(), EVP_sha256()}) {
    const ORLIX_MDMethod &m = md == EVP_sha1() ? Sha1() : Sha256();
    for (size_t key_length : {1, 2, 20, 32, 63, 64, 65, 128, 200}) {
      const std::string key = RandomBytes(rng, key_length);
      const std::string data = RandomBytes(rng, rng() % 300);
      const std::string mac = HmacOf(m, key, data, 1 + rng() % 70);
      EXPECT_EQ(mac, OpenSslHmac(md, key, data)) << key_length;
      const std::string by_digest = HmacOf(m, EvpDigest(md, key), data);
      EXPECT_EQ(mac == by_digest, key_length > 64) << key_length;
    }
  }
}

TEST_F(Hmac, ConstructorChecks) {
  Ctx ctx;
  const std::string key = "key";
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_hmac(nullptr, key.data(), 3, &ctx), ORLIX_ERR_NULL_POINT,
                   kHmac);
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_hmac(&Sha1(), nullptr, 3, &ctx), ORLIX_ERR_NULL_POINT,
                   kHmac);
  for (int slot : {1, 2, 3, 4, 5, 7, 8}) {
    SCOPED_TRACE(slot);
    const ORLIX_MDMethod m = Without(slot);
    EXPECT_FAIL_WITH(ctx, orlix_stream_new_hmac(&m, key.data(), 3, &ctx), ORLIX_ERR_STREAM_BAD_MD,
                     kHmac);
  }
  for (int64_t bad : {0, -1})
    EXPECT_FAIL_WITH(ctx, orlix_stream_new_hmac(&Sha1(), key.data(), bad, &ctx),
                     ORLIX_ERR_BAD_LENGTH, kHmac);
  // The inner pad is hashed at once: without update, or with a failing
  // one, construction fails with "md update fail".
  const ORLIX_MDMethod no_update = Without(6);
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_hmac(&no_update, key.data(), 3, &ctx),
                   ORLIX_ERR_STREAM_MD_UPDATE, kHmac);
  g_md_spy.fail_update = true;
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_hmac(&Sha1(), key.data(), 3, &ctx),
                   ORLIX_ERR_STREAM_MD_UPDATE, kHmac);
  g_md_spy.fail_update = false;
  g_md_spy.fail_new = true;
  EXPECT_FAIL_WITH(ctx, orlix_stream_new_hmac(&Sha1(), key.data(), 3, &ctx),
                   ORLIX_ERR_OUT_OF_MEMORY, kHmac);
  g_md_spy.fail_new = false;
  // A long key is hashed through a digest filter: its failure is recorded
  // by that filter.
  const std::string long_key(100, 'k');
  g_md_spy.fail_final = true;
  ctx.clear();
  EXPECT_EQ(orlix_stream_new_hmac(&Sha1(), long_key.data(), 100, &ctx), nullptr);
  EXPECT_TRUE(OneErr(ctx, ORLIX_ERR_STREAM_MD_FINAL, kMD));
  g_md_spy.fail_final = false;
  ORLIX_Stream *s = orlix_stream_new_hmac(&Sha1(), long_key.data(), 100, &ctx);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(orlix_stream_gettype(s), ORLIX_STREAM_TYPE_HMAC);
  orlix_stream_free(s);
}

TEST_F(Hmac, PassThroughControlCodesAndFailures) {
  Ctx ctx;
  const std::string key = "secret";
  ORLIX_Stream *h = orlix_stream_new_hmac(&Sha256(), key.data(), 6, nullptr);
  char buf[64];
  uint64_t v = 0;
  uint32_t prop = 0;
  void *data = h->data;
  h->data = nullptr;
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(h, "a", 1, &v, &ctx), ORLIX_ERR_STREAM_BAD, kHmac);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(h, buf, 1, &v, &ctx), ORLIX_ERR_STREAM_BAD, kHmac);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(h, 12, buf, &ctx), ORLIX_ERR_STREAM_BAD, kHmac);
  h->data = data;
  EXPECT_FAIL_WITH(ctx, h->method->write(nullptr, "a", 1, &v, &ctx), ORLIX_ERR_NULL_POINT, kHmac);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(h, "a", -1, &v, &ctx), ORLIX_ERR_BAD_LENGTH, kHmac);
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(h, "a", 1, &v, &ctx), ORLIX_ERR_STREAM_NO_SINK, kHmac);
  EXPECT_FAIL_WITH(ctx, orlix_stream_read(h, buf, 1, &v, &ctx), ORLIX_ERR_STREAM_NO_SINK, kHmac);
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(h, 12, buf, &ctx), ORLIX_ERR_STREAM_NO_SINK, kHmac);

  PieceSink sink;
  sink.piece = 4;
  Chain chain = Over(h, sink.make());
  EXPECT_EQ(orlix_stream_ctrl(h, ORLIX_CTRL_MD_LENGTH, &v, &ctx), 1);
  EXPECT_EQ(v, 32u);
  EXPECT_EQ(orlix_stream_ctrl(h, ORLIX_CTRL_MD_PROPERTY, &prop, &ctx), 1);
  EXPECT_EQ(prop, static_cast<uint32_t>(NID_sha256));
  for (int64_t code : {3, 5, 12})
    EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(h, code, nullptr, &ctx), ORLIX_ERR_NULL_POINT, kHmac);
  // Code 4 is the digest filter's: the HMAC passes it on like any other.
  sink.ctrls.clear();
  EXPECT_EQ(orlix_stream_ctrl(h, ORLIX_CTRL_MD_FINAL, buf, &ctx), 1);
  EXPECT_EQ(orlix_stream_ctrl(h, ORLIX_CTRL_FLUSH, nullptr, &ctx), 1);
  EXPECT_EQ(sink.ctrls, (std::vector<int64_t>{ORLIX_CTRL_MD_FINAL, ORLIX_CTRL_FLUSH}));

  // Only what the sink took is authenticated; a failing update is reported.
  ASSERT_EQ(orlix_stream_write(h, "abcdefgh", 8, &v, &ctx), 1);
  EXPECT_EQ(v, 4u);
  g_md_spy.fail_update = true;
  EXPECT_FAIL_WITH(ctx, orlix_stream_write(h, "xyz", 3, &v, &ctx), ORLIX_ERR_STREAM_MD_UPDATE,
                   kHmac);
  g_md_spy.fail_update = false;
  EXPECT_EQ(sink.data, "abcdxyz");
  g_md_spy.fail_final = true;
  EXPECT_FAIL_WITH(ctx, orlix_stream_ctrl(h, ORLIX_CTRL_HMAC_FINAL, buf, &ctx),
                   ORLIX_ERR_STREAM_MD_FINAL, kHmac);
  g_md_spy.fail_final = false;

  // A fresh filter: reads pass through unhashed.
  ORLIX_Stream *mem = orlix_stream_new_mem(0, nullptr);
  ASSERT_EQ(orlix_stream_writen(mem, "stored", 6, nullptr), 1);
  ASSERT_EQ(orlix_stream_ctrl(mem, ORLIX_CTRL_RESET, nullptr, nullptr), 1);
  Chain reader = Over(orlix_stream_new_hmac(&Sha256(), key.data(), 6, nullptr), mem);
  ASSERT_EQ(orlix_stream_read(reader.get(), buf, 64, &v, &ctx), 1);
  EXPECT_EQ(std::string(buf, v), "stored");
  ASSERT_EQ(orlix_stream_writen(reader.get(), "abcd", 4, &ctx), 1);
  EXPECT_EQ(Finish(reader.get(), ORLIX_CTRL_HMAC_FINAL), OpenSslHmac(EVP_sha256(), key, "abcd"));
}

}  // namespace
