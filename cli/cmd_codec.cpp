// orlix json, base64, hex and pem. Each takes several FILE arguments
// (standard input when there are none, or for "-"): encoding reads them as
// one text, one after the other like cat; decoding takes each as a complete
// text of its own and writes the results one after the other. An input that
// fails gets a message naming it, the others are still done, and the status
// is then 1.
#include <cmath>
#include <cstring>

#include "cli.hpp"

namespace cli {
namespace {

// The FILE arguments, or standard input.
std::vector<std::string_view> or_stdin(std::vector<std::string_view> paths) {
  if (paths.empty()) paths.push_back("-");
  return paths;
}

// How a message names an input: a file by its name, standard input only
// when there are several inputs.
std::string where(std::string_view path, size_t inputs) {
  if (inputs == 1 && (path.empty() || path == "-")) return "";
  return input_name(path) + ": ";
}

// The inputs one after another; false when one could not be read (a
// message has been printed; the others are still read).
bool read_all(std::string_view command, const std::vector<std::string_view> &paths,
              std::string *out) {
  bool ok = true;
  for (const std::string_view path : paths) ok = read_input(command, path, out) && ok;
  return ok;
}

struct StreamChain {
  ORLIX_Stream *top = nullptr;
  ~StreamChain() { orlix_stream_freeall(top); }
};

// Reads every byte that a (filter) chain delivers and copies it to standard
// output. The read that finds nothing left ends the copy.
// A read failure is reported as `refused` (the library's own entry follows
// with --verbose).
int drain_to_stdout(std::string_view command, ORLIX_Stream *top, ORLIX_ErrCtx *ctx,
                    const std::string &refused) {
  char piece[16384];
  for (;;) {
    uint64_t n = 0;
    if (orlix_stream_read(top, piece, sizeof piece, &n, ctx) != 1)
      return failure(command, refused, *ctx);
    if (n == 0) return kOk;
    if (!write_output(piece, n)) return failure(command, "cannot write standard output");
  }
}

// Every number of a tree is finite (the encoder would write "inf" or "nan",
// which are not JSON). Walks with a stack of its own, not the C stack.
bool all_finite(ORLIX_JSON *root) {
  std::vector<ORLIX_JSON *> pending{root};
  while (!pending.empty()) {
    ORLIX_JSON *node = pending.back();
    pending.pop_back();
    switch (orlix_json_gettype(node)) {
      case ORLIX_JSON_NUMBER:
        if (!std::isfinite(orlix_json_getnumber(node))) return false;
        break;
      case ORLIX_JSON_ARRAY:
        for (uint32_t i = 0, n = orlix_json_getarraysize(node); i < n; ++i)
          pending.push_back(orlix_json_getarrayitem(node, i));
        break;
      case ORLIX_JSON_OBJECT:
        orlix_json_traverse(
            node,
            [](void *stack, const char *, uint32_t, ORLIX_JSON *value) {
              static_cast<std::vector<ORLIX_JSON *> *>(stack)->push_back(value);
              return 1;
            },
            &pending);
        break;
      default: break;
    }
  }
  return true;
}

// ---- json ------------------------------------------------------------------------

constexpr const char kJsonUsage[] =
    "usage: orlix json [--pretty] [--crlf|--lf|--cr] [--spaces N] [--sort] [FILE...]\n"
    "Decodes JSON text (each FILE, or standard input) and encodes it again, each\n"
    "document followed by a line ending. Whitespace after the document is allowed.\n"
    "  --pretty     one entry per line, indented with tabs (line feeds unless\n"
    "               --crlf or --cr says otherwise); member values stay compact\n"
    "  --crlf, --lf, --cr   the line ending of --pretty output\n"
    "  --spaces N   put N spaces (0-255) before each indenting tab\n"
    "  --sort       sort the top-level object's members or array's elements\n"
    "Invalid JSON is reported as 'line L, column C: reason' and a number out of\n"
    "range (which JSON cannot write) is refused; either gives status 1.\n";

int run_json(std::vector<std::string_view> args) {
  uint32_t flags = 0;
  uint32_t line_end = 0;
  std::vector<std::string_view> paths;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string_view a = args[i];
    if (is_help(a)) return std::fputs(kJsonUsage, stdout), kOk;
    if (a == "--pretty") {
      flags |= ORLIX_JSON_ENCODE_PRETTY;
    } else if (a == "--crlf") {
      line_end = ORLIX_JSON_ENCODE_CR | ORLIX_JSON_ENCODE_LF;
    } else if (a == "--lf") {
      line_end = ORLIX_JSON_ENCODE_LF;
    } else if (a == "--cr") {
      line_end = ORLIX_JSON_ENCODE_CR;
    } else if (a == "--sort") {
      flags |= ORLIX_JSON_ENCODE_SORT;
    } else if (a == "--spaces") {
      int64_t n = 0;
      if (i + 1 == args.size() || !parse_int(args[++i], 0, 255, &n))
        return usage_error("json", "--spaces takes a number from 0 to 255");
      flags |= ORLIX_JSON_ENCODE_SPACES | static_cast<uint32_t>(n);
    } else if (a.size() > 1 && a[0] == '-') {
      return usage_error("json", std::string("unknown option ") + std::string(a));
    } else {
      paths.push_back(a);
    }
  }
  // Each document ends with a line ending: the one of --pretty, else LF.
  std::string eol = "\n";
  if ((flags & ORLIX_JSON_ENCODE_PRETTY) != 0) {
    flags |= line_end != 0 ? line_end : ORLIX_JSON_ENCODE_LF;
    eol = (flags & ORLIX_JSON_ENCODE_CR) != 0 ? "\r" : "";
    if ((flags & ORLIX_JSON_ENCODE_LF) != 0) eol += "\n";
  }

