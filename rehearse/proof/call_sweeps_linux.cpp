#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

#include "rehearse/proof/at_call.hpp"
#include "rehearse/proof/call_sweeps.hpp"
#include "rehearse/proof/disk_observer.hpp"
#include "rehearse/proof/system_calls.hpp"
#include "rehearse/proof/verdict.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using Kind = Fate::Kind;
using Victim = Fate::Victim;

/// Without its first memory, the loader cannot even say so.
constexpr std::size_t kFirstCallsOfLoader = 3;

/// The calls on which the promise depends most.
bool isChangeByUpdater(const SystemCall& call) {
  return call.byUpdater && changesFiles(call);
}

Fate failing(const SystemCall& call, int error) {
  // A file is closed even where that reports an error.
  const Kind kind = kindOf(call.number).name == "close" ? Kind::failAfter : Kind::fail;
  return {.kind = kind, .errorNumber = error};
}

/// What the failure of one call may take away.
Excuses excusesFor(const SystemCall& call) {
  const bool writesLine =
      call.byUpdater && kindOf(call.number).name == "write" && call.arguments[0] == STDERR_FILENO;
  return {.status = call.byUpdater,
          .line = writesLine,
          .restart = call.program != "ditto" && call.program != "hdiutil"};
}

/// A process that "open" has made is the application's, whether or not it has got as far as its program.
Excuses excusesForDeathAt(const SystemCall& call) {
  Excuses excuses = excusesFor(call);
  excuses.start = call.program == "open";
  return excuses;
}

Task faultTask(const Rehearsed& rehearsed, const RecordedCall& call, int error, bool isFirst) {
  return [=, &call](const Place& place, const auto& report) {
    Home home(rehearsed.material, rehearsed.story, place.home, place.temporary);
    home.furnish();
    AtCall fault(rehearsed.material, call, failing(call.call, error));
    const Ending ending = home.run(fault.watcher());
    if (!fault.isReached()) {
      report({"", PointOutcome::notReached});
      return;
    }
    Excuses excuses = excusesFor(call.call);
    excuses.life = isFirst;
    Result result{"", outcomeOf(home), home.contradictions(ending, excuses)};
    append(result.violations, leftoversAgainst(ending, rehearsed.story, home));
    append(result.violations, rehearsed.nextUpdates(rehearsed.material, home));
    report(result);
  };
}

/// A file system that breaks: a kind of calls fails, from one on or that one alone.
struct Breakdown {
  const char* name;
  bool (*concerns)(const SystemCall&);
  Fate fate;
  bool lasts;
};

constexpr Breakdown kReadOnly{"the disk turns read-only", changesFiles, {Kind::fail, EROFS}, true};
constexpr std::array kOfNames{
    Breakdown{"names can no longer be changed", isRename, {Kind::fail, EIO}, true},
    Breakdown{"a name is changed, and the answer is an error", isRename, {Kind::failAfter, EIO}, false},
    Breakdown{"a name is changed, and the call interrupted", isRename, {Kind::failAfter, EINTR}, false},
    Breakdown{"a name is reported as changed", isRename, {Kind::pretend}, false}};

/// What must hold where only names cannot be changed: files can be removed, and messages written.
std::vector<std::string> complaintsWithoutRenames(Story story, const Ending& ending, const Home& home) {
  if (home.isDamaged())
    return {"What failed its last verification is still at the target's path."};
  if (story == Story::rollback && home.isNoGood() &&
      ending.error.find("restoring the previous app failed: ") == std::string::npos)
    return {"Standard error does not say that the rollback failed: " + ending.error};
  return {};
}

/// `turn` counts the calls of the kind alone.
Task breakdownTask(const Rehearsed& rehearsed, const Breakdown& breakdown, std::size_t turn) {
  return [=, &breakdown](const Place& place, const auto& report) {
    const Story story = rehearsed.story;
    Home home(rehearsed.material, story, place.home, place.temporary);
    home.furnish();
    std::size_t count = 0;
    const Ending ending =
        home.run({.before = [&](const SystemCall& call) -> Fate {
                    if (!breakdown.concerns(call))
                      return {};
                    const bool isTurn = breakdown.lasts ? count >= turn : count == turn;
                    ++count;
                    return isTurn ? breakdown.fate : Fate{};
                  },
                  .calls = breakdown.concerns == isRename ? renames() : callsThatChangeFiles()});
    if (count <= turn) {
      report({"", PointOutcome::notReached});
      return;
    }
    Result result{"", outcomeOf(home), losses(home)};
    const bool endedWell = !ending.overran && ending.signal == 0 &&
                           (ending.exitStatus != 0 || home.standing() == Standing::offered);
    if (!endedWell)
      result.violations.push_back("The run ended with " + std::to_string(ending.exitStatus) + ", signal " +
                                  std::to_string(ending.signal) + ".");
    if (breakdown.concerns == isRename)
      append(result.violations, complaintsWithoutRenames(story, ending, home));
    // What failed its last verification is removed even where the previous application cannot take its place.
    if (story == Story::revert && !fs::exists(home.target()) && home.previousStandsBeside())
      result = {"", PointOutcome::beside, strangersIn(home)};
    else
      append(result.violations, rehearsed.nextUpdates(rehearsed.material, home));
    report(result);
  };
}

