// Detection of the zone the system runs in, and the hook that lets the
// tests point it at files of their own.
#pragma once

#include <cstdint>

namespace orlix::time {

// Prefixes every file path the detection reads ("/etc/timezone" becomes
// root + "/etc/timezone"). NULL or "" restores the real paths. Meant for
// tests; not thread-safe against a detection running at the same time.
// Returns false (and changes nothing) when root is too long.
bool set_system_root(const char *root);

// The zone named by the first line "TZ = name" or TZ="name" of a
// shell-style file; -1 when the file cannot be read, has no such line, or
// names no zone of the database.
int32_t getidfromfileTZ(const char *path);

}  // namespace orlix::time
