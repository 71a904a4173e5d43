#include "rehearse/proof/verdict.hpp"

#include <algorithm>
#include <iterator>

namespace rehearse {
namespace {

std::string listed(const std::set<std::string>& names) {
  std::string list;
  for (const std::string& name : names)
    list += " " + name;
  return list;
}

}  // namespace

std::string wordFor(Standing standing) {
  switch (standing) {
    case Standing::previous:
      return "old";
    case Standing::offered:
      return "new";
    case Standing::damaged:
      return "damaged";
    case Standing::neither:
      return "neither";
  }
  return {};
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
    return {"No complete application stands at the target's path."};
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
  return complaints;
}

}  // namespace rehearse
