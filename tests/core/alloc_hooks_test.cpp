// Allocation hooks. main() installs a counting pair before the library can
// allocate anything; the tests then watch every block the library takes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ORLIX_ArrayList.h"
#include "ORLIX_BitSet.h"
#include "ORLIX_Error.h"
#include "ORLIX_Util.h"

namespace {

struct Call {
  uint64_t size;
  const char *file;
  int32_t line;
  void *result;
};

std::vector<Call> g_mallocs;
std::vector<void *> g_frees;
long g_live = 0;
size_t g_fail_at = SIZE_MAX;  // the index of the one call to fail

void *CountingMalloc(uint64_t size, const char *file, int32_t line) {
  void *p = g_mallocs.size() == g_fail_at ? nullptr : std::malloc(size);
  g_mallocs.push_back({size, file, line, p});
  if (p != nullptr) ++g_live;
  return p;
}

void CountingFree(void *p) {
  g_frees.push_back(p);
  --g_live;
  std::free(p);
}

void *OtherMalloc(uint64_t, const char *, int32_t) { return nullptr; }
void OtherFree(void *) {}

// What main() saw before anything allocated.
struct Startup {
  ORLIX_MallocFunc default_malloc;
  ORLIX_FreeFunc default_free;
  int refused_without_free;
  int refused_without_malloc;
  void *negative;
  int installed;
} g_startup;

// Expect the calls made since `from` to come from module with these sizes.
void ExpectAllocs(size_t from, const char *module, const std::vector<uint64_t> &sizes) {
  ASSERT_EQ(g_mallocs.size() - from, sizes.size());
  for (size_t i = 0; i < sizes.size(); ++i) {
    EXPECT_EQ(g_mallocs[from + i].size, sizes[i]) << module << " call " << i;
    EXPECT_STREQ(g_mallocs[from + i].file, module);
    EXPECT_GT(g_mallocs[from + i].line, 0);
  }
}

TEST(AllocHooks, ConfigurableUntilFirstAllocation) {
  EXPECT_NE(g_startup.default_malloc, nullptr);
  EXPECT_NE(g_startup.default_free, nullptr);
  EXPECT_NE(g_startup.default_malloc, &CountingMalloc);
  EXPECT_EQ(g_startup.refused_without_free, 0);
  EXPECT_EQ(g_startup.refused_without_malloc, 0);
  EXPECT_EQ(g_startup.negative, nullptr);
  // orlix_malloc(-1) neither called a hook nor fixed the hooks.
  EXPECT_EQ(g_startup.installed, 1);
  EXPECT_EQ(orlix_getmallocfunc(), &CountingMalloc);
  EXPECT_EQ(orlix_getfreefunc(), &CountingFree);
}

TEST(AllocHooks, CallsPassThrough) {
  static const char kFile[] = "caller_module";
  const size_t from = g_mallocs.size();
  void *zero = orlix_malloc(0, kFile, 77);
  void *some = orlix_malloc(24, kFile, 78);
  ASSERT_EQ(g_mallocs.size(), from + 2);
  EXPECT_EQ(g_mallocs[from].size, 0u);
  EXPECT_EQ(g_mallocs[from].file, kFile);  // the pointer itself, not a copy
  EXPECT_EQ(g_mallocs[from].line, 77);
  EXPECT_EQ(zero, g_mallocs[from].result);
  EXPECT_EQ(g_mallocs[from + 1].size, 24u);
  EXPECT_EQ(some, g_mallocs[from + 1].result);

  EXPECT_EQ(orlix_malloc(-1, kFile, 79), nullptr);
  EXPECT_EQ(orlix_malloc(INT64_MIN, kFile, 80), nullptr);
  EXPECT_EQ(g_mallocs.size(), from + 2);

  const size_t freed = g_frees.size();
  orlix_free(nullptr);
  EXPECT_EQ(g_frees.size(), freed);
  orlix_free(zero);
  orlix_free(some);
  ASSERT_EQ(g_frees.size(), freed + 2);
  EXPECT_EQ(g_frees[freed], zero);
  EXPECT_EQ(g_frees[freed + 1], some);
}

TEST(AllocHooks, FixedOnceAllocated) {
  orlix_free(orlix_malloc(1, "t", 1));
  EXPECT_EQ(orlix_setallocfunc(OtherMalloc, OtherFree), 0);
  EXPECT_EQ(orlix_getmallocfunc(), &CountingMalloc);
  EXPECT_EQ(orlix_getfreefunc(), &CountingFree);
}

TEST(AllocHooks, LibraryBlocksCarryModuleAndSize) {
  const long live = g_live;
  size_t from = g_mallocs.size();
  ORLIX_ErrCtx *ctx = orlix_err_ctx_new();
  ExpectAllocs(from, "ORLIX_Error", {sizeof(ORLIX_ErrCtx)});
  orlix_err_ctx_free(ctx);

  // The first 16 slots share the record's block; growth doubles them into
  // blocks of their own.
  from = g_mallocs.size();
  ORLIX_ArrayList *list = orlix_arraylist_new(nullptr, nullptr);
  static int item;
  for (int i = 0; i < 33; ++i) ASSERT_EQ(orlix_arraylist_pushback(list, &item), 1);
  ExpectAllocs(from, "ORLIX_ArrayList", {g_mallocs[from].size, 32 * 8, 64 * 8});
  EXPECT_GE(g_mallocs[from].size, 16 * 8u);
  orlix_arraylist_free(list);

  // A bit set grows to index / 8 + 4 bytes when the bit lies past its array.
  from = g_mallocs.size();
  ORLIX_BitSet *set = orlix_bitset_empty();
  ASSERT_EQ(orlix_bitset_set(set, 31), 1);
  ASSERT_EQ(orlix_bitset_set(set, 40), 1);
  ASSERT_EQ(orlix_bitset_set(set, 71), 1);
  ASSERT_EQ(orlix_bitset_set(set, 72), 1);
  ExpectAllocs(from, "ORLIX_BitSet", {g_mallocs[from].size, 4, 9, 13});
  from = g_mallocs.size();
  ORLIX_BitSet *dup = orlix_bitset_dup(set);
  ExpectAllocs(from, "ORLIX_BitSet", {g_mallocs[from].size, 10});
  orlix_bitset_free(dup);
  orlix_bitset_free(set);

  from = g_mallocs.size();
  ORLIX_DataBlob *blob = orlix_data_blob_new("", 0);
  ExpectAllocs(from, "ORLIX_Util", {sizeof(ORLIX_DataBlob), 0});
  orlix_data_blob_free(blob);
  EXPECT_EQ(g_live, live);
}

TEST(AllocHooks, FailedAllocationsLeaveNoBlockAndNoChange) {
  const long live = g_live;
  g_fail_at = g_mallocs.size();  // an array list is one block
  EXPECT_EQ(orlix_arraylist_new(nullptr, nullptr), nullptr);
  g_fail_at = g_mallocs.size() + 1;  // the second block of the other constructors
  EXPECT_EQ(orlix_bitset_empty(), nullptr);
  g_fail_at = g_mallocs.size() + 1;
  EXPECT_EQ(orlix_bitset_new(0, reinterpret_cast<const unsigned char *>("ab"), 2), nullptr);
  g_fail_at = g_mallocs.size() + 1;
  EXPECT_EQ(orlix_data_blob_new("ab", 2), nullptr);
  g_fail_at = g_mallocs.size();
  EXPECT_EQ(orlix_err_ctx_new(), nullptr);
  EXPECT_EQ(g_live, live);

  ORLIX_ArrayList *list = orlix_arraylist_new(nullptr, nullptr);
  static int items[17];
  for (int i = 0; i < 16; ++i) ASSERT_EQ(orlix_arraylist_pushback(list, &items[i]), 1);
  g_fail_at = g_mallocs.size();
  EXPECT_EQ(orlix_arraylist_pushback(list, &items[16]), 0);
  g_fail_at = g_mallocs.size();
  EXPECT_EQ(orlix_arraylist_insert(list, 0, &items[16]), 0);
  ASSERT_EQ(orlix_arraylist_count(list), 16u);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(orlix_arraylist_getitemref(list, i), &items[i]);
  EXPECT_EQ(orlix_arraylist_pushback(list, &items[16]), 1);
  orlix_arraylist_free(list);

  ORLIX_BitSet *set = orlix_bitset_empty();
  ASSERT_EQ(orlix_bitset_set(set, 3), 1);
  g_fail_at = g_mallocs.size();
  EXPECT_EQ(orlix_bitset_set(set, 100), 0);
  EXPECT_EQ(orlix_bitset_getbitcount(set), 4);
  EXPECT_EQ(orlix_bitset_isset(set, 3), 1);
  orlix_bitset_free(set);
  g_fail_at = SIZE_MAX;
  EXPECT_EQ(g_live, live);
}

}  // namespace

int main(int argc, char **argv) {
  // Nothing may reach orlix_malloc before this block.
  g_startup.default_malloc = orlix_getmallocfunc();
  g_startup.default_free = orlix_getfreefunc();
  g_startup.refused_without_free = orlix_setallocfunc(CountingMalloc, nullptr);
  g_startup.refused_without_malloc = orlix_setallocfunc(nullptr, CountingFree);
  g_startup.negative = orlix_malloc(-1, "main", __LINE__);
  g_startup.installed = orlix_setallocfunc(CountingMalloc, CountingFree);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
