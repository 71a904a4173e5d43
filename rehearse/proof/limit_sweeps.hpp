#pragma once

#include <vector>

#include "rehearse/proof/home.hpp"
#include "rehearse/proof/sweep.hpp"

namespace rehearse {

/// From nothing to enough, in steps: free space beside the application and in the temporary directory,
/// descriptors, the size of a file, memory. And a temporary directory that is read-only.
std::vector<PlannedSweep> limitSweeps(const Material& material, std::size_t every);

/// Tools that never go on from one of their calls, and a parent that does not end.
PlannedSweep hangSweep(const Material& material, const std::vector<SystemCall>& calls, std::size_t every);

}  // namespace rehearse
