// The JSON value model: nodes, deep copies, getters, object and array
// mutators, traversal and the total order used for sorting.
#include "json/ORLIX_JSON.hpp"

#include <cstring>

#include "ORLIX_Util.h"
#include "containers/ORLIX_ArrayList.hpp"
#include "core/memory.hpp"
#include "ustring/ORLIX_UString.hpp"
#include "ustring/ORLIX_UString_UTF8.hpp"

using orlix::json::kModule;
using orlix::json::ObjectItem;

namespace {

constexpr int32_t kMaxStringLength = 0x7FFFFFFF;

ORLIX_JSON *new_node(uint32_t type) {
  auto *node = orlix::alloc_record<ORLIX_JSON>(kModule, __LINE__);
  if (node == nullptr) return nullptr;
  node->type = type;
  node->value.list = nullptr;
  node->length = 0;
  return node;
}

void free_value(void *node) { orlix_json_free(static_cast<ORLIX_JSON *>(node)); }

// A container and its list share one block: the list is placed right after
// the node.
ORLIX_JSON *new_container(uint32_t type) {
  auto *node =
      orlix::alloc_with_tail<ORLIX_JSON>(iorlix_arraylist_footprint(), kModule, __LINE__);
  if (node == nullptr) return nullptr;
  node->type = type;
  node->length = 0;
  node->value.list = iorlix_arraylist_place(
      node + 1, nullptr, type == ORLIX_JSON_OBJECT ? orlix::json::free_item : free_value);
  return node;
}

bool is(const ORLIX_JSON *node, uint32_t type) { return node != nullptr && node->type == type; }

bool is_container(const ORLIX_JSON *node) {
  return node->type == ORLIX_JSON_OBJECT || node->type == ORLIX_JSON_ARRAY;
}

// A copy of a string, number, boolean or null; nullptr for any other type
// code or when memory runs out.
ORLIX_JSON *copy_scalar(const ORLIX_JSON *node) {
  switch (node->type) {
    case ORLIX_JSON_STRING:
      return orlix::json::new_string_unchecked(node->value.string, node->length);
    case ORLIX_JSON_NUMBER: return orlix_json_newnumber(node->value.number);
    case ORLIX_JSON_BOOLEAN: return orlix_json_newboolean(node->value.boolean);
    case ORLIX_JSON_NULL: return orlix_json_newnull();
    default: return nullptr;
  }
}

ObjectItem *item_at(const ORLIX_JSON *object, int32_t index) {
  return static_cast<ObjectItem *>(orlix_arraylist_getitemref(object->value.list, index));
}

int32_t member_count(const ORLIX_JSON *node) {
  return static_cast<int32_t>(orlix_arraylist_count(node->value.list));
}

bool name_matches(const ObjectItem *item, const char *name, int length) {
  return item != nullptr && item->name != nullptr && item->name->length == length &&
         (length == 0 || std::memcmp(item->name->value.string, name, length) == 0);
}

// The argument rule of the name-based object operations.
bool name_args_ok(const ORLIX_JSON *object, const char *name, int length) {
  return length >= 0 && is(object, ORLIX_JSON_OBJECT) && (name != nullptr || length == 0);
}

// Index of the first (or last) member named name, or -1.
int32_t find_member(const ORLIX_JSON *object, const char *name, int length, bool last) {
  const int32_t n = member_count(object);
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = last ? n - 1 - k : k;
    if (name_matches(item_at(object, i), name, length)) return i;
  }
  return -1;
}

