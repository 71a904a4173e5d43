#include "rehearse/stories/pairing.hpp"

#include <algorithm>

#include "rehearse/stories/application_source.hpp"
#include "rehearse/stories/explanation.hpp"
#include "rehearse/stories/refusals.hpp"
#include "rehearse/stories/refusing_place.hpp"
#include "rehearse/stories/traced_stories.hpp"
#include "updater/diskimage/file_digest.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

std::string describeTarget(const UpdateRun& run, const Application& installed,
                           const OfferedRelease& release) {
  if (run.isOffered)
    return "version " + versionOf(release.application->name) + ", complete";
  if (run.isPrevious)
    return "version " + versionOf(installed.name) + ", as it was";
  return "no complete application";
}

Aftermath aftermathOf(const UpdateRun& run, const Application& installed, const OfferedRelease& release) {
  return {.exitStatus = run.exitStatus,
          .statusFile = run.statusFile,
          .atTarget = describeTarget(run, installed, release),
          .leftOver = run.leftOver,
          .greatestBesideTarget = run.observation.greatestBesideTarget,
          .greatestTemporary = run.observation.greatestTemporary};
}

/// What is wrong with an update that the updater says succeeded. Empty when nothing is.
std::string complaintAboutSuccess(const UpdateRun& run) {
  if (!run.isOffered)
    return "The application at the target is not the one in the image.";
  if (run.reportsFailure || run.statusFile.empty())
    return "The status file does not say that the update succeeded.";
  if (run.starts.size() != 1 || !run.starts.front().starts)
    return "The new application was not started once.";
  return {};
}

/// The undisturbed update.
void rehearseUpdate(const Offering& offering, const Application& installed, const Scene& scene,
                    Pairing& pairing) {
  pairing.steps.push_back(play(scene, kUpdateStep, [&]() -> Outturn {
    scene.home.furnish(offering.release.image, scene.expectations, scene.instructions);
    const auto& offered = offering.release.application;
    UpdateRun run = scene.home.run(offered ? &offered->inventory : nullptr);
    pairing.phases = run.observation.phases;
    pairing.diskUse = run.observation.diskUse;
    pairing.aftermath = aftermathOf(run, installed, offering.release);
    const std::string complaint =
        run.exitStatus == 0 ? complaintAboutSuccess(run) : complaintAboutRefusal(run);
    const std::string place = refusingPlace(run, run.observation.wasSwapped);
    pairing.findings = findingsOf(offering, installed, run, place, complaint);
    if (run.exitStatus == 0 && complaint.empty()) {
      pairing.wouldInstall = true;
      pairing.verdict = "WOULD INSTALL: " + versionOf(offered->name) + " over " + versionOf(installed.name);
      return {.verdict = StepVerdict::passed, .refusedBy = {}, .message = {}};
    }
    pairing.verdict = run.exitStatus == 0
                          ? "WOULD FAIL: " + complaint
                          : "WOULD BE REFUSED: " +
                                (complaint.empty() ? headlineOf(offering, installed, run, place) : complaint);
    return {.verdict = StepVerdict::failed,
            .refusedBy = place,
            .message = complaint.empty() ? run.sentence : complaint};
  }));
}

Outturn startRefused(const Scene& scene) {
  const Application& offered = *scene.release.application;
  StartInstructions instructions = scene.instructions;
  instructions.refusedExecutables.push_back(
      QuorinOstrevalUpdater::sha256(platform::URL::fileURLWithPath(mainExecutable(offered.bundle).native())));
  scene.home.furnish(scene.release.image, scene.expectations, instructions);
  const UpdateRun run = scene.home.run(&offered.inventory);
  if (run.starts.empty())
    return {
        .verdict = StepVerdict::failed, .refusedBy = refusingPlace(run), .message = "No start was tried."};
  const std::string complaint = complaintAboutRefusal(run);
  return {.verdict = complaint.empty() ? StepVerdict::passed : StepVerdict::failed,
          .refusedBy = refusingPlace(run),
          .message = complaint.empty() ? run.sentence : complaint};
}

void append(std::vector<Step>& to, std::vector<Step> more) {
  std::ranges::move(more, std::back_inserter(to));
}

}  // namespace

Pairing rehearsePairing(const Offering& offering, const Application& installed, const fs::path& directory) {
  UserHome home(offering.prefix, directory, installed);
  const Scene scene{.home = home,
                    .release = offering.release,
                    .expectations = offering.plan ? *offering.plan : planFor(offering.release, installed),
                    .instructions = {.system = offering.system, .refusedExecutables = {}},
                    .images = offering.images,
                    .progress = [&](const std::string& step) {
                      if (offering.progress)
                        offering.progress(versionOf(installed.name) + ": " + step);
                    }};
  Pairing pairing;
  pairing.installed = installed.name;
  rehearseUpdate(offering, installed, scene, pairing);
  if (pairing.wouldInstall) {
    pairing.steps.push_back(play(scene, "start refused", [&] { return startRefused(scene); }));
    append(pairing.steps, tracedStories(scene));
    append(pairing.steps, refusals(scene));
  }
  return pairing;
}

}  // namespace rehearse
