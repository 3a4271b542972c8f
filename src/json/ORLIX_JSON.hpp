// The JSON node and the internal operations shared by the value model, the
// decoder and the encoder.
#pragma once

#include <cstdint>

#include "ORLIX_ArrayList.h"
#include "ORLIX_JSON.h"

struct ORLIX_JSON_st {
  uint32_t type;
  union {
    int32_t boolean;  // 0 or 1
    double number;
    char *string;  // length bytes and a NUL, stored in the node's own block
    ORLIX_ArrayList *list;
  } value;
  int32_t length;  // string length in bytes
};

namespace orlix::json {

inline constexpr char kModule[] = "ORLIX_JSON";

// One object member. The name node and its bytes live in the item's block.
struct ObjectItem {
  ORLIX_JSON *name;
  ORLIX_JSON *value;
};

// A string node over bytes already known to be valid UTF-8.
ORLIX_JSON *new_string_unchecked(const char *bytes, int32_t length);

// A member named by bytes known to be valid UTF-8, adopting value; nullptr
// when memory runs out (value is then left to the caller).
ObjectItem *new_item(const char *name, int32_t length, ORLIX_JSON *value);

// Releases a member: its value, then its block.
void free_item(void *item);

// Total order on values (negative, zero, positive); see the comparison notes
// in ORLIX_JSON.cpp.
int compare(const ORLIX_JSON *a, const ORLIX_JSON *b);

// Orders two list slots holding members or values (for qsort).
int compare_item_slots(const void *a, const void *b);
int compare_value_slots(const void *a, const void *b);

}  // namespace orlix::json
