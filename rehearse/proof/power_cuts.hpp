#pragma once

#include <string>
#include <vector>

#include "rehearse/proof/home.hpp"
#include "rehearse/proof/sweep.hpp"

namespace rehearse {

/// The home is on a disk with this file system, "ext4", "xfs" or "btrfs", and an update runs there while
/// everything that reaches the disk is recorded, with its flushes. Then the disk is set back to what a power
/// cut leaves, and mounted as after a restart, with its journal's recovery: a complete application must be at
/// the target's path, and the next update must work. The cuts are
/// - behind each change of a file, with what the system has written by then of its own accord;
/// - the same, with names and sizes written at once and content only when it is flushed;
/// - between any two flushes of the disk, with the writes in between lost in part: a disk writes a block of
///   4096 bytes whole or not at all, in any order, and keeps what was written before a flush. A file system
///   that cannot be mounted then has broken its promise, and is a violation like any other.
std::vector<PlannedSweep> powerCutSweeps(const Material& material, const std::string& fileSystem,
                                         const Selection& selection);

/// Why the system cannot have them tried on this file system, a sentence; empty where it can. Throws
/// `std::invalid_argument` for a file system that has no sweeps.
std::string obstacleToPowerCuts(const std::string& fileSystem, const Place& place);

}  // namespace rehearse
