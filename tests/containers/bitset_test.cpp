// Bit sets: construction from bytes, growth, the shrink rule of clear, and
// the byte form with its unused-bit count.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "ORLIX_BitSet.h"
#include "owned.hpp"

namespace {

// The record's field order is part of the interface; reading it lets the
// tests check the capacity.
struct SetLayout {
  unsigned char *bytes;
  int64_t bit_count;
  uint64_t capacity;
};
uint64_t Capacity(const ORLIX_BitSet *set) {
  return reinterpret_cast<const SetLayout *>(set)->capacity;
}

using Bytes = std::vector<unsigned char>;

// The byte form and unused count; checks they round-trip through new().
Bytes Data(const ORLIX_BitSet *set, uint32_t *unused_out = nullptr) {
  uint32_t unused = 99;
  ORLIX_DataBlob *blob = orlix_bitset_getdata(set, &unused);
  EXPECT_NE(blob, nullptr);
  if (blob == nullptr) return {};
  Bytes out(blob->data, blob->data + blob->length);
  orlix_data_blob_free(blob);
  EXPECT_EQ(unused, uint32_t((8 - orlix_bitset_getbitcount(set) % 8) % 8));
  if (unused_out != nullptr) *unused_out = unused;
  return out;
}

using SetPtr = orlix_test::SetPtr;

TEST(BitSet, EmptyAndSetGrowth) {
  SetPtr set(orlix_bitset_empty());
  ASSERT_NE(set, nullptr);
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 0);
  EXPECT_EQ(Capacity(set.get()), 4u);
  uint32_t unused = 99;
  EXPECT_EQ(Data(set.get(), &unused), Bytes{});
  EXPECT_EQ(unused, 0u);

  ASSERT_EQ(orlix_bitset_set(set.get(), 0), 1);
  EXPECT_EQ(Data(set.get()), Bytes{0x80});
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 1);
  ASSERT_EQ(orlix_bitset_set(set.get(), 31), 1);  // still inside the first 4 bytes
  EXPECT_EQ(Capacity(set.get()), 4u);
  ASSERT_EQ(orlix_bitset_set(set.get(), 40), 1);
  EXPECT_EQ(Capacity(set.get()), 9u);
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 41);
  EXPECT_EQ(Data(set.get(), &unused), (Bytes{0x80, 0, 0, 0x01, 0, 0x80}));
  EXPECT_EQ(unused, 7u);
  ASSERT_EQ(orlix_bitset_set(set.get(), 5), 1);  // below the count: count stays
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 41);

  EXPECT_EQ(orlix_bitset_set(set.get(), -1), 0);
  EXPECT_EQ(orlix_bitset_set(nullptr, 0), 0);
  EXPECT_EQ(orlix_bitset_isset(set.get(), 41), 0);  // at the bit count
  EXPECT_EQ(orlix_bitset_isset(set.get(), 40), 1);
  EXPECT_EQ(orlix_bitset_isset(set.get(), -1), 0);
  EXPECT_EQ(orlix_bitset_isset(nullptr, 0), 0);
  EXPECT_EQ(orlix_bitset_getbitcount(nullptr), -1);
  EXPECT_EQ(orlix_bitset_getdata(nullptr, &unused), nullptr);
  EXPECT_EQ(orlix_bitset_getdata(set.get(), nullptr), nullptr);
  EXPECT_EQ(orlix_bitset_dup(nullptr), nullptr);
  EXPECT_EQ(orlix_bitset_clear(nullptr, 0), 0);
  EXPECT_EQ(orlix_bitset_clear(set.get(), -1), 0);
  orlix_bitset_free(nullptr);
}

TEST(BitSet, NewFromBytes) {
  const unsigned char ff = 0xFF;
  SetPtr set(orlix_bitset_new(3, &ff, 1));
  ASSERT_NE(set, nullptr);
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 5);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(orlix_bitset_isset(set.get(), i), i < 5 ? 1 : 0) << i;
  uint32_t unused = 0;
  EXPECT_EQ(Data(set.get(), &unused), Bytes{0xF8});
  EXPECT_EQ(unused, 3u);
  EXPECT_EQ(ff, 0xFF);  // only the copy is masked

  SetPtr none(orlix_bitset_new(0, &ff, 0));
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(orlix_bitset_getbitcount(none.get()), 0);

  EXPECT_EQ(orlix_bitset_new(8, &ff, 1), nullptr);
  EXPECT_EQ(orlix_bitset_new(UINT32_MAX, &ff, 1), nullptr);
  EXPECT_EQ(orlix_bitset_new(0, nullptr, 1), nullptr);
  EXPECT_EQ(orlix_bitset_new(0, nullptr, 0), nullptr);
  EXPECT_EQ(orlix_bitset_new(1, &ff, 0), nullptr);  // would be a negative count
  EXPECT_EQ(orlix_bitset_new(0, &ff, 0x0FFFFFFFFFFFFFFFull), nullptr);
  EXPECT_EQ(orlix_bitset_new(0, &ff, UINT64_MAX), nullptr);
}

