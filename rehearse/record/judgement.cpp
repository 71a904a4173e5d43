#include <algorithm>

#include "rehearse/record/rehearsal.hpp"

namespace rehearse {

std::string versionOf(const ApplicationName& name) {
  const auto known = [](const std::string& value) { return value.empty() ? "?" : value; };
  return known(name.version) + " (" + known(name.build) + ")";
}

bool isFault(const Sweep& sweep, const Point& point) {
  if (point.outcome == PointOutcome::lost)
    return !sweep.isControl;
  return !point.violations.empty();
}

bool isFault(const Sweep& sweep) {
  if (std::ranges::any_of(sweep.points, [&](const Point& point) { return isFault(sweep, point); }))
    return true;
  const auto isKept = [](const Point& point) {
    return point.outcome != PointOutcome::lost && point.outcome != PointOutcome::notTried;
  };
  return sweep.isControl && sweep.points.size() == sweep.total && std::ranges::all_of(sweep.points, isKept);
}

bool isUntried(const Sweep& sweep) {
  return sweep.total == 1 && sweep.points.size() == 1 &&
         sweep.points.front().outcome == PointOutcome::notTried;
}

bool isFault(const Pairing& pairing) {
  return !pairing.wouldInstall || std::ranges::any_of(pairing.steps, [](const Step& step) {
    return step.verdict == StepVerdict::failed;
  }) || std::ranges::any_of(pairing.findings, [](const Finding& finding) {
    return finding.severity == Severity::fault;
  }) || std::ranges::any_of(pairing.sweeps, [](const Sweep& sweep) { return isFault(sweep); });
}

int exitStatus(const Rehearsal& rehearsal) {
  const bool isGood =
      !rehearsal.pairings.empty() &&
      std::ranges::none_of(rehearsal.pairings, [](const Pairing& pairing) { return isFault(pairing); });
  return isGood ? 0 : 1;
}

}  // namespace rehearse
