/*
 * ORLIX_Stream.h - chains of filter streams over one source/sink.
 *
 * A chain has zero or more filters (hex, and later base64, digest, HMAC) above
 * exactly one source/sink at its bottom (memory, and later file, null).
 * Callers read from and write to the top. Every fallible function takes an
 * error context as its last argument (may be NULL) and, on failure, records
 * one entry there and returns 0 (constructors return NULL).
 *
 * A caller can add a stream kind of its own: fill an ORLIX_StreamMethod
 * table, take an ORLIX_Stream record with orlix_malloc and set its fields.
 * orlix_stream_free calls the kind's destroy and then releases the record
 * with orlix_free.
 */
#ifndef ORLIX_STREAM_H
#define ORLIX_STREAM_H

#include <stdint.h>

#include "ORLIX_Error.h"
#include "ORLIX_Export.h"
#include "ORLIX_Util.h"

ORLIX_BEGIN_DECLS

typedef struct ORLIX_Stream_st ORLIX_Stream;

/* The four operations of a stream kind, in slot order. Any slot may be
 * NULL: the generic functions then record ORLIX_ERR_NOT_SUPPORTED. */
typedef struct ORLIX_StreamMethod_st {
  /* Reads up to length bytes; a successful read of 0 bytes is end of data. */
  int (*read)(ORLIX_Stream *stream, void *buffer, int64_t length, uint64_t *count,
              ORLIX_ErrCtx *ctx);
  /* Writes up to length bytes; *count receives the number accepted. */
  int (*write)(ORLIX_Stream *stream, const void *buffer, int64_t length, uint64_t *count,
               ORLIX_ErrCtx *ctx);
  /* Releases the kind's private data, never the record itself. */
  void (*destroy)(ORLIX_Stream *stream);
  /* Control codes ORLIX_CTRL_*; code 11 returns a truth value. */
  int (*ctrl)(ORLIX_Stream *stream, int64_t code, void *argument, ORLIX_ErrCtx *ctx);
} ORLIX_StreamMethod;

/* One link of a chain. */
struct ORLIX_Stream_st {
  const ORLIX_StreamMethod *method;
  uint32_t type;
  void *data;        /* the kind's private record, released by destroy */
  ORLIX_Stream *prev; /* the stream above, NULL at the top */
  ORLIX_Stream *next; /* the stream below, NULL at the bottom */
};

/* Type numbers: bit 0x10000 marks filters, bit 0x20000 sources/sinks. */
#define ORLIX_STREAM_FILTER 0x10000u
#define ORLIX_STREAM_SOURCE_SINK 0x20000u
#define ORLIX_STREAM_TYPE_MD 0x10003u
#define ORLIX_STREAM_TYPE_HEX 0x10004u
#define ORLIX_STREAM_TYPE_BASE64 0x10005u
#define ORLIX_STREAM_TYPE_HMAC 0x10007u
#define ORLIX_STREAM_TYPE_MEM 0x20001u
#define ORLIX_STREAM_TYPE_FILE 0x20002u
#define ORLIX_STREAM_TYPE_NULL 0x20006u

/* Control codes. A filter passes codes it does not handle to its next
 * stream; a sink that does not know a code records
 * ORLIX_ERR_STREAM_BAD_CTRL. Arguments are given in brackets. */
#define ORLIX_CTRL_RESET 1            /* rewind to the start */
#define ORLIX_CTRL_GET_LENGTH 2       /* [uint64_t *] total length */
#define ORLIX_CTRL_MD_LENGTH 3        /* [uint64_t *] digest length */
#define ORLIX_CTRL_MD_FINAL 4         /* [bytes] finish the digest */
#define ORLIX_CTRL_MD_PROPERTY 5      /* [uint32_t *] digest property */
#define ORLIX_CTRL_FLUSH 6            /* flush */
#define ORLIX_CTRL_GET_POS 7          /* [uint64_t *] current position */
#define ORLIX_CTRL_SET_POS 8          /* [int64_t *] set position */
#define ORLIX_CTRL_CLOSE 9            /* close the file */
#define ORLIX_CTRL_REOPEN 10          /* [int32_t *] reopen with a mode */
#define ORLIX_CTRL_EOF 11             /* 1 at end of data, else 0 */
#define ORLIX_CTRL_HMAC_FINAL 12      /* [bytes] finish the HMAC */
#define ORLIX_CTRL_GET_READ_POS 15    /* [uint64_t *] read position */
#define ORLIX_CTRL_GET_WRITE_POS 16   /* [uint64_t *] write position */
#define ORLIX_CTRL_SET_READ_POS 17    /* [int64_t *] set read position */
#define ORLIX_CTRL_SET_WRITE_POS 18   /* [int64_t *] set write position */
#define ORLIX_CTRL_RESERVE 19         /* [int64_t *] reserve n more bytes */
#define ORLIX_CTRL_BASE64_REMAINDER 20 /* [ORLIX_DataBlob **] undecoded rest */

