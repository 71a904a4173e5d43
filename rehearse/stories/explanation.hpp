#pragma once

#include "rehearse/stories/pairing.hpp"
#include "rehearse/stories/user_home.hpp"

namespace rehearse {

/// Why the undisturbed update of `installed`, which ended as `run`, does not install the release, as a short
/// sentence for a heading. `place` is where it was refused, as from `refusingPlace`.
std::string headlineOf(const Offering& offering, const Application& installed, const UpdateRun& run,
                       const std::string& place);

/// What was found about the release and that update, the worst first. Where the update does not install the
/// release, one of the findings is the reason; what has one cause is one finding. `complaint` is what is
/// wrong with the end of the update, empty if nothing is.
std::vector<Finding> findingsOf(const Offering& offering, const Application& installed, const UpdateRun& run,
                                const std::string& place, const std::string& complaint);

}  // namespace rehearse
