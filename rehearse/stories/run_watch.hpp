#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// Where a run shows what it is at.
struct WatchedPlaces {
  std::filesystem::path applications;  ///< the directory of the target
  std::filesystem::path target;
  std::filesystem::path temporary;
  std::filesystem::path image;
  std::filesystem::path readyFile;
};

/// The name of the phase in which the two applications change places.
inline constexpr const char* kSwapPhase = "swap";

/// What was seen of a run, without being in its way.
struct Observation {
  int status = 0;        ///< as `waitpid` gives it
  bool overran = false;  ///< it was killed at the time limit
  Milliseconds duration{};
  /// Those that lasted long enough to be seen, in order.
  std::vector<Phase> phases;
  std::vector<DiskUse> diskUse;
  std::uint64_t greatestBesideTarget = 0;
  std::uint64_t greatestTemporary = 0;
};

/// Watches the updater, a child of this process, until it has ended, and ends what it left running. For a
/// process that adopts orphans and has no other children.
Observation watchRun(pid_t updater, const WatchedPlaces& places, std::chrono::seconds timeLimit);

}  // namespace rehearse