/* ---- generic operations ---------------------------------------------- */

/* Dispatch to the stream's read slot and return its result. Records
 * ORLIX_ERR_NULL_POINT for a NULL stream, ORLIX_ERR_NOT_SUPPORTED without
 * the slot. count may be NULL. */
ORLIX_API int orlix_stream_read(ORLIX_Stream *stream, void *buffer, int64_t length,
                                uint64_t *count, ORLIX_ErrCtx *ctx);

/* Dispatch to the write slot, as orlix_stream_read. */
ORLIX_API int orlix_stream_write(ORLIX_Stream *stream, const void *buffer, int64_t length,
                                 uint64_t *count, ORLIX_ErrCtx *ctx);

/* Dispatch to the ctrl slot, as orlix_stream_read. */
ORLIX_API int orlix_stream_ctrl(ORLIX_Stream *stream, int64_t code, void *argument,
                                ORLIX_ErrCtx *ctx);

/* Writes all length bytes, calling write until they are taken. Returns 1,
 * or the first failing result (bytes already written stay written). A
 * negative length records ORLIX_ERR_BAD_LENGTH; 0 returns 1 at once. */
ORLIX_API int orlix_stream_writen(ORLIX_Stream *stream, const void *buffer, int64_t length,
                                  ORLIX_ErrCtx *ctx);

/* Reads exactly length bytes. A source that ends early records
 * ORLIX_ERR_BAD_LENGTH and returns 0. */
ORLIX_API int orlix_stream_readn(ORLIX_Stream *stream, void *buffer, int64_t length,
                                 ORLIX_ErrCtx *ctx);

/* Links an unlinked filter on top of chain, whose bottom must be its only
 * source/sink. Returns 1, or 0 (nothing recorded) when the link would break
 * the chain rules. */
ORLIX_API int orlix_stream_push(ORLIX_Stream *filter, ORLIX_Stream *chain);

/* Unlinks the top stream and returns the rest of the chain; NULL when top is
 * NULL, not the top or alone. The popped stream stays alive. */
ORLIX_API ORLIX_Stream *orlix_stream_pop(ORLIX_Stream *top);

/* Where orlix_stream_find_type starts its walk. */
#define ORLIX_FIND_FROM_TOP 1
#define ORLIX_FIND_FROM_SELF 2
#define ORLIX_FIND_FROM_NEXT 3

/* Walks down the chain from the chosen start and returns the first stream
 * of the given type; ORLIX_STREAM_FILTER or ORLIX_STREAM_SOURCE_SINK match
 * any stream with that bit. NULL when none matches or on bad arguments. */
ORLIX_API ORLIX_Stream *orlix_stream_find_type(ORLIX_Stream *stream, int32_t start,
                                               uint32_t type);

/* The stream's type, or 0xFFFFFFFF for NULL. */
ORLIX_API uint32_t orlix_stream_gettype(const ORLIX_Stream *stream);

/* The stream below, or NULL. */
ORLIX_API ORLIX_Stream *orlix_stream_next(const ORLIX_Stream *stream);

/* Destroys one stream and releases its record. Links are not touched:
 * pop it first, or use orlix_stream_freeall. NULL is ignored. */
ORLIX_API void orlix_stream_free(ORLIX_Stream *stream);

/* Frees every stream of the chain that stream belongs to. */
ORLIX_API void orlix_stream_freeall(ORLIX_Stream *stream);

/* Copies source into dest; *copied (may be NULL) receives the byte count. A
 * read that fails when the source reports its end counts as success. */
ORLIX_API int orlix_stream_writefromstream(ORLIX_Stream *dest, ORLIX_Stream *source,
                                           uint64_t *copied, ORLIX_ErrCtx *ctx);

/* ---- memory streams ------------------------------------------------------ */

/*
 * A growable memory stream with one position shared by reads and writes.
 * initial_capacity 0 means 4096; others round up to a multiple of 8; negative
 * records ORLIX_ERR_BAD_LENGTH. NULL on failure.
 */
ORLIX_API ORLIX_Stream *orlix_stream_new_mem(int64_t initial_capacity, ORLIX_ErrCtx *ctx);

