#include <grp.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>

#include "rehearse/proof/limit_sweeps.hpp"
#include "rehearse/proof/system_calls.hpp"
#include "rehearse/proof/verdict.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

/// A limit that grows from nothing to more than enough.
struct Limit {
  std::string name;
  std::size_t step;
  std::size_t enough;
  /// Below this, not even a sentence gets out.
  std::size_t sentence;
  /// Sets it for the run of `home`, in this process or in `watcher.prepare`.
  std::function<void(const Home& home, const Place& place, std::size_t value, Watcher& watcher)> set;
  std::function<void(const Place& place)> lift = [](const Place&) {};
};

void setSize(const fs::path& fileSystem, std::size_t bytes) {
  const std::string options = "mode=0777,size=" + std::to_string(bytes);
  if (::mount("none", fileSystem.c_str(), nullptr, MS_REMOUNT, options.c_str()) != 0)
    throw std::system_error(errno, std::generic_category(), "a file system's size");
}

void setFreeSpace(const fs::path& fileSystem, std::size_t bytes) {
  struct statvfs status {};
  if (::statvfs(fileSystem.c_str(), &status) != 0)
    throw std::system_error(errno, std::generic_category(), "a file system's size");
  // No size at all would be no limit.
  setSize(fileSystem, std::max<std::size_t>((status.f_blocks - status.f_bfree) * status.f_frsize + bytes, 1));
}

/// A user who is bound by the limit of processes, as an administrator is not, and whose processes are those
/// of this worker alone.
unsigned ordinaryUser() {
  return 100'000U + static_cast<unsigned>(::getpid());
}

void giveAway(const fs::path& directory, unsigned user) {
  for (const auto& entry : fs::recursive_directory_iterator(directory))
    if (::lchown(entry.path().c_str(), user, user) != 0)
      throw std::system_error(errno, std::generic_category(), "an owner");
}

void limitProcesses(std::size_t value, unsigned user) {
  const rlimit limit{value, value};
  if (::setrlimit(RLIMIT_NPROC, &limit) != 0 || ::setgroups(0, nullptr) != 0 || ::setgid(user) != 0 ||
      ::setuid(user) != 0)
    ::_exit(126);
}

/// A limit holds for everything that a run does, and for the application that it starts.
constexpr Excuses kAnything{.status = true, .restart = true, .start = true};

constexpr std::size_t kAmple = std::size_t(1) << 30;

