#pragma once

#include <filesystem>
#include <vector>

#include "rehearse/record/rehearsal.hpp"
#include "rehearse/start/start_check.hpp"

namespace rehearse {

/// What an application's Info.plist says of it.
struct Identity {
  ApplicationName name;  ///< what Info.plist does not say is empty
  /// Why the updater takes it for no application, a clause such as "has no CFBundleVersion"; empty when it
  /// takes it for one.
  std::string whyNotIdentified;
};

/// `source` is what `application` was read from. Throws `platform::Error` when the bundle cannot be read.
Identity identityOf(const std::filesystem::path& application, const std::string& source);

/// What users would notice of an update from one application to the other, and what about the two prevents
/// it: the worst first. Both are bundles on disk; neither needs to be validly signed or complete. Throws
/// `platform::Error` when one cannot be read.
std::vector<Finding> compare(const std::filesystem::path& installed, const std::filesystem::path& offered);

}  // namespace rehearse
