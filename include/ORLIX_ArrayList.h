/*
 * ORLIX_ArrayList.h - a growable array of non-NULL pointers.
 *
 * The list starts with 16 slots and doubles when full. It may own its items:
 * with a copy function it stores and hands out copies; with a free function
 * it releases items that are deleted or left when the list is freed. No
 * function reports to an error context; failures are 0 or NULL.
 */
#ifndef ORLIX_ARRAYLIST_H
#define ORLIX_ARRAYLIST_H

#include <stdint.h>

#include "ORLIX_Export.h"

ORLIX_BEGIN_DECLS

typedef struct ORLIX_ArrayList_st ORLIX_ArrayList;

/* Makes the copy stored (or handed out); NULL means the copy failed. */
typedef void *(*ORLIX_ArrayListCopyFunc)(void *item);
/* Releases one item. */
typedef void (*ORLIX_ArrayListFreeFunc)(void *item);

/* A new empty list; either function may be NULL. Note the order: copy
 * first, free second. NULL when memory runs out. */
ORLIX_API ORLIX_ArrayList *orlix_arraylist_new(ORLIX_ArrayListCopyFunc copy_fn,
                                               ORLIX_ArrayListFreeFunc free_fn);

/* Calls the free function (if any) on every item in index order, then
 * releases the list. NULL is ignored. */
ORLIX_API void orlix_arraylist_free(ORLIX_ArrayList *list);

/* Passes item to the list's free function: use it on copies returned by
 * orlix_arraylist_getitem. Does nothing for a NULL list or item or without a
 * free function. */
ORLIX_API void orlix_arraylist_freeitem(ORLIX_ArrayList *list, void *item);

/* Number of items; 0 for NULL. */
ORLIX_API uint32_t orlix_arraylist_count(const ORLIX_ArrayList *list);

/* The item at index: with a copy function a new copy the caller owns (give
 * it back with orlix_arraylist_freeitem), else the stored pointer. NULL for a
 * NULL list or an index outside 0..count-1. */
ORLIX_API void *orlix_arraylist_getitem(const ORLIX_ArrayList *list, int32_t index);

/* The stored pointer at index, never a copy; the list keeps ownership. */
ORLIX_API void *orlix_arraylist_getitemref(const ORLIX_ArrayList *list, int32_t index);

/* Appends item (or its copy). Returns 0, leaving the list as it was, for a
 * NULL list or item, a failed copy or no memory; else 1. */
ORLIX_API int orlix_arraylist_pushback(ORLIX_ArrayList *list, void *item);

/* Inserts item (or its copy) before index; a negative index inserts at the
 * front and one past the end appends. Failures as for pushback. Cost: the
 * items after index move, so filling a list from the front is quadratic;
 * append with pushback where the order allows. */
ORLIX_API int orlix_arraylist_insert(ORLIX_ArrayList *list, int32_t index, void *item);

/* Removes the item at index, calling the free function on it. Returns 0 for
 * a NULL list or an index outside 0..count-1, else 1. Capacity never
 * shrinks. */
ORLIX_API int orlix_arraylist_delete(ORLIX_ArrayList *list, int32_t index);

ORLIX_END_DECLS

#endif /* ORLIX_ARRAYLIST_H */
