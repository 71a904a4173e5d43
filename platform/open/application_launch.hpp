#pragma once

#include "platform/files/url.hpp"

namespace platform::open {

/// Starts the main executable of an application bundle as a process independent of this one: in its own
/// session, with /dev/null as its standard streams, / as its working directory and no further descriptor.
/// Returns once the program executes. Otherwise throws `Error` with the reason; then no process remains.
void launchApplication(const URL& bundle);

}  // namespace platform::open
