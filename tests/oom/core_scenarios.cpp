// Error contexts and data blobs.
#include <cstring>

#include "ORLIX_Error.h"
#include "ORLIX_Util.h"
#include "scenario_util.hpp"
#include "sweep.hpp"

ORLIX_OOM_SCENARIO(Core, ErrCtxNew) {
  ORLIX_ErrCtx *ctx = orlix_err_ctx_new();
  if (ctx == nullptr) return false;
  EXPECT_EQ(oom::LastCode(*ctx), ORLIX_ERR_NONE);
  EXPECT_EQ(orlix_err_ctx_put(ctx, "oom", 7, ORLIX_ERR_BAD_LENGTH, "Bad Length"), 1);
  EXPECT_EQ(oom::LastCode(*ctx), ORLIX_ERR_BAD_LENGTH);
  orlix_err_ctx_free(ctx);
  return true;
}

ORLIX_OOM_SCENARIO(Core, DataBlob) {
  const auto bytes = oom::Pattern(100);
  ORLIX_DataBlob *blob = orlix_data_blob_new(bytes.data(), 100);
  if (blob == nullptr) return false;
  EXPECT_EQ(blob->length, 100);
  EXPECT_EQ(std::memcmp(blob->data, bytes.data(), 100), 0);

  // An empty blob still takes a (zero-byte) block, so it can fail too.
  ORLIX_DataBlob *empty = orlix_data_blob_new(bytes.data(), 0);
  if (empty == nullptr) {
    orlix_data_blob_free(blob);
    return false;
  }
  EXPECT_EQ(empty->length, 0);
  orlix_data_blob_free(empty);
  orlix_data_blob_free(blob);
  return true;
}
