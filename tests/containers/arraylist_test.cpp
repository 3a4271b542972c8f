// Array lists: growth, insertion and deletion, owned items and sorting.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "ORLIX_ArrayList.h"
#include "containers/ORLIX_ArrayList.hpp"

namespace {

// The record's field order is part of the interface; reading it lets the
// tests see the capacity and the slots past count.
struct ListLayout {
  void **items;
  int32_t count;
  int32_t capacity;
  ORLIX_ArrayListFreeFunc free_fn;
  ORLIX_ArrayListCopyFunc copy_fn;
};
const ListLayout &Layout(const ORLIX_ArrayList *list) {
  return *reinterpret_cast<const ListLayout *>(list);
}

// Copies are heap ints; an item holding a negative value cannot be copied.
std::vector<int> g_freed;
void *CopyInt(void *item) {
  const int v = *static_cast<int *>(item);
  return v < 0 ? nullptr : new int(v);
}
void FreeInt(void *item) {
  g_freed.push_back(*static_cast<int *>(item));
  delete static_cast<int *>(item);
}
void RecordOnly(void *item) { g_freed.push_back(*static_cast<int *>(item)); }

std::vector<int> Values(const ORLIX_ArrayList *list) {
  std::vector<int> out;
  for (uint32_t i = 0; i < orlix_arraylist_count(list); ++i)
    out.push_back(*static_cast<int *>(orlix_arraylist_getitemref(list, int32_t(i))));
  return out;
}

// Count matches and every slot from count to capacity is NULL.
void ExpectTailClear(const ORLIX_ArrayList *list) {
  const ListLayout &l = Layout(list);
  EXPECT_EQ(uint32_t(l.count), orlix_arraylist_count(list));
  for (int32_t i = l.count; i < l.capacity; ++i) EXPECT_EQ(l.items[i], nullptr) << "slot " << i;
}

int g_values[100];

class ArrayList : public testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 100; ++i) g_values[i] = i;
    g_freed.clear();
  }
};

TEST_F(ArrayList, GrowsByDoubling) {
  ORLIX_ArrayList *list = orlix_arraylist_new(nullptr, RecordOnly);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(Layout(list).capacity, 16);
  EXPECT_EQ(Layout(list).free_fn, &RecordOnly);  // free before copy in the record
  EXPECT_EQ(Layout(list).copy_fn, nullptr);
  ExpectTailClear(list);
  for (int i = 0; i < 70; ++i) {
    ASSERT_EQ(orlix_arraylist_pushback(list, &g_values[i]), 1);
    const int32_t want = i < 16 ? 16 : i < 32 ? 32 : i < 64 ? 64 : 128;
    ASSERT_EQ(Layout(list).capacity, want) << "after " << i + 1 << " items";
    // The slot just past the items, also when it is past the capacity.
    ASSERT_EQ(orlix_arraylist_getitem(list, i + 1), nullptr);
  }
  ExpectTailClear(list);
  std::vector<int> want(70);
  for (int i = 0; i < 70; ++i) want[size_t(i)] = i;
  EXPECT_EQ(Values(list), want);
  // Without a copy function the stored pointers are the caller's.
  EXPECT_EQ(orlix_arraylist_getitem(list, 69), &g_values[69]);
  orlix_arraylist_free(list);
  EXPECT_EQ(g_freed, want);  // once each, in index order
}

TEST_F(ArrayList, NullListAndNullItem) {
  EXPECT_EQ(orlix_arraylist_count(nullptr), 0u);
  EXPECT_EQ(orlix_arraylist_getitem(nullptr, 0), nullptr);
  EXPECT_EQ(orlix_arraylist_getitemref(nullptr, 0), nullptr);
  EXPECT_EQ(orlix_arraylist_pushback(nullptr, &g_values[0]), 0);
  EXPECT_EQ(orlix_arraylist_insert(nullptr, 0, &g_values[0]), 0);
  EXPECT_EQ(orlix_arraylist_delete(nullptr, 0), 0);
  orlix_arraylist_free(nullptr);
  orlix_arraylist_freeitem(nullptr, &g_values[0]);

  ORLIX_ArrayList *list = orlix_arraylist_new(nullptr, RecordOnly);
  ASSERT_EQ(orlix_arraylist_pushback(list, &g_values[1]), 1);
  EXPECT_EQ(orlix_arraylist_pushback(list, nullptr), 0);
  EXPECT_EQ(orlix_arraylist_insert(list, 0, nullptr), 0);
  EXPECT_EQ(Values(list), (std::vector<int>{1}));
  ExpectTailClear(list);
  orlix_arraylist_freeitem(list, nullptr);
  EXPECT_TRUE(g_freed.empty());
  orlix_arraylist_free(list);
}

TEST_F(ArrayList, InsertClampsPosition) {
  ORLIX_ArrayList *list = orlix_arraylist_new(nullptr, nullptr);
  for (int i = 1; i <= 3; ++i) orlix_arraylist_pushback(list, &g_values[i]);
  ASSERT_EQ(orlix_arraylist_insert(list, -5, &g_values[10]), 1);
  ASSERT_EQ(orlix_arraylist_insert(list, 1000, &g_values[11]), 1);
  ASSERT_EQ(orlix_arraylist_insert(list, 2, &g_values[12]), 1);
  ASSERT_EQ(orlix_arraylist_insert(list, 6, &g_values[13]), 1);  // index == count appends
  EXPECT_EQ(Values(list), (std::vector<int>{10, 1, 12, 2, 3, 11, 13}));
  // Inserting at the front of a full list grows it first.
  for (int i = 20; i < 29; ++i) orlix_arraylist_pushback(list, &g_values[i]);
  ASSERT_EQ(Layout(list).capacity, 16);
  ASSERT_EQ(orlix_arraylist_insert(list, 0, &g_values[99]), 1);
  EXPECT_EQ(Layout(list).capacity, 32);
  const std::vector<int> v = Values(list);
  EXPECT_EQ(v.size(), 17u);
  EXPECT_EQ(v.front(), 99);
  EXPECT_EQ(v[1], 10);
  EXPECT_EQ(v.back(), 28);
  ExpectTailClear(list);
  orlix_arraylist_free(list);
}

