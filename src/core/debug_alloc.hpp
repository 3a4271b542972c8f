// Internal controls of the debug allocation tracker, for its tests.
#pragma once

namespace orlix::debug {

// Replaces the function the tracker calls to stall an allocation (sleep by
// default); returns the previous one.
using SleepFunction = unsigned (*)(unsigned seconds);
SleepFunction set_sleep_function(SleepFunction fn);

}  // namespace orlix::debug
