// orlix json, base64, hex and pem.
#include <cstring>

#include "cli.hpp"

namespace cli {
namespace {

struct StreamChain {
  ORLIX_Stream *top = nullptr;
  ~StreamChain() { orlix_stream_freeall(top); }
};

// Reads every byte that a (filter) chain delivers and copies it to standard
// output. The read that finds nothing left ends the copy.
int drain_to_stdout(std::string_view command, ORLIX_Stream *top, ORLIX_ErrCtx *ctx) {
  char piece[16384];
  for (;;) {
    uint64_t n = 0;
    if (orlix_stream_read(top, piece, sizeof piece, &n, ctx) != 1) return failure(command, *ctx);
    if (n == 0) return kOk;
    if (!write_output(piece, n)) return failure(command, "cannot write standard output");
  }
}

// ---- json ------------------------------------------------------------------------

constexpr const char kJsonUsage[] =
    "usage: orlix json [--pretty] [--crlf|--lf|--cr] [--spaces N] [--sort] [FILE]\n"
    "Decodes JSON text (FILE or standard input) and encodes it again.\n"
    "  --pretty     one entry per line, indented with tabs (line feeds unless\n"
    "               --crlf or --cr says otherwise); member values stay compact\n"
    "  --crlf, --lf, --cr   the line ending of --pretty output\n"
    "  --spaces N   put N spaces (0-255) before each indenting tab\n"
    "  --sort       sort the top-level object's members or array's elements\n"
    "Invalid JSON exits with status 1.\n";

int run_json(std::vector<std::string_view> args) {
  uint32_t flags = 0;
  uint32_t line_end = 0;
  std::string_view path;
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
    } else if (path.empty()) {
      path = a;
    } else {
      return usage_error("json", "more than one input file");
    }
  }
  if ((flags & ORLIX_JSON_ENCODE_PRETTY) != 0)
    flags |= line_end != 0 ? line_end : ORLIX_JSON_ENCODE_LF;

  std::string text;
  if (!read_input("json", path, &text)) return kFailed;
  if (text.size() > 0x7FFFFFFFu) return failure("json", "input too large");
  ORLIX_JSON *tree = orlix_json_decode(text.data(), static_cast<uint32_t>(text.size()));
  if (tree == nullptr) return failure("json", "invalid JSON");
  char *out = nullptr;
  uint32_t length = 0;
  const int ok = orlix_json_encode(tree, flags, &out, &length);
  orlix_json_free(tree);
  if (ok != 1) return failure("json", "cannot encode the document");
  const bool written = write_output(out, length);
  orlix_free(out);
  return written ? kOk : failure("json", "cannot write standard output");
}

// ---- base64 ------------------------------------------------------------------------

constexpr const char kBase64Usage[] =
    "usage: orlix base64 [-d] [--url] [--no-pad] [--eol crlf|lf|cr|none] [--line N]\n"
    "                    [--ws none|eol|all] [FILE]\n"
    "Encodes FILE or standard input as base64, or decodes it with -d.\n"
    "  -d           decode\n"
    "  --url        the URL-safe alphabet (- and _ for + and /)\n"
    "  --no-pad     write no '=' padding; with -d, the input has none\n"
    "  --eol E      encoding: the line ending (default lf)\n"
    "  --line N     encoding: line length, rounded up to whole groups (default 64)\n"
    "  --ws W       decoding: whitespace accepted: none, eol (CR, LF; default) or all\n";

int run_base64(std::vector<std::string_view> args) {
  bool decode = false;
  uint32_t bits = 0;
  uint32_t eol = ORLIX_BASE64_EOL_LF;
  uint32_t ws = ORLIX_BASE64_WS_EOL;
  int64_t line = 64;
  std::string_view path;
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
    } else if (path.empty()) {
      path = a;
    } else {
      return usage_error("base64", "more than one input file");
    }
  }
  std::string input;
  if (!read_input("base64", path, &input)) return kFailed;
  ORLIX_ErrCtx ctx{};
  StreamChain chain;
  if (!decode) {
    chain.top = new_stdout_stream(&ctx);
    ORLIX_Stream *filter =
        orlix_stream_new_base64(eol | bits, static_cast<int32_t>(line), ws, &ctx);
    if (chain.top == nullptr || filter == nullptr) {
      orlix_stream_free(filter);
      return failure("base64", ctx);
    }
    orlix_stream_push(filter, chain.top);
    chain.top = filter;
    if (orlix_stream_writen(filter, input.data(), static_cast<int64_t>(input.size()), &ctx) != 1 ||
        orlix_stream_ctrl(filter, ORLIX_CTRL_FLUSH, nullptr, &ctx) != 1)
      return failure("base64", ctx);
    return kOk;
  }
  if (input.empty()) return kOk;
  chain.top = orlix_stream_new_romem(input.data(), static_cast<int64_t>(input.size()), 0, &ctx);
  ORLIX_Stream *filter = orlix_stream_new_base64(ORLIX_BASE64_EOL_LF, 64, ws | bits, &ctx);
  if (chain.top == nullptr || filter == nullptr) {
    orlix_stream_free(filter);
    return failure("base64", ctx);
  }
  orlix_stream_push(filter, chain.top);
  chain.top = filter;
  if (const int r = drain_to_stdout("base64", filter, &ctx); r != kOk) return r;
  if ((bits & ORLIX_BASE64_NO_PAD) != 0) {
    ORLIX_DataBlob *rest = nullptr;
    if (orlix_stream_ctrl(filter, ORLIX_CTRL_BASE64_REMAINDER, &rest, &ctx) != 1) {
      if (ctx.head == ctx.tail) return failure("base64", "incomplete final group");
      return failure("base64", ctx);
    }
    const bool ok = write_output(rest->data, static_cast<size_t>(rest->length));
    orlix_data_blob_free(rest);
    if (!ok) return failure("base64", "cannot write standard output");
  }
  return kOk;
}

