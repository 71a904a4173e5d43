#include <sys/inotify.h>
#include <sys/stat.h>

#include "rehearse/proof/disk_observer.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

constexpr std::uint32_t kChanges =
    IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

ino_t inodeOf(const fs::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

std::string wordFor(Standing standing) {
  switch (standing) {
    case Standing::previous:
      return "previous";
    case Standing::offered:
      return "offered";
    case Standing::damaged:
      return "damaged";
    case Standing::neither:
      return "neither";
  }
  return {};
}

}  // namespace

DiskObserver::DiskObserver(const Home& home) : home_(home) {
  watchNames();
  state_ = describe();
}

const std::string& DiskObserver::state() {
  if (takeNotices())
    state_ = describe();
  return state_;
}

void DiskObserver::watch(const fs::path& directory, ino_t tree) {
  if (const auto watched = notices_.tryWatch(directory, kChanges))
    trees_[*watched] = tree;
}

void DiskObserver::watchNames() {
  for (const fs::path& directory : {home_.directory(), home_.applications(), home_.temporary()})
    watch(directory, 0);
  for (const auto& entry : fs::directory_iterator(home_.temporary()))
    if (entry.path().filename().native().starts_with("quorin-images-"))
      watch(entry.path(), 0);
}

void DiskObserver::watchTree(ino_t tree) {
  watch(home_.target(), tree);
  for (const auto& entry : fs::recursive_directory_iterator(home_.target()))
    if (entry.is_directory() && !entry.is_symlink())
      watch(entry.path(), tree);
  watchedTrees_.insert(tree);
}

/// Whether there was a change that the state may depend on.
bool DiskObserver::takeNotices() {
  bool concerns = false;
  for (const FileNotice& notice : notices_.take()) {
    const auto tree = trees_.find(notice.directory);
    if (tree == trees_.end())
      continue;
    if ((notice.events & IN_IGNORED) != 0) {
      trees_.erase(tree);
      continue;
    }
    if (tree->second != 0)
      changedTrees_.insert(tree->second);
    concerns = concerns || tree->second == 0 || tree->second == atTarget_ || isNoGood_;
  }
  return concerns;
}

std::string DiskObserver::describe() {
  watchNames();
  const ino_t atTarget = inodeOf(home_.target());
  const bool isNew = atTarget != atTarget_ || changedTrees_.contains(atTarget);
  if (isNew || isNoGood_) {
    // Watched before it is looked at, so that no change is missed.
    if (atTarget != 0 && (isNew || !watchedTrees_.contains(atTarget)))
      watchTree(atTarget);
    atTarget_ = atTarget;
    changedTrees_.clear();
    isNoGood_ = home_.isNoGood();
    target_ = wordFor(home_.standing());
    if (isNoGood_ || target_ == "neither")
      target_ += home_.previousStandsBeside() ? ", previous beside" : ", previous lost";
  }
  std::string text = "target: " + target_ + "; left:";
  std::multiset<std::string> names;
  for (const std::string& name : home_.leftovers())
    names.insert(withoutIdentifiers(name));
  for (const std::string& name : names)
    text += " " + name;
  if (home_.hasStatus())
    text += "; status";
  if (home_.isReady())
    text += "; ready";
  return text;
}

}  // namespace rehearse
