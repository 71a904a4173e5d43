#include <unistd.h>

#include <system_error>

#include "rehearse/files/descendants.hpp"
#include "rehearse/proof/limit_sweeps.hpp"
#include "rehearse/proof/system_calls.hpp"
#include "rehearse/proof/tracer.hpp"
#include "rehearse/stories/refusing_place.hpp"
#include "rehearse/stories/traced_stories.hpp"

namespace rehearse {
namespace {

constexpr std::chrono::minutes kTimeLimit{30};

UpdateRun traced(const Scene& scene, Watcher watcher, pid_t parent) {
  watcher.timeLimit = kTimeLimit;
  Ending ending;
  try {
    ending = trace(scene.home.prefix().updater(), scene.home.arguments(parent), watcher);
  } catch (const std::system_error& failure) {
    endAllChildren();
    throw NotTried("The system does not allow this process to trace others: " + failure.code().message() +
                   ".");
  }
  endAllChildren();
  UpdateRun run = scene.home.conclude(ending.exitStatus, ending.error, &scene.release.application->inventory);
  run.overran = ending.overran;
  return run;
}

Outturn takenBack(const UpdateRun& run, bool wasSwapped) {
  const std::string complaint = complaintAboutRefusal(run);
  return {.verdict = complaint.empty() ? StepVerdict::passed : StepVerdict::failed,
          .refusedBy = refusingPlace(run, wasSwapped),
          .message = complaint.empty() ? run.sentence : complaint};
}

Outturn damageBehindSwap(const Scene& scene) {
  scene.home.furnish(scene.release.image, scene.expectations, scene.instructions);
  bool isDamaged = false;
  const UpdateRun run =
      traced(scene,
             {.before = [](const SystemCall&) { return Fate{}; },
              .after =
                  [&](const SystemCall& call, std::int64_t result) {
                    if (isDamaged || !call.byUpdater || result != 0 || !isExchangeOfNames(call))
                      return;
                    damage(scene.home.target());
                    isDamaged = true;
                  }},
             UserHome::kEndedParent);
  if (!isDamaged)
    throw NotTried("The updater did not exchange the names of the two applications: " + run.sentence);
  return takenBack(run, true);
}

/// Waits in vain, which take a minute or two, and must end in the expected place.
Outturn gaveUp(const Scene& scene, const Watcher& watcher, pid_t parent, const char* place) {
  scene.home.furnish(scene.release.image, scene.expectations, scene.instructions);
  const UpdateRun run = traced(scene, watcher, parent);
  Outturn outturn = takenBack(run, false);
  if (outturn.verdict == StepVerdict::passed && outturn.refusedBy != place)
    return {.verdict = StepVerdict::failed,
            .refusedBy = outturn.refusedBy,
            .message = "The updater gave up for another reason: " + run.sentence};
  return outturn;
}

}  // namespace

std::vector<Step> tracedStories(const Scene& scene) {
  return {play(scene, "damage right after the swap", [&] { return damageBehindSwap(scene); }),
          play(scene, "give up on a parent that does not end",
               [&] { return gaveUp(scene, shortWaits(), ::getpid(), kByParent); }),
          play(scene, "give up on a tool that hangs",
               [&] { return gaveUp(scene, hangingTool("ditto"), UserHome::kEndedParent, kByTool); })};
}

}  // namespace rehearse
