/*
 * ORLIX_Util.h - allocation hooks, version, load-time settings, data blobs and
 * binary search.
 *
 * Every heap block of the library is taken with orlix_malloc and returned
 * with orlix_free. Blocks the library hands to the caller (detached buffers,
 * encoded texts) are released by the caller with orlix_free.
 */
#ifndef ORLIX_UTIL_H
#define ORLIX_UTIL_H

#include <stdint.h>

#include "ORLIX_Export.h"

ORLIX_BEGIN_DECLS

/*
 * The version of these headers, fixed at compile time. The shared object's
 * soname carries the major number (liborlix_util.so.2); orlix_util_version
 * names the major and minor numbers at run time. A program can compare the
 * two to notice that it runs against another release than it was built with.
 */
#define ORLIX_UTIL_VERSION_MAJOR 2
#define ORLIX_UTIL_VERSION_MINOR 6
#define ORLIX_UTIL_VERSION_PATCH 0
#define ORLIX_UTIL_VERSION_STRING "2.6.0"

/* An allocation hook: size in bytes, the caller's module name and line. */
typedef void *(*ORLIX_MallocFunc)(uint64_t size, const char *file, int32_t line);
/* A release hook; never called with NULL. */
typedef void (*ORLIX_FreeFunc)(void *ptr);

/*
 * Allocates size bytes through the current hook; the memory is not zeroed.
 * Returns NULL for a negative size (without calling the hook) or when the
 * hook fails. The first call fixes the hooks for the life of the process.
 */
ORLIX_API void *orlix_malloc(int64_t size, const char *file, int32_t line);

/* Returns a block from orlix_malloc; NULL is ignored. */
ORLIX_API void orlix_free(void *ptr);

/*
 * Installs an allocation pair. Both must be given; refused (0) once the
 * library has allocated anything, so call it first thing. Returns 1 when
 * installed.
 */
ORLIX_API int orlix_setallocfunc(ORLIX_MallocFunc malloc_fn, ORLIX_FreeFunc free_fn);

/* The allocation hook in force. */
ORLIX_API ORLIX_MallocFunc orlix_getmallocfunc(void);

/* The release hook in force. */
ORLIX_API ORLIX_FreeFunc orlix_getfreefunc(void);

/*
 * Switches on the debug allocation tracker: every later block carries guard
 * words and is recorded with its module and line, frees of unknown or damaged
 * blocks are remembered, and orlix_printdebugalloc reports leaks and damage.
 * Like orlix_setallocfunc, refused (0) once the library has allocated
 * anything. The environment variable ORLIX_DEBUG_MEMORY_NUMBER=N (N >= 1)
 * makes the N-th tracked allocation (counting from 0) stall for an hour so
 * that a debugger can be attached. Returns 1 when the tracker is on.
 */
ORLIX_API int orlix_setdebugalloc(void);

/* Writes the tracker's report (counts, live blocks with their first bytes,
 * damaged blocks, bad frees) to the file at path, replacing it. Returns 1,
 * or 0 when the tracker is off or the file cannot be opened. */
ORLIX_API int orlix_printdebugalloc(const char *path);

/* "ORLIX Utility Library 2.6,Build on 2019"; a constant text. */
ORLIX_API const char *orlix_util_version(void);

/*
 * The JSON decoder's nesting limit, read once at load time from the
 * environment variable ORLIX_RECURSIVE_LEVEL (decimal; values below 8 give
 * 8; absent gives 200).
 */
ORLIX_API int32_t orlix_get_recursive_level(void);

/* A byte string handed out by the library: data owned by the blob. */
typedef struct ORLIX_DataBlob_st {
  unsigned char *data;
  int64_t length;
} ORLIX_DataBlob;

/* A new blob holding a copy of length bytes. NULL when data is NULL, length
 * is negative or memory runs out. Free with orlix_data_blob_free. */
ORLIX_API ORLIX_DataBlob *orlix_data_blob_new(const void *data, int64_t length);

/* Releases a blob and its bytes; NULL is ignored. */
ORLIX_API void orlix_data_blob_free(ORLIX_DataBlob *blob);

/* Orders a key against an array element: negative when the key sorts
 * before the element, 0 when equal, positive when after. */
typedef int (*ORLIX_CompareFunc)(const void *key, const void *element);

/*
 * Binary search over count elements of element_size bytes sorted by compare.
 * Returns 1 with *position = the first index whose element equals key, or 0
 * with *position = the insertion point (the first element after the key,
 * count if none). count <= 0 gives 0 and *position = -1. A NULL key, base,
 * compare or position, or element_size <= 0, gives 0 and writes nothing.
 */
ORLIX_API int orlix_bsearch(const void *key, const void *base, int64_t count,
                            int64_t element_size, ORLIX_CompareFunc compare,
                            int64_t *position);

ORLIX_END_DECLS

#endif /* ORLIX_UTIL_H */
