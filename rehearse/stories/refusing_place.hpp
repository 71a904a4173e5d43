#pragma once

#include <string>

#include "rehearse/stories/user_home.hpp"

namespace rehearse {

inline constexpr const char* kByDigest = "digest of the image";
inline constexpr const char* kByAttaching = "attaching";
inline constexpr const char* kByImage = "application in the image";
inline constexpr const char* kByCopy = "copy";
inline constexpr const char* kByInstalled = "installed application";
inline constexpr const char* kBySwapped = "after the swap";
inline constexpr const char* kByParent = "parent";
inline constexpr const char* kByTool = "tool";
inline constexpr const char* kByStart = "start";

/// The place in the updater that a failed update was refused at, by the updater's sentence and the starts
/// that were judged; empty when the run succeeded or the sentence is none of the updater's. `wasSwapped` says
/// that the new application had taken the target's path.
std::string refusingPlace(const UpdateRun& run, bool wasSwapped = false);

}  // namespace rehearse
