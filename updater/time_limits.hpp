#pragma once

namespace QuorinOstrevalUpdater {

/// The longest waits, in seconds: for the end of the application, and for each external tool.
inline constexpr double kParentTimeLimit = 60;
inline constexpr double kToolTimeLimit = 120;

}  // namespace QuorinOstrevalUpdater
