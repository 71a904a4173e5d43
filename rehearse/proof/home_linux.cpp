#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/crypto/digest.hpp"
#include "platform/files/data.hpp"
#include "platform/formats/json.hpp"
#include "platform/foundation/bytes.hpp"
#include "platform/foundation/error.hpp"
#include "rehearse/files/program.hpp"
#include "rehearse/proof/home.hpp"
#include "rehearse/proof/known_contents.hpp"
#include "rehearse/proof/system_calls.hpp"
#include "updater/records/install_plan.hpp"
#include "updater/records/install_status.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using QuorinOstrevalUpdater::InstallStatus;

const Offer& offerOf(const Material& material, Story story) {
  return story == Story::rollback ? material.broken : material.update;
}

/// What is read in one place is known in all of this process.
KnownContents& contents() {
  static KnownContents contents;
  return contents;
}

/// Removes what is in a directory, apart from `kept` and what its file system keeps there.
void empty(const fs::path& directory, const fs::path& kept = {}) {
  for (const auto& entry : fs::directory_iterator(directory))
    if (entry.path().filename() != "lost+found" && entry.path() != kept)
      fs::remove_all(entry.path());
}

bool isOwn(const fs::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && status.st_uid == ::geteuid();
}

bool isIdentifier(std::string_view text) {
  constexpr std::string_view kForm = "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX";
  return text.size() >= kForm.size() &&
         std::ranges::equal(text.substr(0, kForm.size()), kForm, [](char character, char form) {
           return form == '-' ? character == '-' : std::isxdigit(static_cast<unsigned char>(character)) != 0;
         });
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

std::string withoutIdentifiers(const std::string& name) {
  constexpr std::size_t kLength = 36;
  std::string result;
  for (std::size_t place = 0; place < name.size();)
    if (isIdentifier(std::string_view(name).substr(place))) {
      result += '*';
      place += kLength;
    } else {
      result += name[place++];
    }
  return result;
}

Home::Home(const Material& material, Story story, fs::path directory, fs::path temporary)
    : material_(material),
      story_(story),
      directory_(std::move(directory)),
      temporary_(std::move(temporary)),
      previous_(material.old),
      offered_(offerOf(material, story).application) {}

void Home::clear() const {
  empty(temporary_);
  if (!isOwn(target_) || inventoryOf(target_) != material_.old.content) {
    empty(directory_);
    return;
  }
  empty(directory_, applications_);
  empty(applications_, target_);
}

void Home::furnish() {
  clear();
  if (!fs::exists(target_)) {
    fs::create_directories(applications_);
    copyTree(material_.oldBundle, target_);
  }
  offer(offerOf(material_, story_));
}

void Home::offer(const Offer& offer) {
  for (const fs::path& file : {image_, status_, ready_})
    fs::remove(file);
  fs::copy_file(offer.image, image_);
  const bool isFirst = &offer == &offerOf(material_, story_);
  material_.starts->begin(directory_, isFirst && story_ == Story::rollback);
  previous_.content = fs::exists(target_) ? inventoryOf(target_) : Inventory();
  previous_.version.clear();
  for (const KnownApplication* known :
       {&material_.old, &material_.update.application, &material_.next.application})
    if (previous_.version.empty() && previous_.content == known->content)
      previous_.version = known->version;
  offered_ = offer.application;
  const QuorinOstrevalUpdater::InstallPlan plan{.dmgPath = image_.native(),
                                                .targetAppPath = target_.native(),
                                                .expectedBundleIdentifier = material_.identifier,
                                                .expectedTeamIdentifier = material_.team,
                                                .expectedVersion = offer.application.version,
                                                .expectedBuild = offer.application.build,
                                                .expectedSHA256 = offer.digest,
                                                .statusPath = status_.native()};
  writeFile(plan_, platform::JSONEncoder().encode(plan).bytes());
}

void Home::readAnew() {
  contents() = KnownContents();
}

Ending Home::run(const Watcher& watcher, pid_t parent) const {
  Watcher meddling = watcher;
  meddling.timeLimit = std::max(watcher.timeLimit, material_.timeLimit);
  if (story_ == Story::revert && meddling.calls)
    std::ranges::copy(renames(), std::back_inserter(*meddling.calls));
  if (story_ == Story::revert && !meddling.after)
    meddling.wantsAfter = isExchangeOfNames;
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

Inventory Home::inventoryOf(const fs::path& application) const {
  return fs::is_directory(fs::symlink_status(application)) ? contents().inventory(application) : Inventory();
}

void Home::damageApplication() const {
  std::fstream file(target_ / material_.update.sealedFile, std::ios::in | std::ios::out | std::ios::binary);
  const int first = file.get();
  file.seekp(0);
  file.put(static_cast<char>(first ^ 1));
  if (!file.flush())
    throw std::runtime_error("the application could not be damaged");
}

Standing Home::standing() const {
  if (!fs::exists(target_))
    return Standing::neither;
  if (isDamaged())
    return Standing::damaged;
  const Inventory actual = inventoryOf(target_);
  if (actual == offered_.content)
    return Standing::offered;
  return actual == previous_.content ? Standing::previous : Standing::neither;
}

bool Home::stands(const Offer& offer) const {
  return inventoryOf(target_) == offer.application.content;
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
  requireThat(actual != Standing::neither, "There is no complete application at the target's path");
  const bool isGood = ending.exitStatus == 0;
  requireThat(isGood || ending.exitStatus == 1, "The exit status is " + std::to_string(ending.exitStatus));
  requireThat(
      actual == (isGood || previous_.content == offered_.content ? Standing::offered : Standing::previous),
      "The other application is there");
  const std::string prefix = "QuorinOstrevalUpdater: ";
  requireThat(isGood ? ending.error.empty()
                     : excuses.line || (ending.error.starts_with(prefix) && ending.error.ends_with('\n')),
              "Standard error says \"" + ending.error + "\"");
  const std::vector<std::string> started = material_.starts->versions(directory_);
  if (isGood)
    requireThat(started == std::vector<std::string>{offered_.version} || (excuses.start && started.empty()),
                "Something else than the new version was started");
  try {
    const std::optional<InstallStatus> status = readStatus(status_);
    // Without a ready file the run ended before it had anything to tell of.
    if (fs::exists(ready_)) {
      requireThat(status || excuses.status, "There is no status");
      requireThat(isGood || excuses.restart || (!started.empty() && started.back() == previous_.version),
                  "The previous application was not started again");
    }
    if (status) {
      requireThat(status->succeeded == isGood && status->version == offered_.version,
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
  const std::string& damaged = material_.update.sealedFile;
  if (story_ != Story::revert || !fs::exists(target_ / damaged))
    return false;
  // How much of the damage is there does not matter: a power cut may come between.
  Inventory actual = inventoryOf(target_);
  const Inventory& sound = material_.update.application.content;
  return std::exchange(actual[damaged], sound.at(damaged)) != sound.at(damaged) && actual == sound;
}

bool Home::previousStandsBeside() const {
  return std::ranges::any_of(fs::directory_iterator(applications_), [this](const fs::directory_entry& entry) {
    return entry.path() != target_ && inventoryOf(entry.path()) == previous_.content;
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

bool Home::hasStatus() const {
  return fs::exists(status_);
}

bool Home::isReady() const {
  return fs::exists(ready_);
}

std::string Home::digest() const {
  const std::set<fs::path> replaced{image_, plan_, status_, ready_, directory_ / "starts"};
  platform::Digest digest(platform::DigestAlgorithm::sha256);
  // Random names have no order that is the same twice.
  std::multiset<std::string> lines;
  for (const fs::path& root : {directory_, temporary_})
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      if (replaced.contains(entry.path()))
        continue;
      struct stat status {};
      if (::lstat(entry.path().c_str(), &status) != 0)
        throw platform::SystemError(platform::quoted(entry.path().native()) + " could not be examined",
                                    errno);
      const ssize_t attributes = ::llistxattr(entry.path().c_str(), nullptr, 0);
      std::string line = withoutIdentifiers(entry.path().lexically_relative(root).native()) + ' ' +
                         std::to_string(status.st_mode) + ' ' + std::to_string(status.st_uid) + ' ' +
                         std::to_string(attributes) + ' ';
      if (entry.is_symlink())
        line += fs::read_symlink(entry.path());
      else if (entry.is_regular_file())
        line += contents().contentOf(entry.path());
      lines.insert(line + '\n');
    }
  for (const std::string& line : lines)
    digest.update(line);
  return platform::hexadecimal(digest.finish());
}

}  // namespace rehearse
