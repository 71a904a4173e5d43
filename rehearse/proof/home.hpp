#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "rehearse/proof/material.hpp"
#include "rehearse/proof/tracer.hpp"

namespace rehearse {

/// How a run goes where nothing disturbs it.
enum class Story {
  update,    ///< the new application is installed and starts
  rollback,  ///< it does not start, and the previous one is put back
  revert,    ///< it is damaged right after the swap, and the previous one is put back
};

std::string nameOf(Story story);

/// The name with "*" in the place of each random identifier.
std::string withoutIdentifiers(const std::string& name);

/// No process has this identifier.
constexpr pid_t kEndedParent = 2147483647;

/// Which application is at the target's path.
enum class Standing {
  previous,
  offered,
  damaged,  ///< the offered one as the story damaged it
  neither,
};

/// What a run need not do, since what it would need for it was taken away.
struct Excuses {
  bool status = false;   ///< write the status file
  bool line = false;     ///< write to standard error
  bool restart = false;  ///< start the application again after a failure
  bool life = false;     ///< begin: the system's program loader lacks what it needs first
  bool start = false;    ///< have the new application live, whose process died before its program began
};

/// A home with the installed application and an offered update.
class Home {
 public:
  /// What is in `directory` is the home's, and what is in `temporary`, which is "/tmp" for the updater. Both
  /// exist. What is there is taken for what another one has made for the same story, until it is furnished.
  Home(const Material& material, Story story, std::filesystem::path directory,
       std::filesystem::path temporary);

  /// Makes everything as it is before a first update. What is so already is kept.
  void furnish();
  /// Makes another offer: a new image and plan, no ready file, no status file; the rest stays.
  void offer(const Offer& offer);

  /// Reads all files anew from now on: what is on a disk may have changed by other ways than system calls.
  void readAnew();

  /// Runs the updater on the plan. Does to the installed application what the story has happen to it.
  Ending run(const Watcher& watcher, pid_t parent = kEndedParent) const;
  /// The same without a look at its calls and without the damage. For a process that adopts orphans and has
  /// no other children.
  Ending runUndisturbed() const;

  /// Where the offered application is the same as the one before, it is `offered`.
  Standing standing() const;
  /// Whether the application of this offer is at the target's path, complete.
  bool stands(const Offer& offer) const;
  /// What is wrong with how the run ended by itself: its exit status, its line on standard error, its status
  /// file, what was started and the application at the target's path must tell one story. Each complaint is a
  /// sentence.
  std::vector<std::string> contradictions(const Ending& ending, const Excuses& excuses = {}) const;
  /// What is beside the application and in the temporary directory and was not there before an update, apart
  /// from the empty registry of images.
  std::set<std::string> leftovers() const;
  /// Those of them that have no name of what a run that died may leave.
  std::set<std::string> strangers() const;
  /// Whether the application at the target's path is one that the story damaged.
  bool isDamaged() const;
  /// Whether the previous application is complete in the same directory.
  bool previousStandsBeside() const;
  /// Whether the application at the target's path is no good, though it may be complete: it does not start,
  /// or is damaged.
  bool isNoGood() const;
  /// Whether the registry of images holds one that is neither attached nor gone.
  bool hasHalfAttachedImages() const;

  bool hasStatus() const;
  bool isReady() const;

  /// Everything that the next update could depend on, as one SHA-256: what is in the home and in the
  /// temporary directory apart from what the next offer replaces. Identifiers that are random count as the
  /// same.
  std::string digest() const;

  const Material& material() const { return material_; }
  Story story() const { return story_; }
  const std::filesystem::path& directory() const { return directory_; }
  const std::filesystem::path& temporary() const { return temporary_; }
  const std::filesystem::path& applications() const { return applications_; }
  const std::filesystem::path& target() const { return target_; }

 private:
  std::vector<std::string> arguments(pid_t parent) const;
  void clear() const;
  Inventory inventoryOf(const std::filesystem::path& application) const;
  void damageApplication() const;

  const Material& material_;
  Story story_;
  std::filesystem::path directory_;
  std::filesystem::path temporary_;
  std::filesystem::path applications_ = directory_ / "Pro gramme \xC3\xA9";
  std::filesystem::path target_ = applications_ / material_.bundleName;
  std::filesystem::path image_ = directory_ / "offered.dmg";
  std::filesystem::path plan_ = directory_ / "plan.json";
  std::filesystem::path status_ = directory_ / "status.json";
  std::filesystem::path ready_ = directory_ / "ready";
  KnownApplication previous_;
  KnownApplication offered_;
};

}  // namespace rehearse
