/*
 * ORLIX_UString.h - immutable, reference-counted Unicode strings.
 *
 * A string holds well-formed UTF-16 in machine byte order. Constructors
 * validate their input and return NULL on anything malformed; nothing is
 * recorded anywhere, so NULL or 0 is the whole failure report. Strings are
 * shared by reference count (orlix_ustring_dup / orlix_ustring_free); the
 * count is not atomic, so a string shared between threads needs the caller's
 * lock around dup and free. Buffers returned by the conversions belong to the
 * caller, who releases them with orlix_free.
 *
 * Every constructor taking a pointer and a count treats (NULL, 0) as the empty
 * string and a NULL pointer with a non-zero count, or a negative count, as an
 * error (NULL).
 */
#ifndef ORLIX_USTRING_H
#define ORLIX_USTRING_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#include "ORLIX_Export.h"

ORLIX_BEGIN_DECLS

typedef struct ORLIX_UString_st ORLIX_UString;

/* ---- construction and ownership --------------------------------------- */

/* From count UTF-16 units; a high surrogate must be followed by a low one and
 * no low surrogate may stand alone. */
ORLIX_API ORLIX_UString *orlix_ustring_newlength(const uint16_t *units, int64_t count);

/* From NUL-terminated UTF-16 units; NULL gives the empty string. */
ORLIX_API ORLIX_UString *orlix_ustring_new(const uint16_t *units);

/* From exactly well-formed UTF-8: overlong forms, encoded surrogates, values
 * above U+10FFFF and truncated sequences are refused. U+0000 is kept. */
ORLIX_API ORLIX_UString *orlix_ustring_newutf8(const char *bytes, int64_t count);

/* From UCS-2 big-endian bytes: an even count, no surrogate units. */
ORLIX_API ORLIX_UString *orlix_ustring_newbmp(const unsigned char *bytes, int64_t count);

/* From count code points, one per element; surrogate values and values above
 * U+10FFFF are refused. */
ORLIX_API ORLIX_UString *orlix_ustring_newutf32(const uint64_t *code_points, int64_t count);

/* From 4-byte big-endian code points; count must be a multiple of 4. */
ORLIX_API ORLIX_UString *orlix_ustring_newutf32be(const unsigned char *bytes, int64_t count);

/* From ASCII: every byte below 0x80 (0x00 included). */
ORLIX_API ORLIX_UString *orlix_ustring_newascii(const char *bytes, int64_t count);

/* From a NUL-terminated wide string (one code point per wchar_t). NULL gives
 * NULL, not the empty string. */
ORLIX_API ORLIX_UString *orlix_ustring_newwcs(const wchar_t *text);

/* One more reference to s (no copy); NULL stays NULL. */
ORLIX_API ORLIX_UString *orlix_ustring_dup(ORLIX_UString *s);

/* Drops one reference, freeing the string with the last one; NULL is
 * ignored. */
ORLIX_API void orlix_ustring_free(ORLIX_UString *s);

/* Number of code points (a surrogate pair counts once); 0 for NULL. */
ORLIX_API int64_t orlix_ustring_getcharcount(const ORLIX_UString *s);

/* ---- conversions out ---------------------------------------------------
 * Each returns 1 with a new buffer in *out (release with orlix_free) and its
 * element count in *count, or 0 for a NULL argument or a failed conversion
 * (*out is then NULL). Every buffer is followed by one zero element that the
 * count does not include. */

/* Shortest-form UTF-8. */
ORLIX_API int orlix_ustring_toutf8(const ORLIX_UString *s, char **out, int64_t *count);

/* A copy of the UTF-16 units. */
ORLIX_API int orlix_ustring_toutf16(const ORLIX_UString *s, uint16_t **out, int64_t *count);

/* UCS-2 big-endian (two zero bytes follow); fails for text above U+FFFF. */
ORLIX_API int orlix_ustring_tobmp(const ORLIX_UString *s, unsigned char **out, int64_t *count);

/* One 64-bit element per code point. */
ORLIX_API int orlix_ustring_toutf32(const ORLIX_UString *s, uint64_t **out, int64_t *count);

/* 4 big-endian bytes per code point (four zero bytes follow). */
ORLIX_API int orlix_ustring_toutf32be(const ORLIX_UString *s, unsigned char **out,
                                      int64_t *count);

/* A NUL-terminated wide string (release with orlix_free), or NULL. */
ORLIX_API wchar_t *orlix_ustring_towcs(const ORLIX_UString *s);

/* ---- operations ---------------------------------------------------------- */

/* -1, 0 or 1 in code-point order. NULL sorts before any string. */
ORLIX_API int orlix_ustring_cmp(const ORLIX_UString *a, const ORLIX_UString *b);

/*
 * Compares the first n characters - and, for compatibility, one character
 * more (up to the terminator when n reaches a string's length). n = 0 gives
 * 0; a negative n compares whole strings.
 */
ORLIX_API int orlix_ustring_ncmp(const ORLIX_UString *a, const ORLIX_UString *b, int64_t n);

/* A new string a followed by b. With one side NULL the other is returned as
 * another reference to the same string (release it with orlix_ustring_free);
 * both NULL gives NULL. */
