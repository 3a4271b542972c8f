// Library-internal operations on array lists.
#pragma once

#include "ORLIX_ArrayList.h"

// Sorts the items in place with qsort; compare receives pointers to two
// slots (pointers to item pointers). The list must not be NULL. Not stable.
void iorlix_arraylist_sort(ORLIX_ArrayList *list, int (*compare)(const void *, const void *));
// The same sort (qsort_r orders exactly as qsort does) with an argument
// passed on to every comparison.
void iorlix_arraylist_sort_r(ORLIX_ArrayList *list,
                             int (*compare)(const void *, const void *, void *), void *arg);

// Lists that live inside another block (the JSON containers keep theirs in
// the node's own block). A placed list starts with its 16 slots inline and
// moves them to the heap only when it grows.

// Bytes a placed list needs, its first slots included.
int64_t iorlix_arraylist_footprint(void);

// Builds an empty list in `storage` (iorlix_arraylist_footprint() bytes,
// pointer-aligned) and returns it.
ORLIX_ArrayList *iorlix_arraylist_place(void *storage, ORLIX_ArrayListCopyFunc copy_fn,
                                        ORLIX_ArrayListFreeFunc free_fn);

// Frees a placed list's items (through its free function) and any slots it
// grew into, but not the storage itself.
void iorlix_arraylist_unplace(ORLIX_ArrayList *list);

// Empties a list without calling its free function on the items: for an
// owner that has already released them.
void iorlix_arraylist_forget(ORLIX_ArrayList *list);
