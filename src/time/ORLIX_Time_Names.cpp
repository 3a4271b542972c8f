// The zone database seen from outside: its names, the zone a time carries,
// and the system's zone. The tool and applications list zones through these.
#include "ORLIX_Time.h"
#include "time/ORLIX_Time.hpp"
#include "time/ORLIX_Time_Zone.hpp"
#include "time/tz_data.hpp"

extern "C" {

int32_t orlix_time_getzonecount(void) { return orlix::time::kZoneNameCount; }

const char *orlix_time_getzonename(int32_t id) {
  if (id < 0 || id >= orlix::time::kZoneNameCount) return nullptr;
  return orlix::time::g_timezone_table[id].name;
}

int32_t orlix_time_getzoneid(const ORLIX_Time *t) { return t == nullptr ? -1 : t->zone; }

int32_t orlix_time_getsystemzoneid(void) { return orlix::time::orlix_time_gettimezoneid(); }

}  // extern "C"
