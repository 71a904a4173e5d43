#pragma once

#include <string>
#include <vector>

#include "rehearse/proof/call_sweeps.hpp"
#include "rehearse/proof/home.hpp"
#include "rehearse/proof/sweep.hpp"
#include "rehearse/proof/tracer.hpp"

namespace rehearse {

/// From nothing to enough, in steps: free space beside the application and in the temporary directory,
/// descriptors, processes (for the superuser only), the size of a file, memory. And a temporary directory
/// that is read-only. Some steps from nothing to enough are in each sample.
std::vector<PlannedSweep> limitSweeps(const Material& material, const NextUpdates& nextUpdates,
                                      const Selection& selection);

/// Tools that never go on from one of their calls, and a parent that does not end.
PlannedSweep hangSweep(const Rehearsed& rehearsed);

/// For `trace`, with the updater's waits made short: the first tool of this name, such as "hdiutil", hangs at
/// the first call that it makes. The updater must then end with "… did not finish in time."
Watcher hangingTool(const std::string& tool);

/// The same with nothing but the short waits. An updater whose `--parent-pid` is that of a process that
/// lives, such as `getpid()`, must then end with "… did not terminate in time."
Watcher shortWaits();

}  // namespace rehearse
