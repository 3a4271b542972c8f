// Helpers for the debug allocation tracker's tests: writing the report to a
// private file and reading it back, and splitting it into its sections.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "ORLIX_Util.h"

namespace tracker {

// The report as the tracker writes it; empty when writing failed.
inline std::string ReadReport() {
  std::string path = (std::filesystem::temp_directory_path() / "orlix_report_XXXXXX").string();
  const int fd = mkstemp(path.data());
  if (fd < 0) return {};
  close(fd);
  std::string text;
  if (orlix_printdebugalloc(path.c_str()) == 1) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream all;
    all << in.rdbuf();
    text = all.str();
  }
  std::remove(path.c_str());
  return text;
}

// The pieces of a report that a test does not control: the running counters
// and the bad frees remembered from earlier tests.
struct Baseline {
  long long alloc_count = -1;
  long long alloc_bytes = -1;
  long long peak = -1;
  long long free_count = -1;
  long long free_bytes = -1;
  bool has_leaks = true;
  std::string bad_free_lines;  // the lines after "Memory corrupt:\n"
};

inline Baseline ParseBaseline(const std::string &report) {
  Baseline b;
  std::sscanf(report.c_str(),
              "Memory alloc count: %lld,amount: %lld bytes,peak value: %lld bytes\n"
              "Memory free count: %lld,amount: %lld bytes\n",
              &b.alloc_count, &b.alloc_bytes, &b.peak, &b.free_count, &b.free_bytes);
  b.has_leaks = report.find("Memory leap:") != std::string::npos;
  const std::string marker = "Memory corrupt:\n";
  const size_t at = report.find(marker);
  if (at != std::string::npos) {
    b.bad_free_lines = report.substr(at + marker.size());
    // Drop the closing empty line.
    if (!b.bad_free_lines.empty()) b.bad_free_lines.pop_back();
  }
  return b;
}

inline std::string Header(long long alloc_count, long long alloc_bytes, long long peak,
                          long long free_count, long long free_bytes) {
  char buf[256];
  std::snprintf(buf, sizeof buf,
                "Memory alloc count: %lld,amount: %lld bytes,peak value: %lld bytes\n"
                "Memory free count: %lld,amount: %lld bytes\n",
                alloc_count, alloc_bytes, peak, free_count, free_bytes);
  return buf;
}

inline std::string Pointer(const void *p) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%p", p);
  return buf;
}

// The "Memory corrupt:" section for the given newest lines above the
// remembered ones; empty when there are none.
inline std::string CorruptSection(const std::string &new_lines, const Baseline &b) {
  const std::string lines = new_lines + b.bad_free_lines;
  return lines.empty() ? std::string() : "Memory corrupt:\n" + lines + "\n";
}

}  // namespace tracker
