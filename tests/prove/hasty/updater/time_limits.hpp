#pragma once

namespace QuorinOstrevalUpdater {

/// In the place of the updater's own limits, for an updater of the tests that soon gives up waiting.
inline constexpr double kParentTimeLimit = 0.5;
inline constexpr double kToolTimeLimit = 0.5;

}  // namespace QuorinOstrevalUpdater