  paths = or_stdin(std::move(paths));
  int status = kOk;
  for (const std::string_view path : paths) {
    const std::string name = where(path, paths.size());
    std::string text;
    if (!read_input("json", path, &text)) {
      status = kFailed;
      continue;
    }
    // Trailing whitespace (the line feed that echo writes) is no part of
    // the document.
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\n' ||
                             text.back() == '\r'))
      text.pop_back();
    if (text.size() > 0x7FFFFFFFu) {
      status = failure("json", name + "input too large");
      continue;
    }
    ORLIX_JSON_Error error;
    ORLIX_JSON *tree =
        orlix_json_decodewitherror(text.data(), static_cast<uint32_t>(text.size()), &error);
    if (tree == nullptr) {
      status = failure("json", name + "line " + std::to_string(error.line) + ", column " +
                                   std::to_string(error.column) + ": " + error.reason);
      continue;
    }
    if (!all_finite(tree)) {
      orlix_json_free(tree);
      status = failure("json", name + "a number is out of range (JSON cannot write infinity)");
      continue;
    }
    char *out = nullptr;
    uint32_t length = 0;
    const int ok = orlix_json_encode(tree, flags, &out, &length);
    orlix_json_free(tree);
    if (ok != 1) {
      status = failure("json", name + "cannot encode the document");
      continue;
    }
    const bool written = write_output(std::string(out, length) + eol);
    orlix_free(out);
    if (!written) return failure("json", "cannot write standard output");
  }
  return status;
}

// ---- base64 ------------------------------------------------------------------------

constexpr const char kBase64Usage[] =
    "usage: orlix base64 [-d] [--url] [--no-pad] [--eol crlf|lf|cr|none] [--line N]\n"
    "                    [--ws none|eol|all] [FILE...]\n"
    "Encodes the FILEs (one after the other) or standard input as base64, or decodes\n"
    "each with -d. Text with a character outside the alphabet or ending inside a\n"
    "group of four is refused with status 1 (what came before it is written).\n"
    "  -d           decode\n"
    "  --url        the URL-safe alphabet (- and _ for + and /)\n"
    "  --no-pad     write no '=' padding; with -d, the input has none\n"
    "  --eol E      encoding: the line ending (default lf)\n"
    "  --line N     encoding: line length, rounded up to whole groups (default 64)\n"
    "  --ws W       decoding: whitespace accepted: none, eol (CR, LF; default) or all\n";

// Decodes one complete base64 text to standard output.
int decode_base64(const std::string &input, uint32_t decode_flags, const std::string &name) {
  if (input.empty()) return kOk;
  ORLIX_ErrCtx ctx{};
  StreamChain chain;
  chain.top = orlix_stream_new_romem(input.data(), static_cast<int64_t>(input.size()), 0, &ctx);
  ORLIX_Stream *filter = orlix_stream_new_base64(ORLIX_BASE64_EOL_LF, 64, decode_flags, &ctx);
  if (chain.top == nullptr || filter == nullptr) {
    orlix_stream_free(filter);
    return failure("base64", name + error_text(ctx), ctx);
  }
  orlix_stream_push(filter, chain.top);
  chain.top = filter;
  if (const int r =
          drain_to_stdout("base64", filter, &ctx,
                          name + "not base64: a character outside the alphabet or out of place");
      r != kOk)
    return r;
  // What the reads leave over is the final group: without padding it is
  // decoded now; with padding, any text left means the input stopped
  // inside a group.
  ORLIX_DataBlob *rest = nullptr;
  if (orlix_stream_ctrl(filter, ORLIX_CTRL_BASE64_REMAINDER, &rest, &ctx) != 1)
    return failure("base64", name + "incomplete input: it ends inside a group of four characters",
                   ctx);
  const bool ok = write_output(rest->data, static_cast<size_t>(rest->length));
  orlix_data_blob_free(rest);
  return ok ? kOk : failure("base64", "cannot write standard output");
}

