#pragma once

#include <cstdint>

namespace QuorinOstrevalUpdater {

/// Returns once the process is gone, at once when it already is. Looks every 0.2 seconds, for 60 seconds at
/// most; then throws `InstallerError::parentStillRunning`. A process that may not be signalled counts as
/// running.
void waitForExit(std::int32_t processIdentifier);

}  // namespace QuorinOstrevalUpdater
