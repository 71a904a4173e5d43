#pragma once

#include <functional>
#include <vector>

#include "rehearse/proof/sweep.hpp"

namespace rehearse {

/// Tries points in the workshop's processes and tells of each result as it comes, with its name. A task that
/// throws or dies is a violation.
void runPoints(const std::vector<const PlannedPoint*>& points, const Workshop& workshop,
               const std::function<void(const Result&)>& report);

}  // namespace rehearse
