#pragma once

#include <functional>
#include <string>

#include "rehearse/stories/changed_images.hpp"
#include "rehearse/stories/user_home.hpp"

namespace rehearse {

/// What the stories of one installed version are played with.
struct Scene {
  UserHome& home;
  const OfferedRelease& release;
  /// What the updater is told to expect.
  QuorinOstrevalUpdater::InstallPlan expectations;
  StartInstructions instructions;
  ChangedImages& images;
  /// Called with the name of each step as it begins.
  std::function<void(const std::string&)> progress;
};

/// What a story comes to besides its name and the time it took.
struct Outturn {
  StepVerdict verdict = StepVerdict::failed;
  std::string refusedBy;
  std::string message;
};

/// A story that cannot be played here, with the reason as a sentence.
class NotTried : public platform::Error {
 public:
  using Error::Error;
};

/// Plays a story as a step; `NotTried` makes it one that was not tried. Any other failure passes: it ends the
/// rehearsal.
Step play(const Scene& scene, const std::string& name, const std::function<Outturn()>& story);

/// What is wrong with the end of an update that had to be refused or taken back: exit status, status file,
/// the application at the target and what is left. Empty when nothing is.
std::string complaintAboutRefusal(const UpdateRun& run);

}  // namespace rehearse
