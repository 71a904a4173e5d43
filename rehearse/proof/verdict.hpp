#pragma once

#include <string>
#include <vector>

#include "rehearse/proof/home.hpp"

namespace rehearse {

/// "old", "new", "damaged" or "neither".
std::string wordFor(Standing standing);

/// What may not be left, however the run ended: anything under a name that no part of an update gives.
std::vector<std::string> strangersIn(const Home& home);

/// What every point must keep, however the run ended: a complete application at the target's path, and where
/// that one is no good, the previous one complete beside it; and nothing else but what a run that died may
/// leave. A sentence for each complaint.
std::vector<std::string> losses(const Home& home);

void append(std::vector<std::string>& to, const std::vector<std::string>& more);

/// What a run with one fault may not leave: where the fault is what it failed from, anything; where it went
/// on as the story goes, more than the one thing that could not be cleaned up.
std::vector<std::string> leftoversAgainst(const Ending& ending, Story story, const Home& home);

/// Lets an undisturbed update to the next version run, which must succeed and leave nothing that was not
/// there. Where the story damaged the application, the update must refuse to replace it.
std::vector<std::string> nextUpdate(const Material& material, Home& home);

}  // namespace rehearse