TEST(BitSet, ClearShrinksOnlyOnTheLastBit) {
  SetPtr set(orlix_bitset_empty());
  orlix_bitset_set(set.get(), 2);
  orlix_bitset_set(set.get(), 9);
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 10);
  ASSERT_EQ(orlix_bitset_clear(set.get(), 2), 1);
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 10);
  orlix_bitset_set(set.get(), 2);
  ASSERT_EQ(orlix_bitset_clear(set.get(), 9), 1);
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 3);
  ASSERT_EQ(orlix_bitset_clear(set.get(), 2), 1);
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 0);
  EXPECT_EQ(orlix_bitset_clear(set.get(), 50), 1);  // past the count: no change
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 0);

  // The scan walks down over zero bytes to the lowest set bit's successor
  // in the first non-zero byte: bits 3, 8, 10, 20 and 45.
  for (int bit : {3, 8, 10, 20, 45}) orlix_bitset_set(set.get(), bit);
  ASSERT_EQ(orlix_bitset_clear(set.get(), 45), 1);
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 21);
  ASSERT_EQ(orlix_bitset_clear(set.get(), 20), 1);
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 11);
  ASSERT_EQ(orlix_bitset_clear(set.get(), 10), 1);
  EXPECT_EQ(orlix_bitset_getbitcount(set.get()), 9);
  EXPECT_EQ(Data(set.get()), (Bytes{0x10, 0x80}));
}

// Random set/clear sequences against a plain model of the rules, with the
// byte form, a duplicate and a rebuild from bytes checked at the end.
TEST(BitSet, AgreesWithModel) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    std::mt19937 rng(seed);
    const uint64_t length = rng() % 12;
    const uint32_t unused = length == 0 ? 0 : rng() % 8;
    Bytes start(length);
    for (auto &b : start) b = static_cast<unsigned char>(rng());
    start.push_back(0);  // keeps data() valid when length is 0
    SetPtr set(orlix_bitset_new(unused, start.data(), length));
    start.pop_back();
    ASSERT_NE(set, nullptr);
    std::vector<bool> bits(160);
    int64_t count = int64_t(length * 8) - unused;
    for (int64_t i = 0; i < count; ++i) bits[size_t(i)] = (start[size_t(i / 8)] >> (7 - i % 8)) & 1;
    Bytes masked = start;
    if (length > 0) masked.back() &= static_cast<unsigned char>(0xFF << unused);
    uint32_t start_unused = 99;
    EXPECT_EQ(Data(set.get(), &start_unused), masked);
    EXPECT_EQ(start_unused, unused);

    for (int op = 0; op < 60; ++op) {
      const int64_t i = rng() % 150;
      if (rng() % 2 != 0) {
        ASSERT_EQ(orlix_bitset_set(set.get(), i), 1);
        bits[size_t(i)] = true;
        count = std::max(count, i + 1);
      } else {
        ASSERT_EQ(orlix_bitset_clear(set.get(), i), 1);
        if (i < count) {
          bits[size_t(i)] = false;
          if (i == count - 1)
            while (count > 0 && !bits[size_t(count - 1)]) --count;
        }
      }
      ASSERT_EQ(orlix_bitset_getbitcount(set.get()), count) << "seed " << seed << " op " << op;
    }
    Bytes want(size_t((count + 7) / 8));
    for (int64_t i = 0; i < 160; ++i) {
      EXPECT_EQ(orlix_bitset_isset(set.get(), i), i < count && bits[size_t(i)] ? 1 : 0);
      if (i < count && bits[size_t(i)])
        want[size_t(i / 8)] |= static_cast<unsigned char>(0x80 >> (i % 8));
    }
    uint32_t out_unused = 0;
    const Bytes data = Data(set.get(), &out_unused);
    EXPECT_EQ(data, want) << "seed " << seed;

    SetPtr dup(orlix_bitset_dup(set.get()));
    ASSERT_NE(dup, nullptr);
    EXPECT_EQ(Capacity(dup.get()), want.size());
    EXPECT_EQ(orlix_bitset_getbitcount(dup.get()), count);
    EXPECT_EQ(Data(dup.get()), want);
    const unsigned char none = 0;  // data() of an empty vector may be NULL
    SetPtr rebuilt(orlix_bitset_new(out_unused, data.empty() ? &none : data.data(), data.size()));
    ASSERT_NE(rebuilt, nullptr);
    EXPECT_EQ(orlix_bitset_getbitcount(rebuilt.get()), count);
    // The duplicate is independent of its source.
    orlix_bitset_set(set.get(), 0);
    orlix_bitset_clear(set.get(), 1);
    EXPECT_EQ(Data(dup.get()), want);
  }
}

}  // namespace