std::vector<Limit> limits() {
  const auto resource = [](auto which) {
    return [which](const Home&, const Place&, std::size_t value, Watcher& watcher) {
      watcher.prepare = [which, value] {
        const rlimit limit{value, value};
        if (::setrlimit(which, &limit) != 0)
          ::_exit(126);
      };
    };
  };
  return {
      {"free space beside the application", 4096, 131'072, 8192,
       [](const Home&, const Place& place, std::size_t value, Watcher&) { setFreeSpace(place.home, value); },
       [](const Place& place) { setSize(place.home, kAmple); }},
      {"free space in the temporary directory", 4096, 524'288, 0,
       [](const Home&, const Place& place, std::size_t value, Watcher&) {
         setFreeSpace(place.temporary, value);
       },
       [](const Place& place) { setSize(place.temporary, kAmple); }},
      {"open files", 1, 64, 4, resource(RLIMIT_NOFILE)},
      {"processes", 1, 16, 1,
       [](const Home& home, const Place&, std::size_t value, Watcher& watcher) {
         const unsigned user = ordinaryUser();
         giveAway(home.directory(), user);
         watcher.prepare = [value, user] { limitProcesses(value, user); };
       }},
      {"the size of a file", 256, 65'536, 1024, resource(RLIMIT_FSIZE)},
      {"memory", 1 << 20, 512 << 20, 1 << 20, resource(RLIMIT_AS)},
  };
}

Task limitTask(const Material& material, const Limit& limit, std::size_t value) {
  return [&material, limit, value](const Place& place, const auto& report) {
    Home home(material, Story::update, place.home, place.temporary);
    limit.lift(place);
    home.furnish();
    Watcher watcher{.before = [](const SystemCall&) { return Fate{}; }};
    limit.set(home, place, value, watcher);
    const Ending ending = home.run(watcher);
    limit.lift(place);
    Result result{limit.name + ": " + std::to_string(value), wordFor(home.standing()), losses(home)};
    if (value >= limit.sentence)
      append(result.violations, home.contradictions(ending, kAnything));
    if (value == limit.enough && ending.exitStatus != 0)
      result.violations.push_back("It is never enough: " + ending.error);
    append(result.violations, nextUpdate(material, home));
    report(result);
  };
}

Task readOnlyTask(const Material& material) {
  return [&material](const Place& place, const auto& report) {
    Home home(material, Story::update, place.home, place.temporary);
    home.furnish();
    const auto remount = [&place](unsigned long flags) {
      if (::mount("none", place.temporary.c_str(), nullptr, MS_REMOUNT | flags, "mode=0777") != 0)
        throw std::system_error(errno, std::generic_category(), "a read-only file system");
    };
    remount(MS_RDONLY);
    const Ending ending = home.run({.before = [](const SystemCall&) { return Fate{}; }});
    remount(0);
    Result result{"a read-only temporary directory", wordFor(home.standing()),
                  home.contradictions(ending, kAnything)};
    append(result.violations, nextUpdate(material, home));
    report(result);
  };
}

/// A process that is to become a tool is still a part of the updater, and a tool's time limit does not begin
/// before its program does.
bool isByTool(const SystemCall& call, const Material& material) {
  return !call.byUpdater && call.program != material.updater.filename();
}

void requireReason(const std::string& reason, const Ending& ending, Result& result) {
  if (!ending.error.ends_with(reason))
    result.violations.push_back("The reason is another: " + ending.error);
}

Task hangTask(const Material& material, std::size_t index) {
  return [&material, index](const Place& place, const auto& report) {
    Home home(material, Story::update, place.home, place.temporary);
    home.furnish();
    std::size_t count = 0;
    std::string reached;
    const auto hang = [&](const SystemCall& call) -> Fate {
      if (count++ != index || !isByTool(call, material))
        return {};
      reached = kindOf(call.number).name + " by " + call.program;
      return {.kind = Fate::Kind::hang};
    };
    const Ending ending = home.run({.before = hang, .leapingClock = true});
    if (reached.empty()) {
      report({"", "not reached", {}});
      return;
    }
    Result result{"hanging at call " + std::to_string(index) + ", " + reached, wordFor(home.standing()),
                  home.contradictions(ending, {.restart = true})};
    if (ending.exitStatus != 0)
      requireReason(" did not finish in time.\n", ending, result);
    append(result.violations, nextUpdate(material, home));
    if (home.hasHalfAttachedImages())
      result.violations.push_back("The next update left a part of an image.");
    report(result);
  };
}

Task endlessParentTask(const Material& material) {
  return [&material](const Place& place, const auto& report) {
    Home home(material, Story::update, place.home, place.temporary);
    home.furnish();
    const Ending ending = home.run(shortWaits(), ::getpid());
    Result result{"a parent that does not end", wordFor(home.standing()), home.contradictions(ending)};
    if (home.standing() != Standing::previous)
      result.violations.push_back("The application was updated under its parent.");
    requireReason(" did not terminate in time.\n", ending, result);
    append(result.violations, nextUpdate(material, home));
    report(result);
  };
}

}  // namespace

std::vector<PlannedSweep> limitSweeps(const Material& material, std::size_t every) {
  std::vector<PlannedSweep> sweeps;
  for (const Limit& limit : limits()) {
    PlannedSweep sweep{"limit, " + limit.name, {}};
    // Both ends alone would show nothing.
    const std::size_t step = std::min(limit.step * every, std::max(limit.step, limit.enough / 8));
    for (std::size_t value = 0; value < limit.enough; value += step)
      sweep.tasks.push_back(limitTask(material, limit, value));
    sweep.tasks.push_back(limitTask(material, limit, limit.enough));
    sweeps.push_back(std::move(sweep));
  }
  sweeps.push_back({"limit, a read-only temporary directory", {readOnlyTask(material)}});
  return sweeps;
}

Watcher hangingTool(const std::string& tool) {
  const auto hang = [tool, hung = false](const SystemCall& call) mutable -> Fate {
    if (hung || call.byUpdater || call.program != tool)
      return {};
    hung = true;
    return {.kind = Fate::Kind::hang};
  };
  return {.before = hang, .leapingClock = true};
}

Watcher shortWaits() {
  return {.before = [](const SystemCall&) { return Fate{}; }, .leapingClock = true};
}

PlannedSweep hangSweep(const Material& material, const std::vector<SystemCall>& calls, std::size_t every) {
  PlannedSweep sweep{"time, a tool hangs or the parent does not end", {endlessParentTask(material)}};
  for (std::size_t index = 0; index < calls.size(); index += every)
    if (isByTool(calls[index], material))
      sweep.tasks.push_back(hangTask(material, index));
  return sweep;
}

}  // namespace rehearse
