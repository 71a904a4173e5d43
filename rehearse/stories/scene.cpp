#include "rehearse/stories/scene.hpp"

#include <chrono>

namespace rehearse {

Step play(const Scene& scene, const std::string& name, const std::function<Outturn()>& story) {
  if (scene.progress)
    scene.progress(name);
  const auto begin = std::chrono::steady_clock::now();
  Step step{.name = name, .verdict = StepVerdict::notTried, .duration = {}, .refusedBy = {}, .message = {}};
  try {
    const Outturn outturn = story();
    step.verdict = outturn.verdict;
    step.refusedBy = outturn.refusedBy;
    step.message = outturn.message;
  } catch (const NotTried& reason) {
    step.message = reason.localizedDescription();
  }
  step.duration = std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - begin);
  return step;
}

std::string complaintAboutRefusal(const UpdateRun& run) {
  if (run.overran)
    return "The updater did not end.";
  if (!run.isPrevious)
    return "The installed application is not as it was.";
  if (run.exitStatus != 1)
    return "The updater's exit status is " + std::to_string(run.exitStatus) + ".";
  if (!run.reportsFailure)
    return "The status file does not say that the update failed.";
  if (!run.leftOver.empty())
    return "The update left " + platform::quoted(run.leftOver.front()) + ".";
  return {};
}

}  // namespace rehearse
