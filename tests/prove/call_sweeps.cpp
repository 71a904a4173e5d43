#include "tests/prove/call_sweeps.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "tests/prove/system_calls.hpp"
#include "tests/prove/verdict.hpp"

namespace prove {
namespace {

using Kind = Fate::Kind;
using Victim = Fate::Victim;

/// A run makes now more, now fewer calls, when it has to wait.
std::size_t withMargin(std::size_t calls) {
  return calls + calls / 20 + 5;
}

/// Decides the fate of the call with this index alone, and remembers which it was.
class AtIndex {
 public:
  AtIndex(std::size_t index, std::function<Fate(const SystemCall&)> fate)
      : index_(index), fate_(std::move(fate)) {}

  Watcher watcher() {
    return {.before = [this](const SystemCall& call) {
      if (count_++ != index_)
        return Fate{};
      reached_ = "call " + std::to_string(index_) + ", " + kindOf(call.number).name + " by " + call.program;
      return fate_(call);
    }};
  }

  const std::string& reached() const { return reached_; }

 private:
  std::size_t index_;
  std::function<Fate(const SystemCall&)> fate_;
  std::size_t count_ = 0;
  std::string reached_;
};

Fate failing(const SystemCall& call, std::size_t error) {
  const auto& errors = kindOf(call.number).errors;
  // A file is closed even where that reports an error.
  const Kind kind = kindOf(call.number).name == "close" ? Kind::failAfter : Kind::fail;
  return {.kind = kind, .errorNumber = errors[error % errors.size()]};
}

Task faultTask(const Material& material, Story story, std::size_t index, std::size_t error) {
  return [&material, story, index, error](const Place& place, const auto& report) {
    Home home(material, story, place.home, place.temporary);
    home.furnish();
    std::string errorText;
    AtIndex fault(index, [&](const SystemCall& call) {
      const Fate fate = failing(call, error);
      errorText = std::strerror(fate.errorNumber);
      return fate;
    });
    const Ending ending = home.run(fault.watcher());
    if (fault.reached().empty()) {
      report({"", "not reached", {}});
      return;
    }
    Result result{nameOf(story) + ": " + fault.reached() + ": " + errorText, wordFor(home.standing()),
                  home.contradictions(ending)};
    append(result.violations, leftoversAgainst(ending, story, home));
    append(result.violations, nextUpdate(material, home));
    report(result);
  };
}

/// True for calls that a file system that has become read-only refuses.
bool changesFiles(const SystemCall& call) {
  if (kindOf(call.number).name == "openat")
    return (call.arguments[2] & (O_WRONLY | O_RDWR | O_CREAT | O_TRUNC)) != 0;
  return kindOf(call.number).changesFiles;
}

Task brokenDiskTask(const Material& material, Story story, std::size_t index) {
  return [&material, story, index](const Place& place, const auto& report) {
    Home home(material, story, place.home, place.temporary);
    home.furnish();
    std::size_t count = 0;
    const Ending ending = home.run({.before = [&](const SystemCall& call) -> Fate {
      if (count++ < index || !changesFiles(call))
        return {};
      return {.kind = Kind::fail, .errorNumber = EROFS};
    }});
    Result result{nameOf(story) + ": read-only from call " + std::to_string(index) + " on",
                  wordFor(home.standing()),
                  {}};
    if (home.standing() == Standing::neither)
      result.violations.push_back("No complete application stands at the target's path.");
    if (ending.overran || ending.signal != 0 ||
        (ending.exitStatus == 0 && home.standing() != Standing::offered))
      result.violations.push_back("The run ended with " + std::to_string(ending.exitStatus) + ", signal " +
                                  std::to_string(ending.signal));
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
    if (home.standing() == Standing::neither)
      result.violations.push_back("No complete application stands at the target's path.");
    if (ending.signal == 0)
      append(result.violations, home.contradictions(ending));
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

bool isExchange(const SystemCall& call) {
  return kindOf(call.number).name == "renameat2" && call.arguments[4] == RENAME_EXCHANGE;
}

Task killTaskWithoutExchange(const Material& material, std::size_t index) {
  return [&material, index](const Place& place, const auto& report) {
    Home home(material, Story::update, place.home, place.temporary);
    home.furnish();
    AtIndex death(
        index, [](const SystemCall&) { return Fate{.kind = Kind::killBefore, .victim = Victim::everyone}; });
    const Watcher killing = death.watcher();
    home.run({.before = [&](const SystemCall& call) {
      const Fate fate = killing.before(call);
      return isExchange(call) ? Fate{.kind = Kind::fail, .errorNumber = EINVAL} : fate;
    }});
    report({"killed before " + death.reached(), wordFor(home.standing()), losses(home)});
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
  const auto exchange = std::ranges::find_if(calls, isExchange);
  return static_cast<std::size_t>(exchange - calls.begin());
}

}  // namespace

std::vector<SystemCall> record(const Material& material, Story story, const Place& place) {
  Home home(material, story, place.home, place.temporary);
  home.furnish();
  std::vector<SystemCall> calls;
  home.run({.before = [&](const SystemCall& call) {
    calls.push_back(call);
    return Fate{};
  }});
  return calls;
}

Sweep faultSweep(const Material& material, Story story, const std::vector<SystemCall>& calls,
                 std::size_t every) {
  std::vector<Task> tasks;
  for (std::size_t index = firstOfItsOwn(story, calls); index < withMargin(calls.size()); ++index) {
    const std::size_t errors = index < calls.size() ? kindOf(calls[index].number).errors.size() : 1;
    for (std::size_t error = 0; error < errors; ++error)
      tasks.push_back(faultTask(material, story, index, error));
  }
  return {nameOf(story) + ", one call fails", thinned(std::move(tasks), every)};
}

Sweep brokenDiskSweep(const Material& material, Story story, const std::vector<SystemCall>& calls,
                      std::size_t every) {
  std::vector<Task> tasks;
  for (std::size_t index = firstOfItsOwn(story, calls); index < calls.size(); ++index)
    if (changesFiles(calls[index]))
      tasks.push_back(brokenDiskTask(material, story, index));
  return {nameOf(story) + ", the disk turns read-only", thinned(std::move(tasks), every)};
}

Sweep killSweep(const Material& material, Story story, const std::vector<SystemCall>& calls,
                std::size_t every) {
  std::vector<Task> tasks;
  for (std::size_t index = firstOfItsOwn(story, calls); index < withMargin(calls.size()); ++index)
    for (const Victim victim : {Victim::caller, Victim::tool, Victim::everyone}) {
      // The tool is its own calls' caller.
      if (victim == Victim::tool && index < calls.size() && calls[index].byTool)
        continue;
      for (const Kind kind : {Kind::killBefore, Kind::killAfter})
        tasks.push_back(killTask(material, story, index, {.kind = kind, .victim = victim}, std::nullopt));
    }
  return {nameOf(story) + ", a kill", thinned(std::move(tasks), every)};
}

Sweep secondKillSweep(const Material& material, Story story, const std::vector<SystemCall>& calls,
                      std::size_t every) {
  std::vector<Task> tasks;
  const Fate fate{.kind = Kind::killBefore, .victim = Victim::everyone};
  // A step that has no divisor in common with most numbers pairs the places in many ways.
  for (std::size_t index = firstOfItsOwn(story, calls); index < calls.size(); ++index)
    tasks.push_back(killTask(material, story, index, fate, index * 7919 % calls.size()));
  return {nameOf(story) + ", a kill and another in the update after", thinned(std::move(tasks), every)};
}

Sweep killSweepWithoutExchange(const Material& material, const std::vector<SystemCall>& calls) {
  constexpr std::size_t kStepsInItsPlace = 8;
  const auto exchange = static_cast<std::size_t>(std::ranges::find_if(calls, isExchange) - calls.begin());
  Sweep sweep{"update, a kill, without an exchange of names", {}, true};
  for (std::size_t index = exchange; index < exchange + kStepsInItsPlace; ++index)
    sweep.tasks.push_back(killTaskWithoutExchange(material, index));
  return sweep;
}

}  // namespace prove
