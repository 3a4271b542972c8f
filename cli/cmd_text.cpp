// orlix normalize, casefold, ldapprep, nameprep and idn: text in the
// locale's charset, one result line per input.
#include <cstring>
#include <utility>

#include "cli.hpp"

namespace cli {
namespace {

// The label separators of IDNA: full stop, ideographic full stop, fullwidth
// full stop, halfwidth ideographic full stop.
bool is_label_dot(uint16_t unit) {
  return unit == 0x2E || unit == 0x3002 || unit == 0xFF0E || unit == 0xFF61;
}

struct UStr {
  ORLIX_UString *s = nullptr;
  explicit UStr(ORLIX_UString *p) : s(p) {}
  ~UStr() { orlix_ustring_free(s); }
  UStr(const UStr &) = delete;
  UStr &operator=(const UStr &) = delete;
};

// Runs transform over every input and prints each result on its own line,
// as soon as it is made. An input that is refused gets a message naming it
// instead, and the others are still done; the status is kFailed when any
// was refused. The transform gives a new reference, or nullptr with *why
// saying why the library refused the text.
template <class Transform>
int each_line(std::string_view command, const std::vector<std::string_view> &texts,
              Transform transform) {
  std::vector<TextInput> inputs;
  if (!text_inputs(command, texts, &inputs)) return kFailed;
  int status = kOk;
  for (const TextInput &input : inputs) {
    UStr in(from_locale(input.bytes));
    if (in.s == nullptr) {
      status = failure(command, input.name + ": not valid text in the charset " + text_charset());
      continue;
    }
    std::string why;
    UStr result(transform(in.s, &why));
    std::string bytes;
    if (result.s == nullptr) {
      status = failure(command, input.name + ": " + why);
    } else if (!to_locale(result.s, &bytes)) {
      status = failure(
          command, input.name + ": the result cannot be written in the charset " + text_charset());
    } else if (!write_output(bytes + "\n")) {
      return failure(command, "cannot write standard output");
    }
  }
  return status;
}

// A transform that is either done or refused for one reason.
template <class Apply>
auto refusing(const char *reason, Apply apply) {
  return [reason, apply](ORLIX_UString *s, std::string *why) {
    ORLIX_UString *r = apply(s);
    if (r == nullptr) *why = reason;
    return r;
  };
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
    "locale's charset (LC_ALL, LC_CTYPE, LANG; UTF-8 when they name none or name\n"
    "ASCII), and writes one line per input. An input that is refused, or is not\n"
    "valid in the charset, gets a message instead and the status is 1.\n";

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
  return each_line("normalize", args, refusing("cannot normalize", [form](ORLIX_UString *s) {
                     return orlix_ustring_normalize(s, form);
                   }));
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
  return each_line("casefold", texts, refusing("cannot fold", [mode](ORLIX_UString *s) {
                     return orlix_ustring_tocasefold(s, mode);
                   }));
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
  return each_line("ldapprep", args,
                   refusing("refused by the LDAP string preparation", [type](ORLIX_UString *s) {
                     return orlix_ustring_ldapi18nstringprep(type, s);
                   }));
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
  return each_line("nameprep", texts, refusing("refused by nameprep", [allow](ORLIX_UString *s) {
                     return orlix_ustring_idn_stringprep(s, allow);
                   }));
}

int run_idn(std::vector<std::string_view> args) {
  if (wants_help(args) || args.empty())
    return std::printf(
               "usage: orlix idn to-ascii|to-unicode [--std3] [--allow-unassigned] [--wildcard]\n"
               "                 [NAME...]\n"
               "Converts international domain names (IDNA). to-unicode gives back a name it\n"
               "cannot convert unchanged. A final dot (the root) is accepted and kept.\n%s",
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
  const bool to_ascii = direction == "to-ascii";
  return each_line("idn", names, [=](ORLIX_UString *s, std::string *why) -> ORLIX_UString * {
    // A final root dot (also U+3002, U+FF0E or U+FF61) is kept: the name
    // without it is converted and the dot put back.
    uint16_t *units = nullptr;
    int64_t count = 0;
    if (orlix_ustring_toutf16(s, &units, &count) != 1) return *why = "out of memory", nullptr;
    const bool rooted = count > 0 && is_label_dot(units[count - 1]);
    UStr name(rooted ? orlix_ustring_newlength(units, count - 1) : orlix_ustring_dup(s));
    orlix_free(units);
    if (name.s == nullptr) return *why = "out of memory", nullptr;
    if (rooted && count == 1) return orlix_ustring_newutf8(".", 1);  // the root itself
    UStr result(nullptr);
    if (to_ascii) {
      char *ascii = nullptr;
      int64_t length = 0;
      if (orlix_ustring_idn_toascii(name.s, allow, std3, wildcard, &ascii, &length) != 1)
        return *why = "cannot convert to ASCII", nullptr;
      result.s = orlix_ustring_newascii(ascii, length);
      orlix_free(ascii);
    } else {
      result.s = orlix_ustring_idn_tounicode(name.s, allow, std3, wildcard);
    }
    if (result.s == nullptr) return *why = "out of memory", nullptr;
    if (!rooted) return std::exchange(result.s, nullptr);
    UStr dot(orlix_ustring_newutf8(".", 1));
    ORLIX_UString *joined = orlix_ustring_cat(result.s, dot.s);
    if (joined == nullptr) *why = "out of memory";
    return joined;
  });
}

}  // namespace

int normalize_command(std::vector<std::string_view> a) { return run_normalize(std::move(a)); }
int casefold_command(std::vector<std::string_view> a) { return run_casefold(std::move(a)); }
int ldapprep_command(std::vector<std::string_view> a) { return run_ldapprep(std::move(a)); }
int nameprep_command(std::vector<std::string_view> a) { return run_nameprep(std::move(a)); }
int idn_command(std::vector<std::string_view> a) { return run_idn(std::move(a)); }

}  // namespace cli
