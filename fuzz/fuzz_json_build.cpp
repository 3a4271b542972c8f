// Trees built through the interface by a program over eight slots:
// constructors (strings of arbitrary bytes, numbers of arbitrary bits), the
// object and array mutators with names from a small set (so that names
// repeat), copies and encodings in any layout, with the sort. After every
// step the interface must agree with itself: a lookup finds the value last
// added under a name, counts move by one, a copy compares and encodes equal,
// a sort keeps the members and stays in place, and every encoding without
// inf or nan decodes back to the same compact text.
//
// Input: a sequence of [operation] [slot] [slot] [operands...] bytes.
#include <cstring>
#include <optional>
#include <string>

#include "fuzz_util.hpp"
#include "json/ORLIX_JSON.hpp"

namespace {

constexpr int kSlots = 8;

std::optional<std::string> Encode(ORLIX_JSON *tree, uint32_t flags = 0) {
  char *text = nullptr;
  uint32_t length = 0;
  if (orlix_json_encode(tree, flags, &text, &length) != 1) return std::nullopt;
  std::string out(text, length);
  orlix_free(text);
  return out;
}

int Compare(const ORLIX_JSON *a, const ORLIX_JSON *b) {
  orlix::json::Comparer comparer;
  FUZZ_CHECK(comparer.prepare(a));
  return comparer.values(a, b);
}

int CountMembers(ORLIX_JSON *o) {
  int n = 0;
  orlix_json_traverse(
      o, [](void *user, const char *, uint32_t, ORLIX_JSON *) { return ++*static_cast<int *>(user), 1; },
      &n);
  return n;
}

std::string Name(fuzz::Reader &in) {
  static const std::string kNames[] = {"", "a", "b", "ab", "\xC3\xA9", std::string("a\0b", 3), "\xFF"};
  return kNames[in.u8() % std::size(kNames)];
}

struct Program {
  ORLIX_JSON *slots[kSlots] = {};
  ~Program() {
    for (ORLIX_JSON *s : slots) orlix_json_free(s);
  }

  void Set(int i, ORLIX_JSON *node) {
    FUZZ_CHECK(node != nullptr);
    orlix_json_free(slots[i]);
    slots[i] = node;
  }

  void CheckEncodings(ORLIX_JSON *t, uint32_t flags) {
    const auto before = Encode(t);
    if (!before || before->size() > 100000) return;
    const int members = CountMembers(t);
    const auto text = Encode(t, flags);
    FUZZ_CHECK(text.has_value());
    const auto after = Encode(t);
    if (flags & ORLIX_JSON_ENCODE_SORT) {
      FUZZ_CHECK(CountMembers(t) == members && after->size() == before->size());
    } else {
      FUZZ_CHECK(after == before);
    }
    if (after->find("inf") != std::string::npos || after->find("nan") != std::string::npos) return;
    ORLIX_JSON *back = orlix_json_decode(text->data(), uint32_t(text->size()));
    FUZZ_CHECK(back != nullptr, "own output refused: %s", text->c_str());
    const auto reread = Encode(back);
    orlix_json_free(back);
    FUZZ_CHECK(reread == after || after->find("-0") != std::string::npos);
  }

  void Step(fuzz::Reader &in) {
    const uint8_t op = in.u8();
    const int i = in.u8() % kSlots;
    const int j = in.u8() % kSlots;
    ORLIX_JSON *a = slots[i];
    ORLIX_JSON *b = slots[j];
    switch (op % 12) {
      case 0: {
        std::string bytes;
        for (int n = in.u8() % 24; n > 0; --n) bytes += char(in.u8());
        ORLIX_JSON *s = orlix_json_newstring(bytes.data(), int(bytes.size()));
        if (s == nullptr) return;
        FUZZ_CHECK(orlix_json_getstringlength(s) == bytes.size() &&
                   fuzz::SameBytes(orlix_json_getstring(s), bytes.data(), bytes.size() + 1));
        return Set(i, s);
      }
      case 1: {
        uint64_t bits = 0;
        for (int k = 0; k < 8; ++k) bits = bits << 8 | in.u8();
        double d;
        std::memcpy(&d, &bits, sizeof d);
        if (op & 0x80) d = double(int32_t(bits));  // integral values are common
        return Set(i, orlix_json_newnumber(d));
      }
      case 2: return Set(i, orlix_json_newboolean(int(in.u8()) - 1));
      case 3: return Set(i, orlix_json_newnull());
      case 4: return Set(i, orlix_json_newobject());
      case 5: return Set(i, orlix_json_newarray());
      default: break;
    }
    if (a == nullptr || b == nullptr) return;
    const auto value = Encode(b);
    if (!value || value->size() > 20000) return;
    const bool object = orlix_json_gettype(a) == ORLIX_JSON_OBJECT;
    const std::string name = Name(in);
    const bool had = orlix_json_getobjectvalue(a, name.data(), int(name.size())) != nullptr;
    const int members = CountMembers(a);
    const uint32_t size = orlix_json_getarraysize(a);
    switch (op % 12) {
      case 6:
        if (orlix_json_addarrayitem(a, b) == 1) {
          FUZZ_CHECK(orlix_json_getarraysize(a) == size + 1);
          FUZZ_CHECK(Encode(orlix_json_getarrayitem(a, size)) == value);
        }
        break;
      case 7:
        if (orlix_json_addobjectitem(a, name.data(), uint32_t(name.size()), b) == 1) {
          FUZZ_CHECK(CountMembers(a) == members + 1);
          FUZZ_CHECK(Encode(orlix_json_getobjectvalue(a, name.data(), int(name.size()))) == value);
        } else {
          FUZZ_CHECK(!object || name == "\xFF");
        }
        break;
      case 8:
        if (orlix_json_updateobjectitem(a, name.data(), int(name.size()), b) == 1)
          FUZZ_CHECK(CountMembers(a) == members + (had ? 0 : 1));
        break;
      case 9:
        FUZZ_CHECK(orlix_json_deleteobjectitem(a, name.data(), int(name.size())) == (had ? 1 : 0));
        FUZZ_CHECK(CountMembers(a) == members - (had ? 1 : 0));
        break;
      case 10: {
        const int index = int(in.u8()) - 2;
        const bool ok = index >= 0 && size != 0xFFFFFFFFu && uint32_t(index) < size;
        FUZZ_CHECK(orlix_json_deletearrayitem(a, index) == (ok ? 1 : 0));
        break;
      }
      default: {
        ORLIX_JSON *copy = orlix_json_dup(a);
        FUZZ_CHECK(copy != nullptr && Compare(copy, a) == 0 && Compare(a, copy) == 0);
        FUZZ_CHECK(Encode(copy) == Encode(a));
        Set(j, copy);
        const uint32_t high = in.u8();
        CheckEncodings(slots[i], high << 24 | in.u8());
        return;
      }
    }
    CheckEncodings(a, 0);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  Program program;
  for (int steps = 0; !in.empty() && steps < 200; ++steps) program.Step(in);
  return 0;
}