ORLIX_API ORLIX_UString *orlix_ustring_cat(ORLIX_UString *a, ORLIX_UString *b);

/*
 * count characters from character index start (a negative count means to
 * the end). NULL when s is NULL, start is outside the string or count is 0.
 * When the character right after the range lies above U+FFFF, the result
 * keeps that character's high surrogate as its last unit.
 */
ORLIX_API ORLIX_UString *orlix_ustring_substring(const ORLIX_UString *s, int64_t start,
                                                 int64_t count);

/* Looks for needle in haystack from character index start. Returns 1 with
 * *position = the character index of the match, or 0 with *position = -1
 * (nothing is written for invalid arguments). An empty needle matches at
 * start. */
ORLIX_API int orlix_ustring_find(const ORLIX_UString *haystack, int64_t start,
                                 const ORLIX_UString *needle, int64_t *position);

/* ---- locale charsets ----------------------------------------------------- */

/*
 * The charset named by the locale environment (the first non-empty of
 * LC_ALL, LC_CTYPE, LANG): the codeset of a language_territory.codeset@mod
 * name, or a fixed answer for a few bare names ("C" and unset give
 * "ISO8859-1", zh_CN "GBK", zh_TW and zh_HK "BIG5", en_US and en_GB
 * "ISO8859-1"). NULL for any other name. Release with orlix_free.
 */
ORLIX_API char *orlix_ustring_getdefaultcharset(void);

/*
 * From bytes in the named charset. UTF-8 and ASCII are decoded here (the
 * name is matched ignoring case); other names go through iconv, then the
 * application's callback.
 * HAZARD: the names UTF-16BE, UTF-16LE, UTF-32BE and UTF-32LE keep an old
 * fixed-width behaviour. Whatever count is (from 1 on), they READ 8 BYTES
 * FROM data - past the end of a shorter buffer - and make 4 UTF-16 units or
 * 2 code points from one byte of each unit (the high byte of the unit, the
 * rest 0). They do not decode UTF-16 or UTF-32: use orlix_ustring_newlength,
 * orlix_ustring_newbmp, orlix_ustring_newutf32be or orlix_ustring_newutf32.
 * Cost: linear in count.
 */
ORLIX_API ORLIX_UString *orlix_ustring_newmbs(const char *charset, const char *data,
                                              int64_t count);

/*
 * To bytes in the named charset, followed by one zero byte that *count does
 * not include. UTF-8, ASCII, UTF-16BE/LE and UTF-32BE are encoded here;
 * UTF-32LE keeps an old behaviour (only every fourth code point is byte
 * swapped); other names go through iconv, then the application's callback.
 * Returns 0 on failure. Release *out with orlix_free.
 */
ORLIX_API int orlix_ustring_tombs(const ORLIX_UString *s, const char *charset, char **out,
                                  int64_t *count);

/* An application converter from bytes in `charset` to UTF-16 units; returns
 * 1 for success. Used when iconv does not know the charset. */
typedef int (*ORLIX_MbsToWcsFunc)(void *context, const char *charset, const char *in,
                                  int64_t in_count, uint16_t *out, int64_t out_capacity,
                                  int64_t *out_count);

/* An application converter from UTF-16 units to bytes in `charset`. */
typedef int (*ORLIX_WcsToMbsFunc)(void *context, const char *charset, const uint16_t *in,
                                  int64_t in_count, char *out, int64_t out_capacity,
                                  int64_t *out_count);

/* Installs the fallback converters (a NULL function switches one off).
 * Process-wide and unlocked: set them at start-up. Return 1. */
ORLIX_API int orlix_ustring_setmbstowcscallback(void *context, ORLIX_MbsToWcsFunc fn);
ORLIX_API int orlix_ustring_setwcstombscallback(void *context, ORLIX_WcsToMbsFunc fn);

/* ---- normalization, case folding and string preparation -------------------
 * Unicode 8.0 normalization and case folding, the LDAP (RFC 4518) and
 * nameprep (RFC 3491) string preparation profiles and IDNA (RFC 3490) with
 * Punycode (RFC 3492). Every function returns a string to be released with
 * orlix_ustring_free (or a buffer to be released with orlix_free), and
 * reports failure only by its result: nothing is recorded anywhere. */

/* Normalization forms. */
#define ORLIX_NORMALIZE_NFD 1
#define ORLIX_NORMALIZE_NFC 2
#define ORLIX_NORMALIZE_NFKD 3
#define ORLIX_NORMALIZE_NFKC 4

/*
 * s in the given normalization form. When s already is in that form (and
 * always for the empty string) the result is s itself with one more
 * reference; otherwise it is a new string. Either way release it with
 * orlix_ustring_free. NULL for a NULL string, an unknown form, a string
 * holding an unpaired surrogate next to other text (only a substring can) or
 * when memory runs out.
 */
ORLIX_API ORLIX_UString *orlix_ustring_normalize(ORLIX_UString *s, int32_t form);

/* Case folding modes: Unicode full case folding, or full case folding with
 * the FC_NFKC_Closure additions (RFC 3454 table B.2). */
