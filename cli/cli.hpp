// Shared plumbing of the orlix command-line tool: argument handling, input,
// output and the failure reports.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "orlix_util.h"

namespace cli {

// Exit codes: 0 success, 1 an input refused or an operation failed, 2 usage
// error.
inline constexpr int kOk = 0;
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 2;

// A subcommand: its name, one line for the overview, and its entry point
// (arguments after the subcommand's name).
struct Command {
  const char *name;
  const char *summary;
  int (*run)(std::vector<std::string_view> args);
};

// Every subcommand, for dispatch and for `orlix --help`.
const std::vector<Command> &commands();

// --verbose: failure reports also name the library module and line.
void set_verbose(bool on);

// Prints "orlix <command>: <message>" to standard error and returns kUsage.
int usage_error(std::string_view command, std::string_view message);

// Prints "orlix <command>: <message>" to standard error and returns kFailed.
int failure(std::string_view command, std::string_view message);

// As above; with --verbose the newest entry of the error context follows
// as "(<library text>: <module>, line <n>)".
int failure(std::string_view command, std::string_view message, const ORLIX_ErrCtx &ctx);

// The newest entry's text of an error context, for a message in words
// ("failed" when the context is empty).
std::string error_text(const ORLIX_ErrCtx &ctx);

// True for "-h" and "--help".
bool is_help(std::string_view arg);

// "standard input" for "-" (and ""), else the path itself.
std::string input_name(std::string_view path);

// Reads a whole file, or standard input for "" or "-"; false on error (a
// message has been printed).
bool read_input(std::string_view command, std::string_view path, std::string *out);

// Writes bytes to standard output exactly; false on error.
bool write_output(const void *data, size_t length);
inline bool write_output(std::string_view text) { return write_output(text.data(), text.size()); }

// A parsed decimal integer within [min, max], or false.
bool parse_int(std::string_view text, int64_t min, int64_t max, int64_t *value);

// A stream sink over standard output, made from a caller-filled method
// table like any other stream kind. Release it with orlix_stream_free.
ORLIX_Stream *new_stdout_stream(ORLIX_ErrCtx *ctx);

// One text to work on: its bytes in the charset in use and how to name it
// in a message ("'TEXT'" for an argument, "line N: 'TEXT'" for a line of
// standard input).
struct TextInput {
  std::string bytes;
  std::string name;
};

// The text arguments, or else the lines of standard input (without their
// line endings).
bool text_inputs(std::string_view command, const std::vector<std::string_view> &args,
                 std::vector<TextInput> *out);

// The charset of the text commands: the one the locale environment names,
// but UTF-8 when it names none or names ASCII (the C and POSIX locales, an
// empty environment), so that UTF-8 text is never misread as Latin-1.
const std::string &text_charset();

// Converts bytes in text_charset() to a Unicode string and back; nullptr /
// false when the bytes are not valid in that charset.
ORLIX_UString *from_locale(std::string_view bytes);
bool to_locale(const ORLIX_UString *s, std::string *out);

}  // namespace cli
