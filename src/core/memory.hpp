// RAII helpers over orlix_malloc/orlix_free. Library code never allocates
// through the standard containers; these keep ownership explicit instead.
#pragma once

#include <cassert>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "ORLIX_Util.h"

namespace orlix {

struct FreeDeleter {
  void operator()(void *p) const noexcept { orlix_free(p); }
};

// An owning pointer to a block from orlix_malloc.
template <class T>
using Owned = std::unique_ptr<T, FreeDeleter>;

// Allocates an uninitialised array of n elements of T through the hooks.
// NULL, without a request, when n is negative or n elements do not fit a
// request's size.
template <class T>
inline T *alloc_array(int64_t n, const char *module, int line) {
  constexpr auto kSize = static_cast<int64_t>(sizeof(T));
  if (n < 0 || n > INT64_MAX / kSize) return nullptr;
  return static_cast<T *>(orlix_malloc(n * kSize, module, line));
}

// Allocates an uninitialised T (a plain record) through the hooks.
template <class T>
inline T *alloc_record(const char *module, int line) {
  return alloc_array<T>(1, module, line);
}

// Allocates an uninitialised T followed by `tail` bytes in one block.
template <class T>
inline T *alloc_with_tail(int64_t tail, const char *module, int line) {
  constexpr auto kSize = static_cast<int64_t>(sizeof(T));
  if (tail < 0 || tail > INT64_MAX - kSize) return nullptr;
  return static_cast<T *>(orlix_malloc(kSize + tail, module, line));
}

// Allocates n bytes through the hooks.
inline unsigned char *alloc_bytes(int64_t n, const char *module, int line) {
  return alloc_array<unsigned char>(n, module, line);
}

// Rounds n up to a multiple of 8 (capacities of growable buffers).
// Computed unsigned so that a size near INT64_MAX wraps to a negative
// request, which orlix_malloc refuses, instead of overflowing.
constexpr int64_t round_up8(int64_t n) {
  return static_cast<int64_t>((static_cast<uint64_t>(n) + 7u) & ~uint64_t{7});
}

// A growable array of trivially copyable T with N elements of inline
// storage; larger sizes move to blocks from orlix_malloc. Growth failures are
// reported by push/reserve returning false, never by exceptions.
template <class T, int64_t N>
class SmallBuffer {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  SmallBuffer(const char *module) : module_(module) {}
  ~SmallBuffer() {
    if (data_ != inline_) orlix_free(data_);
  }
  SmallBuffer(const SmallBuffer &) = delete;
  SmallBuffer &operator=(const SmallBuffer &) = delete;

  T *data() { return data_; }
  int64_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T &back() {
    assert(size_ > 0);
    return data_[size_ - 1];
  }
  T &operator[](int64_t i) {
    assert(i >= 0 && i < size_);
    return data_[i];
  }
  void pop_back() {
    assert(size_ > 0);
    --size_;
  }
  void clear() { size_ = 0; }

  // Makes room for at least n elements in all.
  bool reserve(int64_t n) {
    if (n <= capacity_) return true;
    int64_t capacity = capacity_ * 2;
    if (capacity < n) capacity = n;
    auto *bigger = alloc_array<T>(capacity, module_, __LINE__);
    if (bigger == nullptr) return false;
    if (size_ > 0) std::memcpy(bigger, data_, static_cast<size_t>(size_) * sizeof(T));
    if (data_ != inline_) orlix_free(data_);
    data_ = bigger;
    capacity_ = capacity;
    return true;
  }
  bool push_back(const T &v) {
    if (size_ == capacity_ && !reserve(size_ + 1)) return false;
    assert(size_ < capacity_);
    data_[size_++] = v;
    return true;
  }
  // Sets the size to n (growing as needed); new elements are uninitialised.
  bool resize(int64_t n) {
    if (!reserve(n)) return false;
    size_ = n;
    return true;
  }

 private:
  const char *module_;
  T inline_[N];
  T *data_ = inline_;
  int64_t size_ = 0;
  int64_t capacity_ = N;
};

}  // namespace orlix
