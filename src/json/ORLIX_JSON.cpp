// The JSON value model: nodes, deep copies, getters, object and array
// mutators, traversal, the total order used for sorting, and the arena that
// decoded trees are carved from.
#include "json/ORLIX_JSON.hpp"

#include <cstdlib>
#include <cstring>

#include "ORLIX_Util.h"
#include "core/memory.hpp"
#include "ustring/ORLIX_UString.hpp"
#include "ustring/ORLIX_UString_UTF8.hpp"

using orlix::json::Container;
using orlix::json::is_container;
using orlix::json::kCarved;
using orlix::json::kCarvedLeaves;
using orlix::json::kEntriesCarved;
using orlix::json::kModule;
using orlix::json::Member;

namespace {

constexpr int32_t kMaxStringLength = 0x7FFFFFFF;

ORLIX_JSON *new_node(uint8_t type) {
  auto *node = orlix::alloc_record<ORLIX_JSON>(kModule, __LINE__);
  if (node == nullptr) return nullptr;
  node->type = type;
  node->flags = 0;
  node->reserved = 0;
  node->length = 0;
  node->value.entries = nullptr;
  return node;
}

// An empty container; its entries get a block of their own on the first add.
ORLIX_JSON *new_container(uint8_t type) {
  auto *c = orlix::alloc_record<Container>(kModule, __LINE__);
  if (c == nullptr) return nullptr;
  c->node.type = type;
  c->node.flags = 0;
  c->node.reserved = 0;
  c->node.length = 0;
  c->node.value.entries = nullptr;
  c->capacity = 0;
  return &c->node;
}

bool is(const ORLIX_JSON *node, uint32_t type) { return node != nullptr && node->type == type; }

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

// Makes room for one more entry of size bytes (8 for an element, 16 for a
// member), doubling the entry block (or moving carved entries into a block of
// their own). The entries are untouched on failure.
bool make_room(ORLIX_JSON *node, int64_t size) {
  auto *c = reinterpret_cast<Container *>(node);
  orlix::json::touch(node);
  const bool carved = (node->flags & kEntriesCarved) != 0;
  const int32_t held = carved ? node->length : c->capacity;
  if (node->length < held) return true;
  if (held > INT32_MAX / 2) return false;
  const int32_t capacity = held < 4 ? 4 : held * 2;
  void *entries = orlix_malloc(capacity * size, kModule, __LINE__);
  if (entries == nullptr) return false;
  if (node->length > 0)
    std::memcpy(entries, node->value.entries, static_cast<size_t>(node->length * size));
  if (!carved) orlix_free(node->value.entries);
  node->flags &= static_cast<uint8_t>(~kEntriesCarved);
  node->value.entries = entries;
  c->capacity = capacity;
  return true;
}

// A name node and its bytes in one block.
ORLIX_JSON *new_name(const char *name, int32_t length) {
  return orlix::json::new_string_unchecked(name, length);
}

// Releases a member's name (its value is the caller's business).
void release_name(ORLIX_JSON *name) {
  if (name != nullptr && (name->flags & kCarved) == 0) orlix_free(name);
}

bool name_matches(const Member &m, const char *name, int length) {
  return m.name->length == length &&
         (length == 0 || std::memcmp(m.name->value.string, name, static_cast<size_t>(length)) == 0);
}

// The argument rule of the name-based object operations.
bool name_args_ok(const ORLIX_JSON *object, const char *name, int length) {
  return length >= 0 && is(object, ORLIX_JSON_OBJECT) && (name != nullptr || length == 0);
}

// Index of the first (or last) member named name, or -1.
int32_t find_member(const ORLIX_JSON *object, const char *name, int length, bool last) {
  const int32_t n = object->length;
  const Member *m = orlix::json::members(object);
  for (int32_t k = 0; k < n; ++k) {
    const int32_t i = last ? n - 1 - k : k;
    if (name_matches(m[i], name, length)) return i;
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
      const int32_t na = a->length;
      const int32_t nb = b->length;
      return na == nb ? 0 : (na < nb ? -1 : 1);
    }
    default: return 0;
  }
}

}  // namespace

