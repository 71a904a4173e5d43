#include "rehearse/proof/call_sweeps.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

#include "rehearse/proof/system_calls.hpp"
#include "rehearse/proof/verdict.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

using Kind = Fate::Kind;
using Victim = Fate::Victim;

/// Without its first memory, the loader cannot even say so.
constexpr std::size_t kFirstCallsOfLoader = 3;

/// A run makes now more, now fewer calls, when it has to wait.
std::size_t withMargin(std::size_t calls) {
  return calls + calls / 20 + 5;
}

using CallTest = bool (*)(const SystemCall&);

bool isAny(const SystemCall&) {
  return true;
}

/// The calls on which the promise depends most.
bool isChangeByUpdater(const SystemCall& call) {
  return call.byUpdater && changesFiles(call);
}

/// Decides the fate of one call, by its index among those that `concerns` selects, and remembers the call.
class AtIndex {
 public:
  AtIndex(std::size_t index, std::function<Fate(const SystemCall&)> fate, CallTest concerns = isAny)
      : index_(index), fate_(std::move(fate)), concerns_(concerns) {}

  Watcher watcher() {
    return {.before = [this](const SystemCall& call) {
      if (!concerns_(call) || count_++ != index_)
        return Fate{};
      call_ = call;
      reached_ = "call " + std::to_string(index_) + ", " + kindOf(call.number).name + " by " + call.program;
      return fate_(call);
    }};
  }

  const std::string& reached() const { return reached_; }
  const SystemCall& call() const { return call_; }

 private:
  std::size_t index_;
  std::function<Fate(const SystemCall&)> fate_;
  CallTest concerns_;
  std::size_t count_ = 0;
  std::string reached_;
  SystemCall call_;
};

