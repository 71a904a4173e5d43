#include "rehearse/stories/user_home.hpp"

#include <sys/wait.h>

#include "platform/foundation/best_effort.hpp"
#include "platform/foundation/error.hpp"
#include "rehearse/files/program.hpp"
#include "rehearse/stories/application_source.hpp"
#include "updater/records/install_status.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using QuorinOstrevalUpdater::InstallPlan;
using QuorinOstrevalUpdater::InstallStatus;

/// Longer than all time limits of the updater together.
constexpr std::chrono::minutes kTimeLimit{30};
/// The private one. It may be a file system that was mounted over it for a run.
constexpr const char* kTemporary = "/tmp";
constexpr std::string_view kLineBegin = "QuorinOstrevalUpdater: ";

void empty(const fs::path& directory) {
  for (const auto& entry : fs::directory_iterator(directory))
    removeItem(entry.path());
}

/// The line without the program's name.
std::string failureIn(const std::string& standardError) {
  std::string line = standardError.substr(0, standardError.find_last_not_of('\n') + 1);
  return line.starts_with(kLineBegin) ? line.substr(kLineBegin.size()) : line;
}

}  // namespace

UserHome::UserHome(const PrivatePrefix& prefix, fs::path directory, const Application& installed)
    : prefix_(prefix),
      installed_(installed),
      directory_(std::move(directory)),
      applications_(directory_ / "Applications"),
      target_(applications_ / installed.bundle.filename()),
      image_(directory_ / "Downloads" / "offered.dmg"),
      plan_(directory_ / "Downloads" / "plan.json"),
      status_(directory_ / "Library" / "status.json"),
      ready_(directory_ / "Downloads" / "ready") {
  for (const fs::path& path : {applications_, image_.parent_path(), status_.parent_path()})
    fs::create_directories(path);
  fs::permissions(directory_, fs::perms::owner_all);
}

UserHome::~UserHome() {
  platform::bestEffort([this] { removeItem(directory_); });
}

void UserHome::furnish(const fs::path& image, const InstallPlan& expectations,
                       const StartInstructions& instructions) {
  for (const fs::path& directory : {image_.parent_path(), status_.parent_path(), fs::path(kTemporary)})
    empty(directory);
  for (const auto& entry : fs::directory_iterator(applications_))
    if (entry.path() != target_)
      removeItem(entry.path());
  if (!fs::exists(target_) || inventory(target_) != installed_.inventory) {
    removeItem(target_);
    copyBundle(prefix_, installed_.bundle, target_);
  }
  // The updater removes its image.
  fs::create_hard_link(image, image_);
  InstallPlan plan = expectations;
  plan.dmgPath = image_.native();
  plan.targetAppPath = target_.native();
  plan.statusPath = status_.native();
  writeFile(plan_, platform::JSONEncoder().encode(plan).bytes());
  instruct(prefix_.path(), instructions);
}

std::vector<std::string> UserHome::arguments(pid_t parent) const {
  return {"--plan", plan_.native(), "--parent-pid", std::to_string(parent), "--ready-file", ready_.native()};
}

UpdateRun UserHome::run(const Inventory* offered, const std::function<void()>& prepare) {
  const Capture capture;
  const WatchedPlaces places{.applications = applications_,
                             .target = target_,
                             .temporary = kTemporary,
                             .tools = prefix_.path() / "libexec/quorin",
                             .image = image_};
  const auto start = [&] {
    return startProgram(prefix_.updater(), arguments(kEndedParent), capture, prepare);
  };
  Observation observation = watchRun(start, places, kTimeLimit);
  const bool exited = !observation.overran && WIFEXITED(observation.status);
  UpdateRun result = conclude(exited ? WEXITSTATUS(observation.status) : -1, capture.error(), offered);
  result.overran = observation.overran;
  result.duration = observation.duration;
  result.observation = std::move(observation);
  return result;
}

UpdateRun UserHome::conclude(int exitStatus, const std::string& standardError,
                             const Inventory* offered) const {
  UpdateRun result;
  result.exitStatus = exitStatus;
  result.sentence = told(failureIn(standardError));
  if (fs::exists(status_)) {
    const std::string text = readFile(status_);
    result.statusFile = told(text);
    platform::bestEffort([&] {
      result.reportsFailure = !platform::JSONDecoder().decode<InstallStatus>(platform::Data(text)).succeeded;
    });
  }
  result.starts = judgedStarts(prefix_.path());
  for (JudgedStart& start : result.starts) {
    start.application = told(start.application);
    start.reason = told(start.reason);
  }
  result.leftOver = leftovers();
  if (exitStatus == 0)
    for (const fs::path& file : {image_, plan_})
      if (fs::exists(file))
        result.leftOver.push_back(told(file.native()));
  const Inventory actual = fs::is_directory(target_) ? inventory(target_) : Inventory();
  result.isPrevious = actual == installed_.inventory;
  result.isOffered = offered != nullptr && actual == *offered;
  return result;
}

std::vector<std::string> UserHome::leftovers() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(applications_))
    if (entry.path() != target_)
      names.push_back("beside the application: " + entry.path().filename().native());
  for (const auto& entry : fs::directory_iterator(kTemporary)) {
    const std::string name = "/tmp/" + entry.path().filename().native();
    if (!name.starts_with("/tmp/quorin-images-")) {
      names.push_back(name);
      continue;
    }
    // The registry of images itself remains.
    for (const auto& image : fs::directory_iterator(entry.path()))
      names.push_back(name + "/" + image.path().filename().native());
  }
  for (const fs::path& directory : {image_.parent_path(), status_.parent_path()})
    for (const auto& entry : fs::directory_iterator(directory))
      if (entry.path().filename().native().starts_with('.'))
        names.push_back(told(entry.path().native()));
  return names;
}

std::string UserHome::told(std::string text) const {
  return replaceAll(std::move(text), directory_.native(), "~");
}

}  // namespace rehearse
