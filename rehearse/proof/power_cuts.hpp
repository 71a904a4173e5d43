#pragma once

#include <string>
#include <vector>

#include "rehearse/proof/home.hpp"
#include "rehearse/proof/sweep.hpp"

namespace rehearse {

/// The home is on a disk, and an update runs there while everything that reaches the disk is recorded, with
/// its flushes. Then the disk is made anew as a power cut leaves it, and mounted as after a restart, with its
/// journal's recovery: a complete application must be at the target's path, and the next update must work.
enum class PowerCut {
  /// Behind each change of a file, with what the system has written by then of its own accord.
  asWritten,
  /// The same, with names and sizes written at once and content only when it is flushed.
  namesFirst,
  /// Between any two flushes of the disk, with the writes in between lost in part: a disk writes a block of
  /// 4096 bytes whole or not at all, in any order, and keeps what was written before a flush. A file system
  /// that cannot be mounted then has broken its promise, and is a violation like any other.
  betweenFlushes,
};

/// A sweep of power cuts, whose update has not been recorded yet.
struct PowerCutSweep {
  std::string fileSystem;  ///< one of `kDiskFileSystems`
  Story story;
  PowerCut cut;
  /// A control: the flush before the exchange is left out. Its points are few, in each sample.
  bool withoutFlush = false;

  std::string name() const;
};

std::vector<PowerCutSweep> powerCutSweeps(const std::string& fileSystem, const std::vector<Story>& stories);

/// Records the update of a sweep, in the workshop until the result has ended, and plans the cuts of that.
/// What they are called depends on the calls that the update makes; those between flushes, also on what the
/// file system flushes. Where the update does not go as its story does, the only point is that. Throws
/// `ProofRefused`.
PlannedSweep plan(const PowerCutSweep& sweep, const Material& material, const Selection& selection,
                  const Workshop& workshop);

/// Why the system cannot have them tried on this file system, a sentence; empty where it can. Throws
/// `std::invalid_argument` for a file system that has no sweeps.
std::string obstacleToPowerCuts(const std::string& fileSystem, const Place& place);

/// Whether the system mounts several copies of one disk at the same time, as several workers do.
bool mountsCopies(const std::string& fileSystem, const Place& place);

}  // namespace rehearse
