// Tries an update at every point at which something can go wrong, and prints a table of what came of it.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <string>
#include <vector>

#include "tests/prove/call_sweeps.hpp"
#include "tests/prove/power_cuts.hpp"
#include "tests/support/files.hpp"

namespace {

using prove::Material;
using prove::Result;
using prove::Story;
using prove::Sweep;

constexpr unsigned kWorkers = 2;
constexpr std::size_t kShownViolations = 20;

/// What came of a sweep.
struct Tally {
  std::size_t points = 0;
  std::map<std::string, std::size_t> outcomes;
  std::vector<std::string> violations;

  void add(const Result& result) {
    if (result.outcome != "not reached")
      ++points;
    ++outcomes[result.outcome];
    for (const std::string& violation : result.violations)
      violations.push_back(result.point + ": " + violation);
  }
};

Tally run(const Sweep& sweep, const std::filesystem::path& directory) {
  Tally tally;
  const bool terminal = ::isatty(STDOUT_FILENO) != 0;
  std::size_t done = 0;
  prove::runTasks(sweep.tasks, directory, kWorkers, [&](const Result& result) {
    tally.add(result);
    ++done;
    if (terminal || done % 500 == 0)
      std::printf("%s%s: %zu of %zu, %zu violations%s", terminal ? "\r" : "", sweep.name.c_str(), done,
                  sweep.tasks.size(), tally.violations.size(), terminal ? "\033[K" : "\n");
    std::fflush(stdout);
  });
  std::printf("%s%s: %zu points\n", terminal ? "\r\033[K" : "", sweep.name.c_str(), tally.points);
  for (std::size_t index = 0; index < tally.violations.size() && index < kShownViolations; ++index)
    std::printf("  %.400s\n", tally.violations[index].c_str());
  std::fflush(stdout);
  return tally;
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t every = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1;
  const std::string only = argc > 2 ? argv[2] : "";
  try {
    const test::TemporaryDirectory directory("/var/tmp");
    std::filesystem::create_directory(directory / "material");
    const Material material(directory / "material");
    const prove::Place place = prove::settle(directory / "recording");
    std::vector<Sweep> sweeps;
    for (const Story story : {Story::update, Story::rollback, Story::revert}) {
      const auto calls = prove::record(material, story, place);
      std::printf("%s: %zu calls\n", nameOf(story).c_str(), calls.size());
      sweeps.push_back(faultSweep(material, story, calls, every));
      sweeps.push_back(brokenDiskSweep(material, story, calls, every));
      sweeps.push_back(killSweep(material, story, calls, every));
      sweeps.push_back(secondKillSweep(material, story, calls, every));
    }
    for (Sweep& sweep : prove::powerCutSweeps(material, every))
      sweeps.push_back(std::move(sweep));
    for (const Sweep& sweep : sweeps) {
      if (sweep.name.find(only) == std::string::npos)
        continue;
      const Tally tally = run(sweep, directory.path());
      for (const auto& [outcome, count] : tally.outcomes)
        std::printf("    %s %zu\n", outcome.c_str(), count);
      std::printf("    violations %zu\n", tally.violations.size());
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return EXIT_FAILURE;
  }
}
