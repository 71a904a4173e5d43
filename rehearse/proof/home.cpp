#include "rehearse/proof/home.hpp"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/files/data.hpp"
#include "platform/formats/json.hpp"
#include "rehearse/files/program.hpp"
#include "rehearse/proof/system_calls.hpp"
#include "updater/records/install_status.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using QuorinOstrevalUpdater::InstallPlan;
using QuorinOstrevalUpdater::InstallStatus;

constexpr const char* kDamagedFile = "Contents/Resources/text.txt";
constexpr const char* kDamage = "damage";

const Offer& offerOf(const Material& material, Story story) {
  return story == Story::rollback ? material.broken : material.update;
}

/// Removes what is in a directory, apart from what its file system keeps there.
void empty(const fs::path& directory) {
  for (const auto& entry : fs::directory_iterator(directory))
    if (entry.path().filename() != "lost+found")
      fs::remove_all(entry.path());
}

/// The status that was written, or none. Throws when it is no status.
std::optional<InstallStatus> readStatus(const fs::path& path) {
  if (!fs::exists(path))
    return std::nullopt;
  return platform::JSONDecoder().decode<InstallStatus>(platform::Data(readFile(path)));
}

}  // namespace

std::string nameOf(Story story) {
  switch (story) {
    case Story::update:
      return "update";
    case Story::rollback:
      return "rollback";
    case Story::revert:
      return "revert";
  }
  return {};
}

Home::Home(const Material& material, Story story, fs::path directory, fs::path temporary)
    : material_(material),
      story_(story),
      directory_(std::move(directory)),
      temporary_(std::move(temporary)) {}

void Home::furnish() {
  empty(directory_);
  empty(temporary_);
  fs::create_directories(applications_);
  copyTree(material_.oldApplication, target_);
  offer(offerOf(material_, story_));
}

void Home::offer(const Offer& offer) {
  for (const fs::path& file : {image_, status_, ready_, directory_ / "starts"})
    fs::remove(file);
  fs::copy_file(offer.image, image_);
  previous_ = fs::exists(target_) ? inventory(target_) : Inventory();
  offered_ = offer.application;
  offeredVersion_ = offer.version;
  const InstallPlan plan{.dmgPath = image_.native(),
                         .targetAppPath = target_.native(),
                         .expectedBundleIdentifier = material_.identifier,
                         .expectedTeamIdentifier = material_.team,
                         .expectedVersion = offer.version,
                         .expectedBuild = offer.build,
                         .expectedSHA256 = offer.digest,
                         .statusPath = status_.native()};
  writeFile(plan_, platform::JSONEncoder().encode(plan).bytes());
}

Ending Home::run(const Watcher& watcher, pid_t parent) const {
  Watcher meddling = watcher;
  if (story_ == Story::revert)
    meddling.after = [&, damaged = false](const SystemCall& call, std::int64_t result) mutable {
      if (!damaged && call.byUpdater && isExchangeOfNames(call) && result == 0) {
        damageApplication();
        damaged = true;
      }
      if (watcher.after)
        watcher.after(call, result);
    };
  return trace(material_.updater, arguments(parent), meddling);
}

Ending Home::runUndisturbed() const {
  const Outcome outcome = runProgram(material_.updater, arguments(kEndedParent));
  // The application that was started outlives the updater.
  while (::waitpid(-1, nullptr, 0) > 0)
    continue;
  return {.exitStatus = outcome.exitStatus,
          .signal = outcome.signal,
          .output = outcome.output,
          .error = outcome.error};
}

std::vector<std::string> Home::arguments(pid_t parent) const {
  return {"--plan", plan_.native(), "--parent-pid", std::to_string(parent), "--ready-file", ready_.native()};
}

void Home::damageApplication() const {
  std::ofstream(target_ / kDamagedFile, std::ios::app) << kDamage;
}

Standing Home::standing() const {
  if (!fs::exists(target_))
    return Standing::neither;
  if (isDamaged())
    return Standing::damaged;
  const Inventory actual = inventory(target_);
  if (actual == previous_)
    return Standing::previous;
  return actual == offered_ ? Standing::offered : Standing::neither;
}

bool Home::stands(const Offer& offer) const {
  return fs::exists(target_) && inventory(target_) == offer.application;
}

