// Helpers shared by the JSON suites: random values and texts, and a runner
// for the probe program that decodes and encodes in a fresh process.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "json_reference.hpp"

namespace json_test {

using namespace json_ref;

struct Shape {
  int depth = 4;                      // containers nest at most this deep
  int width = 6;                      // entries per container at most
  std::vector<std::string> alphabet;  // pieces of strings; empty: any code point
  bool integral_only = false;
  bool int32_only = false;  // integral numbers within the 32-bit range
};

inline std::string RandomString(std::mt19937 &rng, const Shape &shape) {
  std::string s;
  const int n = int(rng() % 8);
  for (int i = 0; i < n; ++i) {
    if (!shape.alphabet.empty()) {
      s += shape.alphabet[rng() % shape.alphabet.size()];
      continue;
    }
    // Mostly ASCII, with controls, quotes, backslashes, NUL and every
    // UTF-8 length.
    static const uint32_t kPicks[] = {0,     0x1F,   '"',     '\\',    '/',      0x7F, 0xE9, 0x7FF,
                                      0x800, 0xFFFD, 0x10000, 0x1F600, 0x10FFFF, '\n', '\t'};
    const uint32_t r = rng() % 4;
    uint32_t cp = r < 2 ? 0x20 + rng() % 0x5F : kPicks[rng() % std::size(kPicks)];
    if (r == 3) {
      cp = rng() % 0x110000;
      if (cp >= 0xD800 && cp <= 0xDFFF) cp = 'x';
    }
    AppendUtf8(&s, cp);
  }
  return s;
}

inline double RandomNumber(std::mt19937 &rng, const Shape &shape) {
  const int64_t range = shape.int32_only ? 2147483648LL : (int64_t{1} << 53);
  const auto integral = [&] {
    switch (rng() % 4) {
      case 0: return double(int(rng() % 21) - 10);
      case 1: return double(int32_t(rng()));
      default: {
        std::uniform_int_distribution<int64_t> d(-range, range - 1);
        return double(d(rng));
      }
    }
  };
  if (shape.integral_only) return integral();
  switch (rng() % 4) {
    case 0: return integral();
    case 1: return std::ldexp(double(int(rng() % 4001) - 2000), -int(rng() % 12));
    case 2: return std::uniform_real_distribution<double>(-1e6, 1e6)(rng);
    default: return std::pow(10.0, int(rng() % 40) - 20) * (rng() % 2 ? 1 : -1) * (rng() % 97);
  }
}

inline Value RandomValue(std::mt19937 &rng, const Shape &shape, int depth = 0) {
  const uint32_t pick = rng() % (depth < shape.depth ? 8 : 5);
  switch (pick) {
    case 0: return Str(RandomString(rng, shape));
    case 1: return Num(RandomNumber(rng, shape));
    case 2: return Bool(rng() % 2);
    case 3: return Null();
    case 4: return Str(RandomString(rng, shape));
    case 5:
    case 6: {
      Value o = Obj();
      for (int n = int(rng() % (shape.width + 1)); n > 0; --n)
        o.members.push_back(Member{RandomString(rng, shape), RandomValue(rng, shape, depth + 1)});
      return o;
    }
    default: {
      Value a = Arr();
      for (int n = int(rng() % (shape.width + 1)); n > 0; --n)
        a.elements.push_back(RandomValue(rng, shape, depth + 1));
      return a;
    }
  }
}

// The code points of valid UTF-8.
inline std::vector<uint32_t> CodePoints(std::string_view s) {
  std::vector<uint32_t> out;
  for (size_t i = 0; i < s.size();) {
    const auto b = static_cast<unsigned char>(s[i]);
    const int extra = b < 0x80 ? 0 : b < 0xE0 ? 1 : b < 0xF0 ? 2 : 3;
    uint32_t cp = extra == 0 ? b : b & (0x3F >> extra);
    for (int k = 1; k <= extra; ++k) cp = cp << 6 | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    out.push_back(cp);
    i += size_t(extra) + 1;
  }
  return out;
}

// Standard JSON text for v, spelled at random: whitespace between tokens
// (never around a top-level scalar), strings mixing raw UTF-8, short escapes
// and \u escapes in either case (pairs above the BMP), numbers in several
// exact spellings.
class Renderer {
 public:
  explicit Renderer(std::mt19937 &rng) : rng_(rng) {}

  std::string Render(const Value &v) {
    std::string out;
    const bool container = v.type == ORLIX_JSON_OBJECT || v.type == ORLIX_JSON_ARRAY;
    if (container) Blank(&out);
    To(&out, v);
    if (container) Blank(&out);
    return out;
  }

 private:
  void Blank(std::string *out) {
    static const char kBlanks[] = " \t\n\r";
    for (int n = rng_() % 4 == 0 ? int(rng_() % 3) + 1 : 0; n > 0; --n) *out += kBlanks[rng_() % 4];
  }

