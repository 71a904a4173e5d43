#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// Where a run shows what it is doing. The directories exist, that of the image too.
struct WatchedPlaces {
  std::filesystem::path applications;  ///< the directory of the target
  std::filesystem::path target;
  std::filesystem::path temporary;
  std::filesystem::path tools;  ///< the directory of the updater's tools
  std::filesystem::path image;
};

/// What was seen of a run from outside.
struct Observation {
  int status = 0;        ///< as `waitpid` gives it
  bool overran = false;  ///< it was killed at the time limit
  Milliseconds duration{};
  bool wasSwapped = false;  ///< the new application had taken the target's path
  /// Those that were begun, in order and without gaps.
  std::vector<Phase> phases;
  std::vector<DiskUse> diskUse;
  std::uint64_t greatestBesideTarget = 0;
  std::uint64_t greatestTemporary = 0;
};

/// Has `start` start the updater, a child of this process, watches it until it has ended, and ends what it
/// left running. For a process that adopts orphans and has no other children, in the same mount namespace as
/// the updater. Throws `platform::Error`, also when the system cannot report what happens in the places.
Observation watchRun(const std::function<pid_t()>& start, const WatchedPlaces& places,
                     std::chrono::seconds timeLimit);

}  // namespace rehearse
