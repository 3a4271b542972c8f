// orlix_stream_writefromstream between every pair of stream kinds: memory
// (shared, queue, read-only), file, and base64, hex and digest filters over
// memory as sources; memory, file, the same filters and the null sink as
// destinations.
#include "md_evp.hpp"
#include "stream_test_util.hpp"

using namespace orlix_test;

namespace {

std::string HexText(const std::string &data) {
  char *text = nullptr;
  int64_t n = 0;
  if (data.empty()) return "";
  EXPECT_EQ(orlix_hexencode(0, data.data(), static_cast<int64_t>(data.size()), &text, &n), 1);
  std::string out(text, static_cast<size_t>(n));
  orlix_free(text);
  return out;
}

std::string Base64Text(const std::string &data) {
  return data.empty() ? "" : EncodeOneShot(ORLIX_BASE64_EOL_CRLF, data);
}

// A source kind: builds a chain whose top reads as `data`.
struct SourceKind {
  const char *name;
  Chain (*make)(const std::string &data, TempFile *file);
};

Chain MemSource(const std::string &data, bool queue) {
  ORLIX_Stream *s =
      queue ? orlix_stream_new_rwspecmem(16, nullptr) : orlix_stream_new_mem(16, nullptr);
  EXPECT_EQ(orlix_stream_writen(s, data.data(), static_cast<int64_t>(data.size()), nullptr), 1);
  return Chain(s);
}

const SourceKind kSources[] = {
    {"memory", [](const std::string &d, TempFile *) { return MemSource(d, false); }},
    {"queue", [](const std::string &d, TempFile *) { return MemSource(d, true); }},
    {"read-only", [](const std::string &d, TempFile *) { return Chain(RoMem(d)); }},
    {"file",
     [](const std::string &d, TempFile *f) {
       std::ofstream(f->path, std::ios::binary) << d;
       return Chain(orlix_stream_new_file(f->path.c_str(), ORLIX_FILE_READ, nullptr));
     }},
    {"base64 over memory",
     [](const std::string &d, TempFile *) {
       return Over(orlix_stream_new_base64(2, 64, 2, nullptr), RoMem(Base64Text(d)));
     }},
    {"hex over memory",
     [](const std::string &d, TempFile *) {
       return Over(orlix_stream_new_hex(0, nullptr), RoMem(HexText(d)));
     }},
    {"digest over memory",
     [](const std::string &d, TempFile *) {
       return Over(orlix_stream_new_md(&Sha256(), nullptr), RoMem(d));
     }},
};

// A destination kind: builds a chain, and after the copy returns what it
// shows of the bytes it was given (decoded back where it encodes).
struct DestKind {
  const char *name;
  Chain (*make)(TempFile *file);
  std::string (*result)(ORLIX_Stream *top, TempFile *file, const std::string &expected);
};

const DestKind kDests[] = {
    {"memory", [](TempFile *) { return Chain(orlix_stream_new_mem(0, nullptr)); },
     [](ORLIX_Stream *top, TempFile *, const std::string &) { return MemContents(top); }},
    {"file",
     [](TempFile *f) {
       return Chain(orlix_stream_new_file(f->path.c_str(), ORLIX_FILE_WRITE, nullptr));
     },
     [](ORLIX_Stream *top, TempFile *f, const std::string &) {
       EXPECT_EQ(orlix_stream_ctrl(top, ORLIX_CTRL_FLUSH, nullptr, nullptr), 1);
       return f->read();
     }},
    {"base64 over memory",
     [](TempFile *) {
       return Over(orlix_stream_new_base64(2, 64, 2, nullptr), orlix_stream_new_mem(0, nullptr));
     },
     [](ORLIX_Stream *top, TempFile *, const std::string &expected) {
       EXPECT_EQ(orlix_stream_ctrl(top, ORLIX_CTRL_FLUSH, nullptr, nullptr), 1);
       const std::string text = MemContents(orlix_stream_next(top));
       EXPECT_EQ(text, Base64Text(expected));
       return text.empty() ? "" : DecodeOneShot(2, text).bytes;
     }},
    {"hex over memory",
     [](TempFile *) {
       return Over(orlix_stream_new_hex(1, nullptr), orlix_stream_new_mem(0, nullptr));
     },
     [](ORLIX_Stream *top, TempFile *, const std::string &) {
       const std::string text = MemContents(orlix_stream_next(top));
       EXPECT_EQ(orlix_stream_ctrl(top, ORLIX_CTRL_RESET, nullptr, nullptr), 1);
       std::string back(text.size() / 2, '\0');
       EXPECT_EQ(orlix_stream_readn(top, back.data(), static_cast<int64_t>(back.size()), nullptr),
                 1);
       return back;
     }},
    {"digest over memory",
     [](TempFile *) {
       return Over(orlix_stream_new_md(&Sha1(), nullptr), orlix_stream_new_mem(0, nullptr));
     },
     [](ORLIX_Stream *top, TempFile *, const std::string &expected) {
       std::string digest(20, '\0');
       EXPECT_EQ(orlix_stream_ctrl(top, ORLIX_CTRL_MD_FINAL, digest.data(), nullptr), 1);
       EXPECT_EQ(digest, EvpDigest(EVP_sha1(), expected));
       return MemContents(orlix_stream_next(top));
     }},
    {"digest over null",
     [](TempFile *) {
       return Over(orlix_stream_new_md(&Sha256(), nullptr), orlix_stream_new_null(nullptr));
     },
     [](ORLIX_Stream *top, TempFile *, const std::string &expected) {
       std::string digest(32, '\0');
       EXPECT_EQ(orlix_stream_ctrl(top, ORLIX_CTRL_MD_FINAL, digest.data(), nullptr), 1);
       return digest == EvpDigest(EVP_sha256(), expected) ? expected : "<wrong digest>";
     }},
    {"null", [](TempFile *) { return Chain(orlix_stream_new_null(nullptr)); },
     [](ORLIX_Stream *, TempFile *, const std::string &expected) { return expected; }},
};

TEST(FileAndFilterCopy, EveryPairOfKinds) {
  std::mt19937 rng(41);
  for (size_t size : {0, 1, 8192, 20000}) {
    const std::string data = RandomBytes(rng, size);
    for (const SourceKind &src : kSources)
      for (const DestKind &dst : kDests) {
        SCOPED_TRACE(testing::Message() << src.name << " -> " << dst.name << ", " << size);
        TempFile src_file, dst_file;
        Chain from = src.make(data, &src_file);
        Chain to = dst.make(&dst_file);
        ASSERT_TRUE(from && to);
        Ctx ctx;
        uint64_t copied = 99;
        ASSERT_EQ(orlix_stream_writefromstream(to.get(), from.get(), &copied, &ctx), 1)
            << (ctx.count() ? ctx.last().description : "");
        EXPECT_EQ(copied, size);
        EXPECT_EQ(dst.result(to.get(), &dst_file, data), data);
        // Reading through a digest source hashes nothing.
        if (orlix_stream_gettype(from.get()) == ORLIX_STREAM_TYPE_MD) {
          std::string digest(32, '\0');
          EXPECT_EQ(orlix_stream_ctrl(from.get(), ORLIX_CTRL_MD_FINAL, digest.data(), nullptr), 1);
          EXPECT_EQ(digest, EvpDigest(EVP_sha256(), ""));
        }
      }
  }
}

// A file source ends with a failing read, which the end-of-file answer turns
// into success; reads come in pieces of at most 8192 bytes.
TEST(FileAndFilterCopy, FileSourceEndsWithAFailedRead) {
  std::mt19937 rng(42);
  const std::string data = RandomBytes(rng, 20000);
  TempFile f(data);
  Chain src(orlix_stream_new_file(f.path.c_str(), ORLIX_FILE_READ, nullptr));
  PieceSink sink;
  Chain dst(sink.make());
  Ctx ctx;
  uint64_t copied = 0;
  // Start in the middle and already at the end: the copy rewinds first.
  char buf[16];
  uint64_t n = 0;
  while (orlix_stream_read(src.get(), buf, 16, &n, nullptr) == 1) {
  }
  ASSERT_EQ(orlix_stream_writefromstream(dst.get(), src.get(), &copied, &ctx), 1);
  EXPECT_EQ(ctx.count(), 0);
  EXPECT_EQ(copied, 20000u);
  EXPECT_EQ(sink.data, data);
  EXPECT_EQ(sink.writes, (std::vector<int64_t>{8192, 8192, 3616}));

  // A base64 source whose text stops inside a group is not at its end: the
  // copy fails, with nothing recorded.
  Chain b64 = Over(orlix_stream_new_base64(2, 64, 2, nullptr), RoMem("TWFuTQ"));
  PieceSink sink2;
  Chain dst2(sink2.make());
  EXPECT_EQ(orlix_stream_writefromstream(dst2.get(), b64.get(), &copied, &ctx), 0);
  EXPECT_EQ(ctx.count(), 0);
  EXPECT_EQ(sink2.data, "Man");
  // A closed file cannot be rewound: that failure is the result.
  ASSERT_EQ(orlix_stream_ctrl(src.get(), ORLIX_CTRL_CLOSE, nullptr, nullptr), 1);
  EXPECT_FAIL_WITH(ctx, orlix_stream_writefromstream(dst.get(), src.get(), &copied, &ctx),
                   ORLIX_ERR_STREAM_FILE_CLOSED, kFile);
}

}  // namespace
