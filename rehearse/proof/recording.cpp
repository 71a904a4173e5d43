#include "rehearse/proof/recording.hpp"

#include <algorithm>
#include <list>
#include <map>
#include <set>
#include <sstream>
#include <utility>

#include "platform/foundation/error.hpp"
#include "rehearse/proof/call_names.hpp"
#include "rehearse/proof/disk_observer.hpp"
#include "rehearse/proof/system_calls.hpp"

namespace rehearse {
namespace {

/// Whether an undisturbed run went as its story goes.
bool wentAsItGoes(Story story, const Ending& ending, const Home& home,
                  const std::vector<RecordedCall>& calls) {
  const bool isUpdate = story == Story::update;
  return ending.exitStatus == (isUpdate ? 0 : 1) && home.contradictions(ending).empty() &&
         home.leftovers().empty() &&
         std::ranges::count_if(calls, isExchangeOfNames, &RecordedCall::call) == (isUpdate ? 1 : 2);
}

std::string complaint(Story story, const Ending& ending, const Home& home) {
  std::string text = "An undisturbed " + nameOf(story) + " does not go as expected: " + ending.error;
  for (const std::string& contradiction : home.contradictions(ending))
    text += " " + contradiction;
  for (const std::string& name : home.leftovers())
    text += " There is left " + name + ".";
  return text;
}

/// Whether a call is made in each run. How the memory of several threads is arranged is not the same twice.
bool isSteady(const SystemCall& call, std::set<pid_t>& forked) {
  const std::string& name = kindOf(call.number).name;
  if (name == "clone" || name == "clone3")
    forked.insert(call.process);
  return !forked.contains(call.process) || (name != "munmap" && name != "mprotect");
}

std::vector<RecordedCall> recordIn(const Place& place, const Material& material, Story story) {
  Home home(material, story, place.home, place.temporary);
  home.furnish();
  DiskObserver disk(home);
  CallNames names(material.updater.filename());
  CallNames changeNames(material.updater.filename());
  std::vector<RecordedCall> calls;
  std::set<pid_t> forked;
  std::list<std::size_t> pending;
  const auto before = [&](const SystemCall& call) {
    std::string name = names.next(call);
    if (isSteady(call, forked)) {
      calls.push_back({std::move(name), changesFiles(call) ? changeNames.next(call) : "", call});
      if (changesFiles(call))
        pending.push_back(calls.size() - 1);
    }
    return Fate{};
  };
  const auto after = [&](const SystemCall& call, std::int64_t) {
    const auto found = std::ranges::find_if(pending, [&](std::size_t index) {
      const SystemCall& begun = calls[index].call;
      return begun.process == call.process && begun.number == call.number &&
             begun.arguments == call.arguments;
    });
    if (found == pending.end())
      return;
    calls[*found].after = disk.state();
    pending.erase(found);
  };
  const Ending ending = home.run({.before = before, .after = after, .wantsAfter = changesFiles});
  if (!wentAsItGoes(story, ending, home, calls))
    throw platform::Error(complaint(story, ending, home));
  return calls;
}

/// One call a line, and the states in lines before the first call that has them.
std::string textOf(const std::vector<RecordedCall>& calls) {
  std::map<std::string, std::size_t> states;
  std::ostringstream text;
  const auto numberOf = [&](const std::string& state) {
    const auto [place, isNew] = states.try_emplace(state, states.size());
    if (isNew)
      text << "s " << state << '\n';
    return place->second;
  };
  for (const RecordedCall& call : calls) {
    const std::size_t after = numberOf(call.after);
    text << "c " << after << ' ' << call.call.process << ' ' << call.call.byUpdater << ' ' << call.call.alone
         << ' ' << call.call.number;
    for (const std::uint64_t argument : call.call.arguments)
      text << ' ' << argument;
    text << ' ' << call.call.program << '\t' << call.name << '\t' << call.change << '\n';
  }
  return text.str();
}

std::vector<RecordedCall> fromText(const std::string& text) {
  std::istringstream lines(text);
  std::vector<std::string> states;
  std::vector<RecordedCall> calls;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("s ")) {
      states.push_back(line.substr(2));
      continue;
    }
    std::istringstream fields(line.substr(2));
    std::size_t after = 0;
    RecordedCall call;
    fields >> after >> call.call.process >> call.call.byUpdater >> call.call.alone >> call.call.number;
    for (std::uint64_t& argument : call.call.arguments)
      fields >> argument;
    fields.get();
    std::getline(fields, call.call.program, '\t');
    std::getline(fields, call.name, '\t');
    std::getline(fields, call.change);
    call.after = states.at(after);
    calls.push_back(std::move(call));
  }
  return calls;
}

}  // namespace

std::vector<RecordedCall> record(const Material& material, Story story, const Workshop& workshop) {
  return fromText(
      inPlace(workshop, [&](const Place& place) { return textOf(recordIn(place, material, story)); }));
}

}  // namespace rehearse
