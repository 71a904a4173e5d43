#pragma once

#include <cstddef>
#include <vector>

#include "rehearse/proof/home.hpp"
#include "rehearse/proof/sweep.hpp"

namespace rehearse {

/// The calls that an undisturbed run of a story makes, in order. Throws `std::runtime_error` where it does
/// not go as the story does. For a process that has settled at `place`.
std::vector<SystemCall> record(const Material& material, Story story, const Place& place);

/// One call fails, with each of the errors that it can give. `every` takes one point of so many, but all of
/// the calls by which the updater itself changes files.
PlannedSweep faultSweep(const Material& material, Story story, const std::vector<SystemCall>& calls,
                        std::size_t every);

/// The file system breaks: from one call on every change of a file fails, or every renaming; or one renaming
/// is made and reported as failed.
std::vector<PlannedSweep> breakdownSweeps(const Material& material, Story story,
                                          const std::vector<SystemCall>& calls, std::size_t every);

/// The caller, the tool or all of them die before and after each call.
PlannedSweep killSweep(const Material& material, Story story, const std::vector<SystemCall>& calls,
                       std::size_t every);

/// All of them die at a call, and once more during the update that follows.
PlannedSweep secondKillSweep(const Material& material, Story story, const std::vector<SystemCall>& calls,
                             std::size_t every);

/// A control: the file system knows no exchange of names. The target's place is then empty for an instant,
/// and a kill in it must be seen.
PlannedSweep killSweepWithoutExchange(const Material& material);

}  // namespace rehearse