int run_base64(std::vector<std::string_view> args) {
  bool decode = false;
  uint32_t bits = 0;
  uint32_t eol = ORLIX_BASE64_EOL_LF;
  uint32_t ws = ORLIX_BASE64_WS_EOL;
  int64_t line = 64;
  std::vector<std::string_view> paths;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string_view a = args[i];
    const auto value = [&](std::string_view option) -> std::string_view {
      if (i + 1 == args.size()) return {};
      (void)option;
      return args[++i];
    };
    if (is_help(a)) return std::fputs(kBase64Usage, stdout), kOk;
    if (a == "-d" || a == "--decode") {
      decode = true;
    } else if (a == "--url") {
      bits |= ORLIX_BASE64_URL;
    } else if (a == "--no-pad") {
      bits |= ORLIX_BASE64_NO_PAD;
    } else if (a == "--eol") {
      const std::string_view v = value(a);
      if (v == "crlf") eol = ORLIX_BASE64_EOL_CRLF;
      else if (v == "lf") eol = ORLIX_BASE64_EOL_LF;
      else if (v == "cr") eol = ORLIX_BASE64_EOL_CR;
      else if (v == "none") eol = ORLIX_BASE64_EOL_NONE;
      else return usage_error("base64", "--eol takes crlf, lf, cr or none");
    } else if (a == "--ws") {
      const std::string_view v = value(a);
      if (v == "none") ws = ORLIX_BASE64_WS_NONE;
      else if (v == "eol") ws = ORLIX_BASE64_WS_EOL;
      else if (v == "all") ws = ORLIX_BASE64_WS_ALL;
      else return usage_error("base64", "--ws takes none, eol or all");
    } else if (a == "--line") {
      if (!parse_int(value(a), 1, 0x7FFFFFF0, &line))
        return usage_error("base64", "--line takes a positive number");
    } else if (a.size() > 1 && a[0] == '-') {
      return usage_error("base64", std::string("unknown option ") + std::string(a));
    } else {
      paths.push_back(a);
    }
  }
  paths = or_stdin(std::move(paths));
  if (!decode) {
    std::string input;
    const int status = read_all("base64", paths, &input) ? kOk : kFailed;
    ORLIX_ErrCtx ctx{};
    StreamChain chain;
    chain.top = new_stdout_stream(&ctx);
    ORLIX_Stream *filter =
        orlix_stream_new_base64(eol | bits, static_cast<int32_t>(line), ws, &ctx);
    if (chain.top == nullptr || filter == nullptr) {
      orlix_stream_free(filter);
      return failure("base64", error_text(ctx), ctx);
    }
    orlix_stream_push(filter, chain.top);
    chain.top = filter;
    if (orlix_stream_writen(filter, input.data(), static_cast<int64_t>(input.size()), &ctx) != 1 ||
        orlix_stream_ctrl(filter, ORLIX_CTRL_FLUSH, nullptr, &ctx) != 1)
      return failure("base64", "cannot write standard output", ctx);
    return status;
  }
  int status = kOk;
  for (const std::string_view path : paths) {
    std::string input;
    if (!read_input("base64", path, &input)) {
      status = kFailed;
    } else if (const int r = decode_base64(input, ws | bits, where(path, paths.size())); r != kOk) {
      status = r;
    }
  }
  return status;
}

// ---- hex ----------------------------------------------------------------------------

constexpr const char kHexUsage[] =
    "usage: orlix hex [-d] [--upper] [FILE...]\n"
    "Writes the FILEs (one after the other) or standard input as hexadecimal digits,\n"
    "or decodes each with -d (one final line ending of each is ignored; any other\n"
    "character, or an odd number of digits, is refused with status 1).\n"
    "  -d        decode\n"
    "  --upper   upper-case digits\n";

// Decodes one text of hexadecimal digits to standard output.
int decode_hex(std::string input, const std::string &name) {
  if (!input.empty() && input.back() == '\n') input.pop_back();
  if (!input.empty() && input.back() == '\r') input.pop_back();
  if (input.size() % 2 != 0) return failure("hex", name + "odd number of digits");
  if (input.empty()) return kOk;
  ORLIX_ErrCtx ctx{};
  StreamChain chain;
  chain.top = orlix_stream_new_romem(input.data(), static_cast<int64_t>(input.size()), 0, &ctx);
  ORLIX_Stream *filter = orlix_stream_new_hex(0, &ctx);
  if (chain.top == nullptr || filter == nullptr) {
    orlix_stream_free(filter);
    return failure("hex", name + error_text(ctx), ctx);
  }
  orlix_stream_push(filter, chain.top);
  chain.top = filter;
  return drain_to_stdout("hex", filter, &ctx,
                         name + "not hexadecimal: a character that is not a digit");
}

