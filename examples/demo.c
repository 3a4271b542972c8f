/*
 * demo.c - a first look at liborlix_util from C.
 *
 * Pushes a hex filter on a memory stream, writes bytes through the chain,
 * reads them back, and shows the error context a failing call leaves behind.
 */
#include <stdio.h>
#include <string.h>

#include <orlix_util.h>

int main(void) {
  static const char message[] = "Hello, chain!";
  ORLIX_ErrCtx *ctx = orlix_err_ctx_new();
  ORLIX_Stream *mem = orlix_stream_new_mem(0, ctx);
  ORLIX_Stream *hex = orlix_stream_new_hex(0, ctx);
  unsigned char *text = NULL;
  int64_t text_length = 0;
  char back[sizeof message] = {0};
  int ok = 1;
  int linked = 0;

  printf("%s\n", orlix_util_version());
  linked = orlix_stream_push(hex, mem);
  if (ctx == NULL || !linked) {
    fprintf(stderr, "demo: cannot build the stream chain\n");
    orlix_err_ctx_print(ctx);
    ok = 0;
    goto done;
  }

  /* Bytes written at the top reach the memory stream as hex digits. */
  if (!orlix_stream_writen(hex, message, (int64_t)strlen(message), ctx)) ok = 0;
  printf("wrote     : %s\n", message);

  /* Rewind (the code passes through the filter to the memory stream) and
   * read the digits back as bytes. */
  if (ok && orlix_stream_ctrl(hex, ORLIX_CTRL_RESET, NULL, ctx) &&
      orlix_stream_readn(hex, back, (int64_t)strlen(message), ctx))
    printf("read back : %s\n", back);
  else
    ok = 0;

  /* The memory stream holds the encoded text; hand its buffer over. */
  if (ok && orlix_memstreamdeatch(mem, &text, &text_length))
    printf("in memory : %.*s (%lld bytes)\n", (int)text_length, (const char *)text,
           (long long)text_length);

  /* A failing call records where and why in the context. */
  printf("a negative length gives %d; the context now says:\n",
         orlix_stream_write(hex, message, -1, NULL, ctx));
  fflush(stdout);
  orlix_err_ctx_print(ctx);

done:
  if (linked) {
    orlix_stream_freeall(hex); /* the whole chain, top down */
  } else {
    orlix_stream_free(hex);
    orlix_stream_free(mem);
  }
  orlix_free(text);
  orlix_err_ctx_free(ctx);
  return ok ? 0 : 1;
}
