#include <grp.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>

#include "rehearse/proof/at_call.hpp"
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

std::vector<Limit> limits(const Material& material) {
  const auto resource = [](auto which) {
    return [which](const Home&, const Place&, std::size_t value, Watcher& watcher) {
      watcher.prepare = [which, value] {
        const rlimit limit{value, value};
        if (::setrlimit(which, &limit) != 0)
          ::_exit(126);
      };
    };
  };
  // As many steps for a great application as for a small one.
  const auto stepTo = [](std::size_t enough, std::size_t leastStep) {
    constexpr std::size_t kSteps = 256;
    return std::max(leastStep, enough / kSteps / leastStep * leastStep);
  };
  std::vector<Limit> limits{
      {"free space beside the application", stepTo(material.enoughBeside, 4096), material.enoughBeside, 8192,
       [](const Home&, const Place& place, std::size_t value, Watcher&) { setFreeSpace(place.home, value); },
       [](const Place& place) { setSize(place.home, kAmple); }},
      {"free space in the temporary directory", stepTo(material.enoughTemporary, 4096),
       material.enoughTemporary, 0,
       [](const Home&, const Place& place, std::size_t value, Watcher&) {
         setFreeSpace(place.temporary, value);
       },
       [](const Place& place) { setSize(place.temporary, kAmple); }},
      {"open files", 1, 64, 4, resource(RLIMIT_NOFILE)},
      {"the size of a file", stepTo(material.enoughFile, 256), material.enoughFile, 1024,
       resource(RLIMIT_FSIZE)},
      // The first of them are too little for the system to load the program.
      {"memory", 1 << 20, material.enoughMemory, 4 << 20, resource(RLIMIT_AS)},
  };
  // Only the superuser can have a user without other processes.
  if (::geteuid() == 0)
    limits.push_back(
        {"processes", 1, 16, 1, [](const Home& home, const Place&, std::size_t value, Watcher& watcher) {
           const unsigned user = ordinaryUser();
           giveAway(home.directory(), user);
           watcher.prepare = [value, user] { limitProcesses(value, user); };
         }});
  return limits;
}

Task limitTask(const Material& material, const NextUpdates& nextUpdates, const Limit& limit,
               std::size_t value) {
  return [&material, &nextUpdates, limit, value](const Place& place, const auto& report) {
    Home home(material, Story::update, place.home, place.temporary);
    limit.lift(place);
    home.furnish();
    Watcher watcher{.before = [](const SystemCall&) { return Fate{}; }, .calls = std::vector<long>()};
    limit.set(home, place, value, watcher);
    const Ending ending = home.run(watcher);
    limit.lift(place);
    Result result{"", outcomeOf(home), losses(home)};
    if (value >= limit.sentence)
      append(result.violations, home.contradictions(ending, kAnything));
    if (value == limit.enough && ending.exitStatus != 0)
      result.violations.push_back("It is never enough: " + ending.error);
    append(result.violations, nextUpdates(material, home));
    report(result);
  };
}

Task readOnlyTask(const Material& material, const NextUpdates& nextUpdates) {
  return [&material, &nextUpdates](const Place& place, const auto& report) {
    Home home(material, Story::update, place.home, place.temporary);
    home.furnish();
    const auto remount = [&place](unsigned long flags) {
      if (::mount("none", place.temporary.c_str(), nullptr, MS_REMOUNT | flags, "mode=0777") != 0)
        throw std::system_error(errno, std::generic_category(), "a read-only file system");
    };
    remount(MS_RDONLY);
    const Ending ending =
        home.run({.before = [](const SystemCall&) { return Fate{}; }, .calls = std::vector<long>()});
    remount(0);
    Result result{"", outcomeOf(home), home.contradictions(ending, kAnything)};
    append(result.violations, nextUpdates(material, home));
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

Task hangTask(const Rehearsed& rehearsed, const RecordedCall& call) {
  return [=](const Place& place, const auto& report) {
    Home home(rehearsed.material, Story::update, place.home, place.temporary);
    home.furnish();
    AtCall hang(rehearsed.material, call, {.kind = Fate::Kind::hang});
    Watcher watcher = hang.watcher();
    watcher.leapingClock = true;
    const Ending ending = home.run(watcher);
    if (!hang.isReached()) {
      report({"", PointOutcome::notReached});
      return;
    }
    Result result{"", outcomeOf(home), home.contradictions(ending, {.restart = true})};
    if (ending.exitStatus != 0)
      requireReason(" did not finish in time.\n", ending, result);
    append(result.violations, rehearsed.nextUpdates(rehearsed.material, home));
    report(result);
  };
}

Task endlessParentTask(const Material& material, const NextUpdates& nextUpdates) {
  return [&material, &nextUpdates](const Place& place, const auto& report) {
    Home home(material, Story::update, place.home, place.temporary);
    home.furnish();
    const Ending ending = home.run(shortWaits(), ::getpid());
    Result result{"", outcomeOf(home), home.contradictions(ending)};
    if (home.standing() != Standing::previous)
      result.violations.emplace_back("The application was updated under its parent.");
    requireReason(" did not terminate in time.\n", ending, result);
    append(result.violations, nextUpdates(material, home));
    report(result);
  };
}

}  // namespace

std::vector<PlannedSweep> limitSweeps(const Material& material, const NextUpdates& nextUpdates,
                                      const Selection& selection) {
  // Both ends alone would show nothing.
  constexpr std::size_t kStepsInEachSample = 8;
  std::vector<PlannedSweep> sweeps;
  for (const Limit& limit : limits(material)) {
    PlannedSweep sweep("limit, " + limit.name, selection);
    const std::size_t steps = limit.enough / limit.step;
    const std::size_t wide = std::max<std::size_t>(1, steps / kStepsInEachSample);
    for (std::size_t step = 0; step <= steps; ++step) {
      const std::size_t value = step == steps ? limit.enough : step * limit.step;
      const std::string name = std::to_string(value);
      if (sweep.selects(name, step % wide == 0 || step == steps))
        sweep.add(name, limitTask(material, nextUpdates, limit, value));
    }
    sweeps.push_back(std::move(sweep));
  }
  PlannedSweep readOnly("limit, a read-only temporary directory", selection);
  if (readOnly.selects("read-only"))
    readOnly.add("read-only", readOnlyTask(material, nextUpdates));
  sweeps.push_back(std::move(readOnly));
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
  return {
      .before = [](const SystemCall&) { return Fate{}; }, .calls = std::vector<long>(), .leapingClock = true};
}

PlannedSweep hangSweep(const Rehearsed& rehearsed) {
  PlannedSweep sweep("time, a tool hangs or the parent does not end", rehearsed.selection);
  const std::string parent = "a parent that does not end";
  if (sweep.selects(parent, true))
    sweep.add(parent, endlessParentTask(rehearsed.material, rehearsed.nextUpdates));
  for (const RecordedCall& call : rehearsed.calls)
    if (isByTool(call.call, rehearsed.material) && !isJudges(rehearsed, call) && sweep.selects(call.name))
      sweep.add(call.name, hangTask(rehearsed, call));
  return sweep;
}

}  // namespace rehearse