int run_hex(std::vector<std::string_view> args) {
  bool decode = false;
  bool upper = false;
  std::vector<std::string_view> paths;
  for (const std::string_view a : args) {
    if (is_help(a)) return std::fputs(kHexUsage, stdout), kOk;
    if (a == "-d" || a == "--decode") decode = true;
    else if (a == "--upper") upper = true;
    else if (a.size() > 1 && a[0] == '-')
      return usage_error("hex", std::string("unknown option ") + std::string(a));
    else
      paths.push_back(a);
  }
  paths = or_stdin(std::move(paths));
  if (decode) {
    int status = kOk;
    for (const std::string_view path : paths) {
      std::string input;
      if (!read_input("hex", path, &input)) {
        status = kFailed;
      } else if (const int r = decode_hex(std::move(input), where(path, paths.size())); r != kOk) {
        status = r;
      }
    }
    return status;
  }
  std::string input;
  const int status = read_all("hex", paths, &input) ? kOk : kFailed;
  ORLIX_ErrCtx ctx{};
  StreamChain chain;
  chain.top = new_stdout_stream(&ctx);
  ORLIX_Stream *filter = orlix_stream_new_hex(upper ? 1 : 0, &ctx);
  if (chain.top == nullptr || filter == nullptr) {
    orlix_stream_free(filter);
    return failure("hex", error_text(ctx), ctx);
  }
  orlix_stream_push(filter, chain.top);
  chain.top = filter;
  if (orlix_stream_writen(filter, input.data(), static_cast<int64_t>(input.size()), &ctx) != 1)
    return failure("hex", "cannot write standard output", ctx);
  return status;
}

// ---- pem ------------------------------------------------------------------------------

constexpr const char kPemUsage[] =
    "usage: orlix pem encode|decode LABEL [FILE...]\n"
    "encode: wraps the bytes of the FILEs (one after the other) or standard input\n"
    "        in PEM armour (-----BEGIN LABEL-----, base64 in 64-column CR LF lines,\n"
    "        -----END LABEL-----).\n"
    "decode: checks the armour of each FILE strictly and writes the bytes it holds.\n";

int run_pem(std::vector<std::string_view> args) {
  for (const std::string_view a : args)
    if (is_help(a)) return std::fputs(kPemUsage, stdout), kOk;
  if (args.size() < 2 || (args[0] != "encode" && args[0] != "decode"))
    return usage_error("pem", "expects encode|decode LABEL [FILE...]");
  const std::string label(args[1]);
  if (label.empty()) return usage_error("pem", "the label is empty");
  const std::vector<std::string_view> paths =
      or_stdin(std::vector<std::string_view>(args.begin() + 2, args.end()));
  if (args[0] == "encode") {
    std::string input;
    const int status = read_all("pem", paths, &input) ? kOk : kFailed;
    char *pem = nullptr;
    int64_t length = 0;
    if (input.empty()) return failure("pem", "nothing to encode");
    if (orlix_pemencode(label.c_str(), input.data(), static_cast<int64_t>(input.size()), &pem,
                        &length) != 1)
      return failure("pem", "cannot encode");
    const bool ok = write_output(pem, static_cast<size_t>(length));
    orlix_free(pem);
    return ok ? status : failure("pem", "cannot write standard output");
  }
  int status = kOk;
  for (const std::string_view path : paths) {
    std::string input;
    if (!read_input("pem", path, &input)) {
      status = kFailed;
      continue;
    }
    unsigned char *data = nullptr;
    int64_t length = 0;
    if (orlix_pemdecode(label.c_str(), input.data(), static_cast<int64_t>(input.size()), &data,
                        &length) != 1) {
      status =
          failure("pem", where(path, paths.size()) + "not a valid PEM block labelled " + label);
      continue;
    }
    const bool ok = write_output(data, static_cast<size_t>(length));
    orlix_free(data);
    if (!ok) return failure("pem", "cannot write standard output");
  }
  return status;
}

}  // namespace

int json_command(std::vector<std::string_view> args) { return run_json(std::move(args)); }
int base64_command(std::vector<std::string_view> args) { return run_base64(std::move(args)); }
int hex_command(std::vector<std::string_view> args) { return run_hex(std::move(args)); }
int pem_command(std::vector<std::string_view> args) { return run_pem(std::move(args)); }

}  // namespace cli
