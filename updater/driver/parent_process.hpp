#pragma once

#include <cstdint>

namespace QuorinOstrevalUpdater {

/// Returns once the process no longer exists. Polls every 0.2 seconds, for at most 60 seconds; then throws
/// `InstallerError::parentStillRunning`. A process that exists but cannot be signalled counts as running.
void waitForExit(std::int32_t processIdentifier);

}  // namespace QuorinOstrevalUpdater
