#include "rehearse/proof/tally.hpp"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace rehearse {
namespace {

constexpr int kNameWidth = 66;
constexpr int kCountWidth = 9;

void add(std::ostream& text, const Tally& tally, const std::string& verdict) {
  text << std::left << std::setw(kNameWidth) << tally.name << std::right;
  for (const std::size_t count :
       {tally.points, tally.old, tally.offered, tally.points - tally.old - tally.offered, tally.observed})
    text << std::setw(kCountWidth) << count;
  text << "  " << verdict << '\n';
}

std::string verdictOn(const Tally& tally) {
  const std::string count = tally.violations == 0 ? "none" : std::to_string(tally.violations);
  if (tally.isControl && tally.keepsPromise())
    return count + (tally.lost != 0 ? ", as a control must" : " in this part of a control");
  if (tally.isControl)
    return count + ", and a control must lose the application";
  return tally.keepsPromise() ? count : count + ": THE PROMISE IS BROKEN OR NOT PROVED";
}

}  // namespace

Tally tallyOf(const Sweep& sweep) {
  Tally tally{
      .name = sweep.name, .isControl = sweep.isControl, .isWhole = sweep.points.size() >= sweep.total};
  const auto count = [&](PointOutcome outcome) {
    return static_cast<std::size_t>(std::ranges::count(sweep.points, outcome, &Point::outcome));
  };
  tally.points = sweep.points.size() - count(PointOutcome::notReached);
  tally.old = count(PointOutcome::previous);
  tally.offered = count(PointOutcome::offered);
  tally.lost = count(PointOutcome::lost);
  for (const Point& point : sweep.points) {
    tally.observed += point.method == PointMethod::observed ? 1U : 0U;
    tally.violations += point.violations.size();
    // Without a violation the system does not allow it, and the name says why.
    tally.failed += point.outcome == PointOutcome::notTried && !point.violations.empty() ? 1U : 0U;
  }
  return tally;
}

std::string table(const std::vector<Tally>& tallies) {
  std::ostringstream text;
  text << std::setw(kNameWidth) << "";
  for (const char* heading : {"points", "old", "new", "others", "observed"})
    text << std::setw(kCountWidth) << heading;
  text << "  violations\n";
  Tally sum{.name = "in all, without the controls"};
  for (const Tally& tally : tallies) {
    add(text, tally, verdictOn(tally));
    if (tally.isControl)
      continue;
    sum.points += tally.points;
    sum.old += tally.old;
    sum.offered += tally.offered;
    sum.observed += tally.observed;
    sum.violations += tally.violations;
  }
  add(text, sum, sum.violations == 0 ? "none" : std::to_string(sum.violations));
  return text.str();
}

}  // namespace rehearse
