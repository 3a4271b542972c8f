// Base64 against Python's base64 module, over many random inputs and every
// flag combination. Python makes and encodes each input once (one python3
// process for the whole suite); the expected text is its output with our line-breaking
// rules applied, and the decoders must turn that output - reshaped for each
// flag combination - back into the input.
#include <sstream>

#include "python_oracle.hpp"
#include "stream/ORLIX_Stream_Base64_Vector.hpp"

#include "stream_test_util.hpp"

using namespace orlix_test;

namespace {

struct Sample {
  std::string data;
  std::string std_text;  // Python's b64encode
  std::string url_text;  // Python's urlsafe_b64encode
};

// Python picks the inputs (sizes around the group, line and 1024-byte block
// boundaries, then random) and prints each as decimal bytes, then its
// b64encode and urlsafe_b64encode.
const char kScript[] = R"PY(
import base64, random
rng = random.Random(11)
sizes = [1, 2, 3, 4, 5, 47, 48, 49, 50, 96, 97, 341, 1022, 1023, 1024, 1025, 1026, 2046,
         2047, 2048, 2049, 3069, 3072, 4095, 10000]
while len(sizes) < 80:
    sizes.append(1 + rng.randrange(200 if len(sizes) % 3 else 6000))
for n in sizes:
    b = bytes(rng.randrange(256) for _ in range(n))
    print(' '.join(map(str, b)))
    print(base64.b64encode(b).decode())
    print(base64.urlsafe_b64encode(b).decode())
)PY";

bool AskPython(std::vector<Sample> *samples) {
  if (!orlix_oracle::HavePython()) return false;
  const std::vector<std::string> lines = orlix_oracle::RunPython(kScript, "");
  for (size_t i = 0; i + 2 < lines.size(); i += 3) {
    Sample s;
    std::istringstream bytes(lines[i]);
    for (int b; bytes >> b;) s.data += static_cast<char>(b);
    s.std_text = lines[i + 1];
    s.url_text = lines[i + 2];
    samples->push_back(s);
  }
  return samples->size() == 80;
}

class Base64Oracle : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    samples_ = new std::vector<Sample>();
    ok_ = AskPython(samples_);
  }
  static void TearDownTestSuite() { delete samples_; }
  void SetUp() override { ASSERT_TRUE(ok_) << "python3 did not answer"; }

  static std::vector<Sample> *samples_;
  static bool ok_;
};
std::vector<Sample> *Base64Oracle::samples_ = nullptr;
bool Base64Oracle::ok_ = false;

const char *Eol(uint32_t flags) {
  switch (flags & 7) {
    case 1: return "\r";
    case 2: return "\r\n";
    case 3: return "\n";
    default: return "";
  }
}

// Python's text with our line breaking: a line ending after each whole
// group that brings the line to `line` characters or more (the stored
// length line + line % 4, 64 for line <= 0); the final partial group,
// without "=" when padding is off, always ends with a line ending.
std::string Shape(const Sample &s, uint32_t flags, int32_t line) {
  const std::string &py = (flags & ORLIX_BASE64_URL) ? s.url_text : s.std_text;
  const int64_t width = line > 0 ? line + line % 4 : 64;
  const char *eol = Eol(flags);
  const size_t groups = s.data.size() / 3;
  std::string out;
  int64_t column = 0;
  for (size_t g = 0; g < groups; ++g) {
    out += py.substr(4 * g, 4);
    if (*eol == '\0') continue;
    column += 4;
    if (column >= width) {
      out += eol;
      column = 0;
    }
  }
  if (s.data.size() % 3 != 0) {
    std::string last = py.substr(4 * groups);
    if (flags & ORLIX_BASE64_NO_PAD) last.erase(last.find('='));
    out += last + eol;
  }
  return out;
}

std::vector<uint32_t> AllEncodeFlags() {
  std::vector<uint32_t> all;
  for (uint32_t eol = 1; eol <= 4; ++eol)
    for (uint32_t bits :
         {0u, ORLIX_BASE64_NO_PAD, ORLIX_BASE64_URL, ORLIX_BASE64_NO_PAD | ORLIX_BASE64_URL})
      all.push_back(eol | bits);
  return all;
}

// Each test runs with the vector forms (where the processor has them) and
// with the portable ones.
struct Forms {
  bool vector;
  bool was;
  explicit Forms(bool on) : vector(on), was(orlix::base64::use_vector_forms(on)) {}
  ~Forms() { orlix::base64::use_vector_forms(was); }
};