std::vector<std::string> Home::contradictions(const Ending& ending, const Excuses& excuses) const {
  std::vector<std::string> complaints;
  const auto requireThat = [&](bool holds, const std::string& complaint) {
    if (!holds)
      complaints.push_back(complaint + ".");
  };
  const Standing actual = standing();
  if (ending.exitStatus == 127 || (excuses.life && ending.signal != 0)) {
    // The program's loader, not the program.
    requireThat(
        !fs::exists(status_) && !fs::exists(ready_) && actual == Standing::previous && !ending.overran,
        "The program's loader failed behind its beginning");
    return complaints;
  }
  requireThat(!ending.overran, "The run took too long");
  requireThat(ending.signal == 0, "Signal " + std::to_string(ending.signal) + " ended the run");
  requireThat(ending.output.empty(), "There is output: " + ending.output);
  requireThat(actual != Standing::neither, "No complete application stands at the target's path");
  const bool isGood = ending.exitStatus == 0;
  requireThat(isGood || ending.exitStatus == 1, "The exit status is " + std::to_string(ending.exitStatus));
  requireThat(actual == (isGood ? Standing::offered : Standing::previous),
              "The other application stands there");
  const std::string prefix = "QuorinOstrevalUpdater: ";
  requireThat(isGood ? ending.error.empty()
                     : excuses.line || (ending.error.starts_with(prefix) && ending.error.ends_with('\n')),
              "Standard error says \"" + ending.error + "\"");
  const std::vector<std::string> started = starts();
  if (isGood)
    requireThat(started == std::vector<std::string>{offeredVersion_} || (excuses.start && started.empty()),
                "Something else than the new version was started");
  try {
    const std::optional<InstallStatus> status = readStatus(status_);
    // Without a ready file the run ended before it had anything to tell of.
    if (fs::exists(ready_)) {
      requireThat(status || excuses.status, "There is no status");
      requireThat(isGood || excuses.restart || (!started.empty() && started.back() == "1.0"),
                  "The previous application was not started again");
    }
    if (status) {
      requireThat(status->succeeded == isGood && status->version == offeredVersion_,
                  "The status is that of another end");
      requireThat(isGood || excuses.line ||
                      status->message + "\n" ==
                          "Quorin Ostreval update failed: " + ending.error.substr(prefix.size()),
                  "The status is \"" + status->message + "\", standard error \"" + ending.error + "\"");
    }
  } catch (const platform::Error& failure) {
    complaints.push_back("The status file is none: " + failure.localizedDescription());
  }
  return complaints;
}

std::vector<std::string> Home::starts() const {
  std::vector<std::string> versions;
  std::ifstream lines(directory_ / "starts");
  for (std::string line; std::getline(lines, line);)
    versions.push_back(line);
  return versions;
}

std::set<std::string> Home::leftovers() const {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(applications_))
    if (entry.path() != target_)
      names.insert(entry.path().filename());
  for (const auto& entry : fs::directory_iterator(temporary_)) {
    const fs::path name = "/tmp" / entry.path().filename();
    if (!name.native().starts_with("/tmp/quorin-images-")) {
      names.insert(name);
      continue;
    }
    for (const auto& image : fs::directory_iterator(entry.path()))
      names.insert(name / image.path().filename());
  }
  for (const auto& entry : fs::directory_iterator(directory_))
    if (entry.path().filename().native().starts_with('.'))
      names.insert(entry.path().filename());
  return names;
}

std::set<std::string> Home::strangers() const {
  static constexpr std::array<std::string_view, 5> kKnown{
      ".quorin-update-", ".quorin-backup-", ".quorin-write-", "/tmp/QuorinCommand-", "/tmp/quorin-images-"};
  std::set<std::string> names = leftovers();
  std::erase_if(names, [](const std::string& name) {
    return std::ranges::any_of(kKnown, [&](std::string_view known) { return name.starts_with(known); });
  });
  return names;
}

bool Home::isDamaged() const {
  if (story_ != Story::revert || !fs::exists(target_ / kDamagedFile))
    return false;
  // How much of the damage is there is all the same: a power cut may come between.
  Inventory actual = inventory(target_);
  const Inventory& sound = material_.update.application;
  return std::exchange(actual[kDamagedFile], sound.at(kDamagedFile)) != sound.at(kDamagedFile) &&
         actual == sound;
}

bool Home::previousStandsBeside() const {
  return std::ranges::any_of(fs::directory_iterator(applications_), [this](const fs::directory_entry& entry) {
    return entry.is_directory() && inventory(entry.path()) == previous_;
  });
}

bool Home::isNoGood() const {
  return isDamaged() || (story_ == Story::rollback && standing() == Standing::offered);
}

bool Home::hasHalfAttachedImages() const {
  return std::ranges::any_of(leftovers(), [](const std::string& name) {
    return name.starts_with("/tmp/quorin-images-") && name.find("taching-") != std::string::npos;
  });
}

}  // namespace rehearse
