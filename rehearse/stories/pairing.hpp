#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "rehearse/start/start_check.hpp"
#include "rehearse/stories/changed_images.hpp"
#include "rehearse/stories/release.hpp"

namespace rehearse {

/// What is the same for every installed version.
struct Offering {
  const PrivatePrefix& prefix;
  const OfferedRelease& release;
  ChangedImages& images;
  SystemVersion system;  ///< for which starts are judged
  /// The plan that was given, if one was.
  const std::optional<QuorinOstrevalUpdater::InstallPlan>& plan;
  /// Called with what is rehearsed now.
  std::function<void(const std::string&)> progress;
};

/// Rehearses the update of one installed application and, if it succeeds, all other stories, in `directory`,
/// which is removed at the end. For a process in a private place.
Pairing rehearsePairing(const Offering& offering, const Application& installed,
                        const std::filesystem::path& directory);

}  // namespace rehearse
