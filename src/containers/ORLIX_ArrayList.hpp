// Library-internal operations on array lists.
#pragma once

#include "ORLIX_ArrayList.h"

// Sorts the items in place with qsort; compare receives pointers to two
// slots (pointers to item pointers). The list must not be NULL. Not stable.
void iorlix_arraylist_sort(ORLIX_ArrayList *list, int (*compare)(const void *, const void *));
