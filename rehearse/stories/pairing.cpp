#include "rehearse/stories/pairing.hpp"

#include <algorithm>

#include "platform/foundation/error.hpp"
#include "platform/foundation/text.hpp"
#include "rehearse/findings/findings.hpp"
#include "rehearse/stories/application_source.hpp"
#include "rehearse/stories/refusals.hpp"
#include "rehearse/stories/refusing_place.hpp"
#include "rehearse/stories/traced_stories.hpp"
#include "updater/diskimage/file_digest.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

std::string versionOf(const ApplicationName& name) {
  return name.version + " (" + name.build + ")";
}

/// Why the update is refused, as a person would say it, or as the updater does.
std::string reasonOf(const Offering& offering, const Application& installed, const UpdateRun& run) {
  const auto& offered = offering.release.application;
  if (offering.plan) {
    const std::vector<std::string> sentences = differences(*offering.plan, offering.release);
    if (!sentences.empty())
      return sentences.front();
  }
  if (!offered)
    return "The image contains no application.";
  if (!platform::canonicallyEquivalent(offered->name.identifier, installed.name.identifier))
    return "The image contains " + platform::quoted(offered->name.identifier) + ", installed is " +
           platform::quoted(installed.name.identifier) + ".";
  if (offered->team.empty())
    return platform::sentence("The application in the image has no valid Developer ID signature",
                              platform::Error(offered->signatureFailure));
  if (installed.team.empty())
    return platform::sentence("The installed application has no valid Developer ID signature",
                              platform::Error(installed.signatureFailure));
  if (offered->team != installed.team)
    return "The image contains an application of the team " + platform::quoted(offered->team) +
           ", installed is one of " + platform::quoted(installed.team) + ".";
  return run.sentence.empty() ? complaintAboutRefusal(run) : run.sentence;
}

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

void addStartFindings(const Offering& offering, const Application& offered, Pairing& pairing) {
  for (const std::string& obstacle : obstaclesToStart(offered.bundle, offering.system))
    pairing.findings.push_back({.severity = Severity::fault,
                                .key = "cannot-start",
                                .sentence = obstacle,
                                .advice =
                                    "Users keep the previous version, which the updater puts back; publish a "
                                    "version that starts."});
}

void addFindings(const Offering& offering, const Application& installed, Pairing& pairing) {
  if (const auto& offered = offering.release.application) {
    pairing.findings = compare(installed.bundle, offered->bundle);
    addStartFindings(offering, *offered, pairing);
  }
  for (Finding& finding : pairing.findings) {
    finding.sentence = withoutDirectory(finding.sentence, installed.bundle.parent_path());
    if (offering.release.application)
      finding.sentence =
          withoutDirectory(finding.sentence, offering.release.application->bundle.parent_path());
  }
  for (const std::string& name : pairing.aftermath.leftOver)
    pairing.findings.push_back(
        {.severity = Severity::warning,
         .key = "left-over",
         .sentence = "The update leaves " + name + ".",
         .advice = "Users can remove it; report it to the maintainers of the updater."});
  std::ranges::stable_sort(pairing.findings, std::ranges::greater(), &Finding::severity);
}

/// The undisturbed update.
void rehearseUpdate(const Offering& offering, const Application& installed, const Scene& scene,
                    Pairing& pairing) {
  pairing.steps.push_back(play(scene, "update", [&]() -> Outturn {
    scene.home.furnish(offering.release.image, scene.expectations, scene.instructions);
    const auto& offered = offering.release.application;
    UpdateRun run = scene.home.run(offered ? &offered->inventory : nullptr);
    pairing.phases = run.observation.phases;
    pairing.diskUse = run.observation.diskUse;
    pairing.aftermath = aftermathOf(run, installed, offering.release);
    const std::string complaint =
        run.exitStatus == 0 ? complaintAboutSuccess(run) : complaintAboutRefusal(run);
    if (run.exitStatus == 0 && complaint.empty()) {
      pairing.wouldInstall = true;
      pairing.verdict = "WOULD INSTALL: " + versionOf(offered->name) + " over " + versionOf(installed.name);
      return {.verdict = StepVerdict::passed, .refusedBy = {}, .message = {}};
    }
    pairing.verdict = "WOULD BE REFUSED: " + reasonOf(offering, installed, run);
    if (run.exitStatus == 0)
      pairing.verdict = "WOULD FAIL: " + complaint;
    return {.verdict = StepVerdict::failed,
            .refusedBy = refusingPlace(run, run.observation.wasSwapped),
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
  addFindings(offering, installed, pairing);
  if (pairing.wouldInstall) {
    pairing.steps.push_back(play(scene, "start refused", [&] { return startRefused(scene); }));
    append(pairing.steps, tracedStories(scene));
    append(pairing.steps, refusals(scene));
  } else {
    pairing.steps.push_back(play(scene, "all other stories", []() -> Outturn {
      throw NotTried("They show something only of an update that succeeds.");
    }));
  }
  return pairing;
}

}  // namespace rehearse
