#pragma once

#include <vector>

#include "rehearse/stories/scene.hpp"

namespace rehearse {

/// Everything that an update must be refused for, with the installed application untouched: a step each.
/// The update itself succeeds.
std::vector<Step> refusals(const Scene& scene);

}  // namespace rehearse
