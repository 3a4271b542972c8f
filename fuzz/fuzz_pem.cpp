// orlix_pemdecode on arbitrary text must not crash or read outside it; when
// it accepts a text, the bytes it gives re-encode with orlix_pemencode into
// a text that decodes to the same bytes, and the re-encoded text is what
// the encoder makes of the bytes (header, CR LF lines, footer).
//
// Input: [label length] [label...] [text...]; the text is copied into a
// block of its exact size so that any read past its end is caught.
#include <cstring>
#include <string>
#include <vector>

#include "ORLIX_Stream.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  const size_t label_length = in.u8() % 24;
  std::string label;
  for (size_t i = 0; i < label_length && !in.empty(); ++i) {
    const char c = static_cast<char>(in.u8());
    if (c != '\0') label += c;
  }
  if (label.empty()) label = "CERTIFICATE";
  const std::vector<char> text(in.rest(), in.rest() + in.remaining());
  const auto length = static_cast<int64_t>(text.size());
  if (length == 0) return 0;

  unsigned char *bytes = nullptr;
  int64_t bytes_length = -1;
  if (orlix_pemdecode(label.c_str(), text.data(), length, &bytes, &bytes_length) != 1) return 0;
  FUZZ_CHECK(bytes != nullptr && bytes_length >= 0 && bytes_length <= length);
  if (bytes_length > 0) {
    char *pem = nullptr;
    int64_t pem_length = 0;
    FUZZ_CHECK(orlix_pemencode(label.c_str(), bytes, bytes_length, &pem, &pem_length) == 1);
    const std::string header = "-----BEGIN " + label + "-----\r\n";
    const std::string footer = "-----END " + label + "-----\r\n";
    FUZZ_CHECK(static_cast<size_t>(pem_length) == std::strlen(pem));
    FUZZ_CHECK(std::strncmp(pem, header.c_str(), header.size()) == 0);
    FUZZ_CHECK(static_cast<size_t>(pem_length) > header.size() + footer.size());
    FUZZ_CHECK(std::strcmp(pem + pem_length - footer.size(), footer.c_str()) == 0);
    unsigned char *again = nullptr;
    int64_t again_length = 0;
    // A label holding "-----END " can never be read back; every other can.
    if (label.find("-----END ") == std::string::npos) {
      FUZZ_CHECK(orlix_pemdecode(label.c_str(), pem, pem_length, &again, &again_length) == 1,
                 "the encoder's text for %lld bytes is refused",
                 static_cast<long long>(bytes_length));
      FUZZ_CHECK(again_length == bytes_length && fuzz::SameBytes(again, bytes, bytes_length));
      orlix_free(again);
    }
    orlix_free(pem);
  }
  orlix_free(bytes);
  return 0;
}
