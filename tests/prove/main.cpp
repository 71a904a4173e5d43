// Tries an update at every point at which something can go wrong, and prints a table of what came of it.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/foundation/best_effort.hpp"
#include "rehearse/proof/call_sweeps.hpp"
#include "rehearse/proof/limit_sweeps.hpp"
#include "rehearse/proof/power_cuts.hpp"
#include "rehearse/proof/tally.hpp"
#include "tests/helpers/files.hpp"
#include "tests/prove/sample_material.hpp"

namespace {

using rehearse::Material;
using rehearse::PlannedSweep;
using rehearse::Story;

/// What a test ends with that the system does not let begin.
constexpr int kSkipped = 77;

constexpr const char* kUsage =
    "Usage: prove_updates [--every N] [--disk ext4|xfs|btrfs] [WORD]...\n"
    "Tries one point of N, by default all, of the sweeps that have one of the words in their names, by "
    "default all. Power is cut on disks with ext4 by default.\n";

struct Arguments {
  std::size_t every = 1;
  std::string disk = "ext4";
  std::vector<std::string> words;
};

Arguments parse(const std::vector<std::string>& texts) {
  Arguments arguments;
  for (std::size_t index = 0; index < texts.size(); ++index) {
    if (texts[index] == "--every" && index + 1 < texts.size())
      arguments.every = std::max(1UL, std::stoul(texts[++index]));
    else if (texts[index] == "--disk" && index + 1 < texts.size())
      arguments.disk = texts[++index];
    else if (!texts[index].starts_with('-'))
      arguments.words.push_back(texts[index]);
    else
      throw std::invalid_argument(kUsage);
  }
  return arguments;
}

std::vector<PlannedSweep> allSweeps(const Material& material, const rehearse::Place& place,
                                    const Arguments& arguments) {
  const std::size_t every = arguments.every;
  std::vector<PlannedSweep> sweeps;
  for (const Story story : {Story::update, Story::rollback, Story::revert}) {
    const auto calls = rehearse::record(material, story, place);
    sweeps.push_back(faultSweep(material, story, calls, every));
    std::ranges::move(breakdownSweeps(material, story, calls, every), std::back_inserter(sweeps));
    sweeps.push_back(killSweep(material, story, calls, every));
    sweeps.push_back(secondKillSweep(material, story, calls, every));
    if (story == Story::update) {
      sweeps.push_back(killSweepWithoutExchange(material));
      sweeps.push_back(hangSweep(material, calls, every));
    }
  }
  const std::string obstacle = rehearse::obstacleToPowerCuts(arguments.disk, place);
  if (obstacle.empty())
    std::ranges::move(powerCutSweeps(material, arguments.disk, every), std::back_inserter(sweeps));
  else
    std::printf("Without power cuts. %s\n", obstacle.c_str());
  std::ranges::move(limitSweeps(material, every), std::back_inserter(sweeps));
  return sweeps;
}

/// A place for the recordings. None, with a word on why, where the system does not grant the mounts and the
/// tracing.
std::optional<rehearse::Place> begin(const Material& material, const std::filesystem::path& directory) {
  try {
    rehearse::Place place = rehearse::settle(directory);
    rehearse::record(material, Story::update, place);
    return place;
  } catch (const std::filesystem::filesystem_error&) {
    throw;
  } catch (const std::system_error& refusal) {
    std::printf("The system does not let it begin: %s\n", refusal.what());
    return std::nullopt;
  }
}

bool isWanted(const PlannedSweep& sweep, const std::vector<std::string>& words) {
  return words.empty() || std::ranges::any_of(words, [&](const std::string& word) {
           return sweep.name.find(word) != std::string::npos;
         });
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Arguments arguments = parse({argv + 1, argv + argc});
    const test::TemporaryDirectory directory("/var/tmp");
    std::filesystem::create_directory(directory / "material");
    const Material material = prove::makeSampleMaterial(directory / "material");
    const std::optional<rehearse::Place> place = begin(material, directory / "recording");
    const platform::ScopeExit leaveRecording([&] { rehearse::leave(directory / "recording"); });
    if (!place)
      return kSkipped;
    // An update spends half its time waiting for its tools.
    const unsigned workers = 2 * std::max(1U, std::thread::hardware_concurrency());
    std::vector<rehearse::Tally> tallies;
    for (const PlannedSweep& sweep : allSweeps(material, *place, arguments))
      if (isWanted(sweep, arguments.words))
        tallies.push_back(run(sweep, directory.path(), workers));
    if (tallies.empty())
      throw std::invalid_argument("No sweep has such a word in its name.");
    printTable(tallies);
    return std::ranges::all_of(tallies, &rehearse::Tally::isAsItShould) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return EXIT_FAILURE;
  }
}
