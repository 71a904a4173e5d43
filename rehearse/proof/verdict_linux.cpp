#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include "rehearse/files/trees.hpp"
#include "rehearse/proof/verdict.hpp"

namespace fs = std::filesystem;

namespace rehearse {
namespace {

std::string listed(const std::set<std::string>& names) {
  std::string list;
  for (const std::string& name : names)
    list += " " + name;
  return list;
}

}  // namespace

PointOutcome outcomeOf(const Home& home) {
  switch (home.standing()) {
    case Standing::previous:
      return PointOutcome::previous;
    case Standing::offered:
      return PointOutcome::offered;
    case Standing::damaged:
      return home.previousStandsBeside() ? PointOutcome::beside : PointOutcome::lost;
    case Standing::neither:
      return PointOutcome::lost;
  }
  return PointOutcome::lost;
}

void append(std::vector<std::string>& to, const std::vector<std::string>& more) {
  to.insert(to.end(), more.begin(), more.end());
}

std::vector<std::string> strangersIn(const Home& home) {
  const std::set<std::string> strangers = home.strangers();
  if (strangers.empty())
    return {};
  return {"There is left, under a name that no part of an update gives," + listed(strangers)};
}

std::vector<std::string> losses(const Home& home) {
  if (home.standing() == Standing::neither)
    return {"There is no complete application at the target's path."};
  if (home.isNoGood() && !home.previousStandsBeside())
    return {"The previous application is lost."};
  return strangersIn(home);
}

std::vector<std::string> leftoversAgainst(const Ending& ending, Story story, const Home& home) {
  const std::set<std::string> names = home.leftovers();
  const bool wentAsItGoes = (ending.exitStatus == 0) == (story == Story::update);
  // An image is attached and its device is not known.
  const bool outputWasLost = ending.error.find("\"/tmp/QuorinCommand-") != std::string::npos;
  if (home.strangers().empty() && names.size() <= (wentAsItGoes || outputWasLost ? 1U : 0U))
    return {};
  return {"There is left" + listed(names)};
}

std::vector<std::string> nextUpdate(const Material& material, Home& home) {
  const std::set<std::string> before = home.leftovers();
  const bool isDamaged = home.isDamaged();
  home.offer(material.next);
  const Ending ending = home.runUndisturbed();
  if (isDamaged)
    return ending.exitStatus == 1 ? std::vector<std::string>()
                                  : std::vector<std::string>{"A damaged application was updated."};
  std::vector<std::string> complaints = home.contradictions(ending);
  if (ending.exitStatus != 0 || !home.stands(material.next))
    complaints.push_back("The next update failed: " + ending.error);
  std::set<std::string> added;
  std::ranges::set_difference(home.leftovers(), before, std::inserter(added, added.end()));
  if (!added.empty())
    complaints.push_back("The next update left" + listed(added));
  if (home.hasHalfAttachedImages())
    complaints.emplace_back("The next update left a part of an image.");
  return complaints;
}

NextUpdates::NextUpdates(fs::path directory) : directory_(std::move(directory)) {
  fs::create_directories(directory_);
}

std::vector<std::string> NextUpdates::operator()(const Material& material, Home& home) const {
  const fs::path known = directory_ / (nameOf(home.story()) + "-" + home.digest());
  std::vector<std::string> complaints;
  if (fs::exists(known)) {
    std::ifstream lines(known);
    for (std::string line; std::getline(lines, line);)
      complaints.push_back(line);
    return complaints;
  }
  complaints = nextUpdate(material, home);
  std::string text;
  for (std::string line : complaints) {
    std::ranges::replace(line, '\n', ' ');
    text += line + '\n';
  }
  // Another process may have found the same; what is there is complete at each moment.
  const fs::path written = known.native() + "-" + std::to_string(::getpid());
  writeFile(written, text);
  fs::rename(written, known);
  return complaints;
}

}  // namespace rehearse
