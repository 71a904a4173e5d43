#include "rehearse/proof/tally.hpp"

#include <unistd.h>

#include <cstdio>

namespace rehearse {
namespace {

constexpr std::size_t kShownViolations = 20;
constexpr std::size_t kPointsPerLine = 500;

/// One line that is written over in a terminal; one line now and then elsewhere.
class Progress {
 public:
  Progress(std::string name, std::size_t tasks) : name_(std::move(name)), tasks_(tasks) { show(0); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() {
    if (isTerminal_)
      std::printf("\r\033[K");
    std::fflush(stdout);
  }

  /// A line of its own.
  void say(const std::string& text) const {
    std::printf("%s  %.400s\n", isTerminal_ ? "\r\033[K" : "", text.c_str());
    std::fflush(stdout);
  }

  void step(std::size_t violations) {
    ++done_;
    if (isTerminal_ || done_ % kPointsPerLine == 0)
      show(violations);
  }

 private:
  void show(std::size_t violations) const {
    std::printf("%s%s: %zu of %zu, violations: %zu%s", isTerminal_ ? "\r" : "", name_.c_str(), done_, tasks_,
                violations, isTerminal_ ? "\033[K" : "\n");
    std::fflush(stdout);
  }

  std::string name_;
  std::size_t tasks_;
  std::size_t done_ = 0;
  bool isTerminal_ = ::isatty(STDOUT_FILENO) != 0;
};

}  // namespace

Tally run(const PlannedSweep& sweep, const std::filesystem::path& directory, unsigned workers) {
  Tally tally{.name = sweep.name, .isControl = sweep.mustFail};
  std::size_t shown = 0;
  {
    Progress progress(sweep.name, sweep.tasks.size());
    runTasks(sweep.tasks, directory, workers, [&](const Result& result) {
      tally.points += result.outcome == "not reached" ? 0U : 1U;
      tally.old += result.outcome == "old" ? 1U : 0U;
      tally.offered += result.outcome == "new" ? 1U : 0U;
      tally.lost += result.outcome == "neither" ? 1U : 0U;
      tally.failed += result.outcome == "none" ? 1U : 0U;
      tally.violations += result.violations.size();
      for (const std::string& violation : result.violations)
        if (shown++ < kShownViolations)
          progress.say(result.point + ": " + violation);
      progress.step(tally.violations);
    });
  }
  return tally;
}

void printTable(const std::vector<Tally>& tallies) {
  std::printf("\n%-66s %7s %7s %7s %7s  %s\n", "", "points", "old", "new", "others", "violations");
  Tally sum{.name = "in all, without the controls"};
  const auto print = [](const Tally& tally, const std::string& verdict) {
    std::printf("%-66s %7zu %7zu %7zu %7zu  %s\n", tally.name.c_str(), tally.points, tally.old, tally.offered,
                tally.points - tally.old - tally.offered, verdict.c_str());
  };
  for (const Tally& tally : tallies) {
    std::string verdict = tally.violations == 0 ? "none" : std::to_string(tally.violations);
    if (tally.isControl)
      verdict += tally.isAsItShould() ? ", as a control must" : ", and a control must lose the application";
    else if (!tally.isAsItShould())
      verdict += ": NOT AS IT SHOULD BE";
    print(tally, verdict);
    if (tally.isControl)
      continue;
    sum.points += tally.points;
    sum.old += tally.old;
    sum.offered += tally.offered;
    sum.violations += tally.violations;
  }
  print(sum, sum.violations == 0 ? "none" : std::to_string(sum.violations));
}

}  // namespace rehearse
