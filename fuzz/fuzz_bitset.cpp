// Bit sets made from bytes with an unused-bit count, then changed by a
// script of set, clear and test operations, against a plain model (a vector
// of bits and the bit count rules: setting past the end extends the count,
// clearing the last bit shrinks it to the highest bit still set). After the
// script, getdata must give back the model's bytes, dup an equal set, and
// new(getdata) the same set again.
//
// Input: the unused-bit count, a byte count k, k bytes, then operations of 3
// bytes each (operation, index below 8192).
#include <vector>

#include "ORLIX_BitSet.h"
#include "ORLIX_Util.h"
#include "fuzz_util.hpp"

namespace {

struct Model {
  std::vector<bool> bits;  // bits[i] for i < count
  int64_t count = 0;

  bool get(int64_t i) const { return i >= 0 && i < count && bits[size_t(i)]; }
  void set(int64_t i) {
    if (i >= count) {
      bits.resize(size_t(i) + 1, false);
      count = i + 1;
    }
    bits[size_t(i)] = true;
  }
  void clear(int64_t i) {
    if (i >= count) return;
    bits[size_t(i)] = false;
    if (i != count - 1) return;
    while (count > 0 && !bits[size_t(count - 1)]) --count;
    bits.resize(size_t(count));
  }
  std::vector<unsigned char> bytes() const {
    std::vector<unsigned char> out(size_t((count + 7) / 8), 0);
    for (int64_t i = 0; i < count; ++i)
      if (bits[size_t(i)]) out[size_t(i / 8)] |= static_cast<unsigned char>(0x80 >> (i % 8));
    return out;
  }
};

void CheckSame(const ORLIX_BitSet *set, const Model &m) {
  FUZZ_CHECK(orlix_bitset_getbitcount(set) == m.count, "%lld vs %lld",
             static_cast<long long>(orlix_bitset_getbitcount(set)), static_cast<long long>(m.count));
  uint32_t unused = 99;
  ORLIX_DataBlob *blob = orlix_bitset_getdata(set, &unused);
  FUZZ_CHECK(blob != nullptr && unused == uint32_t((8 - m.count % 8) % 8));
  const std::vector<unsigned char> want = m.bytes();
  FUZZ_CHECK(blob->length == int64_t(want.size()) && fuzz::SameBytes(blob->data, want.data(), want.size()));
  // new(getdata) and dup both rebuild the same bits.
  static const unsigned char kNone = 0;  // a zero-length string still needs a pointer
  ORLIX_BitSet *again =
      orlix_bitset_new(unused, blob->length ? blob->data : &kNone, uint64_t(blob->length));
  ORLIX_BitSet *copy = orlix_bitset_dup(set);
  for (ORLIX_BitSet *other : {again, copy}) {
    FUZZ_CHECK(other != nullptr && orlix_bitset_getbitcount(other) == m.count);
    for (int64_t i = 0; i <= m.count; ++i) FUZZ_CHECK(orlix_bitset_isset(other, i) == int(m.get(i)));
  }
  orlix_bitset_free(again);
  orlix_bitset_free(copy);
  orlix_data_blob_free(blob);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  const uint32_t unused = in.u8() % 10;  // 8 and 9 must be refused
  const size_t k = in.u16() % 4096;
  std::vector<unsigned char> bytes;
  while (bytes.size() < k && !in.empty()) bytes.push_back(in.u8());

  static const unsigned char kNone = 0;
  ORLIX_BitSet *set = orlix_bitset_new(unused, bytes.empty() ? &kNone : bytes.data(), bytes.size());
  if (unused >= 8 || (bytes.empty() && unused != 0)) {
    FUZZ_CHECK(set == nullptr, "unused %u with %zu bytes", unused, bytes.size());
    return 0;
  }
  FUZZ_CHECK(set != nullptr);
  Model m;
  m.count = int64_t(bytes.size()) * 8 - unused;
  m.bits.resize(size_t(m.count));
  for (int64_t i = 0; i < m.count; ++i) m.bits[size_t(i)] = bytes[size_t(i / 8)] & (0x80 >> (i % 8));
  CheckSame(set, m);

  while (!in.empty()) {
    const uint8_t op = in.u8();
    const int64_t index = int64_t(in.u16() % 8192) - (op & 0x80 ? 8 : 0);  // a few negatives
    switch (op % 3) {
      case 0:
        FUZZ_CHECK(orlix_bitset_set(set, index) == (index >= 0));
        if (index >= 0) m.set(index);
        break;
      case 1:
        FUZZ_CHECK(orlix_bitset_clear(set, index) == (index >= 0));
        if (index >= 0) m.clear(index);
        break;
      default: FUZZ_CHECK(orlix_bitset_isset(set, index) == int(m.get(index))); break;
    }
  }
  CheckSame(set, m);
  orlix_bitset_free(set);
  return 0;
}
