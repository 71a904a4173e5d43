#include <ctime>

#include "platform/foundation/date.hpp"

namespace platform {

// Not the clock of the standard library, which advances while the machine sleeps.
Date::Date() : time_(std::chrono::nanoseconds(::clock_gettime_nsec_np(CLOCK_UPTIME_RAW))) {}

}  // namespace platform
