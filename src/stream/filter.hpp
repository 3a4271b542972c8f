// The argument check that every filter's read and write begin with.
#pragma once

#include <cstdint>

#include "ORLIX_Stream.h"
#include "core/error.hpp"

namespace orlix {

// What check_filter_call returns when the filter is to go on with its work.
constexpr int kFilterProceed = -1;

// Checks, in this order: a NULL stream (ORLIX_ERR_NULL_POINT), no private
// record (ORLIX_ERR_STREAM_BAD), a failure the filter keeps (the record's
// `sticky` flag, recorded as `sticky_code`), a negative length
// (ORLIX_ERR_BAD_LENGTH), a zero length (success with a count of 0), no next
// stream (ORLIX_ERR_STREAM_NO_SINK) and, when `needs_buffer`, a NULL buffer
// (ORLIX_ERR_NULL_POINT). Returns the call's result, or kFilterProceed.
// Entries carry the filter's own module and the line it was called from.
template <class Record>
int check_filter_call(const ORLIX_Stream *stream, const void *buffer, int64_t length,
                      uint64_t *count, ORLIX_ErrCtx *ctx, const char *module, int line,
                      int32_t Record::*sticky = nullptr, uint32_t sticky_code = 0,
                      bool needs_buffer = true) {
  if (stream == nullptr) return fail(ctx, module, line, ORLIX_ERR_NULL_POINT);
  const auto *record = static_cast<const Record *>(stream->data);
  if (record == nullptr) return fail(ctx, module, line, ORLIX_ERR_STREAM_BAD);
  if (sticky != nullptr && record->*sticky != 0) return fail(ctx, module, line, sticky_code);
  if (length < 0) return fail(ctx, module, line, ORLIX_ERR_BAD_LENGTH);
  if (length == 0) {
    if (count != nullptr) *count = 0;
    return 1;
  }
  if (stream->next == nullptr) return fail(ctx, module, line, ORLIX_ERR_STREAM_NO_SINK);
  if (needs_buffer && buffer == nullptr) return fail(ctx, module, line, ORLIX_ERR_NULL_POINT);
  return kFilterProceed;
}

}  // namespace orlix

// check_filter_call for the calling module (its kModule) and line.
#define ORLIX_FILTER_CHECK(Record, ...) \
  ::orlix::check_filter_call<Record>(__VA_ARGS__, kModule, __LINE__)
#define ORLIX_FILTER_CHECK_STICKY(Record, flag, code, ...) \
  ::orlix::check_filter_call<Record>(__VA_ARGS__, kModule, __LINE__, &Record::flag, (code))
