// A growable array of non-NULL pointers with optional copy and free functions.
#include "ORLIX_ArrayList.h"

#include <cstdlib>
#include <cstring>

#include "containers/ORLIX_ArrayList.hpp"
#include "core/memory.hpp"

struct ORLIX_ArrayList_st {
  void **items;  // slots at index count and beyond are always NULL
  int32_t count;
  int32_t capacity;
  ORLIX_ArrayListFreeFunc free_fn;
  ORLIX_ArrayListCopyFunc copy_fn;
};

namespace {

constexpr const char kModule[] = "ORLIX_ArrayList";
constexpr int32_t kInitialCapacity = 16;

// Every list keeps its first 16 slots right after its record, in the same
// block; only a list that has grown has its slots in a block of their own.
struct Placed {
  ORLIX_ArrayList_st record;
  void *slots[kInitialCapacity];
};

void **inline_slots(ORLIX_ArrayList *list) { return reinterpret_cast<Placed *>(list)->slots; }

void release_slots(ORLIX_ArrayList *list) {
  if (list->capacity > kInitialCapacity) orlix_free(list->items);
}

void **new_slots(int64_t n) {
  return orlix::alloc_array<void *>(n, kModule, __LINE__);
}

// Doubles the slot array when it is full. Leaves the list untouched on failure.
bool grow_if_full(ORLIX_ArrayList *list) {
  if (list->count < list->capacity) return true;
  if (list->capacity > INT32_MAX / 2) return false;
  const int32_t new_capacity = list->capacity * 2;
  void **slots = new_slots(new_capacity);
  if (slots == nullptr) return false;
  std::memcpy(slots, list->items, sizeof(void *) * static_cast<size_t>(list->count));
  for (int32_t i = list->count; i < new_capacity; ++i) slots[i] = nullptr;
  release_slots(list);
  list->items = slots;
  list->capacity = new_capacity;
  return true;
}

void *stored_form(const ORLIX_ArrayList *list, void *item) {
  return list->copy_fn != nullptr ? list->copy_fn(item) : item;
}

}  // namespace

int64_t iorlix_arraylist_footprint(void) { return static_cast<int64_t>(sizeof(Placed)); }

ORLIX_ArrayList *iorlix_arraylist_place(void *storage, ORLIX_ArrayListCopyFunc copy_fn,
                                        ORLIX_ArrayListFreeFunc free_fn) {
  auto *list = static_cast<ORLIX_ArrayList *>(storage);
  list->items = inline_slots(list);
  for (int32_t i = 0; i < kInitialCapacity; ++i) list->items[i] = nullptr;
  list->count = 0;
  list->capacity = kInitialCapacity;
  list->free_fn = free_fn;
  list->copy_fn = copy_fn;
  return list;
}

void iorlix_arraylist_unplace(ORLIX_ArrayList *list) {
  if (list->items != nullptr && list->free_fn != nullptr) {
    for (int32_t i = 0; i < list->count; ++i) {
      list->free_fn(list->items[i]);
      list->items[i] = nullptr;
    }
  }
  release_slots(list);
  list->items = nullptr;
}

void iorlix_arraylist_forget(ORLIX_ArrayList *list) {
  for (int32_t i = 0; i < list->count; ++i) list->items[i] = nullptr;
  list->count = 0;
}

void iorlix_arraylist_sort(ORLIX_ArrayList *list, int (*compare)(const void *, const void *)) {
  std::qsort(list->items, static_cast<size_t>(list->count), sizeof(void *), compare);
}

void iorlix_arraylist_sort_r(ORLIX_ArrayList *list,
                             int (*compare)(const void *, const void *, void *), void *arg) {
  qsort_r(list->items, static_cast<size_t>(list->count), sizeof(void *), compare, arg);
}

extern "C" {

ORLIX_ArrayList *orlix_arraylist_new(ORLIX_ArrayListCopyFunc copy_fn,
                                     ORLIX_ArrayListFreeFunc free_fn) {
  void *storage = orlix_malloc(iorlix_arraylist_footprint(), kModule, __LINE__);
  if (storage == nullptr) return nullptr;
  return iorlix_arraylist_place(storage, copy_fn, free_fn);
}

void orlix_arraylist_free(ORLIX_ArrayList *list) {
  if (list == nullptr) return;
  iorlix_arraylist_unplace(list);
  orlix_free(list);
}

void orlix_arraylist_freeitem(ORLIX_ArrayList *list, void *item) {
  if (list == nullptr || list->free_fn == nullptr || item == nullptr) return;
  list->free_fn(item);
}

uint32_t orlix_arraylist_count(const ORLIX_ArrayList *list) {
  return list == nullptr ? 0 : static_cast<uint32_t>(list->count);
}

void *orlix_arraylist_getitem(const ORLIX_ArrayList *list, int32_t index) {
  if (list == nullptr || index < 0 || index >= list->count) return nullptr;
  return stored_form(list, list->items[index]);
}

void *orlix_arraylist_getitemref(const ORLIX_ArrayList *list, int32_t index) {
  if (list == nullptr || index < 0 || index >= list->count) return nullptr;
  return list->items[index];
}

int orlix_arraylist_pushback(ORLIX_ArrayList *list, void *item) {
  if (list == nullptr || item == nullptr) return 0;
  if (!grow_if_full(list)) return 0;
  void *stored = stored_form(list, item);
  list->items[list->count] = stored;
  if (stored == nullptr) return 0;
  ++list->count;
  return 1;
}

int orlix_arraylist_insert(ORLIX_ArrayList *list, int32_t index, void *item) {
  if (list == nullptr || item == nullptr) return 0;
  const int32_t pos = index < 0 ? 0 : (index < list->count ? index : list->count);
  if (!grow_if_full(list)) return 0;
  void **slot = list->items + pos;
  const size_t tail = static_cast<size_t>(list->count - pos);
  std::memmove(slot + 1, slot, tail * sizeof(void *));
  void *stored = stored_form(list, item);
  if (stored == nullptr) {
    std::memmove(slot, slot + 1, tail * sizeof(void *));
    list->items[list->count] = nullptr;
    return 0;
  }
  *slot = stored;
  ++list->count;
  return 1;
}

int orlix_arraylist_delete(ORLIX_ArrayList *list, int32_t index) {
  if (list == nullptr || index < 0 || index >= list->count) return 0;
  if (list->free_fn != nullptr) list->free_fn(list->items[index]);
  // Move only the items after index; the freed tail slot is cleared below,
  // so nothing past the slot array is ever read.
  void **slot = list->items + index;
  std::memmove(slot, slot + 1, static_cast<size_t>(list->count - index - 1) * sizeof(void *));
  --list->count;
  list->items[list->count] = nullptr;
  return 1;
}

}  // extern "C"
