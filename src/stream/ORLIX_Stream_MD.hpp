// Shared parts of the digest and HMAC filters.
#pragma once

#include <cstdint>

#include "ORLIX_Stream.h"

namespace orlix::md {

// Private record of a digest filter; the HMAC filter's record starts with
// the same fields.
struct Digest {
  ORLIX_MDMethod method;   // the caller's table, copied
  void *context;           // the hash context
  unsigned char *digest;   // digest-length bytes
};

// True when every operation a filter cannot do without is present.
bool method_complete(const ORLIX_MDMethod &m);

// Fills a record: copies the table, makes and starts a context and the
// digest buffer. Records ORLIX_ERR_OUT_OF_MEMORY and releases what it made on
// failure.
bool init_digest(Digest *d, const ORLIX_MDMethod &m, const char *module, ORLIX_ErrCtx *ctx);

// Releases the context and the digest buffer of a record.
void release_digest(Digest *d);

// Pass-through write shared by both filters: writes to next, then hashes
// exactly the bytes next accepted. Entries carry the filter's module and
// the line it called from.
int write_through(ORLIX_Stream *stream, const void *buffer, int64_t length, uint64_t *count,
                  ORLIX_ErrCtx *ctx, const char *module, int line);

// Pass-through read shared by both filters; nothing read is hashed.
int read_through(ORLIX_Stream *stream, void *buffer, int64_t length, uint64_t *count,
                 ORLIX_ErrCtx *ctx, const char *module, int line);

// Control codes both filters answer alike (digest length, property);
// returns -1 when `code` is not one of them.
int common_ctrl(const Digest *d, int64_t code, void *argument, ORLIX_ErrCtx *ctx,
                const char *module);

// One-shot digest of length bytes through a digest filter over a null sink.
// Returns the digest length, or -1 (errors go to ctx).
int64_t hash(const ORLIX_MDMethod *method, const void *bytes, int64_t length,
             unsigned char *output, ORLIX_ErrCtx *ctx);

}  // namespace orlix::md
