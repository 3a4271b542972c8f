// orlix normalize, casefold, ldapprep, nameprep and idn: text in the
// locale's charset, one result line per input.
#include <cstring>

#include "cli.hpp"

namespace cli {
namespace {

struct UStr {
  ORLIX_UString *s = nullptr;
  explicit UStr(ORLIX_UString *p) : s(p) {}
  ~UStr() { orlix_ustring_free(s); }
  UStr(const UStr &) = delete;
  UStr &operator=(const UStr &) = delete;
};

// Runs transform over every input and prints each result on its own line.
// The transform returns a new reference, or nullptr when the library
// refuses the text.
template <class Transform>
int each_line(std::string_view command, const std::vector<std::string_view> &texts,
              std::string_view refused, Transform transform) {
  std::vector<std::string> inputs;
  if (!text_inputs(command, texts, &inputs)) return kFailed;
  std::string out;
  for (size_t i = 0; i < inputs.size(); ++i) {
    const std::string where = texts.empty() ? "line " + std::to_string(i + 1) + ": " : "";
    UStr in(from_locale(inputs[i]));
    if (in.s == nullptr) return failure(command, where + "not valid text in the locale's charset");
    UStr result(transform(in.s));
    std::string bytes;
    if (result.s == nullptr) {
      std::string message = where;
      message.append(refused);
      return failure(command, message);
    }
    if (!to_locale(result.s, &bytes))
      return failure(command, where + "the result cannot be written in the locale's charset");
    out += bytes;
    out += '\n';
  }
  return write_output(out) ? kOk : failure(command, "cannot write standard output");
}

// Splits options (anything starting with "--") from text arguments.
bool split(std::string_view command, const std::vector<std::string_view> &args,
           const std::vector<std::string_view> &known, std::vector<std::string_view> *options,
           std::vector<std::string_view> *texts, int *status) {
  for (const std::string_view a : args) {
    if (a.size() > 2 && a.substr(0, 2) == "--") {
      bool ok = false;
      for (const std::string_view k : known) ok = ok || a == k;
      if (!ok) {
        *status = usage_error(command, std::string("unknown option ") + std::string(a));
        return false;
      }
      options->push_back(a);
    } else {
      texts->push_back(a);
    }
  }
  return true;
}

bool has(const std::vector<std::string_view> &options, std::string_view o) {
  for (const std::string_view x : options)
    if (x == o) return true;
  return false;
}

bool wants_help(const std::vector<std::string_view> &args) {
  for (const std::string_view a : args)
    if (is_help(a)) return true;
  return false;
}

constexpr const char kTextNote[] =
    "Works on the TEXT arguments, or else on each line of standard input, in the\n"
    "locale's charset (LC_ALL, LC_CTYPE, LANG; UTF-8 when they name none), and\n"
    "writes one line per input.\n";

int run_normalize(std::vector<std::string_view> args) {
  if (wants_help(args))
    return std::printf("usage: orlix normalize nfc|nfd|nfkc|nfkd [TEXT...]\n%s", kTextNote), kOk;
  if (args.empty()) return usage_error("normalize", "expects a form: nfc, nfd, nfkc or nfkd");
  int32_t form;
  if (args[0] == "nfc") form = ORLIX_NORMALIZE_NFC;
  else if (args[0] == "nfd") form = ORLIX_NORMALIZE_NFD;
  else if (args[0] == "nfkc") form = ORLIX_NORMALIZE_NFKC;
  else if (args[0] == "nfkd") form = ORLIX_NORMALIZE_NFKD;
  else return usage_error("normalize", "the form is one of nfc, nfd, nfkc, nfkd");
  args.erase(args.begin());
  return each_line("normalize", args, "cannot normalize",
                   [form](ORLIX_UString *s) { return orlix_ustring_normalize(s, form); });
}

int run_casefold(std::vector<std::string_view> args) {
  if (wants_help(args))
    return std::printf(
               "usage: orlix casefold [--nfkc] [TEXT...]\n"
               "Full case folding; --nfkc uses the folding that is closed under NFKC.\n%s",
               kTextNote),
           kOk;
  std::vector<std::string_view> options, texts;
  int status = 0;
  if (!split("casefold", args, {"--nfkc"}, &options, &texts, &status)) return status;
  const int32_t mode = has(options, "--nfkc") ? ORLIX_CASEFOLD_NFKC_CLOSURE : ORLIX_CASEFOLD_FULL;
  return each_line("casefold", texts, "cannot fold",
                   [mode](ORLIX_UString *s) { return orlix_ustring_tocasefold(s, mode); });
}

int run_ldapprep(std::vector<std::string_view> args) {
  if (wants_help(args))
    return std::printf(
               "usage: orlix ldapprep TYPE [TEXT...]\n"
               "LDAP string preparation. TYPE: exact (0), ignore (1), numeric (3),\n"
               "telephone (4), telephone-ignore (5).\n%s",
               kTextNote),
           kOk;
  if (args.empty()) return usage_error("ldapprep", "expects a TYPE");
  int64_t type;
  const std::string_view t = args[0];
  if (t == "exact" || t == "0") type = ORLIX_LDAPPREP_CASE_EXACT;
  else if (t == "ignore" || t == "1") type = ORLIX_LDAPPREP_CASE_IGNORE;
  else if (t == "numeric" || t == "3") type = ORLIX_LDAPPREP_NUMERIC;
  else if (t == "telephone" || t == "4") type = ORLIX_LDAPPREP_TELEPHONE;
  else if (t == "telephone-ignore" || t == "5") type = ORLIX_LDAPPREP_TELEPHONE_IGNORE;
  else return usage_error("ldapprep", "unknown TYPE (exact, ignore, numeric, telephone, telephone-ignore)");
  args.erase(args.begin());
  return each_line("ldapprep", args, "the text is refused by the preparation",
                   [type](ORLIX_UString *s) { return orlix_ustring_ldapi18nstringprep(type, s); });
}

int run_nameprep(std::vector<std::string_view> args) {
  if (wants_help(args))
    return std::printf(
               "usage: orlix nameprep [--allow-unassigned] [TEXT...]\n"
               "Nameprep string preparation of domain-name labels.\n%s",
               kTextNote),
           kOk;
  std::vector<std::string_view> options, texts;
  int status = 0;
  if (!split("nameprep", args, {"--allow-unassigned"}, &options, &texts, &status)) return status;
  const int32_t allow = has(options, "--allow-unassigned") ? 1 : 0;
  return each_line("nameprep", texts, "the text is refused by nameprep",
                   [allow](ORLIX_UString *s) { return orlix_ustring_idn_stringprep(s, allow); });
}

int run_idn(std::vector<std::string_view> args) {
  if (wants_help(args) || args.empty())
    return std::printf(
               "usage: orlix idn to-ascii|to-unicode [--std3] [--allow-unassigned] [--wildcard]\n"
               "                 [NAME...]\n"
               "Converts international domain names (IDNA). to-unicode gives back a name it\n"
               "cannot convert unchanged.\n%s",
               kTextNote),
           args.empty() ? kUsage : kOk;
  const std::string_view direction = args[0];
  if (direction != "to-ascii" && direction != "to-unicode")
    return usage_error("idn", "expects to-ascii or to-unicode");
  args.erase(args.begin());
  std::vector<std::string_view> options, names;
  int status = 0;
  if (!split("idn", args, {"--std3", "--allow-unassigned", "--wildcard"}, &options, &names,
             &status))
    return status;
  const int32_t allow = has(options, "--allow-unassigned");
  const int32_t std3 = has(options, "--std3");
  const int32_t wildcard = has(options, "--wildcard");
  if (direction == "to-unicode")
    return each_line("idn", names, "cannot convert", [=](ORLIX_UString *s) {
      return orlix_ustring_idn_tounicode(s, allow, std3, wildcard);
    });
  std::vector<std::string> inputs;
  if (!text_inputs("idn", names, &inputs)) return kFailed;
  std::string out;
  for (size_t i = 0; i < inputs.size(); ++i) {
    const std::string where = names.empty() ? "line " + std::to_string(i + 1) + ": " : "";
    UStr in(from_locale(inputs[i]));
    if (in.s == nullptr) return failure("idn", where + "not valid text in the locale's charset");
    char *ascii = nullptr;
    int64_t length = 0;
    if (orlix_ustring_idn_toascii(in.s, allow, std3, wildcard, &ascii, &length) != 1)
      return failure("idn", where + "cannot convert " + inputs[i] + " to ASCII");
    out.append(ascii, static_cast<size_t>(length));
    out += '\n';
    orlix_free(ascii);
  }
  return write_output(out) ? kOk : failure("idn", "cannot write standard output");
}

}  // namespace

int normalize_command(std::vector<std::string_view> a) { return run_normalize(std::move(a)); }
int casefold_command(std::vector<std::string_view> a) { return run_casefold(std::move(a)); }
int ldapprep_command(std::vector<std::string_view> a) { return run_ldapprep(std::move(a)); }
int nameprep_command(std::vector<std::string_view> a) { return run_nameprep(std::move(a)); }
int idn_command(std::vector<std::string_view> a) { return run_idn(std::move(a)); }

}  // namespace cli
