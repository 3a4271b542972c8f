// orlix: the library's services from the shell.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli.hpp"

namespace cli {

namespace {

// Standard output as a stream kind: what is written goes to file
// descriptor 1 at once.
int stdout_write(ORLIX_Stream *, const void *buffer, int64_t length, uint64_t *count,
                 ORLIX_ErrCtx *ctx) {
  const auto *p = static_cast<const char *>(buffer);
  int64_t done = 0;
  while (done < length) {
    const ssize_t n = ::write(1, p + done, static_cast<size_t>(length - done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      orlix_err_ctx_put(ctx, "orlix", __LINE__, ORLIX_ERR_STREAM_WRITE_FAIL,
                        orlix_igetStreamError(ORLIX_ERR_STREAM_WRITE_FAIL));
      return 0;
    }
    done += n;
  }
  if (count != nullptr) *count = static_cast<uint64_t>(length);
  return 1;
}

int stdout_ctrl(ORLIX_Stream *, int64_t code, void *, ORLIX_ErrCtx *ctx) {
  if (code == ORLIX_CTRL_FLUSH) return 1;
  orlix_err_ctx_put(ctx, "orlix", __LINE__, ORLIX_ERR_STREAM_BAD_CTRL,
                    orlix_igetStreamError(ORLIX_ERR_STREAM_BAD_CTRL));
  return 0;
}

const ORLIX_StreamMethod kStdoutMethod = {nullptr, stdout_write, nullptr, stdout_ctrl};
constexpr uint32_t kStdoutType = ORLIX_STREAM_SOURCE_SINK | 0x100u;

int print_overview(FILE *to) {
  std::fprintf(to,
               "usage: orlix <command> [options] [arguments]\n\n"
               "Commands:\n");
  for (const Command &c : commands()) std::fprintf(to, "  %-10s %s\n", c.name, c.summary);
  std::fprintf(to, "\nRun 'orlix <command> --help' for a command's options.\n");
  return to == stdout ? kOk : kUsage;
}

}  // namespace

int usage_error(std::string_view command, std::string_view message) {
  std::fprintf(stderr, "orlix %.*s: %.*s\n", static_cast<int>(command.size()), command.data(),
               static_cast<int>(message.size()), message.data());
  return kUsage;
}

int failure(std::string_view command, std::string_view message) {
  std::fprintf(stderr, "orlix %.*s: %.*s\n", static_cast<int>(command.size()), command.data(),
               static_cast<int>(message.size()), message.data());
  return kFailed;
}

int failure(std::string_view command, const ORLIX_ErrCtx &ctx) {
  if (ctx.head == ctx.tail) return failure(command, "failed");
  const ORLIX_ErrEntry &e = ctx.entries[ctx.head == 0 ? ORLIX_ERR_RING_SIZE - 1 : ctx.head - 1];
  std::fprintf(stderr, "orlix %.*s: %s (%s, line %d)\n", static_cast<int>(command.size()),
               command.data(), e.description, e.module != nullptr ? e.module : "?", e.line);
  return kFailed;
}

bool is_help(std::string_view arg) { return arg == "-h" || arg == "--help"; }

bool read_input(std::string_view command, std::string_view path, std::string *out) {
  const bool from_stdin = path.empty() || path == "-";
  const std::string name(path);
  FILE *f = from_stdin ? stdin : std::fopen(name.c_str(), "rb");
  if (f == nullptr) {
    failure(command, name + ": " + std::strerror(errno));
    return false;
  }
  char buffer[65536];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) out->append(buffer, n);
  const bool ok = !std::ferror(f);
  if (!from_stdin) std::fclose(f);
  if (!ok) failure(command, (from_stdin ? std::string("standard input") : name) + ": read error");
  return ok;
}

bool write_output(const void *data, size_t length) {
  return std::fwrite(data, 1, length, stdout) == length && std::fflush(stdout) == 0;
}

bool parse_int(std::string_view text, int64_t min, int64_t max, int64_t *value) {
  if (text.empty() || text.size() > 19) return false;
  int64_t v = 0;
  size_t i = 0;
  const bool negative = text[0] == '-';
  if (negative) ++i;
  if (i == text.size()) return false;
  for (; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    v = v * 10 + (text[i] - '0');
  }
  if (negative) v = -v;
  if (v < min || v > max) return false;
  *value = v;
  return true;
}

ORLIX_Stream *new_stdout_stream(ORLIX_ErrCtx *ctx) {
  auto *s = static_cast<ORLIX_Stream *>(orlix_malloc(sizeof(ORLIX_Stream), "orlix", __LINE__));
  if (s == nullptr) {
    orlix_err_ctx_put(ctx, "orlix", __LINE__, ORLIX_ERR_OUT_OF_MEMORY,
                      orlix_igetGeneralError(ORLIX_ERR_OUT_OF_MEMORY));
    return nullptr;
  }
  *s = ORLIX_Stream{&kStdoutMethod, kStdoutType, nullptr, nullptr, nullptr};
  return s;
}

bool text_inputs(std::string_view command, const std::vector<std::string_view> &args,
                 std::vector<std::string> *out) {
  if (!args.empty()) {
    for (std::string_view a : args) out->emplace_back(a);
    return true;
  }
  std::string all;
  if (!read_input(command, "", &all)) return false;
  size_t start = 0;
  while (start < all.size()) {
    size_t end = all.find('\n', start);
    if (end == std::string::npos) end = all.size();
    size_t stop = end;
    if (stop > start && all[stop - 1] == '\r') --stop;
    out->push_back(all.substr(start, stop - start));
    start = end + 1;
  }
  return true;
}

namespace {

// The locale's charset; UTF-8 when the environment names none.
std::string locale_charset() {
  char *name = orlix_ustring_getdefaultcharset();
  std::string charset = name != nullptr ? name : "UTF-8";
  orlix_free(name);
  return charset;
}

}  // namespace

ORLIX_UString *from_locale(std::string_view bytes) {
  if (bytes.empty()) return orlix_ustring_newlength(nullptr, 0);
  return orlix_ustring_newmbs(locale_charset().c_str(), bytes.data(),
                              static_cast<int64_t>(bytes.size()));
}

bool to_locale(const ORLIX_UString *s, std::string *out) {
  char *bytes = nullptr;
  int64_t length = 0;
  if (orlix_ustring_tombs(s, locale_charset().c_str(), &bytes, &length) != 1) return false;
  out->assign(bytes, static_cast<size_t>(length));
  orlix_free(bytes);
  return true;
}

}  // namespace cli

int main(int argc, char **argv) {
  if (argc < 2) return cli::print_overview(stderr);
  const std::string_view name = argv[1];
  if (cli::is_help(name)) return cli::print_overview(stdout);
  std::vector<std::string_view> args(argv + 2, argv + argc);
  for (const cli::Command &c : cli::commands())
    if (name == c.name) return c.run(std::move(args));
  cli::usage_error(name, "unknown command");
  return cli::print_overview(stderr);
}
