// Helpers shared by the fuzz targets: a property check that aborts (so that
// libFuzzer keeps the input) and a reader that carves values out of the input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ORLIX_Error.h"
#include "ORLIX_UString.h"

// Aborts with the failed condition and an optional printf-style message.
#define FUZZ_CHECK(cond, ...)                                                             \
  do {                                                                                    \
    if (!(cond)) {                                                                        \
      std::fprintf(stderr, "property violated: %s (%s:%d)\n", #cond, __FILE__, __LINE__); \
      __VA_OPT__(std::fprintf(stderr, __VA_ARGS__); std::fputc('\n', stderr);)            \
      std::abort();                                                                       \
    }                                                                                     \
  } while (0)

namespace fuzz {

// memcmp that accepts empty ranges with NULL pointers.
inline bool SameBytes(const void *a, const void *b, size_t n) {
  return n == 0 || std::memcmp(a, b, n) == 0;
}

// Empties an error context; cheap when it is empty already (a clean wipes
// all 32 entries).
inline void Clear(ORLIX_ErrCtx *ctx) {
  if (ctx->head != ctx->tail) orlix_err_ctx_clean(ctx);
}

// Reads the input front to back; past its end every value reads as 0.
class Reader {
 public:
  Reader(const uint8_t *data, size_t size) : data_(data), size_(size) {}

  bool empty() const { return pos_ >= size_; }
  size_t remaining() const { return empty() ? 0 : size_ - pos_; }
  const uint8_t *rest() const { return data_ + pos_; }

  uint8_t u8() { return empty() ? 0 : data_[pos_++]; }
  uint16_t u16() {
    const uint16_t lo = u8();
    return static_cast<uint16_t>(lo | u8() << 8);
  }

 private:
  const uint8_t *data_;
  size_t size_;
  size_t pos_ = 0;
};

// An owned string, released when it goes out of scope.
struct Str {
  ORLIX_UString *s;
  explicit Str(ORLIX_UString *p) : s(p) {}
  ~Str() { orlix_ustring_free(s); }
  Str(const Str &) = delete;
  Str &operator=(const Str &) = delete;
};

// A string of code points; nullptr when the constructor refuses them.
inline ORLIX_UString *Make(const std::vector<uint32_t> &code_points) {
  std::vector<uint64_t> wide(code_points.begin(), code_points.end());
  return orlix_ustring_newutf32(wide.data(), static_cast<int64_t>(wide.size()));
}

}  // namespace fuzz
