// Bit strings numbered from the most significant bit of byte 0.
#include "ORLIX_BitSet.h"

#include <cstring>

#include "core/memory.hpp"

struct ORLIX_BitSet_st {
  unsigned char *bytes;
  int64_t bit_count;  // bits at and above this read as unset
  uint64_t capacity;  // bytes allocated
};

namespace {

constexpr const char kModule[] = "ORLIX_BitSet";
constexpr uint64_t kMaxLength = 0x0FFFFFFFFFFFFFFFull;
constexpr int64_t kEmptyCapacity = 4;
constexpr int64_t kGrowthSlack = 4;

constexpr unsigned char mask_of(int64_t index) {
  return static_cast<unsigned char>(0x80u >> (index % 8));
}

int64_t used_bytes(const ORLIX_BitSet *set) { return (set->bit_count + 7) / 8; }

uint32_t unused_bits_of(const ORLIX_BitSet *set) {
  return static_cast<uint32_t>((8 - set->bit_count % 8) % 8);
}

}  // namespace

extern "C" {

ORLIX_BitSet *orlix_bitset_empty(void) {
  orlix::Owned<ORLIX_BitSet> set(orlix::alloc_record<ORLIX_BitSet>(kModule, __LINE__));
  if (!set) return nullptr;
  set->bytes = orlix::alloc_bytes(kEmptyCapacity, kModule, __LINE__);
  if (set->bytes == nullptr) return nullptr;
  std::memset(set->bytes, 0, kEmptyCapacity);
  set->bit_count = 0;
  set->capacity = kEmptyCapacity;
  return set.release();
}

ORLIX_BitSet *orlix_bitset_new(uint32_t unused_bits, const unsigned char *bytes,
                               uint64_t length) {
  // A zero-length string cannot have unused bits: the count would go negative.
  if (bytes == nullptr || unused_bits >= 8 || length >= kMaxLength ||
      (length == 0 && unused_bits != 0))
    return nullptr;
  orlix::Owned<ORLIX_BitSet> set(orlix::alloc_record<ORLIX_BitSet>(kModule, __LINE__));
  if (!set) return nullptr;
  set->bytes = orlix::alloc_bytes(static_cast<int64_t>(length), kModule, __LINE__);
  if (set->bytes == nullptr) return nullptr;
  if (length > 0) {
    std::memcpy(set->bytes, bytes, length);
    set->bytes[length - 1] &= static_cast<unsigned char>(0xFFu << unused_bits);
  }
  set->bit_count = static_cast<int64_t>(length * 8) - unused_bits;
  set->capacity = length;
  return set.release();
}

void orlix_bitset_free(ORLIX_BitSet *set) {
  if (set == nullptr) return;
  orlix_free(set->bytes);
  orlix_free(set);
}

ORLIX_DataBlob *orlix_bitset_getdata(const ORLIX_BitSet *set, uint32_t *unused_bits) {
  if (set == nullptr || unused_bits == nullptr) return nullptr;
  ORLIX_DataBlob *blob = orlix_data_blob_new(set->bytes, used_bytes(set));
  if (blob == nullptr) return nullptr;
  *unused_bits = unused_bits_of(set);
  return blob;
}

int orlix_bitset_set(ORLIX_BitSet *set, int64_t index) {
  if (set == nullptr || index < 0) return 0;
  if (static_cast<uint64_t>(index) / 8 >= set->capacity) {
    const int64_t new_capacity = index / 8 + kGrowthSlack;
    unsigned char *bytes = orlix::alloc_bytes(new_capacity, kModule, __LINE__);
    if (bytes == nullptr) return 0;
    if (set->capacity > 0) std::memcpy(bytes, set->bytes, set->capacity);
    std::memset(bytes + set->capacity, 0, static_cast<size_t>(new_capacity) - set->capacity);
    orlix_free(set->bytes);
    set->bytes = bytes;
    set->capacity = static_cast<uint64_t>(new_capacity);
  }
  set->bytes[index / 8] |= mask_of(index);
  if (set->bit_count < index + 1) set->bit_count = index + 1;
  return 1;
}

int orlix_bitset_clear(ORLIX_BitSet *set, int64_t index) {
  if (set == nullptr || index < 0) return 0;
  if (index >= set->bit_count) return 1;
  set->bytes[index / 8] &= static_cast<unsigned char>(~mask_of(index));
  if (index != set->bit_count - 1) return 1;
  // The last bit went: the count now ends just past the highest bit left.
  for (int64_t i = index / 8; i >= 0; --i) {
    if (set->bytes[i] != 0) {
      set->bit_count = i * 8 + 8 - __builtin_ctz(set->bytes[i]);
      return 1;
    }
  }
  set->bit_count = 0;
  return 1;
}

int orlix_bitset_isset(const ORLIX_BitSet *set, int64_t index) {
  if (set == nullptr || index < 0 || index >= set->bit_count) return 0;
  return (set->bytes[index / 8] & mask_of(index)) != 0 ? 1 : 0;
}

ORLIX_BitSet *orlix_bitset_dup(const ORLIX_BitSet *set) {
  if (set == nullptr) return nullptr;
  return orlix_bitset_new(unused_bits_of(set), set->bytes, static_cast<uint64_t>(used_bytes(set)));
}

int64_t orlix_bitset_getbitcount(const ORLIX_BitSet *set) {
  return set == nullptr ? -1 : set->bit_count;
}

}  // extern "C"
