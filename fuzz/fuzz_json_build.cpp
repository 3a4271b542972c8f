// Trees built through the interface, mirrored step by step in the reference
// model. The input is a program over eight slots: constructors (strings of
// arbitrary bytes, numbers of arbitrary bits), the object and array
// mutators with names from a small set (so that names repeat), lookups,
// copies, comparisons, traversal, and encodings in any layout, with the sort.
// After every step the touched slot must read back as its model; every
// encoding must match the reference encoder and, sorting included, decode
// back to the model with each number reprinted.
//
// Input: a sequence of [operation] [operands...] bytes.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "../tests/json/json_reference.hpp"
#include "fuzz_util.hpp"
#include "json/ORLIX_JSON.hpp"

namespace {

using namespace json_ref;

constexpr int kSlots = 8;
constexpr size_t kMaxNodes = 3000;

size_t Nodes(const Value &v) {
  size_t n = 1;
  for (const Member &m : v.members) n += Nodes(m.value);
  for (const Value &e : v.elements) n += Nodes(e);
  return n;
}

bool AllFinite(const Value &v) {
  if (v.type == ORLIX_JSON_NUMBER) return std::isfinite(v.number);
  for (const Member &m : v.members)
    if (!AllFinite(m.value)) return false;
  for (const Value &e : v.elements)
    if (!AllFinite(e)) return false;
  return true;
}

Value Reprinted(Value v) {
  if (v.type == ORLIX_JSON_NUMBER) v.number = std::strtod(FormatNumber(v.number).c_str(), nullptr);
  for (Member &m : v.members) m.value = Reprinted(std::move(m.value));
  for (Value &e : v.elements) e = Reprinted(std::move(e));
  return v;
}

int Sign(int v) { return (v > 0) - (v < 0); }

// The library's order on two values, as the encoder's sort applies it.
int CompareTrees(const ORLIX_JSON *a, const ORLIX_JSON *b) {
  orlix::json::Comparer comparer;
  if (!comparer.prepare(a)) std::abort();
  return comparer.values(a, b);
}

int CompareValueSlots(const void *a, const void *b) {
  return Compare(*static_cast<const Value *const *>(a), *static_cast<const Value *const *>(b));
}
int CompareMemberSlots(const void *a, const void *b) {
  return CompareMembers(**static_cast<const Member *const *>(a),
                        **static_cast<const Member *const *>(b));
}

// The top level sorted as the encoder's qsort sorts it.
void SortTop(Value *v) {
  if (v->type == ORLIX_JSON_OBJECT) {
    std::vector<const Member *> slots;
    for (const Member &m : v->members) slots.push_back(&m);
    if (!slots.empty()) std::qsort(slots.data(), slots.size(), sizeof slots[0], CompareMemberSlots);
    std::vector<Member> sorted;
    for (const Member *m : slots) sorted.push_back(*m);
    v->members = std::move(sorted);
  } else if (v->type == ORLIX_JSON_ARRAY) {
    std::vector<const Value *> slots;
    for (const Value &e : v->elements) slots.push_back(&e);
    if (!slots.empty()) std::qsort(slots.data(), slots.size(), sizeof slots[0], CompareValueSlots);
    std::vector<Value> sorted;
    for (const Value *e : slots) sorted.push_back(*e);
    v->elements = std::move(sorted);
  }
}

std::string Name(fuzz::Reader &in) {
  static const std::string kNames[] = {"",     "a",   "b", "ab", "\xC3\xA9", std::string("a\0b", 3),
                                       "\xFF", "\xC3"};
  const uint8_t pick = in.u8();
  if (pick < 224) return kNames[pick % std::size(kNames)];
  std::string raw;
  for (int n = pick - 224; n > 0 && !in.empty(); --n) raw += char(in.u8());
  return raw;
}

struct Slot {
  Tree tree;
  Value model;
};

struct Program {
  Slot slots[kSlots];

  void Check(int i) {
    if (slots[i].tree) FUZZ_CHECK(Same(Read(slots[i].tree.get()), slots[i].model), "slot %d", i);
  }

  void Set(int i, ORLIX_JSON *node, Value model) {
    FUZZ_CHECK(node != nullptr);
    slots[i].tree.reset(node);
    slots[i].model = std::move(model);
    Check(i);
  }

  void Encode(int i, uint32_t flags) {
    Slot &s = slots[i];
    const auto text = EncodeTree(s.tree.get(), flags);
    FUZZ_CHECK(text.has_value());
    if (flags & ORLIX_JSON_ENCODE_SORT) SortTop(&s.model);
    Check(i);  // sorted in place, and only at the top
    FUZZ_CHECK(*text == json_ref::Encode(s.model, flags), "layout %08x", flags);
    if (!AllFinite(s.model)) return;
    Tree back = DecodeText(*text);
    FUZZ_CHECK(back != nullptr, "own output refused");
    FUZZ_CHECK(Same(Read(back.get()), Reprinted(s.model)));
  }