std::string nameOf(Victim victim) {
  return victim == Victim::caller ? "its caller" : "the updater";
}

constexpr Fate kDeathOfEveryone{.kind = Kind::killAfter, .victim = Victim::everyone};

Task killTask(const Rehearsed& rehearsed, const RecordedCall& call, Fate fate, const RecordedCall* second) {
  return [=, &call](const Place& place, const auto& report) {
    Home home(rehearsed.material, rehearsed.story, place.home, place.temporary);
    home.furnish();
    const auto among = fate.victim == Victim::everyone ? AtCall::Among::changes : AtCall::Among::calls;
    AtCall death(rehearsed.material, call, fate, among);
    const Ending ending = home.run(death.watcher());
    if (!death.isReached()) {
      report({"", PointOutcome::notReached});
      return;
    }
    Result result{"", outcomeOf(home)};
    // With a success the previous application goes, and what was started must speak for the new one.
    result.violations = ending.exitStatus == 0 ? strangersIn(home) : losses(home);
    if (ending.signal == 0)
      append(result.violations, home.contradictions(ending, excusesForDeathAt(call.call)));
    if (fate.victim == Victim::everyone && second == nullptr)
      result.state = DiskObserver(home).state();
    if (second != nullptr) {
      home.offer(rehearsed.material.update);
      home.run(AtCall(rehearsed.material, *second, fate, among).watcher());
      if (home.standing() == Standing::neither)
        result.violations.push_back("After a second kill at \"" + second->change +
                                    "\" no complete application is at the target's path.");
    }
    append(result.violations, rehearsed.nextUpdates(rehearsed.material, home));
    report(result);
  };
}

/// Everyone dies so many calls behind an exchange that the file system does not know.
Task killTaskWithoutExchange(const Material& material, std::size_t callsBehind) {
  return [&material, callsBehind](const Place& place, const auto& report) {
    Home home(material, Story::update, place.home, place.temporary);
    home.furnish();
    std::optional<std::size_t> sinceExchange;
    home.run({.before = [&](const SystemCall& call) -> Fate {
      if (isExchangeOfNames(call) && !sinceExchange) {
        sinceExchange = 0;
        return {.kind = Kind::fail, .errorNumber = EINVAL};
      }
      if (sinceExchange && call.byUpdater && ++*sinceExchange == callsBehind)
        return {.kind = Kind::killBefore, .victim = Victim::everyone};
      return {};
    }});
    report({"", outcomeOf(home), losses(home)});
  };
}

/// All stories are the same up to the exchange; a little earlier a story's own calls begin.
std::size_t firstOfItsOwn(const Rehearsed& rehearsed) {
  constexpr std::ptrdiff_t kCallsBefore = 20;
  if (rehearsed.story == Story::update)
    return 0;
  const auto& calls = rehearsed.calls;
  const auto exchange = std::ranges::find_if(calls, isExchangeOfNames, &RecordedCall::call);
  return static_cast<std::size_t>(std::max<std::ptrdiff_t>(exchange - calls.begin() - kCallsBefore, 0));
}

/// The story's own calls, with their indices.
template <typename Use>
void forOwnCalls(const Rehearsed& rehearsed, const Use& use) {
  for (std::size_t index = firstOfItsOwn(rehearsed); index < rehearsed.calls.size(); ++index)
    if (!isJudges(rehearsed, rehearsed.calls[index]))
      use(index, rehearsed.calls[index]);
}

std::string nameOf(int error) {
  const char* name = ::strerrorname_np(error);
  return name != nullptr ? name : std::to_string(error);
}

}  // namespace

bool isJudges(const Rehearsed& rehearsed, const RecordedCall& call) {
  return rehearsed.material.starts->areJudged() && call.call.program == "open";
}

PlannedSweep faultSweep(const Rehearsed& rehearsed) {
  PlannedSweep sweep(nameOf(rehearsed.story) + ", one call fails", rehearsed.selection);
  forOwnCalls(rehearsed, [&](std::size_t index, const RecordedCall& call) {
    for (const int error : kindOf(call.call.number).errors) {
      const std::string name = call.name + ": " + nameOf(error);
      if (sweep.selects(name, isChangeByUpdater(call.call)))
        sweep.add(name, faultTask(rehearsed, call, error, index < kFirstCallsOfLoader));
    }
  });
  return sweep;
}