namespace orlix::json {

// An arena block: a header, then the carved bytes. The root of a tree is the
// first node carved, right after the first block's header, which is how the
// root finds the blocks again.
struct Arena::Block {
  Block *next;
  int64_t size;
};

Arena::Arena(int64_t length, const int64_t *position) : length_(length), position_(position) {
  // About the text's length for the first block (a tree takes roughly as
  // much as its text, less for indented text).
  next_size_ = length < 256 ? 256 : (length > (int64_t{1} << 20) ? int64_t{1} << 20 : length);
}

Arena::~Arena() {
  for (Block *b = first_; b != nullptr;) {
    Block *next = b->next;
    orlix_free(b);
    b = next;
  }
}

void *Arena::carve_slow(int64_t size) {
  constexpr auto kHeader = static_cast<int64_t>(sizeof(Block));
  if (size > INT64_MAX / 2 - kHeader) return nullptr;
  // A later block takes what the rest of the text should need at the rate
  // of what has been read (an eighth more), and at least twice the last.
  // So a tree mostly has two blocks, the larger holding most of it: the C
  // library's allocator then keeps such blocks between trees (it sizes what
  // it keeps from the largest block released) instead of returning them to
  // the system and faulting them back in page by page for the next tree.
  int64_t block_size = next_size_;
  const int64_t used = carved_ + (next_ != nullptr ? next_ - reinterpret_cast<char *>(last_) : 0);
  const int64_t read = *position_;
  if (read > 0 && read < length_) {
    const __int128 rest = static_cast<__int128>(length_ - read) * used / read;
    const __int128 want = rest + rest / 8;
    if (want > block_size) block_size = want < (int64_t{1} << 32) ? static_cast<int64_t>(want) : int64_t{1} << 32;
  }
  if (block_size < size + kHeader) block_size = size + kHeader;
  auto *b = static_cast<Block *>(orlix_malloc(block_size, kModule, __LINE__));
  if (b == nullptr) return nullptr;
  b->next = nullptr;
  b->size = block_size;
  if (last_ != nullptr) {
    carved_ += next_ - reinterpret_cast<char *>(last_);
    last_->next = b;
  } else {
    first_ = b;
  }
  last_ = b;
  if (next_size_ < (int64_t{1} << 28)) next_size_ *= 2;
  char *p = reinterpret_cast<char *>(b) + kHeader;
  next_ = p + size;
  end_ = reinterpret_cast<char *>(b) + block_size;
  return p;
}

void Arena::adopt(ORLIX_JSON *root) {
  root->flags |= kArenaRoot;
  first_ = nullptr;
  last_ = nullptr;
}

// Releases the arena whose root is node.
void release_arena(ORLIX_JSON *root) {
  auto *b = reinterpret_cast<Arena::Block *>(reinterpret_cast<char *>(root) - sizeof(Arena::Block));
  while (b != nullptr) {
    Arena::Block *next = b->next;
    orlix_free(b);
    b = next;
  }
}

ORLIX_JSON *new_string_unchecked(const char *bytes, int32_t length) {
  // The bytes share the node's block, so a string costs one allocation.
  auto *node = orlix::alloc_with_tail<ORLIX_JSON>(int64_t{length} + 1, kModule, __LINE__);
  if (node == nullptr) return nullptr;
  char *text = reinterpret_cast<char *>(node + 1);
  if (length > 0) std::memcpy(text, bytes, static_cast<size_t>(length));
  text[length] = '\0';
  node->type = ORLIX_JSON_STRING;
  node->flags = 0;
  node->reserved = 0;
  node->value.string = text;
  node->length = length;
  return node;
}

void release(ORLIX_JSON *node) {
  if (node == nullptr) return;
  const bool arena_root = (node->flags & kArenaRoot) != 0;
  if (arena_root && (node->flags & kTreeChanged) == 0) {
    release_arena(node);  // all of the tree is in the arena
    return;
  }
  if (is_container(node)) {
    // Containers wait on an explicit stack instead of the C stack, so that a
    // tree of any depth can be released. Should the stack itself fail to
    // grow, that one subtree is released recursively.
    orlix::SmallBuffer<ORLIX_JSON *, 64> pending(kModule);
    pending.push_back(node);
    while (!pending.empty()) {
      ORLIX_JSON *container = pending.back();
      pending.pop_back();
      if ((container->flags & kCarvedLeaves) != 0) continue;  // nothing of its own to release
      const int32_t n = container->length;
      for (int32_t i = 0; i < n; ++i) {
        ORLIX_JSON *child;
        if (container->type == ORLIX_JSON_OBJECT) {
          Member &m = members(container)[i];
          release_name(m.name);
          child = m.value;
        } else {
          child = elements(container)[i];
        }
        if (child == nullptr) continue;
        if (is_container(child)) {
          if (!pending.push_back(child)) release(child);
        } else if ((child->flags & kCarved) == 0) {
          orlix_free(child);
        }
      }
      if ((container->flags & kEntriesCarved) == 0) orlix_free(container->value.entries);
      if ((container->flags & kCarved) == 0) orlix_free(container);
    }
  } else if ((node->flags & kCarved) == 0) {
    orlix_free(node);
  }
  if (arena_root) release_arena(node);
}

// Values are compared in document order, one pair of nodes at a time; the
// stack holds the pairs of containers whose entries are being walked.
int Comparer::values(const ORLIX_JSON *a, const ORLIX_JSON *b) {
  stack_.clear();
  for (;;) {
    if (const int c = compare_nodes(a, b); c != 0) return c;
    if (a != nullptr && is_container(a) && a->length > 0 &&
        !stack_.push_back(Frame{a, b, 0, a->length}))
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
        const Member &x = orlix::json::members(f.a)[i];
        const Member &y = orlix::json::members(f.b)[i];
        if (const int c = compare_nodes(x.name, y.name); c != 0) return c;
        a = x.value;
        b = y.value;
      } else {
        a = elements(f.a)[i];
        b = elements(f.b)[i];
      }
      break;
    }
  }
}

