/*
 * ORLIX_JSON.h - a JSON value tree, its decoder and its encoder.
 *
 * One node per value. Objects keep their members in insertion order (names
 * may repeat); arrays keep their elements in order. Ownership:
 *  - every constructor and orlix_json_dup/orlix_json_decode return a tree the
 *    caller releases with orlix_json_free;
 *  - every value handed to an add or update operation is COPIED: the caller
 *    keeps (and frees) its own;
 *  - every node returned by a getter (orlix_json_getarrayitem,
 *    orlix_json_getobjectvalue) and every name and value given to a traverse
 *    callback is BORROWED from the tree and lives as long as its container;
 *  - strings are UTF-8 byte sequences with a length; they may hold NUL bytes
 *    and always carry a terminating NUL after their length.
 * Nothing reports errors beyond the result: NULL, 0 or a getter sentinel.
 */
#ifndef ORLIX_JSON_H
#define ORLIX_JSON_H

#include <stdint.h>

#include "ORLIX_Export.h"

ORLIX_BEGIN_DECLS

typedef struct ORLIX_JSON_st ORLIX_JSON;

/* Type codes, in the order the comparison ranks them. */
#define ORLIX_JSON_STRING 1u
#define ORLIX_JSON_NUMBER 2u
#define ORLIX_JSON_BOOLEAN 3u
#define ORLIX_JSON_NULL 4u
#define ORLIX_JSON_OBJECT 5u
#define ORLIX_JSON_ARRAY 6u

/* Encoder flags. */
#define ORLIX_JSON_ENCODE_PRETTY 0x80000000u /* indented, one element per line */
#define ORLIX_JSON_ENCODE_SPACES 0x40000000u /* each level: N spaces, then a tab */
#define ORLIX_JSON_ENCODE_CR 0x20000000u     /* line breaks write CR */
#define ORLIX_JSON_ENCODE_LF 0x10000000u     /* line breaks write LF (after CR) */
#define ORLIX_JSON_ENCODE_SORT 0x00100000u   /* sort the top-level container first */
#define ORLIX_JSON_ENCODE_SPACES_MASK 0x000000FFu /* N for ORLIX_JSON_ENCODE_SPACES */

/* ---- constructors (NULL when memory runs out) ------------------------- */

/* A boolean: 1 for any non-zero value, else 0. */
ORLIX_API ORLIX_JSON *orlix_json_newboolean(int value);
ORLIX_API ORLIX_JSON *orlix_json_newnull(void);
ORLIX_API ORLIX_JSON *orlix_json_newnumber(double value);
/* A copy of length bytes of valid UTF-8. NULL for a negative length,
 * 0x7FFFFFFF, NULL bytes with a non-zero length or invalid UTF-8;
 * (NULL, 0) is the empty string. */
ORLIX_API ORLIX_JSON *orlix_json_newstring(const char *bytes, int length);
ORLIX_API ORLIX_JSON *orlix_json_newobject(void);
ORLIX_API ORLIX_JSON *orlix_json_newarray(void);

/* Releases a tree; NULL is ignored. */
ORLIX_API void orlix_json_free(ORLIX_JSON *node);

/* A deep copy, or NULL. */
ORLIX_API ORLIX_JSON *orlix_json_dup(const ORLIX_JSON *node);

/* ---- getters: a NULL node or the wrong type gives the sentinel --------- */

/* The type code; 0xFFFFFFFF for NULL. */
ORLIX_API uint32_t orlix_json_gettype(const ORLIX_JSON *node);
/* 1 or 0 for a boolean; 0 otherwise. */
ORLIX_API int orlix_json_istrue(const ORLIX_JSON *node);
/* The number; -1.0 otherwise (check the type when -1.0 is possible). */
ORLIX_API double orlix_json_getnumber(const ORLIX_JSON *node);
/* The string's own NUL-terminated bytes (borrowed); NULL otherwise. */
ORLIX_API const char *orlix_json_getstring(const ORLIX_JSON *node);
/* The string's length in bytes; 0xFFFFFFFF otherwise. */
ORLIX_API uint32_t orlix_json_getstringlength(const ORLIX_JSON *node);
/* The array's element count; 0xFFFFFFFF otherwise. */
ORLIX_API uint32_t orlix_json_getarraysize(const ORLIX_JSON *node);
/* The element at index (borrowed); NULL otherwise or out of range. */
ORLIX_API ORLIX_JSON *orlix_json_getarrayitem(const ORLIX_JSON *node, uint32_t index);
/* The value of the LAST member whose name is exactly these bytes
 * (borrowed); NULL when there is none or on bad arguments. */
ORLIX_API ORLIX_JSON *orlix_json_getobjectvalue(const ORLIX_JSON *node, const char *name,
                                                int length);

/* ---- mutators ------------------------------------------------------------ */

/* Appends a member (a copy of value), even when the name already exists.
 * Returns 1, or 0 with nothing added (not an object, NULL value, a name that
 * is not valid UTF-8, no memory). */
ORLIX_API int orlix_json_addobjectitem(ORLIX_JSON *object, const char *name, uint32_t length,
                                       const ORLIX_JSON *value);
/* Replaces the value of the FIRST member of that name with a copy of value
 * (the old value is freed once the copy exists), or appends a new member.
 * Returns 1, or 0 leaving the object as it was. */
ORLIX_API int orlix_json_updateobjectitem(ORLIX_JSON *object, const char *name, int length,
                                          const ORLIX_JSON *value);
/* Removes and frees the FIRST member of that name. Returns 0 when none
 * matches or on bad arguments. */
