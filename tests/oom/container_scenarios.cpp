// Array lists, bit sets and the blobs they hand out.
#include <algorithm>
#include <cstring>
#include <vector>

#include "ORLIX_ArrayList.h"
#include "ORLIX_BitSet.h"
#include "ORLIX_Util.h"
#include "scenario_util.hpp"
#include "sweep.hpp"

namespace {

struct Item {
  int value;
};

// The list's copies come from the library's allocator, so that making one can
// fail like any other allocation.
void *CopyItem(void *item) {
  auto *copy = static_cast<Item *>(orlix_malloc(sizeof(Item), "oom_item", __LINE__));
  if (copy != nullptr) *copy = *static_cast<const Item *>(item);
  return copy;
}

void FreeItem(void *item) { orlix_free(item); }

// The list holds exactly the model's values, in order.
void ExpectList(ORLIX_ArrayList *list, const std::vector<int> &model) {
  ASSERT_EQ(orlix_arraylist_count(list), model.size());
  for (size_t i = 0; i < model.size(); ++i) {
    const auto *item =
        static_cast<const Item *>(orlix_arraylist_getitemref(list, static_cast<int32_t>(i)));
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->value, model[i]) << "at index " << i;
  }
  // Slots past the items stay empty.
  EXPECT_EQ(orlix_arraylist_getitemref(list, static_cast<int32_t>(model.size())), nullptr);
}

// Where insert puts an item: negative indices at the front, large ones at
// the end.
size_t InsertPosition(int32_t index, size_t count) {
  if (index < 0) return 0;
  return std::min(static_cast<size_t>(index), count);
}

// Exercises growth past 16 and 32 slots through pushback and insert; `copies`
// selects a list that copies its items (each copy an allocation of its own)
// or one that takes ownership of items the caller allocated.
bool ListScenario(bool copies) {
  ORLIX_ArrayList *list = orlix_arraylist_new(copies ? CopyItem : nullptr, FreeItem);
  if (list == nullptr) return false;
  std::vector<int> model;

  // Stores value at index (or at the back when index is INT32_MIN).
  auto store = [&](int value, int32_t index) {
    Item local{value};
    Item *item = &local;
    if (!copies) {
      item = static_cast<Item *>(orlix_malloc(sizeof(Item), "oom_item", __LINE__));
      if (item == nullptr) return false;
      *item = local;
    }
    const bool back = index == INT32_MIN;
    const int r =
        back ? orlix_arraylist_pushback(list, item) : orlix_arraylist_insert(list, index, item);
    if (r != 1) {
      EXPECT_EQ(r, 0);
      if (!copies) orlix_free(item);  // not taken: still the caller's
      return false;
    }
    model.insert(model.begin() + static_cast<ptrdiff_t>(back ? model.size()
                                                             : InsertPosition(index, model.size())),
                 value);
    return true;
  };

  bool ok = true;
  for (int i = 0; ok && i < 20; ++i) ok = store(i, INT32_MIN);
  for (int i = 0; ok && i < 20; ++i) {
    const int32_t index = (i * 7) % static_cast<int32_t>(model.size() + 3) - 1;
    ok = store(100 + i, i == 5 ? 1000 : index);
  }
  ExpectList(list, model);  // a failed store changed nothing
  if (ok && copies) {
    auto *copy = static_cast<Item *>(orlix_arraylist_getitem(list, 5));
    if (copy == nullptr) {
      ok = false;
    } else {
      EXPECT_NE(copy, orlix_arraylist_getitemref(list, 5));
      EXPECT_EQ(copy->value, model[5]);
      orlix_arraylist_freeitem(list, copy);
    }
  }
  if (ok) {
    EXPECT_EQ(orlix_arraylist_delete(list, 0), 1);
    model.erase(model.begin());
    EXPECT_EQ(orlix_arraylist_delete(list, static_cast<int32_t>(model.size() - 1)), 1);
    model.pop_back();
    ExpectList(list, model);
  }
  orlix_arraylist_free(list);
  return ok;
}

// Every bit below the count reads as in `bits`, nothing above it.
void ExpectBits(const ORLIX_BitSet *set, const std::vector<int64_t> &bits, int64_t count) {
  ASSERT_EQ(orlix_bitset_getbitcount(set), count);
  for (int64_t i = 0; i < count + 8; ++i)
    EXPECT_EQ(orlix_bitset_isset(set, i),
              std::find(bits.begin(), bits.end(), i) != bits.end() ? 1 : 0)
        << "bit " << i;
}

}  // namespace

ORLIX_OOM_SCENARIO(ArrayList, CopiedItems) { return ListScenario(true); }

ORLIX_OOM_SCENARIO(ArrayList, OwnedItems) { return ListScenario(false); }

ORLIX_OOM_SCENARIO(BitSet, GrowDupGetData) {
  ORLIX_BitSet *set = orlix_bitset_empty();
  if (set == nullptr) return false;
  std::vector<int64_t> bits;
  bool ok = true;
  for (int64_t bit : {0, 31, 100, 1000, 1001}) {
    if (orlix_bitset_set(set, bit) != 1) {
      ExpectBits(set, bits, bits.empty() ? 0 : bits.back() + 1);
      ok = false;
      break;
    }
    bits.push_back(bit);
  }
  ORLIX_BitSet *copy = ok ? orlix_bitset_dup(set) : nullptr;
  ok = ok && copy != nullptr;
  ORLIX_DataBlob *blob = nullptr;
  uint32_t unused = 99;
  if (ok) {
    ExpectBits(copy, bits, 1002);
    blob = orlix_bitset_getdata(copy, &unused);
    ok = blob != nullptr;
  }
  if (ok) {
    EXPECT_EQ(blob->length, 126);
    EXPECT_EQ(unused, 6u);
    EXPECT_EQ(blob->data[0], 0x80);
    EXPECT_EQ(blob->data[125], 0xC0);
  }
  orlix_data_blob_free(blob);
  orlix_bitset_free(copy);
  orlix_bitset_free(set);
  return ok;
}

ORLIX_OOM_SCENARIO(BitSet, FromBytes) {
  const unsigned char bytes[] = {0xA5, 0xFF, 0x3C};
  ORLIX_BitSet *set = orlix_bitset_new(2, bytes, sizeof bytes);
  if (set == nullptr) return false;
  EXPECT_EQ(orlix_bitset_getbitcount(set), 22);
  const int r = orlix_bitset_set(set, 40);  // beyond the 3 bytes: grows
  if (r != 1) {
    EXPECT_EQ(orlix_bitset_getbitcount(set), 22);
    EXPECT_EQ(orlix_bitset_isset(set, 0), 1);
    EXPECT_EQ(orlix_bitset_isset(set, 1), 0);
    EXPECT_EQ(orlix_bitset_isset(set, 21), 1);
  }
  orlix_bitset_free(set);
  return r == 1;
}
