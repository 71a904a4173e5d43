#include "rehearse/stories/refusals.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "rehearse/files/private_place.hpp"
#include "rehearse/stories/refusing_place.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using QuorinOstrevalUpdater::InstallPlan;

/// More memory than this is not taken for a file system that is to be full.
constexpr std::uint64_t kLargestFullDisk = 16U << 20U;

constexpr const char* kAccepted = "The update was accepted.";

/// Runs an update that must be refused, of a home that is furnished.
Outturn refused(const Scene& scene) {
  const UpdateRun run = scene.home.run(&scene.release.application->inventory);
  if (run.exitStatus == 0)
    return {
        .verdict = StepVerdict::failed,
        .refusedBy = {},
        .message = run.isOffered ? kAccepted : "The update was accepted and installed another application."};
  const std::string complaint = complaintAboutRefusal(run);
  return {.verdict = complaint.empty() ? StepVerdict::passed : StepVerdict::failed,
          .refusedBy = refusingPlace(run),
          .message = complaint.empty() ? run.sentence : complaint};
}

Outturn refused(const Scene& scene, const fs::path& image, const InstallPlan& plan) {
  scene.home.furnish(image, plan, scene.instructions);
  return refused(scene);
}

using ImageMaker = const ChangedImage& (ChangedImages::*)();

const ChangedImage& made(const Scene& scene, ImageMaker image) {
  try {
    return (scene.images.*image)();
  } catch (const platform::SystemError& failure) {
    if (failure.errorNumber() == ENOSPC)
      throw;
    throw NotTried(platform::sentence("The image for it could not be made", failure));
  } catch (const platform::Error& failure) {
    throw NotTried(platform::sentence("The image for it could not be made", failure));
  }
}

/// An image with its own digest in the plan.
Outturn refused(const Scene& scene, ImageMaker maker) {
  const ChangedImage& image = made(scene, maker);
  InstallPlan plan = scene.expectations;
  plan.expectedSHA256 = image.digest;
  return refused(scene, image.path, plan);
}

/// An image whose application must be the reason.
Outturn refusedApplication(const Scene& scene, ImageMaker maker) {
  Outturn outturn = refused(scene, maker);
  if (outturn.verdict == StepVerdict::passed && outturn.refusedBy != kByImage)
    throw NotTried("The update was refused before this could be tried: " + outturn.message);
  return outturn;
}

/// The release's image and a plan in which one expectation is another.
Outturn refusedWith(const Scene& scene, std::string InstallPlan::*expectation, const std::string& value) {
  InstallPlan plan = scene.expectations;
  plan.*expectation = value;
  return refused(scene, scene.release.image, plan);
}

/// A bit that changes nothing in the application is not a reason to refuse it: only the digest covers it.
Outturn flippedWithNewDigest(const Scene& scene) {
  Outturn outturn = refused(scene, &ChangedImages::flipped);
  if (outturn.message == kAccepted)
    throw NotTried("The changed byte is not in a part of the image that the application is read from.");
  return outturn;
}

/// Shows that what is refused of images made anew is not refused for being made anew.
Outturn control(const Scene& scene) {
  const Outturn outturn = refused(scene, &ChangedImages::remade);
  if (outturn.message != kAccepted)
    throw NotTried("An image that is made anew of the unchanged application is refused: " + outturn.message);
  return {.verdict = StepVerdict::passed, .refusedBy = {}, .message = {}};
}

/// Runs the update with other file systems in place.
Outturn refusedAmong(const Scene& scene, const std::function<std::vector<Mount>()>& mount) {
  scene.home.furnish(scene.release.image, scene.expectations, scene.instructions);
  std::vector<Mount> mounts;
  try {
    mounts = mount();
  } catch (const platform::Error& failure) {
    throw NotTried(failure.localizedDescription());
  }
  Outturn outturn = refused(scene);
  // The last one mounted is in the way of those before it.
  while (!mounts.empty())
    mounts.pop_back();
  return outturn;
}

std::uint64_t tooLittleFor(const Scene& scene) {
  return std::min(scene.release.application->size / 2, kLargestFullDisk);
}

/// The application is on a file system that has no room for another.
std::vector<Mount> fullDisk(const Scene& scene) {
  std::vector<Mount> mounts;
  mounts.push_back(Mount::inMemory(scene.home.applications(), tooLittleFor(scene)));
  fs::create_directory(scene.home.target());
  mounts.push_back(Mount::bound(scene.home.installed().bundle, scene.home.target()));
  return mounts;
}

std::vector<Mount> single(Mount mount) {
  std::vector<Mount> mounts;
  mounts.push_back(std::move(mount));
  return mounts;
}

/// A team that is none of the release's.
std::string otherTeam(const std::string& team) {
  return team == "AAAAAAAAAA" ? "BBBBBBBBBB" : "AAAAAAAAAA";
}

}  // namespace

std::vector<Step> refusals(const Scene& scene) {
  std::vector<Step> steps;
  const auto step = [&](const std::string& name, const std::function<Outturn()>& story) {
    steps.push_back(play(scene, name, story));
  };
  step("refuse a flipped byte, old digest",
       [&] { return refused(scene, made(scene, &ChangedImages::flipped).path, scene.expectations); });
  step("refuse a flipped byte, new digest", [&] { return flippedWithNewDigest(scene); });
  step("refuse a truncated image", [&] { return refused(scene, &ChangedImages::truncated); });
  step("refuse another team in the plan", [&] {
    return refusedWith(scene, &InstallPlan::expectedTeamIdentifier,
                       otherTeam(scene.expectations.expectedTeamIdentifier));
  });
  step("refuse another version than the plan's", [&] {
    return refusedWith(scene, &InstallPlan::expectedVersion, scene.expectations.expectedVersion + ".1");
  });
  step("refuse another build than the plan's", [&] {
    return refusedWith(scene, &InstallPlan::expectedBuild, scene.expectations.expectedBuild + ".1");
  });
  step("control: accept an image made anew", [&] { return control(scene); });
  const Step controlStep = steps.back();
  const auto ofMadeImage = [&](const std::string& name, ImageMaker maker) {
    step(name, [&] {
      if (controlStep.verdict != StepVerdict::passed)
        throw NotTried(controlStep.message);
      return refusedApplication(scene, maker);
    });
  };
  ofMadeImage("refuse an application signed anew", &ChangedImages::signedAnew);
  ofMadeImage("refuse an application with another identifier", &ChangedImages::otherIdentifier);
  ofMadeImage("refuse a damaged file in the application", &ChangedImages::damagedFile);
  step("refuse a full disk", [&] { return refusedAmong(scene, [&] { return fullDisk(scene); }); });
  step("refuse a full temporary directory", [&] {
    return refusedAmong(scene, [&] { return single(Mount::inMemory("/tmp", tooLittleFor(scene))); });
  });
  step("refuse a place that cannot be written", [&] {
    return refusedAmong(scene, [&] { return single(Mount::readOnly(scene.home.applications())); });
  });
  return steps;
}

}  // namespace rehearse