  void Step(fuzz::Reader &in) {
    const uint8_t op = in.u8();
    const int i = in.u8() % kSlots;
    const int j = in.u8() % kSlots;
    Slot &a = slots[i];
    Slot &b = slots[j];
    switch (op % 16) {
      case 0: {
        std::string bytes;
        for (int n = in.u8() % 24; n > 0; --n) bytes += char(in.u8());
        ORLIX_JSON *s = orlix_json_newstring(bytes.data(), int(bytes.size()));
        FUZZ_CHECK((s != nullptr) == ValidUtf8(bytes));
        if (s != nullptr) Set(i, s, Str(bytes));
        return;
      }
      case 1: {
        uint64_t bits = 0;
        for (int k = 0; k < 8; ++k) bits = bits << 8 | in.u8();
        double d;
        std::memcpy(&d, &bits, sizeof d);
        if (op & 0x80) d = double(int32_t(bits));  // integral values are common
        return Set(i, orlix_json_newnumber(d), Num(d));
      }
      case 2: {
        const uint8_t v = in.u8();
        return Set(i, orlix_json_newboolean(int(v) - 1), Bool(v != 1));
      }
      case 3: return Set(i, orlix_json_newnull(), Null());
      case 4: return Set(i, orlix_json_newobject(), Obj());
      case 5: return Set(i, orlix_json_newarray(), Arr());
      default: break;
    }
    if (!a.tree || !b.tree) return;
    const bool object = a.model.type == ORLIX_JSON_OBJECT;
    const bool array = a.model.type == ORLIX_JSON_ARRAY;
    if (op % 16 <= 8 && Nodes(a.model) + Nodes(b.model) > kMaxNodes) return;
    switch (op % 16) {
      case 6: {
        const Value copy = b.model;
        FUZZ_CHECK(orlix_json_addarrayitem(a.tree.get(), b.tree.get()) == (array ? 1 : 0));
        if (array) a.model.elements.push_back(copy);
        break;
      }
      case 7: {
        const std::string name = Name(in);
        const Value copy = b.model;
        const bool ok = object && ValidUtf8(name);
        FUZZ_CHECK(orlix_json_addobjectitem(a.tree.get(), name.data(), uint32_t(name.size()),
                                            b.tree.get()) == (ok ? 1 : 0));
        if (ok) a.model.members.push_back(Member{name, copy});
        break;
      }
      case 8: {  // update: the first member of that name, else append
        const std::string name = Name(in);
        const Value copy = b.model;
        Member *first = nullptr;
        for (Member &m : a.model.members)
          if (!first && m.name == name) first = &m;
        const bool ok = object && (first != nullptr || ValidUtf8(name));
        FUZZ_CHECK(orlix_json_updateobjectitem(a.tree.get(), name.data(), int(name.size()),
                                               b.tree.get()) == (ok ? 1 : 0));
        if (ok && first) first->value = copy;
        if (ok && !first) a.model.members.push_back(Member{name, copy});
        break;
      }
      case 9: {  // delete: the first member of that name
        const std::string name = Name(in);
        auto &ms = a.model.members;
        auto it = ms.begin();
        while (it != ms.end() && it->name != name) ++it;
        const bool ok = object && it != ms.end();
        FUZZ_CHECK(orlix_json_deleteobjectitem(a.tree.get(), name.data(), int(name.size())) ==
                   (ok ? 1 : 0));
        if (ok) ms.erase(it);
        break;
      }
      case 10: {
        const int index = int(in.u8()) - 2;
        const bool ok = array && index >= 0 && size_t(index) < a.model.elements.size();
        FUZZ_CHECK(orlix_json_deletearrayitem(a.tree.get(), index) == (ok ? 1 : 0));
        if (ok) a.model.elements.erase(a.model.elements.begin() + index);
        break;
      }
      case 11: {  // lookup: the last member of that name
        const std::string name = Name(in);
        const Value *last = nullptr;
        for (const Member &m : a.model.members)
          if (m.name == name) last = &m.value;
        ORLIX_JSON *got = orlix_json_getobjectvalue(a.tree.get(), name.data(), int(name.size()));
        FUZZ_CHECK((got != nullptr) == (object && last != nullptr));
        if (got != nullptr) FUZZ_CHECK(Same(Read(got), *last));
        const uint32_t index = in.u8();
        ORLIX_JSON *element = orlix_json_getarrayitem(a.tree.get(), index);
        FUZZ_CHECK((element != nullptr) == (array && index < a.model.elements.size()));
        if (element != nullptr) FUZZ_CHECK(Same(Read(element), a.model.elements[index]));
        break;
      }
      case 12: {
        ORLIX_JSON *copy = orlix_json_dup(a.tree.get());
        FUZZ_CHECK(copy != nullptr && CompareTrees(copy, a.tree.get()) == 0 &&
                   CompareTrees(a.tree.get(), copy) == 0);
        const Value model = a.model;
        Set(j, copy, model);
        return;
      }
      case 13: {
        const int got = Sign(CompareTrees(a.tree.get(), b.tree.get()));
        FUZZ_CHECK(got == Sign(Compare(&a.model, &b.model)));
        break;
      }
      case 14: {
        Value seen = Obj();
        const int r = orlix_json_traverse(
            a.tree.get(),
            [](void *user, const char *name, uint32_t length, ORLIX_JSON *value) {
              auto *v = static_cast<Value *>(user);
              v->members.push_back(Member{std::string(name, length), Read(value)});
              return v->members.size() == 3 ? 0 : 1;  // stops at the third
            },
            &seen);
        FUZZ_CHECK(r == (object && a.model.members.size() < 3 ? 1 : 0));
        if (object) FUZZ_CHECK(seen.members.size() == std::min<size_t>(3, a.model.members.size()));
        break;
      }
      default: {
        uint32_t flags = uint32_t(in.u8()) << 24 | in.u8();
        if (op & 0x80) flags |= ORLIX_JSON_ENCODE_SORT;
        Encode(i, flags);
        break;
      }
    }
    Check(i);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader in(data, size);
  Program program;
  for (int steps = 0; !in.empty() && steps < 200; ++steps) program.Step(in);
  for (int i = 0; i < kSlots; ++i)
    if (program.slots[i].tree) program.Encode(i, 0);
  return 0;
}
