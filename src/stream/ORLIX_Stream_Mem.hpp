// The memory stream's private record, shared with the chain core's copy
// fast path.
#pragma once

#include <cstdint>

#include "ORLIX_Stream.h"

namespace orlix {

struct MemStream {
  unsigned char *buffer;
  int64_t length;    // bytes of valid data from buffer[0]
  int64_t capacity;  // bytes allocated
  uint32_t flags;
  int64_t read_pos;
  int64_t write_pos;
};

inline constexpr uint32_t kMemReadOnly = 0x00000001u;
inline constexpr uint32_t kMemQueue = 0x40000000u;     // separate read and write positions
inline constexpr uint32_t kMemNotOwned = 0x80000000u;  // never freed, never grown

// The private record of a memory stream, or nullptr for any other stream.
inline MemStream *mem_of(ORLIX_Stream *stream) {
  if (stream == nullptr || stream->type != ORLIX_STREAM_TYPE_MEM) return nullptr;
  return static_cast<MemStream *>(stream->data);
}

}  // namespace orlix