// ---- hex ----------------------------------------------------------------------------

constexpr const char kHexUsage[] =
    "usage: orlix hex [-d] [--upper] [FILE]\n"
    "Writes FILE or standard input as hexadecimal digits, or decodes digits with -d\n"
    "(one final line ending of the input is ignored; any other character fails).\n"
    "  -d        decode\n"
    "  --upper   upper-case digits\n";

int run_hex(std::vector<std::string_view> args) {
  bool decode = false;
  bool upper = false;
  std::string_view path;
  for (const std::string_view a : args) {
    if (is_help(a)) return std::fputs(kHexUsage, stdout), kOk;
    if (a == "-d" || a == "--decode") decode = true;
    else if (a == "--upper") upper = true;
    else if (a.size() > 1 && a[0] == '-')
      return usage_error("hex", std::string("unknown option ") + std::string(a));
    else if (path.empty()) path = a;
    else return usage_error("hex", "more than one input file");
  }
  std::string input;
  if (!read_input("hex", path, &input)) return kFailed;
  ORLIX_ErrCtx ctx{};
  StreamChain chain;
  ORLIX_Stream *filter = orlix_stream_new_hex(upper ? 1 : 0, &ctx);
  if (filter == nullptr) return failure("hex", ctx);
  if (decode) {
    if (!input.empty() && input.back() == '\n') input.pop_back();
    if (!input.empty() && input.back() == '\r') input.pop_back();
    chain.top = orlix_stream_new_romem(input.data(), static_cast<int64_t>(input.size()), 0, &ctx);
  } else {
    chain.top = new_stdout_stream(&ctx);
  }
  if (chain.top == nullptr) {
    orlix_stream_free(filter);
    return failure("hex", ctx);
  }
  orlix_stream_push(filter, chain.top);
  chain.top = filter;
  if (!decode) {
    if (orlix_stream_writen(filter, input.data(), static_cast<int64_t>(input.size()), &ctx) != 1)
      return failure("hex", ctx);
    return kOk;
  }
  if (input.size() % 2 != 0) return failure("hex", "odd number of digits");
  return drain_to_stdout("hex", filter, &ctx);
}

// ---- pem ------------------------------------------------------------------------------

constexpr const char kPemUsage[] =
    "usage: orlix pem encode|decode LABEL [FILE]\n"
    "encode: wraps the bytes of FILE or standard input in PEM armour\n"
    "        (-----BEGIN LABEL-----, base64 in 64-column CR LF lines, -----END LABEL-----).\n"
    "decode: checks the armour strictly and writes the bytes it holds.\n";

int run_pem(std::vector<std::string_view> args) {
  for (const std::string_view a : args)
    if (is_help(a)) return std::fputs(kPemUsage, stdout), kOk;
  if (args.size() < 2 || args.size() > 3 || (args[0] != "encode" && args[0] != "decode"))
    return usage_error("pem", "expects encode|decode LABEL [FILE]");
  const std::string label(args[1]);
  if (label.empty()) return usage_error("pem", "the label is empty");
  std::string input;
  if (!read_input("pem", args.size() == 3 ? args[2] : "", &input)) return kFailed;
  if (args[0] == "encode") {
    char *pem = nullptr;
    int64_t length = 0;
    if (input.empty()) return failure("pem", "nothing to encode");
    if (orlix_pemencode(label.c_str(), input.data(), static_cast<int64_t>(input.size()), &pem,
                        &length) != 1)
      return failure("pem", "cannot encode");
    const bool ok = write_output(pem, static_cast<size_t>(length));
    orlix_free(pem);
    return ok ? kOk : failure("pem", "cannot write standard output");
  }
  unsigned char *data = nullptr;
  int64_t length = 0;
  if (orlix_pemdecode(label.c_str(), input.data(), static_cast<int64_t>(input.size()), &data,
                      &length) != 1)
    return failure("pem", "not a valid PEM block labelled " + label);
  const bool ok = write_output(data, static_cast<size_t>(length));
  orlix_free(data);
  return ok ? kOk : failure("pem", "cannot write standard output");
}

}  // namespace

int json_command(std::vector<std::string_view> args) { return run_json(std::move(args)); }
int base64_command(std::vector<std::string_view> args) { return run_base64(std::move(args)); }
int hex_command(std::vector<std::string_view> args) { return run_hex(std::move(args)); }
int pem_command(std::vector<std::string_view> args) { return run_pem(std::move(args)); }

}  // namespace cli
