#pragma once

#include "platform/files/url.hpp"

namespace platform {

/// The installation that the running program belongs to: the directory two levels above its executable, as it
/// lies at this moment. Throws `SystemError` where the system does not tell.
URL installationPrefix();

}  // namespace platform
