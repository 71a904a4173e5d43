#include "rehearse/proof/sweep.hpp"

#include <algorithm>
#include <map>
#include <set>

#include "rehearse/proof/workers.hpp"

namespace rehearse {
namespace {

/// Points that leave the same on the disk.
struct SameState {
  std::vector<const PlannedPoint*> points;
  const Point* confirmation = nullptr;  ///< of a run that left that state
  const Point* worst = nullptr;         ///< of a run that left that state and broke a promise
};

class SweepRun {
 public:
  SweepRun(const PlannedSweep& sweep, const Workshop& workshop,
           const std::function<void(const Point&)>& report)
      : sweep_(sweep), workshop_(workshop), report_(report) {}

  Sweep run() {
    std::vector<const PlannedPoint*> next;
    for (const PlannedPoint& point : sweep_.points())
      if (point.state.empty())
        next.push_back(&point);
      else
        states_[point.state].points.push_back(&point);
    for (const auto& entry : states_)
      sample(entry.second, next);
    while (!next.empty()) {
      tryAll(next);
      next.clear();
      for (const auto& entry : states_)
        if (entry.second.confirmation == nullptr)
          untried(entry.second, next);
    }
    for (const auto& entry : states_)
      observe(entry.second);
    return sorted();
  }

 private:
  void sample(const SameState& state, std::vector<const PlannedPoint*>& into) const {
    const std::size_t samples = sweep_.samplesOfState();
    const std::size_t step = std::max<std::size_t>(1, state.points.size() / (samples + 1));
    for (std::size_t index = 0; index < state.points.size() && index <= step * samples; index += step)
      into.push_back(state.points[index]);
  }

  /// The next point of a state that no run has confirmed.
  void untried(const SameState& state, std::vector<const PlannedPoint*>& into) const {
    const auto found = std::ranges::find_if(
        state.points, [this](const PlannedPoint* point) { return !begun_.contains(point); });
    if (found != state.points.end())
      into.push_back(*found);
  }

  void tryAll(const std::vector<const PlannedPoint*>& points) {
    begun_.insert(points.begin(), points.end());
    runPoints(points, workshop_, [this](const Result& result) {
      const auto [place, isNew] = results_.insert_or_assign(
          result.point, Point{result.point, result.outcome, PointMethod::run, result.violations});
      if (isNew)
        order_.push_back(result.point);
      if (const auto state = states_.find(result.state); state != states_.end()) {
        state->second.confirmation = &place->second;
        if (!result.violations.empty())
          state->second.worst = &place->second;
      }
      report_(place->second);
    });
  }

  void observe(const SameState& state) {
    for (const PlannedPoint* planned : state.points) {
      if (results_.contains(planned->name) || state.confirmation == nullptr)
        continue;
      Point point{planned->name, state.confirmation->outcome, PointMethod::observed, {}};
      if (state.worst != nullptr)
        point.violations.push_back("The disk is as it is at \"" + state.worst->name +
                                   "\", where a promise is broken.");
      report_(results_.emplace(planned->name, point).first->second);
    }
  }

  /// In the order of the plan; what nobody planned, such as that a worker died, comes as it came.
  Sweep sorted() const {
    Sweep sweep{
        .name = sweep_.name(), .total = sweep_.total(), .isControl = sweep_.isControl(), .points = {}};
    std::set<std::string> seen;
    const auto add = [&](const std::string& name) {
      if (const auto found = results_.find(name); found != results_.end() && seen.insert(name).second)
        sweep.points.push_back(found->second);
    };
    for (const PlannedPoint& point : sweep_.points())
      add(point.name);
    for (const std::string& name : order_)
      add(name);
    if (sweep.points.size() > sweep.total)
      sweep.total = sweep.points.size();
    return sweep;
  }

  const PlannedSweep& sweep_;
  const Workshop& workshop_;
  const std::function<void(const Point&)>& report_;
  std::map<std::string, SameState> states_;
  std::map<std::string, Point> results_;
  /// Not tried again, even where a worker has died of them and there is no result.
  std::set<const PlannedPoint*> begun_;
  std::vector<std::string> order_;
};

}  // namespace

bool PlannedSweep::selects(const std::string& point, bool always) {
  const bool isFirst = total_++ == 0;
  return (always || isFirst || selection_.samples(name_, point)) && selection_.isOurs(name_, point);
}

Sweep run(const PlannedSweep& sweep, const Workshop& workshop,
          const std::function<void(const Point&)>& report) {
  return SweepRun(sweep, workshop, report).run();
}

}  // namespace rehearse
