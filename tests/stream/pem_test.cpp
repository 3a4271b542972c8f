// PEM armour: the exact text of orlix_pemencode, the strict framing rules
// of orlix_pemdecode, and agreement with OpenSSL's PEM writer and reader
// (which writes LF lines where ours are CR LF).
#include <openssl/bio.h>
#include <openssl/pem.h>

#include "stream_test_util.hpp"

using namespace orlix_test;

namespace {

std::string PemEncode(const std::string &label, const std::string &data) {
  char *pem = nullptr;
  int64_t n = -1;
  EXPECT_EQ(
      orlix_pemencode(label.c_str(), data.data(), static_cast<int64_t>(data.size()), &pem, &n), 1);
  if (pem == nullptr) return {};
  EXPECT_EQ(static_cast<size_t>(n), std::strlen(pem));
  std::string out(pem, static_cast<size_t>(n));
  orlix_free(pem);
  return out;
}

// The decoded bytes, or "<refused>".
std::string PemDecode(const std::string &label, const std::string &pem) {
  unsigned char *data = nullptr;
  int64_t n = -1;
  if (orlix_pemdecode(label.c_str(), pem.data(), static_cast<int64_t>(pem.size()), &data, &n) != 1)
    return "<refused>";
  std::string out(reinterpret_cast<char *>(data), static_cast<size_t>(n));
  orlix_free(data);
  return out;
}

std::string ToLf(std::string s) {
  for (size_t at; (at = s.find("\r\n")) != std::string::npos;) s.erase(at, 1);
  return s;
}

std::string OpenSslPem(const std::string &label, const std::string &data) {
  BIO *bio = BIO_new(BIO_s_mem());
  PEM_write_bio(bio, label.c_str(), "", reinterpret_cast<const unsigned char *>(data.data()),
                static_cast<long>(data.size()));
  char *p = nullptr;
  const long n = BIO_get_mem_data(bio, &p);
  std::string out(p, static_cast<size_t>(n));
  BIO_free(bio);
  return out;
}

// OpenSSL's reading of a PEM text: "<label>:<bytes>", or "<refused>".
std::string OpenSslRead(const std::string &pem) {
  BIO *bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  char *name = nullptr;
  char *header = nullptr;
  unsigned char *data = nullptr;
  long n = 0;
  std::string out = "<refused>";
  if (PEM_read_bio(bio, &name, &header, &data, &n) == 1)
    out = std::string(name) + ":" + std::string(reinterpret_cast<char *>(data), n);
  OPENSSL_free(name);
  OPENSSL_free(header);
  OPENSSL_free(data);
  BIO_free(bio);
  return out;
}

TEST(Pem, EncodeText) {
  EXPECT_EQ(PemEncode("TEST", "M"), "-----BEGIN TEST-----\r\nTQ==\r\n-----END TEST-----\r\n");
  // A body ending on a whole group gets its line ending appended; one
  // ending a full line does not get a second.
  EXPECT_EQ(PemEncode("X", "Man"), "-----BEGIN X-----\r\nTWFu\r\n-----END X-----\r\n");
  EXPECT_EQ(PemEncode("A B", std::string(48, '\0')),
            "-----BEGIN A B-----\r\n" + std::string(64, 'A') + "\r\n-----END A B-----\r\n");
  EXPECT_EQ(PemEncode("A", std::string(49, '\0')),
            "-----BEGIN A-----\r\n" + std::string(64, 'A') + "\r\nAA==\r\n-----END A-----\r\n");

  char *pem = nullptr;
  int64_t n = 0;
  EXPECT_EQ(orlix_pemencode(nullptr, "M", 1, &pem, &n), 0);
  EXPECT_EQ(orlix_pemencode("", "M", 1, &pem, &n), 0);
  EXPECT_EQ(orlix_pemencode("L", nullptr, 1, &pem, &n), 0);
  EXPECT_EQ(orlix_pemencode("L", "M", 0, &pem, &n), 0);
  EXPECT_EQ(orlix_pemencode("L", "M", -5, &pem, &n), 0);
  EXPECT_EQ(orlix_pemencode("L", "M", 1, nullptr, &n), 0);
  EXPECT_EQ(orlix_pemencode("L", "M", 1, &pem, nullptr), 0);
  EXPECT_EQ(pem, nullptr);
}

TEST(Pem, AgreesWithOpenSsl) {
  std::mt19937 rng(21);
  const char *labels[] = {"CERTIFICATE", "RSA PRIVATE KEY", "X", "X509 CRL"};
  for (int i = 0; i < 300; ++i) {
    const size_t size = i < 100 ? static_cast<size_t>(i + 1) : 1 + rng() % 5000;
    const std::string data = RandomBytes(rng, size);
    const std::string label = labels[i % 4];
    const std::string ours = PemEncode(label, data);
    const std::string theirs = OpenSslPem(label, data);
    ASSERT_EQ(ToLf(ours), theirs) << size;
    EXPECT_EQ(OpenSslRead(ours), label + ":" + data) << size;
    EXPECT_EQ(PemDecode(label, ours), data) << size;
    EXPECT_EQ(PemDecode(label, theirs), data) << size;
  }
}

TEST(Pem, DecodeArgumentsAndMinimumLength) {
  const std::string pem = PemEncode("L", "M");
  unsigned char *data = nullptr;
  int64_t n = 0;
  const auto len = static_cast<int64_t>(pem.size());
  EXPECT_EQ(orlix_pemdecode(nullptr, pem.data(), len, &data, &n), 0);
  EXPECT_EQ(orlix_pemdecode("", pem.data(), len, &data, &n), 0);
  EXPECT_EQ(orlix_pemdecode("L", nullptr, len, &data, &n), 0);
  EXPECT_EQ(orlix_pemdecode("L", pem.data(), 0, &data, &n), 0);
  EXPECT_EQ(orlix_pemdecode("L", pem.data(), len, nullptr, &n), 0);
  EXPECT_EQ(orlix_pemdecode("L", pem.data(), len, &data, nullptr), 0);
  EXPECT_EQ(data, nullptr);

  // At least 2 * strlen(label) + 34 bytes: a body of three bytes reaches
  // it exactly, two fall short. ("TQ" and "T" are padded texts that stop
  // inside their group: they decode to nothing.)
  for (const std::string label : {"L", "LL", "CERTIFICATE"}) {
    const std::string shortest = "-----BEGIN " + label + "-----\nTQ\n-----END " + label + "-----";
    ASSERT_EQ(shortest.size(), 2 * label.size() + 34);
    EXPECT_EQ(PemDecode(label, shortest), "") << label;
    const std::string too_short = "-----BEGIN " + label + "-----\nT\n-----END " + label + "-----";
    EXPECT_EQ(PemDecode(label, too_short), "<refused>") << label;
  }
}

TEST(Pem, DecodeFraming) {
  const std::string body = "TWFu\r\n";
  const std::string good = "-----BEGIN L-----\r\n" + body + "-----END L-----\r\n";
  const struct {
    const char *why;
    std::string text;
    bool ok;
  } cases[] = {
      {"as encoded", good, true},
      {"LF lines", "-----BEGIN L-----\nTWFu\n-----END L-----\n", true},
      {"CR lines", "-----BEGIN L-----\rTWFu\r-----END L-----\r", true},
      {"no final line ending", "-----BEGIN L-----\r\nTWFu\r\n-----END L-----", true},
      {"LF then NUL counted", "-----BEGIN L-----\nTWFu\n-----END L-----\n" + std::string(1, '\0'),
       true},
      {"CR LF then NUL: three bytes after the dashes", good + std::string(1, '\0'), false},
      {"extra leading dashes", "---" + good, true},
      {"long dash runs", "-----BEGIN L--------\r\nTWFu\r\n-----END L----------\r\n", true},
      {"blank line after the header", "-----BEGIN L-----\r\n\r\nTWFu\r\n-----END L-----\r\n", true},
      {"body without its line ending", "-----BEGIN L-----\r\nTWFu-----END L-----\r\n", true},
      {"last byte a letter", "-----BEGIN L-----\r\nTWFu\r\n-----END L-----x", false},
      {"last byte a space", "-----BEGIN L-----\r\nTWFu\r\n-----END L----- ", false},
      {"text before the header", "x" + good, false},
      {"line ending before the header", "\n" + good, false},
      {"space before the header", " " + good, false},
      {"other label", "-----BEGIN M-----\r\n" + body + "-----END M-----\r\n", false},
      {"label is a prefix", "-----BEGIN LL-----\r\n" + body + "-----END LL-----\r\n", false},
      {"footer of another label", "-----BEGIN L-----\r\n" + body + "-----END M-----\r\n", false},
      {"four dashes in the header", "-----BEGIN L----\r\n" + body + "-----END L-----\r\n", false},
      {"four dashes in the footer", "-----BEGIN L-----\r\n" + body + "-----END L----\r\n", false},
      {"header runs into the body", "-----BEGIN L-----TWFu\r\n-----END L-----\r\n", false},
      {"no footer", "-----BEGIN L-----\r\n" + body + "TWFuTWFuTWFuTWFu\r\n", false},
      {"empty body", "-----BEGIN L-----\r\n-----END L-----\r\n", false},
      {"body of dashes", "-----BEGIN L-----\r\n------------END L-----\r\n", false},
      {"three bytes after the footer", good + "\n", false},
      {"two blocks", good + good, false},
      {"bad body", "-----BEGIN L-----\r\nTW#u\r\n-----END L-----\r\n", false},
      {"space in the body", "-----BEGIN L-----\r\nTW Fu\r\n-----END L-----\r\n", false},
      // The searches never look where the needle would end the text; any such
      // text ends in a space and is refused by the last-byte rule anyway.
      {"header at the very end", std::string(40, '-') + "-----BEGIN ", false},
      {"footer at the very end", "-----BEGIN L-----\r\nTWFu\r\n-----END ", false},
  };
  for (const auto &c : cases)
    EXPECT_EQ(PemDecode("L", c.text), c.ok ? "Man" : "<refused>") << c.why;

  // The footer is the first "-----END " of the whole text, so a label that
  // contains one can never be decoded.
  const std::string label = "A-----END B";
  const std::string pem = PemEncode(label, "Man");
  EXPECT_EQ(pem, "-----BEGIN A-----END B-----\r\nTWFu\r\n-----END A-----END B-----\r\n");
  EXPECT_EQ(PemDecode(label, pem), "<refused>");
  // A caller's length that includes the encoder's NUL leaves three bytes
  // after the footer's dashes: refused.
  EXPECT_EQ(PemDecode("L", PemEncode("L", "Man") + std::string(1, '\0')), "<refused>");
}

TEST(Pem, RoundTripsEverySize) {
  std::mt19937 rng(22);
  for (size_t size = 1; size < 400; ++size) {
    const std::string data = RandomBytes(rng, size);
    ASSERT_EQ(PemDecode("BLOB", PemEncode("BLOB", data)), data) << size;
  }
  const std::string big = RandomBytes(rng, 200000);
  EXPECT_EQ(PemDecode("BIG", PemEncode("BIG", big)), big);
}

}  // namespace
