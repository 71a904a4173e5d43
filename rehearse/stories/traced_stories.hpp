#pragma once

#include <vector>

#include "rehearse/stories/scene.hpp"

namespace rehearse {

/// The stories in which something happens at an exact point of the update, or time passes faster: the new
/// application is damaged right after the swap, the parent does not end, a tool hangs. They need tracing,
/// and are not tried where the processor or the system does not allow it. The update itself succeeds.
std::vector<Step> tracedStories(const Scene& scene);

}  // namespace rehearse
