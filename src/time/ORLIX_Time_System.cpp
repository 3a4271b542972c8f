// Which zone of the database the system runs in. Every call reads the files
// and TZ again, in a fixed order, and falls back to Etc/UTC; nothing is
// cached, so a change of the system zone shows at the next call.
#include "time/ORLIX_Time_System.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "time/ORLIX_Time_Zone.hpp"

namespace orlix::time {

namespace {

// Lines are read in pieces of at most 255 characters.
constexpr int kLineSize = 256;

char g_root[PATH_MAX] = "";

// root + path into buf; false when it does not fit.
bool system_path(const char *path, char (&buf)[PATH_MAX]) {
  const int n = std::snprintf(buf, sizeof buf, "%s%s", g_root, path);
  return n >= 0 && n < static_cast<int>(sizeof buf);
}

void strip_line_end(char *line) {
  size_t n = std::strlen(line);
  while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r')) line[--n] = '\0';
}

const char *skip_blanks(const char *p) {
  while (*p == ' ' || *p == '\t') ++p;
  return p;
}

// Looks up value, or the text inside its double quotes when it starts with
// one; the closing quote must end the value, else -1.
int32_t lookup_value(const char *value) {
  if (*value != '"') return orlix_time_gettimezoneidbyname(value);
  const size_t n = std::strlen(value);
  if (n < 2 || value[n - 1] != '"') return -1;
  char name[kLineSize];
  std::memcpy(name, value + 1, n - 2);
  name[n - 2] = '\0';
  return orlix_time_gettimezoneidbyname(name);
}

// If line starts with key, then blanks and tabs, then "=", the text after
// the "=" and its blanks; else nullptr.
const char *assignment(const char *line, const char *key) {
  const size_t n = std::strlen(key);
  if (std::strncmp(line, key, n) != 0) return nullptr;
  const char *p = skip_blanks(line + n);
  return *p == '=' ? skip_blanks(p + 1) : nullptr;
}

// /etc/localtime as a link into the zoneinfo tree. The status call follows
// links, so it never reports one, and the skip of 21 characters also drops
// the first letter of the zone name; both are kept as they are, which makes
// this step yield nothing on ordinary systems.
int32_t from_localtime() {
  char path[PATH_MAX];
  if (!system_path("/etc/localtime", path)) return -1;
  struct stat st;
  if (stat(path, &st) != 0 || !S_ISLNK(st.st_mode)) return -1;
  char target[kLineSize + 1];
  std::memset(target, 0, sizeof target);
  if (readlink(path, target, kLineSize) < 0) return -1;
  if (std::strncmp(target, "/usr/share/zoneinfo", 19) != 0) return -1;
  return orlix_time_gettimezoneidbyname(target + 21);
}

// /etc/timezone: the first line that is not a comment names the zone.
int32_t from_timezone_file() {
  char path[PATH_MAX];
  if (!system_path("/etc/timezone", path)) return -1;
  std::FILE *f = std::fopen(path, "r");
  if (f == nullptr) return -1;
  char line[kLineSize];
  bool found = false;
  while (std::fgets(line, sizeof line, f) != nullptr) {
    if (line[0] != '#') {
      found = true;
      break;
    }
  }
  std::fclose(f);
  if (!found) return -1;
  strip_line_end(line);
  if (line[0] == '"') return lookup_value(line);
  return orlix_time_gettimezoneidbyname(line);
}

// /etc/sysconfig/clock: the first TIMEZONE= or ZONE= line.
int32_t from_sysconfig_clock() {
  char path[PATH_MAX];
  if (!system_path("/etc/sysconfig/clock", path)) return -1;
  std::FILE *f = std::fopen(path, "r");
  if (f == nullptr) return -1;
  char line[kLineSize];
  while (std::fgets(line, sizeof line, f) != nullptr) {
    if (line[0] == '#') continue;
    strip_line_end(line);
    const size_t n = std::strlen(line);
    const char *value = nullptr;
    if (n >= 9 && std::strncmp(line, "TIMEZONE", 8) == 0)
      value = assignment(line, "TIMEZONE");
    else if (n >= 5 && std::strncmp(line, "ZONE", 4) == 0)
      value = assignment(line, "ZONE");
    if (value == nullptr) continue;
    std::fclose(f);
    return lookup_value(value);
  }
  std::fclose(f);
  return -1;
}

int32_t from_tz_file(const char *system_file) {
  char path[PATH_MAX];
  return system_path(system_file, path) ? getidfromfileTZ(path) : -1;
}

}  // namespace

bool set_system_root(const char *root) {
  if (root == nullptr) root = "";
  if (std::strlen(root) >= sizeof g_root) return false;
  std::strcpy(g_root, root);
  return true;
}

int32_t getidfromfileTZ(const char *path) {
  std::FILE *f = std::fopen(path, "r");
  if (f == nullptr) return -1;
  char line[kLineSize];
  while (std::fgets(line, sizeof line, f) != nullptr) {
    if (line[0] == '#') continue;
    strip_line_end(line);
    if (std::strlen(line) < 3) continue;
    const char *value = assignment(line, "TZ");
    if (value == nullptr) continue;
    std::fclose(f);
    return *value == '\0' ? -1 : lookup_value(value);
  }
  std::fclose(f);
  return -1;
}

int32_t orlix_time_gettimezoneid() {
  int32_t id = from_localtime();
  if (id < 0) id = from_timezone_file();
  if (id < 0) id = from_tz_file("/etc/TIMEZONE");
  if (id < 0) id = from_sysconfig_clock();
  if (id < 0) id = from_tz_file("/etc/default/init");
  if (id < 0) id = orlix_time_gettimezoneidbyname(std::getenv("TZ"));
  return id < 0 ? kUtcZone : id;
}

}  // namespace orlix::time
