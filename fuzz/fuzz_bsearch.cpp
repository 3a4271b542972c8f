// orlix_bsearch against std::lower_bound over sorted arrays with many
// duplicates, in two element layouts: plain 32-bit integers, and 11-byte
// records whose key sits at an unaligned offset. The comparator checks that
// it is only ever handed the key and whole elements of the array, and the
// number of comparisons stays logarithmic.
//
// Input: [key count] [keys...] [element values...]
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "ORLIX_Util.h"
#include "fuzz_util.hpp"

namespace {

constexpr int64_t kRecordSize = 11;
constexpr size_t kKeyOffset = 3;

// What the comparator may be called with in the current search.
struct Search {
  const void *key;
  const unsigned char *base;
  int64_t count;
  int64_t element_size;
  int64_t calls;
};
Search g_search;

int32_t ElementKey(const void *element) {
  const auto *p = static_cast<const unsigned char *>(element);
  const int64_t offset = p - g_search.base;
  FUZZ_CHECK(offset >= 0 && offset % g_search.element_size == 0 &&
                 offset / g_search.element_size < g_search.count,
             "compared with something that is not an element (offset %lld)", (long long)offset);
  int32_t v;
  std::memcpy(&v, p + (g_search.element_size == kRecordSize ? kKeyOffset : 0), sizeof v);
  return v;
}

int Compare(const void *key, const void *element) {
  FUZZ_CHECK(key == g_search.key, "the comparator was not given the key first");
  ++g_search.calls;
  int32_t k;
  std::memcpy(&k, key, sizeof k);
  const int32_t e = ElementKey(element);
  return k < e ? -1 : k > e ? 1 : 0;
}

void CheckSearch(const std::vector<int32_t> &values, const unsigned char *base,
                 int64_t element_size, int32_t key) {
  const auto count = static_cast<int64_t>(values.size());
  g_search = Search{&key, base, count, element_size, 0};
  int64_t position = -7;
  const int found = orlix_bsearch(&key, base, count, element_size, Compare, &position);
  const auto it = std::lower_bound(values.begin(), values.end(), key);
  const int64_t expected = it - values.begin();
  const int expected_found = it != values.end() && *it == key ? 1 : 0;
  if (count == 0) {
    FUZZ_CHECK(found == 0 && position == -1);
    return;
  }
  FUZZ_CHECK(found == expected_found && position == expected,
             "key %d in %lld elements: %d at %lld, expected %d at %lld", key, (long long)count,
             found, (long long)position, expected_found, (long long)expected);
  const double bound = 3 * std::ceil(std::log2(static_cast<double>(count) + 1)) + 6;
  FUZZ_CHECK(static_cast<double>(g_search.calls) <= bound, "%lld comparisons for %lld elements",
             (long long)g_search.calls, (long long)count);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  std::vector<int32_t> keys(in.u8() % 8);
  for (auto &k : keys) k = static_cast<int8_t>(in.u8());
  // Small values from a narrow range: long runs of equal elements.
  std::vector<int32_t> values;
  while (!in.empty()) values.push_back(static_cast<int8_t>(in.u8()) / 8);
  std::sort(values.begin(), values.end());
  if (!values.empty()) {
    keys.push_back(values.front());
    keys.push_back(values.back());
    keys.push_back(values[values.size() / 2]);
    keys.push_back(values.front() - 1);
    keys.push_back(values.back() + 1);
  }
  keys.push_back(0);

  std::vector<unsigned char> records(values.size() * kRecordSize + 1, 0xA5);
  for (size_t i = 0; i < values.size(); ++i)
    std::memcpy(&records[i * kRecordSize + kKeyOffset], &values[i], sizeof values[i]);

  // A non-empty placeholder keeps the base pointer valid for an empty array.
  static const int32_t kPlaceholder = 0;
  const auto *ints = values.empty() ? reinterpret_cast<const unsigned char *>(&kPlaceholder)
                                    : reinterpret_cast<const unsigned char *>(values.data());
  for (const int32_t key : keys) {
    CheckSearch(values, ints, sizeof(int32_t), key);
    CheckSearch(values, records.data(), kRecordSize, key);
  }

  // Bad arguments leave the position alone; a negative count is empty.
  int64_t position = 42;
  const int32_t key = keys.front();
  FUZZ_CHECK(orlix_bsearch(&key, ints, 1, 0, Compare, &position) == 0 && position == 42);
  FUZZ_CHECK(orlix_bsearch(&key, ints, 1, 4, nullptr, &position) == 0 && position == 42);
  FUZZ_CHECK(orlix_bsearch(&key, ints, -3, 4, Compare, &position) == 0 && position == -1);
  return 0;
}