int sign_of(int v) { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

// Strings compare by memcmp over the shorter length; a string equals every
// longer string it is a prefix of, while the longer one compares greater.
// This one-sided rule is relied on by existing sorted output and is kept.
int compare_strings(const ORLIX_JSON *a, const ORLIX_JSON *b) {
  const int32_t la = a->length;
  const int32_t lb = b->length;
  if (la == lb) return la == 0 ? 0 : sign_of(std::memcmp(a->value.string, b->value.string, la));
  const int32_t m = la < lb ? la : lb;
  if (m != 0) {
    if (const int c = std::memcmp(a->value.string, b->value.string, m); c != 0) return sign_of(c);
  }
  return la > lb ? 1 : 0;
}

// A missing member compares as a member with neither name nor value.
const ORLIX_JSON *name_of(const ObjectItem *item) { return item ? item->name : nullptr; }
const ORLIX_JSON *value_of(const ObjectItem *item) { return item ? item->value : nullptr; }

// Everything the order looks at in the two nodes themselves: the type codes
// (a missing node counts as -1), the scalar values, and the entry counts of
// two containers, whose entries the caller compares next.
int compare_nodes(const ORLIX_JSON *a, const ORLIX_JSON *b) {
  const int64_t ta = a == nullptr ? -1 : static_cast<int32_t>(a->type);
  const int64_t tb = b == nullptr ? -1 : static_cast<int32_t>(b->type);
  if (ta != tb) return ta < tb ? -1 : 1;
  if (a == nullptr) return 0;
  switch (a->type) {
    case ORLIX_JSON_STRING: return compare_strings(a, b);
    case ORLIX_JSON_NUMBER:
      // NaN compares equal to everything.
      if (b->value.number > a->value.number) return -1;
      return a->value.number > b->value.number ? 1 : 0;
    case ORLIX_JSON_BOOLEAN:
      if (a->value.boolean < b->value.boolean) return -1;
      return a->value.boolean == b->value.boolean ? 0 : 1;
    case ORLIX_JSON_OBJECT:
    case ORLIX_JSON_ARRAY: {
      const int32_t na = member_count(a);
      const int32_t nb = member_count(b);
      return na == nb ? 0 : (na < nb ? -1 : 1);
    }
    default: return 0;
  }
}

}  // namespace

namespace orlix::json {

ORLIX_JSON *new_string_unchecked(const char *bytes, int32_t length) {
  // The bytes share the node's block, so a string costs one allocation.
  auto *node = orlix::alloc_with_tail<ORLIX_JSON>(length + 1, kModule, __LINE__);
  if (node == nullptr) return nullptr;
  char *text = reinterpret_cast<char *>(node + 1);
  if (length > 0) std::memcpy(text, bytes, static_cast<size_t>(length));
  text[length] = '\0';
  node->type = ORLIX_JSON_STRING;
  node->value.string = text;
  node->length = length;
  return node;
}

ObjectItem *new_item(const char *name, int32_t length, ORLIX_JSON *value) {
  // One block: the item, its name node, the name bytes and a NUL.
  auto *item = orlix::alloc_with_tail<ObjectItem>(
      static_cast<int64_t>(sizeof(ORLIX_JSON)) + length + 1, kModule, __LINE__);
  if (item == nullptr) return nullptr;
  auto *name_node = reinterpret_cast<ORLIX_JSON *>(item + 1);
  char *text = reinterpret_cast<char *>(name_node + 1);
  if (length > 0) std::memcpy(text, name, static_cast<size_t>(length));
  text[length] = '\0';
  name_node->type = ORLIX_JSON_STRING;
  name_node->value.string = text;
  name_node->length = length;
  item->name = name_node;
  item->value = value;
  return item;
}

void free_item(void *p) {
  auto *item = static_cast<ObjectItem *>(p);
  if (item == nullptr) return;
  orlix_json_free(item->value);
  orlix_free(item);
}

// Values are compared in document order, one pair of nodes at a time; the
// stack holds the pairs of containers whose entries are being walked.
int Comparer::values(const ORLIX_JSON *a, const ORLIX_JSON *b) {
  stack_.clear();
  for (;;) {
    if (const int c = compare_nodes(a, b); c != 0) return c;
    if (a != nullptr && is_container(a) && member_count(a) > 0 &&
        !stack_.push_back(Frame{a, b, 0, member_count(a)}))
      return 0;  // prepare() made room for every path, so this never happens
    // The next pair: the next entries of the innermost unfinished pair.
    for (;;) {
      if (stack_.empty()) return 0;
      Frame &f = stack_.back();
      if (f.next == f.count) {
        stack_.pop_back();
        continue;
      }
      const int32_t i = f.next++;
      if (f.a->type == ORLIX_JSON_OBJECT) {
        const ObjectItem *x = item_at(f.a, i);
        const ObjectItem *y = item_at(f.b, i);
        if (const int c = compare_nodes(name_of(x), name_of(y)); c != 0) return c;
        a = value_of(x);
        b = value_of(y);
      } else {
        a = static_cast<const ORLIX_JSON *>(orlix_arraylist_getitemref(f.a->value.list, i));
        b = static_cast<const ORLIX_JSON *>(orlix_arraylist_getitemref(f.b->value.list, i));
      }
      break;
    }
  }
}

int Comparer::members(const ObjectItem *a, const ObjectItem *b) {
  if (const int c = compare_nodes(name_of(a), name_of(b)); c != 0) return c;
  return values(value_of(a), value_of(b));
}

bool Comparer::prepare(const ORLIX_JSON *tree) {
  // A walk over every container of the tree grows the stack to its deepest
  // path, which bounds the stack of any comparison inside it.
  stack_.clear();
  if (tree == nullptr || !is_container(tree)) return true;
  if (!stack_.push_back(Frame{tree, tree, 0, member_count(tree)})) return false;
  while (!stack_.empty()) {
    Frame &f = stack_.back();
    if (f.next == f.count) {
      stack_.pop_back();
      continue;
    }
    const int32_t i = f.next++;
    const ORLIX_JSON *child =
        f.a->type == ORLIX_JSON_OBJECT
            ? value_of(item_at(f.a, i))
            : static_cast<const ORLIX_JSON *>(orlix_arraylist_getitemref(f.a->value.list, i));
    if (child != nullptr && is_container(child) && member_count(child) > 0 &&
        !stack_.push_back(Frame{child, child, 0, member_count(child)}))
      return false;
  }
  return true;
}

int compare_item_slots(const void *a, const void *b, void *comparer) {
  return static_cast<Comparer *>(comparer)->members(*static_cast<ObjectItem *const *>(a),
                                                    *static_cast<ObjectItem *const *>(b));
}

int compare_value_slots(const void *a, const void *b, void *comparer) {
  return static_cast<Comparer *>(comparer)->values(*static_cast<ORLIX_JSON *const *>(a),
                                                   *static_cast<ORLIX_JSON *const *>(b));
}

}  // namespace orlix::json

