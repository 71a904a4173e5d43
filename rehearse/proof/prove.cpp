#include "rehearse/proof/prove.hpp"

#include <algorithm>
#include <thread>
#include <utility>

#include "rehearse/proof/call_sweeps.hpp"
#include "rehearse/proof/limit_sweeps.hpp"
#include "rehearse/proof/power_cuts.hpp"
#include "rehearse/proof/release_material.hpp"
#include "rehearse/proof/verdict.hpp"

namespace rehearse {
namespace {

/// The proof of one update.
class Proof {
 public:
  Proof(const ProofOptions& options, const Material& material,
        const std::function<void(const ProofProgress&)>& progress)
      : options_(options),
        material_(material),
        progress_(progress),
        nextUpdates_(options.directory / "next-updates"),
        selection_{std::max<std::size_t>(options.every, 1), options.shard},
        workshop_{options.directory,
                  options.jobs != 0 ? options.jobs : 2 * std::max(1U, std::thread::hardware_concurrency()),
                  [&material] { material.starts->settle(); }},
        stories_(stories()) {}

  std::vector<Sweep> run() {
    for (const Story story : stories_)
      runStory(story);
    if (has(ProofKind::powerCuts))
      for (const std::string& fileSystem : options_.fileSystems)
        runPowerCuts(fileSystem);
    if (has(ProofKind::limits))
      for (const PlannedSweep& sweep : limitSweeps(material_, nextUpdates_, selection_))
        run(sweep);
    return std::move(results_);
  }

 private:
  bool has(ProofKind kind) const { return options_.kinds.contains(kind); }

  bool isWanted(const std::string& sweep) const {
    return options_.words.empty() || std::ranges::any_of(options_.words, [&](const std::string& word) {
             return sweep.find(word) != std::string::npos;
           });
  }

  /// Those that the material can go through.
  std::vector<Story> stories() {
    if (material_.canRefuseStart)
      return {Story::update, Story::rollback, Story::revert};
    if (has(ProofKind::kills) || has(ProofKind::faults) || has(ProofKind::powerCuts))
      notTried(nameOf(Story::rollback),
               "Both applications have the same executable, so that the start of the new one alone "
               "cannot be refused.");
    return {Story::update, Story::revert};
  }

  void runStory(Story story) {
    const bool isUpdate = story == Story::update;
    if (!has(ProofKind::kills) && !has(ProofKind::faults) && !(isUpdate && has(ProofKind::limits)))
      return;
    const std::vector<RecordedCall> calls = record(material_, story, workshop_);
    const Rehearsed rehearsed{material_, nextUpdates_, story, calls, selection_};
    if (has(ProofKind::faults)) {
      run(faultSweep(rehearsed));
      for (const PlannedSweep& sweep : breakdownSweeps(rehearsed))
        run(sweep);
    }
    if (has(ProofKind::kills)) {
      run(killSweep(rehearsed));
      run(killSweepOfOne(rehearsed));
      run(secondKillSweep(rehearsed));
      if (isUpdate)
        run(killSweepWithoutExchange(material_, selection_));
    }
    if (isUpdate && has(ProofKind::limits))
      run(hangSweep(rehearsed));
  }

  void runPowerCuts(const std::string& fileSystem) {
    std::vector<PowerCutSweep> sweeps = powerCutSweeps(fileSystem, stories_);
    std::erase_if(sweeps, [this](const PowerCutSweep& sweep) { return !isWanted(sweep.name()); });
    if (sweeps.empty())
      return;
    const std::string obstacle =
        inPlace(workshop_, [&](const Place& place) { return obstacleToPowerCuts(fileSystem, place); });
    if (!obstacle.empty())
      return notTried("power cuts on " + fileSystem, obstacle);
    Workshop workshop = workshop_;
    // Before Linux 6.7, btrfs does not.
    if (inPlace(workshop_, [&](const Place& place) -> std::string {
          return mountsCopies(fileSystem, place) ? "several" : "one";
        }) == "one")
      workshop.workers = 1;
    for (const PowerCutSweep& sweep : sweeps)
      run(plan(sweep, material_, selection_, workshop), workshop);
  }

  void notTried(const std::string& name, const std::string& reason) {
    results_.push_back(
        {.name = name, .total = 1, .points = {{reason, PointOutcome::notTried, PointMethod::run, {}}}});
  }

  void run(const PlannedSweep& sweep) {
    if (isWanted(sweep.name()))
      run(sweep, workshop_);
  }

  void run(const PlannedSweep& sweep, const Workshop& workshop) {
    std::size_t done = 0;
    results_.push_back(rehearse::run(sweep, workshop, [&](const Point& point) {
      if (progress_)
        progress_({sweep.name(), ++done, sweep.points().size(), point});
    }));
  }

  const ProofOptions& options_;
  const Material& material_;
  const std::function<void(const ProofProgress&)>& progress_;
  NextUpdates nextUpdates_;
  Selection selection_;
  Workshop workshop_;
  std::vector<Sweep> results_;
  std::vector<Story> stories_;
};

}  // namespace

std::vector<Sweep> prove(const ProofOptions& options, const Material& material,
                         const std::function<void(const ProofProgress&)>& progress) {
  return Proof(options, material, progress).run();
}

std::vector<Sweep> prove(const ProofOptions& options, const ProvedRelease& release,
                         const std::function<void(const ProofProgress&)>& progress) {
  return prove(options, materialOf(release), progress);
}

}  // namespace rehearse
