#pragma once

#include "platform/files/url.hpp"

namespace platform::open {

/// Starts the main executable of an application bundle as a process that depends on nothing of this one: a
/// session of its own, the null device as its standard streams, the root as its working directory, no further
/// descriptor. The program executes when this returns. Throws `Error` with the reason otherwise; then no
/// process remains.
void launchApplication(const URL& bundle);

}  // namespace platform::open
