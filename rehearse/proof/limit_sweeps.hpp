#pragma once

#include <string>
#include <vector>

#include "rehearse/proof/home.hpp"
#include "rehearse/proof/sweep.hpp"
#include "rehearse/proof/tracer.hpp"

namespace rehearse {

/// From nothing to enough, in steps: free space beside the application and in the temporary directory,
/// descriptors, the size of a file, memory. And a temporary directory that is read-only.
std::vector<PlannedSweep> limitSweeps(const Material& material, std::size_t every);

/// Tools that never go on from one of their calls, and a parent that does not end.
PlannedSweep hangSweep(const Material& material, const std::vector<SystemCall>& calls, std::size_t every);

/// For `trace`, with the updater's waits made short: the first tool of this name, such as "hdiutil", hangs at
/// the first call that it makes. The updater must then end with "… did not finish in time."
Watcher hangingTool(const std::string& tool);

/// The same with nothing but the short waits. An updater whose `--parent-pid` is that of a process that
/// lives, such as `getpid()`, must then end with "… did not terminate in time."
Watcher shortWaits();

}  // namespace rehearse