ORLIX_API int orlix_json_deleteobjectitem(ORLIX_JSON *object, const char *name, int length);
/* Appends a copy of value. Returns 1, or 0 leaving the array as it was. */
ORLIX_API int orlix_json_addarrayitem(ORLIX_JSON *array, const ORLIX_JSON *value);
/* Removes and frees the element at index. Returns 0 for a non-array or an
 * index out of range. */
ORLIX_API int orlix_json_deletearrayitem(ORLIX_JSON *array, int index);

/* Called once per member with its name bytes and value (both borrowed);
 * return 1 to go on, anything else to stop. */
typedef int (*ORLIX_JSON_TraverseFunc)(void *userdata, const char *name, uint32_t length,
                                       ORLIX_JSON *value);
/* Walks an object's members in order. Returns 1 after the last member, 0
 * when the callback stops the walk or on bad arguments. */
ORLIX_API int orlix_json_traverse(ORLIX_JSON *object, ORLIX_JSON_TraverseFunc callback,
                                  void *userdata);

/* ---- text ------------------------------------------------------------------ */

/*
 * Decodes exactly length bytes of JSON text (no NUL needed) into a new tree,
 * or NULL. Strict where it matters: nothing may follow a top-level scalar,
 * not even whitespace; no leading whitespace before a top-level scalar;
 * strings must be valid UTF-8 without raw control bytes or lone surrogate
 * escapes. Nesting deeper than orlix_get_recursive_level() is refused. A
 * member name's opening quote is not examined. Duplicate names are kept.
 */
ORLIX_API ORLIX_JSON *orlix_json_decode(const char *bytes, uint32_t length);

/* Why a decode failed: the code of ORLIX_JSON_Error, each with a fixed
 * reason text. */
#define ORLIX_JSON_ERROR_NONE 0u         /* "no error" */
#define ORLIX_JSON_ERROR_NO_INPUT 1u     /* "no input" (NULL text) */
#define ORLIX_JSON_ERROR_TOO_LONG 2u     /* "text too long" (2 GiB or more) */
#define ORLIX_JSON_ERROR_END 3u          /* "unexpected end of input" */
#define ORLIX_JSON_ERROR_CHARACTER 4u    /* "unexpected character" */
#define ORLIX_JSON_ERROR_LITERAL 5u      /* "invalid literal" */
#define ORLIX_JSON_ERROR_NUMBER 6u       /* "invalid number" */
#define ORLIX_JSON_ERROR_UNTERMINATED 7u /* "unterminated string" */
#define ORLIX_JSON_ERROR_CONTROL 8u      /* "control character in string" */
#define ORLIX_JSON_ERROR_ESCAPE 9u       /* "invalid escape" */
#define ORLIX_JSON_ERROR_SURROGATE 10u   /* "unpaired surrogate escape" */
#define ORLIX_JSON_ERROR_UTF8 11u        /* "invalid UTF-8 in string" */
#define ORLIX_JSON_ERROR_NESTING 12u     /* "nesting limit reached" */
#define ORLIX_JSON_ERROR_TRAILING 13u    /* "trailing data" */
#define ORLIX_JSON_ERROR_MEMORY 14u      /* "out of memory" */

/* Where and why orlix_json_decodewitherror failed. */
typedef struct ORLIX_JSON_Error_st {
  uint64_t offset;    /* bytes from the start of the text to the problem */
  uint32_t line;      /* 1-based; lines end with a line feed */
  uint32_t column;    /* 1-based, in characters (UTF-8 sequences) of that line */
  uint32_t code;      /* ORLIX_JSON_ERROR_* */
  const char *reason; /* the code's fixed text, e.g. "unexpected character" */
} ORLIX_JSON_Error;

/*
 * Decodes exactly as orlix_json_decode does - the same texts give the same
 * tree or NULL - and when it returns NULL also fills *error (when error is
 * not NULL): the problem's byte offset, its line and column, the code and
 * its reason. The position is that of the byte that cannot be accepted, the
 * opening quote of an unterminated string, the first byte of an invalid
 * number, literal or UTF-8 sequence, the value that goes beyond the nesting
 * limit, the first byte after a complete top-level value that may not
 * follow it (trailing data: a container may be followed by blanks, a
 * scalar by nothing), or the end of the text. An unpaired surrogate is
 * reported at the escape of its first half. On success *error is set to code
 * ORLIX_JSON_ERROR_NONE, offset 0, line and column 0. The reason texts are
 * constant; nothing needs freeing. Takes time linear in length.
 */
ORLIX_API ORLIX_JSON *orlix_json_decodewitherror(const char *bytes, uint32_t length,
                                                 ORLIX_JSON_Error *error);

/*
 * Encodes a tree as JSON text. Returns 1 with *bytes = a new NUL-terminated
 * buffer (release with orlix_free) and *length its length without the NUL,
 * or 0 handing out nothing. Integral numbers in 32-bit range are written as
 * integers, others with at most six decimals; bytes below 0x20 are written
 * as \u00XX, everything else as it is. With ORLIX_JSON_ENCODE_PRETTY,
 * containers are laid out one entry per line but member values of objects
 * stay compact. ORLIX_JSON_ENCODE_SORT sorts the top-level container IN THE
 * CALLER'S TREE before encoding.
 * Fails when the text would be longer than UINT32_MAX bytes (*length could
 * not report it). Cost: linear in the output, which indented output of a
 * deep tree makes quadratic in the depth (each level repeats the indent);
 * the sort adds O(n log n) comparisons of the top-level entries, each
 * linear in the smaller of the two values compared.
 */
ORLIX_API int orlix_json_encode(ORLIX_JSON *json, uint32_t flags, char **bytes,
                                uint32_t *length);

ORLIX_END_DECLS

#endif /* ORLIX_JSON_H */
