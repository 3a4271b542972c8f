/*
 * ORLIX_Error.h - error contexts, error codes and the per-thread last error.
 *
 * Fallible functions of the core and stream families take an ORLIX_ErrCtx
 * pointer as their last argument (NULL is allowed and records nothing). On
 * failure they record exactly one entry - module, line, code and the code's
 * text - and return 0. The context is a ring of 32 slots holding at most 31
 * entries; the newest entry is the last error.
 */
#ifndef ORLIX_ERROR_H
#define ORLIX_ERROR_H

#include <stdint.h>

#include "ORLIX_Export.h"

ORLIX_BEGIN_DECLS

/* Number of slots in the ring; one slot always stays free. */
#define ORLIX_ERR_RING_SIZE 32
/* Size of an entry's description, including its NUL. */
#define ORLIX_ERR_DESC_SIZE 64

/* "No error": what orlix_err_ctx_geterrcode reports for an empty ring. */
#define ORLIX_ERR_NONE 1u

/* General error codes; texts from orlix_igetGeneralError. */
#define ORLIX_ERR_OUT_OF_MEMORY 0x10000u /* "Out Of Memory" */
#define ORLIX_ERR_BAD_LENGTH 0x10001u    /* "Bad Length" */
#define ORLIX_ERR_NULL_POINT 0x10002u    /* "Null Point" */
#define ORLIX_ERR_NOT_SUPPORTED 0x10003u /* "This method not support" */
#define ORLIX_ERR_UNEXPECTED 0x10004u    /* "unexcpeted error" */

/* Stream error codes; texts from orlix_igetStreamError. */
#define ORLIX_ERR_STREAM_READONLY 0x10100u       /* "Write a readonly stream" */
#define ORLIX_ERR_STREAM_CANNOT_GROW 0x10101u    /* "Stream cannot grow" */
#define ORLIX_ERR_STREAM_BAD 0x10102u            /* "Bad stream" */
#define ORLIX_ERR_STREAM_READ_PAST_END 0x10103u  /* "Read pass end of stream" */
#define ORLIX_ERR_STREAM_WRITE_FAIL 0x10104u     /* "Write stream fail" */
#define ORLIX_ERR_STREAM_BAD_POS 0x10105u        /* "pos is invalid" */
#define ORLIX_ERR_STREAM_FILE_READ 0x10106u      /* "read file fail" */
#define ORLIX_ERR_STREAM_FILE_WRITE 0x10107u     /* "write file fail" */
#define ORLIX_ERR_STREAM_FILE_CLOSED 0x10108u    /* "file already close" */
#define ORLIX_ERR_STREAM_RESET 0x10109u          /* "reset fail" */
#define ORLIX_ERR_STREAM_FILE_CLOSE 0x1010Au     /* "file close fail" */
#define ORLIX_ERR_STREAM_FILE_MODE 0x1010Bu      /* "error file mode" */
#define ORLIX_ERR_STREAM_FILE_OPEN 0x1010Cu      /* "open file fail" */
#define ORLIX_ERR_STREAM_NO_SINK 0x1010Du        /* "no source/sink stream" */
#define ORLIX_ERR_STREAM_LENGTH 0x1010Eu         /* "stream length error" */
#define ORLIX_ERR_STREAM_HEX_DECODE 0x1010Fu     /* "hex decode fail" */
#define ORLIX_ERR_STREAM_BASE64_FLAG 0x10110u    /* "bad base64 flag" */
#define ORLIX_ERR_STREAM_BASE64_DECODE 0x10111u  /* "base64 decode fail" */
#define ORLIX_ERR_STREAM_FILE_FLUSH 0x10112u     /* "file flush fail" */
#define ORLIX_ERR_STREAM_BAD_MD 0x10113u         /* "bad md function" */
#define ORLIX_ERR_STREAM_GET_LENGTH 0x10114u     /* "get stream length fail" */
#define ORLIX_ERR_STREAM_BAD_CTRL 0x10115u       /* "unsupported ctrl code" */
#define ORLIX_ERR_STREAM_PEM_DECODE 0x10116u     /* "pem decode fail" */
#define ORLIX_ERR_STREAM_MD_UPDATE 0x10117u      /* "md update fail" */
#define ORLIX_ERR_STREAM_MD_FINAL 0x10118u       /* "md finish fail" */
#define ORLIX_ERR_STREAM_CANNOT_READ 0x10119u    /* "stream can not read" */
#define ORLIX_ERR_STREAM_CANNOT_WRITE 0x1011Au   /* "stream can not write" */
#define ORLIX_ERR_STREAM_POS_DIFFER 0x1011Bu     /* "wirte pos and read pos are difference" */