  void Escape(std::string *out, uint32_t unit) {
    char buf[8];
    std::snprintf(buf, sizeof buf, rng_() % 2 ? "\\u%04x" : "\\u%04X", unit);
    *out += buf;
  }

  void Quote(std::string *out, const std::string &s) {
    *out += '"';
    for (uint32_t cp : CodePoints(s)) {
      const char *shorts = "\"\\/\b\f\n\r\t";
      const char *letters = "\"\\/bfnrt";
      const char *hit = cp != 0 && cp < 0x80 ? std::strchr(shorts, int(cp)) : nullptr;
      const bool must = cp < 0x20 || cp == '"' || cp == '\\';
      if (hit != nullptr && (must || rng_() % 2)) {
        *out += '\\', *out += letters[hit - shorts];
      } else if (must || rng_() % 4 == 0) {
        if (cp < 0x10000) {
          Escape(out, cp);
        } else {
          Escape(out, 0xD800 + ((cp - 0x10000) >> 10));
          Escape(out, 0xDC00 + (cp & 0x3FF));
        }
      } else {
        AppendUtf8(out, cp);
      }
    }
    *out += '"';
  }

  void Number(std::string *out, double d) {
    char buf[64];
    if (d == std::floor(d) && std::fabs(d) < 1e15 && rng_() % 2) {
      const auto n = static_cast<long long>(d);
      const char *forms[] = {"%lld", "%lld.0", "%lldE0", "%llde+0", "%lld.000e-0"};
      std::snprintf(buf, sizeof buf, forms[rng_() % 5], n);
      if (std::signbit(d) && n == 0) *out += '-';
    } else {
      std::snprintf(buf, sizeof buf, rng_() % 2 ? "%.17g" : "%.16e", d);
    }
    *out += buf;
  }

  void To(std::string *out, const Value &v) {
    switch (v.type) {
      case ORLIX_JSON_STRING: return Quote(out, v.text);
      case ORLIX_JSON_NUMBER: return Number(out, v.number);
      case ORLIX_JSON_BOOLEAN: *out += v.truth ? "true" : "false"; return;
      case ORLIX_JSON_NULL: *out += "null"; return;
      default: break;
    }
    const bool object = v.type == ORLIX_JSON_OBJECT;
    const size_t n = object ? v.members.size() : v.elements.size();
    *out += object ? '{' : '[';
    Blank(out);
    for (size_t i = 0; i < n; ++i) {
      if (i > 0) *out += ',', Blank(out);
      if (object) {
        Quote(out, v.members[i].name);
        Blank(out);
        *out += ':';
        Blank(out);
      }
      To(out, object ? v.members[i].value : v.elements[i]);
      Blank(out);
    }
    *out += object ? '}' : ']';
  }

  std::mt19937 &rng_;
};

inline std::string Hex(std::string_view bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) out += kDigits[c >> 4], out += kDigits[c & 15];
  return out;
}

// What the probe printed for a run, one entry per line.
struct ProbeRun {
  bool exited_ok = false;
  std::vector<std::string> lines;
};

// Runs the probe with the given environment changes (a null value unsets the
// variable) and arguments, feeding it `input` on standard input.
#ifdef JSON_PROBE
inline ProbeRun RunProbe(const std::vector<std::pair<std::string, const char *>> &env,
                         const std::vector<std::string> &args, const std::string &input) {
  ProbeRun run;
  std::string in_path = testing::TempDir() + "json_probe_in_XXXXXX";
  const int in_fd = mkstemp(in_path.data());
  if (in_fd < 0) return run;
  if (write(in_fd, input.data(), input.size()) != ssize_t(input.size())) return run;
  int fds[2];
  if (pipe(fds) != 0) return run;
  const pid_t pid = fork();
  if (pid == 0) {
    lseek(in_fd, 0, SEEK_SET);
    dup2(in_fd, STDIN_FILENO);
    dup2(fds[1], STDOUT_FILENO);
    close(fds[0]);
    close(fds[1]);
    for (const auto &[name, value] : env) {
      if (value == nullptr)
        unsetenv(name.c_str());
      else
        setenv(name.c_str(), value, 1);
    }
    std::vector<char *> argv{const_cast<char *>(JSON_PROBE)};
    for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execv(JSON_PROBE, argv.data());
    _exit(127);
  }
  close(fds[1]);
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) out.append(buf, size_t(n));
  close(fds[0]);
  close(in_fd);
  unlink(in_path.c_str());
  int status = 0;
  waitpid(pid, &status, 0);
  run.exited_ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  size_t start = 0;
  for (size_t nl; (nl = out.find('\n', start)) != std::string::npos; start = nl + 1)
    run.lines.push_back(out.substr(start, nl - start));
  return run;
}
#endif

}  // namespace json_test
