#pragma once

namespace QuorinOstrevalUpdater {

/// How long a run waits for others, in seconds: for the application to end, and for each external tool.
inline constexpr double kParentTimeLimit = 60;
inline constexpr double kToolTimeLimit = 120;

}  // namespace QuorinOstrevalUpdater
