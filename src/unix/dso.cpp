// Shared objects loaded by a Unicode name.
#include <dlfcn.h>

#include <cstring>

#include "ORLIX_Thread.h"
#include "ORLIX_Util.h"
#include "core/memory.hpp"

namespace {

constexpr const char kModule[] = "unix/dso";
constexpr int64_t kSuffixRoom = 20;

// The locale's charset, or a copy of "UTF-8" when the locale names none.
char *load_charset() {
  char *charset = orlix_ustring_getdefaultcharset();
  if (charset != nullptr) return charset;
  auto *fallback = orlix::alloc_array<char>(6, kModule, __LINE__);
  if (fallback != nullptr) std::memcpy(fallback, "UTF-8", 6);
  return fallback;
}

}  // namespace

extern "C" {

ORLIX_Dso *orlix_dso_load(const ORLIX_UString *name) {
  if (name == nullptr) return nullptr;
  char *bytes = nullptr;
  int64_t length = 0;
  {
    orlix::Owned<char> charset(load_charset());
    if (!charset || orlix_ustring_tombs(name, charset.get(), &bytes, &length) != 1) return nullptr;
  }
  orlix::Owned<char> path(bytes);
  if (void *handle = dlopen(path.get(), RTLD_NOW); handle != nullptr)
    return static_cast<ORLIX_Dso *>(handle);
  // Exactly one more try, with the usual suffix.
  orlix::Owned<char> with_suffix(orlix::alloc_array<char>(length + kSuffixRoom, kModule, __LINE__));
  if (!with_suffix) return nullptr;
  std::memcpy(with_suffix.get(), path.get(), static_cast<size_t>(length));
  std::memcpy(with_suffix.get() + length, ".so", 4);
  return static_cast<ORLIX_Dso *>(dlopen(with_suffix.get(), RTLD_NOW));
}

void *orlix_dso_getfunction(ORLIX_Dso *dso, const char *symbol) {
  if (dso == nullptr || symbol == nullptr) return nullptr;
  return dlsym(dso, symbol);
}

void orlix_dso_free(ORLIX_Dso *dso) {
  if (dso != nullptr) dlclose(dso);
}

}  // extern "C"
