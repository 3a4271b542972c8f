// File streams: a C library FILE opened in binary mode, with the path kept
// so that the file can be reopened in another mode.
#include <cstdio>
#include <cstring>

#include "ORLIX_Stream.h"
#include "core/error.hpp"
#include "core/memory.hpp"

namespace {

constexpr const char kModule[] = "ORLIX_Stream_File";

struct FileStream {
  FILE *file;    // nullptr once closed
  char *path;    // private copy
  int32_t mode;  // -1 after close
};

// The C library mode text of a mode number, or nullptr.
const char *getMode(int32_t mode) {
  switch (mode) {
    case ORLIX_FILE_READ: return "rb";
    case ORLIX_FILE_WRITE: return "wb";
    case ORLIX_FILE_APPEND: return "ab";
    default: return nullptr;
  }
}

// Clears a pending error but keeps the end-of-file indicator, which the
// reads use to tell "end met" from "end already reported".
void clear_error(FILE *f) {
  if (ferror(f) && !feof(f)) clearerr(f);
}

int file_read(ORLIX_Stream *stream, void *buffer, int64_t n, uint64_t *count,
              ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  auto *f = static_cast<FileStream *>(stream->data);
  if (f == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD);
  if (f->file == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_CLOSED);
  if (f->mode == ORLIX_FILE_WRITE || f->mode == ORLIX_FILE_APPEND)
    return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_CANNOT_READ);
  if (n < 0) return ORLIX_FAIL(ctx, ORLIX_ERR_BAD_LENGTH);
  if (buffer == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  clear_error(f->file);
  if (feof(f->file)) {
    if (count != nullptr) *count = 0;
    return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_READ_PAST_END);
  }
  const size_t got = fread(buffer, 1, static_cast<size_t>(n), f->file);
  if (ferror(f->file)) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_READ);
  // The read that meets the end fails (also a read of 0 bytes: there is no
  // shortcut for n = 0); the one after it reports reading past the end.
  if (got == 0) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_READ);
  // A read that returned bytes does not count as meeting the end, even when
  // the C library has already seen it: the next read is the one that fails.
  clearerr(f->file);
  if (count != nullptr) *count = got;
  return 1;
}

int file_write(ORLIX_Stream *stream, const void *buffer, int64_t n, uint64_t *count,
               ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  auto *f = static_cast<FileStream *>(stream->data);
  if (f == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD);
  if (f->file == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_CLOSED);
  if (f->mode == ORLIX_FILE_READ) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_CANNOT_WRITE);
  if (n < 0) return ORLIX_FAIL(ctx, ORLIX_ERR_BAD_LENGTH);
  if (n == 0) {
    if (count != nullptr) *count = 0;
    return 1;
  }
  if (buffer == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  clearerr(f->file);
  const size_t put = fwrite(buffer, 1, static_cast<size_t>(n), f->file);
  if (ferror(f->file)) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_WRITE);
  if (count != nullptr) *count = put;
  return 1;
}