/* A growable queue: separate read and write positions. Arguments as for
 * orlix_stream_new_mem. Cost: a write that finds no room at the end first
 * moves the unread bytes to the front, so a queue kept nearly full and fed
 * in small pieces moves its whole content on every write. */
ORLIX_API ORLIX_Stream *orlix_stream_new_rwspecmem(int64_t initial_capacity, ORLIX_ErrCtx *ctx);

/* A read-only stream over length bytes: a private copy when copy is
 * non-zero, else borrowed (data must outlive the stream). */
ORLIX_API ORLIX_Stream *orlix_stream_new_romem(const void *data, int64_t length, int32_t copy,
                                               ORLIX_ErrCtx *ctx);

/* A read-only stream borrowing an unlinked, shared-mode memory stream's
 * buffer; NULL otherwise. The source must outlive it and not grow meanwhile.
 * Records nothing. */
ORLIX_API ORLIX_Stream *orlix_memstream_dup_readonly(ORLIX_Stream *stream);

/*
 * Hands the memory stream's buffer and length (everything written) to the
 * caller, who releases it with orlix_free after freeing the stream. The
 * stream keeps using the buffer but can no longer grow it. Returns 0 (nothing
 * recorded) for a non-memory or queue stream or NULL pointers, else 1.
 */
ORLIX_API int orlix_memstreamdeatch(ORLIX_Stream *stream, unsigned char **buffer,
                                    int64_t *length);

/* ---- hex ------------------------------------------------------------------ */

/* A hex filter: bytes written become two digits each (upper case when
 * uppercase is non-zero); digit pairs read become bytes. A decode failure is
 * sticky. NULL when memory runs out. */
ORLIX_API ORLIX_Stream *orlix_stream_new_hex(int32_t uppercase, ORLIX_ErrCtx *ctx);

/* Encodes length (>= 1) bytes as 2 * length digits plus a NUL in a new block
 * (*text, released with orlix_free); *text_length = 2 * length. Returns 0 on
 * bad arguments or no memory. Records nothing. */
ORLIX_API int orlix_hexencode(int32_t uppercase, const void *data, int64_t length, char **text,
                              int64_t *text_length);

/* Decodes an even, non-zero number of hex digits (either case, nothing
 * else) into a new block (*data, released with orlix_free) of length / 2
 * bytes. Returns 0 on bad arguments, an invalid character or no memory.
 * Records nothing. */
ORLIX_API int orlix_hexdecode(const char *text, int64_t length, unsigned char **data,
                              int64_t *data_length);

/* ---- base64 and PEM -------------------------------------------------------- */

/* Encoder flags: the low part picks the line ending, the bits modify. */
#define ORLIX_BASE64_EOL_CR 1u
#define ORLIX_BASE64_EOL_CRLF 2u
#define ORLIX_BASE64_EOL_LF 3u
#define ORLIX_BASE64_EOL_NONE 4u
#define ORLIX_BASE64_NO_PAD 0x80u /* encoder: omit "="; decoder: input has none */
#define ORLIX_BASE64_URL 0x100u   /* the URL alphabet: "-" and "_" for "+" and "/" */
/* Decoder flags: the low part picks the whitespace accepted. */
#define ORLIX_BASE64_WS_NONE 1u
#define ORLIX_BASE64_WS_EOL 2u /* CR and LF */
#define ORLIX_BASE64_WS_ALL 3u /* CR, LF, TAB and space */

/*
 * A base64 filter: bytes written are encoded and passed on as text, text
 * read from below is decoded. The two sides have their own flags. Lines end
 * every line_length characters rounded up to whole groups (<= 0 means 64).
 * ORLIX_CTRL_FLUSH writes the final group: call it once, last, when encoding
 * (a second flush writes the final group again). With unpadded input, take
 * the final partial group with ORLIX_CTRL_BASE64_REMAINDER once reading is
 * done. A decode failure is sticky. Records ORLIX_ERR_STREAM_BASE64_FLAG
 * for flags out of range.
 */
ORLIX_API ORLIX_Stream *orlix_stream_new_base64(uint32_t encode_flags, int32_t line_length,
                                                uint32_t decode_flags, ORLIX_ErrCtx *ctx);

/* Encodes length (>= 1) bytes with 64-character lines into a new
 * NUL-terminated text (*text, released with orlix_free; *text_length
 * excludes the NUL). The text ends with a line ending only when the input
 * leaves a partial final group. Returns 0 on bad arguments or no memory. */
ORLIX_API int orlix_base64encode(uint32_t encode_flags, const void *data, int64_t length,
                                 char **text, int64_t *text_length);