std::vector<PlannedSweep> breakdownSweeps(const Rehearsed& rehearsed) {
  const auto& calls = rehearsed.calls;
  const auto sweepOf = [&](const Breakdown& breakdown, bool isWhole) {
    PlannedSweep sweep(nameOf(rehearsed.story) + ", " + breakdown.name, rehearsed.selection);
    std::size_t turn = 0;
    for (std::size_t index = 0; index < calls.size(); ++index) {
      if (!breakdown.concerns(calls[index].call))
        continue;
      const std::string& name = calls[index].name;
      if (index >= firstOfItsOwn(rehearsed) && !isJudges(rehearsed, calls[index]) &&
          sweep.selects(name, isWhole))
        sweep.add(name, breakdownTask(rehearsed, breakdown, turn));
      ++turn;
    }
    return sweep;
  };
  std::vector<PlannedSweep> sweeps{sweepOf(kReadOnly, false)};
  // Changes of names are few: all of them are tried.
  for (const Breakdown& breakdown : kOfNames)
    sweeps.push_back(sweepOf(breakdown, true));
  return sweeps;
}

PlannedSweep killSweep(const Rehearsed& rehearsed) {
  constexpr std::size_t kSamplesOfState = 3;
  const bool isThinned = rehearsed.selection.every > 1;
  PlannedSweep sweep(nameOf(rehearsed.story) + ", a kill of everyone", rehearsed.selection, false,
                     isThinned ? 0 : kSamplesOfState);
  bool isFirst = true;
  forOwnCalls(rehearsed, [&](std::size_t, const RecordedCall& call) {
    if (call.after.empty())
      return;
    if (std::exchange(isFirst, false) && sweep.selects(call.change + ": before it", true))
      sweep.add(call.change + ": before it",
                killTask(rehearsed, call, {.kind = Kind::killBefore, .victim = Victim::everyone}, nullptr));
    if (sweep.selects(call.change, true))
      sweep.add(call.change, killTask(rehearsed, call, kDeathOfEveryone, nullptr), call.after);
  });
  return sweep;
}

PlannedSweep killSweepOfOne(const Rehearsed& rehearsed) {
  PlannedSweep sweep(nameOf(rehearsed.story) + ", a kill of one", rehearsed.selection);
  forOwnCalls(rehearsed, [&](std::size_t, const RecordedCall& call) {
    if (call.call.alone)
      return;
    for (const Victim victim : {Victim::caller, Victim::tool}) {
      // The updater is its own calls' caller.
      if (victim == Victim::tool && call.call.byUpdater)
        continue;
      for (const Kind kind : {Kind::killBefore, Kind::killAfter}) {
        const std::string name = call.name + (kind == Kind::killBefore ? ": before it " : ": after it ") +
                                 nameOf(victim) + " killed";
        if (sweep.selects(name))
          sweep.add(name, killTask(rehearsed, call, {.kind = kind, .victim = victim}, nullptr));
      }
    }
  });
  return sweep;
}

PlannedSweep secondKillSweep(const Rehearsed& rehearsed) {
  // A step that has no divisor in common with most numbers pairs the places in many ways.
  constexpr std::size_t kStep = 7919;
  PlannedSweep sweep(nameOf(rehearsed.story) + ", a kill and another in the update after",
                     rehearsed.selection);
  std::vector<const RecordedCall*> changes;
  for (const RecordedCall& call : rehearsed.calls)
    if (!call.after.empty())
      changes.push_back(&call);
  // The order of names is the same in each run, that of the calls is not.
  const auto nameOfChange = [](const RecordedCall* call) -> const std::string& { return call->change; };
  std::ranges::sort(changes, {}, nameOfChange);
  forOwnCalls(rehearsed, [&](std::size_t, const RecordedCall& call) {
    if (call.after.empty())
      return;
    const auto place = static_cast<std::size_t>(
        std::ranges::lower_bound(changes, call.change, {}, nameOfChange) - changes.begin());
    const RecordedCall& second = *changes[place * kStep % changes.size()];
    const std::string name = call.change + ", then " + second.change;
    if (sweep.selects(name))
      sweep.add(name, killTask(rehearsed, call, kDeathOfEveryone, &second));
  });
  return sweep;
}

PlannedSweep killSweepWithoutExchange(const Material& material, const Selection& selection) {
  constexpr std::size_t kStepsInItsPlace = 8;
  PlannedSweep sweep("update, a kill, without an exchange of names", selection, true);
  for (std::size_t calls = 1; calls <= kStepsInItsPlace; ++calls) {
    const std::string name = "call " + std::to_string(calls) + " after the exchange";
    if (sweep.selects(name, true))
      sweep.add(name, killTaskWithoutExchange(material, calls));
  }
  return sweep;
}

}  // namespace rehearse