int Comparer::members(const Member *a, const Member *b) {
  if (const int c = compare_nodes(a->name, b->name); c != 0) return c;
  return values(a->value, b->value);
}

bool Comparer::prepare(const ORLIX_JSON *tree) {
  // A walk over every container of the tree grows the stack to its deepest
  // path, which bounds the stack of any comparison inside it.
  stack_.clear();
  if (tree == nullptr || !is_container(tree)) return true;
  if (!stack_.push_back(Frame{tree, tree, 0, tree->length})) return false;
  while (!stack_.empty()) {
    Frame &f = stack_.back();
    if (f.next == f.count) {
      stack_.pop_back();
      continue;
    }
    const int32_t i = f.next++;
    const ORLIX_JSON *child = f.a->type == ORLIX_JSON_OBJECT ? orlix::json::members(f.a)[i].value
                                                             : elements(f.a)[i];
    if (child != nullptr && is_container(child) && child->length > 0 &&
        !stack_.push_back(Frame{child, child, 0, child->length}))
      return false;
  }
  return true;
}

int compare_member_slots(const void *a, const void *b, void *comparer) {
  return static_cast<Comparer *>(comparer)->members(static_cast<const Member *>(a),
                                                    static_cast<const Member *>(b));
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

void orlix_json_free(ORLIX_JSON *node) { orlix::json::release(node); }

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
    if (p.next == p.from->length) {
      pending.pop_back();
      continue;
    }
    const Pending at = p;
    ++p.next;
    const bool object = at.from->type == ORLIX_JSON_OBJECT;
    const Member *item = object ? &orlix::json::members(at.from)[at.next] : nullptr;
    const ORLIX_JSON *child = object ? item->value : orlix::json::elements(at.from)[at.next];
    if (child == nullptr) return nullptr;
    ORLIX_JSON *twin = is_container(child) ? new_container(child->type) : copy_scalar(child);
    if (twin == nullptr) return nullptr;
    if (object) {
      ORLIX_JSON *name = new_name(item->name->value.string, item->name->length);
      if (name == nullptr || !make_room(at.to, sizeof(Member))) {
        release_name(name);
        orlix_json_free(twin);
        return nullptr;
      }
      orlix::json::members(at.to)[at.to->length++] = Member{name, twin};
    } else {
      if (!make_room(at.to, sizeof(ORLIX_JSON *))) {
        orlix_json_free(twin);
        return nullptr;
      }
      orlix::json::elements(at.to)[at.to->length++] = twin;
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
  return is(node, ORLIX_JSON_ARRAY) ? static_cast<uint32_t>(node->length) : 0xFFFFFFFFu;
}

ORLIX_JSON *orlix_json_getarrayitem(const ORLIX_JSON *node, uint32_t index) {
  if (!is(node, ORLIX_JSON_ARRAY) || index >= static_cast<uint32_t>(node->length)) return nullptr;
  return orlix::json::elements(node)[index];
}

ORLIX_JSON *orlix_json_getobjectvalue(const ORLIX_JSON *node, const char *name, int length) {
  if (!name_args_ok(node, name, length)) return nullptr;
  // From the last member back: among duplicate names the last added wins.
  const int32_t i = find_member(node, name, length, true);
  return i < 0 ? nullptr : orlix::json::members(node)[i].value;
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
  ORLIX_JSON *name_node = new_name(name, n);
  if (name_node == nullptr || !make_room(object, sizeof(Member))) {
    release_name(name_node);
    orlix_json_free(copy);
    return 0;
  }
  orlix::json::members(object)[object->length++] = Member{name_node, copy};
  return 1;
}

int orlix_json_updateobjectitem(ORLIX_JSON *object, const char *name, int length,
                                const ORLIX_JSON *value) {
  if (!name_args_ok(object, name, length) || value == nullptr) return 0;
  const int32_t i = find_member(object, name, length, false);
  if (i < 0) return orlix_json_addobjectitem(object, name, static_cast<uint32_t>(length), value);
  ORLIX_JSON *copy = orlix_json_dup(value);
  if (copy == nullptr) return 0;  // the old value stays
  orlix::json::touch(object);
  Member &m = orlix::json::members(object)[i];
  orlix_json_free(m.value);
  m.value = copy;
  return 1;
}

int orlix_json_deleteobjectitem(ORLIX_JSON *object, const char *name, int length) {
  if (!name_args_ok(object, name, length)) return 0;
  // Delete and update take the first of duplicate names, lookup the last;
  // callers rely on this asymmetry.
  const int32_t i = find_member(object, name, length, false);
  if (i < 0) return 0;
  Member *m = orlix::json::members(object);
  orlix::json::touch(object);
  release_name(m[i].name);
  orlix_json_free(m[i].value);
  std::memmove(m + i, m + i + 1, static_cast<size_t>(object->length - i - 1) * sizeof(Member));
  --object->length;
  return 1;
}

int orlix_json_addarrayitem(ORLIX_JSON *array, const ORLIX_JSON *value) {
  if (!is(array, ORLIX_JSON_ARRAY) || value == nullptr) return 0;
  ORLIX_JSON *copy = orlix_json_dup(value);
  if (copy == nullptr) return 0;
  if (!make_room(array, sizeof(ORLIX_JSON *))) {
    orlix_json_free(copy);
    return 0;
  }
  orlix::json::elements(array)[array->length++] = copy;
  return 1;
}

int orlix_json_deletearrayitem(ORLIX_JSON *array, int index) {
  if (!is(array, ORLIX_JSON_ARRAY) || index < 0 || index >= array->length) return 0;
  ORLIX_JSON **e = orlix::json::elements(array);
  orlix::json::touch(array);
  orlix_json_free(e[index]);
  std::memmove(e + index, e + index + 1,
               static_cast<size_t>(array->length - index - 1) * sizeof(ORLIX_JSON *));
  --array->length;
  return 1;
}

int orlix_json_traverse(ORLIX_JSON *object, ORLIX_JSON_TraverseFunc callback, void *userdata) {
  if (!is(object, ORLIX_JSON_OBJECT) || callback == nullptr) return 0;
  for (int32_t i = 0; i < object->length; ++i) {
    const Member &m = orlix::json::members(object)[i];
    if (callback(userdata, m.name->value.string, static_cast<uint32_t>(m.name->length), m.value) !=
        1)
      return 0;
  }
  return 1;
}

}  // extern "C"
