// Internal helpers for recording failures into error contexts.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ORLIX_Error.h"

namespace orlix {

// The table text of a general or stream code; "" for any other code.
const char *error_text(uint32_t code);

// Records code with its own table text.
inline void raise(ORLIX_ErrCtx *ctx, const char *module, int line, uint32_t code) {
  orlix_err_ctx_put(ctx, module, line, code, error_text(code));
}

// Records code with the text of another code; used by the few paths that
// pair a code with a different description on purpose.
inline void raise_with_text_of(ORLIX_ErrCtx *ctx, const char *module, int line, uint32_t code,
                               uint32_t text_code) {
  orlix_err_ctx_put(ctx, module, line, code, error_text(text_code));
}

// Records code and returns 0, the failure result of most entry points.
inline int fail(ORLIX_ErrCtx *ctx, const char *module, int line, uint32_t code) {
  raise(ctx, module, line, code);
  return 0;
}

// Records code and returns NULL, the failure result of constructors.
inline std::nullptr_t fail_null(ORLIX_ErrCtx *ctx, const char *module, int line, uint32_t code) {
  raise(ctx, module, line, code);
  return nullptr;
}

// Re-records the newest entry of `from` (if any) into `to`.
void forward_last(const ORLIX_ErrCtx &from, ORLIX_ErrCtx *to);

}  // namespace orlix

// Each source file defines `constexpr const char kModule[]` before using these.
#define ORLIX_RAISE(ctx, code) ::orlix::raise((ctx), kModule, __LINE__, (code))
#define ORLIX_FAIL(ctx, code) ::orlix::fail((ctx), kModule, __LINE__, (code))
#define ORLIX_FAIL_NULL(ctx, code) ::orlix::fail_null((ctx), kModule, __LINE__, (code))