TEST_F(ArrayList, FailedCopyLeavesItemsAndCount) {
  ORLIX_ArrayList *list = orlix_arraylist_new(CopyInt, FreeInt);
  int poison = -1;
  EXPECT_EQ(orlix_arraylist_pushback(list, &poison), 0);
  EXPECT_EQ(orlix_arraylist_insert(list, 0, &poison), 0);
  ExpectTailClear(list);
  for (int i = 0; i < 16; ++i) ASSERT_EQ(orlix_arraylist_pushback(list, &g_values[i]), 1);
  const std::vector<int> before = Values(list);
  // The list is full: each attempt grows it, then the copy fails.
  EXPECT_EQ(orlix_arraylist_pushback(list, &poison), 0);
  for (int32_t at : {-1, 0, 1, 8, 15, 16, 500}) {
    EXPECT_EQ(orlix_arraylist_insert(list, at, &poison), 0) << at;
    EXPECT_EQ(Values(list), before) << at;
    ExpectTailClear(list);
  }
  EXPECT_EQ(Layout(list).capacity, 32);
  EXPECT_TRUE(g_freed.empty());
  orlix_arraylist_free(list);
  EXPECT_EQ(g_freed, before);
}

TEST_F(ArrayList, GetItemCopiesGetItemRefDoesNot) {
  ORLIX_ArrayList *list = orlix_arraylist_new(CopyInt, FreeInt);
  ASSERT_EQ(orlix_arraylist_pushback(list, &g_values[7]), 1);
  ASSERT_EQ(orlix_arraylist_insert(list, 0, &g_values[6]), 1);
  void *stored = orlix_arraylist_getitemref(list, 1);
  EXPECT_NE(stored, &g_values[7]);  // the list keeps its own copy
  EXPECT_EQ(orlix_arraylist_getitemref(list, 1), stored);
  void *a = orlix_arraylist_getitem(list, 1);
  void *b = orlix_arraylist_getitem(list, 1);
  ASSERT_NE(a, nullptr);
  EXPECT_NE(a, stored);
  EXPECT_NE(a, b);
  EXPECT_EQ(*static_cast<int *>(a), 7);
  orlix_arraylist_freeitem(list, a);
  orlix_arraylist_freeitem(list, b);
  EXPECT_EQ(g_freed, (std::vector<int>{7, 7}));
  for (int32_t bad : {-1, 2, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(orlix_arraylist_getitem(list, bad), nullptr);
    EXPECT_EQ(orlix_arraylist_getitemref(list, bad), nullptr);
  }
  orlix_arraylist_free(list);

  // Without a free function, freeitem does nothing.
  ORLIX_ArrayList *plain = orlix_arraylist_new(CopyInt, nullptr);
  orlix_arraylist_freeitem(plain, &g_values[1]);
  orlix_arraylist_free(plain);
  EXPECT_EQ(g_freed.size(), 4u);
}

TEST_F(ArrayList, DeleteFreesAndShifts) {
  ORLIX_ArrayList *list = orlix_arraylist_new(nullptr, RecordOnly);
  for (int i = 0; i < 16; ++i) orlix_arraylist_pushback(list, &g_values[i]);
  EXPECT_EQ(orlix_arraylist_delete(list, 16), 0);
  EXPECT_EQ(orlix_arraylist_delete(list, -1), 0);
  EXPECT_TRUE(g_freed.empty());
  ASSERT_EQ(orlix_arraylist_delete(list, 3), 1);   // from a full list
  ASSERT_EQ(orlix_arraylist_delete(list, 14), 1);  // the last item
  ASSERT_EQ(orlix_arraylist_delete(list, 0), 1);
  EXPECT_EQ(g_freed, (std::vector<int>{3, 15, 0}));
  EXPECT_EQ(Values(list), (std::vector<int>{1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
  EXPECT_EQ(Layout(list).capacity, 16);
  ExpectTailClear(list);
  while (orlix_arraylist_count(list) > 0) ASSERT_EQ(orlix_arraylist_delete(list, 0), 1);
  ExpectTailClear(list);
  EXPECT_EQ(orlix_arraylist_delete(list, 0), 0);
  g_freed.clear();
  orlix_arraylist_free(list);
  EXPECT_TRUE(g_freed.empty());
}

int CompareSlots(const void *a, const void *b) {
  const int x = **static_cast<int *const *>(a), y = **static_cast<int *const *>(b);
  return x < y ? -1 : x > y;
}

TEST_F(ArrayList, SortOrdersItems) {
  ORLIX_ArrayList *list = orlix_arraylist_new(nullptr, nullptr);
  iorlix_arraylist_sort(list, CompareSlots);  // empty
  std::mt19937 rng(3);
  std::vector<int> want;
  for (int i = 0; i < 50; ++i) {
    const int v = int(rng() % 100);
    want.push_back(v);
    orlix_arraylist_pushback(list, &g_values[v]);
  }
  iorlix_arraylist_sort(list, CompareSlots);
  std::sort(want.begin(), want.end());
  EXPECT_EQ(Values(list), want);
  ExpectTailClear(list);
  orlix_arraylist_free(list);
}

}  // namespace