/* One recorded failure. The module text is not copied: pass a literal. */
typedef struct ORLIX_ErrEntry_st {
  const char *module;
  int32_t line;
  uint32_t code;
  char description[ORLIX_ERR_DESC_SIZE];
} ORLIX_ErrEntry;

/*
 * The ring. head is the slot the next put writes, tail the oldest entry;
 * head == tail means empty. A zero-filled record is a valid empty context,
 * so callers may embed one by value.
 */
typedef struct ORLIX_ErrCtx_st {
  ORLIX_ErrEntry entries[ORLIX_ERR_RING_SIZE];
  int32_t head;
  int32_t tail;
} ORLIX_ErrCtx;

struct ORLIX_Stream_st;

/* A new, empty context; NULL when memory runs out. Free with
 * orlix_err_ctx_free. Records nothing itself. */
ORLIX_API ORLIX_ErrCtx *orlix_err_ctx_new(void);

/* Releases a context from orlix_err_ctx_new; NULL is ignored. */
ORLIX_API void orlix_err_ctx_free(ORLIX_ErrCtx *ctx);

/*
 * Records one entry. module must outlive the context (only the pointer is
 * kept); description is copied, cut at 63 characters, and may be NULL (empty
 * text). When the ring is full the oldest entry is dropped. Returns 1, or 0
 * without change when ctx or module is NULL or line is negative.
 */
ORLIX_API int orlix_err_ctx_put(ORLIX_ErrCtx *ctx, const char *module, int32_t line,
                                uint32_t code, const char *description);

/*
 * Writes the entries to standard error, newest first, one line each as
 * "0X%08X <description> <module>(<line>)"; an empty ring prints "No Error".
 * The walk stops at slot 0: once the ring has wrapped so that the oldest entry
 * lies above the newest, nothing is printed. Returns 0 for NULL, else 1.
 */
ORLIX_API int orlix_err_ctx_print(const ORLIX_ErrCtx *ctx);

/* Empties the ring. Returns 0 for NULL, else 1. */
ORLIX_API int orlix_err_ctx_clean(ORLIX_ErrCtx *ctx);

/* Stores the newest entry's code (ORLIX_ERR_NONE for an empty ring) in
 * *code. Returns 0 when either pointer is NULL, else 1. */
ORLIX_API int orlix_err_ctx_geterrcode(const ORLIX_ErrCtx *ctx, uint32_t *code);

/*
 * Reports in *length the size of the newest description including its NUL
 * (1 for an empty ring). Note the direction of the copy, kept for
 * compatibility: when buffer is large enough, its first *length bytes are
 * copied INTO the newest entry and the caller's buffer is left alone. Read the
 * text with orlix_err_ctx_print or orlix_err_ctx_output instead.
 * Returns 0 when ctx or length is NULL or buffer_len is too small, else 1.
 */
ORLIX_API int orlix_err_ctx_geterrdesc(ORLIX_ErrCtx *ctx, char *buffer, int32_t buffer_len,
                                       int32_t *length);

/* Copies the whole record from `from` into `to`. Returns 0 when either is
 * NULL, else 1. */
ORLIX_API int orlix_err_ctx_copy(const ORLIX_ErrCtx *from, ORLIX_ErrCtx *to);

/*
 * Writes the entries into a stream like orlix_err_ctx_print, with the
 * description right-aligned in 512 columns and the module in 64. Returns 1,
 * or 0 with a code in *code_out (may be NULL): ORLIX_ERR_STREAM_BAD for a NULL
 * stream, ORLIX_ERR_NULL_POINT for a NULL ctx, else the failing write's code.
 */
ORLIX_API int orlix_err_ctx_output(struct ORLIX_Stream_st *stream, const ORLIX_ErrCtx *ctx,
                                   uint32_t *code_out);

/* The constant text of a general code (0x10000..0x10004); "" for any other
 * code. Never NULL. */
ORLIX_API const char *orlix_igetGeneralError(int32_t code);

/* The constant text of a stream code (0x10100..0x1011B); "" for any other
 * code. Never NULL. */
ORLIX_API const char *orlix_igetStreamError(int32_t code);

/* Stores value in the calling thread's last-error slot; returns 1. The
 * library never sets the slot itself. */
ORLIX_API int orlix_setlasterror(uint32_t value);

/* The calling thread's last-error value, initially 0. */
ORLIX_API uint32_t orlix_getlasterror(void);

ORLIX_END_DECLS

#endif /* ORLIX_ERROR_H */