Fate failing(const SystemCall& call, std::size_t error) {
  const auto& errors = kindOf(call.number).errors;
  // A file is closed even where that reports an error.
  const Kind kind = kindOf(call.number).name == "close" ? Kind::failAfter : Kind::fail;
  return {.kind = kind, .errorNumber = errors[error % errors.size()]};
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

Task faultTask(const Material& material, Story story, std::size_t index, std::size_t error,
               CallTest concerns) {
  return [=, &material](const Place& place, const auto& report) {
    Home home(material, story, place.home, place.temporary);
    home.furnish();
    std::string errorText;
    AtIndex fault(
        index,
        [&](const SystemCall& call) {
          const Fate fate = failing(call, error);
          errorText = std::strerror(fate.errorNumber);
          return fate;
        },
        concerns);
    const Ending ending = home.run(fault.watcher());
    if (fault.reached().empty()) {
      report({"", "not reached", {}});
      return;
    }
    Excuses excuses = excusesFor(fault.call());
    excuses.life = concerns == isAny && index < kFirstCallsOfLoader;
    Result result{nameOf(story) + ": " + fault.reached() + ": " + errorText, wordFor(home.standing()),
                  home.contradictions(ending, excuses)};
    append(result.violations, leftoversAgainst(ending, story, home));
    append(result.violations, nextUpdate(material, home));
    report(result);
  };
}

/// A file system that breaks: a kind of calls fails, from one on or that one alone.
struct Breakdown {
  std::string name;
  bool (*concerns)(const SystemCall&);
  Fate fate;
  bool lasts;
};

const Breakdown kReadOnly{"the disk turns read-only", changesFiles, {Kind::fail, EROFS}, true};
const std::array kOfNames{
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

/// `turn` counts the calls of the kind alone: how many of the others are made is not quite the same twice.
Task breakdownTask(const Material& material, Story story, const Breakdown& breakdown, std::size_t turn) {
  return [&material, story, &breakdown, turn](const Place& place, const auto& report) {
    Home home(material, story, place.home, place.temporary);
    home.furnish();
    std::size_t count = 0;
    const Ending ending = home.run({.before = [&](const SystemCall& call) -> Fate {
      if (!breakdown.concerns(call))
        return {};
      const bool isTurn = breakdown.lasts ? count >= turn : count == turn;
      ++count;
      return isTurn ? breakdown.fate : Fate{};
    }});
    if (count <= turn) {
      report({"", "not reached", {}});
      return;
    }
    Result result{nameOf(story) + ": " + breakdown.name + ", change " + std::to_string(turn),
                  wordFor(home.standing()), losses(home)};
    const bool endedWell = !ending.overran && ending.signal == 0 &&
                           (ending.exitStatus != 0 || home.standing() == Standing::offered);
    if (!endedWell)
      result.violations.push_back("The run ended with " + std::to_string(ending.exitStatus) + ", signal " +
                                  std::to_string(ending.signal) + ".");
    if (breakdown.concerns == isRename)
      append(result.violations, complaintsWithoutRenames(story, ending, home));
    // What failed its last verification is removed even where the previous application cannot take its place.
    if (story == Story::revert && !fs::exists(home.target()) && home.previousStandsBeside())
      result = {result.point, "beside", strangersIn(home)};
    else
      append(result.violations, nextUpdate(material, home));
    report(result);
  };
}

std::string nameOf(Victim victim) {
  switch (victim) {
    case Victim::caller:
      return "its caller";
    case Victim::tool:
      return "the tool";
    case Victim::everyone:
      return "everyone";
  }
  return {};
}

Task killTask(const Material& material, Story story, std::size_t index, Fate fate,
              std::optional<std::size_t> secondIndex) {
  return [=, &material](const Place& place, const auto& report) {
    Home home(material, story, place.home, place.temporary);
    home.furnish();
    AtIndex death(index, [fate](const SystemCall&) { return fate; });
    const Ending ending = home.run(death.watcher());
    if (death.reached().empty()) {
      report({"", "not reached", {}});
      return;
    }
    Result result{nameOf(story) + ": " + nameOf(fate.victim) + " killed " +
                      (fate.kind == Kind::killBefore ? "before " : "after ") + death.reached(),
                  wordFor(home.standing()),
                  {}};
    // With a success the previous application goes, and what was started must speak for the new one.
    result.violations = ending.exitStatus == 0 ? strangersIn(home) : losses(home);
    if (ending.signal == 0)
      append(result.violations, home.contradictions(ending, excusesForDeathAt(death.call())));
    if (secondIndex) {
      home.offer(material.update);
      AtIndex second(*secondIndex, [fate](const SystemCall&) { return fate; });
      home.run(second.watcher());
      if (home.standing() == Standing::neither)
        result.violations.push_back("After a second kill at " + second.reached() +
                                    " no complete application stands at the target's path.");
    }
    append(result.violations, nextUpdate(material, home));
    if (home.hasHalfAttachedImages())
      result.violations.push_back("The next update left a part of an image.");
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
    report({"killed before call " + std::to_string(callsBehind) + " behind the exchange",
            wordFor(home.standing()), losses(home)});
  };
}

/// Every so many of the tasks.
std::vector<Task> thinned(std::vector<Task> tasks, std::size_t every) {
  std::vector<Task> kept;
  for (std::size_t index = 0; index < tasks.size(); index += every)
    kept.push_back(std::move(tasks[index]));
  return kept;
}

/// All stories are the same up to the exchange.
std::size_t firstOfItsOwn(Story story, const std::vector<SystemCall>& calls) {
  if (story == Story::update)
    return 0;
  const auto exchange = std::ranges::find_if(calls, isExchangeOfNames);
  // A little earlier: no two runs make quite the same calls.
  return static_cast<std::size_t>(exchange - calls.begin()) - 20;
}

/// Whether an undisturbed run went as its story goes.
bool wentAsItGoes(Story story, const Ending& ending, const Home& home, const std::vector<SystemCall>& calls) {
  const bool isUpdate = story == Story::update;
  return ending.exitStatus == (isUpdate ? 0 : 1) && home.contradictions(ending).empty() &&
         home.leftovers().empty() && std::ranges::count_if(calls, isExchangeOfNames) == (isUpdate ? 1 : 2);
}

}  // namespace

std::vector<SystemCall> record(const Material& material, Story story, const Place& place) {
  Home home(material, story, place.home, place.temporary);
  home.furnish();
  std::vector<SystemCall> calls;
  const Ending ending = home.run({.before = [&](const SystemCall& call) {
    calls.push_back(call);
    return Fate{};
  }});
  if (!wentAsItGoes(story, ending, home, calls))
    throw std::runtime_error("An undisturbed " + nameOf(story) +
                             " does not go as it should: " + ending.error);
  return calls;
}

PlannedSweep faultSweep(const Material& material, Story story, const std::vector<SystemCall>& calls,
                        std::size_t every) {
  const std::size_t first = firstOfItsOwn(story, calls);
  std::vector<Task> decisive;
  std::vector<Task> others;
  std::size_t changes = 0;
  for (std::size_t index = 0; index < withMargin(calls.size()); ++index) {
    const bool isDecisive = index < calls.size() && isChangeByUpdater(calls[index]);
    const std::size_t place = isDecisive ? changes++ : index;
    const std::size_t errors = index < calls.size() ? kindOf(calls[index].number).errors.size() : 1;
    for (std::size_t error = 0; index >= first && error < errors; ++error)
      (isDecisive ? decisive : others)
          .push_back(faultTask(material, story, place, error, isDecisive ? isChangeByUpdater : isAny));
  }
  std::ranges::move(thinned(std::move(others), every), std::back_inserter(decisive));
  return {nameOf(story) + ", one call fails", std::move(decisive)};
}

std::vector<PlannedSweep> breakdownSweeps(const Material& material, Story story,
                                          const std::vector<SystemCall>& calls, std::size_t every) {
  const auto sweepOf = [&](const Breakdown& breakdown) {
    const auto own = calls.begin() + static_cast<std::ptrdiff_t>(firstOfItsOwn(story, calls));
    const auto changes = static_cast<std::size_t>(std::ranges::count_if(calls, breakdown.concerns));
    std::vector<Task> tasks;
    for (auto turn = static_cast<std::size_t>(std::count_if(calls.begin(), own, breakdown.concerns));
         turn < changes; ++turn)
      tasks.push_back(breakdownTask(material, story, breakdown, turn));
    return PlannedSweep{nameOf(story) + ", " + breakdown.name, std::move(tasks)};
  };
  std::vector<PlannedSweep> sweeps{sweepOf(kReadOnly)};
  sweeps.front().tasks = thinned(std::move(sweeps.front().tasks), every);
  // Changes of names are few: all of them are tried.
  for (const Breakdown& breakdown : kOfNames)
    sweeps.push_back(sweepOf(breakdown));
  return sweeps;
}

PlannedSweep killSweep(const Material& material, Story story, const std::vector<SystemCall>& calls,
                       std::size_t every) {
  std::vector<Task> tasks;
  for (std::size_t index = firstOfItsOwn(story, calls); index < withMargin(calls.size()); ++index)
    for (const Victim victim : {Victim::caller, Victim::tool, Victim::everyone}) {
      // The tool is its own calls' caller.
      if (victim == Victim::tool && index < calls.size() && calls[index].byUpdater)
        continue;
      for (const Kind kind : {Kind::killBefore, Kind::killAfter})
        tasks.push_back(killTask(material, story, index, {.kind = kind, .victim = victim}, std::nullopt));
    }
  return {nameOf(story) + ", a kill", thinned(std::move(tasks), every)};
}

PlannedSweep secondKillSweep(const Material& material, Story story, const std::vector<SystemCall>& calls,
                             std::size_t every) {
  std::vector<Task> tasks;
  const Fate fate{.kind = Kind::killBefore, .victim = Victim::everyone};
  // A step that has no divisor in common with most numbers pairs the places in many ways.
  for (std::size_t index = firstOfItsOwn(story, calls); index < calls.size(); ++index)
    tasks.push_back(killTask(material, story, index, fate, index * 7919 % calls.size()));
  return {nameOf(story) + ", a kill and another in the update after", thinned(std::move(tasks), every)};
}

PlannedSweep killSweepWithoutExchange(const Material& material) {
  constexpr std::size_t kStepsInItsPlace = 8;
  PlannedSweep sweep{"update, a kill, without an exchange of names", {}, true};
  for (std::size_t calls = 1; calls <= kStepsInItsPlace; ++calls)
    sweep.tasks.push_back(killTaskWithoutExchange(material, calls));
  return sweep;
}

}  // namespace rehearse
