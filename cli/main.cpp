// orlix: the library's services from the shell.
#include <unistd.h>

#include <strings.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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
               "usage: orlix [--verbose] <command> [options] [arguments]\n"
               "       orlix --version | -V\n\n"
               "Commands:\n");
  for (const Command &c : commands()) std::fprintf(to, "  %-10s %s\n", c.name, c.summary);
  std::fprintf(to,
               "\nOptions:\n"
               "  --verbose  failure reports also name the library module and line\n"
               "  --version  print the program's and the library's version\n"
               "\nRun 'orlix <command> --help' for a command's options.\n");
  return to == stdout ? kOk : kUsage;
}

bool verbose = false;

const ORLIX_ErrEntry *newest(const ORLIX_ErrCtx &ctx) {
  if (ctx.head == ctx.tail) return nullptr;
  return &ctx.entries[ctx.head == 0 ? ORLIX_ERR_RING_SIZE - 1 : ctx.head - 1];
}

}  // namespace

void set_verbose(bool on) { verbose = on; }

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

int failure(std::string_view command, std::string_view message, const ORLIX_ErrCtx &ctx) {
  const ORLIX_ErrEntry *e = newest(ctx);
  if (!verbose || e == nullptr) return failure(command, message);
  std::fprintf(stderr, "orlix %.*s: %.*s (%s: %s, line %d)\n", static_cast<int>(command.size()),
               command.data(), static_cast<int>(message.size()), message.data(), e->description,
               e->module != nullptr ? e->module : "?", e->line);
  return kFailed;
}

std::string error_text(const ORLIX_ErrCtx &ctx) {
  const ORLIX_ErrEntry *e = newest(ctx);
  return e != nullptr && e->description[0] != '\0' ? e->description : "failed";
}

bool is_help(std::string_view arg) { return arg == "-h" || arg == "--help"; }

std::string input_name(std::string_view path) {
  return path.empty() || path == "-" ? std::string("standard input") : std::string(path);
}

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
  if (!ok) failure(command, input_name(path) + ": read error");
  return ok;
}

bool write_output(const void *data, size_t length) {
  return std::fwrite(data, 1, length, stdout) == length && std::fflush(stdout) == 0;
}

bool parse_int(std::string_view text, int64_t min, int64_t max, int64_t *value) {
  // Up to 18 digits (and a sign), which cannot overflow.
  if (text.empty() || text.size() > (text[0] == '-' ? 19u : 18u)) return false;
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

namespace {

// Input text in a message: between quotes, with control bytes - and, for
// text that is not valid in the charset, every byte above 0x7F - as \xHH.
std::string quoted(std::string_view bytes, bool valid) {
  std::string out = "'";
  for (const char ch : bytes) {
    const auto c = static_cast<unsigned char>(ch);
    if (c < 0x20 || c == 0x7F || (!valid && c >= 0x80)) {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02X", c);
      out += hex;
    } else {
      out += ch;
    }
  }
  return out + "'";
}

}  // namespace

bool text_inputs(std::string_view command, const std::vector<std::string_view> &args,
                 std::vector<TextInput> *out) {
  if (!args.empty()) {
    for (std::string_view a : args) out->push_back(TextInput{std::string(a), std::string()});
  } else {
    std::string all;
    if (!read_input(command, "", &all)) return false;
    size_t start = 0;
    for (size_t line = 1; start < all.size(); ++line) {
      size_t end = all.find('\n', start);
      if (end == std::string::npos) end = all.size();
      size_t stop = end;
      if (stop > start && all[stop - 1] == '\r') --stop;
      out->push_back(
          TextInput{all.substr(start, stop - start), "line " + std::to_string(line) + ": "});
      start = end + 1;
    }
  }
  // Name each input by its text, escaped where the charset does not take it.
  for (TextInput &in : *out) {
    ORLIX_UString *s = from_locale(in.bytes);
    in.name += quoted(in.bytes, s != nullptr);
    orlix_ustring_free(s);
  }
  return true;
}

const std::string &text_charset() {
  static const std::string charset = [] {
    const char *locale = nullptr;
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
      const char *value = std::getenv(name);
      if (value != nullptr && *value != '\0') {
        locale = value;
        break;
      }
    }
    // No locale, or C or POSIX, names no charset (the library reads C as
    // ISO 8859-1 by its own rule).
    if (locale == nullptr || strcasecmp(locale, "C") == 0 || strcasecmp(locale, "POSIX") == 0)
      return std::string("UTF-8");
    char *name = orlix_ustring_getdefaultcharset();
    std::string found = name != nullptr ? name : "";
    orlix_free(name);
    std::string upper;
    for (const char c : found) upper += c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    for (const char *ascii : {"", "ASCII", "US-ASCII", "ANSI_X3.4-1968", "646", "ISO646-US"})
      if (upper == ascii) return std::string("UTF-8");
    return found;
  }();
  return charset;
}

ORLIX_UString *from_locale(std::string_view bytes) {
  if (bytes.empty()) return orlix_ustring_newlength(nullptr, 0);
  return orlix_ustring_newmbs(text_charset().c_str(), bytes.data(),
                              static_cast<int64_t>(bytes.size()));
}

bool to_locale(const ORLIX_UString *s, std::string *out) {
  char *bytes = nullptr;
  int64_t length = 0;
  if (orlix_ustring_tombs(s, text_charset().c_str(), &bytes, &length) != 1) return false;
  out->assign(bytes, static_cast<size_t>(length));
  orlix_free(bytes);
  return true;
}

}  // namespace cli

int main(int argc, char **argv) {
  std::vector<std::string_view> args(argv + 1, argv + argc);
  // --verbose may stand before the command or among its arguments.
  std::vector<std::string_view> rest;
  for (const std::string_view a : args) {
    if (a == "--verbose")
      cli::set_verbose(true);
    else
      rest.push_back(a);
  }
  if (rest.empty()) return cli::print_overview(stderr);
  const std::string_view name = rest[0];
  if (cli::is_help(name)) return cli::print_overview(stdout);
  if (name == "--version" || name == "-V") {
    const std::string line =
        std::string("orlix " ORLIX_UTIL_VERSION_STRING " (") + orlix_util_version() + ")\n";
    return cli::write_output(line) ? cli::kOk : cli::kFailed;
  }
  rest.erase(rest.begin());
  for (const cli::Command &c : cli::commands())
    if (name == c.name) return c.run(std::move(rest));
  cli::usage_error(name, "unknown command");
  return cli::print_overview(stderr);
}