/* Decodes length (>= 1) characters of base64 into a new block (*data,
 * released with orlix_free; no NUL added). Returns 0 on malformed text, bad
 * arguments or no memory. A padded text that stops inside a group decodes
 * up to the last whole group. */
ORLIX_API int orlix_base64decode(uint32_t decode_flags, const char *text, int64_t length,
                                 unsigned char **data, int64_t *data_length);

/* Wraps length bytes in PEM armour: "-----BEGIN <label>-----", base64 in
 * 64-character CR LF lines, "-----END <label>-----", each line ending in CR
 * LF. *pem is NUL-terminated (release with orlix_free). Returns 0 on bad
 * arguments or no memory. */
ORLIX_API int orlix_pemencode(const char *label, const void *data, int64_t length, char **pem,
                              int64_t *pem_length);

/* Checks the PEM armour for `label` strictly (the header must start the
 * text; the footer must end it, save a final line ending) and decodes the
 * body into a new block (*data, released with orlix_free). Returns 0 when
 * the framing or the body is wrong. */
ORLIX_API int orlix_pemdecode(const char *label, const char *pem, int64_t length,
                              unsigned char **data, int64_t *data_length);

/* ---- digest and HMAC --------------------------------------------------------- */

/*
 * A hash function described by the caller; the library has none of its
 * own. The table is copied into each stream. update and dup may be NULL
 * (update is then treated as failing; dup is needed only by
 * orlix_stream_md_dup). Contract of final when a digest filter finishes
 * (ORLIX_CTRL_MD_FINAL): it is called with `out` equal to `ctx` and must
 * leave the digest in the first bytes of the context.
 */
typedef struct ORLIX_MDMethod_st {
  void *(*md_new)(void);
  void (*md_free)(void *ctx);
  uint32_t (*md_length)(void);   /* digest size in bytes */
  uint32_t (*md_property)(void); /* reported by ORLIX_CTRL_MD_PROPERTY */
  void (*md_init)(void *ctx);
  int (*md_update)(void *ctx, const void *data, uint64_t length); /* 1 on success */
  int (*md_final)(void *ctx, unsigned char *out);                 /* 1 on success */
  uint32_t (*md_blocksize)(void);
  void *(*md_dup)(void *ctx);
} ORLIX_MDMethod;

/* A pass-through digest filter: bytes written go unchanged to the next
 * stream and exactly those it accepted are hashed; reads are not hashed.
 * ORLIX_CTRL_MD_FINAL copies the digest out. Records ORLIX_ERR_STREAM_BAD_MD
 * for a table missing a required operation. */
ORLIX_API ORLIX_Stream *orlix_stream_new_md(const ORLIX_MDMethod *method, ORLIX_ErrCtx *ctx);

/* A pass-through HMAC filter keyed with key_length (>= 1) bytes;
 * ORLIX_CTRL_HMAC_FINAL copies the HMAC out. */
ORLIX_API ORLIX_Stream *orlix_stream_new_hmac(const ORLIX_MDMethod *method, const void *key,
                                              int64_t key_length, ORLIX_ErrCtx *ctx);

/* An unlinked copy of a digest filter in the same state (its table needs
 * md_dup); NULL otherwise. Records nothing. */
ORLIX_API ORLIX_Stream *orlix_stream_md_dup(ORLIX_Stream *stream);

/* ---- file and null streams ------------------------------------------------- */

#define ORLIX_FILE_READ 1   /* "rb" */
#define ORLIX_FILE_WRITE 2  /* "wb": truncates */
#define ORLIX_FILE_APPEND 3 /* "ab" */

/*
 * A stream over a file opened in binary mode. A read that meets the end of
 * the file fails with ORLIX_ERR_STREAM_FILE_READ; the read after it records
 * ORLIX_ERR_STREAM_READ_PAST_END; ORLIX_CTRL_EOF tells the end from an
 * error. ORLIX_CTRL_REOPEN from read to write opens the file for update
 * without truncating it. Records ORLIX_ERR_STREAM_FILE_MODE or
 * ORLIX_ERR_STREAM_FILE_OPEN when the file cannot be had.
 */
ORLIX_API ORLIX_Stream *orlix_stream_new_file(const char *path, int32_t mode,
                                              ORLIX_ErrCtx *ctx);

/* A sink that accepts and discards everything and cannot be read. */
ORLIX_API ORLIX_Stream *orlix_stream_new_null(ORLIX_ErrCtx *ctx);

ORLIX_END_DECLS

#endif /* ORLIX_STREAM_H */
