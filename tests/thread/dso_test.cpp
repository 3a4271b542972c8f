// Loading a shared object built alongside this suite, by its full path and
// by the path without its ".so" suffix.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include "ORLIX_Thread.h"
#include "ORLIX_UString.h"

namespace {

namespace fs = std::filesystem;
using AnswerFn = int (*)(int);

const std::string kPlugin = ORLIX_TEST_PLUGIN;

ORLIX_Dso *Load(const std::string &name) {
  ORLIX_UString *u = orlix_ustring_newutf8(name.data(), static_cast<int64_t>(name.size()));
  EXPECT_NE(u, nullptr);
  ORLIX_Dso *dso = orlix_dso_load(u);
  orlix_ustring_free(u);
  return dso;
}

int CallAnswer(ORLIX_Dso *dso, int x) {
  auto fn = reinterpret_cast<AnswerFn>(orlix_dso_getfunction(dso, "orlix_test_plugin_answer"));
  EXPECT_NE(fn, nullptr);
  return fn != nullptr ? fn(x) : -1;
}

// A private directory, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (fs::temp_directory_path() / "orlix_dso_XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~TempDir() {
    std::error_code ec;
    if (!path_.empty()) fs::remove_all(path_, ec);
  }
  const fs::path &path() const { return path_; }

 private:
  fs::path path_;
};

TEST(Dso, LoadsByFullPathAndFindsTheFunction) {
  ORLIX_Dso *dso = Load(kPlugin);
  ASSERT_NE(dso, nullptr);
  EXPECT_EQ(CallAnswer(dso, 20), 41);
  EXPECT_EQ(orlix_dso_getfunction(dso, "no_such_symbol_in_the_plugin"), nullptr);
  EXPECT_EQ(orlix_dso_getfunction(dso, nullptr), nullptr);
  orlix_dso_free(dso);
}

TEST(Dso, RetriesOnceWithSuffix) {
  ASSERT_EQ(kPlugin.substr(kPlugin.size() - 3), ".so");
  const std::string bare = kPlugin.substr(0, kPlugin.size() - 3);
  ASSERT_FALSE(fs::exists(bare));
  ORLIX_Dso *dso = Load(bare);
  ASSERT_NE(dso, nullptr);
  EXPECT_EQ(CallAnswer(dso, 1), 3);
  orlix_dso_free(dso);
}

TEST(Dso, NoOtherNameIsTried) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  // Only "<name>.so.so" and "lib<name>.so" exist: neither is one of the two
  // names tried.
  fs::copy_file(kPlugin, dir.path() / "twice.so.so");
  fs::copy_file(kPlugin, dir.path() / "libprefixed.so");
  EXPECT_EQ(Load((dir.path() / "twice").string()), nullptr);
  EXPECT_EQ(Load((dir.path() / "prefixed").string()), nullptr);
  // The same files under names that are tried do load.
  ORLIX_Dso *dso = Load((dir.path() / "twice.so").string());
  ASSERT_NE(dso, nullptr) << "the retry appends \".so\" to the name";
  EXPECT_EQ(CallAnswer(dso, 5), 11);
  orlix_dso_free(dso);
}

TEST(Dso, MissingNameFailsBothWays) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  EXPECT_EQ(Load((dir.path() / "missing").string()), nullptr);
  EXPECT_EQ(Load((dir.path() / "missing.so").string()), nullptr);
}

TEST(Dso, NotASharedObjectFails) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const fs::path text = dir.path() / "text.so";
  FILE *f = std::fopen(text.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fputs("not an object file\n", f);
  std::fclose(f);
  EXPECT_EQ(Load(text.string()), nullptr);
  EXPECT_EQ(Load((dir.path() / "text").string()), nullptr);
}

TEST(Dso, NullArguments) {
  EXPECT_EQ(orlix_dso_load(nullptr), nullptr);
  EXPECT_EQ(orlix_dso_getfunction(nullptr, "x"), nullptr);
  orlix_dso_free(nullptr);
}

TEST(Dso, LoadingTwiceGivesIndependentlyClosableHandles) {
  ORLIX_Dso *a = Load(kPlugin);
  ORLIX_Dso *b = Load(kPlugin);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  orlix_dso_free(a);
  EXPECT_EQ(CallAnswer(b, 0), 1) << "still loaded while one handle remains";
  orlix_dso_free(b);
}

}  // namespace
