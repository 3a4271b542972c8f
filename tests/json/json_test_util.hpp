// Helpers shared by the JSON suites: decoding and encoding into owned
// values, and a runner for the probe program that decodes and encodes in a
// fresh process.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "owned.hpp"

namespace json_test {

using orlix_test::Tree;

inline Tree DecodeText(std::string_view text) {
  return Tree(orlix_json_decode(text.data(), static_cast<uint32_t>(text.size())));
}

// The library's encoding of a tree; nullopt when the encoder fails or does
// not end its text with a NUL.
inline std::optional<std::string> EncodeTree(ORLIX_JSON *tree, uint32_t flags = 0) {
  char *text = nullptr;
  uint32_t length = 0;
  if (orlix_json_encode(tree, flags, &text, &length) != 1) return std::nullopt;
  std::string out(text, length);
  const bool terminated = text[length] == '\0';
  orlix_free(text);
  if (!terminated) return std::nullopt;
  return out;
}

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