int reopen(FileStream *f, const void *argument, ORLIX_ErrCtx *ctx) {
  if (argument == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  const int32_t mode = *static_cast<const int32_t *>(argument);
  // From reading to writing the file is opened for update, not truncated.
  const bool read_to_write = f->mode == ORLIX_FILE_READ && mode == ORLIX_FILE_WRITE;
  const char *text = read_to_write ? "rb+" : getMode(mode);
  if (text == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_MODE);
  if (f->file != nullptr) {
    fclose(f->file);
    f->file = nullptr;
  }
  f->file = fopen(f->path, text);
  if (f->file == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_OPEN);
  if (read_to_write) {
    // One byte is read before the switch to writing, then the file is
    // rewound; a failed read only clears the error state.
    if (fgetc(f->file) == EOF) clearerr(f->file);
    rewind(f->file);
    clearerr(f->file);
  }
  f->mode = mode;
  return 1;
}

int file_ctrl(ORLIX_Stream *stream, int64_t code, void *argument, ORLIX_ErrCtx *ctx) {
  if (stream == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
  auto *f = static_cast<FileStream *>(stream->data);
  if (f == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD);
  FILE *file = f->file;
  switch (code) {
    case ORLIX_CTRL_RESET:
      if (file == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_CLOSED);
      clearerr(file);
      if (fseek(file, 0, SEEK_SET) != 0) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_RESET);
      return 1;
    case ORLIX_CTRL_GET_LENGTH: {
      if (file == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_CLOSED);
      clear_error(file);
      fpos_t here;
      const bool remembered = fgetpos(file, &here) == 0;
      if (argument == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
      if (fseek(file, 0, SEEK_END) != 0) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_RESET);
      const long end = ftell(file);
      if (remembered) fsetpos(file, &here);
      if (end < 0) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_RESET);
      *static_cast<uint64_t *>(argument) = static_cast<uint64_t>(end);
      return 1;
    }
    case ORLIX_CTRL_FLUSH:
      // Closed files have nothing to flush; refusing keeps fflush away from a
      // NULL handle, which would flush every open stream of the process.
      if (file == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_CLOSED);
      clear_error(file);
      if (fflush(file) != 0) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_FLUSH);
      return 1;
    case ORLIX_CTRL_GET_POS: {
      if (file == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_CLOSED);
      if (argument == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
      const long at = ftell(file);
      if (at < 0) {
        // Paired with the general table's text for this code, which is empty;
        // callers have always seen this entry without a description.
        orlix_err_ctx_put(ctx, kModule, __LINE__, ORLIX_ERR_STREAM_BAD_POS,
                          orlix_igetGeneralError(ORLIX_ERR_STREAM_BAD_POS));
        return 0;
      }
      *static_cast<uint64_t *>(argument) = static_cast<uint64_t>(at);
      return 1;
    }
    case ORLIX_CTRL_SET_POS: {
      if (argument == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_NULL_POINT);
      const int64_t at = *static_cast<const int64_t *>(argument);
      if (at < 0) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD_POS);
      if (file == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_CLOSED);
      if (fseeko(file, static_cast<off_t>(at), SEEK_SET) != 0)
        return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD_POS);
      return 1;
    }
    case ORLIX_CTRL_CLOSE:
      if (file == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_CLOSED);
      f->file = nullptr;
      if (fclose(file) != 0) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_CLOSE);
      f->mode = -1;
      return 1;
    case ORLIX_CTRL_REOPEN: return reopen(f, argument, ctx);
    case ORLIX_CTRL_EOF:
      if (file == nullptr) return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_FILE_CLOSED);
      return feof(file) ? 1 : 0;
    default: return ORLIX_FAIL(ctx, ORLIX_ERR_STREAM_BAD_CTRL);
  }
}

void file_destroy(ORLIX_Stream *stream) {
  if (stream == nullptr || stream->data == nullptr) return;
  auto *f = static_cast<FileStream *>(stream->data);
  if (f->file != nullptr) fclose(f->file);
  orlix_free(f->path);
  orlix_free(f);
  stream->data = nullptr;
}

constexpr ORLIX_StreamMethod file_method = {file_read, file_write, file_destroy, file_ctrl};

struct FileCloser {
  void operator()(FILE *f) const noexcept { fclose(f); }
};

}  // namespace

extern "C" ORLIX_Stream *orlix_stream_new_file(const char *path, int32_t mode,
                                               ORLIX_ErrCtx *ctx) {
  if (path == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_NULL_POINT);
  const char *text = getMode(mode);
  if (text == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_STREAM_FILE_MODE);
  std::unique_ptr<FILE, FileCloser> file(fopen(path, text));
  if (!file) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_STREAM_FILE_OPEN);
  orlix::Owned<FileStream> f(orlix::alloc_record<FileStream>(kModule, __LINE__));
  if (!f) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  const size_t n = std::strlen(path);
  orlix::Owned<char> copy(orlix::alloc_array<char>(static_cast<int64_t>(n) + 1, kModule, __LINE__));
  if (!copy) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  std::memcpy(copy.get(), path, n + 1);
  auto *stream = orlix::alloc_record<ORLIX_Stream>(kModule, __LINE__);
  if (stream == nullptr) return ORLIX_FAIL_NULL(ctx, ORLIX_ERR_OUT_OF_MEMORY);
  *f = FileStream{file.release(), copy.release(), mode};
  *stream = ORLIX_Stream{&file_method, ORLIX_STREAM_TYPE_FILE, f.release(), nullptr, nullptr};
  return stream;
}