#define ORLIX_CASEFOLD_FULL 1
#define ORLIX_CASEFOLD_NFKC_CLOSURE 2

/* A new string holding the case folding of s (U+00DF becomes "ss"). NULL for
 * a NULL string, another mode, or when memory runs out. */
ORLIX_API ORLIX_UString *orlix_ustring_tocasefold(const ORLIX_UString *s, int32_t mode);

/* LDAP matching types of orlix_ustring_ldapi18nstringprep. */
#define ORLIX_LDAPPREP_CASE_EXACT 0       /* spaces kept as separators */
#define ORLIX_LDAPPREP_CASE_IGNORE 1      /* the same, case folded */
#define ORLIX_LDAPPREP_NUMERIC 3          /* case folded, spaces removed */
#define ORLIX_LDAPPREP_TELEPHONE 4        /* spaces and hyphens removed */
#define ORLIX_LDAPPREP_TELEPHONE_IGNORE 5 /* the same, case folded */

/*
 * A new string: s prepared for LDAP matching of the given type (RFC 4518):
 * mapped, case folded for types 1, 3 and 5, NFKC-normalized, checked for
 * prohibited code points, stripped of right-to-left letters, and with its
 * insignificant spaces (types 0, 1), spaces (3) or spaces and hyphens (4, 5)
 * handled. Types 0 and 1 give " " + words separated by two spaces + " ", and
 * exactly two spaces for a text that is empty or only spaces. NULL for a
 * NULL string, another type, a prohibited code point (unassigned in Unicode
 * 5.0, private use, non-character, U+FFFD, RFC 3454 table C.8) or when
 * memory runs out.
 */
ORLIX_API ORLIX_UString *orlix_ustring_ldapi18nstringprep(int64_t type, const ORLIX_UString *s);

/*
 * A new string: s prepared with the nameprep profile (RFC 3491): B.1 code
 * points removed, case folded with the B.2 additions, NFKC-normalized, then
 * checked. NULL for a NULL string, a prohibited code point (non-ASCII
 * spaces and controls, private use, non-characters, surrogates, tables C.6
 * to C.9), a breach of the bidirectional rule, an unassigned code point
 * unless allowunassigned is non-zero, or when memory runs out.
 */
ORLIX_API ORLIX_UString *orlix_ustring_idn_stringprep(const ORLIX_UString *s,
                                                      int32_t allowunassigned);

/*
 * IDNA ToASCII of one label (RFC 3490). A label of ASCII only is kept as it
 * is (case included); any other is prepared with nameprep and, when it is
 * not ASCII then, Punycode-encoded behind the prefix "xn--". With
 * usestd3asciirules, a label holding an ASCII character other than a letter,
 * digit or hyphen, or beginning or ending with a hyphen, is refused;
 * allowwildcard lets "*" through that test. Flags are true when non-zero.
 * Returns 1 with a new NUL-terminated ASCII label of 1 to 63 characters in
 * *out (release with orlix_free) and its length in *count; 0 for a NULL or
 * empty label, a NULL out pointer, a label nameprep or the rules refuse, a
 * non-ASCII label that already starts with "xn--", a result of more than 63
 * characters, or when memory runs out.
 */
ORLIX_API int orlix_ustring_idnlabel_toascii(const ORLIX_UString *label, int32_t allowunassigned,
                                             int32_t usestd3asciirules, int32_t allowwildcard,
                                             char **out, int64_t *count);

/*
 * ToASCII of a domain name: every label converted as above and joined with
 * ".". U+002E, U+3002, U+FF0E and U+FF61 all separate labels. Returns 1 with
 * a new NUL-terminated ASCII name in *out (release with orlix_free) and its
 * length in *count; 0 when any label fails, a label is empty (also a
 * trailing separator), the domain is NULL or empty, or out is NULL.
 */
ORLIX_API int orlix_ustring_idn_toascii(const ORLIX_UString *domain, int32_t allowunassigned,
                                        int32_t usestd3asciirules, int32_t allowwildcard,
                                        char **out, int64_t *count);

/*
 * IDNA ToUnicode of one label: the decoded form of an "xn--" label whose
 * decoding converts back to it under ToASCII with the same flags. Never
 * fails: whatever cannot be decoded is given back as label itself with one
 * more reference. Release the result with orlix_ustring_free. NULL only for
 * a NULL label.
 */
ORLIX_API ORLIX_UString *orlix_ustring_idnlabel_tounicode(ORLIX_UString *label,
                                                          int32_t allowunassigned,
                                                          int32_t usestd3asciirules,
                                                          int32_t allowwildcard);

/*
 * ToUnicode of a domain name: a new string with every label converted as
 * above and joined with ".". A domain with an empty label (also a trailing
 * separator), or one that cannot be built, is given back itself with one
 * more reference. NULL only for a NULL domain.
 */
ORLIX_API ORLIX_UString *orlix_ustring_idn_tounicode(ORLIX_UString *domain,
                                                     int32_t allowunassigned,
                                                     int32_t usestd3asciirules,
                                                     int32_t allowwildcard);

ORLIX_END_DECLS

#endif /* ORLIX_USTRING_H */
