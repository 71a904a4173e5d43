#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "rehearse/proof/home.hpp"
#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

/// What is at the target's path. Nothing complete there is a loss, though the previous application may be
/// complete beside it: a caller that allows that says `beside`.
PointOutcome outcomeOf(const Home& home);

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
/// there, not even a half attached image. Where the story damaged the application, the update must refuse to
/// replace it.
std::vector<std::string> nextUpdate(const Material& material, Home& home);

/// The same, but where an update of this material has been tried in the same circumstances before, that is,
/// where everything that it could depend on was the same, byte for byte, what was found then is returned.
/// The findings are kept below `directory`, for all processes.
class NextUpdates {
 public:
  explicit NextUpdates(std::filesystem::path directory);

  std::vector<std::string> operator()(const Material& material, Home& home) const;

 private:
  std::filesystem::path directory_;
};

}  // namespace rehearse