TEST_F(Base64Oracle, OneShotEncoderEveryFlagCombination) {
  for (bool vector : {true, false}) {
    Forms forms(vector);
    for (uint32_t flags : AllEncodeFlags())
      for (const Sample &s : *samples_)
        ASSERT_EQ(EncodeOneShot(flags, s.data), Shape(s, flags, 64))
            << "flags " << flags << " size " << s.data.size() << " vector " << vector;
  }
}

TEST_F(Base64Oracle, StreamEncoderLineLengthsAndPieces) {
  std::mt19937 rng(12);
  const int32_t lines[] = {1, 2, 3, 5, 7, 16, 63, 64, 65, 76, 100, 0, -1};
  for (uint32_t flags : AllEncodeFlags())
    for (const Sample &s : *samples_) {
      const int32_t line = lines[rng() % std::size(lines)];
      std::vector<size_t> pieces;
      for (int i = 0; i < 4; ++i) pieces.push_back(1 + rng() % (i % 2 ? 9 : 1500));
      ASSERT_EQ(EncodeStream(flags, line, s.data, pieces), Shape(s, flags, line))
          << "flags " << flags << " line " << line << " size " << s.data.size();
    }
}

// Python's text in the form one decoder setting accepts: "=" dropped for
// unpadded input, whitespace of the allowed kinds inserted anywhere.
std::string Reshape(const Sample &s, uint32_t flags, std::mt19937 &rng) {
  std::string text = (flags & ORLIX_BASE64_URL) ? s.url_text : s.std_text;
  if (flags & ORLIX_BASE64_NO_PAD) text.erase(text.find_last_not_of('=') + 1);
  const uint32_t ws = flags & 3;
  if (ws == ORLIX_BASE64_WS_NONE) return text;
  const char *blanks = ws == ORLIX_BASE64_WS_EOL ? "\r\n" : "\r\n\t ";
  const size_t kinds = std::strlen(blanks);
  const uint32_t density = 1 + rng() % 40;  // about one run per `density` characters
  std::string out;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (rng() % density == 0) out.append(1 + rng() % 3, blanks[rng() % kinds]);
    if (i < text.size()) out += text[i];
  }
  return out;
}

TEST_F(Base64Oracle, DecodersEveryFlagCombination) {
  std::mt19937 rng(13);
  for (bool vector : {true, false})
  for (uint32_t ws = 1; ws <= 3; ++ws)
    for (uint32_t bits :
         {0u, ORLIX_BASE64_NO_PAD, ORLIX_BASE64_URL, ORLIX_BASE64_NO_PAD | ORLIX_BASE64_URL}) {
      const uint32_t flags = ws | bits;
      Forms forms(vector);
      for (const Sample &s : *samples_) {
        SCOPED_TRACE(testing::Message() << "flags " << flags << " size " << s.data.size()
                                        << " vector " << vector);
        const std::string text = Reshape(s, flags, rng);
        const Decoded one = DecodeOneShot(flags, text);
        ASSERT_TRUE(one.ok);
        ASSERT_EQ(one.bytes, s.data);
        const auto piece = [&] { return static_cast<int64_t>(1 + rng() % (rng() % 2 ? 5 : 3000)); };
        ASSERT_EQ(DecodeStream(flags, RoMem(text), piece).bytes, s.data);
        PieceSource src;
        src.data = text;
        src.piece = 0;
        ASSERT_EQ(DecodeStream(flags, src.make(), piece).bytes, s.data);

        // The other alphabet's two digits are invalid here.
        const std::string &other = (flags & ORLIX_BASE64_URL) ? s.std_text : s.url_text;
        if (other.find_first_of("+/-_") != std::string::npos) {
          std::string wrong = other;
          if (flags & ORLIX_BASE64_NO_PAD) wrong.erase(wrong.find_last_not_of('=') + 1);
          EXPECT_FALSE(DecodeOneShot(flags, wrong).ok);
        }
        // The other padding mode refuses the text when it has padding, and
        // padded decoding of unpadded text drops the unfinished group.
        const bool has_pad = s.data.size() % 3 != 0;
        const Decoded flipped = DecodeOneShot(flags ^ ORLIX_BASE64_NO_PAD, text);
        if (!(flags & ORLIX_BASE64_NO_PAD)) {
          EXPECT_EQ(flipped.ok, !has_pad);
        } else {
          ASSERT_TRUE(flipped.ok);
          EXPECT_EQ(flipped.bytes, s.data.substr(0, s.data.size() / 3 * 3));
        }
      }
    }
}

}  // namespace
