// The version text, the load-time nesting limit, data blobs and the binary
// search (fuzz_bsearch compares it with std::lower_bound).
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ORLIX_Util.h"

namespace {

TEST(Version, ExactText) {
  EXPECT_STREQ(orlix_util_version(), "ORLIX Utility Library 2.6,Build on 2019");
}

// Runs the probe program with ORLIX_RECURSIVE_LEVEL set to value (unset for
// NULL) and returns what it printed.
std::string ProbeLevel(const char *value) {
  int fds[2];
  if (pipe(fds) != 0) return "pipe failed";
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(fds[1], STDOUT_FILENO);
    close(fds[0]);
    close(fds[1]);
    if (value == nullptr) {
      unsetenv("ORLIX_RECURSIVE_LEVEL");
    } else {
      setenv("ORLIX_RECURSIVE_LEVEL", value, 1);
    }
    execl(ORLIX_LEVEL_PROBE, ORLIX_LEVEL_PROBE, static_cast<char *>(nullptr));
    _exit(127);
  }
  close(fds[1]);
  std::string out;
  char buf[64];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) out.append(buf, size_t(n));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "probe status " << status;
  return out;
}

TEST(RecursiveLevel, ReadFromEnvironmentAtLoad) {
  EXPECT_EQ(ProbeLevel(nullptr), "200\n");
  EXPECT_EQ(ProbeLevel("3"), "8\n");
  EXPECT_EQ(ProbeLevel("abc"), "8\n");
  EXPECT_EQ(ProbeLevel(""), "8\n");
  EXPECT_EQ(ProbeLevel("1000"), "1000\n");
  EXPECT_EQ(ProbeLevel("-5"), "8\n");
  EXPECT_EQ(ProbeLevel("8"), "8\n");
  EXPECT_EQ(ProbeLevel("  42"), "42\n");
  EXPECT_EQ(ProbeLevel("77xyz"), "77\n");
  EXPECT_EQ(ProbeLevel("010"), "10\n");  // decimal, not octal
  // The long is cut to 32 bits: 2^32 + 100 reads as 100.
  EXPECT_EQ(ProbeLevel("4294967396"), "100\n");
}

TEST(DataBlob, CopiesAndRefuses) {
  unsigned char bytes[5] = {1, 2, 3, 0, 255};
  ORLIX_DataBlob *blob = orlix_data_blob_new(bytes, 5);
  ASSERT_NE(blob, nullptr);
  ASSERT_NE(blob->data, bytes);
  bytes[0] = 9;
  EXPECT_EQ(blob->length, 5);
  EXPECT_EQ(std::memcmp(blob->data, "\x01\x02\x03\x00\xff", 5), 0);
  orlix_data_blob_free(blob);

  ORLIX_DataBlob *one = orlix_data_blob_new("z", 1);
  ASSERT_NE(one, nullptr);
  EXPECT_EQ(one->length, 1);
  EXPECT_EQ(one->data[0], 'z');
  orlix_data_blob_free(one);

  ORLIX_DataBlob *empty = orlix_data_blob_new(bytes, 0);
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->length, 0);
  orlix_data_blob_free(empty);

  EXPECT_EQ(orlix_data_blob_new(nullptr, 0), nullptr);
  EXPECT_EQ(orlix_data_blob_new(nullptr, 3), nullptr);
  EXPECT_EQ(orlix_data_blob_new(bytes, -1), nullptr);
  orlix_data_blob_free(nullptr);
}

int compare_calls = 0;

int CompareInt(const void *key, const void *element) {
  ++compare_calls;
  const int a = *static_cast<const int *>(key), b = *static_cast<const int *>(element);
  return a < b ? -1 : a > b ? 1 : 0;
}

struct Found {
  int result;
  int64_t position;
  bool operator==(const Found &) const = default;
};

void PrintTo(const Found &f, std::ostream *os) {
  *os << "{result " << f.result << ", position " << f.position << "}";
}

// An empty vector's data() may be NULL, which the search refuses outright;
// point at a dummy element instead so that only the count is zero.
Found Search(const std::vector<int> &v, int key) {
  static const int dummy = 0;
  Found f{-7, -7};
  f.result = orlix_bsearch(&key, v.empty() ? &dummy : v.data(), int64_t(v.size()), sizeof(int),
                           CompareInt, &f.position);
  return f;
}

TEST(BinarySearch, DocumentedCases) {
  const std::vector<int> v = {1, 3, 5, 5, 5, 7};
  EXPECT_EQ(Search(v, 5), (Found{1, 2}));
  EXPECT_EQ(Search(v, 4), (Found{0, 2}));
  EXPECT_EQ(Search(v, 9), (Found{0, 6}));
  EXPECT_EQ(Search(v, 0), (Found{0, 0}));
  EXPECT_EQ(Search(v, 7), (Found{1, 5}));
  EXPECT_EQ(Search({4}, 4), (Found{1, 0}));
  EXPECT_EQ(Search({4}, 3), (Found{0, 0}));
  EXPECT_EQ(Search({4}, 5), (Found{0, 1}));

  const int key = 1, one = 1;
  int64_t pos = 12345;
  EXPECT_EQ(orlix_bsearch(&key, &one, 0, sizeof(int), CompareInt, &pos), 0);
  EXPECT_EQ(pos, -1);
  pos = 12345;
  EXPECT_EQ(orlix_bsearch(&key, &one, -3, sizeof(int), CompareInt, &pos), 0);
  EXPECT_EQ(pos, -1);
}

TEST(BinarySearch, BadArgumentsWriteNothing) {
  const int key = 1, one = 1;
  int64_t pos = 12345;
  compare_calls = 0;
  EXPECT_EQ(orlix_bsearch(nullptr, &one, 1, sizeof(int), CompareInt, &pos), 0);
  EXPECT_EQ(orlix_bsearch(&key, nullptr, 1, sizeof(int), CompareInt, &pos), 0);
  EXPECT_EQ(orlix_bsearch(&key, &one, 1, sizeof(int), nullptr, &pos), 0);
  EXPECT_EQ(orlix_bsearch(&key, &one, 1, 0, CompareInt, &pos), 0);
  EXPECT_EQ(orlix_bsearch(&key, &one, 1, -4, CompareInt, &pos), 0);
  EXPECT_EQ(orlix_bsearch(&key, &one, 0, 0, CompareInt, &pos), 0);  // size checked before count
  EXPECT_EQ(pos, 12345);
  EXPECT_EQ(orlix_bsearch(&key, &one, 1, sizeof(int), CompareInt, nullptr), 0);
  EXPECT_EQ(compare_calls, 0);
}

}  // namespace
