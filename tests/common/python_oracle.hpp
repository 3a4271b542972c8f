// Python 3 as an independent oracle: one interpreter per batch of cases, so
// that its start-up cost stays out of the loops.
#pragma once

#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace orlix_oracle {

inline bool HavePython() {
  static const bool have = std::system("python3 -c pass >/dev/null 2>&1") == 0;
  return have;
}

// Runs `script` under python3 and returns the lines it prints. A non-empty
// `input` is written to a file whose path is the script's first argument;
// `args` follow. A failing script fails the calling test.
inline std::vector<std::string> RunPython(const std::string &script, const std::string &input,
                                          const std::string &args = "") {
  std::string dir = testing::TempDir() + "orlix_oracle_XXXXXX";
  std::vector<std::string> lines;
  if (mkdtemp(dir.data()) == nullptr) {
    ADD_FAILURE() << "no temporary directory";
    return lines;
  }
  const std::string code = dir + "/oracle.py";
  const std::string data = dir + "/input.txt";
  std::ofstream(code) << script;
  std::string cmd = "python3 " + code;
  if (!input.empty()) {
    std::ofstream(data) << input;
    cmd += " " + data;
  }
  if (!args.empty()) cmd += " " + args;
  if (FILE *f = popen(cmd.c_str(), "r")) {
    std::string line;
    for (int c; (c = std::fgetc(f)) != EOF;) {
      if (c != '\n') {
        line += static_cast<char>(c);
      } else {
        lines.push_back(line);
        line.clear();
      }
    }
    EXPECT_EQ(pclose(f), 0) << "the oracle script failed";
  }
  std::remove(code.c_str());
  std::remove(data.c_str());
  rmdir(dir.c_str());
  return lines;
}

}  // namespace orlix_oracle
