#pragma once

#include <vector>

#include "rehearse/proof/home.hpp"
#include "rehearse/proof/sweep.hpp"

namespace rehearse {

/// The home stands on a disk of its own. Behind each change of a file, a copy is made of what has really been
/// written to the disk by then, without a flush. The copy is mounted as after a restart, with its journal's
/// recovery: a complete application must stand there, and the next update must work. Where the system has no
/// loop devices, the tasks fail.
std::vector<PlannedSweep> powerCutSweeps(const Material& material, std::size_t every);

/// False where the system has no loop devices for that, or forbids them.
bool hasDisks(const Place& place);

}  // namespace rehearse