extern "C" {

ORLIX_JSON *orlix_json_newboolean(int value) {
  ORLIX_JSON *node = new_node(ORLIX_JSON_BOOLEAN);
  if (node != nullptr) node->value.boolean = value != 0 ? 1 : 0;
  return node;
}

ORLIX_JSON *orlix_json_newnull(void) { return new_node(ORLIX_JSON_NULL); }

ORLIX_JSON *orlix_json_newnumber(double value) {
  ORLIX_JSON *node = new_node(ORLIX_JSON_NUMBER);
  if (node != nullptr) node->value.number = value;
  return node;
}

ORLIX_JSON *orlix_json_newstring(const char *bytes, int length) {
  if (length < 0 || length == kMaxStringLength || (bytes == nullptr && length != 0)) return nullptr;
  if (length > 0 && !orlix::utf8::validate(reinterpret_cast<const unsigned char *>(bytes), length))
    return nullptr;
  return orlix::json::new_string_unchecked(bytes, length);
}

ORLIX_JSON *orlix_json_newobject(void) { return new_container(ORLIX_JSON_OBJECT); }

ORLIX_JSON *orlix_json_newarray(void) { return new_container(ORLIX_JSON_ARRAY); }

void orlix_json_free(ORLIX_JSON *node) {
  if (node == nullptr) return;
  if (!is_container(node)) {
    orlix_free(node);
    return;
  }
  // Containers wait on an explicit stack instead of the C stack, so that a
  // tree of any depth can be released. Should the stack itself fail to grow,
  // that one subtree is released recursively.
  orlix::SmallBuffer<ORLIX_JSON *, 64> pending(kModule);
  pending.push_back(node);
  while (!pending.empty()) {
    ORLIX_JSON *container = pending.back();
    pending.pop_back();
    ORLIX_ArrayList *list = container->value.list;
    const int32_t n = member_count(container);
    for (int32_t i = n - 1; i >= 0; --i) {
      void *slot = orlix_arraylist_getitemref(list, i);
      ORLIX_JSON *child = static_cast<ORLIX_JSON *>(slot);
      if (container->type == ORLIX_JSON_OBJECT) {
        auto *item = static_cast<ObjectItem *>(slot);
        child = item != nullptr ? item->value : nullptr;
        orlix_free(item);
      }
      if (child == nullptr) continue;
      if (!is_container(child)) orlix_free(child);
      else if (!pending.push_back(child)) orlix_json_free(child);
    }
    // The children are gone already: the list only lets go of its slots.
    iorlix_arraylist_forget(list);
    iorlix_arraylist_unplace(list);
    orlix_free(container);
  }
}

ORLIX_JSON *orlix_json_dup(const ORLIX_JSON *node) {
  if (node == nullptr) return nullptr;
  if (!is_container(node)) return copy_scalar(node);
  // Depth-first with an explicit stack: each container's copy joins its
  // parent's copy first and is filled afterwards, so the order of entries is
  // kept and any depth costs heap rather than C stack.
  struct Pending {
    const ORLIX_JSON *from;
    ORLIX_JSON *to;
    int32_t next;
  };
  std::unique_ptr<ORLIX_JSON, decltype(&orlix_json_free)> copy(new_container(node->type),
                                                               orlix_json_free);
  orlix::SmallBuffer<Pending, 64> pending(kModule);
  if (!copy || !pending.push_back(Pending{node, copy.get(), 0})) return nullptr;
  while (!pending.empty()) {
    Pending &p = pending.back();
    if (p.next == member_count(p.from)) {
      pending.pop_back();
      continue;
    }
    const Pending at = p;
    ++p.next;
    void *slot = orlix_arraylist_getitemref(at.from->value.list, at.next);
    const ORLIX_JSON *child = static_cast<const ORLIX_JSON *>(slot);
    const auto *item = static_cast<const ObjectItem *>(slot);
    if (at.from->type == ORLIX_JSON_OBJECT) {
      if (item == nullptr || item->name == nullptr || item->value == nullptr) return nullptr;
      child = item->value;
    }
    if (child == nullptr) return nullptr;
    ORLIX_JSON *twin = is_container(child) ? new_container(child->type) : copy_scalar(child);
    if (twin == nullptr) return nullptr;
    if (at.from->type == ORLIX_JSON_OBJECT) {
      ObjectItem *member = orlix::json::new_item(item->name->value.string, item->name->length, twin);
      if (member == nullptr || orlix_arraylist_pushback(at.to->value.list, member) != 1) {
        if (member != nullptr) orlix::json::free_item(member);
        else orlix_json_free(twin);
        return nullptr;
      }
    } else if (orlix_arraylist_pushback(at.to->value.list, twin) != 1) {
      orlix_json_free(twin);
      return nullptr;
    }
    if (is_container(child) && !pending.push_back(Pending{child, twin, 0})) return nullptr;
  }
  return copy.release();
}

uint32_t orlix_json_gettype(const ORLIX_JSON *node) {
  return node == nullptr ? 0xFFFFFFFFu : node->type;
}

int orlix_json_istrue(const ORLIX_JSON *node) {
  return is(node, ORLIX_JSON_BOOLEAN) ? node->value.boolean : 0;
}

double orlix_json_getnumber(const ORLIX_JSON *node) {
  return is(node, ORLIX_JSON_NUMBER) ? node->value.number : -1.0;
}

const char *orlix_json_getstring(const ORLIX_JSON *node) {
  return is(node, ORLIX_JSON_STRING) ? node->value.string : nullptr;
}

uint32_t orlix_json_getstringlength(const ORLIX_JSON *node) {
  return is(node, ORLIX_JSON_STRING) ? static_cast<uint32_t>(node->length) : 0xFFFFFFFFu;
}

uint32_t orlix_json_getarraysize(const ORLIX_JSON *node) {
  return is(node, ORLIX_JSON_ARRAY) ? orlix_arraylist_count(node->value.list) : 0xFFFFFFFFu;
}

ORLIX_JSON *orlix_json_getarrayitem(const ORLIX_JSON *node, uint32_t index) {
  if (!is(node, ORLIX_JSON_ARRAY) || index > INT32_MAX) return nullptr;
  return static_cast<ORLIX_JSON *>(
      orlix_arraylist_getitemref(node->value.list, static_cast<int32_t>(index)));
}

ORLIX_JSON *orlix_json_getobjectvalue(const ORLIX_JSON *node, const char *name, int length) {
  if (!name_args_ok(node, name, length)) return nullptr;
  // From the last member back: among duplicate names the last added wins.
  const int32_t i = find_member(node, name, length, true);
  return i < 0 ? nullptr : item_at(node, i)->value;
}

int orlix_json_addobjectitem(ORLIX_JSON *object, const char *name, uint32_t length,
                             const ORLIX_JSON *value) {
  if (!is(object, ORLIX_JSON_OBJECT) || value == nullptr) return 0;
  // The name obeys every rule of a string node, length included.
  const auto n = static_cast<int32_t>(length);
  if (n < 0 || n == kMaxStringLength || (name == nullptr && n != 0)) return 0;
  if (n > 0 && !orlix::utf8::validate(reinterpret_cast<const unsigned char *>(name), n))
    return 0;
  ORLIX_JSON *copy = orlix_json_dup(value);
  if (copy == nullptr) return 0;
  ObjectItem *item = orlix::json::new_item(name, n, copy);
  if (item == nullptr) {
    orlix_json_free(copy);
    return 0;
  }
  if (orlix_arraylist_pushback(object->value.list, item) != 1) {
    orlix::json::free_item(item);
    return 0;
  }
  return 1;
}

int orlix_json_updateobjectitem(ORLIX_JSON *object, const char *name, int length,
                                const ORLIX_JSON *value) {
  if (!name_args_ok(object, name, length) || value == nullptr) return 0;
  const int32_t i = find_member(object, name, length, false);
  if (i < 0) return orlix_json_addobjectitem(object, name, static_cast<uint32_t>(length), value);
  ORLIX_JSON *copy = orlix_json_dup(value);
  if (copy == nullptr) return 0;  // the old value stays
  ObjectItem *item = item_at(object, i);
  orlix_json_free(item->value);
  item->value = copy;
  return 1;
}

int orlix_json_deleteobjectitem(ORLIX_JSON *object, const char *name, int length) {
  if (!name_args_ok(object, name, length)) return 0;
  // Delete and update take the first of duplicate names, lookup the last;
  // callers rely on this asymmetry.
  const int32_t i = find_member(object, name, length, false);
  return i < 0 ? 0 : orlix_arraylist_delete(object->value.list, i);
}

int orlix_json_addarrayitem(ORLIX_JSON *array, const ORLIX_JSON *value) {
  if (!is(array, ORLIX_JSON_ARRAY) || value == nullptr) return 0;
  ORLIX_JSON *copy = orlix_json_dup(value);
  if (copy == nullptr) return 0;
  if (orlix_arraylist_pushback(array->value.list, copy) != 1) {
    orlix_json_free(copy);
    return 0;
  }
  return 1;
}

int orlix_json_deletearrayitem(ORLIX_JSON *array, int index) {
  if (!is(array, ORLIX_JSON_ARRAY)) return 0;
  return orlix_arraylist_delete(array->value.list, index);
}

int orlix_json_traverse(ORLIX_JSON *object, ORLIX_JSON_TraverseFunc callback, void *userdata) {
  if (!is(object, ORLIX_JSON_OBJECT) || callback == nullptr) return 0;
  const int32_t n = member_count(object);
  for (int32_t i = 0; i < n; ++i) {
    const ObjectItem *item = item_at(object, i);
    if (item == nullptr || item->name == nullptr || item->value == nullptr) return 0;
    if (callback(userdata, item->name->value.string, static_cast<uint32_t>(item->name->length),
                 item->value) != 1)
      return 0;
  }
  return 1;
}

}  // extern "C"
